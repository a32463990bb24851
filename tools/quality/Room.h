// A simulated shoebox room: impulse responses between points, by the image-source model.
// J. B. Allen, D. A. Berkley, "Image method for efficiently simulating small-room acoustics",
// JASA 65(4), 1979; fractional delays by a windowed sinc (P. M. Peterson, JASA 80(5), 1986).
#pragma once

#include <vector>

namespace vellumic::quality {

struct Point {
  double x, y, z;  // m
};

inline constexpr double soundSpeed = 343.0;  // m/s

struct Room {
  Point size{5.0, 4.0, 2.7};
  double reverberationTime = 0.3;  // RT60 in s; 0 is free field
};

// Both points must lie inside the room. Gain 1 at a distance of 1 m. The response is as long as
// the reverberation time.
std::vector<float> impulseResponse(const Room& room, Point source, Point microphone, double rate);

// Adds `gain` times an impulse at a fractional position of samples.
void addImpulse(std::vector<float>& response, double position, double gain);

}  // namespace vellumic::quality
