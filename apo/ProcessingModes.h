// The audio processing modes of the platform, by GUID.
#pragma once

#include <windows.h>

#include <array>

#include "engine/ProcessingMode.h"

namespace vellumic {

inline constexpr GUID modeDefault{
    0xC18E2F7E, 0x933D, 0x4965, {0xB7, 0xD1, 0x1E, 0xEF, 0x22, 0x8D, 0x2A, 0xF3}};
inline constexpr GUID modeRaw{
    0x9E90EA20, 0xB493, 0x4FD1, {0xA1, 0xA8, 0x7E, 0x13, 0x61, 0xA9, 0x56, 0xCF}};
inline constexpr GUID modeCommunications{
    0x98951333, 0xB9CD, 0x48B1, {0xA0, 0xA3, 0xFF, 0x40, 0x68, 0x2D, 0x73, 0xF7}};
inline constexpr GUID modeSpeech{
    0xFC1CFC9B, 0xB9D6, 0x4CFA, {0xB5, 0xE0, 0x4B, 0xB2, 0x16, 0x68, 0x78, 0xB2}};
inline constexpr GUID modeNotification{
    0x9CF2A70B, 0xF377, 0x403B, {0xBD, 0x6B, 0x36, 0x08, 0x63, 0xE0, 0x35, 0x5C}};
inline constexpr GUID modeMedia{
    0x4780004E, 0x7133, 0x41D8, {0x8C, 0x74, 0x66, 0x0D, 0xAD, 0xD2, 0xC0, 0xEE}};
inline constexpr GUID modeMovie{
    0xB26FEB0D, 0xEC94, 0x477C, {0x94, 0x94, 0xD1, 0xAB, 0x8E, 0x75, 0x3F, 0x6E}};

struct NamedMode {
  GUID id;
  ProcessingMode mode;
};

// The seven modes; a position in this table is a mode's place in the format matrix.
inline constexpr std::array<NamedMode, 7> processingModes{{
    {modeDefault, ProcessingMode::standard},
    {modeRaw, ProcessingMode::raw},
    {modeSpeech, ProcessingMode::speech},
    {modeCommunications, ProcessingMode::communications},
    {modeMedia, ProcessingMode::media},
    {modeMovie, ProcessingMode::movie},
    {modeNotification, ProcessingMode::notification},
}};

// Those in which the effects accept any format.
inline constexpr std::array<GUID, 3> acceptedModes{modeDefault, modeRaw, modeSpeech};

// -1 for any other id.
inline int modeIndex(const GUID& id) noexcept {
  for (std::size_t i = 0; i < processingModes.size(); ++i)
    if (IsEqualGUID(processingModes[i].id, id)) return static_cast<int>(i);
  return -1;
}

// Unknown ids, the null id included (the engine passes it to endpoint effects), are the default.
inline GUID knownModeOrDefault(const GUID& id) noexcept {
  return modeIndex(id) >= 0 ? id : modeDefault;
}

}  // namespace vellumic
