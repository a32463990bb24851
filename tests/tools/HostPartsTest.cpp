// The companion service's stand-in: whom it lets in.
#include "tests/control/ServiceObjects.h"
#include "tests/tools/CommandLine.h"
#include "tools/host/ServiceStandIn.h"

namespace vellumic::tools {
namespace {

// The system, administrators and local services; effects make the ping event, for everybody.
TEST(Companion, AdmitsTheAudioServiceAndNobodyBesideIt) {
  using namespace test::machine;
  const auto standInFault = [] { return faultOf([] { const ServiceStandIn standIn; }); };
  EXPECT_EQ(standInFault(), "none");
  {
    const CompanionLink link(CompanionLink::Missing::make);
    const KernelHandle mapping(OpenFileMappingW(READ_CONTROL, FALSE, board)),
        mutex(OpenMutexW(READ_CONTROL, FALSE, boardMutex)),
        event(OpenEventW(READ_CONTROL, FALSE, boardEvent)),
        ping(OpenEventW(READ_CONTROL, FALSE, pingEvent));
    for (const KernelHandle* object : {&mapping, &mutex, &event})
      EXPECT_EQ(test::accessTo(*object), "D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;LS)");
    EXPECT_EQ(test::accessTo(ping), "D:(A;;0x1f0003;;;WD)");
    expectParts(standInFault(), {"is there already"});
  }
  SECURITY_ATTRIBUTES nobody = {sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(
      L"D:", SDDL_REVISION_1, &nobody.lpSecurityDescriptor, nullptr));
  const KernelHandle closed(
      CreateFileMappingW(INVALID_HANDLE_VALUE, &nobody, PAGE_READWRITE, 0, 4096, board));
  LocalFree(nobody.lpSecurityDescriptor);
  expectParts(standInFault(), {"run as administrator"});
}

}  // namespace
}  // namespace vellumic::tools
