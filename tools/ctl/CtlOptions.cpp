#include "tools/ctl/CtlOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>

#include "tools/Arguments.h"

namespace vellumic::tools {
namespace {

constexpr std::size_t mostDigits = 9;
constexpr const char* description =
    "Attaches the capture effects to microphones, reads and writes their settings, shows which "
    "run.";
constexpr const char* footer = R"(
Commands:
  settings list
  settings show [N] [--changed]
  settings set [N] NAME=VALUE... [--fade]
  settings apply FILE.toml [N] [--fade]
  settings export [N] FILE.toml|FILE.reg
  settings activate N
  status [--watch] [--json] [--seconds S]
  volume [DEVICE]
  mute [DEVICE]
  endpoints [--json]
  attach DEVICE [--class LIST] [--mode LIST] [--keep | --replace] [--dry-run] [--restart]
  detach DEVICE [--dry-run] [--restart]
  doctor [DEVICE] [--json]

N is the number of a setting; without it the active one is meant. A changed setting is checked as
a whole, written as a whole, made the active one, and then told to the running effects. Writing
needs an administrator's rights.

Examples:
  vellumic-ctl settings list
  vellumic-ctl settings show --changed
  vellumic-ctl settings set noise.enabled=false pipeline.output_gain_db=3 --fade
  vellumic-ctl settings apply settings/speech_equalizer.toml 3
  vellumic-ctl settings export 3 backup.reg
  vellumic-ctl settings activate 2
  vellumic-ctl status --watch
  vellumic-ctl status --json
  vellumic-ctl volume
  vellumic-ctl attach Array --class mfx --dry-run
  vellumic-ctl doctor Array
Exit code: 0, or 1 after one line that says what is wrong and how to mend it.)";

bool isNumber(const std::string& text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

std::string settingNumber(const std::string& text) {
  if (isNumber(text) && text.size() <= mostDigits) return text;
  throw CtlError("setting " + text + ": no such number; write N as 0 to 999999999");
}

// [N] NAME=VALUE...
void readChange(CtlOptions& options, std::vector<std::string> words) {
  if (words.front().find('=') == std::string::npos) {
    options.setting = settingNumber(words.front());
    words.erase(words.begin());
  }
  if (words.empty())
    throw CtlError("settings set " + *options.setting + ": nothing to set; add NAME=VALUE");
  options.assignments = std::move(words);
}

// [N] FILE
void readExport(CtlOptions& options, const std::vector<std::string>& words) {
  if (words.size() > 2) throw CtlError("settings export: write [N] and one file");
  if (words.size() == 2) options.setting = settingNumber(words.front());
  options.file = words.back();
  if (words.size() == 1 && isNumber(options.file))
    throw CtlError("settings export " + options.file + ": no file; add FILE.toml or FILE.reg");
}

// The words of the command line, before they are checked.
struct Words {
  std::vector<std::string> list;
  std::string number;
  double seconds = 0.0;
};

CLI::App* addCommand(CLI::App& group, CtlOptions& options, CtlCommand command, const char* name,
                     const char* text) {
  CLI::App* added = group.add_subcommand(name, text);
  added->allow_windows_style_options(false);  // "/path" is a file
  added->callback([&options, command] { options.command = command; });
  return added;
}

void addSettings(CLI::App& app, CtlOptions& options, Words& words) {
  using enum CtlCommand;
  CLI::App& settings = *app.add_subcommand("settings", "stored settings");
  settings.require_subcommand(1);
  addCommand(settings, options, listSettings, "list", "all stored settings and which is active");

  CLI::App* show = addCommand(settings, options, showSetting, "show",
                              "names, values and units; * marks what differs from the factory");
  show->add_option("N", words.number, "setting")->option_text(" ");
  show->add_flag("--changed", options.changedOnly, "only what differs from the factory");

  CLI::App* set =
      addCommand(settings, options, setValues, "set", "change values of a stored setting");
  set->add_option("[N] NAME=VALUE", words.list, "values as in a settings file")
      ->required()
      ->option_text("...");
  set->add_flag("--fade", options.fade, "cross-fade to the changed setting");

  CLI::App* apply = addCommand(settings, options, applyFile, "apply",
                               "replace a setting by the factory values and a file on top");
  apply->add_option("FILE.toml", options.file, "settings by name")->required()->option_text(" ");
  apply->add_option("N", words.number, "setting, made if missing")->option_text(" ");
  apply->add_flag("--fade", options.fade, "cross-fade to the new setting");

  CLI::App* write =
      addCommand(settings, options, exportFile, "export", "write a setting to a file");
  write->add_option("[N] FILE", words.list, "FILE.toml, or FILE.reg with the stored bits")
      ->required()
      ->option_text(" ");

  CLI::App* activate =
      addCommand(settings, options, activateSetting, "activate", "make a stored setting active");
  activate->add_option("N", words.number, "setting")->required()->option_text(" ");
}

CLI::Option* addRest(CLI::App& app, CtlOptions& options, Words& words) {
  using enum CtlCommand;
  CLI::App* shown = addCommand(app, options, status, "status",
                               "which effects run; stands in for the companion service");
  shown->add_flag("--watch", options.watch, "go on, print every change, end with Ctrl+C");
  shown->add_flag("--json", options.json, "one line of JSON for each report");
  CLI::Option* seconds =
      shown->add_option("--seconds", words.seconds, "how long to listen")->option_text("S [2]");
  for (CLI::App* level :
       {addCommand(app, options, volume, "volume", "the endpoint volume as an effect would see it"),
        addCommand(app, options, mute, "mute", "whether an effect would see the endpoint muted")})
    level->add_option("DEVICE", options.device, "part of a name or id [default microphone]")
        ->option_text(" ");
  return seconds;
}

void addMachine(CLI::App& app, CtlOptions& options) {
  using enum CtlCommand;
  CLI::App* list = addCommand(app, options, endpoints, "endpoints",
                              "microphones, their formats, and what is attached");
  CLI::App* on = addCommand(app, options, attach, "attach", "put effects on a microphone");
  CLI::App* off = addCommand(app, options, detach, "detach", "put back what was there before");
  CLI::App* check =
      addCommand(app, options, doctor, "doctor", "check every link from the library to the sound");
  for (CLI::App* level : {on, off, check})
    level->add_option("DEVICE", options.device, "part of a name or id")
        ->required(level != check)
        ->option_text(" ");
  on->add_option("--class", options.classes, "effects to attach")
      ->delimiter(',')
      ->check(CLI::IsMember({"efx", "mfx", "kdmfx"}))
      ->option_text("LIST [efx,mfx]");
  on->add_option("--mode", options.modes, "modes that they stream in")
      ->delimiter(',')
      ->check(CLI::IsMember({"default", "raw", "speech"}))
      ->option_text("LIST [default,raw,speech]");
  auto* keep = on->add_flag("--keep", options.keep, "chain behind the driver's own effects");
  on->add_flag("--replace", options.replace, "in place of the driver's own effects")
      ->excludes(keep);
  on->add_option("--backup", options.backupFile, "where to keep what was there")
      ->option_text("FILE.reg");
  for (CLI::App* level : {on, off}) {
    level->add_flag("--dry-run", options.dryRun, "only show what would be written");
    level->add_flag("--restart", options.restart, "restart the audio services");
  }
  for (CLI::App* level : {list, check}) level->add_flag("--json", options.json, "one line of JSON");
}

// The first words are commands; the library's own message would not name the wrong one.
void checkCommands(const CLI::App& app, int argc, const char* const* argv) {
  const CLI::App* level = &app;
  for (int i = 1; i < argc && argv[i][0] != '-' && !level->get_subcommands({}).empty(); ++i) {
    const std::string word = argv[i];
    const auto next = level->get_subcommands(
        [&](const CLI::App* command) { return command->get_name() == word; });
    if (next.empty()) throw CtlError(word + ": no such command; see vellumic-ctl --help");
    level = next.front();
  }
}

}  // namespace

std::optional<CtlOptions> parseCtlOptions(int argc, const char* const* argv) {
  CtlOptions options;
  Words words;
  CLI::App app{description, "vellumic-ctl"};
  app.footer(footer);
  app.require_subcommand(1);
  addSettings(app, options, words);
  const CLI::Option* seconds = addRest(app, options, words);
  addMachine(app, options);
  checkCommands(app, argc, argv);
  if (!parseArguments(app, argc, argv)) return std::nullopt;
  if (options.command == CtlCommand::setValues) readChange(options, std::move(words.list));
  if (options.command == CtlCommand::exportFile) readExport(options, words.list);
  if (!words.number.empty()) options.setting = settingNumber(words.number);
  if (seconds->count() > 0) options.seconds = words.seconds;
  if (options.seconds && !(*options.seconds > 0.0 && *options.seconds <= 1e6))
    throw CtlError("--seconds: write a time above 0, in seconds");
  return options;
}

}  // namespace vellumic::tools
