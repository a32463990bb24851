// COM identity: reference counts, QueryInterface and aggregation, apart from what an object does.
//
// Object derives from its interfaces and offers
//   void* findInterface(REFIID id) noexcept   the interface's pointer without a count, or null;
//                                             IUnknown is answered here.
// Its three IUnknown operations go to the outer object when it is aggregated, else to the inner
// identity below, which owns the one count of both.
// Thread: any; the count is atomic.
#pragma once

#include <windows.h>

#include <unknwn.h>

#include <atomic>
#include <new>

#include "control/Module.h"

namespace vellumic {

template <class Object>
class ComObject final : public Object {
 public:
  // As IClassFactory::CreateInstance: an outer object may only ask for IUnknown.
  static HRESULT create(IUnknown* outer, REFIID id, void** object) noexcept {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (outer != nullptr && !IsEqualIID(id, IID_IUnknown)) return CLASS_E_NOAGGREGATION;
    try {
      auto* const made = new ComObject(outer);
      const HRESULT result = made->identity_.QueryInterface(id, object);
      made->identity_.Release();
      return result;
    } catch (const std::bad_alloc&) {
      return E_OUTOFMEMORY;
    } catch (...) {
      return E_FAIL;
    }
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override {
    return outer_->QueryInterface(id, object);
  }
  ULONG STDMETHODCALLTYPE AddRef() noexcept override { return outer_->AddRef(); }
  ULONG STDMETHODCALLTYPE Release() noexcept override { return outer_->Release(); }

 private:
  // The IUnknown that belongs to this object alone.
  class Identity final : public IUnknown {
   public:
    explicit Identity(ComObject& owner) noexcept : owner_(owner) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) noexcept override {
      if (object == nullptr) return E_POINTER;
      *object =
          IsEqualIID(id, IID_IUnknown) ? static_cast<IUnknown*>(this) : owner_.findInterface(id);
      if (*object == nullptr) return E_NOINTERFACE;
      static_cast<IUnknown*>(*object)->AddRef();
      return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++count_; }
    ULONG STDMETHODCALLTYPE Release() noexcept override {
      const ULONG left = --count_;
      if (left == 0) {
        delete &owner_;
        Module::dropUse();  // last: the teardown waits for threads that run this library's code
      }
      return left;
    }

   private:
    ComObject& owner_;
    std::atomic<ULONG> count_{1};
  };

  explicit ComObject(IUnknown* outer) : outer_(outer != nullptr ? outer : &identity_) {
    Module::addUse();
  }

  Identity identity_{*this};
  IUnknown* const outer_;  // no count: it outlives its parts
};

}  // namespace vellumic
