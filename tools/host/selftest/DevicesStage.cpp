// The sound devices and their formats.
#include "tools/ctl/Microphones.h"
#include "tools/host/Endpoints.h"
#include "tools/host/selftest/Stages.h"

namespace vellumic::tools {
namespace {

void describe(StageLog& log, IMMDeviceEnumerator& enumerator, EDataFlow flow, const char* kind) {
  std::vector<Endpoint> all;
  log.attempt(std::string("active ") + kind + "s", [&] {
    all = endpoints(enumerator, flow);
    return all.empty() ? untold(std::string("no ") + kind + "; connect one and run again")
                       : good(std::to_string(all.size()));
  });
  for (const Endpoint& endpoint : all)
    log.attempt(std::string(kind) + " " + endpoint.name, [&] {
      const EndpointMixFormat mix = mixFormatOf(*endpoint.device.get());
      return SUCCEEDED(mix.result) ? good(endpoint.guid + ", " + formatText(mix.wave))
                                   : explained(mix.result, "its mix format");
    });
}

}  // namespace

void devicesStage(StageLog& log, const StageOptions& options) {
  ComPtr<IMMDeviceEnumerator> enumerator;
  const bool there = log.attempt("list of devices", [&] {
    enumerator = createEnumerator();
    return good();
  });
  if (!there) return;
  describe(log, *enumerator.get(), eCapture, "microphone");
  describe(log, *enumerator.get(), eRender, "loudspeaker");
  if (!options.endpoint.empty())
    log.attempt("chosen microphone", [&] {
      return good(findCaptureEndpoint(*enumerator.get(), options.endpoint).name);
    });
}

}  // namespace vellumic::tools
