// The interface that each class offers beside the audio engine's, one id per class.
#pragma once

#include <windows.h>

#include <oaidl.h>
#include <unknwn.h>

#include "control/ActionResult.h"

namespace vellumic {

struct ICaptureState : IUnknown {
  // VARIANT_TRUE while the object is locked for processing. E_POINTER.
  virtual HRESULT STDMETHODCALLTYPE GetState(VARIANT_BOOL* locked) = 0;
  // See performAction() in control/ActionResult.h.
  virtual HRESULT STDMETHODCALLTYPE PerformAction(int action, CActionResult<float>** result) = 0;
};

struct IVellumicAPOCaptureEFX : ICaptureState {};
struct IVellumicAPOCaptureMFX : ICaptureState {};
struct IVellumicAPOCaptureKDMFX : ICaptureState {};

}  // namespace vellumic

__CRT_UUID_DECL(vellumic::IVellumicAPOCaptureEFX, 0xD2D5DBBA, 0xCBE9, 0x4749, 0x91, 0xAE, 0xA6,
                0xE6, 0x9C, 0x7B, 0x66, 0x02)
__CRT_UUID_DECL(vellumic::IVellumicAPOCaptureMFX, 0x2609293F, 0xB7E9, 0x4880, 0x9D, 0x0A, 0x3E,
                0xA0, 0xF7, 0xF8, 0xC2, 0x6C)
__CRT_UUID_DECL(vellumic::IVellumicAPOCaptureKDMFX, 0x21D4979C, 0x44AB, 0x4F9F, 0x96, 0xA9, 0x4C,
                0x95, 0x5E, 0x3A, 0x06, 0xFE)
