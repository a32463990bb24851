// Figures of an enhanced recording against the components of its scene.
//
// All signals at sceneRate, first microphone; the output aligned with the input (as
// `vellumic-render --align` writes it); scores search 4096 samples around that, because the chain
// moves its microphones against the references by up to two blocks. A chain may have a fixed
// high-pass at 150 Hz: of the clean speech with and without it, the better match counts.
#pragma once

#include <optional>
#include <vector>

#include "tools/quality/Distortion.h"
#include "tools/quality/Figures.h"
#include "tools/quality/Intelligibility.h"
#include "tools/quality/Scene.h"

namespace vellumic::quality {

struct ErlePoint {
  double time;  // s, middle of the window
  double db;
};

struct Score {
  Figures figures;
  std::vector<ErlePoint> erle;  // half-second windows in which only the far end talks
};

// As the array pipeline's own high-pass leaves it.
Signal highPassed(Signal signal);

// Prepared once for a scene, then asked for many outputs. Thread: const calls may run side by side.
class Scorer {
 public:
  // Keeps what it needs of the scene.
  Scorer(SceneSpec spec, const Scene& scene);

  Score operator()(const Signal& output) const;

 private:
  void scoreEcho(const Signal& output, Score& score) const;
  void scoreNear(const Signal& output, Figures& figures) const;
  Signal aligned(const Signal& output) const;

  // A stretch in which speech is scored, chosen in steps of 10 ms.
  struct Stretch {
    std::vector<std::size_t> steps;
    Signal clean, passed;  // the second as a high-pass leaves it
    FilterInvariantSdr sdr;
    Intelligibility stoi;  // a high-pass does not change it
    Figures before;        // of the microphone
  };
  template <class Wanted>
  std::optional<Stretch> stretch(const Scene& scene, Wanted wanted) const;

  SceneSpec spec_;
  Signal echo_, passedSpeech_;
  std::vector<std::size_t> pauses_;  // steps with neither talker
  double noisePower_ = 0.0;          // energy in them, before
  std::optional<Stretch> alone_, both_;
};

}  // namespace vellumic::quality
