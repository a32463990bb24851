// Opens loopback streams away from the audio thread and hands them over; takes back those that the
// audio thread has done with.
//
// What the helper thread works on outlives this object: stop() waits for an opening under way only
// as long as its opener says, then leaves the helper to end alone and close what it still opens.
//
// Threads: start, stop and the destructor belong to one control thread. start() may come under
// locks: with a helper thread it waits for no device and frees no stream. stop() and the destructor
// do both: hold no lock. A start() after a stop() comes before the audio thread does.
// take, retire, tell and rate are the audio thread's; they never wait.
#pragma once

#include <memory>
#include <thread>

#include "frontend/PacketSource.h"
#include "platform/Realtime.h"

namespace vellumic {

class LoopbackStream;

class StreamOpening {
 public:
  explicit StreamOpening(LoopbackOpener opener);
  ~StreamOpening();
  StreamOpening(const StreamOpening&) = delete;
  StreamOpening& operator=(const StreamOpening&) = delete;

  // Opens a stream for this rate in Hz, unless a working one is attached or being opened for it.
  // True when one is there or, with a helper thread, on its way. May throw std::bad_alloc.
  bool start(double rate);
  void stop();

  // The stream that has arrived, the caller's from now on; null if none has.
  [[nodiscard]] LoopbackStream* take() noexcept VELLUMIC_NONBLOCKING;
  // Passes a stream on to be freed elsewhere. Null is ignored.
  void retire(LoopbackStream* stream) noexcept VELLUMIC_NONBLOCKING;
  // Whether the stream in use answers; one that does not is replaced at the next start().
  void tell(bool working) noexcept VELLUMIC_NONBLOCKING;
  // Of the latest start(), in Hz.
  [[nodiscard]] double rate() const noexcept VELLUMIC_NONBLOCKING;
  [[nodiscard]] bool dropsBacklog() const noexcept VELLUMIC_NONBLOCKING;

 private:
  struct Shared;
  bool waitForHelper();  // false: it is left behind
  std::shared_ptr<Shared> shared_;
  std::thread helper_;
};

}  // namespace vellumic
