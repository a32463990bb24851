#include "tools/host/ServiceStandIn.h"

#include <cstring>
#include <stdexcept>

namespace vellumic::tools {

ServiceStandIn::ServiceStandIn() {
  if (!link_.madeBoard())
    throw std::runtime_error(
        "the status board is there already; end the service or the vellumic-ctl that made it");
  if (!quit_) throw std::runtime_error("an event cannot be made; end other programs");
  thread_ = std::thread([this] { watch(); });
}

ServiceStandIn::~ServiceStandIn() {
  SetEvent(quit_.get());
  thread_.join();
}

void ServiceStandIn::watch() noexcept {
  constexpr DWORD pingEveryMs = 1000, answerMs = 100;
  const HANDLE handles[] = {quit_.get(), link_.publication()};
  ULONGLONG nextPing = GetTickCount64() + pingEveryMs;
  for (;;) {
    const ULONGLONG now = GetTickCount64();
    const DWORD wait = nextPing > now ? static_cast<DWORD>(nextPing - now) : 0;
    const DWORD result = WaitForMultipleObjects(2, handles, FALSE, wait);
    if (result == WAIT_OBJECT_0) return;
    if (result == WAIT_OBJECT_0 + 1) note(link_.readBlock());
    if (result != WAIT_TIMEOUT) continue;
    // One signal wakes one object: as many as there are, a moment apart.
    std::size_t objects = 0;
    {
      const std::scoped_lock lock(seenMutex_);
      objects = seen_.size();
    }
    for (std::size_t i = 0; i < objects; ++i) note(link_.ping(answerMs));
    nextPing += pingEveryMs;
  }
}

void ServiceStandIn::note(const std::optional<StatusBlock>& block) noexcept {
  if (!block) return;
  std::array<std::uint32_t, 4> instance{};
  std::memcpy(instance.data(), &block->instance, sizeof instance);
  const std::scoped_lock lock(seenMutex_);
  Seen& seen = seen_[instance];
  seen.classId = block->classId;
  seen.endpoint = block->endpoint;
  seen.propertyEvent = block->propertyEvent;
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
