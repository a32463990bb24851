// A progress bar on standard error, for runs that take a while, on a terminal only.
#pragma once

#include <chrono>

namespace vellumic::tools {

class ProgressBar {
 public:
  ProgressBar();
  ~ProgressBar();  // clears the line
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void show(double share);  // 0 to 1; draws at most ten times a second, first after half a second

 private:
  using Clock = std::chrono::steady_clock;
  bool terminal_;
  bool drawn_ = false;
  Clock::time_point next_;
};

}  // namespace vellumic::tools
