// The parameter thread on an object that has everything but COM.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "control/HandleParameterThread.h"
#include "engine/FrameEngine.h"
#include "engine/ProcessBlock.h"
#include "tests/control/RegistrySandbox.h"
#include "tests/control/ServiceDouble.h"
#include "tests/support/MachineNames.h"
#include "tests/support/SystemCalls.h"

namespace vellumic::test {
namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  bool initializeSucceeds = true, propertyEvent = true, pingEvent = true;
};

template <EffectMode lockMode, EffectMode workerMode, bool copiesEqualizerEffect = false>
class CaptureObject
    : public CSharedMemoryAccessHandler,
      public CHandleParameterThread<CaptureObject<lockMode, workerMode, copiesEqualizerEffect>>,
      public CHandleEndpoint,
      public CParametersInRegistry {
 public:
  static constexpr ParameterThreadTraits parameterThreadTraits{workerMode, copiesEqualizerEffect};

  explicit CaptureObject(Options options = {}) : engine(LoopbackOpener{}) {
    const LockScope scope(sync.objectLock);
    EXPECT_TRUE(sets.allocate());
    readInitialSetting(sets.rawParameters(), sets.rawParameters());
    sets.settingRead();
    sets.initialize(processingMode, lockMode);
    if (options.propertyEvent) sync.event(ThreadEvent::reload) = createOpenEvent(nullptr);
    if (options.pingEvent) sync.event(ThreadEvent::ping) = createOpenEvent(machine::pingEvent);
    updateStatus([](StatusBlock& block) { block.instance.Data1 = 77; });
    this->endpointGuidString = L"{endpoint}";
    open();
    this->start(this);
    Sleep(5);  // the thread must wait for the end of this scope
    isInitialized = options.initializeSucceeds;
  }
  ~CaptureObject() { this->shutDown(sync); }

  void lockStream() {
    EXPECT_TRUE(sets.lock({.sampleRate = 48000.0F}, processingMode, lockMode, context));
  }
  ParameterThreadSubject parameterThreadSubject() {
    return {sync, arena, sets, *this, *this, *this, isInitialized, processingMode};
  }
  // Signals a reload; true when a new set was ready in time, which a busy machine gets.
  bool reload(DWORD patienceMs = 60000) {
    const auto pending = [this](bool clear) {
      const LockScope scope(sync.parameterLock);
      if (clear) sync.pending = 0;
      return sync.pending != 0;
    };
    pending(true);
    SetEvent(sync.event(ThreadEvent::reload).get());
    const auto end = Clock::now() + std::chrono::milliseconds(patienceMs);
    while (!pending(false) && Clock::now() < end) Sleep(1);
    return pending(false);
  }
  float pending(Entry entry) {
    const LockScope scope(sync.parameterLock);
    return sets.pendingImage()[entry];
  }

  Arena arena;
  ParameterSync sync;
  FrameEngine engine;
  ParameterSets sets{arena, engine, sync};
  ProcessContext context;
  std::atomic<bool> isInitialized{false};
  ProcessingMode processingMode = ProcessingMode::standard;
};
using Endpoint = CaptureObject<EffectMode::equalizer, EffectMode::equalizer>;
using KeywordDetector = CaptureObject<EffectMode::arrayFourChannel, EffectMode::array>;

class ParameterThread : public testing::Test {
 protected:
  ParameterThread() { write(1.0F); }
  ~ParameterThread() override { ownSystemCalls().onRegistryQuery = nullptr; }
  // A setting of the first 20 values and the master switch; the second value is the mark.
  void write(float mark) {
    registry.writeSetting(L"2", 1, 20, [=](unsigned) { return mark; });
    switchOn(Raw::masterEnable);
    registry.select(L"2");
  }
  void switchOn(Raw slot) {
    const auto number = static_cast<unsigned>(index(slot) + 1);
    registry.writeSetting(L"2", number, number, [](unsigned) { return 1.0F; });
  }
  RegistrySandbox registry;
};

TEST_F(ParameterThread, ReloadReachesRunningAudioWhichNeverWaits) {
  Endpoint object;
  object.lockStream();
  std::atomic<bool> run{true};
  std::atomic<float> heard{0.0F};
  std::atomic<int> calls{0};
  std::thread audio([&] {
    std::array<float, 960> buffer{};
    object.context.inputBuffer = object.context.outputBuffer = buffer.data();
    object.context.inputFlags = buffer_flags::valid;
    object.context.inputValidFrames = 480;
    for (; run; ++calls) {
      processBlock(object.context);
      heard = (*object.context.imageSlot)[index(Entry::rawCopy)];
      Sleep(1);
    }
  });
  for (float mark = 2.0F; mark < 6.0F; ++mark) {
    write(mark);
    SetEvent(object.sync.event(ThreadEvent::reload).get());
    for (int wait = 0; wait < 5000 && heard != mark; ++wait) Sleep(1);
    EXPECT_EQ(heard, mark);
  }
  {
    const LockScope builderAtWork(object.sync.parameterLock);
    const int before = calls;
    for (int wait = 0; wait < 5000 && calls < before + 20; ++wait) Sleep(1);
    EXPECT_GE(calls, before + 20);
  }
  run = false;
  audio.join();
}

