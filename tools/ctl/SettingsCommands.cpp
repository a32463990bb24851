#include "tools/ctl/SettingsCommands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "parameters/SettingValue.h"
#include "parameters/SettingsFile.h"
#include "parameters/SettingsNotes.h"
#include "tools/OutputFile.h"
#include "tools/ctl/RegFile.h"
#include "tools/ctl/SettingsTree.h"
#include "tools/ctl/StatusCollector.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

std::wstring chosenName(const CtlOptions& options) {
  return options.setting ? wide(*options.setting) : SettingsTree::activeName();
}

StoredSetting chosenSetting(const std::wstring& name) {
  if (auto setting = SettingsTree::read(name)) return *setting;
  const std::string number = utf8(name);
  throw CtlError(SettingsTree::displayPath() + "\\" + number + ": no such setting; see " +
                 "vellumic-ctl settings list, or make it with vellumic-ctl settings apply " +
                 "FILE.toml " + number);
}

bool differs(const Parameter& parameter, const RawValues& values) {
  return !(values[index(parameter.slot)] == parameter.factory);
}

unsigned differences(const RawValues& values) {
  return static_cast<unsigned>(std::ranges::count_if(
      catalogue(), [&](const Parameter& parameter) { return differs(parameter, values); }));
}

// Values other than 0 where nothing reads them.
unsigned unreadValues(const RawValues& values) {
  unsigned count = 0;
  for (std::size_t slot = 0; slot < rawCount; ++slot)
    if (findParameter(static_cast<Raw>(slot)) == nullptr && values[slot] != 0.0F) ++count;
  return count;
}

// The command line's assignment messages speak of an option that is not ours.
std::string withoutOption(const std::string& message) {
  constexpr std::string_view option = "--set ";
  return message.starts_with(option) ? message.substr(option.size()) : message;
}

void printWarnings(const SettingsWarnings& warnings) {
  for (const std::string& warning : warnings)
    std::fprintf(stderr, "warning: %s\n", withoutOption(warning).c_str());
}

// Before `values` become the active setting.
void printNotes(const RawValues& values) {
  const auto active = SettingsTree::read(SettingsTree::activeName());
  for (const auto& note :
       {speechModeNote(values), active ? internalRateNote(active->values, values) : std::nullopt})
    if (note) std::fprintf(stderr, "note: %s\n", note->c_str());
}

void signalObjects() {
  const ObjectSearch search = searchObjects();
  std::size_t signalled = 0;
  for (const SeenObject& object : search.objects)
    if (signalReload(object)) ++signalled;
  if (signalled > 0)
    std::printf("Told %zu running effect%s to read it.\n", signalled, signalled == 1 ? "" : "s");
  else if (search.boardFound)
    std::puts("No effect is running; the next one reads it at its start.");
  else
    std::puts("No status board: effects that run already read it at their next start.");
}

void reportTree(const SettingsWriter& writer) {
  if (writer.createdTree()) std::printf("Created %s.\n", SettingsTree::displayPath().c_str());
}

void store(SettingsWriter& writer, const std::wstring& name, const RawValues& values) {
  reportTree(writer);
  printNotes(values);
  writer.replace(name, values);
  std::printf("Setting %s is written and active: %u of %zu values differ from the factory.\n",
              utf8(name).c_str(), differences(values), catalogue().size());
  signalObjects();
  writer.tidy();
}

void store(const std::wstring& name, const RawValues& values) {
  SettingsWriter writer;
  store(writer, name, values);
}

void printParameter(const Parameter& parameter, const RawValues& values) {
  const float stored = values[index(parameter.slot)];
  const bool changed = differs(parameter, values);
  const std::string value =
      std::isfinite(stored) ? writtenSetting(parameter, stored) : decimal(stored);
  const std::string factory =
      changed ? "factory " + writtenSetting(parameter, parameter.factory) : std::string();
  std::string line(1, changed ? '*' : ' ');
  const auto column = [&line](const std::string& text, std::size_t end) {
    line += " " + text;
    line.resize(std::max(line.size(), end), ' ');
  };
  column(parameter.name, 40);
  column(value, 56);
  column(parameter.unit, 65);
  column(factory, 0);
  line.erase(line.find_last_not_of(' ') + 1);
  std::puts(line.c_str());
}

}  // namespace

