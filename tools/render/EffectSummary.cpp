#include "tools/render/EffectSummary.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

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

std::string arraySummary(CaptureCore& core, const RenderJob& job) {
  if (!core.engine.pipelineRuns) return whyPipelineIsOff(job);
  const PipelineSettings& settings = core.engine.handover.pipeline.settings();
  const bool wholeChain = job.captureClass == CaptureClass::mfx;
  std::vector<std::string> parts;
  if (wholeChain && settings.bandTest) parts.emplace_back("band test");
  if (wholeChain && settings.echoCancelEnabled && !settings.bandTest)
    parts.emplace_back(job.muted ? "echo cancellation (idle: muted)"
                       : job.far ? "echo cancellation"
                                 : "echo cancellation (idle: no --far)");
  if (wholeChain && settings.beamformerEnabled) parts.emplace_back("beamforming");
  if (wholeChain && settings.postfilterEnabled) parts.emplace_back("noise suppression");
  if (settings.level.levelControlEnabled) parts.emplace_back("automatic gain control");
  if (parts.empty()) return "rate conversion only: every stage is switched off";
  return joined(parts) + (wholeChain ? "" : " (this class runs no array stage)");
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
  if (job.captureClass == CaptureClass::efx || !core.engine.pipelineRuns ||
      core.sets.currentMask()[Entry::effectEnable] == 0)
    return 0;
  constexpr int microphoneDelay = 1024, noiseOverlap = 384;  // internal samples
  const PipelineSettings& settings = core.engine.handover.pipeline.settings();
  const double perInternal =
      static_cast<double>(settings.deviceRate) / static_cast<double>(settings.internalRate);
  const BankPair banks(2, settings.deviceRate, settings.internalRate);

  int internal = microphoneDelay + settings.blockSize + banks.output.framesBeforeOutput();
  const bool wholeChain = job.captureClass == CaptureClass::mfx;
  if (wholeChain) internal += noiseOverlap;
  if (wholeChain && job.far && settings.echoCancelEnabled && !settings.bandTest && !job.muted)
    internal += settings.blockSize / 2;
  if (settings.level.levelControlEnabled && settings.level.lookAheadEnabled)
    internal += std::max(1, static_cast<int>(settings.level.lookAheadTime * 16000.0F));
  return static_cast<std::size_t>(banks.input.framesBeforeOutput() +
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
  if (format.channels > 2 && job.channelMask != 0)
    return "it takes 4 and 8 channels only without speaker positions (--channel-mask 0)";
  return std::nullopt;
}

}  // namespace vellumic::tools
