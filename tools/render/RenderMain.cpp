#include "tools/render/RenderMain.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <set>

#include "parameters/SettingsNotes.h"
#include "tools/Arguments.h"
#include "tools/OutputFile.h"
#include "tools/render/RenderOptions.h"
#include "tools/render/Rendering.h"
#include "tools/render/report/Report.h"

namespace vellumic::tools {
namespace {

void warnOfIdleOptions(const RenderOptions& options) {
  if (options.captureClass == CaptureClass::mfx) return;
  if (!options.farFile.empty())
    std::fputs("warning: --far has no effect, only the class mfx listens to it\n", stderr);
  if (options.captureClass == CaptureClass::efx && (options.muted || options.volume != 1.0F))
    std::fputs("warning: the class efx does not follow the volume\n", stderr);
}

// The same line once for a pair or a sweep.
void printNotes(const RenderOptions& options, const std::vector<Variant>& variants, int rate) {
  if (options.captureClass == CaptureClass::kdmfx) return;
  const bool equalises = options.captureClass == CaptureClass::efx;
  std::set<std::string> notes;
  const auto add = [&notes](const std::optional<std::string>& note) {
    if (note) notes.insert(*note);
  };
  for (const Variant& variant : variants) {
    const RawValues* before = nullptr;
    const auto take = [&](const RawValues& values) {
      if (equalises) return add(unstableBandNote(values, rate));
      if (options.mode == ProcessingMode::speech) add(speechModeNote(values));
      if (before != nullptr && !options.farFile.empty()) add(internalRateNote(*before, values));
      before = &values;
    };
    take(variant.settings);
    for (const SettingChange& change : variant.changes) take(change.values);
  }
  for (const std::string& note : notes) std::fprintf(stderr, "note: %s\n", note.c_str());
}

bool sameFile(const std::string& a, const std::string& b) {
  namespace fs = std::filesystem;
  return !b.empty() && fs::weakly_canonical(a) == fs::weakly_canonical(b);
}

// A page must not replace the sound that it is about.
void checkOverwriting(const RenderOptions& options, const std::vector<Variant>& variants) {
  std::vector<std::string> sounds{options.inputFile, options.farFile};
  for (const Variant& variant : variants) sounds.push_back(variant.outputFile);
  for (const auto& [option, file] :
       {std::pair{"--report ", options.reportFile}, std::pair{"--picture ", options.pictureFile}}) {
    if (file.empty()) continue;
    for (const std::string& sound : sounds)
      if (sameFile(file, sound))
        throw UsageError(option + file + ": is also a sound file here; name another file");
  }
  if (!options.pictureFile.empty() && sameFile(options.pictureFile, options.reportFile))
    throw UsageError("--picture " + options.pictureFile +
                     ": is also the report; name another file");
}

// Nothing is rendered for a page that cannot be written.
void checkReport(const RenderOptions& options) {
  for (const auto& [option, file] :
       {std::pair{"--report ", options.reportFile}, std::pair{"--picture ", options.pictureFile}}) {
    if (file.empty()) continue;
    if (!drawsReports())
      throw UsageError(option + file + ": this build draws none; use the native vellumic-render");
    if (std::filesystem::is_directory(file))
      throw UsageError(option + file + ": is a folder; name a file in it");
    const auto folder = std::filesystem::path(file).parent_path();
    if (!folder.empty() && !std::filesystem::is_directory(folder))
      throw UsageError(option + file + ": no folder " + folder.string() + "; make it first");
  }
}

void print(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) std::printf("%s\n", line.c_str());
}

void printAll(const RenderOptions& options, const std::vector<Rendering>& renderings,
              const std::vector<Variant>& variants, const Table& table) {
  const bool timing = options.timing || !options.reportFile.empty();
  // A sweep changes figures, seldom the path: its table says enough.
  const std::size_t inFull = options.sweep.empty() ? renderings.size() : 0;
  for (std::size_t n = 0; n < inFull; ++n) {
    if (renderings.size() > 1)
      std::printf("%s: %s\n", renderings[n].label.c_str(), variants[n].outputFile.c_str());
    print(renderings[n].lines);
    if (timing) print(renderings[n].timingLines);
    if (renderings.size() > 1) std::printf("\n");
  }
  if (!table.empty()) std::fputs(plainText(table).c_str(), stdout);
}

void run(const RenderOptions& options) {
  checkReport(options);
  SettingsWarnings warnings;
  const std::vector<Variant> variants = variantsOf(options, warnings);
  for (const Variant& variant : variants) checkWaveTarget(variant.outputFile);
  checkOverwriting(options, variants);
  RenderJob job = loadSound(options);
  for (const std::string& warning : warnings)
    std::fprintf(stderr, "warning: %s\n", warning.c_str());
  warnOfIdleOptions(options);
  printNotes(options, variants, job.input.format.sampleRate);

  const SoundFigures input = soundFigures(job.input);
  std::vector<Rendering> renderings;
  renderings.reserve(variants.size());
  for (const Variant& variant : variants) renderings.push_back(renderVariant(job, variant, input));

  for (const Rendering& rendering : renderings)
    if (!rendering.warning.empty())
      std::fprintf(stderr, "warning: %s%s%s\n", rendering.label.c_str(),
                   rendering.label.empty() ? "" : ": ", rendering.warning.c_str());

  Table table;
  if (!options.sweep.empty())
    table = figureTable(options.sweep.substr(0, options.sweep.find('=')), renderings);
  else if (renderings.size() > 1)
    table = figureTable("settings", renderings);
  printAll(options, renderings, variants, table);

  const std::string name = std::filesystem::path(options.inputFile).filename().string();
  if (!options.reportFile.empty())
    writeWholeFile(options.reportFile, reportPage(job, name, renderings, table));
  if (!options.pictureFile.empty())
    writeWholeFile(options.pictureFile, reportPicture(job, name, renderings));
}

}  // namespace

int renderMain(int argc, const char* const* argv) {
  try {
    if (const auto options = parseRenderOptions(argc, argv)) run(*options);
    finishPrinting();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vellumic-render: %s\n", error.what());
    return 1;
  }
}

}  // namespace vellumic::tools
