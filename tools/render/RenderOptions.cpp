#include "tools/render/RenderOptions.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <map>

#include "tools/Arguments.h"

namespace vellumic::tools {
namespace {

const std::map<std::string, CaptureClass> classNames{
    {"efx", CaptureClass::efx}, {"mfx", CaptureClass::mfx}, {"kdmfx", CaptureClass::kdmfx}};
const std::map<std::string, ProcessingMode> modeNames{
    {"default", ProcessingMode::standard},
    {"raw", ProcessingMode::raw},
    {"speech", ProcessingMode::speech},
    {"communications", ProcessingMode::communications},
    {"media", ProcessingMode::media},
    {"movie", ProcessingMode::movie},
    {"notification", ProcessingMode::notification}};

constexpr std::uint32_t mostBlockFrames = 1048576;
constexpr const char* description =
    "Runs a WAV file through the capture effects as the audio service would.";
constexpr const char* footer = R"(
Settings start from the factory values; --raw-parameters replaces all of them, then come the
--settings files in order, then --set. The output is 32-bit float WAV of the same rate, channels
and length (longer with --tail). --compare and --sweep put a word into the output's name, as in
out_WORD.wav, and print a table.

Examples:
  vellumic-render --class efx --settings settings/speech_equalizer.toml in.wav out.wav
  vellumic-render --class mfx --mode speech --far speakers.wav --align --timing mics.wav clean.wav
  vellumic-render --set noise.enabled=false --change 5:quiet.toml in.wav out.wav
  vellumic-render --mode speech --compare quiet.toml --report both.html mics.wav clean.wav
  vellumic-render --mode speech --sweep noise.gain.floor2_db=-20,-10,-5 mics.wav clean.wav)";

template <class Value>
std::string namesOf(const std::map<std::string, Value>& table) {
  std::string text;
  for (const auto& entry : table) text += (text.empty() ? "" : ", ") + entry.first;
  return text;
}

template <class Value>
Value named(const std::string& option, const std::string& name,
            const std::map<std::string, Value>& table) {
  const auto found = table.find(name);
  if (found != table.end()) return found->second;
  throw UsageError(option + " " + name + ": no such name; write one of " + namesOf(table));
}

// "SECONDS:REST"; the rest may hold more colons.
std::pair<double, std::string> splitSeconds(const std::string& text, const std::string& option,
                                            const std::string& form) {
  const std::size_t colon = text.find(':');
  try {
    if (colon != std::string::npos && colon + 1 < text.size()) {
      std::size_t used = 0;
      const double seconds = std::stod(text.substr(0, colon), &used);
      if (used == colon && std::isfinite(seconds) && seconds >= 0.0)
        return {seconds, text.substr(colon + 1)};
    }
  } catch (const std::logic_error&) {  // not a number
  }
  throw UsageError(option + " " + text + ": write " + form);
}

TimeSpan gapFrom(const std::string& text) {
  const std::string form = "START:LENGTH in seconds, both at least 0";
  const auto [start, rest] = splitSeconds(text, "--far-gap", form);
  const auto [length, nothing] = splitSeconds(rest + ":-", "--far-gap", form);
  return {.start = start, .length = length};
}

std::uint32_t maskFrom(const std::string& text) {
  try {
    std::size_t used = 0;
    const unsigned long mask = std::stoul(text, &used, 0);
    if (used == text.size() && mask <= 0xFFFFFFFFUL) return static_cast<std::uint32_t>(mask);
  } catch (const std::logic_error&) {
  }
  throw UsageError("--channel-mask " + text + ": write a number such as 0x3 or 0");
}

}  // namespace

