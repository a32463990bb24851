// What vellumic-ctl status prints.
#pragma once

#include <span>
#include <string>

#include "tools/ctl/StatusCollector.h"

namespace vellumic::tools {

struct StatusFacts {
  std::span<const SeenObject> objects;
  std::string activeSetting;
  bool settingFound = false, effectOn = false;  // of the active setting
};

// The answer, one line without its end.
std::string activeAnswer(const StatusFacts& facts);
// A paragraph for each effect.
std::string statusTable(const StatusFacts& facts);
// One line: active, setting, objects.
std::string statusJson(const StatusFacts& facts);

}  // namespace vellumic::tools
