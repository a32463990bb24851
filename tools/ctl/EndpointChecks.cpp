#include "tools/ctl/EndpointChecks.h"

#include <algorithm>

#include "apo/ProcessingModes.h"
#include "control/DeviceProperties.h"
#include "control/HandleVolumeNotification.h"
#include "tools/ctl/Attachment.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/EffectFormats.h"
#include "tools/ctl/ModeNames.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr char attachIt[] = "run vellumic-ctl attach as administrator";
constexpr unsigned enhancementsOff = 5;  // of endpointPropertySet, in FxProperties

void checkAttached(Findings& findings, const std::vector<AttachedEffect>& attached,
                   const std::optional<Attachment>& record) {
  std::string names;
  for (const AttachedEffect& effect : attached)
    names += (names.empty() ? "" : ", ") + std::string(effect.slot->name) +
             (effect.others.empty() ? "" : " in a chain");
  if (record && !record->whole)
    findings.notOk("attached", "attaching or detaching was cut short",
                   "run vellumic-ctl attach or detach once more");
  else if (attached.empty())
    findings.notOk("attached", "no effect of Vellumic", attachIt);
  else
    findings.ok("attached", names);
}

void checkEnhancements(Findings& findings, const RegistryValues& values) {
  const auto found = values.find(effectValueName(endpointPropertySet, enhancementsOff));
  if (found != values.end() &&
      std::ranges::any_of(found->second.data, [](std::byte b) { return b != std::byte{}; }))
    findings.notOk("enhancements", "switched off for this microphone",
                   "switch audio enhancements on in its properties");
  else
    findings.ok("enhancements", "not switched off");
}

void checkFormat(Findings& findings, const Microphone& microphone,
                 const std::vector<AttachedEffect>& attached) {
  if (!microphone.device) return findings.unknown("format", "the audio service does not show it");
  const EndpointMixFormat format = mixFormatOf(*microphone.device.get());
  if (FAILED(format.result)) return findings.unknown("format", "the system does not tell it");
  std::string refusals;
  for (const AttachedEffect& effect : attached)
    if (const std::string refusal = refusalOf(*effect.slot, format.wave); !refusal.empty())
      refusals +=
          (refusals.empty() ? "" : ", ") + std::string(effect.slot->name) + " needs " + refusal;
  const std::string text = formatText(format.wave);
  if (!refusals.empty())
    findings.notOk("format", text + ": " + refusals,
                   "choose another default format in the microphone's properties");
  else if (attached.empty())
    findings.unknown("format", text + "; nothing is attached");
  else
    findings.ok("format", text);
}

void checkModes(Findings& findings, const std::vector<AttachedEffect>& attached) {
  if (attached.empty()) return findings.unknown("mode", "nothing is attached");
  std::string names, faults;
  for (const AttachedEffect& effect : attached) {
    const std::string slot = effect.slot->name;
    if (effect.modes.empty()) faults += (faults.empty() ? "" : ", ") + slot + " has no mode";
    for (const std::wstring& text : effect.modes) {
      const auto id = parseBracedGuid(text.c_str());
      const std::string name = id ? modeText(*id) : utf8(text);
      const bool accepted = id && std::ranges::any_of(acceptedModes, [&](const GUID& mode) {
                              return IsEqualGUID(mode, *id);
                            });
      if (!accepted)
        faults += (faults.empty() ? "" : ", ") + slot + " refuses every format in mode " + name;
      if (names.find(name) == std::string::npos) names += (names.empty() ? "" : ", ") + name;
    }
  }
  if (!faults.empty())
    findings.notOk("mode", faults, "attach again with --mode default,raw,speech and --replace");
  else
    findings.ok("mode", names);
}

}  // namespace

void checkEndpoint(Findings& findings, const Microphone& microphone) {
  const std::string name = utf8(microphone.name) + " " + utf8(microphone.guid);
  if (microphone.state == DEVICE_STATE_ACTIVE)
    findings.ok("endpoint", name);
  else
    findings.notOk("endpoint", name + " is " + stateText(microphone.state),
                   "connect it, or enable it in the sound settings");
  RegistryValues values;
  std::optional<Attachment> record;
  try {
    values = readEffectProperties(microphone.guid).value_or(RegistryValues{});
    record = readAttachment(microphone.guid);
  } catch (const CtlError& error) {
    for (const char* link : {"attached", "enhancements", "format", "mode"})
      findings.unknown(link, error.what());
    return;
  }
  const auto attached = attachedEffects(values);
  checkAttached(findings, attached, record);
  checkEnhancements(findings, values);
  checkFormat(findings, microphone, attached);
  checkModes(findings, attached);
}

void checkVolume(Findings& findings, const Microphone& microphone) {
  CHandleVolumeNotification volume;
  volume.add([](const std::wstring&) {}, nullptr, microphone.id);
  const float master = volume.masterGain(microphone.id);
  if (volume.isMuted(microphone.id))
    findings.notOk("volume", "muted", "unmute the microphone in the sound settings");
  else if (volume.channelCount(microphone.id) == 0)
    findings.unknown("volume", "its volume control is missing or cannot be read");
  else if (master <= 1e-4F)
    findings.notOk("volume", "at 0", "raise the microphone's level in the sound settings");
  else
    findings.ok("volume", "not muted, gain " + std::to_string(master));
}

}  // namespace vellumic::tools
