// The block and hop work of the array pipeline, and what it takes from the hand-over.
#include <algorithm>
#include <cstddef>

#include "array/ArrayNoiseProcessing.h"
#include "frontend/ArrayPipeline.h"
#include "frontend/BankPair.h"
#include "spectra/ArrayViews.h"

namespace vellumic {
namespace {

constexpr int mostBandTestSamples = 102400;  // 100 passes of the usual block

float meanSquareOfFirst(const Eigen::ArrayXXf& channels) noexcept {
  return channels.col(0).square().mean();
}

}  // namespace

void ArrayPipeline::applyParameters(PipelineHandover& handover, RawView raw,
                                    const StreamFacts& stream) {
  handover.build(raw, stream);
  adopt(handover);
}

void ArrayPipeline::adopt(PipelineHandover& handover) noexcept VELLUMIC_NONBLOCKING {
  if (!handover.recordWaits_) return;
  if (handover.block_.exchange(block_)) {
    block_->carryOver(*handover.block_.retired());
    writeIndex_ = 0;
    echo.freshStream();
  }
  handover.banks_.exchange(banks_);
  handover.noise_.exchange(noise_);
  handover.noiseHistory_.handTo(*noise_);
  apply(handover.record_, handover.noiseResetRequested_);
  handover.noiseResetRequested_ = false;
  handover.recordWaits_ = false;
  ++probe_.adoptions;
  noteEchoState();
}

void ArrayPipeline::apply(const PipelineRecord& record, bool resetNoise) noexcept {
  record_ = record;
  const PipelineSettings& settings = record_.settings;
  block_->references.apply(settings.echo);
  for (EchoCanceller& canceller : block_->cancellers) canceller.apply(settings.echo);
  block_->setHighPass(record_.highPass, static_cast<float>(settings.internalRate));
  echo.loopback.setTargetRate(settings.internalRate);

  noise_->beamformerEnabled = settings.beamformerEnabled;
  noise_->postfilterEnabled = settings.postfilterEnabled;
  noise_->processingEnabled = record_.processingEnabled;
  noise_->apply(settings.beamformer);
  noise_->apply(settings.spectralGain);
  noise_->apply(settings.noiseEstimator, resetNoise);
  levelControl_.apply(settings.level);
  // While the pipeline is off nobody reads the references.
  if (!running()) echo.skip();
}

void ArrayPipeline::processBlock() noexcept VELLUMIC_NONBLOCKING {
  BlockPart& block = *block_;
  const PipelineSettings& settings = record_.settings;
  probe_.microphoneEnergy = meanSquareOfFirst(block.micBlock);
  ++probe_.blocks;
  if (settings.bandTest) {
    runBandTest();
    echo.skip();
  } else if (!settings.echoCancelEnabled || settings.echoBypass) {
    echo.skip();
  } else if (echo.run(block, {.useLoopback = record_.useLoopback,
                              .referenceMonitor = settings.referenceMonitor})) {
    ++probe_.cancelledBlocks;
  }
  probe_.residualEnergy = meanSquareOfFirst(block.micBlock);
  probe_.referenceEnergy = block.referenceMatrix.rowwise().sum().square().mean();
  noteEchoState();
  whole(block.outputBlock) = block.micBlock;
}

// The same two sections run over the block again and again, with their memories carried along. A
// long block has fewer passes, so that its call stays within some milliseconds.
void ArrayPipeline::runBandTest() noexcept {
  Eigen::ArrayXXf& samples = block_->micBlock;
  const int passes =
      std::min(record_.settings.bandTestPasses, mostBandTestSamples / block_->blockSize);
  for (int pass = 0; pass < passes; ++pass)
    for (Eigen::Index j = 0; j < samples.rows(); ++j)
      bandTestFilter_.process(samples(j, 0), samples(j, 1));
}

// The enhanced signal takes the place of channel 0; the other channels stay as they are.
void ArrayPipeline::processSlice() noexcept VELLUMIC_NONBLOCKING {
  Eigen::ArrayXXf& samples = block_->outputBlock;
  const Eigen::Index first = static_cast<Eigen::Index>(sliceIndex_) * hopSize;
  ++sliceIndex_;
  if (first + hopSize > samples.rows()) return;
  noise_->process(samples.middleRows(first, hopSize), samples.col(0).segment(first, hopSize));
  probe_.signalActive = noise_->beamformer.signalActive;
  probe_.levelGain = levelControl_.levelStage.gain * levelControl_.limiterStage.gain;
}

void ArrayPipeline::noteEchoState() noexcept {
  const EchoCanceller& first = block_->cancellers.front();
  probe_.lastLag = echo.lastLag;
  probe_.delayLocked = echo.delayLocked;
  probe_.loopbackDelay = echo.loopback.delay();
  probe_.microphoneDelay = block_->micDelay.delay();
  probe_.streaming = echo.loopback.streaming();
  probe_.covarianceEnergy = first.covarianceEnergy;
  probe_.converged = first.converged;
}

}  // namespace vellumic
