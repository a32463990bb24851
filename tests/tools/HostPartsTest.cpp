// Parts of the host: the companion service's stand-in and whom it lets in, the live microphone.
#include <windows.h>

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <atomic>

#include "control/Handle.h"
#include "control/SharedMemoryAccessHandler.h"
#include "tests/control/DeviceDoubles.h"
#include "tests/support/MachineNames.h"
#include "tools/host/LiveCapture.h"
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

TEST(Companion, AsksEverySecondAndNotesWhoAnswers) {
  const ServiceStandIn standIn;
  CSharedMemoryAccessHandler effect;
  ASSERT_TRUE(effect.open());
  effect.updateStatus([](StatusBlock& block) { block.instance.Data1 = 1; });
  const KernelHandle ping(OpenEventW(SYNCHRONIZE, FALSE, test::machine::pingEvent));
  effect.publishStatus();
  EXPECT_TRUE(standIn.waitFor(CLSID{}, 5000));
  for (int times = 2; times < 4; ++times) {
    EXPECT_EQ(WaitForSingleObject(ping.get(), 20000), WAIT_OBJECT_0);
    effect.publishStatus();
    for (int waited = 0; standIn.timesSeen(CLSID{}) < times && waited < 5000; ++waited) Sleep(1);
    EXPECT_EQ(standIn.timesSeen(CLSID{}), times);
  }
}

// A sound server that ends, or sends nothing any more, and signals all the same.
TEST(Microphone, EndsWithItsSoundServer) {
  for (const bool gone : {true, false}) {
    test::FakeDevice device;
    device.client.capture.packets = {{std::vector<float>(2 * 480)}};
    LiveCapture microphone(
        {.device = ComPtr<IMMDevice>::share(&device), .name = "mic", .guid = {}});
    std::atomic<bool> over{false};
    std::thread server([&] {
      for (; !over; Sleep(5)) SetEvent(device.client.event);
    });
    unsigned heard = 0;
    std::string fault;
    try {
      microphone.run(60.0, [&](const float*, unsigned frames) {
        heard += frames;
        device.client.capture.broken = gone;
      });
    } catch (const std::runtime_error& error) {
      fault = error.what();
    }
    over = true;
    server.join();
    EXPECT_EQ(heard, 480U);
    EXPECT_NE(fault.find(gone ? "is gone" : "sends nothing"), std::string::npos) << fault;
  }
}

}  // namespace
}  // namespace vellumic::tools
