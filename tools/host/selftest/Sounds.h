// The sounds and settings that the self-test knows the answer to.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "parameters/Catalogue.h"

namespace vellumic::tools {

// The factory values with assignments "NAME=VALUE" on top.
RawValues settingsWith(const std::vector<std::string>& assignments);

// A sine that goes on from call to call, the same in all channels.
class Sine {
 public:
  Sine(double hertz, double rate, unsigned channels, float amplitude)
      : step_(hertz / rate), channels_(channels), amplitude_(amplitude) {}
  void fill(std::vector<float>& samples);  // whole frames

 private:
  double step_, phase_ = 0.0;  // turns
  unsigned channels_;
  float amplitude_;
};

double decibelsOf(double ratio);
double powerOf(const float* samples, std::size_t count);  // mean square

// Noise of the same sequence every time, -0.5 to 0.5.
std::vector<float> evenNoise(std::size_t count);

}  // namespace vellumic::tools
