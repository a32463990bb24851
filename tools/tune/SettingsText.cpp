#include <algorithm>
#include <cmath>
#include <cstdio>

#include "parameters/SettingValue.h"
#include "tools/tune/Outcome.h"

namespace vellumic::tune {
namespace {

std::string signedNumber(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%+.2f", value);
  return text;
}

// What the goal's figures gain by one setting: those that move by a fifth of a unit or more.
std::string reason(const Plan& plan, const Judgement& with, const Judgement& without) {
  std::string text = "goal " + signedNumber(with.value - without.value);
  std::string figures;
  for (std::size_t n = 0; n < plan.goal.size(); ++n) {
    const quality::Figure figure = plan.goal[n].figure;
    const double change = with.figures[n] - without.figures[n];
    if (!(std::abs(change) >= 0.2 * unitOf(figure))) continue;
    const std::string shownChange = shown(figure, std::abs(change));
    figures += figures.empty() ? ": " : "; ";
    figures += std::string(quality::info(figure).title) + (change < 0 ? " -" : " +") + shownChange;
  }
  return text + figures;
}

struct Extremes {
  double before = 0.0, after = 0.0, worst = 0.0;
  int count = 0;
};

Extremes extremesOf(const Comparison& comparison, quality::Figure figure) {
  Extremes e;
  const bool more = quality::info(figure).moreIsBetter;
  for (std::size_t n = 0; n < comparison.names.size(); ++n) {
    const auto& before = comparison.factory[n].mean[figure];
    const auto& after = comparison.tuned[n].mean[figure];
    if (!before || !after) continue;
    e.worst = e.count == 0 ? *after : more ? std::min(e.worst, *after) : std::max(e.worst, *after);
    e.before += *before;
    e.after += *after;
    ++e.count;
  }
  if (e.count) e.before /= e.count, e.after /= e.count;
  return e;
}

}  // namespace

std::string heldOutNote(const Plan& plan) {
  if (plan.heldOut.empty())
    return "No material was held out: how the settings do on other material is not known.";
  const bool scenes = std::ranges::any_of(plan.material, &Matter::isScene) &&
                      std::ranges::any_of(plan.heldOut, &Matter::isScene);
  if (scenes && (placeOf(plan.voices.nearFile) == placeOf(plan.heldOutVoices.nearFile) ||
                 placeOf(plan.voices.farFile) == placeOf(plan.heldOutVoices.farFile)))
    return "The held-out scenes have a voice of the search: others may do differently.";
  return "";
}

std::string changeOf(const Comparison& comparison, quality::Figure figure) {
  const Extremes e = extremesOf(comparison, figure);
  if (e.count == 0) return "";
  std::string text = std::string(quality::info(figure).title) + " " + shown(figure, e.before) +
                     " > " + shown(figure, e.after);
  if (e.count > 1) text += " (worst scene " + shown(figure, e.worst) + ")";
  return text;
}

std::string settingsText(const Outcome& outcome) {
  const Plan& plan = outcome.plan;
  const Tuning& tuning = outcome.tuning;
  std::string text;
  for (const std::string& line : plan.header) text += "# " + line + "\n";
  if (!text.empty()) text += "#\n";
  if (outcome.heldOut) {
    text += "# Factory > these settings, on " + std::to_string(outcome.heldOut->names.size()) +
            " scenes that the tuning did not see:\n";
    for (const Wish& wish : plan.goal)
      if (const std::string line = changeOf(*outcome.heldOut, wish.figure); !line.empty())
        text += "#   " + line + "\n";
    text += "#\n";
  }
  if (const std::string note = heldOutNote(plan); !note.empty()) text += "# " + note + "\n#\n";
  text += tuning.stopped ? "# The tuning was stopped; these are the best settings so far.\n"
                         : "# Found by vellumic-tune; each reason is what the setting adds to "
                           "the others.\n";
  for (std::size_t n = 0; n < plan.space.size(); ++n) {
    const Dimension& d = plan.space[n];
    if (tuning.best[n] == d.factory) continue;
    const Parameter& parameter = *findParameter(plan.slots[n]);
    text += "\n# " + parameter.meaning + "; " + writtenSetting(parameter, parameter.factory) +
            " at the factory\n";
    for (const Contribution& c : tuning.contributions)
      if (c.dimension == n) text += "# " + reason(plan, tuning.judgement, c.without) + "\n";
    text += d.name + " = " + writtenSetting(parameter, static_cast<float>(tuning.best[n])) + "\n";
  }
  return text;
}

}  // namespace vellumic::tune
