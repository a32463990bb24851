#include "echo/ReferenceStatistics.h"

#include "echo/kernels/ReferenceKernels.h"

namespace vellumic {

void DecorrelatedReferences::setup(Eigen::Index bins) {
  for (auto& values : scaledPower) values.setZero(bins);
  for (auto& values : decorrelated) values.setZero(bins);
}

void ReferenceStatistics::setup(Eigen::Index bins) {
  for (auto& values : power) values.setZero(bins);
  cross.setZero(bins);
}

void ReferenceStatistics::update(const std::array<SplitSpectrum, 2>& spectrum,
                                 const EchoCancellerSettings& settings,
                                 DecorrelatedReferences& result) noexcept VELLUMIC_NONBLOCKING {
  referenceKernels().update({.spectrum0 = spectrum[0].planes(),
                             .spectrum1 = spectrum[1].planes(),
                             .pole = settings.powerSmoothing,
                             .crossFactor = settings.crossFactor,
                             .power0 = power[0].data(),
                             .power1 = power[1].data(),
                             .cross = cross.planes(),
                             .scaledPower0 = result.scaledPower[0].data(),
                             .scaledPower1 = result.scaledPower[1].data(),
                             .decorrelated0 = result.decorrelated[0].planes(),
                             .decorrelated1 = result.decorrelated[1].planes()},
                            static_cast<int>(cross.size()));
}

}  // namespace vellumic
