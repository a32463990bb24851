#include "tests/support/SystemCalls.h"

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <sstream>
#include <tuple>
#include <type_traits>

namespace vellumic::test {

struct SystemCallHooks {
  static inline SystemCalls* active = nullptr;

  static std::string nameOf(const void* object) {
    if (object == HKEY_LOCAL_MACHINE) return "HKLM";
    const auto found = active->open_.find(object);
    if (found == active->open_.end()) return "";
    return found->second.substr(found->second.rfind('\\') + 1);
  }

  // A line's words: what a handle, a text or a number stands for; nothing for other pointers. The
  // last that is no number is the name.
  template <class Argument>
  static void tell(std::ostream& line, const Argument& argument, std::string& name) {
    if constexpr (std::is_integral_v<Argument>) {
      line << ' ' << std::hex << argument;
    } else if constexpr (std::is_same_v<Argument, LPCWSTR>) {
      if (argument == nullptr) return;
      name = std::filesystem::path(argument).string();
      line << ' ' << name;
    } else if constexpr (std::is_same_v<Argument, HKEY> ||
                         std::is_convertible_v<Argument, const void*>) {
      if (const std::string known = nameOf(argument); !known.empty()) {
        name = '<' + known + '>';
        line << ' ' << name;
      }
    }
  }

  enum class Does { opens, opensKey, duplicates, closes, uses };

  template <Does does, auto function>
  struct Hook;
  template <Does does, class R, class... Arguments, R (*function)(Arguments...)>
  struct Hook<does, function> {
    static inline R (*original)(Arguments...) = nullptr;
    static inline const char* name = nullptr;

    static R call(Arguments... arguments) {
      std::string text;
      {
        const LockScope scope(active->lock_);
        constexpr bool opens = does != Does::closes && does != Does::uses;
        const bool keepsLines = active->keeps_ == SystemCalls::Keeps::lines;
        if (opens || keepsLines) {
          std::ostringstream line;
          line << name;
          (tell(line, arguments, text), ...);
          if (text.empty() && opens) text = "unnamed";
          if (does == Does::duplicates) text = "duplicate";
          if (!text.empty() && keepsLines)
            active->lines_.push_back({GetCurrentThreadId(), line.str()});
        }
        if constexpr (does == Does::closes)
          active->open_.erase(std::get<0>(std::tuple(arguments...)));
      }
      const R result = original(arguments...);
      const LockScope scope(active->lock_);
      if constexpr (does == Does::opens) {
        if (result != nullptr) active->open_[result] = text;
      } else if constexpr (does == Does::opensKey) {
        if (result == ERROR_SUCCESS)
          active->open_[*std::get<sizeof...(arguments) - 1>(std::tuple(arguments...))] = text;
      } else if constexpr (does == Does::duplicates) {
        if (result != FALSE) active->open_[*std::get<3>(std::tuple(arguments...))] = text;
      }
      return result;
    }
    static void set(const char* import) {
      name = import;
      original = active->imports_.replace(import, &call);
    }
  };

  static void setAll() {
#define HOOK(does, function) Hook<Does::does, &function>::set(#function)
    HOOK(opens, CreateEventW);
    HOOK(opens, OpenEventW);
    HOOK(opens, OpenMutexW);
    HOOK(opens, OpenFileMappingW);
    HOOK(opens, OpenSemaphoreW);
    HOOK(opens, MapViewOfFile);
    HOOK(opensKey, RegOpenKeyExW);
    HOOK(duplicates, DuplicateHandle);
    HOOK(closes, CloseHandle);
    HOOK(closes, UnmapViewOfFile);
    HOOK(closes, RegCloseKey);
    HOOK(uses, SetEvent);
    HOOK(uses, ReleaseMutex);
    HOOK(uses, WaitForSingleObject);
    HOOK(uses, RegQueryValueExW);
    HOOK(uses, RegCreateKeyExW);
    HOOK(uses, RegSetValueExW);
    HOOK(uses, RegDeleteTreeW);
    HOOK(uses, RegDeleteKeyW);
    HOOK(uses, RegDeleteKeyExW);
    HOOK(uses, RegDeleteValueW);
    HOOK(uses, RegSetKeyValueW);
#undef HOOK
  }
};

SystemCalls::SystemCalls(HMODULE module, Keeps keeps) : keeps_(keeps), imports_(module) {
  SystemCallHooks::active = this;
  SystemCallHooks::setAll();
}

std::vector<std::string> SystemCalls::take(bool own) {
  const LockScope scope(lock_);
  const auto wanted = [own](const Line& line) {
    return (line.thread == GetCurrentThreadId()) == own;
  };
  std::vector<std::string> taken;
  for (const Line& line : lines_)
    if (wanted(line)) taken.push_back(line.text);
  std::erase_if(lines_, wanted);
  return taken;
}

std::vector<std::string> SystemCalls::stillOpen() const {
  const LockScope scope(lock_);
  std::vector<std::string> names;
  for (const auto& [object, name] : open_) names.push_back(name);
  std::ranges::sort(names);
  return names;
}

}  // namespace vellumic::test
