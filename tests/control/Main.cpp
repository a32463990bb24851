#include <gtest/gtest.h>

#include <map>
#include <string_view>

#include "tests/control/ChildProcess.h"
#include "tools/ProgramPath.h"
#include "tools/StartProcess.h"

namespace vellumic::test {
namespace {

std::map<std::string, std::function<int()>, std::less<>>& modes() {
  static std::map<std::string, std::function<int()>, std::less<>> all;
  return all;
}

}  // namespace

ChildMode::ChildMode(const char* name, std::function<int()> body) {
  modes()[name] = std::move(body);
}

ChildProcess::ChildProcess(const std::string& mode) {
  const std::wstring command = L'"' + tools::programPath().wstring() + L"\" --child " +
                               std::wstring(mode.begin(), mode.end());
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION information = {};
  EXPECT_TRUE(tools::startProcess(command, false, 0, startup, information)) << GetLastError();
  process_.reset(information.hProcess);
  thread_.reset(information.hThread);
}

ChildProcess::~ChildProcess() {
  TerminateProcess(process_.get(), 1);
  WaitForSingleObject(process_.get(), INFINITE);
}

DWORD ChildProcess::wait(DWORD patienceMs) const {
  WaitForSingleObject(process_.get(), patienceMs);
  DWORD code = STILL_ACTIVE;
  GetExitCodeProcess(process_.get(), &code);
  return code;
}

}  // namespace vellumic::test

int main(int count, char** arguments) {
  if (count == 3 && std::string_view(arguments[1]) == "--child") {
    const auto mode = vellumic::test::modes().find(std::string_view(arguments[2]));
    return mode != vellumic::test::modes().end() ? mode->second() : 99;
  }
  testing::InitGoogleTest(&count, arguments);
  return RUN_ALL_TESTS();
}
