#include "tools/host/HostOptions.h"

#include <CLI/CLI.hpp>
#include <map>

#include "apo/ProcessingModes.h"
#include "tools/Arguments.h"

namespace vellumic::tools {
namespace {

const std::map<std::string, GUID> modes{
    {"default", modeDefault}, {"raw", modeRaw}, {"speech", modeSpeech}};

constexpr const char* footer = R"(
Without --settings and --set the registry's active setting is used as it is. With them a setting of
this program's own is stored and active while it runs (as administrator), starting from the factory
values.

Examples:
  vellumic-host --class efx --set equalizer.enabled=true in.wav out.wav
  vellumic-host --class mfx --mode speech --settings array.toml --far speakers.wav in.wav out.wav
  vellumic-host --class mfx --class efx --endpoint Array --live 10 out.wav
  vellumic-host --list
  vellumic-host --selftest)";

// A repeatable option that takes exactly one value each time, so that files may follow it.
CLI::Option* addEach(CLI::App& app, const std::string& name, std::vector<std::string>& values,
                     const std::string& description) {
  return app
      .add_option_function<std::string>(
          name, [&values](const std::string& value) { values.push_back(value); }, description)
      ->trigger_on_parse();
}

}  // namespace

std::optional<HostOptions> parseHostOptions(int argc, const char* const* argv) {
  HostOptions options;
  std::string mode = "default";
  std::vector<std::string> files;
  CLI::App app("Runs the registered capture effects as the audio engine would.", "vellumic-host");
  app.footer(footer);
  app.allow_windows_style_options(false);  // "/path" is a file
  addEach(app, "--class", options.classes, "efx, mfx or kdmfx; several process in turn")
      ->option_text("CLASS [mfx]");
  app.add_option("--mode", mode, "default, raw or speech")->option_text("MODE [default]");
  app.add_option("--endpoint", options.endpoint, "microphone: part of its name, or GUID")
      ->option_text("TEXT");
  addEach(app, "--settings", options.settingsFiles, "settings file (repeatable)")
      ->option_text("FILE.toml");
  addEach(app, "--set", options.assignments, "one setting (repeatable)")->option_text("NAME=VALUE");
  auto* farOption =
      app.add_option("--far", options.farFile, "the loudspeakers' loopback from a file")
          ->option_text("FILE.wav");
  app.add_option("--monitor", options.monitor, "the loopback from this microphone")
      ->option_text("TEXT")
      ->excludes(farOption);
  app.add_option("--volume", options.volume, "linear endpoint volume, where it is stood in for")
      ->option_text("X [1]")
      ->check(CLI::Range(0.0F, 1.0F));
  app.add_flag("--service", options.service, "stand in for the companion service");
  app.add_option("--reload", options.reloadFile, "settings on top at every other reload")
      ->option_text("FILE.toml");
  app.add_option("--reload-every", options.reloadEvery, "have the setting read again while running")
      ->option_text("SECONDS")
      ->check(CLI::Range(0.05, 3600.0));
  app.add_option("--live", options.liveSeconds, "from the microphone, for so long")
      ->option_text("SECONDS")
      ->check(CLI::Range(0.1, 86400.0));
  app.add_flag("--list", options.list, "list the microphones");
  app.add_flag("--selftest", options.selfTest,
               "test everything on this machine; FILE gets the report [vellumic-selftest.json]");
  app.add_option("--seconds", options.selfTestSeconds, "of live sound in the self-test")
      ->option_text("SECONDS [60]")
      ->check(CLI::Range(0.5, 86400.0));
  app.add_option("--selftest-stage", options.selfTestStage)->group("");  // its own processes
  app.add_option("FILES", files, "INPUT.wav OUTPUT.wav, with --live OUTPUT.wav")->option_text(" ");
  if (!parseArguments(app, argc, argv)) return std::nullopt;
  const auto found = modes.find(mode);
  if (found == modes.end()) throw UsageError("--mode " + mode + ": write default, raw or speech");
  options.mode = found->second;
  options.speech = mode == "speech";
  if (options.classes.empty()) options.classes.push_back("mfx");
  if (options.reloadEvery > 0.0 && !options.service)
    throw UsageError("--reload-every: needs --service, which knows the objects' events");
  if (options.list || !options.selfTestStage.empty()) return options;
  if (options.selfTest) {
    if (files.size() > 1) throw UsageError("write at most one file with --selftest");
    options.outputFile = files.empty() ? "vellumic-selftest.json" : files.front();
    return options;
  }
  const std::size_t wanted = options.liveSeconds > 0.0 ? 1 : 2;
  if (files.size() != wanted)
    throw UsageError(wanted == 1 ? "write one file, OUTPUT.wav, with --live"
                                 : "write two files: INPUT.wav OUTPUT.wav");
  if (wanted == 2) options.inputFile = files.front();
  options.outputFile = files.back();
  return options;
}

}  // namespace vellumic::tools
