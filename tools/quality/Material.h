// Something to judge settings on: a scene or a recording, ready to be rendered and scored.
//
// The canceller's success in double talk depends on where in the speech its blocks fall, so that
// one rendering is close to a coin toss. Every judgement is therefore over several shifts: the
// first fractions of a block of the recording are cut off.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "parameters/Catalogue.h"
#include "tools/quality/Score.h"
#include "tools/render/RenderJob.h"

namespace vellumic::quality {

inline constexpr int shiftCount = 4;  // by quarters of a block

// Samples that shift 0 to shiftCount - 1 leaves out at the start, by the block of the settings.
std::size_t cutOf(const RawValues& settings, int shift);

// One rendering, at sceneRate.
struct Take {
  Signal output;               // first channel, aligned with the input
  std::optional<double> erle;  // dB, best tenth from 5 s on, by the pipeline's own energies
  // (s, samples at the internal rate): each time the delay between microphones and reference was
  // changed, the delay of the reference from then on (negative: of the microphones).
  std::vector<std::pair<double, int>> delays;
};

// Thread: const calls may run side by side.
class Material {
 public:
  virtual ~Material() = default;

  const std::string& name() const { return name_; }
  double seconds() const;

  // `cut`: samples left out at the start. The level control runs as the settings say.
  Take render(const RawValues& settings, std::size_t cut) const;
  virtual Score score(const Take& take) const = 0;

  // Renders at a shift and scores.
  Score judge(const RawValues& settings, int shift) const;

 protected:
  Material(std::string name, tools::WaveData microphones, std::optional<tools::WaveData> far,
           std::vector<tools::TimeSpan> farGaps);

  const tools::WaveData& microphones() const { return microphones_; }

 private:
  std::string name_;
  tools::WaveData microphones_;
  std::optional<tools::WaveData> far_;
  std::vector<tools::TimeSpan> farGaps_;
};

std::unique_ptr<Material> sceneMaterial(std::string name, const SceneSpec& spec,
                                        const Scene& scene);

// A recording of one's own at sceneRate: microphones, what the loudspeakers played, and, if there
// is one, the clean talker in time with the first microphone. Figures: ERLE by the pipeline's own
// energies, noise attenuation in the quietest tenth; with a talker also those of the near talker.
std::unique_ptr<Material> recordedMaterial(std::string name, tools::WaveData microphones,
                                           std::optional<tools::WaveData> far,
                                           const std::optional<Signal>& talker);

tools::WaveData waveOf(const Channels& channels);

}  // namespace vellumic::quality
