// From figures to one number: how well settings meet a plan's wishes.
#pragma once

#include <string>
#include <vector>

#include "tools/quality/Figures.h"
#include "tools/tune/Plan.h"

namespace vellumic::tune {

struct Judgement {
  double value = 0.0;           // more is better
  double shortfall = 0.0;       // units by which limits are missed, over all scenes; 0 if none is
  std::vector<double> figures;  // one per wish: the mean over all scenes; NaN where none has it
};

// A unit of a limit missed in one scene costs that much, far above what weights give.
inline constexpr double limitPrice = 4.0;

// `scenes` and `factory`: per scene, in the same order.
Judgement judge(const std::vector<Wish>& goal, const std::vector<quality::Summary>& scenes,
                const std::vector<quality::Summary>& factory);

// Throws PlanError, one line, for a wish that no scene's figures can answer. `source`: the plan.
void checkAnswers(const std::vector<Wish>& goal, const std::vector<quality::Summary>& scenes,
                  const std::string& source);

// "near SDR at least 20 in every scene; as much ERLE up to 25, 0.3 a dB".
std::string described(const Wish& wish);

// The figure's unit in a plan: 0.01 of STOI, else 1.
double unitOf(quality::Figure figure);
// With the digits that its figure deserves: "12.3", "0.912".
std::string shown(quality::Figure figure, double value);

}  // namespace vellumic::tune
