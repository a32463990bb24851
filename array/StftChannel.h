// Framing of one channel: Hann window analysis and weighted overlap-add.
//
// A frame of `frameSize` samples moves by a quarter of its length. Analysis and synthesis together
// have unit gain when the spectrum passes unchanged: at that hop the squared windows sum to 1.5,
// which the synthesis window divides out. Delay: frameSize - hopSize samples.
//
// Threads: construction, copying and initChannel allocate; the rest is for the audio thread.
#pragma once

#include <Eigen/Core>
#include <array>
#include <cstdint>

#include "platform/Realtime.h"
#include "spectra/ArrayViews.h"
#include "spectra/Fft.h"

namespace vellumic {

struct StftChannel {
  static constexpr std::array<std::int32_t, 7> allowedFrameSizes{64,   128,  256, 512,
                                                                 1024, 2048, 4096};

  explicit StftChannel(int requestedFrameSize = 512);  // a size not in the list becomes 512

  // Sizes and clears the buffers and builds the windows for overlapPercent. Always true.
  bool initChannel();

  // samples: hopSize new ones. spectrum: binCount bins of the frame that ends with them, unscaled.
  void analyzeFrame(const ConstView<Eigen::ArrayXf>& samples,
                    Eigen::Ref<Eigen::ArrayXcf> spectrum) noexcept VELLUMIC_NONBLOCKING;

  // spectrum: binCount bins. samples: the next hopSize finished ones.
  void synthesizeFrame(const ConstView<Eigen::ArrayXcf>& spectrum,
                       Eigen::Ref<Eigen::ArrayXf> samples) noexcept VELLUMIC_NONBLOCKING;

  std::int32_t frameSize = 512;
  std::int32_t hopSize = 128;
  std::int32_t overlapSize = 384;
  std::int32_t binCount = 257;
  std::int32_t overlapPercent = 75;  // 50 selects windows for half-frame steps; nothing sets it

  Eigen::ArrayXf analysisWindow, synthesisWindow;  // frameSize each
  Eigen::ArrayXf inputBuffer;                      // the sliding frame, newest samples at its end
  Eigen::ArrayXf outputBuffer;                     // overlap-add sum, next output at its start
  Eigen::ArrayXf timeBuffer;  // windowed frame going in, inverse transform coming out
  Fft fft;
};

}  // namespace vellumic
