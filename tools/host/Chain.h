// The effects of one stream, one after another, each call timed.
// Thread: as CaptureEffect.
#pragma once

#include <cstddef>
#include <vector>

#include "tools/host/CaptureEffect.h"
#include "tools/render/CallTiming.h"

namespace vellumic::tools {

class Chain {
 public:
  explicit Chain(double periodSeconds) : periodSeconds_(periodSeconds) {}
  void add(CaptureEffect& effect) { effects_.push_back(&effect); }
  void reserve(std::size_t calls) { timing_.reserve(calls); }

  // One period in place, at most as long as the effects were locked for.
  void process(float* samples, unsigned frames);

  [[nodiscard]] CallFigures figures() const { return timing_.all(); }
  // Periods in which the effects took longer than a period, and calls they did not carry out.
  [[nodiscard]] int overrun() const { return overrun_; }
  [[nodiscard]] int failed() const { return failed_; }

 private:
  double periodSeconds_;
  std::vector<CaptureEffect*> effects_;
  CallTiming timing_;
  int overrun_ = 0, failed_ = 0;
};

}  // namespace vellumic::tools
