#include "tools/host/HostRun.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "parameters/SettingsFile.h"
#include "parameters/SettingsNotes.h"
#include "tools/ThreadTime.h"
#include "tools/host/LiveCapture.h"

namespace vellumic::tools {
namespace {

constexpr DWORD patienceMs = 2000;

void warn(const std::string& line) { std::fprintf(stderr, "warning: %s\n", line.c_str()); }

void printNote(const std::optional<std::string>& note) {
  if (note) std::fprintf(stderr, "note: %s\n", note->c_str());
}

}  // namespace

HostRun::HostRun(const HostOptions& options) : options_(options), enumerator_(createEnumerator()) {}

void HostRun::go() {
  if (options_.list) {
    for (const Endpoint& endpoint : endpoints(*enumerator_.get(), eCapture))
      std::printf("%s  %s\n", endpoint.guid.c_str(), endpoint.name.c_str());
    return;
  }
  endpoint_ = findCaptureEndpoint(*enumerator_.get(), options_.endpoint);
  std::printf("Endpoint: %s %s\n", endpoint_.name.c_str(), endpoint_.guid.c_str());
  if (options_.storesSettings()) storeSettings();
  standInForDevices();
  if (options_.service) {
    try {
      service_.emplace();
    } catch (const std::runtime_error& error) {
      throw std::runtime_error(std::string("--service: ") + error.what());
    }
  }
  makeEffects();
  options_.liveSeconds > 0.0 ? runLive() : runFile();
  printFigures();
}

void HostRun::storeSettings() {
  SettingsWarnings warnings;
  values_ = factorySettings();
  for (const std::string& file : options_.settingsFiles) applySettingsFile(file, values_, warnings);
  for (const std::string& text : options_.assignments) applyAssignment(text, values_, warnings);
  otherValues_ = values_;
  if (!options_.reloadFile.empty()) applySettingsFile(options_.reloadFile, otherValues_, warnings);
  for (const std::string& warning : warnings) warn(warning);
  if (has("mfx")) printNotes();
  setting_.emplace(values_);
}

void HostRun::printNotes() const {
  if (options_.speech) printNote(speechModeNote(values_));
  printNote(internalRateNote(values_, otherValues_));
}

bool HostRun::has(const std::string& className) const {
  return std::ranges::find(options_.classes, className) != options_.classes.end();
}

void HostRun::standInForDevices() {
  Replacements replacements;
  if (!options_.farFile.empty()) {
    far_ = readWave(options_.farFile);
    replacements.far = &*far_;
    replacements.clock = &clock_;
  } else if (!options_.monitor.empty()) {
    replacements.monitor = findCaptureEndpoint(*enumerator_.get(), options_.monitor);
  } else if (!hasLoopback(*enumerator_.get())) {
    std::puts("Loopback: not on this machine; --far or --monitor stand in for it");
  }
  const bool hasVolumes = hasChannelVolumes(endpoint_);
  if (!hasVolumes) std::puts("Channel volumes: not on this machine, stood in for");
  // A file's result must not depend on where the knob happens to be.
  if (!hasVolumes || options_.liveSeconds == 0.0) replacements.volume = options_.volume;
  if (replacements.far != nullptr || replacements.monitor.device || replacements.volume)
    proxy_.emplace(enumerator_, std::move(replacements));
}

void HostRun::makeEffects() {
  const auto devices = collectionAround(*enumerator_.get(), endpoint_);
  const auto endpointProperties = propertiesOf(*endpoint_.device.get());
  const auto effectProperties = propertiesOf(*endpoint_.device.get());
  for (const std::string& name : options_.classes) {
    auto& effect = *effects_.emplace_back(std::make_unique<CaptureEffect>(name));
    effect.initialize({.devices = devices.get(),
                       .endpointProperties = endpointProperties.get(),
                       .effectProperties = effectProperties.get(),
                       .deviceIndex = 0,
                       .processingMode = options_.mode});
    std::printf("%s accepts: %s\n", name.c_str(), effect.formats().c_str());
    if (service_ && !service_->waitFor(effect.classId(), patienceMs))
      warn(name + " did not show on the status board");
  }
}

void HostRun::lock(unsigned channels, unsigned sampleRate, std::uint32_t mask) {
  sampleRate_ = sampleRate;
  period_ = std::max(1U, sampleRate / 100);
  chain_.emplace(static_cast<double>(period_) / sampleRate);
  if (setting_ && has("efx")) printNote(unstableBandNote(values_, static_cast<int>(sampleRate)));
  for (const auto& effect : effects_) {
    const FormatShape shape = effect->negotiate(proposals(channels, sampleRate, mask));
    effect->lock(shape, period_);
    chain_->add(*effect);
    std::printf("%s: %s at %u Hz, effects: %s\n", effect->name().c_str(), shape.text().c_str(),
                sampleRate, effect->effects().c_str());
  }
  const bool replaced = far_ || !options_.monitor.empty();
  if (has("mfx") && replaced && !proxy_->waitForLoopback(patienceMs))
    warn("no effect opened the loopback; is echo cancellation on?");
  nextReload_ = options_.reloadEvery;
}

void HostRun::unlock() {
  for (const auto& effect : effects_) effect->unlock();
}

void HostRun::process(float* samples, unsigned frames) {
  frames_ += frames;
  clock_.seconds = static_cast<double>(frames_) / sampleRate_;
  chain_->process(samples, frames);
}

void HostRun::reload() {
  ++reloads_;
  if (setting_ && !options_.reloadFile.empty())
    setting_->store(reloads_ % 2 == 1 ? otherValues_ : values_);
  service_->tellToReload();
}

void HostRun::reloadUntil(const std::stop_token& stop) noexcept {
  try {
    const auto pause = std::chrono::milliseconds(static_cast<int>(1000.0 * options_.reloadEvery));
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    while (!wake.wait_for(lock, stop, pause, [&stop] { return stop.stop_requested(); })) reload();
  } catch (const std::exception& error) {
    warn(error.what());
  }
}

void HostRun::runFile() {
  WaveData wave = readWave(options_.inputFile);
  const auto channels = static_cast<std::size_t>(wave.format.channels);
  lock(static_cast<unsigned>(channels), static_cast<unsigned>(wave.format.sampleRate),
       wave.format.channelMask);
  const std::size_t total = wave.frames();
  chain_->reserve(total / period_ + 1);
  for (std::size_t frame = 0; frame < total;) {
    const auto count = static_cast<unsigned>(std::min<std::size_t>(period_, total - frame));
    if (options_.reloadEvery > 0.0 && clock_.seconds >= nextReload_) {
      reload();
      nextReload_ += options_.reloadEvery;
    }
    process(wave.samples.data() + frame * channels, count);
    frame += count;
  }
  unlock();
  writeWave(options_.outputFile, wave);
}

void HostRun::runLive() {
  LiveCapture capture(endpoint_);
  lock(capture.channels(), capture.sampleRate(), 0);
  WaveData wave{.format = {.sampleRate = static_cast<int>(sampleRate_),
                           .channels = static_cast<int>(capture.channels())},
                .samples = {}};
  const double seconds = options_.liveSeconds + 1.0;
  wave.samples.reserve(static_cast<std::size_t>(seconds * sampleRate_) * capture.channels());
  chain_->reserve(static_cast<std::size_t>(seconds * 200.0));

  // Storing 1365 values takes longer than a period: off the audio thread.
  std::jthread reloader;
  if (options_.reloadEvery > 0.0)
    reloader = std::jthread([this](const std::stop_token& stop) { reloadUntil(stop); });
  const auto before = threadTime();
  const LiveFigures figures =
      capture.run(options_.liveSeconds, [&](const float* packet, unsigned frames) {
        const std::size_t start = wave.samples.size();
        wave.samples.insert(wave.samples.end(), packet,
                            packet + std::size_t{frames} * capture.channels());
        for (unsigned frame = 0; frame < frames;) {
          const unsigned count = std::min(period_, frames - frame);
          process(wave.samples.data() + start + std::size_t{frame} * capture.channels(), count);
          frame += count;
        }
      });
  const std::chrono::duration<double> spent = threadTime() - before;
  reloader = {};  // stops at once, also in the middle of a pause
  unlock();
  writeWave(options_.outputFile, wave);
  std::printf("Live: %d packets, %d lost before a packet, %d late wake-ups, longest wait %.1f ms\n",
              figures.packets, figures.discontinuities, figures.lateWakeUps, figures.longestWaitMs);
  std::printf("Audio thread: %.1f %% of a core\n", 100.0 * spent.count() / options_.liveSeconds);
}

void HostRun::printFigures() const {
  const CallFigures figures = chain_->figures();
  std::printf("Calls: %zu, p50 %.1f us, p99 %.1f us, worst %.1f us\n", figures.calls, figures.p50,
              figures.p99, figures.worst);
  std::printf("Periods missed: %d of %zu\n", chain_->overrun(), figures.calls);
  if (chain_->failed() != 0) throw std::runtime_error("an effect did not process a period");
  if (!service_) return;
  std::printf("Reloads: %d\n", reloads_);
  for (const auto& effect : effects_)
    std::printf("Status board: %s seen %d times\n", effect->name().c_str(),
                service_->timesSeen(effect->classId()));
}

}  // namespace vellumic::tools
