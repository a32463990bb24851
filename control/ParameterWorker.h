// The parameter thread's work, the same for every class of object: reload the active setting when
// the property event fires, publish the status when the service pings, stop on the stop event.
//
// It is the only writer of the pending set while audio runs. Registry work holds no lock;
// parameterLock is held for the copy and the build alone, and the frame core never waits for it.
#pragma once

#include <atomic>
#include <cstdint>

#include "control/HandleEndpoint.h"
#include "control/ParameterSync.h"
#include "control/ParametersInRegistry.h"
#include "control/SharedMemoryAccessHandler.h"
#include "engine/Arena.h"
#include "engine/ParameterSets.h"

namespace vellumic {

// What differs between the classes.
struct ParameterThreadTraits {
  EffectMode mode;             // of every reload, whatever mode the object was locked with
  bool copiesEqualizerEffect;  // a change of effects also renews entry 634 of the current set
};

// What the thread needs of its object; all of it outlives the thread.
struct ParameterThreadSubject {
  ParameterSync& sync;
  Arena& arena;
  ParameterSets& sets;
  CParametersInRegistry& parameters;
  const CHandleEndpoint& endpoint;
  CSharedMemoryAccessHandler& link;
  const std::atomic<bool>& isInitialized;  // false once Initialize has ended: it failed
  const ProcessingMode& processingMode;
};

// Lives on its thread's stack.
class ParameterWorker {
 public:
  ParameterWorker(const ParameterThreadSubject& subject, ParameterThreadTraits traits,
                  std::atomic<std::uint32_t>& running) noexcept;
  ~ParameterWorker();
  ParameterWorker(const ParameterWorker&) = delete;
  ParameterWorker& operator=(const ParameterWorker&) = delete;

  // Waits for the end of Initialize, then works until `running` is 0. The thread's exit code: 0,
  // or 1 when Initialize failed or the arena has no room for the reader's array.
  unsigned long run() noexcept;

 private:
  bool startUp();
  void createMissingEvents() noexcept;
  void loop() noexcept;
  void reload();
  void tellEffectsChange() noexcept;

  ParameterThreadSubject subject_;
  ParameterThreadTraits traits_;
  std::atomic<std::uint32_t>& running_;
  float* values_ = nullptr;        // the reader's array, from the arena
  RegistryKey product_, effects_;  // held, not read
  RegistryKey settings_;           // closed first
};

}  // namespace vellumic
