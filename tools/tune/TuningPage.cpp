#include <algorithm>
#include <cmath>
#include <cstdio>

#include "parameters/SettingValue.h"
#include "tools/plot/Figure.h"
#include "tools/tune/Outcome.h"

namespace vellumic::tune {
namespace {

using plot::escaped;

constexpr const char* head = R"(<!DOCTYPE html>
<html lang="en" xmlns="http://www.w3.org/1999/xhtml"><head><meta charset="utf-8"/>
<meta name="viewport" content="width=device-width"/><title>Tuning</title>
<style>
body{font:14px/1.4 sans-serif;max-width:1100px;margin:1.5em auto;padding:0 1em;color:#222}
h1{font-size:20px}h2{font-size:16px;margin:1.6em 0 .4em}svg{max-width:100%;height:auto}
table{border-collapse:collapse}th,td{text-align:left;vertical-align:top;padding:3px 12px 3px 0;
border-bottom:1px solid #ddd}td{font-variant-numeric:tabular-nums}
.better{color:#176b2c}.worse{color:#a02018}
</style></head><body>
)";

using Row = std::vector<std::string>;

// Cells are HTML already.
std::string table(const std::string& id, const std::vector<Row>& rows) {
  std::string text = "<table id=\"" + id + "\">\n";
  for (std::size_t r = 0; r < rows.size(); ++r) {
    const std::string kind = r == 0 ? "th" : "td";
    text += "<tr>";
    for (const std::string& cell : rows[r]) text += "<" + kind + ">" + cell + "</" + kind + ">";
    text += "</tr>\n";
  }
  return text + "</table>\n";
}

// The mean before and after, the worst shift in brackets; coloured where the change can be told.
std::string change(quality::Figure figure, const quality::Summary& factory,
                   const quality::Summary& tuned) {
  const auto &before = factory.mean[figure], &after = tuned.mean[figure];
  if (!before || !after) return "-";
  const double gain = (quality::info(figure).moreIsBetter ? 1 : -1) * (*after - *before);
  const char* mark = gain > 0.3 * unitOf(figure)    ? "better"
                     : gain < -0.3 * unitOf(figure) ? "worse"
                                                    : "same";
  return shown(figure, *before) + " &gt; <span class=\"" + mark + "\">" + shown(figure, *after) +
         "</span> (" + shown(figure, *tuned.worst[figure]) + ")";
}

std::string comparison(const std::string& id, const Plan& plan, const Comparison& c) {
  std::vector<Row> rows{{"scene"}};
  for (const Wish& wish : plan.goal)
    rows[0].push_back(escaped(std::string(quality::info(wish.figure).title)));
  for (std::size_t n = 0; n < c.names.size(); ++n) {
    Row row{escaped(c.names[n])};
    for (const Wish& wish : plan.goal) row.push_back(change(wish.figure, c.factory[n], c.tuned[n]));
    rows.push_back(row);
  }
  return table(id, rows);
}

std::string pointText(const Plan& plan, const Point& point) {
  std::string text;
  for (std::size_t n = 0; n < point.size(); ++n) {
    if (point[n] == plan.space[n].factory) continue;
    text += (text.empty() ? "" : ", ") + plan.space[n].name + " " +
            writtenSetting(*findParameter(plan.slots[n]), static_cast<float>(point[n]));
  }
  return text.empty() ? "factory" : text;
}

std::string weighed(const Outcome& outcome) {
  const Plan& plan = outcome.plan;
  std::vector<Row> rows{{"setting", "factory", "tuned", "goal without it"}};
  for (const Wish& wish : plan.goal)
    rows[0].push_back(escaped(std::string(quality::info(wish.figure).title)) + " without it");
  for (const Contribution& c : outcome.tuning.contributions) {
    const Dimension& d = plan.space[c.dimension];
    const Parameter& parameter = *findParameter(plan.slots[c.dimension]);
    char loss[32];
    std::snprintf(loss, sizeof loss, "%+.2f", c.without.value - outcome.tuning.judgement.value);
    Row row{"<code>" + escaped(d.name) + "</code>", writtenSetting(parameter, parameter.factory),
            writtenSetting(parameter, static_cast<float>(outcome.tuning.best[c.dimension])), loss};
    for (std::size_t n = 0; n < plan.goal.size(); ++n)
      row.push_back(shown(plan.goal[n].figure, c.without.figures[n]));
    rows.push_back(row);
  }
  std::string left;
  for (std::size_t n = 0; n < plan.space.size(); ++n)
    if (outcome.tuning.best[n] == plan.space[n].factory)
      left += (left.empty() ? "" : ", ") + plan.space[n].name;
  std::string text = table("settings", rows);
  if (!left.empty()) text += "<p>Left at the factory: " + escaped(left) + ".</p>\n";
  return text;
}

std::string frontTable(const Plan& plan, const Journal& journal) {
  std::vector<std::size_t> wanted;  // the two that weigh most
  for (std::size_t n = 0; n < plan.goal.size(); ++n)
    if (plan.goal[n].weight > 0.0) wanted.push_back(n);
  std::ranges::stable_sort(wanted, std::ranges::greater{},
                           [&](std::size_t n) { return plan.goal[n].weight; });
  if (wanted.size() < 2) return "";
  std::vector<Row> rows{{"settings", "limits missed by"}};
  for (const Wish& wish : plan.goal)
    rows[0].push_back(escaped(std::string(quality::info(wish.figure).title)));
  for (const std::size_t n : front(plan, journal, wanted[0], wanted[1])) {
    const Journal::Entry& entry = journal.entries()[n];
    char missed[32];
    std::snprintf(missed, sizeof missed, "%.1f", entry.judgement.shortfall);
    Row row{escaped(pointText(plan, entry.point)), missed};
    for (std::size_t w = 0; w < plan.goal.size(); ++w)
      row.push_back(shown(plan.goal[w].figure, entry.judgement.figures[w]));
    rows.push_back(row);
  }
  return "<h2>The front that was found</h2>\n<p>Nothing that was tried is better in both of the "
         "figures that weigh most: means over the scenes of the search.</p>\n" +
         table("front", rows);
}

std::string course(const Journal& journal) {
  plot::Line each{"each", {}, {}}, best{"best so far", {}, {}};
  double most = -1e300;
  for (const Journal::Entry& entry : journal.entries()) {
    if (entry.depth == Depth::quick) continue;
    most = std::max(most, entry.judgement.value);
    each.x.push_back(static_cast<double>(each.x.size()));
    best.x = each.x;
    each.y.push_back(entry.judgement.value);
    best.y.push_back(most);
  }
  if (each.x.size() < 2) return "";
  plot::Figure figure("Course of the search", plot::Axis{.low = 0.0, .high = each.x.back()});
  figure.addLines("goal", "points", {each, best},
                  std::pair{std::max(each.y.front() - 20, most - 60), most + 2});
  return figure.svg();
}

}  // namespace

std::vector<std::size_t> front(const Plan& plan, const Journal& journal, std::size_t first,
                               std::size_t second) {
  const auto& entries = journal.entries();
  const auto figure = [&](std::size_t n, std::size_t wish) {
    const double sign = quality::info(plan.goal[wish].figure).moreIsBetter ? 1.0 : -1.0;
    return sign * entries[n].judgement.figures[wish];
  };
  std::vector<std::size_t> order;
  for (std::size_t n = 0; n < entries.size(); ++n)
    if (entries[n].depth == Depth::full && std::isfinite(figure(n, first)) &&
        std::isfinite(figure(n, second)))
      order.push_back(n);
  std::ranges::sort(order, [&](std::size_t a, std::size_t b) {
    return std::pair(figure(a, first), figure(a, second)) >
           std::pair(figure(b, first), figure(b, second));
  });
  std::vector<std::size_t> kept;
  for (const std::size_t n : order)
    if (kept.empty() || figure(n, second) > figure(kept.back(), second)) kept.push_back(n);
  return kept;
}

std::string tuningPage(const Outcome& outcome, const Journal& journal) {
  const Plan& plan = outcome.plan;
  std::string text = head;
  text += "<h1>" + escaped(plan.header.empty() ? "Tuning" : plan.header.front()) + "</h1>\n<ul>\n";
  for (const Wish& wish : plan.goal) text += "<li>" + escaped(described(wish)) + "</li>\n";
  const auto quick = static_cast<std::size_t>(
      std::ranges::count(journal.entries(), Depth::quick, &Journal::Entry::depth));
  char numbers[240];
  std::snprintf(numbers, sizeof numbers,
                "</ul>\n<p>%zu evaluations over four shifts, %zu quick ones over one. Goal %.2f "
                "with the factory settings, %.2f tuned; limits "
                "missed by %.1f units, %.1f tuned. This run took %.0f s.</p>\n",
                journal.entries().size() - quick, quick, outcome.tuning.factory.value,
                outcome.tuning.judgement.value, outcome.tuning.factory.shortfall,
                outcome.tuning.judgement.shortfall, outcome.seconds);
  text += numbers;
  text +=
      "<p>Cells: factory &gt; tuned, means over four shifts of the blocks (the worst shift).</p>\n";
  text += "<h2>Scenes of the search</h2>\n" + comparison("seen", plan, outcome.seen);
  if (outcome.heldOut)
    text += "<h2>Scenes that the search did not see</h2>\n" +
            comparison("held-out", plan, *outcome.heldOut);
  if (const std::string note = heldOutNote(plan); !note.empty()) text += "<p>" + note + "</p>\n";
  text += "<h2>Which settings mattered</h2>\n" + weighed(outcome);
  text += frontTable(plan, journal) + "<h2>Search</h2>\n" + course(journal);
  return text + "</body></html>\n";
}

}  // namespace vellumic::tune
