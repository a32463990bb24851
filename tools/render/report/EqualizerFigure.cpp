#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "filters/EqualizerRecord.h"
#include "tools/plot/Figure.h"
#include "tools/render/report/ReportFigures.h"

namespace vellumic::tools {
namespace {

constexpr double lowest = 20.0, highest = 20000.0;  // Hz
constexpr int points = 430;

double decibelsAt(const BiquadSection& section, double radians) {
  const std::complex<double> z1 = std::polar(1.0, -radians), z2 = z1 * z1;
  const auto wide = [](float value) { return static_cast<double>(value); };
  const auto above = wide(section.b0) + wide(section.b1) * z1 + wide(section.b2) * z2;
  const auto below = 1.0 + wide(section.a1) * z1 + wide(section.a2) * z2;
  return 20.0 * std::log10(std::abs(above / below));
}

plot::Line responseOf(const std::string& name,
                      const std::array<EqualizerBand, equalizerBands>& side, double rate) {
  const double top = std::min(highest, 0.5 * rate);
  plot::Line line{.name = name, .x = {}, .y = {}};
  for (int n = 0; n < points; ++n) {
    const double frequency = lowest * std::pow(top / lowest, static_cast<double>(n) / (points - 1));
    double sum = 0.0;
    for (const EqualizerBand& band : side)
      if (band.enabled) sum += decibelsAt(band.section, 2.0 * std::numbers::pi * frequency / rate);
    line.x.push_back(frequency);
    line.y.push_back(sum);
  }
  return line;
}

}  // namespace

std::string equalizerFigure(const RenderJob& job, const std::vector<Rendering>& renderings) {
  if (job.captureClass != CaptureClass::efx) return "";
  const auto rate = static_cast<float>(job.input.format.sampleRate);
  std::vector<plot::Line> lines;
  for (const Rendering& rendering : renderings) {
    const auto record =
        EqualizerRecord::design(EqualizerSettings::from(rendering.settings), rate, {});
    if (!record.active) continue;
    const std::string suffix = rendering.label.empty() ? "" : " " + rendering.label;
    plot::Line left = responseOf("left" + suffix, record.bands[0], rate);
    plot::Line right = responseOf("right" + suffix, record.bands[1], rate);
    const bool alike = job.input.format.channels < 2 || left.y == right.y;
    if (alike) left.name = rendering.label.empty() ? "all channels" : rendering.label;
    lines.push_back(std::move(left));
    if (!alike) lines.push_back(std::move(right));
  }
  const double top = std::min(highest, 0.5 * static_cast<double>(rate));
  if (lines.empty() || top <= lowest) return "";
  plot::Figure figure("", plot::Axis{.low = lowest, .high = top, .logarithmic = true});
  figure.addLines("Response of the equaliser over frequency in Hz", "dB", std::move(lines),
                  std::pair{-20.0, 20.0});
  return figure.svg();
}

}  // namespace vellumic::tools
