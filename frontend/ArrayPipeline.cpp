#include "frontend/ArrayPipeline.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <numeric>
#include <span>
#include <utility>

#include "array/ArrayNoiseProcessing.h"
#include "frontend/BankPair.h"
#include "frontend/BoundedSample.h"
#include "frontend/MicHighPass.h"

namespace vellumic {

ArrayPipeline::ArrayPipeline(LoopbackOpener opener)
    : echo(std::move(opener)),
      block_(std::make_unique<BlockPart>(record_.settings.blockSize, 2,
                                         record_.settings.delaySearchBlocks)),
      banks_(std::make_unique<BankPair>(2, 1, 1)),
      noise_(std::make_unique<ArrayNoiseProcessing>(2, PipelineHandover::noiseFrameSize)) {
  bandTestFilter_.set(BiquadType::HighPass, 800.0F, 1.0F, 0.7F, 16000.0F);
  record_.highPass = designMicHighPass(record_.settings.internalRate);
  apply(record_, false);
}

ArrayPipeline::~ArrayPipeline() = default;

void ArrayPipeline::processFrames(float* frames, std::size_t width,
                                  std::size_t count) noexcept VELLUMIC_NONBLOCKING {
  processRuns({frames, width, 0, micCount(), nullptr}, count);
}

void ArrayPipeline::processFrames12(float* frames, std::size_t width,
                                    std::size_t count) noexcept VELLUMIC_NONBLOCKING {
  processRuns({frames, width, 0, 2, frames + 2}, count);
}

void ArrayPipeline::processRuns(Run all, std::size_t count) noexcept {
  if (!running()) return;
  const auto longest = static_cast<std::size_t>(banks_->longestRun());
  while (count > 0) {
    const std::size_t length = std::min(count, longest);
    all.count = static_cast<int>(length);
    process(all);
    all.frames += length * all.width;
    if (all.references != nullptr) all.references += length * all.width;
    count -= length;
  }
}

void ArrayPipeline::process(const Run& run) noexcept {
  const auto width = static_cast<std::ptrdiff_t>(run.width);
  if (banks_->inputBank.push({run.frames, width, 1, run.microphones}, run.count, arrivals_) > 0)
    collect(run);
  deliver(run);
}

// Internal samples go in at writeIndex of the block under collection, and out at the same place of
// the finished one. A frame takes one of them at most: what a device slower than the internal rate
// brings beyond that stays queued.
void ArrayPipeline::collect(const Run& run) noexcept {
  const auto arrived = std::span(arrivals_).first(static_cast<std::size_t>(run.count));
  const int total = static_cast<int>(std::ranges::count_if(arrived, std::identity{}));
  for (int done = 0; done < total;) {
    const int count =
        std::min({total - done, hopSize - writeIndex_ % hopSize, block_->blockSize - writeIndex_});
    takeMicrophones(done, count);
    if (!record_.useLoopback) takeReferences(run, done, count);
    sendOutput(done, count);
    writeIndex_ += count;
    done += count;
    finishHop();
  }
}

void ArrayPipeline::takeMicrophones(int first, int count) noexcept {
  BlockPart& block = *block_;
  banks_->inputBank.pop(block.micRun, count, first);
  block.micDelay.exchange(block.micRun, count, first);
  if (micHighPassEnabled) runHighPass(block.micHighPass, block.micRun, first, count);
  for (std::size_t c = 0; c < block.micRun.size(); ++c)
    std::copy_n(block.micRun[c].data() + first, count,
                &block.micBlock(writeIndex_, static_cast<Eigen::Index>(c)));
}

// Each internal sample has the references of the frame that brought it.
void ArrayPipeline::takeReferences(const Run& run, int first, int count) noexcept {
  Eigen::ArrayXXf& matrix = block_->referenceMatrix;
  if (run.references == nullptr) {
    matrix.middleRows(writeIndex_, count).setZero();
    return;
  }
  int sample = -first;  // of those asked for
  for (std::size_t n = 0; sample < count && n < static_cast<std::size_t>(run.count); ++n) {
    if (arrivals_[n] == 0) continue;
    if (sample >= 0)
      for (Eigen::Index r = 0; r < 2; ++r)
        matrix(writeIndex_ + sample, r) =
            soundSample(run.references[n * run.width + static_cast<std::size_t>(r)]);
    ++sample;
  }
}

void ArrayPipeline::sendOutput(int first, int count) noexcept {
  auto rows = block_->outputBlock.middleRows(writeIndex_, count);
  if (levelControl_.levelControlEnabled) {
    const auto samples = std::span(rows.data(), static_cast<std::size_t>(count));
    std::ranges::transform(samples, samples.begin(),
                           [](float sample) { return soundSample(sample); });
    levelControl_.process(samples);
    for (Eigen::Index c = 1; c < rows.cols(); ++c) rows.col(c) = rows.col(0);
  }
  banks_->outputBank.setAlike(outputIsOneSignal(count));
  banks_->outputBank.push({rows.data(), 1, rows.outerStride(), static_cast<int>(rows.cols())},
                          count, std::span(played_).subspan(static_cast<std::size_t>(first)));
}

// The array stages end in one signal, which every channel gets.
bool ArrayPipeline::isMono() const noexcept {
  return noise_->beamformerEnabled || noise_->postfilterEnabled;
}

// So does the level control, once the channels' own sound has left the converters.
bool ArrayPipeline::outputIsOneSignal(int count) noexcept {
  const int memory = banks_->outputBank.memory();
  if (isMono())
    alikeSamples_ = memory;
  else if (levelControl_.levelControlEnabled)
    alikeSamples_ = std::min(alikeSamples_ + count, memory);
  else
    alikeSamples_ = 0;
  return alikeSamples_ >= memory;
}

void ArrayPipeline::finishHop() noexcept {
  if (writeIndex_ == block_->blockSize) {
    writeIndex_ = 0;
    sliceIndex_ = 0;
    processBlock();
  }
  if (writeIndex_ % hopSize == 0) processSlice();
}

// A frame gets the oldest output sample that is there by its time, and silence before the first.
void ArrayPipeline::deliver(const Run& run) noexcept {
  BlockPart& block = *block_;
  banks_->outputBank.pop(block.outputRun, planDelivery(run.count));
  const auto channels = static_cast<std::size_t>(run.microphones);
  const bool mono = isMono() || banks_->outputBank.alike();
  for (std::size_t c = 0; c < (mono ? 1 : channels); ++c) {
    const float *microphone = block.micRun[c].data(), *output = block.outputRun[c].data();
    float& inHand = block.frameSample[c];
    float* target = run.frames + c;
    for (int n = 0; n < run.count; ++n, target += run.width) {
      const Delivery delivery = deliveries_[static_cast<std::size_t>(n)];
      if (arrivals_[static_cast<std::size_t>(n)] > 0) inHand = *microphone++;
      if (delivery == Delivery::fresh) inHand = *output++;
      *target = delivery == Delivery::silence ? 0.0F : inHand;
    }
  }
  if (!mono) return;
  std::fill(block.frameSample.begin() + 1, block.frameSample.end(), block.frameSample.front());
  float* frame = run.frames;
  for (int n = 0; n < run.count; ++n, frame += run.width)
    std::fill_n(frame + 1, channels - 1, frame[0]);
}

// What each frame of the run gets; returns how many output samples they take. An output ring that
// ran empty repeats the sample in hand: the microphones', if this frame brought one, else the last
// output.
int ArrayPipeline::planDelivery(int count) noexcept {
  const auto arrived = std::span(arrivals_).first(static_cast<std::size_t>(count));
  const auto internal = std::ranges::count_if(arrived, std::identity{});
  int waiting = banks_->outputBank.available() -
                std::accumulate(played_.begin(), played_.begin() + internal, 0);
  int taken = 0;
  const int* played = played_.data();
  for (std::size_t n = 0; n < arrived.size(); ++n) {
    if (arrived[n] > 0) {
      outputReady_ = *played > 0;
      waiting += *played++;
    }
    deliveries_[n] = !outputReady_ ? Delivery::silence
                     : waiting > 0 ? Delivery::fresh
                                   : Delivery::repeat;
    if (deliveries_[n] != Delivery::fresh) continue;
    --waiting;
    ++taken;
  }
  return taken;
}

}  // namespace vellumic
