// The registration records themselves, in the section that stays resident for the real-time thread.
#include "apo/CaptureTraits.h"
#include "apo/RegistrationRecord.h"
#include "control/StatusBlock.h"

#if defined(_MSC_VER)
#pragma section("RT_DATA", read, write)
#define VELLUMIC_RT_DATA __declspec(allocate("RT_DATA"))
#else
#define VELLUMIC_RT_DATA [[gnu::section("RT_DATA")]]
#endif

namespace vellumic {
namespace {

constexpr UINT32 mustMatchRateAndBits =
    APO_FLAG_FRAMESPERSECOND_MUST_MATCH | APO_FLAG_BITSPERSAMPLE_MUST_MATCH;
constexpr UINT32 mustMatchAll = mustMatchRateAndBits | APO_FLAG_SAMPLESPERFRAME_MUST_MATCH;
static_assert(mustMatchAll == 14 && mustMatchRateAndBits == 12);

#define VELLUMIC_COPYRIGHT L"Copyright (C) the Vellumic developers"

// clang-format off
#define VELLUMIC_RECORD(name, flags, own, ...)                                                \
  {.clsid = __VA_ARGS__, .Flags = flags, .szFriendlyName = name,                              \
   .szCopyrightInfo = VELLUMIC_COPYRIGHT,                                                     \
   .u32MajorVersion = apoMajorVersion, .u32MinorVersion = apoMinorVersion,                    \
   .u32MinInputConnections = 1, .u32MaxInputConnections = 1,                                  \
   .u32MinOutputConnections = 1, .u32MaxOutputConnections = 1,                                \
   .u32MaxInstances = 0xffffffff, .u32NumAPOInterfaces = 1, .iidAPOInterfaceList = {own}}
// clang-format on

}  // namespace

VELLUMIC_RT_DATA constinit APO_REG_PROPERTIES recordEFX =
    VELLUMIC_RECORD(L"CVellumicAPOCaptureEFX", mustMatchAll, __uuidof(IVellumicAPOCaptureEFX),
                    {0x577F6409, 0x47DB, 0x42FF, {0xB8, 0xEA, 0x09, 0xDC, 0xF9, 0x69, 0xB6, 0x87}});

VELLUMIC_RT_DATA constinit APO_REG_PROPERTIES recordMFX = VELLUMIC_RECORD(
    L"CVellumicAPOCaptureMFX", mustMatchRateAndBits, __uuidof(IVellumicAPOCaptureMFX),
    {0x41804F5A, 0x584C, 0x41A0, {0xB2, 0x53, 0x2D, 0x0C, 0xA7, 0x12, 0xD3, 0xA9}});

VELLUMIC_RT_DATA constinit APO_REG_PROPERTIES recordKDMFX = VELLUMIC_RECORD(
    L"CVellumicAPOCaptureKDMFX", mustMatchRateAndBits, __uuidof(IVellumicAPOCaptureKDMFX),
    {0xAD079A7F, 0xD1FA, 0x4A33, {0xAD, 0xCA, 0x15, 0xC0, 0x73, 0xDC, 0x9B, 0xE3}});

std::span<const APO_REG_PROPERTIES* const> registrationRecords() noexcept {
  static constexpr const APO_REG_PROPERTIES* all[]{&recordEFX, &recordMFX, &recordKDMFX};
  return all;
}

}  // namespace vellumic
