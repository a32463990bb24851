#include "tools/quality/Scene.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "tools/quality/Sources.h"

namespace vellumic::quality {
namespace {

constexpr double speechDb = -26.0;   // of the near talker while active, dBFS rms
constexpr double micSpacing = 0.03;  // m
constexpr int noiseDirections = 48;
constexpr int walkSteps = 12;

Point operator+(Point a, Point b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }

Point arrayCentre(const Room& room) { return {0.5 * room.size.x, 0.325 * room.size.y, 0.9}; }

// Relative to the array's centre.
double microphoneX(int index, int count) { return micSpacing * (index - 0.5 * (count - 1)); }

// What the microphones hear of signals that sound at places relative to the array.
Channels heard(const SceneSpec& spec, const Channels& signals, const std::vector<Point>& places) {
  const Point centre = arrayCentre(spec.room);
  std::vector<Channels> responses;
  for (int m = 0; m < spec.microphones; ++m) {
    const Point ear = centre + Point{microphoneX(m, spec.microphones), 0.0, 0.0};
    Channels& row = responses.emplace_back();
    for (const Point& place : places)
      row.push_back(impulseResponse(spec.room, centre + place, ear, sceneRate));
  }
  return convolve(signals, responses);
}

void add(Channels& target, const Channels& part) {
  for (std::size_t m = 0; m < target.size(); ++m)
    for (std::size_t n = 0; n < part[m].size(); ++n) target[m][n] += part[m][n];
}

// Plane waves of independent pink noise from all around (Fibonacci sphere).
Channels diffuseNoise(const SceneSpec& spec, std::size_t length, std::mt19937_64& random) {
  Channels waves;
  std::vector<Channels> delays(static_cast<std::size_t>(spec.microphones));
  for (int d = 0; d < noiseDirections; ++d) {
    waves.push_back(pinkNoise(length, random));
    const double height = 1.0 - 2.0 * (d + 0.5) / noiseDirections;
    const double turn = std::numbers::pi * (3.0 - std::sqrt(5.0)) * d;
    const double ux = std::sqrt(1.0 - height * height) * std::cos(turn);
    for (int m = 0; m < spec.microphones; ++m) {
      const double ahead = microphoneX(m, spec.microphones) * ux;
      Signal& delay = delays[static_cast<std::size_t>(m)].emplace_back(160);
      addImpulse(delay, 64.0 - ahead / soundSpeed * sceneRate, 1.0);
    }
  }
  Channels noise = convolve(waves, delays);
  setLevel(noise, {{0.0, spec.seconds}}, spec.noiseDb);
  return noise;
}

// Every other of the stretches, from `first` on.
std::vector<Span> everyOther(const std::vector<Span>& spans, std::size_t first) {
  std::vector<Span> out;
  for (std::size_t i = first; i < spans.size(); i += 2) out.push_back(spans[i]);
  return out;
}

// A walk is a row of places, with the signal cross-faded from each to the next.
void walk(const SceneSpec& spec, const Signal& talk, Channels& signals,
          std::vector<Point>& places) {
  const Point from = spec.talker, to = *spec.talkerEnd;
  for (int k = 0; k < walkSteps; ++k) {
    const double share = static_cast<double>(k) / (walkSteps - 1);
    places.push_back({from.x + share * (to.x - from.x), from.y + share * (to.y - from.y),
                      from.z + share * (to.z - from.z)});
    Signal& part = signals.emplace_back(talk);
    for (std::size_t n = 0; n < part.size(); ++n) {
      const double at = static_cast<double>(n) / static_cast<double>(part.size()) * (walkSteps - 1);
      part[n] *= static_cast<float>(std::max(0.0, 1.0 - std::abs(at - k)));
    }
  }
}

Channels speechOf(const SceneSpec& spec, const Signal& nearTalk, const Signal& farTalk,
                  std::size_t length) {
  const std::size_t start = sceneSamples(spec.voiceStart);
  if (spec.secondTalker) {
    const auto first = everyOther(spec.nearActive, 0), second = everyOther(spec.nearActive, 1);
    Channels one = heard(spec, {gated(nearTalk, first, length, start)}, {spec.talker});
    Channels other = heard(spec, {gated(farTalk, second, length, start + farTalk.size() / 3)},
                           {*spec.secondTalker});
    setLevel(one, first, speechDb);
    setLevel(other, second, speechDb);
    add(one, other);
    return one;
  }
  const Signal talk = gated(nearTalk, spec.nearActive, length, start);
  Channels signals;
  std::vector<Point> places;
  if (spec.talkerEnd) {
    walk(spec, talk, signals, places);
  } else {
    signals.push_back(talk);
    places.push_back(spec.talker);
  }
  Channels speech = heard(spec, signals, places);
  setLevel(speech, spec.nearActive, speechDb);
  return speech;
}

Channels noiseOf(const SceneSpec& spec, const Signal& farTalk, std::size_t length,
                 std::mt19937_64& random) {
  Channels noise = diffuseNoise(spec, length, random);
  if (spec.rival) {
    const std::size_t start = sceneSamples(spec.voiceStart) + 2 * farTalk.size() / 3;
    Channels voice = heard(spec, {gated(farTalk, spec.rivalActive, length, start)}, {*spec.rival});
    setLevel(voice, spec.rivalActive, spec.rivalDb);
    add(noise, voice);
  }
  if (spec.clicksDb) {
    Channels clicks = heard(spec, {keyboard(length, random)}, {{0.1, 0.25, -0.1}});
    setLevel(clicks, {{0.0, spec.seconds}}, *spec.clicksDb);
    add(noise, clicks);
  }
  return noise;
}

// Two different stretches of the recording, each leaking into the other side as in a stereo mix.
Channels farOf(const SceneSpec& spec, const Signal& farTalk, std::size_t length,
               std::mt19937_64& random) {
  Channels far(2, Signal(length));
  if (spec.music) {
    const Channels sides = music(length, random);
    for (std::size_t side = 0; side < 2; ++side)
      far[side] = gated(sides[side], spec.farActive, length, 0);
  } else {
    const std::size_t start = sceneSamples(spec.voiceStart);
    const Signal a = gated(farTalk, spec.farActive, length, start);
    const Signal b = gated(farTalk, spec.farActive, length, start + farTalk.size() / 2);
    for (std::size_t n = 0; n < length; ++n) {
      far[0][n] = 0.8F * a[n] + 0.3F * b[n];
      far[1][n] = 0.3F * a[n] + 0.8F * b[n];
    }
  }
  setLevel(far, spec.farActive, -20.0);
  return far;
}

Channels echoOf(const SceneSpec& spec, const Channels& far, std::size_t length) {
  const std::size_t change = spec.pathChangeAt > 0.0 ? sceneSamples(spec.pathChangeAt) : length;
  const auto drive = static_cast<float>(spec.drive);
  Channels signals;
  std::vector<Point> places;
  for (std::size_t side = 0; side < 2; ++side) {
    Signal& played = signals.emplace_back(delayed(far[side], spec.systemDelay, spec.driftPpm));
    if (drive > 0.0F)
      for (float& x : played) x = std::tanh(drive * x) / drive;
    places.push_back({side == 0 ? -spec.loudspeakerReach : spec.loudspeakerReach, -0.1, 0.0});
  }
  if (change < length) {  // the right loudspeaker goes on from another place
    Signal& moved = signals.emplace_back(signals[1]);
    std::fill(moved.begin(), moved.begin() + static_cast<std::ptrdiff_t>(change), 0.0F);
    std::fill(signals[1].begin() + static_cast<std::ptrdiff_t>(change), signals[1].end(), 0.0F);
    places.push_back(places[1] + Point{0.25, 0.3, 0.0});
  }
  Channels echo = heard(spec, signals, places);
  setLevel(echo, spec.farActive, spec.echoDb);
  return echo;
}

}  // namespace

Scene makeScene(const SceneSpec& spec, const Signal& nearTalk, const Signal& farTalk) {
  const std::size_t length = sceneSamples(spec.seconds);
  std::mt19937_64 random(spec.seed);
  Scene scene;
  scene.speech = speechOf(spec, nearTalk, farTalk, length);
  scene.far = farOf(spec, farTalk, length, random);
  scene.echo = echoOf(spec, scene.far, length);
  scene.noise = noiseOf(spec, farTalk, length, random);
  const auto gain = static_cast<float>(std::pow(10.0, spec.levelDb / 20.0));
  for (Channels* part : {&scene.speech, &scene.echo, &scene.noise})
    for (Signal& channel : *part)
      for (float& sample : channel) sample *= gain;
  scene.mix = scene.speech;
  add(scene.mix, scene.echo);
  add(scene.mix, scene.noise);
  return scene;
}

}  // namespace vellumic::quality
