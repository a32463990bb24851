#include "tools/host/selftest/Steps.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "parameters/SettingsFile.h"
#include "tools/ctl/Json.h"

namespace vellumic::tools {
namespace {

constexpr std::array<const char*, 4> kinds{"begin", "step", "will-change", "changed-back"};
constexpr std::array<const char*, 3> verdicts{"ok", "not ok", "cannot be told here"};

struct Meaning {
  DWORD code;
  Verdict verdict;
  const char* text;
};
constexpr std::array meanings{
    Meaning{0x80070005, Verdict::notOk,
            "no rights; run as administrator, and allow desktop "
            "programs the microphone in the privacy settings"},
    Meaning{0x80070490, Verdict::unknown, "no such device; connect one and run again"},
    Meaning{0x88890004, Verdict::notOk, "the device went away meanwhile; run again"},
    Meaning{0x8889000A, Verdict::notOk, "another program holds the device alone; end it"},
    Meaning{0x88890010, Verdict::notOk,
            "the audio service is not reachable; run net start Audiosrv as administrator"},
    Meaning{0x80070426, Verdict::notOk,
            "the audio service is not reachable; run net start Audiosrv as administrator"},
    Meaning{0x800706BA, Verdict::notOk,
            "the audio service is not reachable; run net start Audiosrv as administrator"},
    Meaning{0x80040154, Verdict::notOk,
            "not registered, or its library cannot be loaded; register it anew"},
    Meaning{0x8007007E, Verdict::notOk,
            "a library is missing; unpack the whole zip, and register it where it lies"},
    Meaning{0x80004001, Verdict::unknown, "this system does not have it"},
};

// The lines of the verdict, and the stages behind each.
struct Group {
  const char* name;
  std::vector<std::string_view> stages;
};
const std::array<Group, 8>& groups() {
  static const std::array<Group, 8> all{{{"library", {"register", "library"}},
                                         {"formats", {"formats"}},
                                         {"signal", {"signal"}},
                                         {"live", {"live"}},
                                         {"volume", {"volume"}},
                                         {"loopback", {"loopback"}},
                                         {"system", {"devices", "system"}},
                                         {"unload", {"unload", "put-back"}}}};
  return all;
}

std::string codeText(HRESULT result) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%08lX", static_cast<unsigned long>(result));
  return text.data();
}

const char* textOf(Verdict verdict) { return verdicts.at(static_cast<std::size_t>(verdict)); }

// On the console; the file holds it whole. What to do, behind the last semicolon, is never cut.
std::string said(const Step& step) {
  constexpr std::size_t most = 85, leastHead = 30, mostTail = 110;
  std::string text = step.name + (step.outcome.text.empty() ? "" : ": " + step.outcome.text);
  const auto inside = [&](std::size_t at) {  // a UTF-8 character
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U;
  };
  std::size_t tail = std::min(text.rfind("; "), text.size());
  tail = std::max(tail, text.size() - std::min(text.size(), mostTail));
  while (inside(tail)) ++tail;
  const std::size_t kept = text.size() - tail + 3;
  std::size_t head = std::max(leastHead, most - std::min(most, kept));
  while (inside(head)) --head;
  if (text.size() > most && head + 3 < tail) text.replace(head, tail - head, "...");
  return text;
}

std::string groupLine(const Group& group, const std::vector<Step>& steps) {
  std::array<int, 3> counts{};
  std::array<const Step*, 3> first{};
  for (const Step& step : steps) {
    if (std::ranges::find(group.stages, step.stage) == group.stages.end()) continue;
    const auto which = static_cast<std::size_t>(step.outcome.verdict);
    if (counts.at(which)++ == 0) first.at(which) = &step;
  }
  const auto [good, faults, open] = counts;
  if (good + faults + open == 0) return {};
  std::array<char, 40> start{};
  const Verdict verdict = faults > 0 ? Verdict::notOk : good > 0 ? Verdict::ok : Verdict::unknown;
  std::snprintf(start.data(), start.size(), "%-10s%-20s ", group.name, textOf(verdict));
  std::string line = start.data();
  if (faults > 0)
    return line + said(*first[1]) +
           (faults > 1 ? " (first of " + std::to_string(faults) + ")\n" : "\n");
  if (good > 0) line += std::to_string(good) + (good == 1 ? " step" : " steps");
  if (open > 0)
    line += (good > 0 ? "; cannot be told here: " : "") + said(*first[2]) +
            (open > 1 ? " (first of " + std::to_string(open) + ")" : "");
  return line + '\n';
}

std::vector<std::string> fields(std::string_view line) {
  std::vector<std::string> result(1);
  for (const char c : line) {
    if (c == '\t')
      result.emplace_back();
    else
      result.back() += c;
  }
  return result;
}

std::size_t count(const std::vector<Step>& steps, Verdict verdict) {
  return static_cast<std::size_t>(std::ranges::count_if(
      steps, [verdict](const Step& step) { return step.outcome.verdict == verdict; }));
}

}  // namespace

