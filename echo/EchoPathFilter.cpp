#include "echo/EchoPathFilter.h"

#include "echo/kernels/KalmanKernels.h"

namespace vellumic {

void EchoPathFilter::setup(int blockLength) {
  const Eigen::Index bins = blockLength + 1;
  weights.setZero(bins);
  posterior.setOnes(bins);
  processNoise.setZero(bins);
}

void EchoPathFilter::updateFilter(const Observation& observed,
                                  Workspace work) noexcept VELLUMIC_NONBLOCKING {
  const auto bins = static_cast<int>(weights.size());
  kalmanKernels().adapt({.decorrelated = observed.decorrelated.planes(),
                         .error = observed.error.planes(),
                         .scaledPower = observed.scaledPower.data(),
                         .noisePower = observed.noisePower.data(),
                         .processNoise = processNoise.data(),
                         .posterior = posterior.data(),
                         .update = work.update.planes()},
                        bins);
  // The constraint.
  work.update.toSamples(work.fft, work.frame.data());
  work.frame.tail(bins - 1).setZero();
  work.update.fromSamples(work.fft, work.frame.data());

  kalmanKernels().takeStep({.update = work.update.planes(),
                            .pole = pole,
                            .weights = weights.planes(),
                            .processNoise = processNoise.data()},
                           bins);
}

}  // namespace vellumic