TEST_F(ParameterThread, TwoSignalsDuringOneReloadGiveOneMore) {
  Endpoint object;
  ASSERT_TRUE(object.reload());
  std::atomic<int> reloads{0};
  ownSystemCalls().onRegistryQuery = [&, count = 0]() mutable {
    constexpr int queriesPerReload = 1 + static_cast<int>(rawCount);
    if (count++ % queriesPerReload == 0 && ++reloads == 1)
      for (int signal = 0; signal < 2; ++signal) {
        SetEvent(object.sync.event(ThreadEvent::reload).get());
        Sleep(5);
      }
    return true;
  };
  SetEvent(object.sync.event(ThreadEvent::reload).get());
  for (int wait = 0; wait < 5000 && reloads < 2; ++wait) Sleep(1);
  Sleep(100);
  EXPECT_EQ(reloads, 2);
}

TEST_F(ParameterThread, ReloadOutsideAudioWaitsAndLeavesTheFourChannelForm) {
  KeywordDetector object;
  object.lockStream();
  EXPECT_EQ(object.sets.currentImage()[Entry::effectMode], 12.0F);
  EXPECT_EQ(object.sync.pending, 0);
  write(3.0F);
  ASSERT_TRUE(object.reload());
  EXPECT_EQ(object.pending(Entry::rawCopy), 3.0F);
  EXPECT_EQ(object.pending(Entry::effectMode), 9.0F);
  EXPECT_EQ(object.sync.pending, 1);
  EXPECT_EQ(object.sets.currentImage()[Entry::effectMode], 12.0F);

  registry.select(L"absent");  // the values read last stay
  ASSERT_TRUE(object.reload());
  EXPECT_EQ(object.pending(Entry::rawCopy), 3.0F);
  registry.remove(registry.settingsPath());
  EXPECT_FALSE(object.reload(200));
}

