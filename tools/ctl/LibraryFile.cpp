#include "tools/ctl/LibraryFile.h"

#include <aclapi.h>
#include <sddl.h>
#include <softpub.h>
#include <wintrust.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <memory>

namespace vellumic::tools {
namespace {

struct LocalMemory {
  void operator()(void* memory) const { LocalFree(memory); }
};

// Accounts and groups that the audio service's process has in its token.
bool servesAudio(PSID account) {
  for (const wchar_t* text : {L"S-1-5-19", L"S-1-1-0", L"S-1-5-11", L"S-1-5-6", L"S-1-5-32-545"}) {
    PSID known = nullptr;
    if (!ConvertStringSidToSidW(text, &known)) continue;
    const std::unique_ptr<void, LocalMemory> owner(known);
    if (EqualSid(account, known)) return true;
  }
  return false;
}

// The entries in their order: what the first one that speaks of a right says, holds.
bool grants(ACL& list, DWORD wanted) {
  DWORD open = wanted;
  for (DWORD i = 0; i < list.AceCount && open != 0; ++i) {
    void* entry = nullptr;
    if (!GetAce(&list, i, &entry)) return false;
    const auto& header = *static_cast<ACE_HEADER*>(entry);
    auto& allowed = *static_cast<ACCESS_ALLOWED_ACE*>(entry);  // denials have the same shape
    const bool allows = header.AceType == ACCESS_ALLOWED_ACE_TYPE;
    if ((!allows && header.AceType != ACCESS_DENIED_ACE_TYPE) ||
        (header.AceFlags & INHERIT_ONLY_ACE) != 0 || !servesAudio(&allowed.SidStart))
      continue;
    DWORD mask = allowed.Mask;
    GENERIC_MAPPING files = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE,
                             FILE_ALL_ACCESS};
    MapGenericMask(&mask, &files);
    if (!allows && (mask & open) != 0) return false;
    open &= ~mask;
  }
  return open == 0;
}

}  // namespace

std::optional<WORD> machineOf(const std::wstring& file) {
  std::ifstream stream(std::filesystem::path(file), std::ios::binary);
  IMAGE_DOS_HEADER dos = {};
  stream.read(reinterpret_cast<char*>(&dos), sizeof dos);
  if (!stream || dos.e_magic != IMAGE_DOS_SIGNATURE || dos.e_lfanew < 0) return std::nullopt;
  struct {
    DWORD signature;
    IMAGE_FILE_HEADER header;
  } program = {};
  stream.seekg(dos.e_lfanew);
  stream.read(reinterpret_cast<char*>(&program), sizeof program);
  if (!stream || program.signature != IMAGE_NT_SIGNATURE) return std::nullopt;
  return program.header.Machine;
}

std::optional<bool> audioServiceMayRead(const std::wstring& file) {
  ACL* list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetNamedSecurityInfoW(const_cast<wchar_t*>(file.c_str()), SE_FILE_OBJECT,
                            DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr,
                            &descriptor) != ERROR_SUCCESS)
    return std::nullopt;
  const std::unique_ptr<void, LocalMemory> owner(descriptor);
  if (list == nullptr) return true;  // no list: no limits
  return grants(*list, FILE_READ_DATA | FILE_EXECUTE);
}

LONG signatureOf(const std::wstring& file) {
  WINTRUST_FILE_INFO info = {};
  info.cbStruct = sizeof info;
  info.pcwszFilePath = file.c_str();
  WINTRUST_DATA data = {};
  data.cbStruct = sizeof data;
  data.dwUIChoice = WTD_UI_NONE;
  data.fdwRevocationChecks = WTD_REVOKE_NONE;
  data.dwUnionChoice = WTD_CHOICE_FILE;
  data.pFile = &info;
  data.dwStateAction = WTD_STATEACTION_VERIFY;
  GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  const auto none = static_cast<HWND>(INVALID_HANDLE_VALUE);
  const LONG result = WinVerifyTrust(none, &action, &data);
  data.dwStateAction = WTD_STATEACTION_CLOSE;
  WinVerifyTrust(none, &action, &data);
  return result;
}

}  // namespace vellumic::tools
