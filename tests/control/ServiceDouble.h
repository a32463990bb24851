// The companion service, in a process of its own: it owns the four named objects until told to
// quit.
#pragma once

#include <gtest/gtest.h>

#include "control/StatusBlock.h"
#include "tests/control/ChildProcess.h"
#include "tests/support/MachineNames.h"

namespace vellumic::test {

inline constexpr wchar_t serviceReadyName[] = L"Global\\VellumicTestServiceReady";
inline constexpr wchar_t serviceLetGoName[] = L"Global\\VellumicTestServiceLetGo";
inline constexpr wchar_t serviceQuitName[] = L"Global\\VellumicTestServiceQuit";

// Modes: serve, serve-version-4, serve-without-event, serve-held-mutex (until releaseMutex()),
// serve-abandoned-mutex (abandoned by quit()).
class Service {
 public:
  explicit Service(const char* mode) : child_(mode) {
    EXPECT_EQ(WaitForSingleObject(ready_.get(), 20000), WAIT_OBJECT_0);
    mapping_.reset(OpenFileMappingW(FILE_MAP_READ, FALSE, machine::board));
    view_.reset(MapViewOfFile(mapping_.get(), FILE_MAP_READ, 0, 0, sizeof(StatusBoard)));
    event_.reset(OpenEventW(SYNCHRONIZE, FALSE, machine::boardEvent));
  }
  ~Service() { quit(); }
  void releaseMutex() {
    SetEvent(letGo_.get());
    EXPECT_EQ(WaitForSingleObject(ready_.get(), 20000), WAIT_OBJECT_0);
  }
  void quit() {
    SetEvent(quit_.get());
    EXPECT_EQ(child_.wait(), 0U);
  }
  const StatusBoard& board() const { return *static_cast<const StatusBoard*>(view_.get()); }
  bool signalled(DWORD waitMs = 0) const {
    return WaitForSingleObject(event_.get(), waitMs) == WAIT_OBJECT_0;
  }

 private:
  KernelHandle ready_{CreateEventW(nullptr, FALSE, FALSE, serviceReadyName)};
  KernelHandle letGo_{CreateEventW(nullptr, TRUE, FALSE, serviceLetGoName)};
  KernelHandle quit_{CreateEventW(nullptr, TRUE, FALSE, serviceQuitName)};
  ChildProcess child_;
  KernelHandle mapping_, event_;
  MappedView view_;
};

}  // namespace vellumic::test
