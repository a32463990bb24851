// The microphone through all three effects, for as long as asked, with reloads.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>

#include "tools/ctl/TextConversion.h"
#include "tools/host/Chain.h"
#include "tools/host/LiveCapture.h"
#include "tools/host/selftest/BoardStep.h"
#include "tools/host/selftest/Chained.h"
#include "tools/host/selftest/Judgements.h"
#include "tools/host/selftest/OwnTime.h"
#include "tools/host/selftest/Sounds.h"
#include "tools/host/selftest/Stages.h"
#include "tools/host/selftest/TestSite.h"

namespace vellumic::tools {
namespace {

constexpr double listenSeconds = 1.2;  // the board is pinged every second
constexpr DWORD boardPatienceMs = 5000;

class DeviceWatch final : public Counted<IMMNotificationClient> {
 public:
  HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override { return count(); }
  HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override { return count(); }
  HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return count(); }
  HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow, ERole, LPCWSTR) override {
    return count();
  }
  HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override {
    return count();
  }
  [[nodiscard]] int calls() const { return calls_; }

 private:
  HRESULT count() {
    ++calls_;
    return S_OK;
  }
  std::atomic<int> calls_{0};
};

class LiveRun {
 public:
  LiveRun(StageLog& log, const StageOptions& options)
      : log_(log), seconds_(options.seconds), site_(options.endpoint) {}
  void go();

 private:
  void watchEngine();
  void makeEffects();
  void run();
  Outcome listen(LiveFigures& figures);
  void reloadUntil(const std::stop_token& stop);  // a thread of its own
  void process(const float* packet, unsigned frames);
  void tellFigures(const LiveFigures& live);
  void tellTiming();
  void tellBoard();

  StageLog& log_;
  double seconds_;
  std::optional<ServiceStandIn> board_;
  TestSite site_;
  std::optional<LiveCapture> capture_;
  std::optional<TestSettings> settings_;
  std::vector<std::unique_ptr<CaptureEffect>> effects_;
  std::optional<Chain> chain_, keyword_;
  unsigned period_ = 480;
  std::vector<float> samples_, copy_;
  const OwnTime ownTime_;
  unsigned long long mostCycles_ = 0;
  bool cyclesCounted_ = true, finite_ = true;
  float peakIn_ = 0.0F, peakOut_ = 0.0F;
  int reloads_ = 0;
};

void LiveRun::go() {
  if (!site_.hasMicrophone())
    return log_.tell("microphone", untold("no microphone; connect one and run again"));
  makeBoard(log_, board_);
  const bool opened = log_.attempt("microphone opened", [&] {
    capture_.emplace(site_.endpoint());
    return good(std::to_string(capture_->channels()) + " channels at " +
                std::to_string(capture_->sampleRate()) + " Hz");
  });
  if (!opened) return;
  period_ = std::max(1U, capture_->sampleRate() / 100);
  watchEngine();
  settings_.emplace(log_, board_, factorySettings());
  makeEffects();
  run();
}

// Whoever shows itself while none of ours exists was made by the audio engine.
void LiveRun::watchEngine() {
  log_.attempt("effects inside the audio engine", [&] {
    if (!board_) return untold("they cannot be seen without a status board");
    capture_->run(listenSeconds, [](const float*, unsigned) {});
    GUID here{};
    check(CLSIDFromString(wide(site_.endpoint().guid).c_str(), &here), "the microphone's id");
    std::string seen, chained;
    for (const char* name : classNames) {
      if (board_->timesSeen(classIdOf(name), &here) == 0) continue;
      seen += (seen.empty() ? "" : ", ") + std::string(name);
      if (inChain(site_.endpoint().guid, name)) chained = ", by a chain";
    }
    return seen.empty() ? untold("none seen; vellumic-ctl attach this microphone, then run again")
                        : good(seen + chained);
  });
}

void LiveRun::makeEffects() {
  chain_.emplace(static_cast<double>(period_) / capture_->sampleRate());
  keyword_.emplace(static_cast<double>(period_) / capture_->sampleRate());
  for (const std::string name : {"mfx", "efx", "kdmfx"}) {
    std::unique_ptr<CaptureEffect> effect;
    log_.attempt(name + " on the microphone", [&] {
      effect = site_.effect(name, modeSpeech);
      const FormatShape shape =
          effect->negotiate(proposals(capture_->channels(), capture_->sampleRate(), 0));
      effect->lock(shape, period_);
      (name == "kdmfx" ? *keyword_ : *chain_).add(*effect);
      effects_.push_back(std::move(effect));
      return good(shape.text() + ", effects: " + effects_.back()->effects());
    });
  }
  log_.attempt("effects on the status board", [&] {
    if (!board_) return untold("there is none of ours");
    for (const auto& effect : effects_)
      if (!board_->waitFor(effect->classId(), boardPatienceMs))
        return bad(effect->name() + " did not show itself; send the report");
    return good();
  });
}

