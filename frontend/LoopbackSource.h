// The two echo references: what the machine plays, at the internal rate, aligned by an adjustable
// delay.
//
// Opening is kept away from the audio thread (see StreamOpening.h): start() hands it to a helper
// thread, or does it on the spot, and returns; the audio thread takes the finished stream at its
// next drain(). Until then popBlock() is false. A device that failed stays attached and silent; the
// next start() opens anew. So it does when the target rate has changed: the stream of the former
// rate gives nothing from then on.
//
// Threads: start, stop and the destructor belong to one control thread; start() may come under
// locks, stop and the destructor hold none, may wait for an opening under way as long as the opener
// says, and come when the audio thread is out. drain, discard, popBlock and the delay belong to the
// real-time thread. setTargetRate: any.
#pragma once

#include <atomic>

#include "frontend/PacketSource.h"
#include "frontend/SampleRing.h"
#include "frontend/StreamOpening.h"
#include "platform/Realtime.h"

namespace vellumic {

class LoopbackStream;

class LoopbackSource {
 public:
  LoopbackSource();  // nothing to open: start() is false, popBlock() always false
  explicit LoopbackSource(LoopbackOpener opener);
  ~LoopbackSource();
  LoopbackSource(const LoopbackSource&) = delete;
  LoopbackSource& operator=(const LoopbackSource&) = delete;

  // Opens unless a working stream for the target rate is attached or being opened. True when one is
  // there or, with a helper thread, on its way.
  bool start() { return opening_.start(targetRate_.load(std::memory_order_relaxed)); }
  void stop();

  // Hz; counts from the next start() on.
  void setTargetRate(double rate) noexcept { targetRate_.store(rate, std::memory_order_relaxed); }

  // Moves every waiting packet into the ring. Bounded in packets and in failures. The first drain
  // of a stream whose opener drops its backlog discards instead. When nothing waits the
  // loudspeakers pause: the ring is emptied as for a fresh stream, and the first block dropped.
  // True when packets begin to come, from a fresh stream or after a pause: where in a block they
  // began is chance, so that an alignment found before no longer holds.
  bool drain() noexcept VELLUMIC_NONBLOCKING;

  // For the first block after the references went unread: throws away what waits and what is
  // queued, so that fresh packets follow the delay's silence. The next two popBlock() are false:
  // the queue needs a block in hand against uneven packets.
  void discard() noexcept VELLUMIC_NONBLOCKING;

  // Takes `count` samples per reference into two rows of at least that many. False when nothing
  // plays or too little is queued; the target then keeps its contents, as the second row does when
  // the device is mono.
  bool popBlock(ChannelArrays& target, int count) noexcept VELLUMIC_NONBLOCKING;

  // Samples at the internal rate by which the references are held back. False if negative.
  bool setDelay(int samples) noexcept VELLUMIC_NONBLOCKING;
  int delay() const noexcept { return delay_; }

  bool streaming() const noexcept { return streaming_.load(std::memory_order_relaxed); }

 private:
  bool adopt() noexcept;
  void takeWaiting() noexcept;
  void dropWaiting() noexcept;

  StreamOpening opening_;
  std::atomic<double> targetRate_{16000.0};

  // Real-time thread only.
  LoopbackStream* stream_ = nullptr;  // owning
  int delay_ = 0;
  bool skipFirstBlock_ = true;
  bool discarded_ = false;
  std::atomic<bool> draining_{false};   // teardown can meet a drain
  std::atomic<bool> streaming_{false};  // packets are arriving
};

}  // namespace vellumic
