// The tools that stand in for the companion service, and whom they let in.
#include <windows.h>

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "control/Handle.h"
#include "control/Names.h"
#include "tools/ctl/CompanionLink.h"
#include "tools/host/ServiceStandIn.h"

namespace vellumic::tools {
namespace {

// Whether an object's access list gives the audio service's account all the object's rights.
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

// Effects open the board for writing, the mutex to wait, and the events to signal; the ping event
// by its creation, with all rights.
void expectAudioServiceAdmitted() {
  const KernelHandle board(OpenFileMappingW(READ_CONTROL, FALSE, sharedMemoryName)),
      mutex(OpenMutexW(READ_CONTROL, FALSE, sharedMemoryMutexName)),
      event(OpenEventW(READ_CONTROL, FALSE, sharedMemoryEventName)),
      ping(OpenEventW(READ_CONTROL, FALSE, pingEventName));
  EXPECT_TRUE(admitsAudioService(board, FILE_MAP_WRITE));
  EXPECT_TRUE(admitsAudioService(mutex, SYNCHRONIZE));
  EXPECT_TRUE(admitsAudioService(event, EVENT_MODIFY_STATE));
  EXPECT_TRUE(admitsAudioService(ping, EVENT_ALL_ACCESS));
}

std::string standInFault() {
  try {
    const ServiceStandIn standIn;
    return "none";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

TEST(Companion, AdmitsTheAudioServiceToWhatItMakes) {
  {
    const ServiceStandIn standIn;
    expectAudioServiceAdmitted();
  }
  const CompanionLink link(CompanionLink::Missing::make);
  expectAudioServiceAdmitted();
}

TEST(Companion, StandInNamesWhatKeepsItFromStarting) {
  {
    const CompanionLink other(CompanionLink::Missing::make);
    EXPECT_NE(standInFault().find("is there already"), std::string::npos) << standInFault();
  }
  SECURITY_ATTRIBUTES nobody = {sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(
      L"D:", SDDL_REVISION_1, &nobody.lpSecurityDescriptor, nullptr));
  {
    const KernelHandle closed(CreateFileMappingW(INVALID_HANDLE_VALUE, &nobody, PAGE_READWRITE, 0,
                                                 4096, sharedMemoryName));
    EXPECT_NE(standInFault().find("run as administrator"), std::string::npos) << standInFault();
  }
  LocalFree(nobody.lpSecurityDescriptor);
  EXPECT_EQ(standInFault(), "none");
}

}  // namespace
}  // namespace vellumic::tools
