#include "tools/plot/Figure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdio>
#include <numbers>
#include <unsupported/Eigen/FFT>

#include "tools/plot/Png.h"

namespace vellumic::plot {
namespace {

constexpr int panelWidth = 860, marginLeft = 84, marginRight = 20, gap = 46, top = 50,
              untitledTop = 24;
constexpr std::array<const char*, 6> colours{"#1f6feb", "#d1495b", "#2a9d5c",
                                             "#e09f3e", "#7b4fb5", "#555555"};

std::string format(const char* pattern, auto... values) {
  std::array<char, 512> text{};
  std::snprintf(text.data(), text.size(), pattern, values...);
  return text.data();
}

// Dark blue over violet and orange to pale yellow, for 0 to 1.
std::array<std::uint8_t, 3> heat(double level) {
  static constexpr std::array<std::array<double, 3>, 5> stops{
      {{8, 10, 40}, {75, 20, 110}, {190, 55, 85}, {245, 150, 45}, {252, 250, 190}}};
  const double place = std::clamp(level, 0.0, 1.0) * (stops.size() - 1);
  const auto i = std::min(static_cast<std::size_t>(place), stops.size() - 2);
  const double part = place - static_cast<double>(i);
  std::array<std::uint8_t, 3> colour{};
  for (std::size_t c = 0; c < 3; ++c)
    colour[c] = static_cast<std::uint8_t>(stops[i][c] + part * (stops[i + 1][c] - stops[i][c]));
  return colour;
}

// A step of 1, 2 or 5 times a power of ten that divides the range into about `wanted` parts.
double tickStep(double range, int wanted) {
  const double raw = range / wanted;
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  for (const double factor : {1.0, 2.0, 5.0})
    if (raw <= factor * power) return factor * power;
  return 10.0 * power;
}

}  // namespace

std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

Figure::Figure(std::string title, double seconds)
    : Figure(std::move(title), {.low = 0.0, .high = std::max(seconds, 0.01)}) {}

Figure::Figure(std::string title, Axis axis)
    : title_(std::move(title)), axis_(axis), height_(title_.empty() ? untitledTop : top) {}

double Figure::across(double x) const {
  const double part = axis_.logarithmic ? std::log(x / axis_.low) / std::log(axis_.high / axis_.low)
                                        : (x - axis_.low) / (axis_.high - axis_.low);
  return part * panelWidth;
}

std::vector<double> Figure::axisTicks() const {
  std::vector<double> ticks;
  if (axis_.logarithmic) {
    for (double power = std::pow(10.0, std::floor(std::log10(axis_.low))); power <= axis_.high;
         power *= 10.0)
      for (const double factor : {1.0, 2.0, 5.0})
        if (factor * power >= axis_.low && factor * power <= axis_.high)
          ticks.push_back(factor * power);
  } else {
    const double step = tickStep(axis_.high - axis_.low, 10);
    for (double x = std::ceil(axis_.low / step) * step; x <= axis_.high + 1e-9; x += step)
      ticks.push_back(x);
  }
  return ticks;
}

void Figure::addPanel(const std::string& title, const std::string& body, int height,
                      const std::vector<std::pair<double, std::string>>& ticks) {
  panels_ += format("<g transform='translate(%d,%d)'>", marginLeft, height_);
  panels_ += "<text x='0' y='-8' class='t'>" + escaped(title) + "</text>";
  for (const auto& [place, text] : ticks)
    panels_ += format("<line x1='0' x2='%d' y1='%.1f' y2='%.1f' class='g'/>", panelWidth,
                      place * height, place * height) +
               format("<text x='-6' y='%.1f' class='y'>", place * height + 4) + escaped(text) +
               "</text>";
  for (const double x : axisTicks())
    panels_ += format("<text x='%.1f' y='%d' class='x'>%g</text>", across(x), height + 15, x);
  panels_ += body;
  panels_ += format("<rect width='%d' height='%d' class='f'/></g>", panelWidth, height);
  height_ += height + gap;
}

void Figure::addSpectrogram(const std::string& title, std::span<const float> samples, double rate) {
  constexpr int frame = 512, rows = 160, height = 160;
  Eigen::FFT<float> fft;
  fft.SetFlag(Eigen::FFT<float>::HalfSpectrum);
  std::vector<float> block(frame);
  std::vector<std::complex<float>> bins;
  Picture picture{.width = panelWidth, .height = rows, .rgb = {}};
  picture.rgb.resize(static_cast<std::size_t>(3 * panelWidth * rows));
  for (int column = 0; column < panelWidth; ++column) {
    const auto start = static_cast<std::size_t>(column * axis_.high / panelWidth * rate);
    for (std::size_t n = 0; n < frame; ++n) {
      const double hann =
          0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(n) / frame);
      const float sample = start + n < samples.size() ? samples[start + n] : 0.0F;
      block[n] = std::isfinite(sample) ? sample * static_cast<float>(hann) : 0.0F;
    }
    fft.fwd(bins, block);
    for (int row = 0; row < rows; ++row) {
      const auto bin = static_cast<std::size_t>((rows - 1 - row) * (frame / 2) / rows);
      const double db = 20.0 * std::log10(std::abs(bins[bin]) / (frame / 4.0) + 1e-9);
      const auto colour = heat((db + 100.0) / 80.0);
      std::copy(colour.begin(), colour.end(),
                picture.rgb.begin() + 3 * (row * panelWidth + column));
    }
  }
  addPanel(title,
           format("<image width='%d' height='%d' preserveAspectRatio='none' href='", panelWidth,
                  height) +
               "data:image/png;base64," + base64(png(picture)) + "'/>",
           height,
           {{0.0, format("%g kHz", rate / 2000)}, {0.5, format("%g", rate / 4000)}, {1.0, "0"}});
}

