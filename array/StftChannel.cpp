#include "array/StftChannel.h"

#include <algorithm>

namespace vellumic {
namespace {

constexpr float twoPi = 6.2831855F;

// 0.5 * (1 - cos(2 pi i / period)), i from `first`.
Eigen::ArrayXf hann(int count, int first, int period) {
  const float reciprocal = 1.0F / static_cast<float>(period);
  const auto index = Eigen::ArrayXf::LinSpaced(count, static_cast<float>(first),
                                               static_cast<float>(first + count - 1));
  return 0.5F * (1.0F - (twoPi * index * reciprocal).cos());
}

void moveLeft(Eigen::ArrayXf& buffer, int distance) {
  std::copy(buffer.data() + distance, buffer.data() + buffer.size(), buffer.data());
}

}  // namespace

StftChannel::StftChannel(int requestedFrameSize) {
  const bool allowed = std::find(allowedFrameSizes.begin(), allowedFrameSizes.end(),
                                 requestedFrameSize) != allowedFrameSizes.end();
  frameSize = allowed ? requestedFrameSize : 512;
  hopSize = frameSize / 4;
  overlapSize = frameSize - hopSize;
  binCount = frameSize / 2 + 1;
  initChannel();
}

bool StftChannel::initChannel() {
  if (overlapPercent == 50) {
    analysisWindow = hann(frameSize, 1, frameSize + 1);  // symmetric, its zero ends dropped
    synthesisWindow.setConstant(frameSize,
                                static_cast<float>(frameSize) * 0.5F / analysisWindow.sum());
  } else {
    analysisWindow = hann(frameSize, 0, frameSize);
    synthesisWindow = analysisWindow * 0.6666667F;
  }
  timeBuffer.setZero(frameSize);
  inputBuffer.setZero(frameSize);
  outputBuffer.setZero(frameSize);
  fft.prepare(frameSize);
  return true;
}

void StftChannel::analyzeFrame(const ConstView<Eigen::ArrayXf>& samples,
                               Eigen::Ref<Eigen::ArrayXcf> spectrum) noexcept VELLUMIC_NONBLOCKING {
  moveLeft(inputBuffer, hopSize);
  inputBuffer.tail(hopSize) = samples.head(hopSize);
  whole(timeBuffer) = inputBuffer * analysisWindow;
  fft.forward(timeBuffer.data(), spectrum.data());
}

void StftChannel::synthesizeFrame(const ConstView<Eigen::ArrayXcf>& spectrum,
                                  Eigen::Ref<Eigen::ArrayXf> samples) noexcept
    VELLUMIC_NONBLOCKING {
  fft.inverse(spectrum.data(), timeBuffer.data());
  outputBuffer += synthesisWindow * timeBuffer;
  samples = outputBuffer.head(samples.size());
  moveLeft(outputBuffer, hopSize);
  outputBuffer.tail(hopSize).setZero();
}

}  // namespace vellumic
