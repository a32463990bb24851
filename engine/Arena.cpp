#include "engine/Arena.h"

#include <cstdlib>
#include <cstring>

namespace vellumic {

void Arena::Free::operator()(std::byte* memory) const noexcept { std::free(memory); }

// calloc of this size is fresh zero pages from the system: they take no memory until touched.
Arena::Arena() noexcept
    : memory_(static_cast<std::byte*>(std::calloc(capacity, 1))), active_(memory_ != nullptr) {}

void* Arena::allocate(std::size_t size) noexcept {
  if (!active_ || size >= capacity - used_) return nullptr;
  std::byte* block = memory_.get() + used_;
  used_ += size;
  ++liveCount_;
  return block;
}

bool Arena::release(void* block) noexcept {
  if (block == nullptr || liveCount_ == 0) return false;
  if (--liveCount_ == 0) {
    active_ = false;
    std::memset(memory_.get(), 0, used_);
    used_ = 0;
    active_ = true;
  }
  return true;
}

}  // namespace vellumic
