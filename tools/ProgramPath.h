// Where the running program lies. Windows only.
#pragma once

#include <windows.h>

#include <array>
#include <filesystem>

namespace vellumic::tools {

inline std::filesystem::path programPath() {
  std::array<wchar_t, 1024> path{};
  GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
  return path.data();
}
inline std::filesystem::path programFolder() { return programPath().parent_path(); }

}  // namespace vellumic::tools
