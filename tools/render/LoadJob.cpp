#include "tools/render/LoadJob.h"

#include <algorithm>

#include "engine/SlotMap.h"

namespace vellumic::tools {
namespace {

RawValues startSettings(const RenderOptions& options, SettingsWarnings& warnings) {
  RawValues values = options.rawFile.empty() ? factorySettings() : readRawFile(options.rawFile);
  for (const std::string& file : options.settingsFiles) applySettingsFile(file, values, warnings);
  for (const std::string& assignment : options.assignments)
    applyAssignment(assignment, values, warnings);
  return values;
}

// Each change comes on top of the setting before it; a fade is only for the change that asks.
std::vector<SettingChange> settingChanges(const RenderOptions& options, RawValues values,
                                          SettingsWarnings& warnings) {
  std::vector<ChangeOption> ordered;
  for (const ChangeOption& change : options.changes)
    ordered.insert(std::ranges::upper_bound(ordered, change.seconds, {}, &ChangeOption::seconds),
                   change);
  std::vector<SettingChange> changes;
  for (const ChangeOption& change : ordered) {
    values[index(Raw::fadeRequest)] = 0.0F;
    applySettingsFile(change.file, values, warnings);
    changes.push_back({.seconds = change.seconds, .values = values});
  }
  return changes;
}

void checkInput(const RenderOptions& options, const WaveFormat& format) {
  if (format.channels > slotCount)
    throw std::runtime_error(options.inputFile + ": has " + std::to_string(format.channels) +
                             " channels; give a file of 1 to " + std::to_string(slotCount));
}

void checkFar(const RenderOptions& options, const WaveFormat& format) {
  constexpr int mostChannels = 8;
  if (format.channels > mostChannels)
    throw std::runtime_error(options.farFile + ": has " + std::to_string(format.channels) +
                             " channels; give a file of 1 to " + std::to_string(mostChannels));
}

}  // namespace

RenderJob loadSettings(const RenderOptions& options, SettingsWarnings& warnings) {
  RenderJob job;
  job.settings = startSettings(options, warnings);
  job.changes = settingChanges(options, job.settings, warnings);
  return job;
}

RenderJob loadSound(const RenderOptions& options) {
  RenderJob job;
  job.captureClass = options.captureClass;
  job.mode = options.mode;
  job.input = readWave(options.inputFile);
  checkInput(options, job.input.format);
  job.channelMask = options.channelMask.value_or(job.input.format.channelMask);
  if (!options.farFile.empty()) {
    job.far = readWave(options.farFile);
    checkFar(options, job.far->format);
  }
  job.farGaps = options.farGaps;
  const int tenMilliseconds = std::max(1, job.input.format.sampleRate / 100);
  job.blockFrames = options.blockFrames.value_or(static_cast<std::uint32_t>(tenMilliseconds));
  job.volume = options.volume;
  job.muted = options.muted;
  job.tail = options.tail;
  job.align = options.align;
  return job;
}

}  // namespace vellumic::tools
