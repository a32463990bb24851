#include "echo/EchoCanceller.h"

#include <algorithm>
#include <cassert>
#include <cmath>

namespace vellumic {

namespace {

using Bin = std::complex<float>;

// The plain product. operator* also repairs products of infinities, which costs a branch per bin
// and changes nothing for finite values.
Bin product(Bin a, Bin b) noexcept {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

float energy(const Eigen::ArrayXf& samples) noexcept { return samples.square().sum(); }

}  // namespace

EchoCanceller::EchoCanceller(int blockLength) { setBlockLength(blockLength); }

void EchoCanceller::setBlockLength(int blockLength) {
  blockLength_ = blockLength;
  size();
  startedOver_ = true;
}

void EchoCanceller::size() {
  fft_.prepare(2 * blockLength_);
  const Eigen::Index bins = blockLength_ + 1;
  for (auto& filter : filters) filter.setup(blockLength_);
  for (auto& reference : references) reference.setup(bins);
  crossSpectrum.setupCross(bins);
  updatePower.setZero(bins);
  noisePower.setConstant(bins, 10.0F);
  for (auto* samples : {&previousError_, &error_, &echoEstimate_}) samples->setZero(blockLength_);
  frame_.setZero(2 * blockLength_);
  for (auto* spectrum : {&echoSpectrum_, &micSpectrum_, &errorSpectrum_}) spectrum->setZero(bins);
  suppressor.setup(blockLength_);
}

void EchoCanceller::setup() noexcept VELLUMIC_NONBLOCKING {
  size();  // every array has its size already: this only fills them
  startedOver_ = true;
}

void EchoCanceller::apply(const EchoCancellerSettings& settings) noexcept VELLUMIC_NONBLOCKING {
  settings_ = settings;
  crossSpectrum.pole = settings.powerSmoothing;
  for (auto& reference : references) reference.power.pole = settings.powerSmoothing;
  for (auto& filter : filters) filter.processNoise.pole = settings.filterPole;
}

void EchoCanceller::carryOver(const EchoCanceller& old) noexcept VELLUMIC_NONBLOCKING {
  blockCounter = old.blockCounter;
  blockEnergy = old.blockEnergy;
  converged = old.converged;
  covarianceEnergy = old.covarianceEnergy;
  suppressor.longTermLevel = old.suppressor.longTermLevel;
}

void EchoCanceller::process(ReferenceSpectra& spectra, std::span<const float> microphone,
                            std::span<float> output) noexcept VELLUMIC_NONBLOCKING {
  assert(spectra.blockLength() == blockLength_ && std::ssize(microphone) == blockLength_ &&
         std::ssize(output) == blockLength_);
  const ReferenceBlock* block = startedOver_ ? &spectra.withoutPast() : &spectra.present();
  startedOver_ = false;
  cancelLinear(*block, microphone);
  if (startedOver_) block = &spectra.silence();
  const float meanNoisePower = noisePower.mean();
  suppressor.process({previousError_, error_, *block, blockEnergy, meanNoisePower}, settings_);

  auto result = Eigen::Map<Eigen::ArrayXf>(output.data(), blockLength_);
  if (suppressor.isFinite() && std::isfinite(covarianceEnergy + energy(error_) + meanNoisePower)) {
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

void EchoCanceller::cancelLinear(const ReferenceBlock& block,
                                 std::span<const float> microphone) noexcept {
  const auto samples = Eigen::Map<const Eigen::ArrayXf>(microphone.data(), blockLength_);
  echoEstimate_.setZero();
  for (std::size_t r = 0; r < 2; ++r) filters[r].addEcho(block.spectrum[r], fft_, echoEstimate_);

  previousError_.swap(error_);
  error_ = samples - echoEstimate_;
  transformTail(echoEstimate_, echoSpectrum_);
  blockEnergy = samples.square().sum();
  transformTail(samples, micSpectrum_);
  errorSpectrum_ = micSpectrum_ - echoSpectrum_;

  updateStatistics(block);
  decorrelate(block);
  for (std::size_t r = 0; r < 2; ++r)
    filters[r].adapt(references[r], errorSpectrum_, noisePower, fft_);
  updatePower = filters[0].processNoise.power + filters[1].processNoise.power;
  checkHealth();
}

// Spectrum of blockLength zeros followed by the samples.
void EchoCanceller::transformTail(const Eigen::Ref<const Eigen::ArrayXf>& samples,
                                  Eigen::ArrayXcf& spectrum) noexcept {
  frame_.tail(blockLength_) = samples;
  fft_.forward(frame_.data(), spectrum.data());
}

void EchoCanceller::updateStatistics(const ReferenceBlock& block) noexcept {
  for (std::size_t r = 0; r < 2; ++r) references[r].power.updatePower(block.spectrum[r]);
  crossSpectrum.updateCross(block.spectrum[0], block.spectrum[1]);
  if (blockCounter <= settings_.warmupBlocks) {
    ++blockCounter;
    return;
  }
  // While a bin still moves its noise falls toward 0.1, which speeds the filter up; once it has
  // settled the noise follows the residual.
  const float pole = settings_.powerSmoothing;
  for (Eigen::Index k = 0; k < noisePower.size(); ++k) {
    const float residual = std::norm(micSpectrum_[k]) - std::norm(echoSpectrum_[k]);
    const float followed = (1.0F - pole) * std::max(residual, 1e-5F) + pole * noisePower[k];
    const float decayed = std::max(0.1F, pole * noisePower[k]);
    noisePower[k] = updatePower[k] < settings_.updateThreshold ? followed : decayed;
  }
}

// Takes out of each reference what its smoothed cross-spectrum predicts from the other. Both use
// the cross-spectrum as it stands, without conjugating it for the second: tuned that way.
void EchoCanceller::decorrelate(const ReferenceBlock& block) noexcept {
  const float factor = settings_.crossFactor;
  for (Eigen::Index k = 0; k < updatePower.size(); ++k) {
    const float power0 = references[0].power.power[k];
    const float power1 = references[1].power.power[k];
    const Bin cross = crossSpectrum.cross[k];
    const Bin coherence = cross / (std::sqrt(power0 * power1) + 1e-10F);
    const float scale = 1.0F - factor * factor * std::norm(coherence);
    references[0].scaledPower[k] = power0 * scale;
    references[1].scaledPower[k] = power1 * scale;

    const Bin first = std::conj(block.spectrum[0][k]);
    const Bin second = std::conj(block.spectrum[1][k]);
    references[0].decorrelated[k] = first - product(factor * cross / (power1 + 1e-10F), second);
    references[1].decorrelated[k] = second - product(factor * cross / (power0 + 1e-10F), first);
  }
}

void EchoCanceller::checkHealth() noexcept {
  covarianceEnergy = filters[0].posterior.square().mean() + filters[1].posterior.square().mean();
  if (!converged) converged = isSettled();
  // Louder than the microphone: worse than no filter at all.
  if (converged && energy(error_) > blockEnergy + 70.0F) setup();
}

bool EchoCanceller::isSettled() const noexcept {
  if ((updatePower.abs() <= 1e-5F).all()) return false;  // silence proves nothing
  const auto settled = (updatePower < settings_.updateThreshold).count();
  return static_cast<float>(settled) > std::round(static_cast<float>(blockLength_) * 0.95F);
}

}  // namespace vellumic
