// Seeded scenes for scoring: a talker, diffuse noise and two loudspeakers in a simulated room,
// picked up by a small array, with every component also kept by itself.
//
// All signals are at 16 kHz. The same spec, seed and recordings give the same scene.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench/quality/Room.h"

namespace vellumic::quality {

inline constexpr double sceneRate = 16000.0;

using Signal = std::vector<float>;
using Channels = std::vector<Signal>;

// A stretch of time in seconds.
struct Span {
  double from, to;
};

struct SceneSpec {
  std::string name;
  double seconds = 20.0;
  int microphones = 2;
  std::uint64_t seed = 1;
  std::vector<Span> nearActive{};  // when the talker in the room speaks
  std::vector<Span> farActive{};   // when the loudspeakers play
  double noiseDb = -66.0;          // rms of the diffuse noise at a microphone, dBFS
  double echoDb = -26.0;           // rms of the echo while it plays, dBFS; near speech is at -26
  double systemDelay = 0.02;       // s between the reference and the loudspeakers
  double pathChangeAt = 0.0;       // s; 0 is never: the right loudspeaker moves
  double drive = 0.0;              // 0 is a linear loudspeaker; else input gain of a tanh
  Room room{};
};

struct Scene {
  Channels mix, speech, noise, echo;  // one signal per microphone
  Channels far;                       // left and right reference as played
};

// The named scenes, in the order in which they are reported.
const std::vector<SceneSpec>& standardScenes();

// nearTalk and farTalk: recorded speech at 16 kHz, repeated as needed.
Scene makeScene(const SceneSpec& spec, const Signal& nearTalk, const Signal& farTalk);

// Full convolution cut to the length of the input; overlap-save by FFT.
Signal convolve(const Signal& input, const Signal& response);

}  // namespace vellumic::quality
