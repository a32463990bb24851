// Maximises a costly function of settings: switches are enumerated, ranges searched by NLopt, first
// globally (controlled random search with local mutation), then around the best (Sbplx).
//
// P. Kaelo, M. M. Ali, "Some variants of the controlled random search algorithm for global
// optimization", J. Optim. Theory Appl. 130(2), 2006. T. Rowan, "Functional stability analysis of
// numerical algorithms", 1990.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vellumic::tune {

// One value per dimension, in the setting's own unit.
using Point = std::vector<double>;

struct Dimension {
  std::string name;
  bool isSwitch = false;
  bool integer = false;
  bool logarithmic = false;      // needs low > 0
  double low = 0.0, high = 1.0;  // low < high; of a switch its only two values
  double start = 0.0, factory = 0.0;
};
using Space = std::vector<Dimension>;

inline constexpr int mostSwitches = 4;

struct Budget {
  int global = 60;    // quick evaluations, over all combinations of the switches
  int local = 40;     // full ones
  bool quick = true;  // else the global ones are full too
};

// A quick judgement may be rough; whatever is decided in the end rests on full ones.
enum class Depth { quick, full };
inline constexpr double quickCost = 0.25;  // of a full evaluation
using PointValue = std::function<double(const Point&, Depth)>;

// Fewer evaluations than that only draw points, so that none are spent on a global search.
int leastGlobal(std::size_t ranges);

// Evaluations for the combinations of the switches, the one that starts best first: each gets twice
// as many as the next. Those that would get too few get none. `combinations`: 1 to 16.
std::vector<int> globalShares(int budget, std::size_t ranges, std::size_t combinations);

// Thrown by the function to end the search early.
struct Stopped : std::runtime_error {
  Stopped() : std::runtime_error("stopped") {}
};

// Three significant digits, integers whole, switches one of their two values: what is
// evaluated and what is written is the same.
Point rounded(const Space& space, Point point);

struct SearchResult {
  Point best;
  double value = 0.0;
  bool stopped = false;
};

// The same space, budget, seed and function give the same result, however often it is stopped and
// begun again with a function that remembers. The start is evaluated first, then the factory's
// point. After a quick global search the best two of each combination are evaluated in full; the
// best, also of a stopped search, is always one evaluated in full. What the function throws else
// than Stopped is thrown on. Not reentrant: NLopt has one random generator.
SearchResult search(const Space& space, const Budget& budget, std::uint64_t seed,
                    const PointValue& function);

}  // namespace vellumic::tune
