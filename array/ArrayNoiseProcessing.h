// The short-time spectral chain: one hop of all microphones in, one hop of enhanced mono out.
//
// Frames every microphone, combines the spectra (BeamformerAdaptive), suppresses noise
// (NoisePostfilter) and resynthesizes by overlap-add. With frames of 512 at 16 kHz: hops of 128,
// 257 bins, 125 frames a second, a delay of 384 samples. At start three silent hops come out.
//
// A bin that is not finite, or of a power above 1e20, counts as 0 on the way into the beamformer
// and out of it: broken samples are over with the frames that hold them.
//
// Threads: construction, assignment, init and applyParameters allocate and need the audio thread
// kept away; process, apply and adopt are for the audio thread.
#pragma once

#include <memory>
#include <vector>

#include "array/AlgorithmBase.h"
#include "array/BeamformerAdaptive.h"
#include "array/NoisePostfilter.h"
#include "array/StftChannel.h"
#include "parameters/StageSettings.h"

namespace vellumic {

class ArrayNoiseProcessing final : public RealAlgorithm {
 public:
  // At least two microphones. frameSize as StftChannel takes it; the time constants assume 16 kHz.
  explicit ArrayNoiseProcessing(int channelCount = 2, int frameSize = 512);

  // Clears framing and spectra; with resetChildren also beamformer and postfilter.
  bool init(bool resetChildren) override;

  // input: hopSize rows x channelCount columns, any outer stride. output: hopSize; may be the
  // first column of input.
  void process(const Input& input, Output output) noexcept VELLUMIC_NONBLOCKING override;

  // All settings of the stages, prepared and adopted at once; off the audio path.
  void applyParameters(const BeamformerSettings& beam, const NoiseEstimatorSettings& noise,
                       const SpectralGainSettings& gain);

  // The same in parts, on the audio thread: numbers are copied, a history built elsewhere as
  // NoiseHistory(binCount, windowFrames) is exchanged for the present one. Adopt first, then apply.
  void apply(const BeamformerSettings& settings) noexcept VELLUMIC_NONBLOCKING;
  void apply(const SpectralGainSettings& settings) noexcept VELLUMIC_NONBLOCKING;
  void apply(const NoiseEstimatorSettings& settings, bool reset) noexcept VELLUMIC_NONBLOCKING;
  void adopt(std::unique_ptr<NoiseHistory>& prepared) noexcept VELLUMIC_NONBLOCKING;

  bool beamformerEnabled = true;  // off: the first microphone's spectrum goes on
  bool postfilterEnabled = true;
  std::int32_t frameSize = 512;
  std::int32_t hopSize = 128;
  std::int32_t overlapPercent = 75;
  std::int32_t binCount = 257;
  std::int32_t channelCount = 2;
  Eigen::ArrayXcf beamformed, enhanced;  // binCount, after each stage
  Eigen::ArrayXXcf spectra;              // binCount x channelCount, the current frame
  bool processingEnabled = true;         // off: the first microphone passes through, no state moves
  std::vector<StftChannel> channels;
  BeamformerAdaptive beamformer;
  NoisePostfilter postfilter;
};

}  // namespace vellumic
