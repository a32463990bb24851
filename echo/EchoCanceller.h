// Removes the loudspeaker echo from one microphone, block by block: a two-reference adaptive
// filter in the frequency domain, followed by a suppressor of what it leaves.
//
// Each reference has its own Kalman-type filter of blockLength taps (EchoPathFilter). The process
// noise is learned from the filter's own updates, the measurement noise from the residual, so that
// double talk slows the filter without a detector. The references are decorrelated by their
// smoothed normalized cross-spectrum during the update (ReferenceStatistics).
//
// Per bin, with M the microphone's spectrum and Y that of the echo X_0 W_0 + X_1 W_1:
//   E = M - Y
//   T = p T + (1 - p) max(|M|^2 - |Y|^2, 1e-5) where the filters have settled,
//   T = max(0.1, p T) elsewhere: the noise falls, which speeds the filter up
//
// Samples are floats at full scale 1. The output lags the input by blockLength / 2 samples.
// A state that is no longer finite starts over at once and that block comes out silent.
// Threads: construction allocates and stays off the audio path; the rest is real-time and belongs
// to one thread.
#pragma once

#include <Eigen/Core>
#include <array>
#include <span>

#include "echo/EchoPathFilter.h"
#include "echo/ReferenceSpectra.h"
#include "echo/ReferenceStatistics.h"
#include "echo/ResidualSuppressor.h"
#include "parameters/StageSettings.h"
#include "platform/Realtime.h"
#include "spectra/Fft.h"

namespace vellumic {

class EchoCanceller {
 public:
  // Ready to process: every array sized, every transform run once.
  explicit EchoCanceller(int blockLength = 1024);  // even
  EchoCanceller(EchoCanceller&&) noexcept = default;
  EchoCanceller& operator=(EchoCanceller&&) noexcept = default;

  // Filters and statistics start again; blockCounter, longTermLevel, blockEnergy, converged and
  // the settings stay. Also the remedy when a filter diverges, so it allocates nothing.
  void setup() noexcept VELLUMIC_NONBLOCKING;
  void apply(const EchoCancellerSettings& settings) noexcept VELLUMIC_NONBLOCKING;

  // `references` has advanced to this block, which every canceller that shares them processes, and
  // has the same settings. Microphone and output hold blockLength samples and
  // may be the same memory.
  void process(ReferenceSpectra& references, std::span<const float> microphone,
               std::span<float> output) noexcept VELLUMIC_NONBLOCKING;

  // Takes what outlives a change of the block length from the canceller that is replaced.
  void carryOver(const EchoCanceller& old) noexcept VELLUMIC_NONBLOCKING;

  int blockLength() const noexcept { return blockLength_; }

  // Read by owners and tests.
  float covarianceEnergy = 0.0F;  // grows when the echo path moves
  bool converged = false;         // set once, never cleared
  int blockCounter = 0;           // counts up to warmupBlocks + 1
  float blockEnergy = 0.0F;       // sum of squares of the latest microphone block
  std::array<EchoPathFilter, 2> filters;
  Eigen::ArrayXf updatePower;  // smoothed coefficient change of both filters, per bin
  Eigen::ArrayXf noisePower;   // measurement noise T, 10 at the start
  ResidualSuppressor suppressor;

 private:
  void size();
  void recover() noexcept;
  const ReferenceBlock& join(ReferenceSpectra& references) noexcept;
  void cancelLinear(ReferenceSpectra& references, const ReferenceBlock& block,
                    std::span<const float> microphone) noexcept;
  void measureError(std::span<const float> microphone) noexcept;
  void checkHealth() noexcept;

  EchoCancellerSettings settings_;
  int blockLength_;
  bool startedOver_ = true;       // since the latest block: the past of the references is not ours
  bool sharesStatistics_ = true;  // until it starts over apart from the others
  ReferenceStatistics ownStatistics_;
  float errorEnergy_ = 0.0F;     // sum of squares of the latest block
  float meanNoisePower_ = 0.0F;  // of the latest block
  Eigen::ArrayXf previousError_, error_;
  Eigen::ArrayXf frame_;                        // 2 * blockLength, work space
  SplitSpectrum echoSpectrum_, errorSpectrum_;  // work space
  Fft fft_;                                     // 2 * blockLength
};

}  // namespace vellumic