std::optional<RenderOptions> parseRenderOptions(int argc, const char* const* argv) {
  RenderOptions options;
  std::vector<std::string> changes, gaps;
  std::string className = "mfx", modeName = "default", mask;
  std::uint32_t block = 0;

  CLI::App app{description, "vellumic-render"};
  app.footer(footer);
  app.allow_windows_style_options(false);  // "/path" is a file
  app.add_option("--class", className, "efx (equaliser), mfx (array chain), kdmfx")
      ->option_text("CLASS [mfx]");
  app.add_option("--mode", modeName, namesOf(modeNames))->option_text("MODE [default]");
  app.add_option("--settings", options.settingsFiles, "settings by name (repeatable)")
      ->option_text("FILE.toml")
      ->allow_extra_args(false);
  app.add_option("--set", options.assignments, "one setting (repeatable)")
      ->option_text("NAME=VALUE")
      ->allow_extra_args(false);
  app.add_option("--raw-parameters", options.rawFile, "1365 little-endian floats as stored")
      ->option_text("FILE");
  app.add_option("--change", changes, "reload live with this file on top (repeatable)")
      ->option_text("SECONDS:FILE.toml")
      ->allow_extra_args(false);
  app.add_option("--far", options.farFile, "what the loudspeakers play")->option_text("FILE.wav");
  app.add_option("--far-gap", gaps, "seconds in which nothing plays (repeatable)")
      ->option_text("START:LENGTH")
      ->allow_extra_args(false);
  auto* blockOption = app.add_option("--block", block, "frames per call, 10 ms without it")

                          ->option_text("FRAMES");
  auto* volume = app.add_option("--volume", options.volume, "linear endpoint volume")

                     ->option_text("X [1]");
  app.add_flag("--muted", options.muted, "endpoint muted")->excludes(volume);
  auto* maskOption =
      app.add_option("--channel-mask", mask, "instead of the file's own")->option_text("MASK");
  app.add_flag("--tail", options.tail, "render the delay out: a longer output");
  app.add_flag("--align", options.align, "remove the delay");
  app.add_flag("--timing", options.timing, "print how long the calls took");
  app.add_option("--report", options.reportFile, "write a page of figures and pictures")
      ->option_text("FILE.html");
  app.add_option("--picture", options.pictureFile, "write the page's figure over time alone")
      ->option_text("FILE.svg");
  auto* compare = app.add_option("--compare", options.compareFile,
                                 "also render with this instead of --settings")
                      ->option_text("OTHER.toml");
  app.add_option("--sweep", options.sweep, "render once per value of a setting")
      ->option_text("NAME=A,B,C")
      ->excludes(compare);
  app.add_option("INPUT.wav", options.inputFile, "what the microphones hear")
      ->required()
      ->option_text(" ");
  app.add_option("OUTPUT.wav", options.outputFile, "what applications get")
      ->required()
      ->option_text(" ");

  if (!parseArguments(app, argc, argv)) return std::nullopt;
  for (const CLI::Option* option : app.get_options())
    for (const std::string& value : option->results())
      if (value.empty())
        throw UsageError(option->get_name() + ": is empty; give it a value or leave it out");
  options.captureClass = named("--class", className, classNames);
  options.mode = named("--mode", modeName, modeNames);
  for (const std::string& change : changes) {
    auto [seconds, file] = splitSeconds(change, "--change", "SECONDS:FILE.toml, seconds from 0 on");
    options.changes.push_back({.seconds = seconds, .file = std::move(file)});
  }
  for (const std::string& gap : gaps) options.farGaps.push_back(gapFrom(gap));
  if (maskOption->count() > 0) options.channelMask = maskFrom(mask);
  if (blockOption->count() > 0) options.blockFrames = block;
  if (options.blockFrames && (block < 1 || block > mostBlockFrames))
    throw UsageError("--block " + std::to_string(block) + ": write 1 to " +
                     std::to_string(mostBlockFrames) + " frames");
  if (!(options.volume >= 0.0F && options.volume <= 1.0F))
    throw UsageError("--volume: write a linear volume of 0 to 1");
  if (!options.farGaps.empty() && options.farFile.empty())
    throw UsageError("--far-gap: needs --far FILE.wav");
  return options;
}

}  // namespace vellumic::tools
