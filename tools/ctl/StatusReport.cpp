#include "tools/ctl/StatusReport.h"

#include <algorithm>

#include "parameters/SettingsFile.h"
#include "tools/ctl/Json.h"
#include "tools/ctl/ModeNames.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

// The fields of a block as texts; "-" or 0 where the effect has not filled them.
struct Row {
  std::string className, instance, endpoint, deviceId, mode, version, propertyEvent;
  std::uint32_t rate;
  const char* life;
};

std::string present(std::uint8_t flag, const StatusText& text) {
  // Others write the board: nothing of theirs may steer the terminal.
  const std::string value = onOneLine(utf8(textOf(text)));
  return flag == 0 || value.empty() ? "-" : value;
}

Row rowOf(const SeenObject& object) {
  const StatusBlock& block = object.block;
  const bool hasVersion = block.majorPresent != 0 && block.minorPresent != 0;
  Row row{.className = present(block.friendlyNamePresent, block.friendlyName),
          .instance = guidText(block.instance),
          .endpoint = guidText(block.endpoint),
          .deviceId = present(block.deviceIdPresent, block.deviceId),
          .mode = block.modePresent == 0 ? "-" : modeText(block.processingMode),
          .version = hasVersion ? std::to_string(block.majorVersion) + "." +
                                      std::to_string(block.minorVersion)
                                : "-",
          .propertyEvent = present(block.propertyEventPresent, block.propertyEvent),
          .rate = block.sampleRatePresent == 0 ? 0 : block.sampleRate,
          .life = object.alive ? "alive" : "gone"};
  if (row.className == "-") row.className = guidText(block.classId);
  return row;
}

std::size_t aliveCount(const StatusFacts& facts) {
  return static_cast<std::size_t>(std::ranges::count(facts.objects, true, &SeenObject::alive));
}

}  // namespace

std::string activeAnswer(const StatusFacts& facts) {
  const std::size_t alive = aliveCount(facts);
  const std::string setting = "setting " + facts.activeSetting;
  if (alive == 0) return "Active: no, no effect has shown itself.";
  const std::string running =
      std::to_string(alive) + (alive == 1 ? " effect runs" : " effects run");
  if (!facts.settingFound) return "Active: no, " + running + " but " + setting + " does not exist.";
  if (!facts.effectOn)
    return "Active: no, " + running + " but engine.enabled is off in " + setting + ".";
  return "Active: yes, " + running + " with " + setting + ".";
}

std::string statusTable(const StatusFacts& facts) {
  std::string text;
  for (const SeenObject& object : facts.objects) {
    const Row row = rowOf(object);
    const std::string rate = row.rate == 0 ? "-" : std::to_string(row.rate) + " Hz";
    text += row.className + "  " + row.life + "  mode " + row.mode + "  " + rate + "  version " +
            row.version + "\n  endpoint        " + row.endpoint + "\n  device          " +
            row.deviceId + "\n  property event  " + row.propertyEvent + "\n";
  }
  return text;
}

std::string statusJson(const StatusFacts& facts) {
  std::string list;
  for (const SeenObject& object : facts.objects) {
    const Row row = rowOf(object);
    JsonObject entry;
    entry.addText("class", row.className)
        .addText("classId", guidText(object.block.classId))
        .addText("instance", row.instance)
        .addText("endpoint", row.endpoint)
        .addText("deviceId", row.deviceId)
        .addText("mode", row.mode)
        .add("rateHz", std::to_string(row.rate))
        .addText("version", row.version)
        .addText("propertyEvent", row.propertyEvent)
        .add("alive", object.alive);
    list += (list.empty() ? "" : ", ") + entry.text();
  }
  JsonObject report;
  report.add("active", aliveCount(facts) > 0 && facts.effectOn)
      .addText("setting", facts.activeSetting)
      .add("engineEnabled", facts.effectOn)
      .add("objects", "[" + list + "]");
  return report.text();
}

}  // namespace vellumic::tools
