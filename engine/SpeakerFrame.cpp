#include "engine/SpeakerFrame.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "platform/Realtime.h"

namespace vellumic {
namespace {

struct SpeakerMark {
  std::size_t slot;
  Entry mark;
};

constexpr std::array<std::size_t, 2> frontPair{0, 1};
constexpr std::array<SpeakerMark, 7> inputMarks{{{2, Entry::inputLowFrequency},
                                                 {4, Entry::inputFrontCentre},
                                                 {8, Entry::inputBacks},
                                                 {9, Entry::inputBacks},
                                                 {7, Entry::inputBackCentre},
                                                 {5, Entry::inputSides},
                                                 {6, Entry::inputSides}}};
// The vendor channel is written, but never read.
constexpr std::array<SpeakerMark, 8> outputMarks{{{2, Entry::outputLowFrequency},
                                                  {3, Entry::outputVendor},
                                                  {4, Entry::outputFrontCentre},
                                                  {8, Entry::outputBacks},
                                                  {9, Entry::outputBacks},
                                                  {7, Entry::outputBackCentre},
                                                  {5, Entry::outputSides},
                                                  {6, Entry::outputSides}}};

VELLUMIC_RT_CODE void readSlot(const float* input, const SlotMap& map, std::size_t slot,
                               float* slots) noexcept {
  if (map[slot] >= 0) slots[slot] = input[map[slot]];
}
VELLUMIC_RT_CODE void writeSlot(const float* slots, const SlotMap& map, std::size_t slot,
                                float* output) noexcept {
  if (map[slot] >= 0) output[map[slot]] = slots[slot];
}

VELLUMIC_RT_CODE float mixed(float sample, float next, float weight) noexcept {
  return (1.0F - weight) * sample + weight * next;
}

}  // namespace

VELLUMIC_RT_CODE void readPositions(const float* input, std::uint32_t channels,
                                    float* slots) noexcept VELLUMIC_NONBLOCKING {
  std::copy_n(input, std::min<std::uint32_t>(channels, slotCount), slots);
}

VELLUMIC_RT_CODE void writePositions(const float* slots, std::uint32_t channels,
                                     float* output) noexcept VELLUMIC_NONBLOCKING {
  const std::uint32_t written = std::min<std::uint32_t>(channels, slotCount);
  std::copy_n(slots, written, output);
  std::fill_n(output + written, channels - written, 0.0F);
}

VELLUMIC_RT_CODE void mixPositions(float* slots, const float* nextSlots,
                                   float weight) noexcept VELLUMIC_NONBLOCKING {
  for (int slot = 0; slot < slotCount; ++slot)
    slots[slot] = mixed(slots[slot], nextSlots[slot], weight);
}

VELLUMIC_RT_CODE void readSpeakers(const float* input, const SlotMap& map, ConstMaskView mask,
                                   float* slots) noexcept VELLUMIC_NONBLOCKING {
  for (const std::size_t slot : frontPair) readSlot(input, map, slot, slots);
  if (mask[Entry::extraSpeakers] == 0) return;
  for (const auto& [slot, mark] : inputMarks)
    if (mask[mark] != 0) readSlot(input, map, slot, slots);
}

VELLUMIC_RT_CODE void writeSpeakers(const float* slots, const SlotMap& map, ConstMaskView mask,
                                    float* output) noexcept VELLUMIC_NONBLOCKING {
  for (const std::size_t slot : frontPair) writeSlot(slots, map, slot, output);
  if (mask[Entry::extraSpeakers] == 0) return;
  for (const auto& [slot, mark] : outputMarks)
    if (mask[mark] != 0) writeSlot(slots, map, slot, output);
}

VELLUMIC_RT_CODE void mixSpeakers(float* slots, const float* nextSlots, float weight,
                                  ConstMaskView mask) noexcept VELLUMIC_NONBLOCKING {
  const auto mix = [&](std::size_t slot) {
    slots[slot] = mixed(slots[slot], nextSlots[slot], weight);
  };
  for (const std::size_t slot : frontPair) mix(slot);
  if (mask[Entry::extraSpeakers] == 0) return;
  for (const auto& [slot, mark] : outputMarks)
    if (mask[mark] != 0) mix(slot);
}

}  // namespace vellumic
