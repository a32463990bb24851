// A small reference-counted result, handed to callers of an object's own interface.
// Thread: any; the value never changes.
#pragma once

#include <windows.h>

#include <unknwn.h>

#include <atomic>
#include <new>

#include "control/Module.h"

namespace vellumic {

template <class Value>
class CActionResult final : public IUnknown {
  const ModuleUse use_;

 public:
  explicit CActionResult(Value initial) noexcept : value(initial) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (!IsEqualIID(id, IID_IUnknown)) return E_NOINTERFACE;
    *object = static_cast<IUnknown*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++referenceCount; }
  ULONG STDMETHODCALLTYPE Release() noexcept override {
    const ULONG left = --referenceCount;
    if (left == 0) delete this;
    return left;
  }

  std::atomic<std::uint32_t> referenceCount{1};
  const Value value;
};

enum class Action : int { first = 1, second = 2, readVolume = 3 };

// The action of an object's own interface. `volume` is the current image's master volume, or null
// when the object has no image yet. E_POINTER without `result`; the first two actions succeed and
// create nothing; readVolume gives an object with a count of 1, E_OUTOFMEMORY, or E_FAIL without
// an image; any other action is E_FAIL.
inline HRESULT performAction(int action, const float* volume,
                             CActionResult<float>** result) noexcept {
  if (result == nullptr) return E_POINTER;
  *result = nullptr;
  if (action == static_cast<int>(Action::first) || action == static_cast<int>(Action::second))
    return S_OK;
  if (action != static_cast<int>(Action::readVolume) || volume == nullptr) return E_FAIL;
  *result = new (std::nothrow) CActionResult<float>(*volume);
  return *result != nullptr ? S_OK : E_OUTOFMEMORY;
}

}  // namespace vellumic
