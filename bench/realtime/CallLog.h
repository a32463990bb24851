// What the calls of one configuration cost, and which was the worst.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vellumic::bench {

struct CallCost {
  double microseconds = 0.0;
  std::string state, work;  // in which state of the stream, and what the call had to do
};

struct CallLog {
  std::vector<double> times;  // us
  CallCost worst;
  int forbidden = 0;             // heap calls, waits and system calls
  std::string firstForbidden;    // empty without one
  std::size_t deepestStack = 0;  // bytes

  void add(CallCost cost);
  void add(const CallLog& other);
  double percentile(double share) const;  // us, share 0 to 1
};

}  // namespace vellumic::bench
