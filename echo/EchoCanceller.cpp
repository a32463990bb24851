#include "echo/EchoCanceller.h"

#include <cassert>
#include <cmath>
#include <utility>

#include "echo/kernels/KalmanKernels.h"

namespace vellumic {
namespace {

constexpr float startingNoise = 10.0F;
constexpr float silentUpdate = 1e-5F;      // no coefficient change to speak of
constexpr float settledShare = 0.95F;      // of the bins
constexpr float divergenceMargin = 70.0F;  // energy of a block at full scale 1

}  // namespace

EchoCanceller::EchoCanceller(int blockLength) : blockLength_(blockLength) { size(); }

void EchoCanceller::size() {
  fft_.prepare(2 * blockLength_);
  const Eigen::Index bins = blockLength_ + 1;
  for (auto& filter : filters) filter.setup(blockLength_);
  ownStatistics_.setup(bins);
  updatePower.setZero(bins);
  noisePower.setConstant(bins, startingNoise);
  for (auto* samples : {&previousError_, &error_}) samples->setZero(blockLength_);
  frame_.setZero(2 * blockLength_);
  for (auto* spectrum : {&echoSpectrum_, &errorSpectrum_}) spectrum->setZero(bins);
  suppressor.setup(blockLength_);
}

void EchoCanceller::setup() noexcept VELLUMIC_NONBLOCKING {
  vouchedFor([this] { size(); });  // every array has its size already: this only fills them
  startedOver_ = true;
}

void EchoCanceller::apply(const EchoCancellerSettings& settings) noexcept VELLUMIC_NONBLOCKING {
  settings_ = settings;
  for (auto& filter : filters) filter.pole = settings.filterPole;
}

void EchoCanceller::carryOver(const EchoCanceller& old) noexcept VELLUMIC_NONBLOCKING {
  blockCounter = old.blockCounter;
  blockEnergy = old.blockEnergy;
  converged = old.converged;
  covarianceEnergy = old.covarianceEnergy;
  suppressor.longTermLevel = old.suppressor.longTermLevel;
}

void EchoCanceller::process(ReferenceSpectra& references, std::span<const float> microphone,
                            std::span<float> output) noexcept VELLUMIC_NONBLOCKING {
  assert(references.blockLength() == blockLength_);
  assert(std::ssize(microphone) == blockLength_ && std::ssize(output) == blockLength_);
  const ReferenceBlock* block = &join(references);
  cancelLinear(references, *block, microphone);
  if (startedOver_) block = &references.silence();
  suppressor.suppressResidual({previousError_, error_, *block, blockEnergy, meanNoisePower_},
                              settings_);

  auto result = Eigen::Map<Eigen::ArrayXf>(output.data(), blockLength_);
  if (suppressor.isFinite() && std::isfinite(covarianceEnergy + errorEnergy_ + meanNoisePower_)) {
    result = suppressor.cleanBlock;
  } else {
    recover();
    result.setZero();
  }
}

// Sizes of settings or samples that no arithmetic survives: nothing of it may stay.
void EchoCanceller::recover() noexcept {
  setup();
  for (float* number : {&covarianceEnergy, &blockEnergy, &suppressor.longTermLevel})
    if (!std::isfinite(*number)) *number = 0.0F;
}

// The references of this block. Whoever starts later than they do has no part in their past.
const ReferenceBlock& EchoCanceller::join(ReferenceSpectra& references) noexcept {
  if (!std::exchange(startedOver_, false)) return references.present();
  sharesStatistics_ = references.atStart();
  return references.withoutPast();
}

void EchoCanceller::cancelLinear(ReferenceSpectra& references, const ReferenceBlock& block,
                                 std::span<const float> microphone) noexcept {
  kalmanKernels().predictEcho({.reference0 = block.spectrum[0].planes(),
                               .weights0 = filters[0].weights.planes(),
                               .reference1 = block.spectrum[1].planes(),
                               .weights1 = filters[1].weights.planes(),
                               .echo = echoSpectrum_.planes()},
                              blockLength_ + 1);
  echoSpectrum_.toSamples(fft_, frame_.data());  // the first half is wrapped around
  measureError(microphone);

  const DecorrelatedReferences& decorrelated =
      sharesStatistics_ ? references.decorrelated()
                        : references.decorrelatedBy(ownStatistics_, block);
  for (std::size_t r = 0; r < 2; ++r)
    filters[r].updateFilter({.decorrelated = decorrelated.decorrelated[r],
                             .scaledPower = decorrelated.scaledPower[r],
                             .error = errorSpectrum_,
                             .noisePower = noisePower},
                            {.fft = fft_, .update = echoSpectrum_, .frame = frame_});
  checkHealth();
}

// Takes the echo estimate from the second half of frame_: error samples, spectrum, noise.
void EchoCanceller::measureError(std::span<const float> microphone) noexcept {
  auto tail = frame_.tail(blockLength_);
  previousError_.swap(error_);
  const auto energies =
      kalmanKernels().subtract(microphone.data(), tail.data(), error_.data(), blockLength_);
  blockEnergy = energies.microphone;
  errorEnergy_ = energies.error;

  // Spectra of blockLength zeros followed by the samples.
  frame_.head(blockLength_).setZero();
  echoSpectrum_.fromSamples(fft_, frame_.data());
  tail = Eigen::Map<const Eigen::ArrayXf>(microphone.data(), blockLength_);
  errorSpectrum_.fromSamples(fft_, frame_.data());

  const bool warmingUp = blockCounter <= settings_.warmupBlocks;
  if (warmingUp) ++blockCounter;
  const float sum = kalmanKernels().measureError({.microphone = errorSpectrum_.planes(),
                                                  .echo = echoSpectrum_.planes(),
                                                  .updatePower = updatePower.data(),
                                                  .pole = settings_.powerSmoothing,
                                                  .threshold = settings_.updateThreshold,
                                                  .holdNoise = warmingUp,
                                                  .error = errorSpectrum_.planes(),
                                                  .noise = noisePower.data()},
                                                 blockLength_ + 1);
  meanNoisePower_ = sum / static_cast<float>(blockLength_ + 1);
}

void EchoCanceller::checkHealth() noexcept {
  const auto health = kalmanKernels().judge({.posterior0 = filters[0].posterior.data(),
                                             .posterior1 = filters[1].posterior.data(),
                                             .processNoise0 = filters[0].processNoise.data(),
                                             .processNoise1 = filters[1].processNoise.data(),
                                             .threshold = settings_.updateThreshold,
                                             .silence = silentUpdate,
                                             .updatePower = updatePower.data()},
                                            blockLength_ + 1);
  covarianceEnergy = health.covariance / static_cast<float>(blockLength_ + 1);
  // Silence proves nothing.
  if (!converged && health.moving)
    converged = static_cast<float>(health.settled) >
                std::round(static_cast<float>(blockLength_) * settledShare);
  // Louder than the microphone: worse than no filter at all.
  if (converged && errorEnergy_ > blockEnergy + divergenceMargin) setup();
}

}  // namespace vellumic