void Figure::addLines(const std::string& title, const std::string& unit, std::vector<Line> lines,
                      std::optional<std::pair<double, double>> range) {
  constexpr int height = 130;
  double low = 1e300, high = -1e300;
  for (const Line& line : lines)
    for (const double y : line.y)
      if (std::isfinite(y)) low = std::min(low, y), high = std::max(high, y);
  if (low > high) low = 0.0, high = 1.0;
  if (range) std::tie(low, high) = *range;
  if (high - low < 1e-9) low -= 1.0, high += 1.0;
  const double step = tickStep(high - low, 4);
  low = std::floor(low / step) * step;
  high = std::ceil(high / step) * step;

  std::vector<std::pair<double, std::string>> ticks;
  for (double y = low; y <= high + 1e-9 * step; y += step)
    ticks.emplace_back((high - y) / (high - low),
                       format("%g", std::abs(y) < 1e-9 * step ? 0.0 : y));

  std::string body;
  const auto legendWidth = [](const Line& line) {
    return 14 + 7 * static_cast<int>(line.name.size());
  };
  int legend = panelWidth;
  for (const Line& line : lines) legend -= legendWidth(line);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const char* colour = colours[i % colours.size()];
    std::string path;
    bool pen = false;
    for (std::size_t n = 0; n < lines[i].x.size(); ++n) {
      const bool outside = lines[i].x[n] < axis_.low || lines[i].x[n] > axis_.high;
      if (outside || !std::isfinite(lines[i].y[n])) {
        pen = false;
        continue;
      }
      const double y = std::clamp((high - lines[i].y[n]) / (high - low), 0.0, 1.0);
      path += format("%c%.1f %.1f", pen ? 'L' : 'M', across(lines[i].x[n]), y * height);
      pen = true;
    }
    body += format("<path class='l' stroke='%s' d='", colour) + path + "'/>";
    body += format("<text x='%d' y='-8' style='fill:%s'>", legend, colour) +
            escaped(lines[i].name) + "</text>";
    legend += legendWidth(lines[i]);
  }
  addPanel(title + (unit.empty() ? "" : ", " + unit), body, height, ticks);
}

void Figure::addBars(const std::string& title, const std::vector<Bar>& bars) {
  constexpr int row = 20;
  const int height = row * static_cast<int>(bars.size());
  std::string body;
  std::vector<std::pair<double, std::string>> names;
  for (std::size_t i = 0; i < bars.size(); ++i) {
    names.emplace_back((static_cast<double>(i) + 0.5) / static_cast<double>(bars.size()),
                       bars[i].name);
    for (const auto& [begin, end] : bars[i].stretches) {
      const double from = std::clamp(begin, axis_.low, axis_.high);
      const double to = std::clamp(end, axis_.low, axis_.high);
      body += format("<rect x='%.1f' y='%d' width='%.1f' height='%d' fill='%s'/>", across(from),
                     static_cast<int>(i) * row + 4, std::max(0.5, across(to) - across(from)),
                     row - 8, colours[i % colours.size()]);
    }
  }
  addPanel(title, body, height, names);
}

std::string Figure::svg() const {
  return format(
             "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 %d %d' width='%d' height='%d'>",
             marginLeft + panelWidth + marginRight, height_, marginLeft + panelWidth + marginRight,
             height_) +
         "<style>text{font:12px sans-serif;fill:#333}.t{font-weight:bold}.x{text-anchor:middle}"
         ".y{text-anchor:end}.g{stroke:#ddd}.f{fill:none;stroke:#666}"
         ".l{fill:none;stroke-width:1.6;stroke-linejoin:round}.h{font-size:16px;font-weight:bold}"
         "</style><rect width='100%' height='100%' fill='white'/><text class='h' x='" +
         std::to_string(marginLeft) + "' y='24'>" + escaped(title_) + "</text>" + panels_ +
         "</svg>";
}

}  // namespace vellumic::plot
