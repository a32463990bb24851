// The class object of one COM class.
#pragma once

#include <windows.h>

#include <unknwn.h>

#include "apo/ComObject.h"

namespace vellumic {

// Lives as long as the library; its own references do not count.
template <class Object>
class ClassFactory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (!IsEqualIID(id, IID_IUnknown) && !IsEqualIID(id, IID_IClassFactory)) return E_NOINTERFACE;
    *object = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
  }
  // A class object that is held keeps the library loaded.
  ULONG STDMETHODCALLTYPE AddRef() noexcept override {
    Module::addUse();
    return 2;
  }
  ULONG STDMETHODCALLTYPE Release() noexcept override {
    Module::dropUse();
    return 1;
  }

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID id,
                                           void** object) noexcept override {
    return ComObject<Object>::create(outer, id, object);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) noexcept override {
    if (lock != FALSE)
      Module::addUse();
    else
      Module::dropUse();
    return S_OK;
  }
};

}  // namespace vellumic
