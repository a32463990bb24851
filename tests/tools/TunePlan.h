// A plan for tests.
#pragma once

#include <string>

#include "tools/tune/Plan.h"

namespace vellumic::tune {

inline constexpr const char* planText = R"(
header = ["For the test."]
seed = 3
evaluations = { global = 160, local = 60 }
goal = [{ figure = "near_sdr", weight = 1 }]
material = [{ scene = "desk", seeds = [1, 2] }]
voices = { near = "near.wav", far = "far.wav" }
[settings]
"beamformer.enabled" = {}
"echo.update_threshold" = { low = 1e-5, high = 1e-2, scale = "log" }
"noise.gain.floor2" = { low = 0.05, high = 0.9 }
"echo.warmup_blocks" = { low = 0, high = 50 }
"noise.estimator.window_frames" = { choice = [100, 200] }
)";

inline Plan planWith(const std::string& from, const std::string& to) {
  std::string text = planText;
  return parsePlan(text.replace(text.find(from), from.size(), to), "plan.toml");
}

inline bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

}  // namespace vellumic::tune
