// The waiting place of one part that is too costly to build on the real-time thread.
//
// A builder stages a new part; the real-time thread exchanges it for the one in use, which stays
// here, retired, until a builder frees it. All members are used under the engine's parameter lock.
#pragma once

#include <memory>
#include <utility>

#include "platform/Realtime.h"

namespace vellumic {

template <class Part>
class PartSlot {
 public:
  // Builder. A part that still waits is replaced and freed.
  void stage(std::unique_ptr<Part> part) noexcept {
    part_ = std::move(part);
    waiting_ = true;
  }

  // Builder. Frees a retired part; one that waits stays.
  void freeRetired() noexcept {
    if (!waiting_) part_.reset();
  }

  bool waiting() const noexcept { return waiting_; }
  // The part that waits, null without one. A builder may still change it.
  Part* staged() noexcept { return waiting_ ? part_.get() : nullptr; }
  // The part that retired in the last exchange, null without one.
  const Part* retired() const noexcept { return waiting_ ? nullptr : part_.get(); }

  // Builder. Frees a part that waits.
  void withdraw() noexcept {
    if (waiting_) part_.reset();
    waiting_ = false;
  }

  // Real-time thread. Returns true if `live` is a new part now.
  bool exchange(std::unique_ptr<Part>& live) noexcept VELLUMIC_NONBLOCKING {
    if (!waiting_) return false;
    live.swap(part_);
    waiting_ = false;
    return true;
  }

  // The same for an owner that exchanges by itself: owner.adopt(std::unique_ptr<Part>&).
  template <class Owner>
  void handTo(Owner& owner) noexcept VELLUMIC_NONBLOCKING {
    if (!waiting_) return;
    owner.adopt(part_);
    waiting_ = false;
  }

 private:
  std::unique_ptr<Part> part_;
  bool waiting_ = false;
};

}  // namespace vellumic
