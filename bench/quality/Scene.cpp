#include "bench/quality/Scene.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <unsupported/Eigen/FFT>

namespace vellumic::quality {
namespace {

constexpr double speechDb = -26.0;        // active level of the near talker, dBFS rms
constexpr double micSpacing = 0.03;       // m
constexpr double loudspeakerReach = 0.2;  // m, from the array's centre to either side
constexpr int noiseDirections = 48;

std::size_t samples(double seconds) {
  return static_cast<std::size_t>(std::lround(seconds * sceneRate));
}

double fromDb(double db) { return std::pow(10.0, db / 20.0); }

Point arrayCentre() { return {2.5, 1.3, 0.9}; }

Point microphone(int index, int count) {
  Point point = arrayCentre();
  point.x += micSpacing * (index - 0.5 * (count - 1));
  return point;
}

// The recording, repeated, with silence outside the active stretches.
Signal gated(const Signal& recording, const std::vector<Span>& active, std::size_t length,
             std::size_t start) {
  Signal out(length);
  std::size_t position = start;
  for (const Span& span : active)
    for (std::size_t n = samples(span.from); n < std::min(samples(span.to), length); ++n)
      out[n] = recording[position++ % recording.size()];
  return out;
}

double rms(const Channels& channels, const std::vector<Span>& spans) {
  double sum = 0.0;
  std::size_t count = 0;
  for (const Span& span : spans)
    for (std::size_t n = samples(span.from);
         n < std::min(samples(span.to), channels.front().size()); ++n, ++count)
      sum += static_cast<double>(channels.front()[n]) * channels.front()[n];
  return count == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(count));
}

// Gives all channels the gain that brings the first one to the level.
void setLevel(Channels& channels, const std::vector<Span>& spans, double db) {
  const double level = rms(channels, spans);
  if (level == 0.0) return;
  const float gain = static_cast<float>(fromDb(db) / level);
  for (Signal& channel : channels)
    for (float& sample : channel) sample *= gain;
}

// Plane waves of independent pink noise from all around (Fibonacci sphere).
Channels diffuseNoise(const SceneSpec& spec, std::size_t length, std::mt19937_64& random) {
  std::normal_distribution<float> normal;
  Channels noise(static_cast<std::size_t>(spec.microphones), Signal(length));
  for (int d = 0; d < noiseDirections; ++d) {
    Signal wave(length);
    float b0 = 0.0F, b1 = 0.0F, b2 = 0.0F;  // P. Kellet's economy pink filter
    for (float& sample : wave) {
      const float white = normal(random);
      b0 = 0.99765F * b0 + white * 0.0990460F;
      b1 = 0.96300F * b1 + white * 0.2965164F;
      b2 = 0.57000F * b2 + white * 1.0526913F;
      sample = b0 + b1 + b2 + white * 0.1848F;
    }
    const double height = 1.0 - 2.0 * (d + 0.5) / noiseDirections;
    const double turn = std::numbers::pi * (3.0 - std::sqrt(5.0)) * d;
    const double ux = std::sqrt(1.0 - height * height) * std::cos(turn);
    for (int m = 0; m < spec.microphones; ++m) {
      const double ahead = (microphone(m, spec.microphones).x - arrayCentre().x) * ux;
      Signal delay(160);
      addImpulse(delay, 64.0 - ahead / soundSpeed * sceneRate, 1.0);
      const Signal arrived = convolve(wave, delay);
      Signal& target = noise[static_cast<std::size_t>(m)];
      std::transform(target.begin(), target.end(), arrived.begin(), target.begin(), std::plus<>());
    }
  }
  setLevel(noise, {{0.0, spec.seconds}}, spec.noiseDb);
  return noise;
}

Channels playedFrom(const SceneSpec& spec, Point source, const Signal& signal) {
  Channels heard;
  for (int m = 0; m < spec.microphones; ++m)
    heard.push_back(convolve(
        signal, impulseResponse(spec.room, source, microphone(m, spec.microphones), sceneRate)));
  return heard;
}

void add(Channels& target, const Channels& part, std::size_t from, std::size_t to) {
  for (std::size_t m = 0; m < target.size(); ++m)
    for (std::size_t n = from; n < to; ++n) target[m][n] += part[m][n];
}

Channels echoOf(const SceneSpec& spec, const Channels& far, std::size_t length) {
  const std::size_t delay = samples(spec.systemDelay);
  const std::size_t change = spec.pathChangeAt > 0.0 ? samples(spec.pathChangeAt) : length;
  Channels echo(static_cast<std::size_t>(spec.microphones), Signal(length));
  for (std::size_t side = 0; side < 2; ++side) {
    Signal played(length);
    for (std::size_t n = delay; n < length; ++n) {
      const float x = far[side][n - delay];
      const float drive = static_cast<float>(spec.drive);
      played[n] = spec.drive > 0.0 ? std::tanh(drive * x) / drive : x;
    }
    Point place = arrayCentre();
    place.x += side == 0 ? -loudspeakerReach : loudspeakerReach;
    place.y -= 0.1;
    add(echo, playedFrom(spec, place, played), 0, side == 0 ? length : change);
    if (side == 1 && change < length) {
      place.x += 0.25;
      place.y += 0.3;
      add(echo, playedFrom(spec, place, played), change, length);
    }
  }
  setLevel(echo, spec.farActive, spec.echoDb);
  return echo;
}

}  // namespace