Outcome explained(HRESULT result, const std::string& what) {
  const auto code = static_cast<DWORD>(result);
  const auto found = std::ranges::find(meanings, code, &Meaning::code);
  const std::string start = what.empty() ? "" : what.substr(0, what.rfind("; ")) + ": ";
  if (found != meanings.end()) return {found->verdict, start + found->text, result};
  return bad(start + "failed (" + codeText(result) + "); send the report", result);
}

std::string withoutAccount(std::string text) {
  constexpr std::string_view folder = "\\users\\";
  const auto same = [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a + 32 : a) == b; };
  for (auto at = text.begin();;) {
    at = std::search(at, text.end(), folder.begin(), folder.end(), same);
    if (at == text.end()) return text;
    const auto name = at + static_cast<std::ptrdiff_t>(folder.size());
    const auto end = std::find_if(name, text.end(), [](char c) { return c == '\\' || c == '"'; });
    const auto start = name - text.begin();
    text.replace(name, end, "...");
    at = text.begin() + start;
  }
}

std::string lineOf(const StageLine& line) {
  std::string text =
      kinds.at(static_cast<std::size_t>(line.kind)) + ('\t' + onOneLine(line.step.name));
  if (line.kind != StageLine::Kind::step) return text;
  std::array<char, 64> figures{};
  std::snprintf(figures.data(), figures.size(), "\t%d\t%ld\t%.3f\t",
                static_cast<int>(line.step.outcome.verdict),
                static_cast<long>(line.step.outcome.result), line.step.milliseconds);
  return text + figures.data() + onOneLine(line.step.outcome.text);
}

std::optional<StageLine> parseLine(std::string_view line) {
  const std::vector<std::string> parts = fields(line);
  const auto kind = std::ranges::find(kinds, parts[0]);
  if (kind == kinds.end()) return std::nullopt;
  StageLine result{.kind = static_cast<StageLine::Kind>(kind - kinds.begin()), .step = {}};
  const bool isStep = result.kind == StageLine::Kind::step;
  if (parts.size() != (isStep ? 6U : 2U)) return std::nullopt;
  result.step.name = parts[1];
  if (!isStep) return result;
  const long verdict = std::strtol(parts[2].c_str(), nullptr, 10);
  if (verdict < 0 || verdict > 2) return std::nullopt;
  result.step.outcome = {static_cast<Verdict>(verdict), parts[5],
                         static_cast<HRESULT>(std::strtol(parts[3].c_str(), nullptr, 10))};
  result.step.milliseconds = std::strtod(parts[4].c_str(), nullptr);
  return result;
}

bool anyFault(const std::vector<Step>& steps) { return count(steps, Verdict::notOk) > 0; }

std::string verdictText(const std::vector<Step>& steps, const ReportFacts& facts) {
  std::string text;
  for (const Group& group : groups()) text += groupLine(group, steps);
  const std::size_t faults = count(steps, Verdict::notOk), open = count(steps, Verdict::unknown);
  text += std::string("Verdict: ") + (faults > 0 ? "not ok" : "ok") + ", " +
          std::to_string(faults) + " of " + std::to_string(steps.size()) + " steps not ok, " +
          std::to_string(open) + " cannot be told here\n";
  return text + "Send back: " + facts.file +
         " (names and ids of sound devices, nothing else personal)\n";
}

std::string reportText(const std::vector<Step>& steps, const ReportFacts& facts) {
  std::string list;
  for (const Step& step : steps) {
    std::array<char, 32> milliseconds{};
    std::snprintf(milliseconds.data(), milliseconds.size(), "%.3f", step.milliseconds);
    list +=
        (list.empty() ? "\n  " : ",\n  ") + JsonObject()
                                                .addText("stage", step.stage)
                                                .addText("step", step.name)
                                                .addText("verdict", textOf(step.outcome.verdict))
                                                .addText("hresult", codeText(step.outcome.result))
                                                .add("ms", std::string(milliseconds.data()))
                                                .addText("text", step.outcome.text)
                                                .text();
  }
  return JsonObject()
             .addText("program", facts.program)
             .addText("system", facts.system)
             .addText("privacy",
                      "names of sound devices, which may hold their owner's, and their ids; "
                      "nothing else personal")
             .add("finished", facts.finished)
             .add("healthy", facts.finished && !anyFault(steps))
             .add("steps", "[" + list + "\n]")
             .text() +
         "\n";
}

}  // namespace vellumic::tools
