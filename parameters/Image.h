// The parameter image: 2144 floats derived from the raw values for one stream, and the mask that
// says which of them are not zero. Values are floats, also where they hold integers.
//
// The blocks are plain memory, because sets are exchanged by pointer; the views give the names.
// Entries without a name stay 0: reserved layout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vellumic {

inline constexpr std::size_t imageSize = 2144;

enum class Entry : std::size_t {
  effectEnable = 0,
  category = 5,           // see Category
  effectMode = 7,         // see EffectMode
  sampleRate = 8,         // Hz, device rate
  inputLowFrequency = 9,  // 9 to 18: presence of speakers beyond the front pair, 0 after a lock
  inputFrontCentre = 10,
  inputBackCentre = 11,
  inputSides = 12,
  inputBacks = 13,
  outputLowFrequency = 14,
  outputFrontCentre = 15,
  outputBackCentre = 16,
  outputSides = 17,
  outputBacks = 18,
  inputChannels = 19,
  outputChannels = 20,
  volumeMaster = 22,  // linear, at least 1e-5; 0 is muted
  volumeFirst = 23,
  volumeSecond = 24,
  rawCopy = 25,
  extraSpeakers = 28,  // 28, 29: more presence marks, 0 after a lock
  lastExtraSpeakers = 29,
  latencySwitch1 = 42,
  latency1 = 44,
  equalizerMaster = 211,
  equalizerEnableFirst = 212,  // ten band enables
  equalizerEnableSecond = 222,
  equalizerCoefficientsFirst = 232,  // ten times a1, a2, b0, b1, b2
  equalizerCoefficientsSecond = 282,
  latencySwitch3 = 531,
  latency3a = 537,
  latency3b = 538,
  latency3c = 540,
  latencySwitch2 = 579,
  effectStates = 631,     // 631 to 639
  equalizerEffect = 634,  // reported as an effect; cleared, no writer, on purpose
  lastEffectState = 639,
  latency2a = 661,
  latency2b = 662,
  latency2c = 663,
  fadeLength = 671,  // frames
  fadeRequested = 672,
  holdLength = 673,  // frames
  outputVendor = 1648,
  constantOne = 2132,
  constantTen = 2137,
  inputGain = 2138,  // linear, around the array pipeline
  outputGain = 2139,
  echoEffect = 2140,
  beamformingEffect = 2141,
  noiseEffect = 2142,
  levelEffect = 2143,
};

// Entries of the 892-float fade block (3568 bytes): the fade clock.
inline constexpr std::size_t fadeBlockSize = 892;
enum class Fade : std::size_t {
  cleared = 311,
  counter = 316,
  phase = 317,   // 0 idle, -1 hold, 1 ramp
  weight = 318,  // of the incoming set
  done = 319,
  holdLength = 320,
  holdLatched = 321,
};

constexpr std::size_t index(Entry entry) noexcept { return static_cast<std::size_t>(entry); }
constexpr std::size_t index(Fade entry) noexcept { return static_cast<std::size_t>(entry); }

// A named view of a block; owns nothing.
template <class Name, class Value, std::size_t size>
class NamedView {
 public:
  explicit constexpr NamedView(std::span<Value, size> block) noexcept : block_(block) {}
  explicit constexpr NamedView(Value* block) noexcept : block_(block, size) {}
  constexpr Value& operator[](Name name) const noexcept { return block_[index(name)]; }
  constexpr Value& at(std::size_t position) const noexcept { return block_[position]; }
  constexpr std::span<Value, size> span() const noexcept { return block_; }

 private:
  std::span<Value, size> block_;
};

using ImageView = NamedView<Entry, float, imageSize>;
using ConstImageView = NamedView<Entry, const float, imageSize>;
using MaskView = NamedView<Entry, std::uint8_t, imageSize>;
using ConstMaskView = NamedView<Entry, const std::uint8_t, imageSize>;
using FadeView = NamedView<Fade, float, fadeBlockSize>;

// From the first to the last entry, both included.
constexpr void clear(ImageView image, Entry first, Entry last) noexcept {
  for (std::size_t i = index(first); i <= index(last); ++i) image.at(i) = 0.0F;
}

enum class EffectMode : int { array = 9, equalizer = 10, arrayFourChannel = 12 };

// Image entry 5, from the audio processing mode.
enum class Category : int {
  other = 0,
  raw = 1,
  speech = 2,
  media = 3,
  communications = 4,
  movie = 5
};

}  // namespace vellumic
