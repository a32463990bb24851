// Two effects on a live microphone for as long as wanted, while everything around them happens:
// reloads every second, volumes, muting, another default loudspeaker, a service that is killed and
// comes back, and a sound server that scripts/soak stops and starts. The stream that the sound
// server ends is opened and locked again, as the audio engine does.
#include <windows.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>
#include <thread>

#include "parameters/Catalogue.h"
#include "tests/apo/ApoWorld.h"
#include "tests/control/ChildProcess.h"
#include "tests/support/OpenHandles.h"
#include "tools/ThreadTime.h"
#include "tools/host/LiveCapture.h"
#include "tools/host/LoopbackClients.h"

namespace vellumic::test {
namespace {

constexpr wchar_t serviceIsThereName[] = L"Global\\VellumicTestSoakService";

const ChildMode soakService("soak-service", [] {
  const ServiceObjects service;
  SetEvent(KernelHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, serviceIsThereName)).get());
  while (true) {  // until it is killed
    (void)service.pingIsAnswered();
    Sleep(100);
  }
  return 0;
});

// The loudspeaker of the doubles, whose loopback is the monitor of a real sink.
class MonitoredSpeaker : public FakeDevice {
 public:
  HRESULT STDMETHODCALLTYPE Activate(REFIID wanted, DWORD context, PROPVARIANT* parameters,
                                     void** object) override {
    if (!IsEqualIID(wanted, __uuidof(IAudioClient)))
      return FakeDevice::Activate(wanted, context, parameters, object);
    *object = nullptr;
    ComPtr<IAudioClient> real;
    const HRESULT result = monitor->Activate(wanted, context, parameters, real.putVoid());
    if (SUCCEEDED(result)) *object = tools::monitorLoopback(std::move(real), started).detach();
    return result;
  }
  ComPtr<IMMDevice> monitor;
  std::atomic<bool> started{false};
};

// Found before ApoWorld puts its doubles in front of the real devices.
struct RealEndpoints {
  RealEndpoints() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const auto enumerator = tools::createEnumerator();
    microphoneEndpoint = tools::findCaptureEndpoint(*enumerator.get(), "array4");
    for (const char* name : {"Monitor of speaker", "array2"})
      monitors.push_back(tools::findCaptureEndpoint(*enumerator.get(), name).device);
  }
  tools::Endpoint microphoneEndpoint;
  std::vector<ComPtr<IMMDevice>> monitors;
};

class LiveSoak : public RealEndpoints, public ApoWorld {
 protected:
  static constexpr unsigned channels = 4, period = 480;
  static constexpr double sessionSeconds = 2.0;
  using Clock = std::chrono::steady_clock;

  LiveSoak() {
    for (std::size_t i = 0; i < speakers.size(); ++i) speakers[i].monitor = monitors[i];
    system.defaultRender = &speakers[0];
    writeFactorySettings();
    startService();
  }
  void startService() {
    serviceProcess.emplace("soak-service");
    EXPECT_EQ(WaitForSingleObject(serviceIsThere.get(), 20000), WAIT_OBJECT_0);
  }
  // The events by which each object is told to read its setting.
  void learnPropertyEvents() {
    const ServiceObjects service;
    const auto end = Clock::now() + std::chrono::seconds(60);  // chance decides who answers
    while (Clock::now() < end && propertyEvents.size() < effects.size()) {
      if (!service.pingIsAnswered()) continue;
      propertyEvents.insert(service.block().propertyEvent.data());
    }
    ASSERT_EQ(propertyEvents.size(), effects.size());
  }

