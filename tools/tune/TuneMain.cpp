#include "tools/tune/TuneMain.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <thread>

#include "tools/Arguments.h"
#include "tools/OutputFile.h"
#include "tools/Version.h"
#include "tools/WaveFile.h"
#include "tools/render/ProgressBar.h"
#include "tools/tune/Outcome.h"
#include "tools/tune/Panel.h"

namespace vellumic::tune {
namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  std::string plan, output, report, journal;
  unsigned jobs = std::max(1U, std::thread::hardware_concurrency());
  bool fresh = false;
};

constexpr const char* footer = R"(
A plan names the settings to move, the material and the goal: see docs/tuning.md and
settings/plans. The same plan on the same build gives the same settings. A run that was stopped or
killed goes on from its journal (OUTPUT.journal) when it is started again.

Examples:
  vellumic-tune settings/plans/desk.toml --output desk.toml --report desk.html
  vellumic-tune my-room.toml --output my-room-tuned.toml --jobs 4)";

// Nothing when help was asked for and printed.
std::optional<Options> optionsFrom(int argc, const char* const* argv) {
  Options options;
  CLI::App app{"Finds settings by itself: towards a goal, on scenes or recordings.",
               "vellumic-tune"};
  app.footer(footer);
  app.add_option("PLAN.toml", options.plan, "what to tune, on what, towards what")
      ->required()
      ->option_text(" ");
  app.add_option("--output", options.output, "settings to write")
      ->required()
      ->option_text("FILE.toml");
  app.add_option("--report", options.report, "page to write")->option_text("FILE.html");
  app.add_option("--journal", options.journal, "kept evaluations")->option_text("FILE");
  app.add_option("--jobs", options.jobs, "threads")->check(CLI::Range(1, 256))->option_text("N");
  app.add_flag("--fresh", options.fresh, "begin anew, whatever the journal holds");
  if (!tools::parseArguments(app, argc, argv)) return std::nullopt;
  if (options.journal.empty()) options.journal = options.output + ".journal";
  return options;
}

// The files that the tool writes are others than those that it reads, and than each other.
void checkTargets(const Options& options, const Plan& plan) {
  std::vector<std::string> taken{options.plan, plan.voices.nearFile, plan.voices.farFile,
                                 plan.heldOutVoices.nearFile, plan.heldOutVoices.farFile};
  for (const auto& all : {plan.material, plan.heldOut})
    for (const Matter& matter : all)
      taken.insert(taken.end(), {matter.recording, matter.far, matter.talker});
  for (const std::string& target : {options.output, options.report, options.journal}) {
    if (target.empty()) continue;
    for (const std::string& file : taken)
      if (!file.empty() && placeOf(target) == placeOf(file))
        throw std::runtime_error(target +
                                 ": would be written over another file of this run; name another");
    taken.push_back(target);
  }
  for (const std::string& target : {options.output, options.report})
    if (!target.empty()) tools::checkWaveTarget(target);
}

// Of all that a judgement rests on; what the factory settings score tells one machine's arithmetic
// from another's.
std::uint64_t printOf(const Plan& plan, const Panel& panel,
                      const std::vector<quality::Summary>& factory) {
  std::uint64_t print = fingerprint(plan.text, panel.print());
  print = fingerprint(tools::versionLine("vellumic-tune"), print);
  for (const quality::Summary& summary : factory)
    for (std::size_t f = 0; f < quality::figureCount; ++f)
      print = fingerprint(
          std::to_string(summary.mean[static_cast<quality::Figure>(f)].value_or(0.0)), print);
  return print;
}

std::string minutes(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%d:%02d", static_cast<int>(seconds) / 60,
                static_cast<int>(seconds) % 60);
  return text;
}

// Draws the bar with the best so far and the time left, by the time of what is not in the journal.
class Display {
 public:
  explicit Display(const Journal& journal) : journal_(journal), known_(journal.entries().size()) {}

