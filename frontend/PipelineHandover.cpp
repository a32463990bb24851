#include "frontend/PipelineHandover.h"

#include <memory>

#include "array/ArrayNoiseProcessing.h"
#include "frontend/BankPair.h"
#include "frontend/BlockPart.h"
#include "frontend/MicHighPass.h"

namespace vellumic {

PipelineHandover::PipelineHandover() {
  record_.highPass = designMicHighPass(record_.settings.internalRate);
}

PipelineHandover::~PipelineHandover() = default;

const PipelineSettings& PipelineHandover::build(RawView raw, const StreamFacts& stream) {
  freeRetired();
  const PipelineSettings before = record_.settings;
  PipelineSettings& now = record_.settings;
  now.update(raw, stream);

  if (now.blockSize != before.blockSize || now.delaySearchBlocks != before.delaySearchBlocks)
    stageBlock();
  if (now.deviceRate != bankDeviceRate_ || now.internalRate != bankInternalRate_)
    stageBanks(now.deviceRate, now.internalRate);
  retuneNoise(before);
  record_.highPass = designMicHighPass(now.internalRate);
  recordWaits_ = true;
  return now;
}

void PipelineHandover::prepareStream(int blockSize, int channels, bool fourChannelForm) {
  freeRetired();
  takeBlockSize(blockSize);
  if (takeChannels(channels)) stageNoise();
  stageBlock();
  if (fourChannelForm) {
    record_.useLoopback = false;
    record_.processingEnabled = false;
  }
}

bool PipelineHandover::setChannels(int channels) {
  if (!takeChannels(channels)) return false;
  freeRetired();
  stageNoise();
  stageBlock();
  return true;
}

void PipelineHandover::takeBlockSize(int blockSize) noexcept {
  int& present = record_.settings.blockSize;
  present = acceptedBlockSize(static_cast<float>(blockSize), present);
}

bool PipelineHandover::takeChannels(int channels) noexcept {
  if (channels < 2 || channels > maxMicrophones) return false;
  channels_ = channels;
  return true;
}

// A new block part parks the banks, so that their filters start over with it.
void PipelineHandover::stageBlock() {
  const PipelineSettings& now = record_.settings;
  block_.stage(std::make_unique<BlockPart>(now.blockSize, channels_, now.delaySearchBlocks));
  stageBanks(parkedRate, parkedRate);
  recordWaits_ = true;
}

void PipelineHandover::stageBanks(int deviceRate, int internalRate) {
  banks_.stage(std::make_unique<BankPair>(channels_, deviceRate, internalRate));
  bankDeviceRate_ = deviceRate;
  bankInternalRate_ = internalRate;
}

// Comes fully tuned, so that what waited for the present one is void. A fresh block comes with it.
void PipelineHandover::stageNoise() {
  auto noise = std::make_unique<ArrayNoiseProcessing>(channels_, noiseFrameSize);
  const PipelineSettings& now = record_.settings;
  noise->applyParameters(now.beamformer, now.noiseEstimator, now.spectralGain);
  noise_.stage(std::move(noise));
  noiseHistory_.withdraw();
  noiseResetRequested_ = false;
  record_.processingEnabled = true;
}

// Any audible change of the noise estimator starts it over, with a history of its own length.
void PipelineHandover::retuneNoise(const PipelineSettings& before) {
  const PipelineSettings& now = record_.settings;
  NoiseEstimatorSettings heard = before.noiseEstimator;
  heard.smoothingHalfWidth = now.noiseEstimator.smoothingHalfWidth;  // which nobody can hear
  if (now.noiseEstimator == heard) return;
  if (ArrayNoiseProcessing* fresh = noise_.staged()) {
    fresh->applyParameters(now.beamformer, now.noiseEstimator, now.spectralGain);
    return;
  }
  noiseHistory_.stage(
      std::make_unique<NoiseHistory>(noiseFrameSize / 2 + 1, now.noiseEstimator.windowFrames));
  noiseResetRequested_ = true;
}

void PipelineHandover::freeRetired() noexcept {
  block_.freeRetired();
  banks_.freeRetired();
  noise_.freeRetired();
  noiseHistory_.freeRetired();
}

}  // namespace vellumic
