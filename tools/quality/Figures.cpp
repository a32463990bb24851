#include "tools/quality/Figures.h"

#include <algorithm>

namespace vellumic::quality {
namespace {

// In the order of the enumeration.
constexpr std::array<FigureInfo, figureCount> infos{{
    {"erle", "ERLE from 5 s, dB", true},
    {"erle_after_pause", "ERLE from 4 s after a pause, dB", true},
    {"time_to_10_db", "to 10 dB, s", false},
    {"time_to_20_db", "to 20 dB, s", false},
    {"double_talk_sdr", "double talk SDR, dB", true},
    {"double_talk_stoi", "double talk STOI", true, Figure::doubleTalkStoiIn},
    {"double_talk_stoi_in", "double talk STOI before", true},
    {"near_sdr", "near SDR, dB", true},
    {"si_sdr", "SI-SDR, dB", true, Figure::siSdrIn},
    {"si_sdr_in", "SI-SDR before, dB", true},
    {"segmental_snr", "segmental SNR, dB", true, Figure::segmentalSnrIn},
    {"segmental_snr_in", "segmental SNR before, dB", true},
    {"stoi", "STOI", true, Figure::stoiIn},
    {"stoi_in", "STOI before", true},
    {"speech_loss", "speech loss, dB", false},
    {"noise_attenuation", "noise attenuation, dB", true},
    {"snr_gain", "SNR gain, dB", true},
    {"output_level", "output level, dBFS", true},
}};

}  // namespace

const FigureInfo& info(Figure figure) { return infos[static_cast<std::size_t>(figure)]; }

std::optional<Figure> figureNamed(std::string_view name) {
  const auto found = std::ranges::find(infos, name, &FigureInfo::name);
  if (found == infos.end()) return std::nullopt;
  return static_cast<Figure>(found - infos.begin());
}

Summary summarise(std::span<const Figures> scores) {
  Summary summary;
  for (std::size_t f = 0; f < figureCount; ++f) {
    const auto figure = static_cast<Figure>(f);
    double sum = 0.0, worst = 0.0;
    int count = 0;
    for (const Figures& score : scores) {
      const std::optional<double>& value = score[figure];
      if (!value) continue;
      const bool worse = info(figure).moreIsBetter ? *value < worst : *value > worst;
      if (count == 0 || worse) worst = *value;
      sum += *value;
      ++count;
    }
    if (count == 0) continue;
    summary.mean[figure] = sum / count;
    summary.worst[figure] = worst;
  }
  return summary;
}

}  // namespace vellumic::quality
