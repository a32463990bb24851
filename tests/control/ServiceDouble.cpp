#include "tests/control/ServiceDouble.h"

#include "control/OpenEvent.h"

namespace vellumic::test {
namespace {

enum class With { everything, otherVersion, noEvent, heldMutex, abandonedMutex };

// Creates the four named objects and keeps them until told to quit.
int serve(With with) {
  const KernelHandle mutex(CreateMutexW(nullptr, FALSE, machine::boardMutex));
  const KernelHandle mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                sizeof(StatusBoard), machine::board));
  const MappedView view(MapViewOfFile(mapping.get(), FILE_MAP_WRITE, 0, 0, 0));
  static_cast<StatusBoard*>(view.get())->version = with == With::otherVersion ? 4 : 5;
  KernelHandle event;
  if (with != With::noEvent) event.reset(CreateEventW(nullptr, FALSE, FALSE, machine::boardEvent));
  const KernelHandle ping = createOpenEvent(machine::pingEvent);
  const KernelHandle quit(OpenEventW(SYNCHRONIZE, FALSE, serviceQuitName));
  if (with == With::heldMutex || with == With::abandonedMutex)
    WaitForSingleObject(mutex.get(), INFINITE);
  SetEvent(KernelHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, serviceReadyName)).get());
  if (with == With::heldMutex) {
    WaitForSingleObject(KernelHandle(OpenEventW(SYNCHRONIZE, FALSE, serviceLetGoName)).get(),
                        20000);
    ReleaseMutex(mutex.get());
    SetEvent(KernelHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, serviceReadyName)).get());
  }
  WaitForSingleObject(quit.get(), 20000);
  return 0;  // an owned mutex is abandoned here
}

const ChildMode modes[] = {
    {"serve", [] { return serve(With::everything); }},
    {"serve-version-4", [] { return serve(With::otherVersion); }},
    {"serve-without-event", [] { return serve(With::noEvent); }},
    {"serve-held-mutex", [] { return serve(With::heldMutex); }},
    {"serve-abandoned-mutex", [] { return serve(With::abandonedMutex); }},
};

}  // namespace
}  // namespace vellumic::test
