// Rate converter for one channel of doubles: 180 dB of stop band, linear phase, 24-tap fractional
// stage. This is the class that the rest of the system uses.
//
//   CDSPResampler24 converter(48000.0, 16000.0, 1, 10.0);
//   const double* output = nullptr;
//   const int count = converter.process(&sample, 1, output);   // copy before the next call
//
// A run of samples in one call gives what one call a sample gives, for half the price: to the bit,
// but for rounding where a fractional stage ends the chain.
// Output is doled out as input arrives: with one-sample calls none returns more than
// maxOutputLength(1). The first output belongs to the time of the first input, the filters' delay
// shows only as calls that return 0; docs/resampler.md lists it.
#pragma once

#include "resample/CDSPResampler.h"

namespace vellumic::resample {

class CDSPResampler24 final : public CDSPResampler<CDSPFracInterpolator<24, 673>> {
 public:
  // source, destination: rates in Hz, above 0, up to a factor of 2^18 apart.
  // maxInput: most samples of one call, at least 1; the buffers grow with it, the delay does not.
  // transitionBand: percent of the band given to the filter's slope, 0.5 to 45.
  // Throws std::invalid_argument outside these ranges, std::length_error if one call could return
  // more than 2^24 samples.
  CDSPResampler24(double source, double destination, int maxInput, double transitionBand)
      : CDSPResampler(source, destination, maxInput, transitionBand, attenuation,
                      PowerOfTwoChain::allowed) {}

 private:
  static constexpr double attenuation = 180.15;  // dB
};

}  // namespace vellumic::resample
