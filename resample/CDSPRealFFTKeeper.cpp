#include "resample/CDSPRealFFTKeeper.h"

#include <array>
#include <mutex>
#include <stdexcept>

#include "platform/InstructionSet.h"

namespace vellumic::resample {
namespace {

struct Pool {
  std::mutex mutex;
  using BySize = std::array<std::weak_ptr<const CDSPRealFFT>, CDSPRealFFT::maxBlockBits + 1>;
  std::array<BySize, instructionSetCount> bySet;
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
  auto& kept =
      pool().bySet[static_cast<std::size_t>(instructionSet())][static_cast<std::size_t>(blockBits)];
  transform_ = kept.lock();
  if (!transform_) {
    transform_ = std::make_shared<const CDSPRealFFT>(blockBits);
    kept = transform_;
  }
}

}  // namespace vellumic::resample
