// Who may use the status board and its events when one of our tools makes them: the system,
// administrators, and the audio service, which runs as a local service and which the default
// access of an administrator's objects leaves out.
#pragma once

#include <windows.h>

#include <sddl.h>

namespace vellumic::tools {

class ServiceAccess {
 public:
  ServiceAccess() {
    constexpr wchar_t systemAdministratorsLocalService[] =
        L"D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;LS)";
    ConvertStringSecurityDescriptorToSecurityDescriptorW(
        systemAdministratorsLocalService, SDDL_REVISION_1, &attributes_.lpSecurityDescriptor,
        nullptr);
  }
  ~ServiceAccess() { LocalFree(attributes_.lpSecurityDescriptor); }
  ServiceAccess(const ServiceAccess&) = delete;
  ServiceAccess& operator=(const ServiceAccess&) = delete;
  SECURITY_ATTRIBUTES* get() { return &attributes_; }

 private:
  SECURITY_ATTRIBUTES attributes_ = {sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

}  // namespace vellumic::tools
