// A figure of stacked panels over one axis, time or frequency: spectrograms and line charts, as one
// self-contained SVG.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace vellumic::plot {

struct Line {
  std::string name;
  std::vector<double> x, y;  // equally long; gaps where y is not finite
};

// What all panels share, from left to right. Logarithmic: both ends above 0.
struct Axis {
  double low = 0.0, high = 1.0;
  bool logarithmic = false;
};

// A state that is on in some stretches of the axis.
struct Bar {
  std::string name;
  std::vector<std::pair<double, double>> stretches;  // from, to
};

class Figure {
 public:
  Figure(std::string title, double seconds);
  Figure(std::string title, Axis axis);

  // Only over time, from 0.
  // 512-sample Hann frames, magnitudes from -100 to -20 dBFS; what is not finite is silent.
  void addSpectrogram(const std::string& title, std::span<const float> samples, double rate);
  // The y range is taken from the data unless given.
  void addLines(const std::string& title, const std::string& unit, std::vector<Line> lines,
                std::optional<std::pair<double, double>> range = std::nullopt);

  // One row per state.
  void addBars(const std::string& title, const std::vector<Bar>& bars);

  std::string svg() const;

 private:
  void addPanel(const std::string& title, const std::string& body, int height,
                const std::vector<std::pair<double, std::string>>& ticks);

  double across(double x) const;  // pixels from the left end of a panel
  std::vector<double> axisTicks() const;

  std::string title_;
  Axis axis_;
  int height_;
  std::string panels_;
};

// Replaces the characters that mean something in XML.
std::string escaped(const std::string& text);

}  // namespace vellumic::plot
