#include "array/ArrayNoiseProcessing.h"

#include <algorithm>

#include "array/kernels/Beam.h"

namespace vellumic {
namespace {

constexpr float internalRate = 16000.0F;  // Hz; other rates stretch the time constants

// Of one bin: a thousand times what frames of 512 samples reach at 120 dB above full scale. The
// averages forget it in seconds, and their ratios stay within float.
constexpr float largestPower = 1e20F;

// What is not finite, or absurdly large, must not stay in the averages of the next stage: broken
// samples, and bins that the beamformer could not solve.
void zeroWhatIsNotSound(Eigen::Ref<Eigen::ArrayXcf> spectrum) noexcept {
  beamKernels().zeroAbove(reinterpret_cast<float*>(spectrum.data()),
                          static_cast<int>(spectrum.size()), largestPower);
}

}  // namespace

ArrayNoiseProcessing::ArrayNoiseProcessing(int microphones, int requestedFrameSize)
    : channelCount(std::max(microphones, 2)),
      channels(static_cast<std::size_t>(channelCount), StftChannel(requestedFrameSize)) {
  frameSize = channels.front().frameSize;
  hopSize = channels.front().hopSize;
  binCount = channels.front().binCount;
  postfilter.setSize(frameSize / 2);
  beamformer =
      BeamformerAdaptive(channelCount, binCount, internalRate / static_cast<float>(hopSize));
  init(false);
}

bool ArrayNoiseProcessing::init(bool resetChildren) {
  spectra.setZero(binCount, channelCount);
  beamformed.setZero(binCount);
  enhanced.setZero(binCount);
  bool succeeded = true;
  for (StftChannel& channel : channels) succeeded = channel.initChannel() && succeeded;
  if (!resetChildren) return succeeded;
  succeeded = beamformer.init(true) && succeeded;
  postfilter.reset();
  return succeeded;
}

void ArrayNoiseProcessing::applyParameters(const BeamformerSettings& beam,
                                           const NoiseEstimatorSettings& noise,
                                           const SpectralGainSettings& gain) {
  beamformer.apply(beam);
  postfilter.applyParameters(noise, gain);
}

void ArrayNoiseProcessing::apply(const BeamformerSettings& settings) noexcept VELLUMIC_NONBLOCKING {
  beamformer.apply(settings);
}

void ArrayNoiseProcessing::apply(const SpectralGainSettings& settings) noexcept
    VELLUMIC_NONBLOCKING {
  postfilter.spectralGain.apply(settings);
}

void ArrayNoiseProcessing::apply(const NoiseEstimatorSettings& settings,
                                 bool reset) noexcept VELLUMIC_NONBLOCKING {
  postfilter.noiseEstimator.apply(settings, reset);
}

void ArrayNoiseProcessing::adopt(std::unique_ptr<NoiseHistory>& prepared) noexcept
    VELLUMIC_NONBLOCKING {
  postfilter.noiseEstimator.adopt(prepared);
}

void ArrayNoiseProcessing::process(const Input& input,
                                   Output output) noexcept VELLUMIC_NONBLOCKING {
  if (!processingEnabled) {
    output = input.col(0).head(output.size());
    return;
  }
  for (Eigen::Index c = 0; c < channelCount; ++c) {
    channels[static_cast<std::size_t>(c)].analyzeFrame(input.col(c), spectra.col(c));
    zeroWhatIsNotSound(spectra.col(c));
  }

  if (beamformerEnabled)
    beamformer.process(spectra, beamformed);
  else
    whole(beamformed) = spectra.col(0);
  zeroWhatIsNotSound(beamformed);

  if (postfilterEnabled)
    postfilter.process(beamformed, enhanced);
  else
    whole(enhanced) = beamformed;
  channels.front().synthesizeFrame(enhanced, output);
}

}  // namespace vellumic
