// The library as built, in a process with devices, a registry and a service made by the test.
//
// Objects come from DllGetClassObject of the DLL beside the test program: the code under test is
// the code that ships.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <array>

#include "apo/AudioEngine.h"
#include "tests/apo/MediaType.h"
#include "tests/control/DeviceDoubles.h"
#include "tests/control/RegistrySandbox.h"
#include "tests/control/ServiceObjects.h"
#include "tools/ProgramPath.h"

namespace vellumic::test {

// From "{...}".
inline GUID guid(const wchar_t* text) {
  GUID id{};
  EXPECT_EQ(CLSIDFromString(text, &id), S_OK);
  return id;
}

struct ClassCase {
  const char* name;
  CLSID id;
  IID own;
  bool endpointEffect = false;
};
inline const std::array<ClassCase, 3> classCases{{
    {"EFX", guid(L"{577F6409-47DB-42FF-B8EA-09DCF969B687}"),
     guid(L"{D2D5DBBA-CBE9-4749-91AE-A6E69C7B6602}"), true},
    {"MFX", guid(L"{41804F5A-584C-41A0-B253-2D0CA712D3A9}"),
     guid(L"{2609293F-B7E9-4880-9D0A-3EA0F7F8C26C}")},
    {"KDMFX", guid(L"{AD079A7F-D1FA-4A33-ADCA-15C073DC9BE3}"),
     guid(L"{21D4979C-44AB-4F9F-96A9-4C955E3A06FE}")},
}};
inline const ClassCase &efx = classCases[0], &mfx = classCases[1], &kdmfx = classCases[2];

namespace mode {
inline const GUID standard = guid(L"{C18E2F7E-933D-4965-B7D1-1EEF228D2AF3}");
inline const GUID raw = guid(L"{9E90EA20-B493-4FD1-A1A8-7E1361A956CF}");
inline const GUID speech = guid(L"{FC1CFC9B-B9D6-4CFA-B5E0-4BB2166878B2}");
inline const GUID communications = guid(L"{98951333-B9CD-48B1-A0A3-FF40682D73F7}");
inline const GUID media = guid(L"{4780004E-7133-41D8-8C74-660DADD2C0EE}");
inline const GUID movie = guid(L"{B26FEB0D-EC94-477C-9494-D1AB8E753F6E}");
inline const GUID notification = guid(L"{9CF2A70B-F377-403B-BD6B-360863E0355C}");
inline const GUID farFieldSpeech = guid(L"{28941CBA-3BE6-4A78-9A76-30FD91559B64}");
}  // namespace mode

using tools::programFolder;
HMODULE library();            // VellumicAPO64c.dll, loaded once
std::size_t residentBytes();  // of this process
template <class Function>
Function* exported(const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library(), name)));
}
inline HRESULT getClass(const CLSID& id, const IID& wanted, void** object) {
  return exported<HRESULT WINAPI(REFCLSID, REFIID, void**)>("DllGetClassObject")(id, wanted,
                                                                                 object);
}
inline HRESULT canUnload() { return exported<HRESULT WINAPI()>("DllCanUnloadNow")(); }

template <class Interface>
ComPtr<Interface> as(IUnknown* object, const IID& id = __uuidof(Interface)) {
  ComPtr<Interface> result;
  if (object != nullptr) object->QueryInterface(id, result.putVoid());
  return result;
}

// One object of the library and the interfaces that the audio engine uses.
struct CaptureObject {
  CaptureObject() = default;
  // Without `result` it must succeed.
  explicit CaptureObject(const CLSID& id, HRESULT* result = nullptr);

  HRESULT lock(MediaType& input, MediaType& output);
  HRESULT lock(MediaType& both) { return lock(both, both); }
  // One call, in place.
  APO_CONNECTION_PROPERTY process(float* samples, UINT32 frames,
                                  APO_BUFFER_FLAGS flags = BUFFER_VALID);

  // Ten calls of four channels of a sine; true when all of it comes out and is finite.
  bool sounds();

  // The list is given back at once.
  HRESULT listEffects(HANDLE event = nullptr, UINT* count = nullptr);

  ComPtr<IAudioProcessingObject> object;
  ComPtr<IAudioProcessingObjectRT> realTime;
  ComPtr<IAudioProcessingObjectConfiguration> configuration;
  ComPtr<IAudioSystemEffects2> effects;
};

class ApoWorld : public FakeMachine {
 protected:
  ApoWorld();

  APOInitSystemEffects2 blob(const GUID& processingMode = mode::standard);
  static HRESULT initialize(CaptureObject& object, APOInitSystemEffects2 data,
                            UINT32 size = sizeof(APOInitSystemEffects2));
  CaptureObject initialized(const ClassCase& which, const GUID& processingMode = mode::standard);
  CaptureObject locked(const ClassCase& which, MediaType& format,
                       const GUID& processingMode = mode::standard);
  void writeFactorySettings();

  RegistrySandbox registry;
};

}  // namespace vellumic::test
