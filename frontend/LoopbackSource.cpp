#include "frontend/LoopbackSource.h"

#include <chrono>
#include <system_error>
#include <utility>

#include "frontend/LoopbackStream.h"

namespace vellumic {

LoopbackSource::LoopbackSource() = default;

LoopbackSource::LoopbackSource(LoopbackOpener opener) : opener_(std::move(opener)) {}

LoopbackSource::~LoopbackSource() { stop(); }

bool LoopbackSource::start() {
  if (!opener_.open) return false;
  const double rate = targetRate_.load(std::memory_order_relaxed);
  if (startRate_.exchange(rate) != rate) working_.store(false, std::memory_order_relaxed);
  if (opening_.load(std::memory_order_acquire) || working_.load(std::memory_order_relaxed))
    return true;
  if (helper_.joinable()) helper_.join();  // has finished
  if (!opener_.onHelperThread) return openAndHandOver();
  opening_.store(true, std::memory_order_relaxed);
  try {
    helper_ = std::thread([this] {
      openAndHandOver();
      opening_.store(false, std::memory_order_release);
    });
  } catch (const std::system_error&) {
    opening_.store(false, std::memory_order_relaxed);
    return false;
  }
  return true;
}

bool LoopbackSource::openAndHandOver() noexcept {
  freeRetired();
  try {
    auto packets = opener_.open();
    if (!packets) return false;
    const double rate = startRate_.load();
    auto stream = std::make_unique<LoopbackStream>(std::move(packets), rate);
    if (!stream->start()) return false;
    if (rate != startRate_.load()) return openAndHandOver();  // start() came meanwhile
    // A stream that the audio thread has not taken is replaced here.
    delete arriving_.exchange(stream.release(), std::memory_order_acq_rel);
  } catch (...) {
    return false;
  }
  working_.store(true, std::memory_order_relaxed);
  return true;
}

void LoopbackSource::stop() {
  if (helper_.joinable()) helper_.join();
  // A drain under way ends within moments; the wait is for hosts that stop a running stream.
  for (int i = 0; i < 10 && draining_.exchange(true, std::memory_order_acquire); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  streaming_.store(false, std::memory_order_relaxed);
  working_.store(false, std::memory_order_relaxed);
  delete arriving_.exchange(nullptr, std::memory_order_acquire);
  delete std::exchange(stream_, nullptr);
  freeRetired();
  draining_.store(false, std::memory_order_release);
}

void LoopbackSource::freeRetired() noexcept {
  LoopbackStream* stream = retired_.exchange(nullptr, std::memory_order_acquire);
  while (stream != nullptr) delete std::exchange(stream, stream->nextRetired);
}

// Takes a stream that has arrived and lets one go that serves another rate. True for a fresh one.
bool LoopbackSource::adopt() noexcept {
  LoopbackStream* fresh = arriving_.exchange(nullptr, std::memory_order_acquire);
  const bool outdated = stream_ != nullptr && stream_->targetRate() != startRate_.load();
  if (fresh == nullptr && !outdated) return false;
  retire(std::exchange(stream_, fresh));
  streaming_.store(false, std::memory_order_relaxed);
  skipFirstBlock_ = true;
  if (fresh != nullptr) fresh->setDelay(delay_);
  return fresh != nullptr;
}

// Passes a stream on to be freed elsewhere.
void LoopbackSource::retire(LoopbackStream* stream) noexcept {
  if (stream == nullptr) return;
  stream->nextRetired = retired_.load(std::memory_order_relaxed);
  while (!retired_.compare_exchange_weak(stream->nextRetired, stream, std::memory_order_release,
                                         std::memory_order_relaxed)) {
  }
}

bool LoopbackSource::drain() noexcept VELLUMIC_NONBLOCKING {
  if (draining_.exchange(true, std::memory_order_acquire)) return false;
  const bool fresh = adopt();
  const bool paused = !streaming();
  // A device has been playing since it was opened beside the audio: what piled up is the past.
  if (fresh && opener_.dropsBacklog)
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
  working_.store(!outcome.failed, std::memory_order_relaxed);
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
  working_.store(!outcome.failed, std::memory_order_relaxed);
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
