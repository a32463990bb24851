// Seeded scenes for scoring: talkers, noise and two loudspeakers in a simulated room, picked up by
// a small array, with every component also kept by itself.
//
// All signals are at 16 kHz. The same spec and recordings give the same scene.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/quality/Convolution.h"
#include "tools/quality/Room.h"

namespace vellumic::quality {

inline constexpr double sceneRate = 16000.0;

// A stretch of time in seconds.
struct Span {
  double from, to;
};

struct SceneSpec {
  std::string name;
  double seconds = 20.0;
  int microphones = 2;                  // in a row, 3 cm apart
  std::uint64_t seed = 1;               // of everything that is random
  std::vector<Span> nearActive{};       // when the talkers in the room speak
  std::vector<Span> farActive{};        // when the loudspeakers play
  std::vector<Span> packetGaps{};       // when the loopback sends no packets
  double noiseDb = -66.0;               // rms of the diffuse noise at a microphone, dBFS
  double echoDb = -26.0;                // rms of the echo while it plays; near speech is at -26
  double systemDelay = 0.02;            // s between the reference and the loudspeakers
  double driftPpm = 0.0;                // the loudspeakers' clock is that much slower
  double pathChangeAt = 0.0;            // s; 0 is never: the right loudspeaker moves
  double drive = 0.0;                   // 0 is a linear loudspeaker; else input gain of a tanh
  bool music = false;                   // what the loudspeakers play, instead of speech
  double levelDb = 0.0;                 // of everything at the microphones
  double voiceStart = 0.0;              // s into the recordings of the voices
  Room room{};                          // the array stands at a third of its depth
  Point talker{0.2, 0.6, 0.2};          // m, all places relative to the array's centre
  std::optional<Point> talkerEnd{};     // the talker walks there over the scene
  std::optional<Point> secondTalker{};  // speaks in every other stretch of nearActive
  std::optional<Point> rival{};         // an unwanted voice; it counts as noise
  double rivalDb = -26.0;               // rms while it speaks
  std::vector<Span> rivalActive{};
  std::optional<double> clicksDb{};  // rms over the scene of a keyboard in front of the array
  double loudspeakerReach = 0.2;     // m, from the array's centre to either side
};

struct Scene {
  Channels mix, speech, noise, echo;  // one signal per microphone
  Channels far;                       // left and right reference as played
};

// nearTalk and farTalk: recorded speech at 16 kHz, repeated as needed.
Scene makeScene(const SceneSpec& spec, const Signal& nearTalk, const Signal& farTalk);

}  // namespace vellumic::quality
