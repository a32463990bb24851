#include "resample/CDSPFIRFilter.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <mutex>
#include <numeric>

#include "resample/CDSPRealFFTKeeper.h"
#include "resample/KaiserWindow.h"

namespace vellumic::resample {
namespace {

using Shared = std::shared_ptr<const CDSPFIRFilter>;

// Blocks of about a third of a branch: shorter ones multiply more spectra, longer ones wait longer.
int blockBitsFor(int taps, int branches) {
  const unsigned third = static_cast<unsigned>(taps / branches / 3);
  return std::max(CDSPRealFFT::minBlockBits, static_cast<int>(std::bit_width(third)) - 1);
}

class Cache {
 public:
  Shared find(const FilterRequest& request) {
    const std::scoped_lock lock(mutex_);
    return findLocked(request);
  }

  // Another thread may have been quicker: then its filter is the one.
  Shared keep(const FilterRequest& request, Shared filter) {
    const std::scoped_lock lock(mutex_);
    if (auto kept = findLocked(request)) return kept;
    if (entries_.size() >= CDSPFIRFilter::cacheLimit) {
      const auto unused = std::ranges::find_if(
          entries_, [](const Entry& entry) { return entry.filter.use_count() == 1; });
      if (unused == entries_.end()) return filter;
      entries_.erase(unused);
    }
    entries_.push_back({request, filter});
    return filter;
  }

  int count() {
    const std::scoped_lock lock(mutex_);
    return static_cast<int>(entries_.size());
  }

 private:
  struct Entry {
    FilterRequest request;
    Shared filter;
  };

  Shared findLocked(const FilterRequest& request) {
    const auto found = std::ranges::find(entries_, request, &Entry::request);
    if (found == entries_.end()) return nullptr;
    std::rotate(found, found + 1, entries_.end());
    return entries_.back().filter;
  }

  std::mutex mutex_;
  std::vector<Entry> entries_;  // the one not asked for longest stands first
};

Cache& cache() {
  static Cache instance;
  return instance;
}

}  // namespace

Kernel designLowPass(const FilterRequest& request) {
  const double slope = request.frequency * request.transitionBand / 100.0;
  const double half = KaiserWindow::halfLength(request.attenuation, slope);
  const int periods = static_cast<int>(std::ceil((half + 1.0) / request.branches));
  const int delay = periods * request.branches - 1;
  const KaiserWindow window(request.attenuation);
  const double cutoff = request.frequency - 0.5 * slope;
  Kernel kernel{{}, delay};
  for (int n = -delay; n <= delay; ++n) {
    kernel.taps.push_back(sinc(cutoff * n) * window(n / (delay + 1.0)));
  }
  const double sum = std::accumulate(kernel.taps.begin(), kernel.taps.end(), 0.0);
  for (double& tap : kernel.taps) tap *= request.gain / sum;
  return kernel;
}

std::shared_ptr<const CDSPFIRFilter> CDSPFIRFilter::get(const FilterRequest& request) {
  return get(request, [&] { return designLowPass(request); });
}

// The design runs outside the lock: it may itself ask for filters.
std::shared_ptr<const CDSPFIRFilter> CDSPFIRFilter::get(const FilterRequest& request,
                                                        const std::function<Kernel()>& design) {
  if (auto kept = cache().find(request)) return kept;
  return cache().keep(request, std::make_shared<const CDSPFIRFilter>(design(), request.branches));
}

int CDSPFIRFilter::cachedCount() { return cache().count(); }

CDSPFIRFilter::CDSPFIRFilter(const Kernel& kernel, int branches)
    : delay_(kernel.delay),
      blockBits_(blockBitsFor(static_cast<int>(kernel.taps.size()), branches)) {
  const int taps = static_cast<int>(kernel.taps.size());
  const int block = blockLength();
  const int tapsPerBlock = block * branches;
  blocks_ = (taps + tapsPerBlock - 1) / tapsPerBlock;
  spectra_.resize(static_cast<std::size_t>(branches * blocks_ * 2 * block));

  const CDSPRealFFTKeeper transform(blockBits_);
  CDSPRealFFT::Scratch scratch(block);
  const std::vector<double> zeros(static_cast<std::size_t>(block));
  std::vector<double> part(static_cast<std::size_t>(block));
  double* spectrum = spectra_.data();
  for (int branch = 0; branch < branches; ++branch) {
    for (int first = 0; first < taps; first += tapsPerBlock, spectrum += 2 * block) {
      for (int n = 0; n < block; ++n) {
        const int tap = first + n * branches + branch;
        part[static_cast<std::size_t>(n)] =
            tap < taps ? -kernel.taps[static_cast<std::size_t>(tap)] / block : 0.0;
      }
      transform->forward(scratch, part.data(), zeros.data(), spectrum);
    }
  }
}

}  // namespace vellumic::resample
