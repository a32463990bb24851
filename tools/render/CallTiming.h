// How long the calls of the frame path took.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vellumic::tools {

struct CallFigures {
  std::size_t calls = 0;
  double p50 = 0.0, p99 = 0.0, worst = 0.0;  // microseconds
};

class CallTiming {
 public:
  void reserve(std::size_t calls) { all_.reserve(calls); }
  // completesBlock: the call carried the work of a whole block of the array pipeline.
  void add(double microseconds, bool completesBlock);

  CallFigures all() const { return figuresOf(all_); }
  CallFigures completingBlocks() const { return figuresOf(blocks_); }

 private:
  static CallFigures figuresOf(std::vector<double> calls);

  std::vector<double> all_, blocks_;
};

// One line when the calls that complete a block outlast the audio engine's period, empty otherwise.
std::string slownessWarning(const CallTiming& timing, double periodSeconds);

// A few lines for the user. periodSeconds: audio per call; cpuSeconds: of the whole run.
std::string timingText(const CallTiming& timing, double periodSeconds, double audioSeconds,
                       double cpuSeconds, double peakMegabytes);

}  // namespace vellumic::tools
