#include "tools/ctl/StatusCommand.h"

#include <windows.h>

#include <cmath>
#include <cstdio>
#include <limits>

#include "control/OpenEvent.h"
#include "tools/ctl/SettingsTree.h"
#include "tools/ctl/StatusReport.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr double usualSeconds = 2.0;
constexpr DWORD betweenRoundsMs = 100;

HANDLE endOfWatch = nullptr;  // signalled by Ctrl+C

BOOL WINAPI endWatch(DWORD) {
  SetEvent(endOfWatch);
  return TRUE;
}

// While it lives, Ctrl+C ends the wait instead of the process.
class InterruptibleWait {
 public:
  InterruptibleWait() {
    endOfWatch = event_.get();
    SetConsoleCtrlHandler(&endWatch, TRUE);
  }
  ~InterruptibleWait() { SetConsoleCtrlHandler(&endWatch, FALSE); }
  InterruptibleWait(const InterruptibleWait&) = delete;
  InterruptibleWait& operator=(const InterruptibleWait&) = delete;
  // False after Ctrl+C.
  bool sleep(DWORD milliseconds) const {
    return WaitForSingleObject(event_.get(), milliseconds) == WAIT_TIMEOUT;
  }

 private:
  KernelHandle event_ = createManualEvent();
};

StatusFacts factsOf(const StatusCollector& collector) {
  const std::wstring active = SettingsTree::activeName();
  const auto setting = SettingsTree::read(active);
  return {.objects = collector.objects(),
          .activeSetting = utf8(active),
          .settingFound = setting.has_value(),
          .effectOn = setting && isOn(RawView(setting->values), Raw::masterEnable)};
}

std::string timeOfDay() {
  SYSTEMTIME now = {};
  GetLocalTime(&now);
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%02u:%02u:%02u", unsigned{now.wHour},
                unsigned{now.wMinute}, unsigned{now.wSecond});
  return text.data();
}

void print(const StatusCollector& collector, const CtlOptions& options) {
  const StatusFacts facts = factsOf(collector);
  if (options.json) {
    std::puts(statusJson(facts).c_str());
  } else {
    if (options.watch) std::printf("--- %s\n", timeOfDay().c_str());
    std::fputs(statusTable(facts).c_str(), stdout);
    std::puts(activeAnswer(facts).c_str());
  }
  std::fflush(stdout);
}

}  // namespace

void showStatus(const CtlOptions& options) {
  CompanionLink link(CompanionLink::Missing::make);
  if (link.madeBoard() && !options.json)
    std::puts(
        "No companion service: standing in for it. Effects that run already cannot be seen; "
        "start the stream again.");
  std::fflush(stdout);
  StatusCollector collector(link);
  // A board that was there shows its effects at once; on a new one they have to start first.
  const double seconds = options.seconds    ? *options.seconds
                         : options.watch    ? std::numeric_limits<double>::infinity()
                         : link.madeBoard() ? usualSeconds
                                            : 0.0;
  const InterruptibleWait wait;
  const ULONGLONG start = GetTickCount64();
  const auto elapsed = [start] { return static_cast<double>(GetTickCount64() - start) / 1000.0; };
  bool first = true;
  do {
    const bool changed = collector.collect();
    if (options.watch && (changed || first)) print(collector, options);
    first = false;
  } while (elapsed() < seconds && wait.sleep(betweenRoundsMs));
  if (!options.watch) print(collector, options);
}

}  // namespace vellumic::tools
