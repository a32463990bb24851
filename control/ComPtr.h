// Owners of COM things: an interface with its reference count, and a property variant.
#pragma once

#include <windows.h>

#include <objbase.h>
#include <propidl.h>

#include <utility>

namespace vellumic {

template <class T>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  ComPtr(const ComPtr& other) noexcept : pointer_(other.pointer_) {
    if (pointer_ != nullptr) pointer_->AddRef();
  }
  ComPtr(ComPtr&& other) noexcept : pointer_(other.detach()) {}
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(pointer_, other.pointer_);
    return *this;
  }
  ~ComPtr() { reset(); }

  // Takes over a count that the caller owns.
  [[nodiscard]] static ComPtr attach(T* pointer) noexcept {
    ComPtr owner;
    owner.pointer_ = pointer;
    return owner;
  }
  // Adds a count of its own.
  [[nodiscard]] static ComPtr share(T* pointer) noexcept {
    if (pointer != nullptr) pointer->AddRef();
    return attach(pointer);
  }

  [[nodiscard]] T* get() const noexcept { return pointer_; }
  T* operator->() const noexcept { return pointer_; }
  explicit operator bool() const noexcept { return pointer_ != nullptr; }

  void reset() noexcept {
    T* const old = std::exchange(pointer_, nullptr);
    if (old != nullptr) old->Release();
  }
  // Gives the count away.
  [[nodiscard]] T* detach() noexcept { return std::exchange(pointer_, nullptr); }
  // For functions that store a new interface; what was held is released first.
  T** put() noexcept {
    reset();
    return &pointer_;
  }
  void** putVoid() noexcept { return reinterpret_cast<void**>(put()); }

 private:
  T* pointer_ = nullptr;
};

// A PROPVARIANT that is cleared on every path.
class PropertyValue {
 public:
  PropertyValue() noexcept { PropVariantInit(&value_); }
  ~PropertyValue() { PropVariantClear(&value_); }
  PropertyValue(const PropertyValue&) = delete;
  PropertyValue& operator=(const PropertyValue&) = delete;

  PROPVARIANT* put() noexcept {
    PropVariantClear(&value_);
    return &value_;
  }
  // The text of a VT_LPWSTR value; null for any other type.
  [[nodiscard]] const wchar_t* text() const noexcept {
    return value_.vt == VT_LPWSTR ? value_.pwszVal : nullptr;
  }

 private:
  PROPVARIANT value_;
};

}  // namespace vellumic
