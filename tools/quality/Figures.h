// The figures of a score, by name; means and worst cases of several scores.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace vellumic::quality {

enum class Figure : std::size_t {
  erle,              // dB, from 5 s of far end on
  erleAfterPause,    // dB, from 4 s after the last rest of the loopback on
  timeTo10Db,        // s of scene; the scene's length if never
  timeTo20Db,        // the same
  doubleTalkSdr,     // dB, filter-invariant, while both talk
  doubleTalkStoi,    // 0 to 1, while both talk
  doubleTalkStoiIn,  // the same of the microphone
  nearSdr,           // dB, filter-invariant, the near talker alone
  siSdr,             // dB, the near talker alone
  siSdrIn,
  segmentalSnr,  // dB, the near talker alone
  segmentalSnrIn,
  stoi,  // 0 to 1, the near talker alone
  stoiIn,
  speechLoss,        // dB, output against clean speech
  noiseAttenuation,  // dB, in pauses from 4 s on
  snrGain,           // dB, noise attenuation less speech loss
  outputLevel,       // dBFS rms of the second half
};
inline constexpr std::size_t figureCount = 18;

struct FigureInfo {
  std::string_view name;   // as a plan writes it: "near_sdr"
  std::string_view title;  // as a table heads it: "near SDR, dB"
  bool moreIsBetter;
  std::optional<Figure> input = std::nullopt;  // the same figure of the microphone
};
const FigureInfo& info(Figure figure);
std::optional<Figure> figureNamed(std::string_view name);

// A figure is there only where the scene has the stretch that it needs.
class Figures {
 public:
  std::optional<double>& operator[](Figure figure) {
    return values_[static_cast<std::size_t>(figure)];
  }
  const std::optional<double>& operator[](Figure figure) const {
    return values_[static_cast<std::size_t>(figure)];
  }

 private:
  std::array<std::optional<double>, figureCount> values_{};
};

struct Summary {
  Figures mean, worst;
};
// Of the same scene, scored several times.
Summary summarise(std::span<const Figures> scores);

}  // namespace vellumic::quality
