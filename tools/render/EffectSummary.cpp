#include "tools/render/EffectSummary.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "array/OutputLevelControl.h"
#include "engine/CaptureCore.h"
#include "frontend/BankPair.h"

namespace vellumic::tools {
namespace {

std::string joined(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
  return text;
}

std::string equalizerSummary(CaptureCore& core) {
  if (!core.engine.equalizer.active()) return "none: equalizer.enabled is not 1";
  std::array<int, equalizerSides> bands{};
  for (int side = 0; side < equalizerSides; ++side)
    for (int band = 0; band < equalizerBands; ++band)
      bands[static_cast<std::size_t>(side)] +=
          core.engine.equalizer.pairs().front().enabled(side, band) ? 1 : 0;
  if (bands[0] + bands[1] == 0) return "none: no band of the equaliser is on";
  return "equaliser (" + std::to_string(bands[0]) + " bands left, " + std::to_string(bands[1]) +
         " right)";
}

std::string whyPipelineIsOff(const RenderJob& job) {
  if (job.mode == ProcessingMode::raw) return "none: the raw mode switches the array pipeline off";
  if (!isOn(job.settings, Raw::masterEnable)) return "none: engine.enabled is not 1";
  return "none: pipeline.keep_in_default_mode is not 1, so only the speech mode runs the pipeline";
}

// Only the speech mode and those without a category size the pipeline for the stream and listen to
// what plays.
bool preparesPipeline(ProcessingMode mode) {
  const Category category = categoryOf(mode);
  return category == Category::speech || category == Category::other;
}

// Why the cancellers do not run although they are on; empty when they do.
std::string whyEchoIsIdle(const RenderJob& job) {
  if (job.muted) return "muted";
  if (!preparesPipeline(job.mode)) return "this mode does not listen to the loudspeakers";
  if (!job.far) return "no --far";
  return "";
}

// The keyword detector passes the array stages by, but only where its pipeline is readied.
bool runsArrayStages(const RenderJob& job) {
  return job.captureClass == CaptureClass::mfx || !preparesPipeline(job.mode);
}

bool cancelsEcho(const RenderJob& job, const PipelineSettings& settings) {
  return job.captureClass == CaptureClass::mfx && settings.echoCancelEnabled &&
         !settings.bandTest && !settings.referenceMonitor && whyEchoIsIdle(job).empty();
}

int lookAheadSamples(const LevelControlSettings& level) {
  if (!level.levelControlEnabled || !level.lookAheadEnabled) return 0;
  OutputLevelControl control;
  control.apply(level);
  return std::max(1, control.lookAheadLength);
}

std::vector<std::string> arrayStages(const RenderJob& job, const PipelineSettings& settings) {
  std::vector<std::string> stages;
  if (settings.bandTest) {
    stages.emplace_back("band test");
  } else if (settings.echoCancelEnabled) {
    const std::string idle = whyEchoIsIdle(job);
    const std::string name = settings.referenceMonitor ? "reference monitor" : "echo cancellation";
    stages.push_back(idle.empty() ? name : name + " (idle: " + idle + ")");
  }
  if (settings.beamformerEnabled) stages.emplace_back("beamforming");
  if (settings.postfilterEnabled) stages.emplace_back("noise suppression");
  return stages;
}

std::string arraySummary(CaptureCore& core, const RenderJob& job) {
  if (!core.engine.runsPipeline) return whyPipelineIsOff(job);
  const PipelineSettings& settings = core.engine.handover.pipeline.settings();
  std::vector<std::string> stages;
  if (runsArrayStages(job)) stages = arrayStages(job, settings);
  if (settings.level.levelControlEnabled) stages.emplace_back("automatic gain control");
  std::string text =
      stages.empty() ? "rate conversion only: every stage is switched off" : joined(stages);
  if (!runsArrayStages(job)) text += " (this class runs no array stage)";
  if (!preparesPipeline(job.mode) && job.input.format.channels > 2)
    text += " (two microphones: this mode does not count them)";
  return text;
}

}  // namespace

std::string effectSummary(CaptureCore& core, const RenderJob& job) {
  if (core.sets.currentMask()[Entry::effectEnable] == 0) {
    if (value(job.settings, Raw::masterEnable) == 0.0F) return "none: engine.enabled is 0";
    return "none: no effect runs at " + std::to_string(job.input.format.sampleRate) + " Hz";
  }
  return job.captureClass == CaptureClass::efx ? equalizerSummary(core) : arraySummary(core, job);
}

std::size_t delayFrames(CaptureCore& core, const RenderJob& job) {
  if (job.captureClass == CaptureClass::efx || !core.engine.runsPipeline ||
      core.sets.currentMask()[Entry::effectEnable] == 0)
    return 0;
  constexpr int microphoneDelay = 1024, noiseOverlap = 384;  // internal samples
  const PipelineSettings& settings = core.engine.handover.pipeline.settings();
  const double perInternal =
      static_cast<double>(settings.deviceRate) / static_cast<double>(settings.internalRate);
  const BankPair banks(2, settings.deviceRate, settings.internalRate);

  int internal = microphoneDelay + settings.blockSize + banks.outputBank.framesBeforeOutput();
  if (runsArrayStages(job)) internal += noiseOverlap;
  if (cancelsEcho(job, settings)) internal += settings.blockSize / 2;
  internal += lookAheadSamples(settings.level);
  return static_cast<std::size_t>(banks.inputBank.framesBeforeOutput() +
                                  std::lround(internal * perInternal));
}

std::optional<std::string> refusal(const RenderJob& job) {
  constexpr std::array modes{ProcessingMode::standard, ProcessingMode::raw, ProcessingMode::speech};
  constexpr std::array rates{16000, 44100, 48000};
  constexpr std::array channels{1, 2, 4, 8};
  const WaveFormat& format = job.input.format;
  if (std::ranges::find(modes, job.mode) == modes.end())
    return "it takes the modes default, raw and speech only";
  if (std::ranges::find(rates, format.sampleRate) == rates.end())
    return "it takes 16000, 44100 and 48000 Hz only";
  if (std::ranges::find(channels, format.channels) == channels.end())
    return "it takes 1, 2, 4 and 8 channels only";
  constexpr std::uint32_t mono = 0x4, stereo = 0x3;
  const std::uint32_t known = format.channels == 1 ? mono : format.channels == 2 ? stereo : 0;
  if (job.channelMask != 0 && job.channelMask != known)
    return "it does not take these speaker positions; try --channel-mask 0";
  return std::nullopt;
}

}  // namespace vellumic::tools
