// vellumic-ctl settings ...: each prints what it did, and throws before anything is changed when
// its input is not good.
#pragma once

#include "tools/ctl/CtlOptions.h"

namespace vellumic::tools {

void listStoredSettings();
void showStoredSetting(const CtlOptions& options);
// These three end with a signal to every running effect.
void changeSetting(const CtlOptions& options);
void applySettingFile(const CtlOptions& options);
void activateStoredSetting(const CtlOptions& options);
// TOML or registry file, by the file's extension.
void exportSetting(const CtlOptions& options);

}  // namespace vellumic::tools
