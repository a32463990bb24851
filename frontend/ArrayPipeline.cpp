#include "frontend/ArrayPipeline.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "array/ArrayNoiseProcessing.h"
#include "frontend/BankPair.h"
#include "frontend/BoundedSample.h"
#include "frontend/MicHighPass.h"

namespace vellumic {

ArrayPipeline::ArrayPipeline(LoopbackOpener opener)
    : echo(std::move(opener)),
      block_(std::make_unique<BlockPart>(record_.settings.blockSize, 2)),
      banks_(std::make_unique<BankPair>(2, 1, 1)),
      noise_(std::make_unique<ArrayNoiseProcessing>(2, PipelineHandover::noiseFrameSize)) {
  bandTestFilter_.set(BiquadType::HighPass, 800.0F, 1.0F, 0.7F, 16000.0F);
  record_.highPass = designMicHighPass(record_.settings.internalRate);
  apply(record_, false);
}

ArrayPipeline::~ArrayPipeline() = default;

void ArrayPipeline::processFrame(float* frame) noexcept VELLUMIC_NONBLOCKING {
  if (!running()) return;
  run({frame, static_cast<std::size_t>(micCount())}, {});
}

void ArrayPipeline::processFrame12(float* frame) noexcept VELLUMIC_NONBLOCKING {
  if (!running()) return;
  std::array<float, PipelineHandover::maxMicrophones> local{frame[0], frame[1]};
  run(std::span(local).first(static_cast<std::size_t>(micCount())),
      {.left = frame[2], .right = frame[3]});
  frame[0] = local[0];
  frame[1] = local[1];
}

void ArrayPipeline::run(std::span<float> microphones, References references) noexcept {
  std::array<float, PipelineHandover::maxMicrophones> input;
  std::transform(microphones.begin(), microphones.end(), input.begin(), soundSample);
  if (banks_->input.pushFrame(std::span(input).first(microphones.size()))) collect(references);
  deliver(microphones);
}

// One internal sample: in at writeIndex of the block under collection, out at the same place of
// the finished one. A device slower than the internal rate gives several; the rest stays queued.
void ArrayPipeline::collect(References references) noexcept {
  BlockPart& block = *block_;
  takeMicrophones();
  if (!record_.useLoopback) {
    block.referenceMatrix(writeIndex_, 0) = soundSample(references.left);
    block.referenceMatrix(writeIndex_, 1) = soundSample(references.right);
  }
  sendOutput();
  if (++writeIndex_ == block.blockSize) {
    writeIndex_ = 0;
    sliceIndex_ = 0;
    processBlock();
  }
  if ((writeIndex_ & (hopSize - 1)) == 0) processSlice();
}

void ArrayPipeline::takeMicrophones() noexcept {
  BlockPart& block = *block_;
  banks_->input.pop(block.frameSample, 1);
  block.micDelay.push(block.frameSample, 1);
  block.micDelay.pop(block.frameSample, 1);
  for (std::size_t c = 0; c < block.frameSample.size(); ++c) {
    float& sample = block.frameSample[c][0];
    if (micHighPassEnabled) {
      BiquadSection& section = block.micHighPass[c];
      section.process(sample);
      // Far below the internal rate of 300 Hz the filter is unstable; it must not stay so.
      if (!isSound(sample)) section.z1 = section.z2 = sample = 0.0F;
    }
    block.micBlock(writeIndex_, static_cast<Eigen::Index>(c)) = sample;
  }
}

void ArrayPipeline::sendOutput() noexcept {
  BlockPart& block = *block_;
  auto row = block.outputBlock.row(writeIndex_);
  if (levelControl_.levelControlEnabled) {
    float levelOutput = 0.0F;
    levelControl_.process(soundSample(row(0)), levelOutput);
    row.setConstant(levelOutput);
  }
  for (std::size_t c = 0; c < block.outputColumn.size(); ++c)
    block.outputColumn[c] = soundSample(row(static_cast<Eigen::Index>(c)));
  outputReady_ = banks_->output.pushFrame(block.outputColumn);
}

// An output ring that ran empty repeats the last sample.
void ArrayPipeline::deliver(std::span<float> microphones) noexcept {
  if (!outputReady_) {
    std::fill(microphones.begin(), microphones.end(), 0.0F);
    return;
  }
  ChannelArrays& sample = block_->frameSample;
  banks_->output.pop(sample, 1);
  const bool mono = noise_->beamformerEnabled || noise_->postfilterEnabled;
  for (std::size_t c = 0; c < microphones.size(); ++c) microphones[c] = sample[mono ? 0 : c][0];
}

}  // namespace vellumic
