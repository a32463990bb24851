// Settings as a person writes them: the text of a file, or one NAME=VALUE.
#include <bit>
#include <cmath>
#include <cstdint>
#include <string_view>

#include "fuzz/Require.h"
#include "parameters/SettingsFile.h"

namespace vellumic::fuzz {
namespace {

bool sameBits(const RawValues& a, const RawValues& b) {
  for (std::size_t slot = 0; slot < a.size(); ++slot)
    if (std::bit_cast<std::uint32_t>(a[slot]) != std::bit_cast<std::uint32_t>(b[slot]))
      return false;
  return true;
}

void checkOneLine(const std::string& message) {
  require(!message.empty() && message.find('\n') == std::string::npos, "a message is one line");
}

// What was read is what is written, and reads as the same again.
void checkRoundTrip(const RawValues& values) {
  for (const float value : values) require(std::isfinite(value), "only finite values are read");
  for (const SettingsScope scope : {SettingsScope::all, SettingsScope::changedFromFactory}) {
    RawValues again = factorySettings();
    SettingsWarnings warnings;
    applySettingsText(writeSettings(values, scope), "written", again, warnings);
    require(sameBits(values, again), "written settings read as the same");
  }
}

void read(std::string_view text, bool assignment) {
  RawValues values = factorySettings();
  const RawValues before = values;
  SettingsWarnings warnings;
  try {
    if (assignment)
      applyAssignment(text, values, warnings);
    else
      applySettingsText(text, "text", values, warnings);
  } catch (const SettingsError& error) {
    checkOneLine(error.what());
    require(sameBits(values, before), "a fault leaves the values untouched");
    return;
  }
  for (const std::string& warning : warnings) checkOneLine(warning);
  checkRoundTrip(values);
}

}  // namespace
}  // namespace vellumic::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  vellumic::fuzz::read({reinterpret_cast<const char*>(data) + 1, size - 1}, data[0] == '=');
  return 0;
}