  // Until the time is over; every session ends by itself or with the sound server.
  void listen(double seconds) {
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < end) {
      MediaType format = MediaType::extensible(channels, 0);
      bool locked = false;
      try {
        tools::LiveCapture capture(microphoneEndpoint);
        for (CaptureObject& effect : effects) ASSERT_EQ(effect.lock(format), S_OK);
        locked = true;
        capture.run(sessionSeconds,
                    [this](const float* packet, unsigned frames) { take(packet, frames); });
        ++sessions;
        ++sessionsSinceLoss;
      } catch (const std::runtime_error&) {
        ++losses;
        sessionsSinceLoss = 0;
        Sleep(300);
      }
      if (!locked) continue;
      for (CaptureObject& effect : effects)
        EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    }
  }
  void take(const float* packet, unsigned frames) {
    for (unsigned first = 0; first < frames; first += period) {
      const unsigned count = std::min(period, frames - first);
      samples.assign(packet + first * channels, packet + (first + count) * channels);
      const auto begin = tools::threadTime();
      for (CaptureObject& effect : effects) {
        const auto done = effect.process(samples.data(), count);
        failed += done.u32ValidFrameCount == count && done.u32BufferFlags == BUFFER_VALID ? 0 : 1;
      }
      const auto spent = tools::threadTime() - begin;
      processorTotal += spent;
      // Of user and kernel time a tick each may fall into any period: a third means a long call.
      constexpr std::chrono::milliseconds threeTicks{30};
      missed += spent >= threeTicks ? 1 : 0;
      ++periods;
      for (const float sample : samples) notFinite += std::isfinite(sample) ? 0 : 1;
    }
  }

  // A thread of its own.
  void disturb(const std::stop_token& stop) {
    std::mt19937 random(14);
    const auto chance = [&](unsigned oneIn) { return random() % oneIn == 0; };
    std::uniform_real_distribution<float> decibels(-30.0F, 0.0F);
    for (int quarter = 0; !stop.stop_requested(); ++quarter, Sleep(250)) {
      if (quarter % 4 == 0) reload(quarter % 8 == 0);
      if (chance(4)) {
        microphone.volume.masterDb = decibels(random);
        microphone.volume.muted = chance(3);
        microphone.volume.notify();
      }
      if (chance(20)) system.defaultRender = &speakers[random() % speakers.size()];
      if (quarter % 40 == 18) {  // a slow machine comes to the first of them too
        serviceProcess.reset();  // killed
        Sleep(random() % 500);
        startService();
        ++services;
      }
    }
  }
  void reload(bool factory) {
    registry.writeSetting(L"1", 1, rawCount, [&](unsigned number) {
      const auto slot = static_cast<Raw>(number - 1);
      if (slot == Raw::fadeRequest || slot == Raw::equalizerMaster) return factory ? 0.0F : 1.0F;
      if (slot == Raw::echoCancellation) return 1.0F;
      return factoryValue(slot);
    });
    for (const std::wstring& name : propertyEvents)
      SetEvent(KernelHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, name.c_str())).get());
    ++reloads;
  }

  std::array<MonitoredSpeaker, 2> speakers;
  const KernelHandle serviceIsThere{CreateEventW(nullptr, FALSE, FALSE, serviceIsThereName)};
  std::optional<ChildProcess> serviceProcess;
  std::vector<CaptureObject> effects;
  std::set<std::wstring> propertyEvents;
  std::vector<float> samples;
  int periods = 0, missed = 0, failed = 0, notFinite = 0;
  int sessions = 0, sessionsSinceLoss = 0, losses = 0;
  int reloads = 0, services = 0;
  std::chrono::nanoseconds processorTotal{};
};

TEST_F(LiveSoak, EverythingRecoversAndNothingGrows) {
  const char* const wanted = std::getenv("VELLUMIC_SOAK_SECONDS");
  const double seconds = wanted != nullptr ? std::atof(wanted) : 60.0;
  for (const ClassCase* which : {&mfx, &efx}) effects.push_back(initialized(*which, mode::speech));
  learnPropertyEvents();
  std::jthread disturber([this](const std::stop_token& stop) { disturb(stop); });
  listen(0.2 * seconds);
  for (int n = 0; n < 10 && sessions < 2; ++n) listen(sessionSeconds);  // all that a lock takes
  ASSERT_GE(sessions, 2);
  const std::size_t memory = residentBytes();
  const int handles = openHandles();
  const int reloadsBefore = reloads;
  listen(0.8 * seconds);
  disturber = {};
  sessionsSinceLoss = 0;
  for (int n = 0; n < 20 && sessionsSinceLoss == 0; ++n) listen(4.0);  // after all that

  const auto grown = static_cast<std::ptrdiff_t>(residentBytes() - memory) / 1024;
  const int opened = openHandles() - handles, since = reloads - reloadsBefore;
  std::printf(
      "%d sessions, %d ended by the sound server; %d periods, %.0f us of processor time each\n"
      "%d reloads, %d services; memory %zu + %td KB; %d handles more for the last %d reloads\n",
      sessions, losses, periods, 1e-3 * static_cast<double>(processorTotal.count()) / periods,
      reloads, services, memory / 1024, grown, opened, since);
  EXPECT_GT(sessionsSinceLoss, 0);
  // The disturbances came, as often as a busy machine lets them, and sound in spite of them.
  EXPECT_GE(reloads, seconds / 10.0);
  EXPECT_GE(periods, 10.0 * seconds);
  EXPECT_GE(losses, seconds / 60.0);
  EXPECT_GE(services, 1);
  EXPECT_GE(opened, since / 2);  // heard, a quarter of them at least
  EXPECT_EQ(missed, 0);
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(notFinite, 0);
  EXPECT_LT(grown, 8192);
  // Each reload leaves one registry key open in each object, an agreed price.
  EXPECT_LE(opened, 2 * since + 32);
  propertyEvents.clear();
  learnPropertyEvents();  // both still answer
  effects.clear();
}

}  // namespace
}  // namespace vellumic::test
