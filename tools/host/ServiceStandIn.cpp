#include "tools/host/ServiceStandIn.h"

#include <cstring>
#include <stdexcept>
#include <string>

#include "control/Names.h"
#include "tools/ServiceAccess.h"

namespace vellumic::tools {
namespace {

// error: of the call that failed, or of one that found the object there.
[[noreturn]] void fail(const char* what, DWORD error) {
  std::string reason = "cannot be made (error " + std::to_string(error) + ")";
  if (error == ERROR_ALREADY_EXISTS)
    reason = "is there already; end the service or the vellumic-ctl that made it";
  else if (error == ERROR_ACCESS_DENIED)
    reason = "needs the right to create global objects; run as administrator";
  throw std::runtime_error(std::string("--service: ") + what + " " + reason);
}

}  // namespace

ServiceStandIn::ServiceStandIn() {
  ServiceAccess access;
  mapping_.reset(CreateFileMappingW(INVALID_HANDLE_VALUE, access.get(), PAGE_READWRITE, 0,
                                    sizeof(StatusBoard), sharedMemoryName));
  if (!mapping_ || GetLastError() == ERROR_ALREADY_EXISTS) fail("the status board", GetLastError());
  view_.reset(MapViewOfFile(mapping_.get(), FILE_MAP_WRITE, 0, 0, sizeof(StatusBoard)));
  if (!view_) fail("a view of the status board", GetLastError());
  static_cast<StatusBoard*>(view_.get())->version = statusLayoutVersion;
  mutex_.reset(CreateMutexW(access.get(), FALSE, sharedMemoryMutexName));
  if (!mutex_) fail("the status board's mutex", GetLastError());
  event_.reset(CreateEventW(access.get(), FALSE, FALSE, sharedMemoryEventName));
  if (!event_) fail("the status board's event", GetLastError());
  ping_.reset(CreateEventW(access.get(), FALSE, FALSE, pingEventName));
  if (!ping_) fail("the ping event", GetLastError());
  quit_.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!quit_) fail("an event", GetLastError());
  thread_ = std::thread([this] { watch(); });
}

ServiceStandIn::~ServiceStandIn() {
  SetEvent(quit_.get());
  thread_.join();
}

void ServiceStandIn::watch() noexcept {
  constexpr DWORD pingEveryMs = 1000;
  const HANDLE handles[] = {quit_.get(), event_.get()};
  ULONGLONG nextPing = GetTickCount64() + pingEveryMs;
  for (;;) {
    const ULONGLONG now = GetTickCount64();
    const DWORD wait = nextPing > now ? static_cast<DWORD>(nextPing - now) : 0;
    const DWORD result = WaitForMultipleObjects(2, handles, FALSE, wait);
    if (result == WAIT_OBJECT_0) return;
    if (result == WAIT_OBJECT_0 + 1) noteBoard();
    if (result != WAIT_TIMEOUT) continue;
    // One signal wakes one object: as many as there are, a moment apart.
    std::size_t objects = 0;
    {
      const std::scoped_lock lock(seenMutex_);
      objects = seen_.size();
    }
    for (std::size_t i = 0; i < objects; ++i) {
      SetEvent(ping_.get());
      if (WaitForSingleObject(event_.get(), 100) == WAIT_OBJECT_0) noteBoard();
    }
    nextPing += pingEveryMs;
  }
}

void ServiceStandIn::noteBoard() noexcept {
  if (WaitForSingleObject(mutex_.get(), 1000) != WAIT_OBJECT_0) return;
  const StatusBlock block = static_cast<const StatusBoard*>(view_.get())->block;
  ReleaseMutex(mutex_.get());
  std::array<std::uint32_t, 4> instance{};
  std::memcpy(instance.data(), &block.instance, sizeof instance);
  const std::scoped_lock lock(seenMutex_);
  Seen& seen = seen_[instance];
  seen.classId = block.classId;
  seen.endpoint = block.endpoint;
  seen.propertyEvent = block.propertyEvent;
  ++seen.times;
}

int ServiceStandIn::timesSeen(const CLSID& classId, const GUID* endpoint) const {
  const std::scoped_lock lock(seenMutex_);
  int times = 0;
  for (const auto& [instance, seen] : seen_)
    if (IsEqualGUID(seen.classId, classId) &&
        (endpoint == nullptr || IsEqualGUID(seen.endpoint, *endpoint)))
      times += seen.times;
  return times;
}

bool ServiceStandIn::waitFor(const CLSID& classId, DWORD milliseconds) const {
  constexpr DWORD step = 10;
  for (DWORD waited = 0; timesSeen(classId) == 0; waited += step) {
    if (waited >= milliseconds) return false;
    Sleep(step);
  }
  return true;
}

std::size_t ServiceStandIn::tellToReload() const {
  const std::scoped_lock lock(seenMutex_);
  for (const auto& [instance, seen] : seen_)
    if (const KernelHandle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, seen.propertyEvent.data()));
        event)
      SetEvent(event.get());
  return seen_.size();
}

}  // namespace vellumic::tools
