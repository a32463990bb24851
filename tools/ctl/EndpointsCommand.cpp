#include "tools/ctl/EndpointsCommand.h"

#include <algorithm>
#include <cstdio>

#include "control/DeviceProperties.h"
#include "tools/ctl/Attachment.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/EffectFormats.h"
#include "tools/ctl/Json.h"
#include "tools/ctl/Microphones.h"
#include "tools/ctl/ModeNames.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

std::string listed(const std::vector<std::string>& texts, const char* nothing) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + text;
  return list.empty() ? nothing : list;
}

std::vector<std::string> modesOf(const AttachedEffect& effect) {
  std::vector<std::string> names;
  for (const std::wstring& text : effect.modes) {
    const auto id = parseBracedGuid(text.c_str());
    names.push_back(id ? modeText(*id) : utf8(text));
  }
  return names;
}

struct MicrophoneRow {
  Microphone microphone;
  EndpointMixFormat format;
  std::vector<AttachedEffect> attached;
  std::vector<std::string> others;  // ids of effects that are not ours
  std::string attachment;           // how it stands with ours
  std::vector<std::string> accepted, refusals;
};

MicrophoneRow microphoneRowOf(Microphone microphone) {
  MicrophoneRow row;
  if (microphone.device && microphone.state == DEVICE_STATE_ACTIVE)
    row.format = mixFormatOf(*microphone.device.get());
  try {
    const auto values = readEffectProperties(microphone.guid).value_or(RegistryValues{});
    row.attached = attachedEffects(values);
    for (const std::wstring& other : otherEffects(values)) row.others.push_back(utf8(other));
    const auto own = readAttachment(microphone.guid);
    if (own && !own->whole) row.attachment = "cut short: attach or detach again";
  } catch (const CtlError& error) {
    row.attachment = error.what();
  }
  for (const EffectSlot& slot : effectSlots) {
    if (FAILED(row.format.result)) break;
    const std::string refusal = refusalOf(slot, row.format.wave);
    if (refusal.empty())
      row.accepted.emplace_back(slot.name);
    else
      row.refusals.push_back(std::string(slot.name) + " needs " + refusal);
  }
  row.microphone = std::move(microphone);
  return row;
}

void print(const MicrophoneRow& row) {
  std::printf("%s  %s\n  id        %s\n", utf8(row.microphone.name).c_str(),
              stateText(row.microphone.state), utf8(row.microphone.id).c_str());
  if (SUCCEEDED(row.format.result))
    std::printf("  format    %s\n  accepts   %s\n", formatText(row.format.wave).c_str(),
                listed(row.accepted, "none").c_str());
  for (const std::string& refusal : row.refusals) std::printf("  refuses   %s\n", refusal.c_str());
  if (row.attached.empty()) std::printf("  attached  none\n");
  for (const AttachedEffect& effect : row.attached) {
    std::vector<std::string> others;
    for (const std::wstring& other : effect.others) others.push_back(utf8(other));
    std::printf("  attached  %s in mode %s%s%s\n", effect.slot->name,
                listed(modesOf(effect), "none").c_str(), others.empty() ? "" : ", in a chain with ",
                listed(others, "").c_str());
  }
  if (!row.others.empty()) std::printf("  others    %s\n", listed(row.others, "").c_str());
  if (!row.attachment.empty()) std::printf("  problem   %s\n", row.attachment.c_str());
}

std::string json(const MicrophoneRow& row) {
  std::vector<std::string> attached, accepted, refusals;
  const auto texts = [](const std::vector<std::string>& plain) {
    std::vector<std::string> all;
    for (const std::string& text : plain) all.push_back(quoted(text));
    return jsonList(all);
  };
  for (const AttachedEffect& effect : row.attached) {
    std::vector<std::string> others;
    for (const std::wstring& other : effect.others) others.push_back(utf8(other));
    attached.push_back(JsonObject()
                           .addText("class", effect.slot->name)
                           .add("modes", texts(modesOf(effect)))
                           .add("chainedWith", texts(others))
                           .text());
  }
  const WAVEFORMATEX& wave = row.format.wave.Format;
  return JsonObject()
      .addText("id", utf8(row.microphone.id))
      .addText("guid", utf8(row.microphone.guid))
      .addText("name", utf8(row.microphone.name))
      .addText("state", stateText(row.microphone.state))
      .addText("format", SUCCEEDED(row.format.result) ? formatText(row.format.wave) : "")
      .add("channels", std::to_string(wave.nChannels))
      .add("rateHz", std::to_string(wave.nSamplesPerSec))
      .add("accepted", texts(row.accepted))
      .add("refused", texts(row.refusals))
      .add("attached", jsonList(attached))
      .add("others", texts(row.others))
      .addText("problem", row.attachment)
      .text();
}

}  // namespace

void listEndpoints(bool asJson) {
  const ComThread com;
  std::vector<std::string> all;
  auto found = microphones(DEVICE_STATEMASK_ALL);
  if (found.empty() && !asJson)
    std::puts("There is no microphone; connect one, or switch it on in the sound settings.");
  for (Microphone& microphone : found) {
    const MicrophoneRow row = microphoneRowOf(std::move(microphone));
    if (asJson)
      all.push_back(json(row));
    else
      print(row);
  }
  if (asJson) std::puts(JsonObject().add("endpoints", jsonList(all)).text().c_str());
}

}  // namespace vellumic::tools