void LiveRun::process(const float* packet, unsigned frames) {
  const std::size_t channels = capture_->channels();
  for (unsigned at = 0; at < frames;) {
    const unsigned count = std::min(period_, frames - at);
    const float* const begin = packet + at * channels;
    samples_.assign(begin, begin + count * channels);
    copy_ = samples_;
    const auto before = OwnTime::cycles();
    chain_->process(samples_.data(), count);
    keyword_->process(copy_.data(), count);
    const auto after = OwnTime::cycles();
    cyclesCounted_ = cyclesCounted_ && before && after;
    if (cyclesCounted_) mostCycles_ = std::max(mostCycles_, *after - *before);
    for (std::size_t i = 0; i < samples_.size(); ++i) {
      finite_ = finite_ && std::isfinite(samples_[i]) && std::isfinite(copy_[i]);
      peakIn_ = std::max(peakIn_, std::abs(begin[i]));
      peakOut_ = std::max(peakOut_, std::abs(samples_[i]));
    }
    at += count;
  }
}

// Storing 1365 values takes longer than a period: off the audio thread.
void LiveRun::reloadUntil(const std::stop_token& stop) {
  const RawValues other =
      settingsWith({"equalizer.enabled=true", "equalizer.left.band1.enabled=true",
                    "equalizer.right.band1.enabled=true", "noise.enabled=false"});
  const auto pause = std::chrono::duration<double>(std::min(1.0, seconds_ / 4.0));
  std::mutex mutex;
  std::condition_variable_any wake;
  std::unique_lock lock(mutex);
  while (!wake.wait_for(lock, stop, pause, [&stop] { return stop.stop_requested(); })) {
    ++reloads_;
    if (*settings_) settings_->store(reloads_ % 2 == 1 ? other : factorySettings());
    if (board_) board_->tellToReload();
  }
}

Outcome LiveRun::listen(LiveFigures& figures) {
  std::string failed;
  std::jthread reloader([&](const std::stop_token& stop) {
    try {
      reloadUntil(stop);
    } catch (const std::exception& error) {
      failed = error.what();
    }
  });
  figures = capture_->run(seconds_, [&](const float* packet, unsigned n) { process(packet, n); });
  reloader = {};  // stops and ends
  if (!failed.empty()) return bad("a reload failed: " + failed);
  return good(std::to_string(figures.packets) + " packets");
}

void LiveRun::run() {
  const auto watch = make<DeviceWatch>();
  const bool watching = log_.call("device notifications asked for", [&] {
    return site_.enumerator().RegisterEndpointNotificationCallback(watch.get());
  });
  LiveFigures figures;
  const bool heard = log_.attempt("sound", [&] { return listen(figures); });
  if (watching)
    log_.call("device notifications ended", [&] {
      return site_.enumerator().UnregisterEndpointNotificationCallback(watch.get());
    });
  log_.tell("device notifications came",
            watch->calls() > 0 ? good(std::to_string(watch->calls()) + " calls")
                               : untold("no device changed; plug one in while this runs"));
  if (heard) tellFigures(figures);
  for (const auto& effect : effects_)
    log_.attempt(effect->name() + " unlocked", [&] {
      effect->unlock();
      return good();
    });
}

void LiveRun::tellFigures(const LiveFigures& live) {
  if (effects_.empty())
    return log_.tell("sound out of the effects", untold("none could be made; mend that first"));
  log_.tell("sound out of the effects",
            judgeSound({.finite = finite_,
                        .failedPeriods = chain_->failed() + keyword_->failed(),
                        .peakIn = peakIn_,
                        .peakOut = peakOut_,
                        .gaps = live.discontinuities,
                        .lateWakeUps = live.lateWakeUps,
                        .longestWaitMs = live.longestWaitMs}));
  tellTiming();
  tellBoard();
}

void LiveRun::tellTiming() {
  const CallFigures figures = chain_->figures();
  const double periodUs = 1e6 * period_ / capture_->sampleRate();
  char text[200];
  std::snprintf(
      text, sizeof text,
      "mfx and efx: p50 %.0f us, p99 %.0f us, worst %.0f us of %.0f us; %d of %zu periods "
      "missed",
      figures.p50, figures.p99, figures.worst, periodUs, chain_->overrun(), figures.calls);
  log_.tell("calls, by the clock", good(text));
  std::optional<double> own;
  if (cyclesCounted_) own = ownTime_.microseconds(mostCycles_);
  log_.tell("calls, own processor time", judgeOwnTime(own, periodUs));
}

void LiveRun::tellBoard() {
  log_.attempt("status board while running", [&] {
    if (!board_) return untold("there is none of ours");
    std::string text = std::to_string(reloads_) + " reloads; seen";
    for (const auto& effect : effects_)
      text += " " + effect->name() + " " + std::to_string(board_->timesSeen(effect->classId()));
    return good(text);
  });
}

}  // namespace

void liveStage(StageLog& log, const StageOptions& options) { LiveRun(log, options).go(); }

}  // namespace vellumic::tools
