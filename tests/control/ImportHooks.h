// Counts what this executable has open, by standing in its import table before the creating and
// the closing calls of kernel32 and advapi32. Handles that the runtime library opens are not seen.
#pragma once

#include <windows.h>

#include <functional>
#include <iosfwd>

namespace vellumic::test {

struct OpenObjects {
  int handles = 0, views = 0, keys = 0;
  bool operator==(const OpenObjects&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const OpenObjects& open);

// Opened since the hooks were set, and still open. Sets the hooks at the first call.
OpenObjects openObjects();

// Runs before every RegQueryValueExW of this executable, on the calling thread; null for none.
// Where it gives true the registry is not asked and the value is missing.
void onRegistryQuery(std::function<bool()> action);

}  // namespace vellumic::test
