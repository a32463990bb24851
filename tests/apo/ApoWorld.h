// The library as built, in a process with devices, a registry and a service made by the test.
//
// Objects come from DllGetClassObject of the DLL beside the test program: the code under test is
// the code that ships.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>

#include "apo/AudioEngine.h"
#include "tests/apo/MediaType.h"
#include "tests/control/DeviceDoubles.h"
#include "tests/control/RegistrySandbox.h"
#include "tests/control/ServiceObjects.h"
#include "tools/ProgramPath.h"

namespace vellumic::test {

struct ClassCase {
  const char* name;
  CLSID id;
  IID own;
  bool endpointEffect;
};
inline constexpr std::array<ClassCase, 3> classCases{{
    {"EFX",
     {0x577F6409, 0x47DB, 0x42FF, {0xB8, 0xEA, 0x09, 0xDC, 0xF9, 0x69, 0xB6, 0x87}},
     {0xD2D5DBBA, 0xCBE9, 0x4749, {0x91, 0xAE, 0xA6, 0xE6, 0x9C, 0x7B, 0x66, 0x02}},
     true},
    {"MFX",
     {0x41804F5A, 0x584C, 0x41A0, {0xB2, 0x53, 0x2D, 0x0C, 0xA7, 0x12, 0xD3, 0xA9}},
     {0x2609293F, 0xB7E9, 0x4880, {0x9D, 0x0A, 0x3E, 0xA0, 0xF7, 0xF8, 0xC2, 0x6C}},
     false},
    {"KDMFX",
     {0xAD079A7F, 0xD1FA, 0x4A33, {0xAD, 0xCA, 0x15, 0xC0, 0x73, 0xDC, 0x9B, 0xE3}},
     {0x21D4979C, 0x44AB, 0x4F9F, {0x96, 0xA9, 0x4C, 0x95, 0x5E, 0x3A, 0x06, 0xFE}},
     false},
}};
inline constexpr const ClassCase& efx = classCases[0];
inline constexpr const ClassCase& mfx = classCases[1];
inline constexpr const ClassCase& kdmfx = classCases[2];

namespace mode {
inline constexpr GUID standard{
    0xC18E2F7E, 0x933D, 0x4965, {0xB7, 0xD1, 0x1E, 0xEF, 0x22, 0x8D, 0x2A, 0xF3}};
inline constexpr GUID raw{
    0x9E90EA20, 0xB493, 0x4FD1, {0xA1, 0xA8, 0x7E, 0x13, 0x61, 0xA9, 0x56, 0xCF}};
inline constexpr GUID speech{
    0xFC1CFC9B, 0xB9D6, 0x4CFA, {0xB5, 0xE0, 0x4B, 0xB2, 0x16, 0x68, 0x78, 0xB2}};
inline constexpr GUID communications{
    0x98951333, 0xB9CD, 0x48B1, {0xA0, 0xA3, 0xFF, 0x40, 0x68, 0x2D, 0x73, 0xF7}};
inline constexpr GUID media{
    0x4780004E, 0x7133, 0x41D8, {0x8C, 0x74, 0x66, 0x0D, 0xAD, 0xD2, 0xC0, 0xEE}};
inline constexpr GUID movie{
    0xB26FEB0D, 0xEC94, 0x477C, {0x94, 0x94, 0xD1, 0xAB, 0x8E, 0x75, 0x3F, 0x6E}};
inline constexpr GUID notification{
    0x9CF2A70B, 0xF377, 0x403B, {0xBD, 0x6B, 0x36, 0x08, 0x63, 0xE0, 0x35, 0x5C}};
inline constexpr GUID farFieldSpeech{
    0x28941CBA, 0x3BE6, 0x4A78, {0x9A, 0x76, 0x30, 0xFD, 0x91, 0x55, 0x9B, 0x64}};
}  // namespace mode

using tools::programFolder;
HMODULE library();            // VellumicAPO64c.dll, loaded once
std::size_t residentBytes();  // of this process
template <class Function>
Function* exported(const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library(), name)));
}

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
  void writeFactorySettings();

  RegistrySandbox registry;
};

}  // namespace vellumic::test
