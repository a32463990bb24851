#include "resample/CDSPFIRFilter.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <mutex>
#include <numeric>

#include "resample/KaiserWindow.h"

namespace vellumic::resample {
namespace {

double slopeOf(const FilterRequest& request) {
  return request.frequency * request.transitionBand / 100.0;
}

// Odd, so that the middle tap lies in the branch that lines up with a halving of the rate.
int delayFor(const FilterRequest& request) {
  const double half = KaiserWindow::halfLength(request.attenuation, slopeOf(request));
  return static_cast<int>(std::ceil(half)) | 1;
}

// Blocks of about a third of a branch: shorter ones multiply more spectra, longer ones wait longer.
int blockBitsFor(int taps, int branches) {
  const unsigned third = static_cast<unsigned>(taps / branches / 3);
  return std::max(CDSPRealFFT::minBlockBits, static_cast<int>(std::bit_width(third)) - 1);
}

std::vector<double> designKernel(const FilterRequest& request, int delay) {
  const KaiserWindow window(request.attenuation);
  const double cutoff = request.frequency - 0.5 * slopeOf(request);
  std::vector<double> kernel(static_cast<std::size_t>(2 * delay + 1));
  for (int n = -delay; n <= delay; ++n) {
    kernel[static_cast<std::size_t>(n + delay)] = sinc(cutoff * n) * window(n / (delay + 1.0));
  }
  const double scale = request.gain / std::accumulate(kernel.begin(), kernel.end(), 0.0);
  for (double& tap : kernel) tap *= scale;
  return kernel;
}

struct Cache {
  struct Entry {
    FilterRequest request;
    std::shared_ptr<const CDSPFIRFilter> filter;
  };
  std::mutex mutex;
  std::vector<Entry> entries;  // the longest unused first
};

Cache& cache() {
  static Cache instance;
  return instance;
}

}  // namespace

std::shared_ptr<const CDSPFIRFilter> CDSPFIRFilter::get(const FilterRequest& request) {
  const std::scoped_lock lock(cache().mutex);
  auto& entries = cache().entries;
  const auto found = std::ranges::find(entries, request, &Cache::Entry::request);
  if (found != entries.end()) {
    std::rotate(found, found + 1, entries.end());
    return entries.back().filter;
  }
  auto filter = std::make_shared<const CDSPFIRFilter>(request);
  if (entries.size() >= cacheLimit) {
    const auto unused = std::ranges::find_if(
        entries, [](const Cache::Entry& entry) { return entry.filter.use_count() == 1; });
    if (unused == entries.end()) return filter;
    entries.erase(unused);
  }
  entries.push_back({request, filter});
  return filter;
}

int CDSPFIRFilter::cachedCount() {
  const std::scoped_lock lock(cache().mutex);
  return static_cast<int>(cache().entries.size());
}

CDSPFIRFilter::CDSPFIRFilter(const FilterRequest& request)
    : delay_(delayFor(request)), transform_(blockBitsFor(2 * delay_ + 1, request.branches)) {
  const std::vector<double> kernel = designKernel(request, delay_);
  const int taps = static_cast<int>(kernel.size());
  const int block = blockLength();
  const int tapsPerBlock = block * request.branches;
  blocks_ = (taps + tapsPerBlock - 1) / tapsPerBlock;
  spectra_.resize(static_cast<std::size_t>(request.branches * blocks_ * 2 * block));

  const std::vector<double> zeros(static_cast<std::size_t>(block));
  std::vector<double> part(static_cast<std::size_t>(block));
  double* spectrum = spectra_.data();
  for (int branch = 0; branch < request.branches; ++branch) {
    for (int first = 0; first < taps; first += tapsPerBlock, spectrum += 2 * block) {
      for (int n = 0; n < block; ++n) {
        const int tap = first + n * request.branches + branch;
        part[static_cast<std::size_t>(n)] =
            tap < taps ? -kernel[static_cast<std::size_t>(tap)] / block : 0.0;
      }
      transform_->forward(part.data(), zeros.data(), spectrum);
    }
  }
}

}  // namespace vellumic::resample
