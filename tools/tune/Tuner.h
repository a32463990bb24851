// A tuning run without files: searches, leaves out what does not help, weighs the rest one by one.
#pragma once

#include <functional>
#include <vector>

#include "tools/tune/Journal.h"
#include "tools/tune/Plan.h"

namespace vellumic::tune {

// How well a point does on the material of the search; throws Stopped to end the run.
using PointJudge = std::function<Judgement(const Point&, Depth)>;

// A setting that differs from the factory, and what putting it back alone would change.
struct Contribution {
  std::size_t dimension;
  Judgement without;
};

struct Tuning {
  Point best;
  Judgement judgement, factory;
  std::vector<Contribution> contributions;  // the one that helps most first
  bool stopped = false;                     // then nothing was left out or weighed
};

struct Progress {
  int done, all;  // evaluations; all are an estimate
  double left;    // estimate of the work to come, in full evaluations
  double best;    // of the full ones
};
using ProgressReport = std::function<void(const Progress&)>;

// Points that the journal holds are not judged again. `progress` is called after each evaluation.
Tuning tune(const Plan& plan, Journal& journal, const PointJudge& judge,
            const ProgressReport& progress);

}  // namespace vellumic::tune
