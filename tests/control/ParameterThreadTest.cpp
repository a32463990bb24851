// The parameter thread on an object that has everything but COM.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "control/HandleParameterThread.h"
#include "engine/FrameEngine.h"
#include "tests/control/RegistrySandbox.h"
#include "tests/control/ServiceObjects.h"
#include "tests/support/MachineNames.h"

namespace vellumic::test {
namespace {

struct Options {
  bool initializeSucceeds = true, propertyEvent = true, pingEvent = true;
};

template <class Condition>
bool comes(Condition condition, int patienceMs = 5000) {
  for (int wait = 0; wait < patienceMs && !condition(); ++wait) Sleep(1);
  return condition();
}

template <EffectMode lockMode, EffectMode workerMode, bool copiesEqualizerEffect = false>
class CaptureObject
    : public CSharedMemoryAccessHandler,
      public CHandleParameterThread<CaptureObject<lockMode, workerMode, copiesEqualizerEffect>>,
      public CHandleEndpoint,
      public CParametersInRegistry {
 public:
  static constexpr ParameterThreadTraits parameterThreadTraits{workerMode, copiesEqualizerEffect};

  explicit CaptureObject(Options options = {}) {
    const LockScope scope(sync.objectLock);
    EXPECT_TRUE(sets.allocate());
    readInitialSetting(sets.rawParameters(), sets.rawParameters());
    sets.settingRead();
    sets.initialize(processingMode, lockMode);
    if (options.propertyEvent) sync.event(ThreadEvent::reload) = createOpenEvent(nullptr);
    if (options.pingEvent) sync.event(ThreadEvent::ping) = createOpenEvent(machine::pingEvent);
    updateStatus([](StatusBlock& block) { block.instance.Data1 = 77; });
    open();
    this->start(this);
    Sleep(5);  // the thread must wait for the end of this scope
    isInitialized = options.initializeSucceeds;
  }
  ~CaptureObject() { this->shutDown(sync); }

  ParameterThreadSubject parameterThreadSubject() {
    return {sync, arena, sets, *this, *this, *this, isInitialized, processingMode};
  }
  // Signals a reload; true when a new set was ready in time, which a busy machine gets.
  bool reload(int patienceMs = 60000) {
    const auto pending = [this](bool clear) {
      const LockScope scope(sync.parameterLock);
      if (clear) sync.pending = 0;
      return sync.pending != 0;
    };
    pending(true);
    SetEvent(sync.event(ThreadEvent::reload).get());
    return comes([&] { return pending(false); }, patienceMs);
  }

  Arena arena;
  ParameterSync sync;
  FrameEngine engine{LoopbackOpener{}};
  ParameterSets sets{arena, engine, sync};
  std::atomic<bool> isInitialized{false};
  ProcessingMode processingMode = ProcessingMode::standard;
};
using Endpoint = CaptureObject<EffectMode::equalizer, EffectMode::equalizer>;
using KeywordDetector = CaptureObject<EffectMode::arrayFourChannel, EffectMode::array>;

class ParameterThread : public testing::Test {
 protected:
  ParameterThread() { write(1.0F); }
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

TEST_F(ParameterThread, AReloadWaitsForTheAudioAndLeavesTheFourChannelForm) {
  KeywordDetector object;
  ProcessContext context;
  EXPECT_TRUE(object.sets.lock({.sampleRate = 48000.0F}, object.processingMode,
                               EffectMode::arrayFourChannel, context));
  write(3.0F);
  for (const wchar_t* setting : {L"2", L"absent"}) {  // the values read last stay
    registry.select(setting);
    ASSERT_TRUE(object.reload());
    const LockScope scope(object.sync.parameterLock);
    EXPECT_EQ(object.sync.pending, 1);
    EXPECT_EQ(object.sets.pendingImage()[Entry::rawCopy], 3.0F);
    EXPECT_EQ(object.sets.pendingImage()[Entry::effectMode], 9.0F);
    EXPECT_EQ(object.sets.currentImage()[Entry::effectMode], 12.0F);
  }
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
  const ServiceObjects service;
  {
    Endpoint object;
    const KernelHandle ping(OpenEventW(EVENT_MODIFY_STATE, FALSE, machine::pingEvent));
    for (int round = 0; round < 2; ++round) {
      SetEvent(ping.get());
      EXPECT_TRUE(service.signalled(5000));
      EXPECT_FALSE(service.signalled(50));
    }
    EXPECT_EQ(service.block().instance.Data1, 77U);
  }
  Endpoint object({.pingEvent = false});
  ASSERT_TRUE(object.reload());  // past its start-up
  const KernelHandle fallback(OpenEventW(EVENT_MODIFY_STATE, FALSE, L"PING"));
  SetEvent(fallback.get());
  EXPECT_TRUE(service.signalled(5000) && service.signalled(5000));
  ResetEvent(fallback.get());
}

TEST_F(ParameterThread, EndsInEveryState) {
  { Endpoint stoppedAtOnce; }
  {
    Endpoint failed({.initializeSucceeds = false});
    EXPECT_TRUE(comes([&] { return failed.running == 0; }));
    failed.stop();
    failed.isInitialized = true;
    failed.start(&failed);  // a later try
    ASSERT_TRUE(failed.reload());
    for (const auto which : {ThreadEvent::unused1, ThreadEvent::unused2, ThreadEvent::unused3}) {
      SetEvent(failed.sync.event(which).get());
      EXPECT_TRUE(failed.reload());
      ResetEvent(failed.sync.event(which).get());
    }
    const auto blocks = failed.arena.liveCount();
    failed.shutDown(failed.sync);
    EXPECT_EQ(failed.arena.liveCount(), blocks - 1);  // the reader's array
  }
  { Endpoint failingWait({.propertyEvent = false}); }
  {
    Endpoint destroyedAtWork;
    ASSERT_TRUE(destroyedAtWork.reload());
    SetEvent(destroyedAtWork.sync.event(ThreadEvent::reload).get());
  }
}

// The worker on this thread, without room for its array.
TEST_F(ParameterThread, EndsWithoutMemory) {
  Endpoint object;
  object.shutDown(object.sync);
  (void)object.arena.allocate(Arena::capacity - object.arena.used() - 1);
  std::atomic<std::uint32_t> running{1};
  ParameterWorker worker(object.parameterThreadSubject(), Endpoint::parameterThreadTraits, running);
  EXPECT_EQ(worker.run(), 1U);
}

}  // namespace
}  // namespace vellumic::test
