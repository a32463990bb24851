#include "control/OpenEvent.h"

#include <aclapi.h>

namespace vellumic {
namespace {

struct LocalMemoryTraits {
  using Value = HLOCAL;
  static void close(HLOCAL block) noexcept { LocalFree(block); }
};
struct SidTraits {
  using Value = PSID;
  static void close(PSID sid) noexcept { FreeSid(sid); }
};
using LocalMemory = UniqueHandle<LocalMemoryTraits>;
using Sid = UniqueHandle<SidTraits>;

constexpr SIZE_T descriptorSize = 40;

LocalMemory accessForEveryone(PSID everyone) noexcept {
  EXPLICIT_ACCESS_W access = {};
  access.grfAccessPermissions = EVENT_ALL_ACCESS;
  access.grfAccessMode = SET_ACCESS;
  access.grfInheritance = NO_INHERITANCE;
  access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
  access.Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
  access.Trustee.ptstrName = static_cast<LPWSTR>(everyone);
  PACL list = nullptr;
  if (SetEntriesInAclW(1, &access, nullptr, &list) != ERROR_SUCCESS) return {};
  return LocalMemory(list);
}

}  // namespace

KernelHandle createOpenEvent(const wchar_t* name) noexcept {
  static_assert(EVENT_ALL_ACCESS == 0x1F0003 && sizeof(SECURITY_DESCRIPTOR) <= descriptorSize);
  SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
  Sid everyone;
  if (!AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, everyone.put()))
    return {};
  const LocalMemory list = accessForEveryone(everyone.get());
  if (!list) return {};
  const LocalMemory descriptor(LocalAlloc(LPTR, descriptorSize));
  if (!descriptor) return {};
  if (!InitializeSecurityDescriptor(descriptor.get(), SECURITY_DESCRIPTOR_REVISION)) return {};
  if (!SetSecurityDescriptorDacl(descriptor.get(), TRUE, static_cast<PACL>(list.get()), FALSE))
    return {};
  SECURITY_ATTRIBUTES attributes = {sizeof(SECURITY_ATTRIBUTES), descriptor.get(), FALSE};
  return KernelHandle(CreateEventW(&attributes, FALSE, FALSE, name));
}

KernelHandle createManualEvent(const wchar_t* name) noexcept {
  return KernelHandle(CreateEventW(nullptr, TRUE, FALSE, name));
}

KernelHandle duplicateEvent(HANDLE event) noexcept {
  KernelHandle duplicate;
  const HANDLE process = GetCurrentProcess();
  DuplicateHandle(process, event, process, duplicate.put(), EVENT_MODIFY_STATE, FALSE, 0);
  return duplicate;
}

}  // namespace vellumic
