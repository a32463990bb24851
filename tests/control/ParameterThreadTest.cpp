// The parameter thread on an object that has everything but COM.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <thread>

#include "control/BoundedText.h"
#include "control/HandleParameterThread.h"
#include "control/Names.h"
#include "engine/FrameEngine.h"
#include "engine/ProcessBlock.h"
#include "tests/control/ImportHooks.h"
#include "tests/control/RegistrySandbox.h"
#include "tests/control/ServiceDouble.h"

namespace vellumic::test {
namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  bool initializeSucceeds = true, propertyEvent = true, pingEvent = true, fullArena = false;
};

template <EffectMode lockMode, EffectMode workerMode>
class CaptureObject : public CSharedMemoryAccessHandler,
                      public CHandleParameterThread<CaptureObject<lockMode, workerMode>>,
                      public CHandleEndpoint,
                      public CParametersInRegistry {
 public:
  static constexpr ParameterThreadTraits parameterThreadTraits{workerMode,
                                                               workerMode == EffectMode::equalizer};

  explicit CaptureObject(Options options = {}) : engine(LoopbackOpener{}) {
    const LockScope scope(sync.objectLock);
    EXPECT_TRUE(sets.allocate());
    readInitialSetting(sets.rawParameters(), sets.rawParameters());
    sets.settingRead();
    sets.initialize(processingMode, lockMode);
    if (options.fullArena) (void)arena.allocate(Arena::capacity - arena.used() - 1);
    if (options.propertyEvent) sync.event(ThreadEvent::reload) = createOpenEvent(nullptr);
    if (options.pingEvent) sync.event(ThreadEvent::ping) = createOpenEvent(pingEventName);
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
  // Signals a reload; true when a new set was ready within 10 seconds.
  bool reload(DWORD patienceMs = 10000) {
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
  float pendingMark() {
    const LockScope scope(sync.parameterLock);
    return sets.pendingImage()[Entry::rawCopy];
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
  ~ParameterThread() override { onRegistryQuery(nullptr); }
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
  std::atomic<std::int64_t> worst{0};  // microseconds
  std::thread audio([&] {
    std::array<float, 960> buffer{};
    object.context.inputBuffer = object.context.outputBuffer = buffer.data();
    object.context.inputFlags = buffer_flags::valid;
    object.context.inputValidFrames = 480;
    for (; run; ++calls) {
      const auto begin = Clock::now();
      processBlock(object.context);
      const auto spent =
          std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
      worst = std::max<std::int64_t>(worst, spent.count());
      heard = (*object.context.imageSlot)[index(Entry::rawCopy)];
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  for (float mark = 2.0F; mark < 12.0F; ++mark) {
    write(mark);
    SetEvent(object.sync.event(ThreadEvent::reload).get());
    for (int wait = 0; wait < 5000 && heard != mark; ++wait) Sleep(1);
    EXPECT_EQ(heard, mark);
  }
  std::cout << "worst of " << calls << " calls while reloading: " << worst << " us\n";
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
  onRegistryQuery([&, count = 0]() mutable {
    constexpr int queriesPerReload = 1 + static_cast<int>(rawCount);
    if (count++ % queriesPerReload == 0 && ++reloads == 1)
      for (int signal = 0; signal < 2; ++signal) {
        SetEvent(object.sync.event(ThreadEvent::reload).get());
        Sleep(5);
      }
    return true;
  });
  SetEvent(object.sync.event(ThreadEvent::reload).get());
  for (int wait = 0; wait < 5000 && reloads < 2; ++wait) Sleep(1);
  Sleep(200);
  EXPECT_EQ(reloads, 2);
}

TEST_F(ParameterThread, ReloadOutsideAudioWaitsAndLeavesTheFourChannelForm) {
  KeywordDetector object;
  object.lockStream();
  EXPECT_EQ(object.sets.currentImage()[Entry::effectMode], 12.0F);
  EXPECT_EQ(object.sync.pending, 0);
  write(3.0F);
  ASSERT_TRUE(object.reload());
  EXPECT_EQ(object.pendingMark(), 3.0F);
  EXPECT_EQ(object.sets.pendingImage()[Entry::effectMode], 9.0F);
  EXPECT_EQ(object.sync.pending, 1);
  EXPECT_EQ(object.sets.currentImage()[Entry::effectMode], 12.0F);
}

TEST_F(ParameterThread, MissingTreeRaisesNothingAndAMissingSettingKeepsTheLast) {
  Endpoint object;
  write(4.0F);
  ASSERT_TRUE(object.reload());
  registry.select(L"absent");
  ASSERT_TRUE(object.reload());
  EXPECT_EQ(object.pendingMark(), 4.0F);
  registry.remove(registry.settingsPath());
  EXPECT_FALSE(object.reload(200));
}

TEST_F(ParameterThread, ChangedEffectsAreSignalled) {
  KeywordDetector object;
  const KernelHandle told(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  EXPECT_EQ(object.sync.setEffectsChangedEvent(told.get()), S_OK);
  EXPECT_EQ(object.sync.setEffectsChangedEvent(reinterpret_cast<HANDLE>(0x7FF0)),
            HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
  ASSERT_TRUE(object.reload());
  EXPECT_EQ(WaitForSingleObject(told.get(), 50), static_cast<DWORD>(WAIT_TIMEOUT));
  for (const Raw slot : {Raw::keepInDefaultMode, Raw::beamformer}) switchOn(slot);
  SetEvent(object.sync.event(ThreadEvent::reload).get());
  EXPECT_EQ(WaitForSingleObject(told.get(), 5000), WAIT_OBJECT_0);
  EXPECT_EQ(object.sync.setEffectsChangedEvent(nullptr), S_OK);
  EXPECT_FALSE(object.sync.effectsChangedEvent);
}

TEST_F(ParameterThread, PingPublishesOnceAndItsFallbackOnEveryWait) {
  const Service service("serve");
  {
    Endpoint object;
    const KernelHandle ping(OpenEventW(EVENT_MODIFY_STATE, FALSE, pingEventName));
    for (int round = 0; round < 2; ++round) {
      SetEvent(ping.get());
      EXPECT_TRUE(service.signalled(5000));
      EXPECT_FALSE(service.signalled(50));
    }
    EXPECT_EQ(service.board().block.instance.Data1, 77U);
  }
  Endpoint object({.pingEvent = false});
  ASSERT_TRUE(object.reload());  // past its start-up
  const KernelHandle fallback(OpenEventW(EVENT_MODIFY_STATE, FALSE, pingFallbackName));
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
    const auto blocks = failed.arena.liveCount();
    failed.shutDown(failed.sync);
    EXPECT_EQ(failed.arena.liveCount(), blocks - 1);  // the reader's array
  }
  {
    Endpoint withoutRoom({.fullArena = true});
    EXPECT_FALSE(withoutRoom.reload(50));
  }
  { Endpoint failingWait({.propertyEvent = false}); }
  {
    Endpoint unusedSignals;
    ASSERT_TRUE(unusedSignals.reload());
    for (const auto which : {ThreadEvent::unused1, ThreadEvent::unused2, ThreadEvent::unused3})
      SetEvent(unusedSignals.sync.event(which).get());
    EXPECT_TRUE(unusedSignals.reload());
  }
  {
    std::atomic<bool> reloading{false};
    Endpoint destroyedAtWork;
    ASSERT_TRUE(destroyedAtWork.reload());
    onRegistryQuery([&] { return reloading = true; });
    SetEvent(destroyedAtWork.sync.event(ThreadEvent::reload).get());
    while (!reloading) Sleep(1);
  }
  onRegistryQuery(nullptr);
  OpenObjects after = openObjects();
  after.keys -= 2;  // the earlier reloads', of the objects that reloaded twice
  EXPECT_EQ(after, before);
}

TEST_F(ParameterThread, ManyReloadsLoseOneKeyEachAndNothingElse) {
  constexpr int reloads = 1000;
  registry.write(renderEndpointsPath + std::wstring(L"{endpoint}\\FxProperties"), L"", 0);
  onRegistryQuery([] { return true; });
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
  std::error_code code;
  std::atomic<bool> go{false};
  stopper.thread = std::thread([&] {
    while (!go) Sleep(1);
    try {
      stopper.stop();
    } catch (const std::system_error& error) {
      code = error.code();
    }
  });
  go = true;
  while (!code) Sleep(1);
  stopper.stop();
  EXPECT_EQ(code, std::errc::resource_deadlock_would_occur);
}

}  // namespace
}  // namespace vellumic::test
