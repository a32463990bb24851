// The parameter store: the active setting and the machine's overrides, as the registry holds them.
//
//   SOFTWARE\Mirandor\Vellumic                              HardwareOutputPath
//   SOFTWARE\Mirandor\Vellumic\Parameters\{guid}\Settings   ActiveSetting, a decimal name
//       its subkey of that name                             Param1 to Param1365, 4 bytes each
//
// {guid} is fixed, so the tree does not depend on the device. A value's four bytes are the bits of
// a float, whatever type it was declared with; a missing value reads as 0. Settings are read with
// no lock against a writer: a reload can meet one that is half written.
// Thread: control thread at Initialize, the parameter thread afterwards; never both.
#pragma once

#include <span>

#include "control/RegistryUtils.h"
#include "parameters/Raw.h"

namespace vellumic {

using WritableRawView = std::span<float, rawCount>;

class CParametersInRegistry : public CRegistryUtils {
 public:
  // The active setting at Initialize, with readSettingParallel. Without the tree, or without the
  // setting's subkey, the values stay as they are. Throws std::system_error if a thread fails.
  void readInitialSetting(WritableRawView valuesA, WritableRawView valuesB);

  // Reads the subkey settingName with eight short-lived threads, each on its own slots, into both
  // arrays. count := the sum of the chunks' counters; a chunk that meets a missing value ends
  // there, and its counter is that slot's number. A subkey that cannot be opened changes nothing.
  // Throws std::system_error, after joining the others, if a thread cannot be started.
  void readSettingParallel(HKEY settings, unsigned* count, const wchar_t* settingName,
                           WritableRawView valuesA, WritableRawView valuesB);

  // The reload's reader, sequential. `settings` keeps the tree's key open afterwards; the key of
  // an earlier reload is replaced, not closed. False: the tree is absent and nothing was read.
  // A missing subkey leaves the values as they are, which is no failure.
  bool reloadSetting(RegistryKey& settings, WritableRawView values);

  // Present values before the first missing one; those behind a gap are read all the same.
  static unsigned readSettingSequential(HKEY setting, WritableRawView values) noexcept;

  // Sets hardwareOutputPath from the machine's choice and the headset override.
  // The Driver text of an audio device class is trusted to fit its buffer as characters: one of
  // 255 bytes or more ends the process by a range check.
  void readHardwareOutputPath();

  // Opens the tree and sets settingsGuid.
  [[nodiscard]] RegistryKey openSettings();

  GUID settingsGuid{};
  int activeSettingNumber = 0;
  int hardwareOutputPath = 3;
  RegistryKey headsetStatusKey;  // stays open as long as the object

 private:
  enum class NameType { any, textOnly };
  SettingName readActiveSetting(HKEY settings, NameType accepted) noexcept;
  void readHeadsetOverride(HKEY device);
};

}  // namespace vellumic
