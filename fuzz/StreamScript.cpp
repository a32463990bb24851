#include "fuzz/StreamScript.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>

#include "fuzz/CallWatch.h"
#include "fuzz/Neighbours.h"
#include "fuzz/Require.h"
#include "fuzz/Voice.h"
#include "tests/support/HeapInUse.h"

namespace vellumic::fuzz {
namespace {

constexpr float untouched = -77.0F;
constexpr unsigned lookBackEvery = sanitized ? 1 : 8;  // the way back takes longer than all else
constexpr std::size_t mostMemory = 200'000'000;        // bytes; 112 MB were seen
constexpr double longestCall = sanitized ? 1.0 : 0.1;  // s of processor time

double rootMeanSquare(const std::vector<float>& samples) {
  double sum = 0.0;
  for (const float value : samples) sum += static_cast<double>(value) * value;
  return std::sqrt(sum / static_cast<double>(samples.size()));
}

// One input in so many, the same ones each time.
bool oneIn(unsigned many, std::span<const std::uint8_t> input) {
  std::uint32_t hash = 2166136261U;
  for (const std::uint8_t byte : input) hash = (hash ^ byte) * 16777619U;
  return (hash >> 16U) % many == 0;
}

}  // namespace

StreamScript::StreamScript(std::span<const std::uint8_t> input)
    : heapBefore_(heapInUse()), input_(input), looksBack_(oneIn(lookBackEvery, input)) {
  struct Modes {
    EffectMode lock, reload;
  };
  // The keyword detector's class reloads into the usual form.
  constexpr std::array classes{Modes{EffectMode::array, EffectMode::array},
                               Modes{EffectMode::equalizer, EffectMode::equalizer},
                               Modes{EffectMode::arrayFourChannel, EffectMode::array}};
  const Modes modes = classes[input_.choose(classes.size())];
  lockMode_ = modes.lock;
  reloadMode_ = modes.reload;
  mode_ = static_cast<ProcessingMode>(input_.choose(7));
  speakers_.format.channels = 1 + static_cast<int>(input_.choose(8));
  const auto speed = input_.number<std::uint16_t>();
  speakers_.format.sampleRate =
      speed % 8 == 0 ? 1 + 3 * speed : static_cast<int>(rates[speed % rates.size()]);
  LoopbackOpener opener;
  opener.onHelperThread = false;
  opener.dropsBacklog = input_.choose(2) == 0;
  opener.open = [this] { return std::make_unique<RandomPackets>(speakers_); };
  core_ = std::make_unique<CaptureCore>(opener);

  values_ = settings();
  require(core_->sets.allocate(), "a fresh object has room for its blocks");
  std::ranges::copy(values_, core_->sets.rawParameters().begin());
  core_->sets.settingRead();
  core_->sets.initialize(mode_, lockMode_);
  lock();
}

void StreamScript::run() {
  while (!input_.empty() && framesLeft_ > 0) {
    switch (input_.choose(16)) {
      case 0:
        lock();
        break;
      case 1:
      case 2:
      case 3:
        reload();
        break;
      case 4:
        core_->sets.setVolumes({.master = anyFloat(), .first = anyFloat(), .second = anyFloat()});
        break;
      case 5:
        setLoudspeakers();
        break;
      case 6:
        if (input_.byte() < 8) return looksBack_ ? recover() : void();
        break;
      default:
        call();
    }
  }
  checkMemory();
  if (odd_) recover();
}

void StreamScript::lock() {
  const std::size_t rate = input_.choose(rates.size() + 1);
  format_ = {.sampleRate = rate < rates.size() ? rates[rate] : anyFloat(),
             .inputChannels = static_cast<std::uint32_t>(1 + input_.choose(12)),
             .outputChannels = static_cast<std::uint32_t>(1 + input_.choose(12)),
             .inputMask = input_.number<std::uint32_t>(),
             .outputMask = input_.number<std::uint32_t>()};
  core_->sets.proposeRate(format_.sampleRate);
  require(core_->sets.lock(format_, mode_, lockMode_, core_->context).has_value(),
          "a lock never runs out of room");
  checkMemory();
}

void StreamScript::checkMemory() const {
  require(heapInUse() < heapBefore_ + mostMemory, "an object takes a bounded amount of memory");
}

void StreamScript::reload() { core_->sets.reload(values_ = settings(), mode_, reloadMode_); }

// Factory values, those before or zeros, with any value in some slots.
RawValues StreamScript::settings() {
  RawValues values = values_;
  const std::size_t base = input_.choose(4);
  if (base < 2) values = factorySettings();
  if (base == 2) values = RawValues{};
  values[index(Raw::fadeRequest)] = static_cast<float>(input_.choose(4) == 0);
  const auto named = catalogue();
  for (std::size_t count = input_.choose(20); count > 0; --count) {
    const std::uint8_t slot = input_.byte();
    if (slot == 255)
      values[input_.number<std::uint16_t>() % rawCount] = anyFloat();
    else
      values[index(named[slot % named.size()].slot)] = anyFloat();
  }
  return values;
}

float StreamScript::anyFloat() {
  using Limits = std::numeric_limits<float>;
  constexpr std::array special{0.0F,
                               1.0F,
                               -1.0F,
                               Limits::quiet_NaN(),
                               Limits::infinity(),
                               -Limits::infinity(),
                               Limits::max(),
                               Limits::denorm_min(),
                               1e30F,
                               2147483648.0F,
                               128.0F,
                               16384.0F,
                               1e-6F,
                               1000.0F,
                               0.5F,
                               192000.0F};
  const std::uint8_t kind = input_.byte();
  if (kind < special.size()) return special[kind];
  if (kind < 64) return std::bit_cast<float>(input_.number<std::uint32_t>());
  return static_cast<float>(input_.number<std::int16_t>()) / 64.0F;
}

float StreamScript::sample(int kind) {
  noise_ = noise_ * 1664525U + 1013904223U;
  const float white = static_cast<float>(noise_ >> 8U) / 8388608.0F - 1.0F;
  if (kind == 1) return 0.0F;
  if (kind == 2) return 1e30F * white;
  if (kind == 3) return noise_ % 50 == 0 ? std::numeric_limits<float>::quiet_NaN() : white;
  if (kind == 4) return 1.0F;
  if (kind == 5) return 1e5F * white;
  return 0.1F * white;
}

void StreamScript::call() {
  const std::size_t frames =
      std::min<std::size_t>(framesLeft_, input_.number<std::uint16_t>() % 1500U);
  framesLeft_ -= frames;
  const std::size_t flag = input_.choose(16);
  const std::uint32_t flags =
      flag < 12 ? buffer_flags::valid : static_cast<std::uint32_t>(flag - 12);
  const int kind = static_cast<int>(input_.choose(12));
  deafening_ = deafening_ || (kind == 5 && frames > 0 && flags == buffer_flags::valid);
  std::vector<float> in(frames * format_.inputChannels);
  for (float& value : in) value = sample(kind);
  std::vector<float> out(frames * format_.outputChannels, untouched);
  process(in, out, flags);
}

void StreamScript::process(const std::vector<float>& in, std::vector<float>& out,
                           std::uint32_t flags) {
  constexpr CallState state{.initialized = true, .locked = true, .limits = {}};
  const auto frames = static_cast<std::uint32_t>(in.size() / format_.inputChannels);
  const StreamBuffer input{const_cast<float*>(in.data()), frames, flags};
  StreamBuffer output{out.data(), 12345U, 99U};
  {
    const CallWatch watch;
    require(admitCall(state, 1, 1), "one connection on each side is admitted");
    runCall(core_->context, 1, input, 1, output);
    require(watch.forbiddenCalls() == 0, "no heap call in a call");
    require(watch.cpuSeconds() < longestCall, "a call takes a bounded time");
  }
  checkWritten(out, output, flags, frames);
  if (looksBack_ && !std::ranges::all_of(out, [](float v) { return std::abs(v) < 100.0F; }))
    odd_ = true;
}

void StreamScript::checkWritten(const std::vector<float>& out, const StreamBuffer& output,
                                std::uint32_t flags, std::uint32_t frames) const {
  const auto all = [&out](float wanted) {
    return std::ranges::all_of(out, [wanted](float value) { return value == wanted; });
  };
  if (flags == buffer_flags::valid || flags == buffer_flags::silent) {
    require(output.flags == flags && output.validFrames == frames, "flags and count go through");
    if (flags == buffer_flags::silent) require(all(0.0F), "silence in, silence out");
  } else {
    require(output.flags == 99U && output.validFrames == 12345U && all(untouched),
            "a bad flag writes nothing");
  }
}

void StreamScript::setLoudspeakers() {
  speakers_.waiting = input_.byte();
  speakers_.frames = input_.number<std::uint16_t>();
  const std::uint8_t bits = input_.byte();
  speakers_.silent = (bits & 1U) != 0;
  speakers_.failing = (bits & 2U) != 0;
  speakers_.withoutSamples = (bits & 4U) != 0;
  speakers_.level = (bits & 8U) != 0 ? 1e30F : 0.1F;
}

// Good settings, with or without a new lock: within 10 s half a second is finite and neither lost
// nor deafening. What came in far beyond full scale and is still under way is levelled by the good
// settings, which let go of it within minutes, as of any sound of that level. So they come once
// more when it has gone through.
void StreamScript::recover() {
  speakers_ = {.format = speakers_.format};
  core_->sets.setVolumes({});
  values_ = factorySettings();
  core_->sets.reload(values_, mode_, reloadMode_);
  if (!(format_.sampleRate >= 8000.0F && format_.sampleRate <= 48000.0F)) {
    format_ = {.sampleRate = 16000.0F};
    core_->sets.proposeRate(format_.sampleRate);
    require(core_->sets.lock(format_, mode_, lockMode_, core_->context).has_value(), "room");
  }
  const std::vector<float> voice = voiceAt(static_cast<std::size_t>(format_.sampleRate));
  const std::size_t half = voice.size() / 2;
  std::vector<float> in(half * format_.inputChannels);
  for (int halves = 0; halves < 20; ++halves) {
    if (halves == 1 && deafening_) core_->sets.reload(values_, mode_, reloadMode_);
    const float* said = voice.data() + (halves % 2 == 0 ? 0 : half);
    for (std::size_t n = 0; n < in.size(); ++n)
      in[n] = said[n / format_.inputChannels] + 1e-3F * sample(0);
    std::vector<float> out(half * format_.outputChannels, untouched);
    process(in, out, buffer_flags::valid);
    std::vector<float> first;
    for (std::size_t n = 0; n < out.size(); n += format_.outputChannels) first.push_back(out[n]);
    const double ratio = rootMeanSquare(first) / rootMeanSquare(in);
    const bool finite = std::ranges::all_of(out, [](float v) { return std::isfinite(v); });
    if (finite && ratio > 0.01 && ratio < 60.0) return;
  }
  require(false, "good settings bring the sound back within 10 s");
}

}  // namespace vellumic::fuzz
