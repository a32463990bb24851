// Sounds through the effects whose results are known, and settings that change while they run.
#include <cmath>

#include "tools/ctl/StatusCollector.h"
#include "tools/host/ProxyEnumerator.h"
#include "tools/host/selftest/BoardStep.h"
#include "tools/host/selftest/Judgements.h"
#include "tools/host/selftest/Sounds.h"
#include "tools/host/selftest/Stages.h"
#include "tools/host/selftest/TestSite.h"

namespace vellumic::tools {
namespace {

constexpr unsigned rate = 48000, channels = 2, period = 480;
constexpr double peakDb = 6.0;
constexpr ULONGLONG signalPatienceMs = 10000;  // for a reload, for the loopback

RawValues peakSettings() {
  std::vector<std::string> assignments{"equalizer.enabled=true"};
  for (const std::string side : {"left", "right"})
    for (const char* rest : {"enabled=true", "type=peak", "frequency_hz=1000", "gain_db=6", "q=1"})
      assignments.push_back("equalizer." + side + ".band1." + rest);
  return settingsWith(assignments);
}

// What a sine on the peak's centre gains, over a fifth of a second.
class GainProbe {
 public:
  explicit GainProbe(CaptureEffect& effect)
      : effect_(effect), sine_(1000.0, rate, channels, 0.1F) {}
  double measure() {
    double before = 0.0, after = 0.0;
    std::vector<float> samples(std::size_t{period} * channels);
    for (int call = 0; call < 20; ++call) {
      sine_.fill(samples);
      before += powerOf(samples.data(), samples.size());
      if (!effect_.process(samples.data(), period)) return -200.0;
      after += powerOf(samples.data(), samples.size());
    }
    return decibelsOf(std::sqrt(std::max(after / before, 1e-20)));
  }

 private:
  CaptureEffect& effect_;
  Sine sine_;
};

void knownSound(StageLog& log, const TestSite& site, const ServiceStandIn* board,
                TestSettings& settings) {
  const auto effect = site.effect("efx", modeDefault);
  effect->lock({.extensible = true, .channels = channels, .sampleRate = rate, .mask = 3}, period);
  GainProbe probe(*effect);
  log.attempt("equaliser raises 1 kHz by 6 dB", [&] {
    probe.measure();  // the filters settle
    return judgeGain(probe.measure(), peakDb);
  });
  log.attempt("equaliser follows a reload while it runs", [&] {
    if (board == nullptr) return untold("nobody can tell it without a status board");
    settings.store(factorySettings());
    board->tellToReload();
    double gain = peakDb;
    for (const ULONGLONG end = GetTickCount64() + signalPatienceMs;
         std::abs(gain) > gainToleranceDb && GetTickCount64() < end;)
      gain = probe.measure();
    return judgeGain(gain, 0.0);
  });
  effect->unlock();
}

void effectsChange(StageLog& log, const TestSite& site, const ServiceStandIn* board,
                   TestSettings& settings) {
  log.attempt("array tells that its effects change", [&] {
    if (board == nullptr) return untold("nobody can tell it without a status board");
    const auto effect = site.effect("mfx", modeDefault);
    const KernelHandle changed(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    const std::string before = effect->effects(changed.get());
    effect->lock({.extensible = true, .channels = 2, .sampleRate = rate, .mask = 3}, period);
    WaitForSingleObject(changed.get(), 0);  // of the lock itself
    settings.store(settingsWith({"noise.enabled=false"}));
    board->tellToReload();
    std::vector<float> samples(std::size_t{period} * channels);
    bool told = false;
    std::string after = before;
    // The signal comes when the set is built; a call adopts it that finds its lock free.
    for (const ULONGLONG end = GetTickCount64() + signalPatienceMs;
         (!told || after == before) && GetTickCount64() < end;) {
      told = WaitForSingleObject(changed.get(), 5) == WAIT_OBJECT_0 || told;
      effect->process(samples.data(), period);
      if (told) after = effect->effects();  // which takes the event back
    }
    effect->unlock();
    return judgeEffects(told, before, after);
  });
}

// The loudspeakers' noise, half as loud and 5 ms later, at two microphones.
void echo(StageLog& log, const TestSite& site, bool ownSettings) {
  constexpr unsigned slow = 16000, call = 160, seconds = 6, delay = 80;
  log.attempt("array cancels an echo", [&]() -> Outcome {
    WaveData far{.format = {.sampleRate = static_cast<int>(slow), .channels = 1},
                 .samples = evenNoise(std::size_t{seconds} * slow)};
    StreamClock clock;
    const ProxyEnumerator proxy(site.sharedEnumerator(),
                                {.far = &far, .clock = &clock, .monitor = {}, .volume = 1.0F});
    const auto effect = site.effect("mfx", modeSpeech);
    effect->lock({.extensible = true, .channels = 2, .sampleRate = slow, .mask = 3}, call);
    if (!proxy.waitForLoopback(static_cast<DWORD>(signalPatienceMs)))
      return untold("this system's list of devices could not be stood in for");
    double before = 0.0, after = 0.0;
    for (std::size_t at = 0; at + call <= far.samples.size(); at += call) {
      clock.seconds = static_cast<double>(at + call) / slow;
      std::vector<float> samples;
      for (std::size_t i = at; i < at + call; ++i)
        samples.insert(samples.end(), 2, i < delay ? 0.0F : 0.5F * far.samples[i - delay]);
      const bool measured = at > std::size_t{seconds - 2} * slow;
      before += measured ? powerOf(samples.data(), samples.size()) : 0.0;
      if (!effect->process(samples.data(), call)) return bad("did not process a period");
      after += measured ? powerOf(samples.data(), samples.size()) : 0.0;
    }
    effect->unlock();
    return judgeEcho(decibelsOf(std::sqrt(before / std::max(after, 1e-20))), ownSettings);
  });
}

}  // namespace

void signalStage(StageLog& log, const StageOptions& options) {
  std::optional<ServiceStandIn> board;
  makeBoard(log, board);
  const TestSite site(options.endpoint);
  TestSettings settings(log, board, peakSettings());
  const ServiceStandIn* const teller = board ? &*board : nullptr;
  if (settings) {
    log.attempt("equaliser", [&] {
      knownSound(log, site, teller, settings);
      return good();
    });
    effectsChange(log, site, teller, settings);
    settings.store(factorySettings());
  } else {
    log.tell("known sound and reloads",
             untold("no rights to store settings; run as administrator"));
  }
  echo(log, site, static_cast<bool>(settings));
}

void settingsBackStage(StageLog& log) {
  log.attempt("settings put back", [] {
    if (!RegistrySetting::putBack())
      return bad("vellumic-host is still the active setting, or stored; run as administrator");
    std::size_t told = 0;
    for (const SeenObject& object : searchObjects().objects) told += signalReload(object) ? 1U : 0U;
    return good(std::to_string(told) + " effects told");
  });
}

}  // namespace vellumic::tools
