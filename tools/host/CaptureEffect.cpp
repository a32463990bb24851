#include "tools/host/CaptureEffect.h"

#include <array>
#include <map>
#include <set>

namespace vellumic::tools {
namespace {

const std::map<std::string, CLSID, std::less<>> classIds{
    {"efx", {0x577F6409, 0x47DB, 0x42FF, {0xB8, 0xEA, 0x09, 0xDC, 0xF9, 0x69, 0xB6, 0x87}}},
    {"mfx", {0x41804F5A, 0x584C, 0x41A0, {0xB2, 0x53, 0x2D, 0x0C, 0xA7, 0x12, 0xD3, 0xA9}}},
    {"kdmfx", {0xAD079A7F, 0xD1FA, 0x4A33, {0xAD, 0xCA, 0x15, 0xC0, 0x73, 0xDC, 0x9B, 0xE3}}}};

std::string effectName(const GUID& id) {
  switch (id.Data1) {  // the last byte of the first field tells the platform's effect types apart
    case 0x6F64ADBE:
      return "echo cancellation";
    case 0x6F64ADBF:
      return "noise suppression";
    case 0x6F64ADC0:
      return "automatic gain control";
    case 0x6F64ADC1:
      return "beamforming";
    case 0x6F64ADC3:
      return "equalizer";
    default:
      return "another";
  }
}

constexpr UINT32 descriptorSignature = 0x41434453, propertySignature = 0x41435053;

}  // namespace

CLSID classIdOf(const std::string& className) {
  const auto found = classIds.find(className);
  if (found == classIds.end())
    throw std::runtime_error("class " + className + ": write efx, mfx or kdmfx");
  return found->second;
}

CaptureEffect::CaptureEffect(const std::string& className)
    : name_(className), classId_(classIdOf(className)) {
  check(CoCreateInstance(classId_, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IAudioProcessingObject),
                         object_.putVoid()),
        "class " + className + ": cannot be created; register it with regsvr32 VellumicAPO64c.dll");
  const auto query = [&](auto& pointer, REFIID id) {
    check(object_->QueryInterface(id, pointer.putVoid()), "class " + className + " is incomplete");
  };
  query(realTime_, __uuidof(IAudioProcessingObjectRT));
  query(configuration_, __uuidof(IAudioProcessingObjectConfiguration));
  query(effects_, __uuidof(IAudioSystemEffects2));
}

void CaptureEffect::initialize(const EffectSite& site) {
  APOInitSystemEffects2 data{.APOInit = {.cbSize = sizeof data, .clsid = classId_},
                             .pAPOEndpointProperties = site.endpointProperties,
                             .pAPOSystemEffectsProperties = site.effectProperties,
                             .pReserved = nullptr,
                             .pDeviceCollection = site.devices,
                             .nSoftwareIoDeviceInCollection = site.deviceIndex,
                             .nSoftwareIoConnectorIndex = 0,
                             .AudioProcessingMode = site.processingMode,
                             .InitializeForDiscoveryOnly = site.discoveryOnly ? TRUE : FALSE};
  check(object_->Initialize(sizeof data, reinterpret_cast<BYTE*>(&data)), name_ + ": Initialize");
}

bool CaptureEffect::accepts(const FormatShape& input, const FormatShape& output) {
  const auto in = make<MediaType>(input), out = make<MediaType>(output);
  ComPtr<IAudioMediaType> taken, given;
  return object_->IsInputFormatSupported(out.get(), in.get(), taken.put()) == S_OK &&
         object_->IsOutputFormatSupported(in.get(), out.get(), given.put()) == S_OK;
}

FormatShape CaptureEffect::negotiate(const std::vector<FormatShape>& shapes) {
  std::string refused;
  for (const FormatShape& shape : shapes) {
    if (accepts(shape)) return shape;
    refused += (refused.empty() ? "" : ", ") + shape.text();
  }
  throw std::runtime_error(name_ + ": refuses " + refused + " at " +
                           std::to_string(shapes.at(0).sampleRate) + " Hz; it accepts " +
                           formats());
}

std::string CaptureEffect::formats() {
  constexpr std::array<FormatShape, 8> shapes{{{false, 1},
                                               {false, 2},
                                               {false, 4},
                                               {false, 8},
                                               {true, 1, 0, 4},
                                               {true, 2, 0, 3},
                                               {true, 4},
                                               {true, 8}}};
  std::string text;
  std::set<unsigned> heard;
  for (FormatShape shape : shapes) {
    bool any = false;
    for (const unsigned rate : {16000U, 22050U, 32000U, 44100U, 48000U, 88200U, 96000U, 192000U}) {
      shape.sampleRate = rate;
      if (!accepts(shape)) continue;
      heard.insert(rate);
      any = true;
    }
    if (any) text += (text.empty() ? "" : ", ") + shape.text();
  }
  if (text.empty()) return "nothing in this mode";
  std::string rates;
  for (const unsigned rate : heard) rates += (rates.empty() ? "" : ", ") + std::to_string(rate);
  return text + " at " + rates + " Hz";
}

void CaptureEffect::lock(const FormatShape& shape, unsigned mostFrames) {
  const auto type = make<MediaType>(shape);
  APO_CONNECTION_DESCRIPTOR input{APO_CONNECTION_BUFFER_TYPE_ALLOCATED, 0, mostFrames, type.get(),
                                  descriptorSignature};
  APO_CONNECTION_DESCRIPTOR output = input;
  APO_CONNECTION_DESCRIPTOR *inputs = &input, *outputs = &output;
  check(configuration_->LockForProcess(1, &inputs, 1, &outputs), name_ + ": LockForProcess");
}

bool CaptureEffect::process(float* samples, unsigned frames) {
  APO_CONNECTION_PROPERTY input{};
  input.pBuffer = reinterpret_cast<UINT_PTR>(samples);
  input.u32ValidFrameCount = frames;
  input.u32BufferFlags = BUFFER_VALID;
  input.u32Signature = propertySignature;
  APO_CONNECTION_PROPERTY output = input;
  output.u32ValidFrameCount = 0;
  output.u32BufferFlags = BUFFER_INVALID;
  APO_CONNECTION_PROPERTY *inputs = &input, *outputs = &output;
  realTime_->APOProcess(1, &inputs, 1, &outputs);
  return output.u32BufferFlags == BUFFER_VALID && output.u32ValidFrameCount == frames;
}

void CaptureEffect::unlock() { check(configuration_->UnlockForProcess(), name_ + ": Unlock"); }

std::string CaptureEffect::effects(HANDLE changed) {
  GUID* ids = nullptr;
  UINT count = 0;
  check(effects_->GetEffectsList(&ids, &count, changed), name_ + ": GetEffectsList");
  std::string text;
  for (UINT i = 0; i < count; ++i) text += (text.empty() ? "" : ", ") + effectName(ids[i]);
  CoTaskMemFree(ids);
  return text.empty() ? "none" : text;
}

}  // namespace vellumic::tools
