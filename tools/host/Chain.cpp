#include "tools/host/Chain.h"

#include <chrono>

namespace vellumic::tools {

void Chain::process(float* samples, unsigned frames) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point begin = Clock::now();
  for (CaptureEffect* effect : effects_)
    if (!effect->process(samples, frames)) ++failed_;
  const std::chrono::duration<double> taken = Clock::now() - begin;
  timing_.add(1e6 * taken.count(), false);
  if (taken.count() > periodSeconds_) ++overrun_;
}

}  // namespace vellumic::tools
