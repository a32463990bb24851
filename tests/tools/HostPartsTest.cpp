// The companion service's stand-in: whom it lets in.
#include <windows.h>

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include "control/Handle.h"
#include "tests/support/MachineNames.h"
#include "tools/host/ServiceStandIn.h"

namespace vellumic::tools {
namespace {

// Whether an object's access list gives the audio service's account the rights.
bool admitsAudioService(const KernelHandle& object, DWORD wanted) {
  PACL list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetSecurityInfo(object.get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                      &list, nullptr, &descriptor) != ERROR_SUCCESS)
    return false;
  bool admitted = false;
  for (WORD i = 0; list != nullptr && i < list->AceCount; ++i) {
    void* entry = nullptr;
    GetAce(list, i, &entry);
    auto& ace = *static_cast<ACCESS_ALLOWED_ACE*>(entry);
    const bool applies = IsWellKnownSid(&ace.SidStart, WinLocalServiceSid) ||
                         IsWellKnownSid(&ace.SidStart, WinWorldSid);
    const bool allRights = (ace.Mask & GENERIC_ALL) != 0 || (ace.Mask & wanted) == wanted;
    admitted |= ace.Header.AceType == ACCESS_ALLOWED_ACE_TYPE && applies && allRights;
  }
  LocalFree(descriptor);
  return admitted;
}

std::string standInFault() {
  try {
    const ServiceStandIn standIn;
    return "none";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

// Effects open the board for writing, the mutex to wait, and the events to signal; the ping event
// by its creation, with all rights.
TEST(Companion, AdmitsTheAudioServiceAndNobodyBesideIt) {
  using namespace test::machine;
  EXPECT_EQ(standInFault(), "none");
  {
    const CompanionLink link(CompanionLink::Missing::make);
    const KernelHandle mapping(OpenFileMappingW(READ_CONTROL, FALSE, board)),
        mutex(OpenMutexW(READ_CONTROL, FALSE, boardMutex)),
        event(OpenEventW(READ_CONTROL, FALSE, boardEvent)),
        ping(OpenEventW(READ_CONTROL, FALSE, pingEvent));
    EXPECT_TRUE(admitsAudioService(mapping, FILE_MAP_WRITE));
    EXPECT_TRUE(admitsAudioService(mutex, SYNCHRONIZE));
    EXPECT_TRUE(admitsAudioService(event, EVENT_MODIFY_STATE));
    EXPECT_TRUE(admitsAudioService(ping, EVENT_ALL_ACCESS));
    EXPECT_NE(standInFault().find("is there already"), std::string::npos) << standInFault();
  }
  SECURITY_ATTRIBUTES nobody = {sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(
      L"D:", SDDL_REVISION_1, &nobody.lpSecurityDescriptor, nullptr));
  const KernelHandle closed(
      CreateFileMappingW(INVALID_HANDLE_VALUE, &nobody, PAGE_READWRITE, 0, 4096, board));
  LocalFree(nobody.lpSecurityDescriptor);
  EXPECT_NE(standInFault().find("run as administrator"), std::string::npos) << standInFault();
}

}  // namespace
}  // namespace vellumic::tools
