// vellumic-inf LIBRARY VERSION COMPONENT.inf EXTENSION.inf: writes the INF files of the driver
// package. The library registers itself under a scratch root; what it wrote there becomes the
// component's AddReg section, so that the two cannot differ.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <vector>

#include "apo/ProcessingModes.h"
#include "control/Handle.h"
#include "tools/OutputFile.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/EffectPlan.h"
#include "tools/ctl/TextConversion.h"
#include "tools/package/InfText.h"

namespace vellumic::tools {
namespace {

// A key of the user's that stands for HKEY_CLASSES_ROOT in this process.
class ScratchClasses {
 public:
  ScratchClasses() : name_(L"Software\\VellumicInf" + std::to_wstring(GetCurrentProcessId())) {
    if (RegCreateKeyW(HKEY_CURRENT_USER, name_.c_str(), root_.put()) != ERROR_SUCCESS ||
        RegOverridePredefKey(HKEY_CLASSES_ROOT, root_.get()) != ERROR_SUCCESS)
      throw CtlError("HKEY_CURRENT_USER\\" + utf8(name_) + ": cannot be made");
  }
  ~ScratchClasses() {
    RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
    RegDeleteTreeW(HKEY_CURRENT_USER, name_.c_str());
  }
  ScratchClasses(const ScratchClasses&) = delete;
  ScratchClasses& operator=(const ScratchClasses&) = delete;
  [[nodiscard]] HKEY root() const { return root_.get(); }

 private:
  std::wstring name_;
  RegistryKey root_;
};

void registerLibrary(const std::filesystem::path& library) {
  const HMODULE module = LoadLibraryW(library.c_str());
  const auto entry = reinterpret_cast<HRESULT(WINAPI*)()>(
      reinterpret_cast<void*>(module ? GetProcAddress(module, "DllRegisterServer") : nullptr));
  if (entry == nullptr || FAILED(entry()))
    throw CtlError(library.string() + ": cannot be registered; is it the library?");
}

// Classes go below "Classes" of the component device, records beside them; the library lies in the
// driver store.
std::wstring packagePath(const std::wstring& path) {
  return path.starts_with(L"AudioEngine") ? path : L"Classes\\" + path;
}
RegistryValue packageValue(const RegistryValue& value, const std::wstring& folder) {
  const auto texts = textsOf(value);
  if (value.type != REG_SZ || texts.empty()) return value;
  std::wstring text = texts.front();
  if (const auto at = text.find(folder); at != std::wstring::npos)
    text.replace(at, folder.size(), L"%13%");
  return textValue(text);
}

void collect(HKEY key, const std::wstring& path, const std::wstring& folder,
             std::vector<InfKey>& keys) {
  RegistryValues values = readValues(key, utf8(path));
  for (auto& [name, value] : values) value = packageValue(value, folder);
  std::vector<std::wstring> children;
  std::array<wchar_t, 256> name{};
  for (DWORD i = 0, length = name.size(); RegEnumKeyExW(key, i, name.data(), &length, nullptr,
                                                        nullptr, nullptr, nullptr) == ERROR_SUCCESS;
       ++i, length = name.size())
    children.emplace_back(name.data(), length);
  if (!path.empty() && (!values.empty() || children.empty()))
    keys.push_back({packagePath(path), std::move(values)});
  for (const std::wstring& child : children) {
    RegistryKey opened;
    if (RegOpenKeyExW(key, child.c_str(), 0, KEY_READ, opened.put()) != ERROR_SUCCESS)
      throw CtlError(utf8(path + L"\\" + child) + ": cannot be read");
    collect(opened.get(), path.empty() ? child : path + L"\\" + child, folder, keys);
  }
}

std::vector<InfKey> registeredKeys(const std::filesystem::path& library) {
  const ScratchClasses classes;
  registerLibrary(library);
  std::vector<InfKey> keys;
  collect(classes.root(), L"", library.parent_path().wstring(), keys);
  return keys;
}

RegistryValues attachedValues() {
  AttachRequest request;
  for (const EffectSlot& slot : effectSlots) request.slots.push_back(&slot);
  request.modes.assign(acceptedModes.begin(), acceptedModes.end());
  RegistryValues values;
  for (const ValueChange& change : attachChanges({}, request)) values[change.name] = *change.after;
  return values;
}

void makeInfs(char** arguments) {
  const auto library = std::filesystem::absolute(arguments[1]).make_preferred();
  writeWholeFile(arguments[3], componentInf(arguments[2], registeredKeys(library)));
  writeWholeFile(arguments[4], extensionInf(arguments[2], attachedValues()));
}

}  // namespace
}  // namespace vellumic::tools

int main(int count, char** arguments) {
  try {
    if (count != 5)
      throw vellumic::tools::CtlError("write LIBRARY VERSION COMPONENT.inf EXTENSION.inf");
    vellumic::tools::makeInfs(arguments);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vellumic-inf: %s\n", error.what());
    return 1;
  }
}
