// An endpoint's effect properties in the registry, and what of them is our doing.
//
// Before the first value is changed, a record of all changes is made under
// HKEY_LOCAL_MACHINE\SOFTWARE\Mirandor\Vellumic\Attached\{endpoint}: Before and After hold the
// values, State says how far it went and is written last. Wherever the program may be cut short,
//   - a record without a State means that nothing was changed: it does not count;
//   - "attaching" and "detaching" mean that some values may be changed: detaching, now or later,
//     takes them all back;
//   - every single write leaves an effect either as it was or complete.
// A write that fails takes back those before it. Endpoints are named by their GUID as text, with
// braces. Failures throw CtlError with the key. Thread: one; other programs are kept out.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "control/Handle.h"
#include "tools/ctl/EffectPlan.h"
#include "tools/ctl/Privileges.h"

namespace vellumic::tools {

std::wstring effectPropertiesPath(const std::wstring& endpoint);  // under HKEY_LOCAL_MACHINE

// Reading needs no rights. Nothing: the endpoint has no effect properties. Throws when the endpoint
// has no key at all.
std::optional<RegistryValues> readEffectProperties(const std::wstring& endpoint);

struct Attachment {
  bool whole = false;    // else it was cut short, on the way there or back
  bool madeKey = false;  // there were no effect properties before
  std::vector<ValueChange> changes;
};
std::optional<Attachment> readAttachment(const std::wstring& endpoint);

// The right to write. The key belongs to the system: it is opened by the rights to back up and
// restore files and directories, which administrators have, and keeps its owner and permissions.
class AttachmentWriter {
 public:
  AttachmentWriter();  // throws CtlError without the rights, or while another program writes
  ~AttachmentWriter();
  AttachmentWriter(const AttachmentWriter&) = delete;
  AttachmentWriter& operator=(const AttachmentWriter&) = delete;

  void attach(const std::wstring& endpoint, const std::vector<ValueChange>& changes);
  void detach(const std::wstring& endpoint, const Attachment& attachment,
              const std::vector<ValueChange>& changes);

 private:
  KernelHandle mutex_;
  BackupPrivileges privileges_;
};

}  // namespace vellumic::tools
