#include "frontend/BlockPart.h"

#include <algorithm>
#include <cstddef>

#include "frontend/ResamplerBank.h"

namespace vellumic {
namespace {

constexpr int delayCapacity = 16000;  // samples
constexpr int startDelay = 1024;      // room for a reference that comes late

}  // namespace

BlockPart::BlockPart(int samples, int microphones, int delaySearchBlocks)
    : blockSize(samples),
      micCount(microphones),
      frameSample(static_cast<std::size_t>(microphones)),
      micRun(frameSample.size(), std::vector<float>(ResamplerBank::longestRun)),
      outputRun(micRun),
      micHighPass(static_cast<std::size_t>(microphones)),
      micBlock(Eigen::ArrayXXf::Zero(samples, microphones)),
      outputBlock(Eigen::ArrayXXf::Zero(samples, microphones)),
      referenceMatrix(Eigen::ArrayXXf::Zero(samples, 2)),
      referenceBlock(2, std::vector<float>(static_cast<std::size_t>(samples))),
      references(samples) {
  micDelay.setDelay(startDelay);
  micDelay.resize(delayCapacity, microphones);
  cancellers.reserve(static_cast<std::size_t>(microphones));
  for (int i = 0; i < microphones; ++i) cancellers.emplace_back(samples);
  delayEstimator.setWindowSize(delaySearchBlocks * samples);
  delayEstimator.rebuild();
}

void BlockPart::carryOver(const BlockPart& old) noexcept VELLUMIC_NONBLOCKING {
  const auto shared = static_cast<std::size_t>(std::min(micCount, old.micCount));
  for (std::size_t i = 0; i < shared; ++i) {
    cancellers[i].carryOver(old.cancellers[i]);
    micHighPass[i].z1 = old.micHighPass[i].z1;
    micHighPass[i].z2 = old.micHighPass[i].z2;
    frameSample[i] = old.frameSample[i];
  }
}

void BlockPart::setHighPass(const BiquadCoefficients& design,
                            float sampleRate) noexcept VELLUMIC_NONBLOCKING {
  for (BiquadSection& section : micHighPass) {
    section.sampleRate = sampleRate;
    section.a1 = design.a1;
    section.a2 = design.a2;
    section.b0 = design.b0;
    section.b1 = design.b1;
    section.b2 = design.b2;
  }
}

}  // namespace vellumic