const std::vector<SceneSpec>& standardScenes() {
  static const std::vector<SceneSpec> scenes{
      {.name = "noise", .nearActive = {{3, 8}, {11, 16}}, .noiseDb = -36},
      {.name = "near-only", .nearActive = {{1, 20}}},
      {.name = "far-single", .farActive = {{0, 20}}},
      {.name = "delay-100ms", .farActive = {{0, 20}}, .systemDelay = 0.1},
      {.name = "delay-200ms", .farActive = {{0, 20}}, .systemDelay = 0.2},
      {.name = "double-talk", .nearActive = {{10, 20}}, .farActive = {{0, 20}}},
      {.name = "path-change", .seconds = 24, .farActive = {{0, 24}}, .pathChangeAt = 12},
      {.name = "loud-nonlinear", .farActive = {{0, 20}}, .echoDb = -14, .drive = 6},
      {.name = "far-pause", .seconds = 30, .farActive = {{0, 10}, {15, 30}}},
      {.name = "everything",
       .seconds = 30,
       .nearActive = {{6, 11}, {16, 28}},
       .farActive = {{0, 20}},
       .noiseDb = -46},
  };
  return scenes;
}

Scene makeScene(const SceneSpec& spec, const Signal& nearTalk, const Signal& farTalk) {
  const std::size_t length = samples(spec.seconds);
  std::mt19937_64 random(spec.seed);
  Scene scene;

  const Signal talk = gated(nearTalk, spec.nearActive, length, 0);
  scene.speech = playedFrom(spec, {2.7, 1.9, 1.1}, talk);
  setLevel(scene.speech, spec.nearActive, speechDb);

  // Two different stretches of the recording, each leaking into the other side as in a stereo mix.
  const Signal a = gated(farTalk, spec.farActive, length, 0);
  const Signal b = gated(farTalk, spec.farActive, length, farTalk.size() / 2);
  scene.far.assign(2, Signal(length));
  for (std::size_t n = 0; n < length; ++n) {
    scene.far[0][n] = 0.8F * a[n] + 0.3F * b[n];
    scene.far[1][n] = 0.3F * a[n] + 0.8F * b[n];
  }
  setLevel(scene.far, spec.farActive, -20.0);

  scene.echo = echoOf(spec, scene.far, length);
  scene.noise = diffuseNoise(spec, length, random);
  scene.mix.assign(static_cast<std::size_t>(spec.microphones), Signal(length));
  for (const Channels* part : {&scene.speech, &scene.echo, &scene.noise})
    add(scene.mix, *part, 0, length);
  return scene;
}

Signal convolve(const Signal& input, const Signal& response) {
  std::size_t size = 1024;
  while (size < 4 * response.size()) size *= 2;
  const std::size_t step = size - response.size() + 1;
  Eigen::FFT<float> fft;
  fft.SetFlag(Eigen::FFT<float>::HalfSpectrum);

  Signal block(response.begin(), response.end());
  block.resize(size);
  std::vector<std::complex<float>> filter, spectrum;
  fft.fwd(filter, block);
  Signal out(input.size()), time;
  for (std::size_t start = 0; start < input.size(); start += step) {
    for (std::size_t n = 0; n < size; ++n) {
      const std::size_t at = start + n + 1 - response.size();  // wraps below zero
      block[n] = at < input.size() ? input[at] : 0.0F;
    }
    fft.fwd(spectrum, block);
    for (std::size_t k = 0; k < spectrum.size(); ++k) spectrum[k] *= filter[k];
    fft.inv(time, spectrum);
    const std::size_t count = std::min(step, input.size() - start);
    std::copy_n(time.begin() + static_cast<std::ptrdiff_t>(response.size() - 1), count,
                out.begin() + static_cast<std::ptrdiff_t>(start));
  }
  return out;
}

}  // namespace vellumic::quality
