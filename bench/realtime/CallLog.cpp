#include "bench/realtime/CallLog.h"

#include <algorithm>
#include <utility>

namespace vellumic::bench {

void CallLog::add(CallCost cost) {
  times.push_back(cost.microseconds);
  if (cost.microseconds > worst.microseconds) worst = std::move(cost);
}

void CallLog::add(const CallLog& other) {
  times.insert(times.end(), other.times.begin(), other.times.end());
  if (other.worst.microseconds > worst.microseconds) worst = other.worst;
  if (firstForbidden.empty()) firstForbidden = other.firstForbidden;
  forbidden += other.forbidden;
  deepestStack = std::max(deepestStack, other.deepestStack);
}

double CallLog::percentile(double share) const {
  if (times.empty()) return 0.0;
  std::vector<double> sorted = times;
  std::ranges::sort(sorted);
  return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1) + 0.5)];
}

}  // namespace vellumic::bench
