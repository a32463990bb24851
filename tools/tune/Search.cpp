#include "tools/tune/Search.h"

#include <algorithm>
#include <cmath>
#include <exception>
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

class SearchRun {
 public:
  SearchRun(const Space& space, const PointValue& function) : space_(space), function_(function) {
    for (std::size_t n = 0; n < space.size(); ++n)
      (space[n].isSwitch ? switches_ : ranges_).push_back(n);
    result_.value = -std::numeric_limits<double>::infinity();
  }

  SearchResult go(const Budget& budget, std::uint64_t seed);

 private:
  double evaluate(const Point& point);
  double evaluateQuickly(const Point& point);
  void optimise(nlopt::opt optimiser, const Point& from, int evaluations, Depth depth);
  void searchGlobally(const Point& from, int evaluations, std::uint64_t seed, Depth depth);
  Point combination(Point point, std::size_t which) const;

  const Space& space_;
  const PointValue& function_;
  std::vector<std::size_t> switches_, ranges_;
  SearchResult result_;
  std::vector<std::pair<double, Point>> quick_;  // of one global search
};

double SearchRun::evaluate(const Point& point) {
  const Point at = rounded(space_, point);
  const double value = function_(at, Depth::full);
  if (value > result_.value) {
    result_.value = value;
    result_.best = at;
  }
  return value;
}

double SearchRun::evaluateQuickly(const Point& point) {
  const Point at = rounded(space_, point);
  return quick_.emplace_back(function_(at, Depth::quick), at).first;
}

Point SearchRun::combination(Point point, std::size_t which) const {
  for (std::size_t n = 0; n < switches_.size(); ++n)
    point[switches_[n]] =
        (which >> n & 1U) != 0 ? space_[switches_[n]].high : space_[switches_[n]].low;
  return point;
}

void SearchRun::optimise(nlopt::opt optimiser, const Point& from, int evaluations, Depth depth) {
  std::vector<double> unit;
  for (const std::size_t n : ranges_) unit.push_back(toUnit(space_[n], from[n]));
  optimiser.set_lower_bounds(0.0);
  optimiser.set_upper_bounds(1.0);
  optimiser.set_maxeval(evaluations);
  optimiser.set_xtol_abs(0.005);
  struct Call {
    SearchRun* run;
    Point from;
    Depth depth;
    std::exception_ptr failure;  // NLopt passes only its own exceptions on
  } call{this, from, depth, nullptr};
  optimiser.set_max_objective(
      [](const std::vector<double>& x, std::vector<double>&, void* data) {
        Call& c = *static_cast<Call*>(data);
        Point point = c.from;
        for (std::size_t n = 0; n < x.size(); ++n)
          point[c.run->ranges_[n]] = fromUnit(c.run->space_[c.run->ranges_[n]], x[n]);
        try {
          return c.depth == Depth::full ? c.run->evaluate(point) : c.run->evaluateQuickly(point);
        } catch (...) {
          c.failure = std::current_exception();
          throw nlopt::forced_stop();
        }
      },
      &call);
  try {
    double value = 0.0;
    optimiser.optimize(unit, value);
  } catch (const nlopt::forced_stop&) {
    if (call.failure) std::rethrow_exception(call.failure);
    throw;
  } catch (const nlopt::roundoff_limited&) {  // as near as it gets
  }
}

void SearchRun::searchGlobally(const Point& from, int evaluations, std::uint64_t seed,
                               Depth depth) {
  const auto dimensions = static_cast<unsigned>(ranges_.size());
  nlopt::srand(static_cast<unsigned long>(seed));
  nlopt::opt global(nlopt::GN_CRS2_LM, dimensions);
  global.set_population(
      std::clamp(static_cast<unsigned>(evaluations) / 4, dimensions + 1, 10 * (dimensions + 1)));
  optimise(global, from, evaluations, depth);
  std::ranges::stable_sort(quick_, std::greater{}, &std::pair<double, Point>::first);
  for (std::size_t n = 0; n < std::min<std::size_t>(2, quick_.size()); ++n)
    evaluate(Point(quick_[n].second));
  quick_.clear();
}

SearchResult SearchRun::go(const Budget& budget, std::uint64_t seed) {
  Point start, factory;
  for (const Dimension& d : space_) {
    start.push_back(d.start);
    factory.push_back(d.factory);
  }
  try {
    evaluate(start);
    evaluate(factory);
    std::vector<std::pair<double, Point>> combinations;
    for (std::size_t which = 0; which < std::size_t{1} << switches_.size(); ++which) {
      const Point from = combination(start, which);
      combinations.emplace_back(evaluate(from), from);
    }
    std::ranges::stable_sort(combinations, std::greater{}, &std::pair<double, Point>::first);
    const std::vector<int> shares =
        globalShares(budget.global, ranges_.size(), combinations.size());
    for (std::size_t n = 0; n < shares.size(); ++n)
      searchGlobally(combinations[n].second, shares[n], seed,
                     budget.quick ? Depth::quick : Depth::full);
    if (!ranges_.empty() && budget.local > 0) {
      nlopt::opt local(nlopt::LN_SBPLX, static_cast<unsigned>(ranges_.size()));
      local.set_initial_step(0.1);
      optimise(local, Point(result_.best), budget.local, Depth::full);
    }
  } catch (const Stopped&) {
    result_.stopped = true;
  }
  return result_;
}

}  // namespace

int leastGlobal(std::size_t ranges) { return ranges == 0 ? 0 : 2 * (static_cast<int>(ranges) + 1); }

std::vector<int> globalShares(int budget, std::size_t ranges, std::size_t combinations) {
  std::vector<int> shares;
  for (std::size_t count = combinations; ranges > 0 && count > 0; --count) {
    shares.assign(count, 0);
    for (std::size_t n = 0; n < count; ++n)
      shares[n] = static_cast<int>(static_cast<std::int64_t>(budget) * (1 << (count - 1 - n)) /
                                   ((1 << count) - 1));
    if (shares.back() >= leastGlobal(ranges)) return shares;
  }
  return {};
}

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
                    const PointValue& function) {
  return SearchRun(space, function).go(budget, seed);
}

}  // namespace vellumic::tune
