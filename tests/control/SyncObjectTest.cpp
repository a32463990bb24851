// What the module's lock tells a debugger.
#include <gtest/gtest.h>

#include <string>

#include "control/SyncObject.h"

namespace vellumic::test {
namespace {

std::string told;
LONG CALLBACK hearDebugString(EXCEPTION_POINTERS* raised) {
  constexpr DWORD debugString = 0x40010006;
  const EXCEPTION_RECORD& record = *raised->ExceptionRecord;
  if (record.ExceptionCode != debugString) return EXCEPTION_CONTINUE_SEARCH;
  told = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
  return EXCEPTION_CONTINUE_EXECUTION;
}

TEST(SyncObject, FailedInitialisationIsToldToADebugger) {
  void* const handler = AddVectoredExceptionHandler(1, hearDebugString);
  {
    CSyncObject failed([](LPCRITICAL_SECTION, DWORD) -> BOOL { return FALSE; });
    failed.lock();
    failed.unlock();
  }
  RemoveVectoredExceptionHandler(handler);
  EXPECT_EQ(told, "CSyncObject::InitializeCriticalSectionAndSpinCount() Failed!\n");
}

}  // namespace
}  // namespace vellumic::test
