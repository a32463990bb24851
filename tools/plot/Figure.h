// A figure of stacked panels over one time axis: spectrograms and line charts, as one
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

class Figure {
 public:
  explicit Figure(std::string title, double seconds);

  // 512-sample Hann frames, magnitudes from -100 to -20 dBFS.
  void addSpectrogram(const std::string& title, std::span<const float> samples, double rate);
  // The y range is taken from the data unless given.
  void addLines(const std::string& title, const std::string& unit, std::vector<Line> lines,
                std::optional<std::pair<double, double>> range = std::nullopt);

  std::string svg() const;

 private:
  void addPanel(const std::string& title, const std::string& body, int height,
                const std::vector<std::pair<double, std::string>>& ticks);

  std::string title_;
  double seconds_;
  int height_;
  std::string panels_;
};

// Replaces the characters that mean something in XML.
std::string escaped(const std::string& text);

}  // namespace vellumic::plot
