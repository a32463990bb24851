#include "tools/tune/Tuner.h"

#include <algorithm>
#include <limits>

namespace vellumic::tune {
namespace {

class TuningRun {
 public:
  TuningRun(const Plan& plan, Journal& journal, const PointJudge& judge,
            const ProgressReport& progress)
      : plan_(plan), journal_(journal), judge_(judge), progress_(progress) {
    for (const Dimension& d : plan.space) factory_.push_back(d.factory);
    quickLeft_ = plan.budget.quick ? plan.budget.global : 0;
    fullLeft_ = plan.budget.global - quickLeft_ + plan.budget.local + 2 + (1 << switches()) +
                2 * static_cast<int>(plan.space.size());
  }

  Tuning go() {
    Tuning tuning;
    const SearchResult found =
        search(plan_.space, plan_.budget, plan_.seed,
               [this](const Point& point, Depth depth) { return judged(point, depth).value; });
    tuning.best = found.best.empty() ? factory_ : found.best;
    tuning.stopped = found.stopped;
    try {
      tuning.factory = judged(factory_);
      tuning.judgement = judged(tuning.best);
      if (!tuning.stopped) weigh(tuning);
    } catch (const Stopped&) {
      tuning.stopped = true;
      tuning.contributions.clear();
    }
    return tuning;
  }

 private:
  int switches() const {
    return static_cast<int>(std::ranges::count_if(plan_.space, &Dimension::isSwitch));
  }

  Judgement judged(const Point& point, Depth depth = Depth::full) {
    const Judgement* known = journal_.find(point, depth);
    if (!known) {
      journal_.add(point, depth, judge_(point, depth));
      known = journal_.find(point, depth);
    }
    if (depth == Depth::full) best_ = std::max(best_, known->value);
    ++done_;
    int& left = depth == Depth::full ? fullLeft_ : quickLeft_;
    left = std::max(left - 1, 0);
    progress_({.done = done_,
               .all = done_ + quickLeft_ + fullLeft_,
               .left = quickLeft_ * quickCost + fullLeft_,
               .best = best_});
    return *known;
  }

  // Puts back, one after the other, what gains too little; what remains is weighed.
  void weigh(Tuning& tuning) {
    for (;;) {
      tuning.contributions.clear();
      for (std::size_t n = 0; n < factory_.size(); ++n) {
        if (tuning.best[n] == factory_[n]) continue;
        Point without = tuning.best;
        without[n] = factory_[n];
        tuning.contributions.push_back({n, judged(without)});
      }
      std::ranges::sort(tuning.contributions, {},
                        [](const Contribution& c) { return c.without.value; });
      if (tuning.contributions.empty()) return;
      const Contribution least = tuning.contributions.back();
      if (tuning.judgement.value - least.without.value >= plan_.worth) return;
      tuning.best[least.dimension] = factory_[least.dimension];
      tuning.judgement = least.without;
    }
  }

  const Plan& plan_;
  Journal& journal_;
  const PointJudge& judge_;
  const ProgressReport& progress_;
  Point factory_;
  int done_ = 0, quickLeft_ = 0, fullLeft_ = 0;  // evaluations
  double best_ = -std::numeric_limits<double>::infinity();
};

}  // namespace

Tuning tune(const Plan& plan, Journal& journal, const PointJudge& judge,
            const ProgressReport& progress) {
  return TuningRun(plan, journal, judge, progress).go();
}

}  // namespace vellumic::tune
