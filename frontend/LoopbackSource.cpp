#include "frontend/LoopbackSource.h"

#include <chrono>
#include <thread>
#include <utility>

#include "frontend/LoopbackStream.h"

namespace vellumic {

LoopbackSource::LoopbackSource() : LoopbackSource(LoopbackOpener{}) {}

LoopbackSource::LoopbackSource(LoopbackOpener opener) : opening_(std::move(opener)) {}

LoopbackSource::~LoopbackSource() { stop(); }

void LoopbackSource::stop() {
  // A drain under way ends within moments; the wait is for hosts that stop a running stream.
  for (int i = 0; i < 10 && draining_.exchange(true, std::memory_order_acquire); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  opening_.stop();
  streaming_.store(false, std::memory_order_relaxed);
  delete std::exchange(stream_, nullptr);
  draining_.store(false, std::memory_order_release);
}

// Takes a stream that has arrived and lets one go that serves another rate. True for a fresh one.
bool LoopbackSource::adopt() noexcept {
  LoopbackStream* fresh = opening_.take();
  const bool outdated = stream_ != nullptr && stream_->targetRate() != opening_.rate();
  if (fresh == nullptr && !outdated) return false;
  opening_.retire(std::exchange(stream_, fresh));
  streaming_.store(false, std::memory_order_relaxed);
  skipFirstBlock_ = true;
  if (fresh != nullptr) fresh->setDelay(delay_);
  return fresh != nullptr;
}

bool LoopbackSource::drain() noexcept VELLUMIC_NONBLOCKING {
  if (draining_.exchange(true, std::memory_order_acquire)) return false;
  const bool fresh = adopt();
  const bool paused = !streaming();
  // A device has been playing since it was opened beside the audio: what piled up is the past.
  if (fresh && opening_.dropsBacklog())
    dropWaiting();
  else
    takeWaiting();
  draining_.store(false, std::memory_order_release);
  return paused && streaming();
}

void LoopbackSource::discard() noexcept VELLUMIC_NONBLOCKING {
  if (draining_.exchange(true, std::memory_order_acquire)) return;
  adopt();
  dropWaiting();
  draining_.store(false, std::memory_order_release);
}

void LoopbackSource::takeWaiting() noexcept {
  if (stream_ == nullptr) return;
  const LoopbackStream::Outcome outcome = stream_->drain();
  opening_.tell(!outcome.failed);
  if (outcome.waiting == LoopbackStream::Packets::some) {
    streaming_.store(true, std::memory_order_relaxed);
  } else if (!outcome.failed && streaming_.exchange(false, std::memory_order_relaxed)) {
    stream_->restartRing();  // the loudspeakers paused: what is queued is the past
    skipFirstBlock_ = true;
  }
}

void LoopbackSource::dropWaiting() noexcept {
  if (stream_ == nullptr) return;
  const LoopbackStream::Outcome outcome = stream_->discard();
  opening_.tell(!outcome.failed);
  streaming_.store(outcome.waiting == LoopbackStream::Packets::some, std::memory_order_relaxed);
  stream_->restartRing();
  skipFirstBlock_ = discarded_ = true;
}

bool LoopbackSource::popBlock(ChannelArrays& target, int count) noexcept VELLUMIC_NONBLOCKING {
  if (stream_ == nullptr || std::exchange(discarded_, false) || !streaming()) return false;
  if (std::exchange(skipFirstBlock_, false)) return false;
  return stream_->pop(target, count);
}

bool LoopbackSource::setDelay(int samples) noexcept VELLUMIC_NONBLOCKING {
  if (samples < 0) return false;
  delay_ = samples;
  if (stream_ != nullptr) stream_->setDelay(samples);
  return true;
}

}  // namespace vellumic
