#include "control/ParameterWorker.h"

#include <algorithm>
#include <array>

#include "control/BoundedText.h"
#include "control/Names.h"
#include "control/OpenEvent.h"

namespace vellumic {
namespace {

constexpr DWORD failedWaitPauseMs = 10;  // a wait that cannot work must not burn a core

using WaitArray = std::array<HANDLE, threadEventCount>;

constexpr DWORD resultOf(ThreadEvent event) noexcept {
  return WAIT_OBJECT_0 + static_cast<DWORD>(event);
}

}  // namespace

ParameterWorker::ParameterWorker(const ParameterThreadSubject& subject,
                                 ParameterThreadTraits traits,
                                 std::atomic<std::uint32_t>& running) noexcept
    : subject_(subject), traits_(traits), running_(running) {}

ParameterWorker::~ParameterWorker() {
  if (values_ == nullptr) return;
  const LockScope scope(subject_.sync.parameterLock);
  subject_.arena.release(values_);
}

unsigned long ParameterWorker::run() noexcept {
  try {
    if (!startUp()) return 1;
  } catch (...) {
    return 1;
  }
  loop();
  return 0;
}

bool ParameterWorker::startUp() {
  const LockScope objectScope(subject_.sync.objectLock);
  const LockScope parameterScope(subject_.sync.parameterLock);
  if (!subject_.isInitialized) {
    running_.exchange(0);
    return false;
  }
  values_ = static_cast<float*>(subject_.arena.allocate(rawCount * sizeof(float)));
  if (values_ == nullptr) return false;
  createMissingEvents();
  // A capture endpoint has no key among the render endpoints, so the first is normally empty.
  const BoundedText<pathCapacity> effects{renderEndpointsPath, subject_.endpoint.endpointGuidString,
                                          effectsSuffix};
  effects_ = CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, effects.c_str());
  product_ = CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, productPath);
  return true;
}

void ParameterWorker::createMissingEvents() noexcept {
  for (const auto which :
       {ThreadEvent::unused1, ThreadEvent::unused2, ThreadEvent::unused3, ThreadEvent::stop})
    if (!subject_.sync.event(which)) subject_.sync.event(which) = createManualEvent();
  if (auto& ping = subject_.sync.event(ThreadEvent::ping); !ping)
    ping = createManualEvent(pingFallbackName);
}

void ParameterWorker::loop() noexcept {
  WaitArray events;
  std::ranges::transform(subject_.sync.parameterEvents, events.begin(), &KernelHandle::get);
  while (running_ != 0) {
    const DWORD result =
        WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE, INFINITE);
    if (result == resultOf(ThreadEvent::reload)) {
      try {
        reload();
      } catch (...) {  // out of memory: the set in force stays
      }
    } else if (result == resultOf(ThreadEvent::stop)) {
      running_.exchange(0);
    } else if (result == resultOf(ThreadEvent::ping)) {
      subject_.link.publishStatus();
    } else if (result == WAIT_FAILED) {
      Sleep(failedWaitPauseMs);
    }
  }
}

void ParameterWorker::reload() {
  if (!subject_.parameters.reloadSetting(settings_, WritableRawView(values_, rawCount))) return;
  const LockScope scope(subject_.sync.parameterLock);
  const EffectsChange change =
      subject_.sets.reload(RawView(values_, rawCount), subject_.processingMode, traits_.mode);
  if (change.changed()) tellEffectsChange();
}

void ParameterWorker::tellEffectsChange() noexcept {
  if (!subject_.sync.effectsChangedEvent) return;
  ParameterSets& sets = subject_.sets;
  if (traits_.copiesEqualizerEffect && subject_.isInitialized && sets.allocated()) {
    sets.currentImage()[Entry::equalizerEffect] = sets.pendingImage()[Entry::equalizerEffect];
    sets.currentMask()[Entry::equalizerEffect] = sets.pendingMask()[Entry::equalizerEffect];
  }
  SetEvent(subject_.sync.effectsChangedEvent.get());
}

}  // namespace vellumic
