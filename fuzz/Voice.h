// What is said into the microphones to hear whether an object is well.
#pragma once

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <vector>

namespace vellumic::fuzz {

// A second of a voice that swells three times; it repeats.
inline std::vector<float> makeVoice(std::size_t rate) {
  std::vector<float> voice(rate);
  for (std::size_t n = 0; n < rate; ++n) {
    const double turn = 2.0 * std::numbers::pi * static_cast<double>(n) / static_cast<double>(rate);
    const double tones = std::sin(300.0 * turn) + std::sin(700.0 * turn) + std::sin(1900.0 * turn);
    voice[n] = static_cast<float>(0.1 * tones * std::max(0.0, std::sin(3.0 * turn)));
  }
  return voice;
}

// The same, kept for the next one as long as few rates were asked for.
inline std::vector<float> voiceAt(std::size_t rate) {
  static std::map<std::size_t, std::vector<float>> voices;
  if (const auto known = voices.find(rate); known != voices.end()) return known->second;
  if (voices.size() >= 16) return makeVoice(rate);
  return voices[rate] = makeVoice(rate);
}

}  // namespace vellumic::fuzz
