// Small helps for a program that uses COM: results as exceptions, reference-counted objects.
#pragma once

#include <windows.h>

#include <unknwn.h>

// Empty words of 16-bit days that would swallow names of ours.
#undef far
#undef FAR
#define FAR

#include <atomic>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "control/ComPtr.h"

namespace vellumic::tools {

// what() is the action that failed, with the result in brackets.
class ComError : public std::runtime_error {
 public:
  ComError(HRESULT code, const std::string& failed)
      : std::runtime_error(failed + " (" + hex(code) + ")"), result(code), action(failed) {}
  HRESULT result;
  std::string action;

 private:
  static std::string hex(HRESULT code) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(code));
    return text;
  }
};

inline void check(HRESULT result, const std::string& what) {
  if (FAILED(result)) throw ComError(result, what);
}

// Keeps COM ready on a thread.
class Apartment {
 public:
  Apartment() { check(CoInitializeEx(nullptr, COINIT_MULTITHREADED), "cannot start COM"); }
  ~Apartment() { CoUninitialize(); }
  Apartment(const Apartment&) = delete;
  Apartment& operator=(const Apartment&) = delete;
};

// An object of one interface that deletes itself; starts with a count of 1.
template <class Interface>
class Counted : public Interface {
 public:
  Counted() = default;
  virtual ~Counted() = default;
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    if (object == nullptr) return E_POINTER;
    const bool known = IsEqualIID(id, __uuidof(Interface)) || IsEqualIID(id, __uuidof(IUnknown));
    *object = known ? this : nullptr;
    if (!known) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++count_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --count_;
    if (left == 0) delete this;
    return left;
  }

 private:
  std::atomic<ULONG> count_{1};
};

template <class Object, class... Arguments>
ComPtr<Object> make(Arguments&&... arguments) {
  return ComPtr<Object>::attach(new Object(std::forward<Arguments>(arguments)...));
}

}  // namespace vellumic::tools
