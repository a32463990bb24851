// The status board that objects and the companion service share, layout version 5.
//
// One object's status is kept in the object, zeroed at construction and written field by field;
// publishing copies it whole. A present byte says that the field behind it has been filled. All
// texts are UTF-16 and keep a terminator.
#pragma once

#include <windows.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace vellumic {

inline constexpr std::uint32_t statusLayoutVersion = 5;
inline constexpr std::uint32_t apoMajorVersion = 3;
inline constexpr std::uint32_t apoMinorVersion = 18;

using StatusText = std::array<wchar_t, 256>;

struct StatusBlock {
  GUID instance;  // tells objects apart; null: nothing is published
  GUID endpoint;  // PKEY_AudioEndpoint_GUID of the served endpoint
  GUID classId;
  std::uint8_t initialized;  // 1 from Initialize on
  std::uint8_t alive;        // 1 from Initialize on, 0 when the object goes
  std::uint8_t ready;        // 1 from Initialize on
  GUID settings;             // names the parameter tree
  std::uint8_t modePresent;
  GUID processingMode;
  std::array<std::uint8_t, 16> reserved;
  std::uint8_t sampleRatePresent;
  std::uint32_t sampleRate;  // Hz
  std::uint8_t majorPresent;
  std::uint32_t majorVersion;
  std::uint8_t minorPresent;
  std::uint32_t minorVersion;
  std::uint8_t deviceIdPresent;
  StatusText deviceId;
  std::uint8_t friendlyNamePresent;
  StatusText friendlyName;
  std::uint8_t copyrightPresent;
  StatusText copyright;
  std::uint8_t propertyEventPresent;
  StatusText propertyEvent;  // signalled by whoever changed the setting
  std::array<std::uint8_t, 516> unused;
};

struct StatusBoard {
  std::uint32_t serviceWord;  // the service's own
  std::uint32_t version;
  StatusBlock block;  // of the last object that published
  std::array<std::uint8_t, 16> serviceTail;
};

static_assert(sizeof(wchar_t) == 2);
static_assert(offsetof(StatusBlock, instance) == 0);
static_assert(offsetof(StatusBlock, endpoint) == 16);
static_assert(offsetof(StatusBlock, classId) == 32);
static_assert(offsetof(StatusBlock, initialized) == 48);
static_assert(offsetof(StatusBlock, alive) == 49);
static_assert(offsetof(StatusBlock, ready) == 50);
static_assert(offsetof(StatusBlock, settings) == 52);
static_assert(offsetof(StatusBlock, modePresent) == 68);
static_assert(offsetof(StatusBlock, processingMode) == 72);
static_assert(offsetof(StatusBlock, sampleRatePresent) == 104);
static_assert(offsetof(StatusBlock, sampleRate) == 108);
static_assert(offsetof(StatusBlock, majorPresent) == 112);
static_assert(offsetof(StatusBlock, majorVersion) == 116);
static_assert(offsetof(StatusBlock, minorPresent) == 120);
static_assert(offsetof(StatusBlock, minorVersion) == 124);
static_assert(offsetof(StatusBlock, deviceIdPresent) == 128);
static_assert(offsetof(StatusBlock, deviceId) == 130);
static_assert(offsetof(StatusBlock, friendlyNamePresent) == 642);
static_assert(offsetof(StatusBlock, friendlyName) == 644);
static_assert(offsetof(StatusBlock, copyrightPresent) == 1156);
static_assert(offsetof(StatusBlock, copyright) == 1158);
static_assert(offsetof(StatusBlock, propertyEventPresent) == 1670);
static_assert(offsetof(StatusBlock, propertyEvent) == 1672);
static_assert(offsetof(StatusBlock, unused) == 2184);
static_assert(sizeof(StatusBlock) == 2700);
static_assert(offsetof(StatusBoard, version) == 4);
static_assert(offsetof(StatusBoard, block) == 8);
static_assert(sizeof(StatusBoard) == 0xAA4);

}  // namespace vellumic
