// The doctor looks at the stored setting.
#include "tools/ctl/EndpointChecks.h"
#include "tools/ctl/SettingsTree.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {

void checkSetting(Findings& findings) {
  constexpr char apply[] = "run vellumic-ctl settings apply settings\\factory.toml 2";
  if (!SettingsTree::exists())
    return findings.notOk("setting", "none is stored, so sound passes unchanged", apply);
  const std::wstring active = SettingsTree::activeName();
  const std::string where = SettingsTree::displayPath() + "\\" + utf8(active);
  const auto setting = SettingsTree::read(active);
  if (!setting)
    findings.notOk("setting", where + " does not exist", apply);
  else if (!isOn(RawView(setting->values), Raw::masterEnable))
    findings.notOk("setting", "engine.enabled is off in " + where,
                   "run vellumic-ctl settings set engine.enabled=true");
  else
    findings.ok("setting", where);
}

}  // namespace vellumic::tools
