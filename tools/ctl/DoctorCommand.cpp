#include "tools/ctl/DoctorCommand.h"

#include <cstdio>

#include "tools/ctl/AudioServices.h"
#include "tools/ctl/EndpointChecks.h"
#include "tools/ctl/Json.h"
#include "tools/ctl/LibraryChecks.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {

void checkServices(Findings& findings) {
  std::string running, unclear;
  for (const wchar_t* service : audioServices) {
    const std::string name = utf8(service);
    switch (serviceState(service)) {
      case ServiceState::running:
        running += (running.empty() ? "" : ", ") + name;
        break;
      case ServiceState::stopped:
        return findings.notOk("services", name + " is stopped",
                              "run net start Audiosrv as administrator");
      case ServiceState::changing:
        return findings.notOk("services", name + " is starting or stopping",
                              "wait a little; if it stays so, restart the machine");
      case ServiceState::missing:
        unclear += (unclear.empty() ? "" : ", ") + name + " does not exist";
        break;
      case ServiceState::unknown:
        unclear += (unclear.empty() ? "" : ", ") + name + " cannot be asked";
        break;
    }
  }
  if (!unclear.empty()) return findings.unknown("services", unclear);
  findings.ok("services", running + " run");
}

Findings examine(const std::string& wanted) {
  Findings findings;
  checkLibrary(findings);
  checkServices(findings);
  checkSetting(findings);
  try {
    const Microphone microphone = findMicrophone(wanted, DEVICE_STATEMASK_ALL);
    checkEndpoint(findings, microphone);
    checkVolume(findings, microphone);
    checkSound(findings, microphone);
  } catch (const CtlError& error) {
    findings.notOk("endpoint", error.what(), "see vellumic-ctl endpoints");
    for (const char* link :
         {"attached", "enhancements", "format", "mode", "volume", "alive", "calls"})
      findings.unknown(link, "no microphone to look at");
  }
  return findings;
}

void runDoctor(const CtlOptions& options) {
  const ComThread com;
  const Findings findings = examine(options.device);
  const std::size_t faults = findings.count(Verdict::notOk);
  if (options.json)
    std::puts(
        JsonObject().add("healthy", faults == 0).add("links", findings.json()).text().c_str());
  else
    std::fputs(findings.table().c_str(), stdout);
  if (faults > 0)
    throw CtlError("doctor: " + std::to_string(faults) + " of " + std::to_string(findings.size()) +
                   " links are not ok; mend the first one first");
}

}  // namespace vellumic::tools
