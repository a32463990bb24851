// The companion service as far as the effects know it: it owns the status board, pings once a
// second, notes which objects answer, and tells them to read their setting again.
//
// Construct it before the effects: they look for the board when they are made.
#pragma once

#include <windows.h>

#include <array>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "control/Handle.h"
#include "control/StatusBlock.h"
#include "tools/ctl/CompanionLink.h"

namespace vellumic::tools {

class ServiceStandIn {
 public:
  // Throws std::runtime_error with the reason: a service runs, or the right to make its objects is
  // missing.
  ServiceStandIn();
  ~ServiceStandIn();
  ServiceStandIn(const ServiceStandIn&) = delete;
  ServiceStandIn& operator=(const ServiceStandIn&) = delete;

  // Waits until an object of the class has shown itself; false after the time.
  bool waitFor(const CLSID& classId, DWORD milliseconds) const;
  // Signals the property event of every object seen. Gives their number.
  std::size_t tellToReload() const;
  // How often the board showed an object of the class, of any endpoint or of that one.
  int timesSeen(const CLSID& classId, const GUID* endpoint = nullptr) const;

 private:
  void watch() noexcept;
  void note(const std::optional<StatusBlock>& block) noexcept;

  struct Seen {
    CLSID classId{};
    GUID endpoint{};
    StatusText propertyEvent{};
    int times = 0;
  };
  CompanionLink link_{CompanionLink::Missing::make};
  KernelHandle quit_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  mutable std::mutex seenMutex_;
  std::map<std::array<std::uint32_t, 4>, Seen> seen_;  // by instance
  std::thread thread_;
};

}  // namespace vellumic::tools
