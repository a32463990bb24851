// One second-order filter in Direct Form II, and its design formulas.
//
// Coefficients are designed in double and stored as float; the recursion runs in float, in the
// order of operations written in process(). The peak is a Regalia-Mitra style allpass design whose
// bandwidth is not prewarped and widens by 1/gain in a cut; the shelves are first principles of
// U. Zoelzer, "DAFX", ch. 2; low pass, high pass and band pass follow R. Bristow-Johnson's
// cookbook. Bad values (rate or Q of 0, NaN) give infinite or NaN coefficients: audible, never
// unsafe.
//
// Threads: process() on the real-time thread; a section in use is not designed by another thread.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/Realtime.h"

namespace vellumic {

enum class BiquadType : std::int32_t {
  Gain = 0,      // gain only
  Peak = 1,      // frequency, q, gain
  LowPass = 2,   // frequency; Q fixed at 1/sqrt(2)
  HighPass = 3,  // frequency; Q fixed at 1/sqrt(2)
  LowShelf = 4,  // frequency, q, gain
  HighShelf = 5,
  Notch = 6,      // frequency, q
  BandPass = 7,   // frequency, q
  HighPassQ = 9,  // frequency, q; 8 and everything above 9 have no design
};

struct BiquadCoefficients {
  float a1 = 0.0F, a2 = 0.0F;             // denominator; the leading coefficient is 1
  float b0 = 1.0F, b1 = 0.0F, b2 = 0.0F;  // numerator
};

struct BiquadSection {
  float z1 = 0.0F, z2 = 0.0F;  // memory: w[n-1], w[n-2]
  float a1 = 0.0F, a2 = 0.0F;
  float b0 = 1.0F, b1 = 0.0F, b2 = 0.0F;
  float frequency = 1000.0F;  // Hz, centre or corner
  float q = 0.7F;
  float gain = 1.0F;            // linear amplitude; a designed shelf cut holds 1/gain here
  float sampleRate = 44100.0F;  // Hz
  float w = 0.0F;               // last intermediate value of the recursion
  std::uint8_t coefficientsChanged = 1;
  std::int32_t type = static_cast<std::int32_t>(BiquadType::Peak);

  // Sets all design values and designs.
  void set(int newType, float newFrequency, float newGain, float newQ,
           float newSampleRate) noexcept;

  // Coefficients from type, frequency, q, gain and sampleRate; z1 and z2 stay. A type without a
  // design, or a shelf whose gain is NaN, leaves the coefficients as they are.
  void design() noexcept;

  // Filters one sample in place.
  void process(float& sample) noexcept VELLUMIC_NONBLOCKING {
    w = sample - z1 * a1 - z2 * a2;
    sample = w * b0 + z1 * b1 + z2 * b2;
    z2 = z1;
    z1 = w;
  }
};

// The design alone, without state; nothing where BiquadSection::design() would leave the
// coefficients. Frequencies in Hz, gain linear.
std::optional<BiquadCoefficients> designBiquad(int type, float frequency, float q, float gain,
                                               float sampleRate) noexcept;

}  // namespace vellumic
