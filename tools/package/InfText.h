// The text of the two INF files of a driver package.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/RegistryValues.h"

namespace vellumic::tools {

struct InfKey {
  std::wstring path;  // below the root of the AddReg section
  RegistryValues values;
};

// What a maker replaces: marked in the files by a comment.
inline constexpr char componentId[] = "VEN_0000&CID_VELLUMIC_CAPTURE";
inline constexpr char hardwareId[] =
    "HDAUDIO\\FUNC_01&VEN_0000&DEV_0000&SUBSYS_00000000";  // of the audio function

// version: "3.18". Lines end as Windows wants them.
// The component: the library, its classes and records below HKR of the component device.
std::string componentInf(const std::string& version, const std::vector<InfKey>& keys);
// The extension: attaches the component to an audio driver's capture endpoint.
std::string extensionInf(const std::string& version, const RegistryValues& effects);

}  // namespace vellumic::tools
