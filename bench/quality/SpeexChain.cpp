#include "bench/quality/SpeexChain.h"

#include <speex/speex_echo.h>
#include <speex/speex_preprocess.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <memory>

namespace vellumic::quality {
namespace {

constexpr int frame = 160;  // 10 ms

struct EchoEnd {
  void operator()(SpeexEchoState* state) const { speex_echo_state_destroy(state); }
};
struct PreprocessEnd {
  void operator()(SpeexPreprocessState* state) const { speex_preprocess_state_destroy(state); }
};

std::vector<spx_int16_t> interleaved(const Channels& channels, std::size_t start) {
  std::vector<spx_int16_t> out;
  for (std::size_t n = start; n < start + frame; ++n)
    for (const Signal& channel : channels)
      out.push_back(static_cast<spx_int16_t>(
          std::lround(std::clamp(channel[n], -1.0F, 0.99996F) * 32768.0F)));
  return out;
}

}  // namespace

SpeexResult runSpeex(const Channels& microphones, const Channels& far, double tailSeconds) {
  const std::size_t count = microphones.size(), length = microphones.front().size();
  int rate = static_cast<int>(sceneRate);
  std::unique_ptr<SpeexEchoState, EchoEnd> echo(
      speex_echo_state_init_mc(frame, static_cast<int>(tailSeconds * rate), static_cast<int>(count),
                               static_cast<int>(far.size())));
  speex_echo_ctl(echo.get(), SPEEX_ECHO_SET_SAMPLING_RATE, &rate);
  std::vector<std::unique_ptr<SpeexPreprocessState, PreprocessEnd>> stages;
  for (std::size_t m = 0; m < count; ++m) {
    stages.emplace_back(speex_preprocess_state_init(frame, rate));
    speex_preprocess_ctl(stages.back().get(), SPEEX_PREPROCESS_SET_ECHO_STATE, echo.get());
  }

  SpeexResult result;
  result.output.resize(length);
  std::vector<spx_int16_t> cancelled(frame * count), one(frame);
  const std::clock_t start = std::clock();
  for (std::size_t n = 0; n + frame <= length; n += frame) {
    const auto mics = interleaved(microphones, n), reference = interleaved(far, n);
    speex_echo_cancellation(echo.get(), mics.data(), reference.data(), cancelled.data());
    for (std::size_t m = count; m-- > 0;) {  // the first last, so that its result stays in `one`
      for (std::size_t i = 0; i < frame; ++i) one[i] = cancelled[i * count + m];
      speex_preprocess_run(stages[m].get(), one.data());
    }
    for (std::size_t i = 0; i < frame; ++i)
      result.output[n + i] = static_cast<float>(one[i]) / 32768.0F;
  }
  result.cpuPerSecond = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC /
                        (static_cast<double>(length) / sceneRate);
  return result;
}

}  // namespace vellumic::quality
