// The companion service's objects, held by the test itself.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>
#include <sddl.h>

#include <array>
#include <span>
#include <string>

#include "control/Handle.h"
#include "control/StatusBlock.h"
#include "tests/support/MachineNames.h"

namespace vellumic::test {

// Who may use an object, as Wine tells it: Windows spells "all" as the object's own rights.
inline std::string accessTo(const KernelHandle& object) {
  std::array<std::byte, 1024> list{};
  DWORD size = list.size();
  LPSTR text = nullptr;
  GetKernelObjectSecurity(object.get(), DACL_SECURITY_INFORMATION, list.data(), size, &size);
  ConvertSecurityDescriptorToStringSecurityDescriptorA(list.data(), SDDL_REVISION_1,
                                                       DACL_SECURITY_INFORMATION, &text, nullptr);
  const std::string access = text == nullptr ? "" : text;
  LocalFree(text);
  return access;
}

class ServiceObjects {
 public:
  explicit ServiceObjects(const wchar_t* event = machine::boardEvent)
      : event_(CreateEventW(nullptr, FALSE, FALSE, event)) {
    status().version = 5;
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
  // By which the object that published last is told to read its setting again.
  [[nodiscard]] KernelHandle propertyEvent() const {
    return KernelHandle(OpenEventW(EVENT_MODIFY_STATE, FALSE, block().propertyEvent.data()));
  }
  void signalReload() const {
    const KernelHandle event = propertyEvent();
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
