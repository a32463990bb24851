#include <gtest/gtest.h>

#include <string>

#include "control/OpenEvent.h"
#include "control/SyncObject.h"

namespace vellumic::test {
namespace {

TEST(NamedEvent, EveryoneMayUseIt) {
  const KernelHandle event = createOpenEvent(L"Global\\VellumicTestEvent");
  ASSERT_TRUE(event);
  EXPECT_TRUE(KernelHandle(OpenEventW(EVENT_ALL_ACCESS, FALSE, L"Global\\VellumicTestEvent")));
  std::byte buffer[1024];
  DWORD size = 0;
  ASSERT_TRUE(GetKernelObjectSecurity(event.get(), DACL_SECURITY_INFORMATION, buffer, sizeof buffer,
                                      &size));
  BOOL present = FALSE, defaulted = FALSE;
  PACL list = nullptr;
  ASSERT_TRUE(GetSecurityDescriptorDacl(buffer, &present, &list, &defaulted));
  ASSERT_TRUE(present && list != nullptr && list->AceCount == 1);
  void* entry = nullptr;
  ASSERT_TRUE(GetAce(list, 0, &entry));
  auto& allowed = *static_cast<ACCESS_ALLOWED_ACE*>(entry);
  EXPECT_EQ(allowed.Mask, 0x1F0003U);
  EXPECT_TRUE(IsWellKnownSid(&allowed.SidStart, WinWorldSid));
  EXPECT_FALSE(createOpenEvent(L"Missing\\Namespace\\Event"));
}

std::string told;
LONG CALLBACK hearDebugString(EXCEPTION_POINTERS* raised) {
  constexpr DWORD debugString = 0x40010006;
  const EXCEPTION_RECORD& record = *raised->ExceptionRecord;
  if (record.ExceptionCode != debugString) return EXCEPTION_CONTINUE_SEARCH;
  told = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
  return EXCEPTION_CONTINUE_EXECUTION;
}

TEST(SyncObject, FailedInitialisationIsToldToADebugger) {
  told.clear();
  void* const handler = AddVectoredExceptionHandler(1, hearDebugString);
  {
    CSyncObject working;
    working.lock();
    working.unlock();
    EXPECT_EQ(told, "");
    CSyncObject failed([](LPCRITICAL_SECTION, DWORD) -> BOOL { return FALSE; });
    failed.lock();
    failed.unlock();
  }
  RemoveVectoredExceptionHandler(handler);
  EXPECT_EQ(told, "CSyncObject::InitializeCriticalSectionAndSpinCount() Failed!\n");
}

}  // namespace
}  // namespace vellumic::test
