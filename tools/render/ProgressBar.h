// A progress bar on standard error, for runs that take a while, on a terminal only.
#pragma once

#include <chrono>
#include <string>

namespace vellumic::tools {

class ProgressBar {
 public:
  ProgressBar();
  ~ProgressBar();  // clears the line
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // share: 0 to 1; note: stands behind the bar. Draws at most ten times a second, first after half
  // a second.
  void show(double share, const std::string& note = "");

 private:
  using Clock = std::chrono::steady_clock;
  bool terminal_;
  std::size_t drawn_ = 0;  // characters
  Clock::time_point next_;
};

}  // namespace vellumic::tools
