// Move-only owners of what the system hands out: kernel handles, registry keys, mapped views.
// Each closes what it holds in its destructor; null means empty.
#pragma once

#include <windows.h>

#include <utility>

namespace vellumic {

template <class Traits>
class UniqueHandle {
 public:
  using Value = typename Traits::Value;

  UniqueHandle() noexcept = default;
  explicit UniqueHandle(Value value) noexcept : value_(value) {}
  UniqueHandle(UniqueHandle&& other) noexcept : value_(other.release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~UniqueHandle() { reset(); }

  [[nodiscard]] Value get() const noexcept { return value_; }
  explicit operator bool() const noexcept { return value_ != nullptr; }

  void reset(Value value = nullptr) noexcept {
    const Value old = std::exchange(value_, value);
    if (old != nullptr) Traits::close(old);
  }
  // Gives the value away, open.
  Value release() noexcept { return std::exchange(value_, nullptr); }
  // For functions that store a new value; what was held is closed first.
  Value* put() noexcept {
    reset();
    return &value_;
  }

 private:
  Value value_ = nullptr;
};

struct KernelHandleTraits {
  using Value = HANDLE;
  static void close(HANDLE handle) noexcept { CloseHandle(handle); }
};
struct RegistryKeyTraits {
  using Value = HKEY;
  static void close(HKEY key) noexcept { RegCloseKey(key); }
};
struct MappedViewTraits {
  using Value = void*;
  static void close(void* view) noexcept { UnmapViewOfFile(view); }
};

using KernelHandle = UniqueHandle<KernelHandleTraits>;
using RegistryKey = UniqueHandle<RegistryKeyTraits>;
using MappedView = UniqueHandle<MappedViewTraits>;

}  // namespace vellumic
