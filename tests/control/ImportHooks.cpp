#include "tests/control/ImportHooks.h"

#include <cstring>
#include <mutex>
#include <ostream>
#include <set>
#include <tuple>
#include <utility>

namespace vellumic::test {
namespace {

enum class Kind { handle, view, key };
std::mutex registerMutex;
// Never destroyed: the runtime closes handles until the process is gone.
auto& opened = *new std::set<std::pair<Kind, const void*>>;
std::function<bool()> queryAction;

void note(Kind kind, const void* object, bool isOpen) {
  const std::scoped_lock lock(registerMutex);
  if (object == nullptr) return;
  if (isOpen)
    opened.emplace(kind, object);
  else
    opened.erase({kind, object});
}

template <class T>
T* at(HMODULE module, DWORD offset) {
  return reinterpret_cast<T*>(reinterpret_cast<BYTE*>(module) + offset);
}

template <class Function>
void replaceImport(const char* name, Function*& original, Function* replacement) {
  const HMODULE module = GetModuleHandleW(nullptr);
  const auto* dos = at<IMAGE_DOS_HEADER>(module, 0);
  const auto* nt = at<IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
  const auto& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  for (auto* library = at<IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress); library->Name;
       ++library) {
    auto* names = at<IMAGE_THUNK_DATA>(module, library->OriginalFirstThunk);
    auto* slots = at<IMAGE_THUNK_DATA>(module, library->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++slots) {
      if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
      const auto offset = static_cast<DWORD>(names->u1.AddressOfData);
      if (std::strcmp(at<IMAGE_IMPORT_BY_NAME>(module, offset)->Name, name) != 0) continue;
      original = reinterpret_cast<Function*>(slots->u1.Function);
      DWORD protection = 0;
      VirtualProtect(slots, sizeof *slots, PAGE_READWRITE, &protection);
      slots->u1.Function = reinterpret_cast<ULONGLONG>(replacement);
      VirtualProtect(slots, sizeof *slots, protection, &protection);
    }
  }
}

template <class... Arguments>
auto lastOf(Arguments... arguments) {
  return std::get<sizeof...(arguments) - 1>(std::tuple(arguments...));
}

// One hook per imported function: before(arguments...), the function, after(result, arguments...).
template <auto* function, auto before, auto after>
struct Hook;
template <class R, class... Arguments, R (*function)(Arguments...), auto before, auto after>
struct Hook<function, before, after> {
  static inline R (*original)(Arguments...) = nullptr;
  static R call(Arguments... arguments) {
    before(arguments...);
    const R result = original(arguments...);
    after(result, arguments...);
    return result;
  }
  static void set(const char* name) { replaceImport(name, original, &call); }
};

constexpr auto nothing = [](auto...) {};
constexpr auto opensHandle = [](HANDLE handle, auto...) { note(Kind::handle, handle, true); };
constexpr auto opensView = [](void* view, auto...) { note(Kind::view, view, true); };
constexpr auto opensKey = [](LSTATUS status, auto... arguments) {
  if (status == ERROR_SUCCESS) note(Kind::key, *lastOf(arguments...), true);
};
constexpr auto duplicates = [](BOOL done, HANDLE, HANDLE, HANDLE, HANDLE* copy, auto...) {
  if (done) note(Kind::handle, *copy, true);
};
constexpr auto closesHandle = [](HANDLE handle) { note(Kind::handle, handle, false); };
constexpr auto closesView = [](const void* view) { note(Kind::view, view, false); };
constexpr auto closesKey = [](HKEY key) { note(Kind::key, key, false); };

decltype(&RegQueryValueExW) query = nullptr;
LSTATUS WINAPI queryOrMissing(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                              LPDWORD size) {
  if (queryAction && queryAction()) return ERROR_FILE_NOT_FOUND;
  return query(key, name, reserved, type, data, size);
}

void setHooks() {
#define HOOK(function, before, after) Hook<&function, before, after>::set(#function)
  HOOK(CreateEventW, nothing, opensHandle);
  HOOK(OpenEventW, nothing, opensHandle);
  HOOK(OpenMutexW, nothing, opensHandle);
  HOOK(OpenFileMappingW, nothing, opensHandle);
  HOOK(OpenSemaphoreW, nothing, opensHandle);
  HOOK(DuplicateHandle, nothing, duplicates);
  HOOK(MapViewOfFile, nothing, opensView);
  HOOK(RegOpenKeyExW, nothing, opensKey);
  HOOK(CloseHandle, closesHandle, nothing);
  HOOK(UnmapViewOfFile, closesView, nothing);
  HOOK(RegCloseKey, closesKey, nothing);
#undef HOOK
  replaceImport("RegQueryValueExW", query, &queryOrMissing);
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const OpenObjects& open) {
  return stream << open.handles << " handles, " << open.views << " views, " << open.keys << " keys";
}

OpenObjects openObjects() {
  static std::once_flag once;
  std::call_once(once, setHooks);
  const std::scoped_lock lock(registerMutex);
  OpenObjects open;
  for (const auto& [kind, object] : opened)
    ++(kind == Kind::handle ? open.handles : kind == Kind::view ? open.views : open.keys);
  return open;
}

void onRegistryQuery(std::function<bool()> action) {
  openObjects();
  queryAction = std::move(action);
}

}  // namespace vellumic::test
