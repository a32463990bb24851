// What sounds in a scene before the room adds to it; all at sceneRate.
#pragma once

#include <random>

#include "tools/quality/Scene.h"

namespace vellumic::quality {

inline std::size_t sceneSamples(double seconds) {
  return static_cast<std::size_t>(seconds * sceneRate + 0.5);
}

// The recording from sample `start` on, repeated, with silence outside the active stretches.
Signal gated(const Signal& recording, const std::vector<Span>& active, std::size_t length,
             std::size_t start);

// Pink noise (P. Kellet's economy filter).
Signal pinkNoise(std::size_t length, std::mt19937_64& random);

// Keystrokes: two short bursts each, four to eight a second.
Signal keyboard(std::size_t length, std::mt19937_64& random);

// Left and right of plucked chords with a beat.
Channels music(std::size_t length, std::mt19937_64& random);

// The signal later by `delay` seconds at its start, and by driftPpm microseconds more each second.
Signal delayed(const Signal& signal, double delay, double driftPpm);

// Gives all channels the gain that brings the first one to the level in dBFS over the stretches.
void setLevel(Channels& channels, const std::vector<Span>& spans, double db);

}  // namespace vellumic::quality