  void operator()(const Progress& now) {
    for (; known_ < journal_.entries().size(); ++known_)
      judged_ += journal_.entries()[known_].depth == Depth::quick ? quickCost : 1.0;
    const double spent = std::chrono::duration<double>(Clock::now() - start_).count();
    char text[100];
    std::snprintf(text, sizeof text, "%d of about %d, best %.2f", now.done, now.all, now.best);
    std::string note = text;
    if (judged_ > 0.0) note += ", " + minutes(spent / judged_ * now.left) + " left";
    bar_.show(static_cast<double>(now.done) / now.all, note);
  }

 private:
  const Journal& journal_;
  std::size_t known_;
  double judged_ = 0.0;  // by this run, in full evaluations
  Clock::time_point start_ = Clock::now();
  tools::ProgressBar bar_;
};

void print(const Outcome& outcome) {
  std::cout << "Goal: " << outcome.tuning.factory.value << " with the factory settings, "
            << outcome.tuning.judgement.value << " tuned\n";
  if (outcome.tuning.judgement.shortfall > 0.0)
    std::cout << "Limits: missed by " << outcome.tuning.judgement.shortfall
              << " units over all scenes\n";
  const Comparison& shown = outcome.heldOut ? *outcome.heldOut : outcome.seen;
  std::cout << (outcome.heldOut ? "Held-out scenes:\n"
                                : "Scenes of the search (none were held out):\n");
  for (const Wish& wish : outcome.plan.goal)
    if (const std::string line = changeOf(shown, wish.figure); !line.empty())
      std::cout << "  " << line << '\n';
}

// The held-out scenes are made only now: no search can have seen them.
void compare(const Options& options, const Plan& plan, const Panel& panel,
             const std::vector<quality::Summary>& factory, Outcome& outcome,
             const std::atomic<bool>& stop) {
  const RawValues tuned = plan.settings(outcome.tuning.best);
  outcome.seen = {panel.names(), factory, panel.judge(tuned)};
  if (plan.heldOut.empty()) return;
  const Panel heldOut(plan.heldOut, plan.heldOutVoices, options.jobs, stop);
  outcome.heldOut =
      Comparison{heldOut.names(), heldOut.judge(plan.measuredWith), heldOut.judge(tuned)};
}

int run(const Options& options, const std::atomic<bool>& stop) {
  const Clock::time_point start = Clock::now();
  const Plan plan = readPlan(options.plan);
  checkTargets(options, plan);
  if (options.fresh) Journal::remove(options.journal);
  std::cerr << "Making the scenes ...\n";
  const Panel panel(plan.material, plan.voices, options.jobs, stop);
  const auto factory = panel.judge(plan.measuredWith);
  checkAnswers(plan.goal, factory, options.plan);
  Journal journal(options.journal, printOf(plan, panel, factory), plan);

  Tuning tuning;
  {
    Display display(journal);
    tuning = tune(
        plan, journal,
        [&](const Point& point, Depth depth) {
          return judge(plan.goal, panel.judge(plan.settings(point), depth), factory);
        },
        [&](const Progress& now) { display(now); });
  }
  if (journal.entries().empty()) throw Stopped();

  Outcome outcome{plan, tuning, {}, std::nullopt};
  try {
    if (!tuning.stopped) compare(options, plan, panel, factory, outcome, stop);
  } catch (const Stopped&) {
    tuning.stopped = true;
  }
  outcome.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  tools::writeWholeFile(options.output, settingsText(outcome));
  if (!options.report.empty() && !tuning.stopped)
    tools::writeWholeFile(options.report, tuningPage(outcome, journal));
  if (tuning.stopped) {
    std::cerr << "vellumic-tune: stopped; the best so far is in " << options.output
              << ", the same command goes on\n";
    return 130;
  }
  print(outcome);
  std::cout << "Time: " << minutes(outcome.seconds) << " for this run\n";
  return 0;
}

}  // namespace

int tuneMain(int argc, const char* const* argv, const std::atomic<bool>& stop) {
  try {
    const auto options = optionsFrom(argc, argv);
    const int code = options ? run(*options, stop) : 0;
    tools::finishPrinting();
    return code;
  } catch (const Stopped&) {
    std::cerr << "vellumic-tune: stopped; nothing was judged yet, nothing is written\n";
    return 130;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vellumic-tune: %s\n", error.what());
    return 1;
  }
}

}  // namespace vellumic::tune
