// Figures of an enhanced recording against the components of its scene.
//
// All signals at sceneRate, first microphone; the output aligned with the input (as
// `vellumic-render --align` writes it); scores search 600 samples around that. A chain may have a
// fixed high-pass at 150 Hz: of the clean speech with and without it, the better match counts.
#pragma once

#include <optional>
#include <span>
#include <vector>

#include "bench/quality/Scene.h"

namespace vellumic::quality {

struct ErlePoint {
  double time;  // s, middle of the window
  double db;
};

struct Score {
  // Each is there only where the scene has the stretch that it needs.
  std::optional<double> noiseAttenuation;   // dB, in pauses from 4 s on
  std::optional<double> speechLoss;         // dB, speech without echo, output against clean speech
  std::optional<double> siSdrIn, siSdrOut;  // dB, near talker without the loudspeakers
  std::optional<double> segmentalSnrIn, segmentalSnrOut;  // dB
  std::optional<double> nearSdr;                 // dB, filter-invariant, the near talker alone
  std::optional<double> doubleTalkSdr;           // dB, filter-invariant, while both talk
  std::optional<double> erleAt5s;                // dB, mean from 5 s after the start on
  std::optional<double> timeTo10Db, timeTo20Db;  // s of far-end single talk
  double outputLevel = 0.0;                      // dBFS rms of the second half
  std::vector<ErlePoint> erle;  // half-second windows in which only the far end talks
};

Score score(const SceneSpec& spec, const Scene& scene, const Signal& output);

// 10 log10 of the part of `signal` that is `target` scaled, over the rest.
// J. Le Roux et al., "SDR - half-baked or well done?", ICASSP 2019.
double scaleInvariantSdr(std::span<const float> target, std::span<const float> signal);

// The same with the best filter of 512 taps in place of a scale: a steady colouring or phase (such
// as a high-pass) is no distortion, everything that changes over time is.
// E. Vincent et al., "Performance measurement in blind audio source separation", IEEE TASLP 14(4),
// 2006.
double filterInvariantSdr(std::span<const float> target, std::span<const float> signal);

// Mean over 32 ms frames with speech, each held within -10 to 35 dB, after the best scale.
double segmentalSnr(std::span<const float> target, std::span<const float> signal);

}  // namespace vellumic::quality
