#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "parameters/SettingValue.h"
#include "tools/plot/Figure.h"
#include "tools/render/report/Report.h"
#include "tools/render/report/ReportFigures.h"

namespace vellumic::tools {
namespace {

using plot::escaped;

constexpr const char* head = R"(<!DOCTYPE html>
<html lang="en" xmlns="http://www.w3.org/1999/xhtml"><head><meta charset="utf-8"/>
<meta name="viewport" content="width=device-width"/>
<style>
body{font:14px/1.4 sans-serif;max-width:964px;margin:1.5em auto;padding:0 1em;color:#222}
h1{font-size:20px}h2{font-size:16px;margin:1.6em 0 .4em}svg{max-width:100%;height:auto}
table{border-collapse:collapse}th,td{text-align:left;vertical-align:top;padding:3px 14px 3px 0;
border-bottom:1px solid #ddd}td.number{text-align:right;font-variant-numeric:tabular-nums}
code{font-size:13px}.meaning{color:#666}
</style>
)";

std::string cell(const std::string& text, const char* attributes = "") {
  return std::string("<td") + attributes + ">" + escaped(text) + "</td>";
}
std::string headCell(const std::string& text) { return "<th>" + escaped(text) + "</th>"; }

struct NamedLine {
  std::string name, text;
};

// "Name: text", the indentation taken off.
NamedLine splitLine(const std::string& line) {
  const std::size_t colon = line.find(':');
  const std::size_t begin = line.find_first_not_of(' ');
  const std::size_t rest = line.find_first_not_of(' ', colon + 1);
  return {.name = line.substr(begin, colon - begin),
          .text = rest == std::string::npos ? "" : line.substr(rest)};
}

std::vector<NamedLine> linesOf(const Rendering& rendering) {
  std::vector<NamedLine> lines;
  for (const auto* some : {&rendering.lines, &rendering.timingLines})
    for (const std::string& line : *some) lines.push_back(splitLine(line));
  return lines;
}

// What was printed about each rendering, side by side.
std::string printedLines(const std::vector<Rendering>& renderings) {
  std::vector<std::string> names;
  for (const Rendering& rendering : renderings)
    for (const NamedLine& line : linesOf(rendering))
      if (std::ranges::find(names, line.name) == names.end()) names.push_back(line.name);
  std::string rows;
  if (renderings.size() > 1) {
    rows += "<tr><th></th>";
    for (const Rendering& rendering : renderings) rows += headCell(rendering.label);
    rows += "</tr>\n";
  }
  for (const std::string& name : names) {
    rows += "<tr>" + headCell(name);
    for (const Rendering& rendering : renderings) {
      const std::vector<NamedLine> lines = linesOf(rendering);
      const auto found = std::ranges::find(lines, name, &NamedLine::name);
      rows += cell(found == lines.end() ? "-" : found->text);
    }
    rows += "</tr>\n";
  }
  return "<table id=\"figures\">\n" + rows + "</table>\n";
}

std::string tableOf(const Table& table) {
  std::string text = "<table id=\"renderings\">\n";
  for (std::size_t row = 0; row < table.size(); ++row) {
    text += "<tr>";
    for (std::size_t column = 0; column < table[row].size(); ++column) {
      const bool isHead = row == 0 || column == 0;
      text += isHead ? headCell(table[row][column]) : cell(table[row][column], " class=\"number\"");
    }
    text += "</tr>\n";
  }
  return text + "</table>\n";
}

bool sameBits(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

std::string written(const Parameter& parameter, float stored) {
  std::string text = writtenSetting(parameter, stored);
  if (parameter.takesDecibels() && stored > 0.0F) {
    std::array<char, 40> decibels{};
    std::snprintf(decibels.data(), decibels.size(), " = %.1f dB",
                  20.0 * std::log10(static_cast<double>(stored)));
    return text + decibels.data();
  }
  return parameter.unit.empty() ? text : text + " " + parameter.unit;
}

std::string changedSettings(const std::vector<Rendering>& renderings) {
  std::string rows;
  for (const Parameter& parameter : catalogue()) {
    const std::size_t slot = index(parameter.slot);
    const float factory = factorySettings()[slot];
    if (std::ranges::all_of(renderings, [&](const Rendering& rendering) {
          return sameBits(rendering.settings[slot], factory);
        }))
      continue;
    rows += "<tr><td><code>" + escaped(parameter.name) + "</code></td>";
    for (const Rendering& rendering : renderings)
      rows += cell(written(parameter, rendering.settings[slot]));
    rows += cell(written(parameter, factory)) + cell(parameter.meaning, " class=\"meaning\"") +
            "</tr>\n";
  }
  if (rows.empty()) return "<p>None: the factory settings.</p>\n";
  std::string heads = headCell("name");
  for (const Rendering& rendering : renderings)
    heads += headCell(rendering.label.empty() ? "value" : rendering.label);
  return "<table id=\"settings\">\n<tr>" + heads + headCell("factory value") + headCell("meaning") +
         "</tr>\n" + rows + "</table>\n";
}

// What each live reload changes in the setting before it.
std::string reloads(const Rendering& rendering) {
  std::string items;
  const RawValues* before = &rendering.settings;
  for (const SettingChange& change : rendering.changes) {
    std::array<char, 40> time{};
    std::snprintf(time.data(), time.size(), "<li>%g s:", change.seconds);
    items += time.data();
    for (const Parameter& parameter : catalogue()) {
      const std::size_t slot = index(parameter.slot);
      if (!sameBits(change.values[slot], (*before)[slot]))
        items += " <code>" + escaped(parameter.name) +
                 "</code> = " + escaped(written(parameter, change.values[slot])) + ";";
    }
    items += "</li>\n";
    before = &change.values;
  }
  return items.empty() ? "" : "<h2>Live reloads</h2>\n<ul>\n" + items + "</ul>\n";
}

}  // namespace

bool drawsReports() { return true; }

std::string reportPage(const RenderJob& job, const std::string& inputName,
                       const std::vector<Rendering>& renderings, const Table& table) {
  constexpr std::size_t fitSideBySide = 3;
  const std::string title = escaped("vellumic-render: " + inputName);
  std::string page =
      head + ("<title>" + title + "</title></head>\n<body>\n<h1>" + title + "</h1>\n");
  if (!table.empty()) page += tableOf(table);
  if (renderings.size() <= fitSideBySide) page += "<h2>Figures</h2>\n" + printedLines(renderings);
  if (const std::string figure = equalizerFigure(job, renderings); !figure.empty())
    page += "<h2>Equaliser</h2>\n" + figure + "\n";
  page += "<h2>Over time, in seconds</h2>\n" + figureOverTime("", job, renderings) + "\n";
  page += "<h2>Settings that differ from the factory</h2>\n" + changedSettings(renderings);
  page += reloads(renderings.front());
  return page + "</body></html>\n";
}

std::string reportPicture(const RenderJob& job, const std::string& inputName,
                          const std::vector<Rendering>& renderings) {
  return figureOverTime(inputName, job, renderings);
}

}  // namespace vellumic::tools
