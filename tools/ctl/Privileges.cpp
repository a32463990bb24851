#include "tools/ctl/Privileges.h"

#include "tools/ctl/CtlOptions.h"

namespace vellumic::tools {

BackupPrivileges::BackupPrivileges() {
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token_.put()) ||
      !set(SE_PRIVILEGE_ENABLED))
    throw CtlError(
        "this account lacks the rights to back up and restore (SeBackupPrivilege, "
        "SeRestorePrivilege) that the system's keys need; run as administrator");
}

BackupPrivileges::~BackupPrivileges() { set(0); }

bool BackupPrivileges::set(DWORD attributes) {
  for (const wchar_t* name : {L"SeBackupPrivilege", L"SeRestorePrivilege"}) {
    TOKEN_PRIVILEGES wanted = {};
    wanted.PrivilegeCount = 1;
    wanted.Privileges[0].Attributes = attributes;
    if (!LookupPrivilegeValueW(nullptr, name, &wanted.Privileges[0].Luid) ||
        !AdjustTokenPrivileges(token_.get(), FALSE, &wanted, 0, nullptr, nullptr) ||
        GetLastError() != ERROR_SUCCESS)  // it also succeeds without having done it
      return false;
  }
  return true;
}

}  // namespace vellumic::tools
