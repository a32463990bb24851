#include "tools/quality/Convolution.h"

#include <algorithm>
#include <complex>
#include <unsupported/Eigen/FFT>

namespace vellumic::quality {
namespace {

using Spectrum = std::vector<std::complex<float>>;

std::size_t transformSize(std::size_t taps) {
  std::size_t size = 1024;
  while (size < 4 * taps) size *= 2;
  return size;
}

}  // namespace

Channels convolve(std::span<const Signal> inputs, std::span<const Channels> responses) {
  const std::size_t length = inputs.front().size(), taps = responses.front().front().size();
  const std::size_t size = transformSize(taps), step = size - taps + 1;
  Eigen::FFT<float> fft;
  fft.SetFlag(Eigen::FFT<float>::HalfSpectrum);

  std::vector<std::vector<Spectrum>> filters(responses.size());
  Signal block;
  for (std::size_t o = 0; o < responses.size(); ++o)
    for (const Signal& response : responses[o]) {
      block.assign(response.begin(), response.end());
      block.resize(size);
      fft.fwd(filters[o].emplace_back(), block);
    }

  Channels outputs(responses.size(), Signal(length));
  Spectrum spectrum;
  std::vector<Spectrum> sums(responses.size());
  Signal time;
  for (std::size_t start = 0; start < length; start += step) {
    for (Spectrum& sum : sums) sum.assign(size / 2 + 1, {});
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      for (std::size_t n = 0; n < size; ++n) {
        const std::size_t at = start + n + 1 - taps;  // wraps below zero
        block[n] = at < length ? inputs[i][at] : 0.0F;
      }
      fft.fwd(spectrum, block);
      for (std::size_t o = 0; o < sums.size(); ++o)
        for (std::size_t k = 0; k < spectrum.size(); ++k)
          sums[o][k] += spectrum[k] * filters[o][i][k];
    }
    const std::size_t count = std::min(step, length - start);
    for (std::size_t o = 0; o < sums.size(); ++o) {
      fft.inv(time, sums[o]);
      std::copy_n(time.begin() + static_cast<std::ptrdiff_t>(taps - 1), count,
                  outputs[o].begin() + static_cast<std::ptrdiff_t>(start));
    }
  }
  return outputs;
}

}  // namespace vellumic::quality
