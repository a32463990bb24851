// The parameter thread of one object; a base of the object's class T.
//
// T offers `ParameterThreadSubject parameterThreadSubject()` and
// `static constexpr ParameterThreadTraits parameterThreadTraits`.
// start() comes once per successful Initialize. An Initialize that fails after start() calls
// stop() when it has left objectLock, so that a later try can start again. The destructor of T
// calls shutDown() first of all, with no lock held.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <system_error>
#include <thread>

#include "control/OpenEvent.h"
#include "control/ParameterWorker.h"

namespace vellumic {

template <class T>
class CHandleParameterThread {
 public:
  // Creates the stop event and starts the thread, which waits for objectLock. Throws
  // std::system_error if it cannot. Starting over a joinable thread ends the process.
  void start(T* object) {
    owner = object;
    ParameterSync& sync = object->parameterThreadSubject().sync;
    if (auto& event = sync.event(ThreadEvent::stop); !event) event = createManualEvent();
    running.exchange(1);
    thread = std::thread(&CHandleParameterThread::entry, this, owner);
  }

  // Tells the thread to end and joins it; throws std::system_error on the thread itself. A thread
  // that waits needs the stop event besides, see shutDown().
  void stop() {
    running.exchange(0);
    SleepEx(10, TRUE);
    if (thread.joinable()) thread.join();
  }

  // Ends a waiting or working thread: a reload under way is finished first.
  void shutDown(ParameterSync& sync) {
    running.exchange(0);
    {
      const LockScope scope(sync.parameterLock);
      if (const auto& event = sync.event(ThreadEvent::stop)) SetEvent(event.get());
    }
    stop();
  }

  T* owner = nullptr;
  std::thread thread;
  std::atomic<std::uint32_t> running{0};

 private:
  static unsigned long entry(CHandleParameterThread* self, T* object) noexcept {
    if (object == nullptr) return 1;
    return ParameterWorker(object->parameterThreadSubject(), T::parameterThreadTraits,
                           self->running)
        .run();
  }
};

}  // namespace vellumic
