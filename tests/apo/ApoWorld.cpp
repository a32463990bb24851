#include "tests/apo/ApoWorld.h"

#include <psapi.h>

#include <cmath>

#include "parameters/Catalogue.h"

namespace vellumic::test {

HMODULE library() {
  static const HMODULE module = LoadLibraryW((programFolder() / L"VellumicAPO64c.dll").c_str());
  return module;
}

std::size_t residentBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return counters.WorkingSetSize;
}

CaptureObject::CaptureObject(const CLSID& id, HRESULT* result) {
  ComPtr<IClassFactory> factory;
  EXPECT_EQ(getClass(id, IID_IClassFactory, factory.putVoid()), S_OK);
  const HRESULT made =
      factory->CreateInstance(nullptr, __uuidof(IAudioProcessingObject), object.putVoid());
  if (result != nullptr)
    *result = made;
  else
    EXPECT_EQ(made, S_OK);
  realTime = as<IAudioProcessingObjectRT>(object.get());
  configuration = as<IAudioProcessingObjectConfiguration>(object.get());
  effects = as<IAudioSystemEffects2>(object.get());
}

HRESULT CaptureObject::lock(MediaType& input, MediaType& output) {
  APO_CONNECTION_DESCRIPTOR in{APO_CONNECTION_BUFFER_TYPE_ALLOCATED, 0, 480, &input, 0x41434453};
  APO_CONNECTION_DESCRIPTOR out = in;
  out.pFormat = &output;
  APO_CONNECTION_DESCRIPTOR *inputs = &in, *outputs = &out;
  return configuration->LockForProcess(1, &inputs, 1, &outputs);
}

APO_CONNECTION_PROPERTY CaptureObject::process(float* samples, UINT32 frames,
                                               APO_BUFFER_FLAGS flags) {
  APO_CONNECTION_PROPERTY in{};
  in.pBuffer = reinterpret_cast<UINT_PTR>(samples);
  in.u32ValidFrameCount = frames;
  in.u32BufferFlags = flags;
  APO_CONNECTION_PROPERTY out = in;
  out.u32ValidFrameCount = 0;
  out.u32BufferFlags = BUFFER_INVALID;
  APO_CONNECTION_PROPERTY *inputs = &in, *outputs = &out;
  realTime->APOProcess(1, &inputs, 1, &outputs);
  return out;
}

bool CaptureObject::sounds() {
  bool finite = true;
  for (int call = 0; call < 10; ++call) {
    std::array<float, 480 * 4> samples;
    for (std::size_t n = 0; n < samples.size(); ++n)
      samples[n] = 0.1F * std::sin(0.1F * static_cast<float>(n));
    finite = finite && process(samples.data(), 480).u32ValidFrameCount == 480;
    for (const float sample : samples) finite = finite && std::isfinite(sample);
  }
  return finite;
}

HRESULT CaptureObject::listEffects(HANDLE event, UINT* count) {
  GUID* ids = nullptr;
  UINT listed = 0;
  const HRESULT result = effects->GetEffectsList(&ids, &listed, event);
  if (count != nullptr) *count = listed;
  EXPECT_EQ(ids == nullptr, listed == 0);
  CoTaskMemFree(ids);
  return result;
}

ApoWorld::ApoWorld() {
  microphone.volume.masterDb = 0.0F;
  microphone.volume.channelDb = {0.0F, 0.0F};
}

APOInitSystemEffects2 ApoWorld::blob(const GUID& processingMode) {
  return {.APOInit = {.cbSize = sizeof(APOInitSystemEffects2), .clsid = mfx.id},
          .pAPOEndpointProperties = &microphone.store,
          .pAPOSystemEffectsProperties = &filter.store,
          .pReserved = nullptr,
          .pDeviceCollection = &system.captureEndpoints,
          .nSoftwareIoDeviceInCollection = 0,
          .nSoftwareIoConnectorIndex = 1,
          .AudioProcessingMode = processingMode,
          .InitializeForDiscoveryOnly = FALSE};
}

HRESULT ApoWorld::initialize(CaptureObject& object, APOInitSystemEffects2 data, UINT32 size) {
  return object.object->Initialize(size, reinterpret_cast<BYTE*>(&data));
}

CaptureObject ApoWorld::initialized(const ClassCase& which, const GUID& processingMode) {
  CaptureObject object(which.id);
  auto data = blob(processingMode);
  data.APOInit.clsid = which.id;
  EXPECT_EQ(initialize(object, data), S_OK);
  return object;
}

CaptureObject ApoWorld::locked(const ClassCase& which, MediaType& format,
                               const GUID& processingMode) {
  CaptureObject object = initialized(which, processingMode);
  EXPECT_EQ(object.lock(format), S_OK);
  return object;
}

void ApoWorld::writeFactorySettings() {
  registry.select(L"1");
  registry.writeSetting(L"1", factorySettings());
}

}  // namespace vellumic::test
