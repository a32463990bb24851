#include "frontend/StreamOpening.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <utility>

#include "frontend/LoopbackStream.h"

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

  const LoopbackOpener opener;
  std::atomic<LoopbackStream*> arriving{nullptr};  // to the audio thread, owning
  std::atomic<LoopbackStream*> retired{nullptr};   // from the audio thread, owning list
  std::atomic<double> rate{0.0};                   // written under the mutex
  std::atomic<bool> working{false};                // handed over, and not failing by now

  // Control thread and helper; held for moments, never around a call of the device.
  std::mutex mutex;
  std::condition_variable ended;
  bool opening = false;
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

// Says that it is over as the last thing: closing a stream may take its time as well.
bool StreamOpening::Shared::openAndHandOver() noexcept {
  for (;;) {
    freeRetired();
    const double wanted = rate.load();
    std::unique_ptr<LoopbackStream> stream = open(wanted);
    const bool opened = stream != nullptr;
    std::unique_lock lock(mutex);
    if (opened && wanted == rate.load() && !leftBehind) {
      // One that the audio thread has not taken is replaced.
      stream.reset(arriving.exchange(stream.release(), std::memory_order_acq_rel));
      working.store(true, std::memory_order_relaxed);
    }
    lock.unlock();
    stream.reset();
    lock.lock();
    if (wanted != rate.load() && !leftBehind) continue;  // start() came meanwhile
    opening = false;
    ended.notify_all();
    return opened;
  }
}

StreamOpening::StreamOpening(LoopbackOpener opener)
    : shared_(std::make_shared<Shared>(std::move(opener))) {}

StreamOpening::~StreamOpening() { stop(); }

bool StreamOpening::start(double rate) {
  if (!shared_->opener.open) return false;
  if (shared_->leftBehind) shared_ = std::make_shared<Shared>(shared_->opener);
  {
    const std::scoped_lock lock(shared_->mutex);
    if (shared_->rate.exchange(rate) != rate) shared_->working.store(false);
    if (shared_->opening || shared_->working.load()) return true;
    shared_->opening = true;
  }
  if (!shared_->opener.onHelperThread) return shared_->openAndHandOver();
  if (helper_.joinable()) helper_.join();  // has finished
  try {
    helper_ = std::thread([shared = shared_] { shared->openAndHandOver(); });
  } catch (const std::system_error&) {
    const std::scoped_lock lock(shared_->mutex);
    shared_->opening = false;
    return false;
  }
  return true;
}

void StreamOpening::stop() {
  if (helper_.joinable()) {
    std::unique_lock lock(shared_->mutex);
    shared_->leftBehind = !shared_->ended.wait_for(lock, shared_->opener.patience,
                                                   [this] { return !shared_->opening; });
    lock.unlock();
    if (!shared_->leftBehind) {
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
