// Smoothed powers and cross-spectrum of the two loudspeaker references, and what the filter update
// takes from them: each reference less what the cross-spectrum predicts from the other.
//
// Per bin, with X the spectra and p the pole:
//   P_r = p P_r + (1 - p) |X_r|^2             S = p S + (1 - p) X_0 conj(X_1)
//   G_r = P_r (1 - factor^2 |S|^2 / (P_0 P_1))
//   D_r = conj(X_r) - factor S / P_o conj(X_o)   with o the other reference
// Both D use S as it stands, without conjugating it for the second: tuned that way.
//
// Arrays over blockLength + 1 bins. Thread: real-time only, after setup.
#pragma once

#include <Eigen/Core>
#include <array>

#include "echo/SplitSpectrum.h"
#include "parameters/StageSettings.h"
#include "platform/Realtime.h"

namespace vellumic {

// The references of a block as a filter update takes them.
struct DecorrelatedReferences {
  std::array<Eigen::ArrayXf, 2> scaledPower;  // G
  std::array<SplitSpectrum, 2> decorrelated;  // D

  void setup(Eigen::Index bins);
};

struct ReferenceStatistics {
  std::array<Eigen::ArrayXf, 2> power;  // P
  SplitSpectrum cross;                  // S

  // Sizes and starts over; allocates only when the size changes.
  void setup(Eigen::Index bins);

  // One block further.
  void update(const std::array<SplitSpectrum, 2>& spectrum, const EchoCancellerSettings& settings,
              DecorrelatedReferences& result) noexcept VELLUMIC_NONBLOCKING;
};

}  // namespace vellumic
