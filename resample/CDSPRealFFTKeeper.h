// A hold on the transform of one size, for the instruction set in force. All holders of a size
// share the transform; the pool behind keeps it until the last one goes.
//
// Thread: construct and destroy on any thread but the audio thread (the pool has a lock).
#pragma once

#include <memory>

#include "resample/CDSPRealFFT.h"

namespace vellumic::resample {

class CDSPRealFFTKeeper {
 public:
  // blockBits: see CDSPRealFFT; std::invalid_argument outside its range.
  explicit CDSPRealFFTKeeper(int blockBits);

  const CDSPRealFFT& operator*() const noexcept { return *transform_; }
  const CDSPRealFFT* operator->() const noexcept { return transform_.get(); }

 private:
  std::shared_ptr<const CDSPRealFFT> transform_;
};

}  // namespace vellumic::resample
