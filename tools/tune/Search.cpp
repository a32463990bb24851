#include "tools/tune/Search.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <nlopt.hpp>
#include <utility>

namespace vellumic::tune {
namespace {

// Ranges as seen by the optimiser: 0 to 1.
double toUnit(const Dimension& d, double value) {
  const double v = std::clamp(value, d.low, d.high);
  return d.logarithmic ? std::log(v / d.low) / std::log(d.high / d.low)
                       : (v - d.low) / (d.high - d.low);
}
double fromUnit(const Dimension& d, double unit) {
  const double u = std::clamp(unit, 0.0, 1.0);
  return d.logarithmic ? d.low * std::pow(d.high / d.low, u) : d.low + u * (d.high - d.low);
}

double threeDigits(double value) {
  if (value == 0.0 || !std::isfinite(value)) return value;
  const double scale = std::pow(10.0, 2.0 - std::floor(std::log10(std::abs(value))));
  return std::round(value * scale) / scale;
}

class Run {
 public:
  Run(const Space& space, const std::function<double(const Point&)>& function)
      : space_(space), function_(function) {
    for (std::size_t n = 0; n < space.size(); ++n)
      (space[n].isSwitch ? switches_ : ranges_).push_back(n);
    result_.value = -std::numeric_limits<double>::infinity();
  }

  SearchResult go(const Budget& budget, std::uint64_t seed);

 private:
  double evaluate(const Point& point);
  void optimise(nlopt::opt optimiser, const Point& from, int evaluations);
  Point combination(Point point, std::size_t which) const;

  const Space& space_;
  const std::function<double(const Point&)>& function_;
  std::vector<std::size_t> switches_, ranges_;
  SearchResult result_;
};

double Run::evaluate(const Point& point) {
  const Point at = rounded(space_, point);
  const double value = function_(at);
  if (value > result_.value) {
    result_.value = value;
    result_.best = at;
  }
  return value;
}

Point Run::combination(Point point, std::size_t which) const {
  for (std::size_t n = 0; n < switches_.size(); ++n)
    point[switches_[n]] =
        (which >> n & 1U) != 0 ? space_[switches_[n]].high : space_[switches_[n]].low;
  return point;
}

void Run::optimise(nlopt::opt optimiser, const Point& from, int evaluations) {
  std::vector<double> unit;
  for (const std::size_t n : ranges_) unit.push_back(toUnit(space_[n], from[n]));
  optimiser.set_lower_bounds(0.0);
  optimiser.set_upper_bounds(1.0);
  optimiser.set_maxeval(evaluations);
  optimiser.set_xtol_abs(0.005);
  struct Call {
    Run* run;
    Point from;
    bool stopped;
  } call{this, from, false};
  optimiser.set_max_objective(
      [](const std::vector<double>& x, std::vector<double>&, void* data) {
        Call& c = *static_cast<Call*>(data);
        Point point = c.from;
        for (std::size_t n = 0; n < x.size(); ++n)
          point[c.run->ranges_[n]] = fromUnit(c.run->space_[c.run->ranges_[n]], x[n]);
        try {
          return c.run->evaluate(point);
        } catch (const Stopped&) {
          c.stopped = true;
          throw nlopt::forced_stop();
        }
      },
      &call);
  try {
    double value = 0.0;
    optimiser.optimize(unit, value);
  } catch (const nlopt::forced_stop&) {
    if (call.stopped) throw Stopped();
    throw;
  } catch (const nlopt::roundoff_limited&) {  // as near as it gets
  }
}

SearchResult Run::go(const Budget& budget, std::uint64_t seed) {
  Point start, factory;
  for (const Dimension& d : space_) {
    start.push_back(d.start);
    factory.push_back(d.factory);
  }
  try {
    evaluate(start);
    evaluate(factory);
    const auto dimensions = static_cast<unsigned>(ranges_.size());
    // The combination that starts best gets half of the evaluations, the next a quarter, and so on.
    std::vector<std::pair<double, Point>> combinations;
    for (std::size_t which = 0; which < std::size_t{1} << switches_.size(); ++which) {
      const Point from = combination(start, which);
      combinations.emplace_back(evaluate(from), from);
    }
    std::ranges::stable_sort(combinations, std::greater{}, &std::pair<double, Point>::first);
    int share = combinations.size() > 1 ? budget.global / 2 : budget.global;
    for (const auto& [value, from] : combinations) {
      if (ranges_.empty() || share < 3) break;
      nlopt::srand(static_cast<unsigned long>(seed));
      nlopt::opt global(nlopt::GN_CRS2_LM, dimensions);
      global.set_population(
          std::clamp(static_cast<unsigned>(share) / 2, dimensions + 1, 5 * (dimensions + 1)));
      optimise(global, from, share);
      share /= 2;
    }
    if (!ranges_.empty() && budget.local > 0) {
      nlopt::opt local(nlopt::LN_SBPLX, dimensions);
      local.set_initial_step(0.1);
      optimise(local, Point(result_.best), budget.local);
    }
  } catch (const Stopped&) {
    result_.stopped = true;
  }
  return result_;
}

}  // namespace

Point rounded(const Space& space, Point point) {
  for (std::size_t n = 0; n < space.size(); ++n) {
    const Dimension& d = space[n];
    if (d.isSwitch)
      point[n] = point[n] >= 0.5 * (d.low + d.high) ? d.high : d.low;
    else if (point[n] != d.factory)
      point[n] =
          std::clamp(d.integer ? std::round(point[n]) : threeDigits(point[n]), d.low, d.high);
  }
  return point;
}

SearchResult search(const Space& space, const Budget& budget, std::uint64_t seed,
                    const std::function<double(const Point&)>& function) {
  return Run(space, function).go(budget, seed);
}

}  // namespace vellumic::tune
