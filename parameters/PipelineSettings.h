// Everything that the array pipeline takes from the raw values and the image: flags, run state,
// sizes, rates and the settings of its stages. A plain record, copied at the hand-over to the
// real-time thread.
#pragma once

#include "parameters/Image.h"
#include "parameters/Raw.h"
#include "parameters/StageSettings.h"

namespace vellumic {

enum class RunState : int {
  speech = 0,   // echo cancellation and noise suppression forced on
  general = 1,  // on only if `pipeline.keep_in_default_mode` is 1
  off = 2,      // the entry points do nothing
};

RunState runStateOf(float category) noexcept;  // image entry 5: 1 off, 2 speech, others general

// What the pipeline needs from the image.
struct StreamFacts {
  float category = 0.0F;        // image entry 5
  float deviceRate = 48000.0F;  // image entry 8, Hz
  bool muted = false;           // image entry 22 is exactly 0

  static StreamFacts from(ConstImageView image) noexcept;
};

struct PipelineSettings {
  bool enabled = true;
  RunState runState = RunState::speech;
  bool beamformerEnabled = true;
  bool postfilterEnabled = true;
  bool echoCancelEnabled = true;
  bool echoBypass = false;
  bool referenceMonitor = false;
  bool bandTest = false;
  int bandTestPasses = 10;    // 0 to 100
  int blockSize = 1024;       // samples at the internal rate, see acceptedBlockSize
  int delaySearchBlocks = 4;  // 4 or 8
  int internalRate = 16000;   // Hz, 1 to 192000
  int deviceRate = 48000;     // Hz, 1 to 192000
  EchoCancellerSettings echo;
  NoiseEstimatorSettings noiseEstimator;
  SpectralGainSettings spectralGain;
  BeamformerSettings beamformer;
  LevelControlSettings level;  // level.levelControlEnabled is the pipeline's flag as well

  // The pipeline touches its frames at all.
  bool runs() const noexcept { return enabled && runState != RunState::off; }

  // Starts from the values in force, so that bad raw values keep them.
  void update(RawView raw, const StreamFacts& stream) noexcept;

  bool operator==(const PipelineSettings&) const = default;
};

// Rounded down to even, then taken if within 128 to 16384 and without a prime factor above 5
// (other sizes make the transforms take seconds); otherwise `present`.
int acceptedBlockSize(float stored, int present) noexcept;

}  // namespace vellumic
