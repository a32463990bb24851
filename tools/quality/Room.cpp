#include "tools/quality/Room.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace vellumic::quality {
namespace {

constexpr int sincHalfTaps = 40;  // of the windowed sinc

// Wall reflection coefficient that gives the room's RT60 (Eyring).
double reflection(const Room& room) {
  if (room.reverberationTime <= 0.0) return 0.0;
  const auto [x, y, z] = room.size;
  const double volume = x * y * z;
  const double surface = 2.0 * (x * y + y * z + x * z);
  const double absorption = 1.0 - std::exp(-0.161 * volume / (surface * room.reverberationTime));
  return std::sqrt(1.0 - absorption);
}

// One axis of an image: its coordinate and how often the sound met the axis' walls.
struct AxisImage {
  double offset;
  int bounces;
};

AxisImage axisImage(double source, double microphone, double length, int order, bool mirrored) {
  const double position = (mirrored ? -source : source) + 2.0 * order * length;
  return {position - microphone, std::abs(order - (mirrored ? 1 : 0)) + std::abs(order)};
}

}  // namespace

void addImpulse(std::vector<float>& response, double position, double gain) {
  constexpr double pi = std::numbers::pi;
  const int centre = static_cast<int>(std::lround(position));
  const int first = std::max(0, centre - sincHalfTaps);
  const int last = std::min(static_cast<int>(response.size()) - 1, centre + sincHalfTaps);
  // sin(pi t) only changes its sign from tap to tap, and the window's phase turns by one step.
  double sine = std::sin(pi * (first - position));
  const double step = pi / (sincHalfTaps + 1);
  std::complex<double> phase = std::polar(1.0, step * (first - position));
  const std::complex<double> turn = std::polar(1.0, step);
  for (int n = first; n <= last; ++n, sine = -sine, phase *= turn) {
    const double t = n - position;
    const double sinc = std::abs(t) < 1e-9 ? 1.0 : sine / (pi * t);
    response[static_cast<std::size_t>(n)] +=
        static_cast<float>(gain * sinc * (0.5 + 0.5 * phase.real()));
  }
}

std::vector<float> impulseResponse(const Room& room, Point source, Point microphone, double rate) {
  const double beta = reflection(room);
  const double seconds = std::max(room.reverberationTime, 0.05);
  std::vector<float> response(static_cast<std::size_t>(seconds * rate));
  const double reach = seconds * soundSpeed;
  const auto orders = [reach](double length) { return static_cast<int>(reach / (2 * length)) + 1; };

  for (int i = -orders(room.size.x); i <= orders(room.size.x); ++i) {
    for (int j = -orders(room.size.y); j <= orders(room.size.y); ++j) {
      for (int k = -orders(room.size.z); k <= orders(room.size.z); ++k) {
        for (int mirror = 0; mirror < 8; ++mirror) {
          const AxisImage x = axisImage(source.x, microphone.x, room.size.x, i, (mirror & 1) != 0);
          const AxisImage y = axisImage(source.y, microphone.y, room.size.y, j, (mirror & 2) != 0);
          const AxisImage z = axisImage(source.z, microphone.z, room.size.z, k, (mirror & 4) != 0);
          const double distance = std::hypot(x.offset, y.offset, z.offset);
          if (distance > reach) continue;
          const double gain =
              std::pow(beta, x.bounces + y.bounces + z.bounces) / std::max(distance, 0.05);
          if (gain != 0.0) addImpulse(response, distance / soundSpeed * rate, gain);
        }
      }
    }
  }
  return response;
}

}  // namespace vellumic::quality
