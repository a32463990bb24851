#include "resample/CDSPRealFFTKeeper.h"

#include <array>
#include <mutex>
#include <stdexcept>

namespace vellumic::resample {
namespace {

struct Pool {
  std::mutex mutex;
  std::array<std::weak_ptr<const CDSPRealFFT>, CDSPRealFFT::maxBlockBits + 1> bySize;
};

Pool& pool() {
  static Pool instance;
  return instance;
}

}  // namespace

CDSPRealFFTKeeper::CDSPRealFFTKeeper(int blockBits) {
  if (blockBits < CDSPRealFFT::minBlockBits || blockBits > CDSPRealFFT::maxBlockBits) {
    throw std::invalid_argument("transform size out of range");
  }
  const std::scoped_lock lock(pool().mutex);
  auto& kept = pool().bySize[static_cast<std::size_t>(blockBits)];
  transform_ = kept.lock();
  if (!transform_) {
    transform_ = std::make_shared<const CDSPRealFFT>(blockBits);
    kept = transform_;
  }
}

}  // namespace vellumic::resample
