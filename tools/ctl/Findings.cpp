#include "tools/ctl/Findings.h"

#include <algorithm>

#include "tools/ctl/Json.h"

namespace vellumic::tools {
namespace {

const char* verdictText(Verdict verdict) {
  switch (verdict) {
    case Verdict::ok:
      return "ok";
    case Verdict::notOk:
      return "not ok";
    case Verdict::unknown:
      break;
  }
  return "cannot be told";
}

}  // namespace

const Finding* Findings::find(const std::string& link) const {
  const auto found = std::ranges::find(all_, link, &Finding::link);
  return found == all_.end() ? nullptr : &*found;
}

std::size_t Findings::count(Verdict verdict) const {
  return static_cast<std::size_t>(std::ranges::count(all_, verdict, &Finding::verdict));
}

std::string Findings::table() const {
  constexpr std::size_t linkEnd = 14, verdictEnd = 30;
  std::string text;
  for (const Finding& finding : all_) {
    std::string line = finding.link;
    line.resize(std::max(line.size() + 1, linkEnd), ' ');
    line += verdictText(finding.verdict);
    line.resize(std::max(line.size() + 1, verdictEnd), ' ');
    text += line + finding.text + "\n";
  }
  return text;
}

std::string Findings::json() const {
  std::vector<std::string> list;
  for (const Finding& finding : all_)
    list.push_back(JsonObject()
                       .addText("link", finding.link)
                       .addText("verdict", verdictText(finding.verdict))
                       .addText("text", finding.text)
                       .text());
  return jsonList(list);
}

}  // namespace vellumic::tools