void listStoredSettings() {
  const std::wstring active = SettingsTree::activeName();
  const auto names = SettingsTree::names();
  if (!SettingsTree::exists()) {
    std::printf("No settings: %s does not exist; vellumic-ctl settings apply makes it.\n",
                SettingsTree::displayPath().c_str());
    return;
  }
  std::puts("  Setting  Values  Differ from the factory");
  for (const std::wstring& name : names)
    if (const auto setting = SettingsTree::read(name))
      std::printf("%c %-7s  %6u  %u\n", name == active ? '*' : ' ', utf8(name).c_str(),
                  setting->stored, differences(setting->values));
  if (std::ranges::find(names, active) == names.end())
    std::printf("* %-7s  missing: the effects read zeros and pass the sound through\n",
                utf8(active).c_str());
}

void showStoredSetting(const CtlOptions& options) {
  const std::wstring name = chosenName(options);
  const auto [values, stored] = chosenSetting(name);
  std::printf("Setting %s%s: %u values, %u of %zu differ from the factory\n", utf8(name).c_str(),
              name == SettingsTree::activeName() ? " (active)" : "", stored, differences(values),
              catalogue().size());
  for (const Parameter& parameter : catalogue())
    if (!options.changedOnly || differs(parameter, values)) printParameter(parameter, values);
  if (const unsigned unread = unreadValues(values); unread > 0)
    std::printf("Stored besides, and read by nothing: %u.\n", unread);
}

void changeSetting(const CtlOptions& options) {
  (void)chosenSetting(chosenName(options));  // what is missing is told before anything is made
  SettingsWriter writer;  // from the reading on: changes made at once follow one another
  const std::wstring name = chosenName(options);
  RawValues values = chosenSetting(name).values;
  values[index(Raw::fadeRequest)] = 0.0F;  // asked for anew with each change
  SettingsWarnings warnings;
  try {
    for (const std::string& assignment : options.assignments)
      applyAssignment(assignment, values, warnings);
  } catch (const SettingsError& error) {
    throw CtlError(withoutOption(error.what()));
  }
  if (options.fade) values[index(Raw::fadeRequest)] = 1.0F;
  printWarnings(warnings);
  store(writer, name, values);
}

void applySettingFile(const CtlOptions& options) {
  RawValues values = factorySettings();
  SettingsWarnings warnings;
  applySettingsFile(options.file, values, warnings);
  if (options.fade) values[index(Raw::fadeRequest)] = 1.0F;
  printWarnings(warnings);
  store(chosenName(options), values);
}

void activateStoredSetting(const CtlOptions& options) {
  const std::wstring name = chosenName(options);
  if (!SettingsTree::exists()) return store(name, factorySettings());
  printNotes(chosenSetting(name).values);
  SettingsWriter writer;
  writer.activate(name);
  std::printf("Setting %s is active.\n", utf8(name).c_str());
  signalObjects();
  writer.tidy();
}

void exportSetting(const CtlOptions& options) {
  const std::wstring name = chosenName(options);
  const RawValues values = chosenSetting(name).values;
  const std::string extension = std::filesystem::path(options.file).extension().string();
  if (extension == ".reg") {
    const std::wstring text = regFileText(name, values);
    writeWholeFile(options.file,
                   {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)});
  } else if (extension == ".toml") {
    writeWholeFile(options.file, writeSettings(values, SettingsScope::all));
    if (const unsigned unread = unreadValues(values); unread > 0)
      std::fprintf(stderr,
                   "warning: %u stored without a name and left out; a .reg file keeps all\n",
                   unread);
  } else {
    throw CtlError(options.file + ": unknown kind of file; name it FILE.toml or FILE.reg");
  }
  std::printf("Setting %s is in %s.\n", utf8(name).c_str(), options.file.c_str());
}

}  // namespace vellumic::tools
