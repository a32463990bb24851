// The companion service's objects, held by the test itself.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <span>

#include "control/Handle.h"
#include "control/StatusBlock.h"
#include "tests/support/MachineNames.h"

namespace vellumic::test {

class ServiceObjects {
 public:
  explicit ServiceObjects(std::uint32_t version = 5, const wchar_t* event = machine::boardEvent)
      : event_(CreateEventW(nullptr, FALSE, FALSE, event)) {
    status().version = version;
  }
  [[nodiscard]] StatusBlock block() const {
    EXPECT_EQ(WaitForSingleObject(mutex_.get(), 5000), WAIT_OBJECT_0);
    const StatusBlock block = status().block;
    ReleaseMutex(mutex_.get());
    return block;
  }
  // All 2724 bytes.
  [[nodiscard]] std::span<std::byte> board() const {
    return {static_cast<std::byte*>(view_.get()), sizeof(StatusBoard)};
  }
  [[nodiscard]] HANDLE mutex() const { return mutex_.get(); }
  // Since the last time.
  [[nodiscard]] bool signalled(DWORD patienceMs = 0) const {
    return WaitForSingleObject(event_.get(), patienceMs) == WAIT_OBJECT_0;
  }
  // The object that published last re-reads its setting.
  void signalReload() const {
    const KernelHandle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, block().propertyEvent.data()));
    ASSERT_TRUE(event);
    SetEvent(event.get());
  }
  // Whether a parameter thread publishes when the service asks.
  [[nodiscard]] bool pingIsAnswered(DWORD patienceMs = 5000) const {
    const KernelHandle ping(OpenEventW(EVENT_MODIFY_STATE, FALSE, machine::pingEvent));
    ResetEvent(event_.get());
    return ping && SetEvent(ping.get()) != FALSE && signalled(patienceMs);
  }

 private:
  [[nodiscard]] StatusBoard& status() const { return *static_cast<StatusBoard*>(view_.get()); }

  KernelHandle mapping_{CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                           sizeof(StatusBoard), machine::board)};
  KernelHandle mutex_{CreateMutexW(nullptr, FALSE, machine::boardMutex)}, event_;
  MappedView view_{MapViewOfFile(mapping_.get(), FILE_MAP_WRITE, 0, 0, 0)};
};

}  // namespace vellumic::test
