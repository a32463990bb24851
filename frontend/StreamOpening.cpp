#include "frontend/StreamOpening.h"

#include <atomic>
#include <chrono>
#include <system_error>
#include <utility>

#include "frontend/LoopbackStream.h"
#include "platform/CriticalLock.h"

namespace vellumic {

struct StreamOpening::Shared {
  explicit Shared(LoopbackOpener o) : opener(std::move(o)) {}
  ~Shared() {
    delete arriving.exchange(nullptr, std::memory_order_acquire);
    freeRetired();
  }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  void freeRetired() noexcept {
    LoopbackStream* stream = retired.exchange(nullptr, std::memory_order_acquire);
    while (stream != nullptr) delete std::exchange(stream, stream->nextRetired);
  }
  std::unique_ptr<LoopbackStream> open(double wanted) const noexcept;
  bool openAndHandOver() noexcept;
  void handOver(std::unique_ptr<LoopbackStream>& stream, double itsRate) noexcept;
  bool endOpening(double itsRate) noexcept;  // false: start() wants another rate by now

  const LoopbackOpener opener;
  std::atomic<LoopbackStream*> arriving{nullptr};  // to the audio thread, owning
  std::atomic<LoopbackStream*> retired{nullptr};   // from the audio thread, owning list
  std::atomic<double> rate{0.0};                   // written under the lock
  std::atomic<bool> working{false};                // handed over, and not failing by now

  // Control thread and helper; held for moments, never around a call of the device.
  CriticalLock lock;
  std::atomic<bool> opening{false};  // the helper's last word is false
  bool leftBehind = false;
};

std::unique_ptr<LoopbackStream> StreamOpening::Shared::open(double wanted) const noexcept {
  try {
    auto packets = opener.open();
    if (!packets) return nullptr;
    auto stream = std::make_unique<LoopbackStream>(std::move(packets), wanted);
    return stream->start() ? std::move(stream) : nullptr;
  } catch (...) {
    return nullptr;
  }
}

// Gives the stream to the audio thread, unless a start() or stop() that came meanwhile has no use
// for it; then it stays with the caller, as does one that the audio thread has not taken.
void StreamOpening::Shared::handOver(std::unique_ptr<LoopbackStream>& stream,
                                     double itsRate) noexcept {
  const LockScope scope(lock);
  if (stream == nullptr || itsRate != rate.load() || leftBehind) return;
  stream.reset(arriving.exchange(stream.release(), std::memory_order_acq_rel));
  working.store(true, std::memory_order_relaxed);
}

bool StreamOpening::Shared::endOpening(double itsRate) noexcept {
  const LockScope scope(lock);
  if (itsRate != rate.load() && !leftBehind) return false;
  opening.store(false, std::memory_order_release);
  return true;
}

bool StreamOpening::Shared::openAndHandOver() noexcept {
  for (;;) {
    freeRetired();
    const double wanted = rate.load();
    std::unique_ptr<LoopbackStream> stream = open(wanted);
    const bool opened = stream != nullptr;
    handOver(stream, wanted);
    stream.reset();  // before the end is told: closing may take its time as well
    if (endOpening(wanted)) return opened;
  }
}

StreamOpening::StreamOpening(LoopbackOpener opener)
    : shared_(std::make_shared<Shared>(std::move(opener))) {}

StreamOpening::~StreamOpening() { stop(); }

bool StreamOpening::start(double rate) {
  if (!shared_->opener.open) return false;
  if (shared_->leftBehind) shared_ = std::make_shared<Shared>(shared_->opener);
  {
    const LockScope scope(shared_->lock);
    if (shared_->rate.exchange(rate) != rate) shared_->working.store(false);
    if (shared_->opening.load() || shared_->working.load()) return true;
    shared_->opening.store(true);
  }
  if (!shared_->opener.onHelperThread) return shared_->openAndHandOver();
  if (helper_.joinable()) helper_.join();  // has finished
  try {
    helper_ = std::thread([shared = shared_] { shared->openAndHandOver(); });
  } catch (const std::system_error&) {
    shared_->opening.store(false);
    return false;
  } catch (...) {
    shared_->opening.store(false);
    throw;
  }
  return true;
}

void StreamOpening::stop() {
  if (helper_.joinable()) {
    if (waitForHelper()) {
      helper_.join();
    } else {
      if (shared_->opener.onLeftBehind) shared_->opener.onLeftBehind();
      helper_.detach();
    }
  }
  shared_->working.store(false);
  delete shared_->arriving.exchange(nullptr, std::memory_order_acquire);
  shared_->freeRetired();
}

bool StreamOpening::waitForHelper() {
  constexpr std::chrono::milliseconds step{1};
  const auto end = std::chrono::steady_clock::now() + shared_->opener.patience;
  while (shared_->opening.load(std::memory_order_acquire) && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(step);
  const LockScope scope(shared_->lock);
  shared_->leftBehind = shared_->opening.load();
  return !shared_->leftBehind;
}

LoopbackStream* StreamOpening::take() noexcept VELLUMIC_NONBLOCKING {
  return shared_->arriving.exchange(nullptr, std::memory_order_acquire);
}

void StreamOpening::retire(LoopbackStream* stream) noexcept VELLUMIC_NONBLOCKING {
  if (stream == nullptr) return;
  std::atomic<LoopbackStream*>& retired = shared_->retired;
  stream->nextRetired = retired.load(std::memory_order_relaxed);
  while (!retired.compare_exchange_weak(stream->nextRetired, stream, std::memory_order_release,
                                        std::memory_order_relaxed)) {
  }
}

void StreamOpening::tell(bool working) noexcept VELLUMIC_NONBLOCKING {
  shared_->working.store(working, std::memory_order_relaxed);
}

double StreamOpening::rate() const noexcept VELLUMIC_NONBLOCKING { return shared_->rate.load(); }

bool StreamOpening::dropsBacklog() const noexcept VELLUMIC_NONBLOCKING {
  return shared_->opener.dropsBacklog;
}

}  // namespace vellumic
