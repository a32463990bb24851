#include "tools/ctl/AudioServices.h"

#include <windows.h>

#include <ranges>
#include <string>

#include "control/Handle.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr ULONGLONG servicePatienceMs = 30000;
constexpr DWORD servicePollMs = 50;

struct ServiceHandleTraits {
  using Value = SC_HANDLE;
  static void close(SC_HANDLE handle) noexcept { CloseServiceHandle(handle); }
};
using ServiceHandle = UniqueHandle<ServiceHandleTraits>;

class Service {
 public:
  Service(const wchar_t* name, DWORD access)
      : name_(name), manager_(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)) {
    if (manager_) service_.reset(OpenServiceW(manager_.get(), name, access));
    if (!service_) error_ = GetLastError();
  }
  [[nodiscard]] DWORD error() const { return error_; }
  // 0 if it cannot be asked.
  [[nodiscard]] DWORD state() const {
    SERVICE_STATUS status = {};
    return service_ && QueryServiceStatus(service_.get(), &status) ? status.dwCurrentState : 0;
  }
  void stop() {
    SERVICE_STATUS status = {};
    if (state() == SERVICE_STOPPED) return;
    if (!ControlService(service_.get(), SERVICE_CONTROL_STOP, &status) &&
        GetLastError() != ERROR_SERVICE_NOT_ACTIVE)
      fail("stopped", GetLastError());
    await(SERVICE_STOPPED, "stopped");
  }
  void start() {
    // Its process may still be ending when it has long been reported as stopped.
    for (int attempt = 0; !StartServiceW(service_.get(), 0, nullptr); ++attempt) {
      const DWORD error = GetLastError();
      if (error == ERROR_SERVICE_ALREADY_RUNNING) break;
      if (error != ERROR_INTERNAL_ERROR || attempt == 20) fail("started", error);
      Sleep(servicePollMs);
    }
    await(SERVICE_RUNNING, "started");
  }
  void check() const {
    if (error_ != 0) fail("controlled", error_);
  }

 private:
  [[noreturn]] void fail(const char* action, DWORD error) const {
    throw CtlError("service " + utf8(name_) + ": cannot be " + action + " (error " +
                   std::to_string(error) + "); run as administrator: " + restartByHand);
  }
  void await(DWORD wanted, const char* action) const {
    const ULONGLONG end = GetTickCount64() + servicePatienceMs;
    while (state() != wanted) {
      if (GetTickCount64() > end) fail(action, ERROR_SERVICE_REQUEST_TIMEOUT);
      Sleep(servicePollMs);
    }
  }

  const wchar_t* name_;
  ServiceHandle manager_, service_;
  DWORD error_ = 0;
};

}  // namespace

ServiceState serviceState(const wchar_t* name) {
  const Service service(name, SERVICE_QUERY_STATUS);
  if (service.error() == ERROR_SERVICE_DOES_NOT_EXIST) return ServiceState::missing;
  switch (service.state()) {
    case 0:
      return ServiceState::unknown;
    case SERVICE_RUNNING:
      return ServiceState::running;
    case SERVICE_STOPPED:
      return ServiceState::stopped;
    default:
      return ServiceState::changing;
  }
}

void restartAudioServices() {
  constexpr DWORD access = SERVICE_QUERY_STATUS | SERVICE_STOP | SERVICE_START;
  Service builder(audioServices[0], access), engine(audioServices[1], access);
  builder.check();
  engine.check();
  try {
    engine.stop();
    builder.stop();
  } catch (...) {
    try {
      builder.start();
      engine.start();
    } catch (const CtlError&) {  // the first fault is told
    }
    throw;
  }
  builder.start();
  engine.start();
}

}  // namespace vellumic::tools