// Changed effects are signalled; the endpoint effect alone renews its entry in the set in force.
template <class Object>
void expectEffectsTold(bool renewed, const std::function<void()>& change) {
  Object object;
  const KernelHandle told(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  EXPECT_EQ(object.sync.setEffectsChangedEvent(told.get()), S_OK);
  EXPECT_EQ(object.sync.setEffectsChangedEvent(reinterpret_cast<HANDLE>(0x7FF0)),
            HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
  object.sets.currentImage()[Entry::equalizerEffect] = 5.0F;
  object.sets.currentMask()[Entry::equalizerEffect] = 5;
  ASSERT_TRUE(object.reload());
  EXPECT_EQ(WaitForSingleObject(told.get(), 50), static_cast<DWORD>(WAIT_TIMEOUT));
  change();
  SetEvent(object.sync.event(ThreadEvent::reload).get());
  EXPECT_EQ(WaitForSingleObject(told.get(), 5000), WAIT_OBJECT_0);
  EXPECT_EQ(object.sets.currentImage()[Entry::equalizerEffect], renewed ? 0.0F : 5.0F);
  EXPECT_EQ(object.sets.currentMask()[Entry::equalizerEffect], renewed ? 0 : 5);
  EXPECT_EQ(object.sync.setEffectsChangedEvent(nullptr), S_OK);
  EXPECT_FALSE(object.sync.effectsChangedEvent);
}

TEST_F(ParameterThread, ChangedEffectsAreSignalled) {
  const auto change = [this] {
    for (const Raw slot : {Raw::keepInDefaultMode, Raw::beamformer}) switchOn(slot);
  };
  expectEffectsTold<KeywordDetector>(false, change);
  registry.remove(registry.settingsPath());
  write(1.0F);
  expectEffectsTold<CaptureObject<EffectMode::array, EffectMode::array, true>>(true, change);
}

TEST_F(ParameterThread, PingPublishesOnceAndItsFallbackOnEveryWait) {
  const Service service("serve");
  {
    Endpoint object;
    const KernelHandle ping(OpenEventW(EVENT_MODIFY_STATE, FALSE, machine::pingEvent));
    for (int round = 0; round < 2; ++round) {
      SetEvent(ping.get());
      EXPECT_TRUE(service.signalled(5000));
      EXPECT_FALSE(service.signalled(50));
    }
    EXPECT_EQ(service.board().block.instance.Data1, 77U);
  }
  Endpoint object({.pingEvent = false});
  ASSERT_TRUE(object.reload());  // past its start-up
  const KernelHandle fallback(OpenEventW(EVENT_MODIFY_STATE, FALSE, L"PING"));
  SetEvent(fallback.get());
  EXPECT_TRUE(service.signalled(5000) && service.signalled(5000));
  ResetEvent(fallback.get());
}

TEST_F(ParameterThread, EndsInEveryState) {
  const OpenObjects before = openObjects();
  { Endpoint stoppedAtOnce; }
  EXPECT_EQ(openObjects(), before);
  {
    Endpoint failed({.initializeSucceeds = false});
    for (int wait = 0; wait < 5000 && failed.running != 0; ++wait) Sleep(1);
    EXPECT_EQ(failed.running, 0U);
    failed.stop();
    failed.isInitialized = true;
    failed.start(&failed);  // a later try
    ASSERT_TRUE(failed.reload());
    for (const auto which : {ThreadEvent::unused1, ThreadEvent::unused2, ThreadEvent::unused3})
      SetEvent(failed.sync.event(which).get());
    EXPECT_TRUE(failed.reload());
    for (const auto which : {ThreadEvent::unused1, ThreadEvent::unused2, ThreadEvent::unused3})
      ResetEvent(failed.sync.event(which).get());
    const auto blocks = failed.arena.liveCount();
    failed.shutDown(failed.sync);
    EXPECT_EQ(failed.arena.liveCount(), blocks - 1);  // the reader's array
  }
  { Endpoint failingWait({.propertyEvent = false}); }
  {
    std::atomic<bool> reloading{false};
    Endpoint destroyedAtWork;
    ASSERT_TRUE(destroyedAtWork.reload());
    ownSystemCalls().onRegistryQuery = [&] { return reloading = true; };
    SetEvent(destroyedAtWork.sync.event(ThreadEvent::reload).get());
    while (!reloading) Sleep(1);
  }
  ownSystemCalls().onRegistryQuery = nullptr;
  OpenObjects after = openObjects();
  after.keys -= 2;  // the earlier reloads', of the objects that reloaded twice
  EXPECT_EQ(after, before);
}

// The worker on this thread: its exit code, and what it took of the arena meanwhile.
TEST_F(ParameterThread, RunsOnlyWhenItCanRead) {
  Endpoint object;
  object.shutDown(object.sync);
  const auto run = [&](bool initialized) {
    std::atomic<std::uint32_t> running{1};
    object.isInitialized = initialized;
    SetEvent(object.sync.event(ThreadEvent::stop).get());
    const auto code =
        ParameterWorker(object.parameterThreadSubject(), Endpoint::parameterThreadTraits, running)
            .run();
    return std::pair(code, running.load());
  };
  EXPECT_EQ(run(false), std::pair(1UL, 0U));
  EXPECT_EQ(run(true), std::pair(0UL, 0U));
  (void)object.arena.allocate(Arena::capacity - object.arena.used() - 1);
  EXPECT_EQ(run(true), std::pair(1UL, 1U));
}

TEST_F(ParameterThread, ManyReloadsLoseOneKeyEachAndNothingElse) {
  constexpr int reloads = 50;
  registry.write(std::wstring(machine::renderEndpoints) + L"{endpoint}\\FxProperties", L"", 0);
  ownSystemCalls().onRegistryQuery = [] { return true; };
  const OpenObjects before = openObjects();
  {
    Endpoint object;
    ASSERT_TRUE(object.reload());
    const OpenObjects first = openObjects();
    EXPECT_EQ(first.keys, before.keys + 3);  // the setting's tree, the endpoint, the product
    const auto used = object.arena.used();
    for (int reload = 1; reload < reloads; ++reload) ASSERT_TRUE(object.reload());
    EXPECT_EQ(openObjects().handles, first.handles);
    EXPECT_EQ(openObjects().keys, first.keys + reloads - 1);
    EXPECT_EQ(object.arena.used(), used);
  }
  EXPECT_EQ(openObjects().keys, before.keys + reloads - 1);
  EXPECT_EQ(openObjects().handles, before.handles);
}

TEST_F(ParameterThread, StoppingItselfIsAnError) {
  struct Stopper : CHandleParameterThread<Stopper> {
  } stopper;
  std::atomic<bool> go{false};
  std::error_code code;
  stopper.thread = std::thread([&] {
    while (!go) Sleep(1);
    try {
      stopper.stop();
    } catch (const std::system_error& error) {
      code = error.code();
    }
  });
  go = true;
  stopper.thread.join();
  EXPECT_EQ(code, std::errc::resource_deadlock_would_occur);
}

}  // namespace
}  // namespace vellumic::test
