// Rights of an account that are there but switched off until somebody needs them.
#pragma once

#include <windows.h>

#include "control/Handle.h"

namespace vellumic::tools {

// Switches the rights to back up and to restore on, for its life. Throws CtlError when the account
// does not have them. Thread: of the whole process.
class BackupPrivileges {
 public:
  BackupPrivileges();
  ~BackupPrivileges();
  BackupPrivileges(const BackupPrivileges&) = delete;
  BackupPrivileges& operator=(const BackupPrivileges&) = delete;

 private:
  bool set(DWORD attributes);
  KernelHandle token_;
};

}  // namespace vellumic::tools
