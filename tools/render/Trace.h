// What the array pipeline did over a run: its probe, noted after the calls.
#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "tools/render/Renderer.h"

namespace vellumic::tools {

constexpr double erleWindow = 0.5;  // s

struct TracePoint {
  double seconds;  // stream time at the end of the call
  PipelineProbe probe;
};

class Trace {
 public:
  // Notes a call; of many short ones at most one per 10 ms, beside those that complete a block.
  void add(const CallReport& call);

  const std::vector<TracePoint>& points() const { return points_; }
  bool arrayRan() const { return !points_.empty() && points_.back().probe.blocks > 0; }

 private:
  std::vector<TracePoint> points_;
};

// The block of `trace[n]` went through the cancellers while the loudspeakers were audible.
bool echoCancelled(const std::vector<TracePoint>& trace, std::size_t n);

// (time, dB): 10 log10 of the first microphone's energy before the echo stage over that after it,
// in the `window` seconds before each block; NaN where no echo is cancelled. A talker in the room
// counts as residual: with one it is less than the echo return loss enhancement.
std::vector<std::pair<double, double>> erleOverTime(const Trace& trace, double window);

// Of erleOverTime() from 5 s of echo on.
struct ErleFigures {
  double mean;  // dB, over time
  double best;  // dB, reached in a tenth of the time: without a talker, as a rule
};
std::optional<ErleFigures> erleFigures(const Trace& trace);

// dB; the level control's gain of one linear value, not below -120.
double gainDecibels(float linear);

}  // namespace vellumic::tools
