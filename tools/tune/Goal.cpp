#include "tools/tune/Goal.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace vellumic::tune {
namespace {

using quality::Figure;
using quality::Summary;

// Positive where `value` is better than `than`.
double better(Figure figure, double value, double than) {
  return (quality::info(figure).moreIsBetter ? value - than : than - value) / unitOf(figure);
}

// By how many units one scene misses the wish's limits.
double missed(const Wish& wish, const Summary& scene, const Summary& factory) {
  const auto& value = scene.mean[wish.figure];
  if (!value) return 0.0;
  double units = 0.0;
  const auto hold = [&](double limit, double slack) {
    units += std::max(0.0, -better(wish.figure, *value, limit) - slack);
  };
  if (wish.limit) hold(*wish.limit, 0.0);
  if (wish.slackBelowFactory && factory.mean[wish.figure])
    hold(*factory.mean[wish.figure], *wish.slackBelowFactory);
  const auto input = quality::info(wish.figure).input;
  if (wish.slackBelowInput && input && scene.mean[*input])
    hold(*scene.mean[*input], *wish.slackBelowInput);
  return units;
}

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

}  // namespace

double unitOf(Figure figure) {
  return figure == Figure::stoi || figure == Figure::doubleTalkStoi ? 0.01 : 1.0;
}

std::string shown(Figure figure, double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", unitOf(figure) < 1.0 ? 3 : 1, value);
  return text;
}

Judgement judge(const std::vector<Wish>& goal, const std::vector<Summary>& scenes,
                const std::vector<Summary>& factory) {
  Judgement judgement;
  for (const Wish& wish : goal) {
    double sum = 0.0, worth = 0.0;
    int count = 0;
    for (std::size_t n = 0; n < scenes.size(); ++n) {
      const auto& value = scenes[n].mean[wish.figure];
      if (!value) continue;
      const double gain = better(wish.figure, *value, 0.0);
      worth += wish.cap ? std::min(gain, better(wish.figure, *wish.cap, 0.0)) : gain;
      sum += *value;
      ++count;
      judgement.shortfall += missed(wish, scenes[n], factory[n]);
    }
    judgement.figures.push_back(count ? sum / count : std::numeric_limits<double>::quiet_NaN());
    if (count) judgement.value += wish.weight * worth / count;
  }
  judgement.value -= limitPrice * judgement.shortfall;
  return judgement;
}

void checkAnswers(const std::vector<Wish>& goal, const std::vector<Summary>& scenes,
                  const std::string& source) {
  for (const Wish& wish : goal)
    if (std::ranges::none_of(scenes,
                             [&](const Summary& s) { return s.mean[wish.figure].has_value(); }))
      throw PlanError(source + ": goal: no material of the plan has the figure " +
                      std::string(quality::info(wish.figure).name) +
                      "; leave it out or add a scene, or a recording with far and talker");
}

std::string described(const Wish& wish) {
  const quality::FigureInfo& figure = quality::info(wish.figure);
  const std::string least = figure.moreIsBetter ? "at least " : "at most ";
  std::string text(figure.title);
  if (wish.limit) text += "; " + least + number(*wish.limit) + " in every scene";
  if (wish.slackBelowFactory)
    text += "; in no scene more than " + number(*wish.slackBelowFactory) +
            " units worse than the factory";
  if (wish.slackBelowInput)
    text += "; in no scene more than " + number(*wish.slackBelowInput) +
            " units worse than the microphone";
  if (wish.weight > 0.0) text += "; " + number(wish.weight) + " points a unit";
  if (wish.weight > 0.0 && wish.cap) text += " up to " + number(*wish.cap);
  return text;
}

}  // namespace vellumic::tune
