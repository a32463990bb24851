#include "tools/quality/Material.h"

#include <algorithm>
#include <cmath>

#include "parameters/PipelineSettings.h"
#include "tools/render/Renderer.h"
#include "tools/render/SoundFigures.h"
#include "tools/render/Trace.h"

namespace vellumic::quality {
namespace {

constexpr std::uint32_t callFrames = 160;  // 10 ms
constexpr std::size_t skipped = 16000;     // of a recording: the chain starts in silence

tools::WaveData withoutStart(const tools::WaveData& wave, std::size_t frames) {
  tools::WaveData out{wave.format, {}};
  const std::size_t first = frames * static_cast<std::size_t>(wave.format.channels);
  out.samples.assign(wave.samples.begin() + static_cast<std::ptrdiff_t>(first), wave.samples.end());
  return out;
}

class SceneMaterial final : public Material {
 public:
  // The far end goes on in silence, so that the last delayed block still has its references.
  SceneMaterial(std::string name, const SceneSpec& spec, const Scene& scene)
      : Material(std::move(name), waveOf(scene.mix), farOf(scene), gapsOf(spec)),
        scorer_(spec, scene) {}

  Score score(const Take& take) const override { return scorer_(take.output); }

 private:
  static tools::WaveData farOf(const Scene& scene) {
    Channels far = scene.far;
    for (Signal& side : far) side.resize(side.size() + static_cast<std::size_t>(sceneRate));
    return waveOf(far);
  }
  static std::vector<tools::TimeSpan> gapsOf(const SceneSpec& spec) {
    std::vector<tools::TimeSpan> gaps;
    for (const Span& gap : spec.packetGaps)
      gaps.push_back({.start = gap.from, .length = gap.to - gap.from});
    return gaps;
  }

  Scorer scorer_;
};

class RecordedMaterial final : public Material {
 public:
  RecordedMaterial(std::string name, tools::WaveData microphones,
                   std::optional<tools::WaveData> far, const std::optional<Signal>& talker)
      : Material(std::move(name), std::move(microphones), std::move(far), {}),
        noise_(tools::soundFigures(this->microphones(), skipped).noise) {
    if (!talker) return;
    // As a scene in which the talker may speak at any time and the rest is noise.
    Scene scene{{tools::firstChannel(this->microphones())}, {*talker}, {}, {}, {}};
    scene.speech[0].resize(scene.mix[0].size());
    scene.noise = scene.echo = {Signal(scene.mix[0].size())};
    SceneSpec spec{.name = this->name(), .seconds = seconds()};
    spec.nearActive = {{0.0, seconds()}};
    near_.emplace(std::move(spec), scene);
  }

  Score score(const Take& take) const override {
    Score score;
    if (near_) score = (*near_)(take.output);
    score.figures[Figure::erle] = take.erle;
    const double after =
        tools::soundFigures({{.sampleRate = static_cast<int>(sceneRate)}, take.output}, skipped)
            .noise;
    score.figures[Figure::noiseAttenuation] = noise_ - after;
    return score;
  }

 private:
  double noise_;
  std::optional<Scorer> near_;
};

}  // namespace

tools::WaveData waveOf(const Channels& channels) {
  tools::WaveData wave;
  wave.format.sampleRate = static_cast<int>(sceneRate);
  wave.format.channels = static_cast<int>(channels.size());
  wave.samples.reserve(channels.size() * channels.front().size());
  for (std::size_t n = 0; n < channels.front().size(); ++n)
    for (const Signal& channel : channels) wave.samples.push_back(channel[n]);
  return wave;
}

std::size_t cutOf(const RawValues& settings, int shift) {
  const int block = acceptedBlockSize(value(settings, Raw::blockSize), 1024);
  return static_cast<std::size_t>(shift * block / shiftCount);
}

Material::Material(std::string name, tools::WaveData microphones,
                   std::optional<tools::WaveData> far, std::vector<tools::TimeSpan> farGaps)
    : name_(std::move(name)),
      microphones_(std::move(microphones)),
      far_(std::move(far)),
      farGaps_(std::move(farGaps)) {}

double Material::seconds() const {
  return static_cast<double>(microphones_.frames()) / microphones_.format.sampleRate;
}

Take Material::render(const RawValues& settings, std::size_t cut) const {
  const double cutSeconds = static_cast<double>(cut) / sceneRate;
  tools::RenderJob job;
  job.mode = ProcessingMode::speech;
  job.settings = settings;
  job.input = withoutStart(microphones_, cut);
  if (far_) job.far = withoutStart(*far_, cut);
  for (const tools::TimeSpan& gap : farGaps_)
    job.farGaps.push_back({.start = gap.start - cutSeconds, .length = gap.length});
  job.blockFrames = callFrames;
  job.align = true;

  Take take;
  tools::Trace trace;
  int delay = 0;
  const tools::RenderResult result = tools::render(job, [&](const tools::CallReport& call) {
    trace.add(call);
    const int now = call.probe.loopbackDelay - call.probe.microphoneDelay;
    if (now != delay && call.probe.delayLocked) take.delays.emplace_back(call.seconds, now);
    delay = now;
  });
  take.output = tools::firstChannel(result.output);
  take.output.insert(take.output.begin(), cut, 0.0F);
  take.output.resize(microphones_.frames());
  if (const auto erle = tools::erleFigures(trace)) take.erle = erle->best;
  return take;
}

Score Material::judge(const RawValues& settings, int shift) const {
  return score(render(settings, cutOf(settings, shift)));
}

std::unique_ptr<Material> sceneMaterial(std::string name, const SceneSpec& spec,
                                        const Scene& scene) {
  return std::make_unique<SceneMaterial>(std::move(name), spec, scene);
}

std::unique_ptr<Material> recordedMaterial(std::string name, tools::WaveData microphones,
                                           std::optional<tools::WaveData> far,
                                           const std::optional<Signal>& talker) {
  return std::make_unique<RecordedMaterial>(std::move(name), std::move(microphones), std::move(far),
                                            talker);
}

}  // namespace vellumic::quality
