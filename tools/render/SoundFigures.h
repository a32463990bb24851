// Levels of a sound file.
#pragma once

#include <span>
#include <utility>
#include <vector>

#include "tools/WaveFile.h"

namespace vellumic::tools {

constexpr double silence = -120.0;  // dBFS; no level is stated below

// dBFS: 0 for a square of full scale, so a sine of full scale is -3.
struct SoundFigures {
  double level = silence;   // rms of channel 1, the one that the array enhances
  double noise = silence;   // rms of its quietest tenth, in stretches of 50 ms
  double peak = silence;    // of any channel
  std::size_t clipped = 0;  // samples of full scale and above: they clip in integer formats
};

// `skipped` frames at the start do not count; samples that are not finite count as silent.
SoundFigures soundFigures(const WaveData& wave, std::size_t skipped = 0);

std::vector<float> firstChannel(const WaveData& wave);

// (time, dBFS rms) of each 50 ms.
std::vector<std::pair<double, double>> levelOverTime(std::span<const float> samples, int rate);

}  // namespace vellumic::tools
