#include "tools/ctl/Attachment.h"

#include <winternl.h>

#include <algorithm>
#include <ranges>
#include <set>

#include "control/Names.h"
#include "control/RegistryUtils.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/TextConversion.h"

extern "C" NTSTATUS NTAPI NtDeleteKey(HANDLE key);  // by its handle, whatever its permissions

namespace vellumic::tools {
namespace {

constexpr wchar_t mutexName[] = L"Global\\VellumicCtlAttachment";
constexpr DWORD attachPatienceMs = 10000;
constexpr wchar_t stateName[] = L"State";
constexpr wchar_t madeKeyName[] = L"MadeKey";
constexpr wchar_t attaching[] = L"attaching", attached[] = L"attached", detaching[] = L"detaching",
                  detached[] = L"detached";

std::string shown(const std::wstring& path) { return "HKEY_LOCAL_MACHINE\\" + utf8(path); }

void check(LSTATUS status, const std::wstring& path, const std::string& action) {
  if (status == ERROR_SUCCESS) return;
  throw CtlError(
      shown(path) + ": " + action + " failed (error " + std::to_string(status) + ")" +
      (status == ERROR_ACCESS_DENIED ? "; run as administrator" : "; see the key with regedit"));
}

RegistryKey create(const std::wstring& path, DWORD options, bool& made) {
  RegistryKey key;
  DWORD disposition = 0;
  check(RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, options,
                        KEY_READ | KEY_WRITE | DELETE, nullptr, key.put(), &disposition),
        path, "opening for writing");
  made = disposition == REG_CREATED_NEW_KEY;
  return key;
}

RegistryKey open(const std::wstring& path) {
  return CRegistryUtils::openKey(HKEY_LOCAL_MACHINE, path.c_str());
}

std::wstring recordPath(const std::wstring& endpoint) { return attachmentsPath + endpoint; }

void writeState(const std::wstring& path, HKEY record, const wchar_t* state) {
  check(writeValue(record, stateName, textValue(state)), path, "writing State");
}

// A record that is complete but for its State.
RegistryKey writeRecord(const std::wstring& path, const Attachment& attachment) {
  if (open(path))  // an old one without meaning; nothing of it may be taken for ours
    check(RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str()), path, "removing the old record");
  bool made = false;
  RegistryKey record = create(path, 0, made);
  const RegistryKey before = create(path + L"\\Before", 0, made);
  const RegistryKey after = create(path + L"\\After", 0, made);
  for (const ValueChange& change : attachment.changes) {
    if (change.before)
      check(writeValue(before.get(), change.name, change.before), path, "writing Before");
    if (change.after)
      check(writeValue(after.get(), change.name, change.after), path, "writing After");
  }
  if (attachment.madeKey)
    check(writeValue(record.get(), madeKeyName, textValue(L"1")), path, "writing MadeKey");
  return record;
}

// All changes and what must follow, or none. clean: not even a part of them is left.
template <class Then>
void apply(HKEY key, const std::wstring& path, const std::vector<ValueChange>& changes, bool& clean,
           Then then) {
  std::size_t done = 0;
  try {
    for (const ValueChange& change : changes) {
      check(writeValue(key, change.name, change.after), path, "writing " + utf8(change.name));
      ++done;
    }
    then();
  } catch (...) {
    for (const ValueChange& change : changes | std::views::take(done) | std::views::reverse)
      clean = writeValue(key, change.name, change.before) == ERROR_SUCCESS && clean;
    throw;
  }
}

bool isEmpty(HKEY key) {
  DWORD subkeys = 0, values = 0;
  return RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values,
                          nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS &&
         subkeys == 0 && values == 0;
}

}  // namespace

std::wstring effectPropertiesPath(const std::wstring& endpoint) {
  return captureEndpointsPath + endpoint + effectsSuffix;
}

std::optional<RegistryValues> readEffectProperties(const std::wstring& endpoint) {
  if (!open(captureEndpointsPath + endpoint))
    throw CtlError(shown(captureEndpointsPath + endpoint) +
                   ": no such key; name a microphone that vellumic-ctl endpoints shows");
  const std::wstring path = effectPropertiesPath(endpoint);
  RegistryKey key;
  const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put());
  if (status == ERROR_FILE_NOT_FOUND) return std::nullopt;
  check(status, path, "opening");
  return readValues(key.get(), shown(path));
}

std::optional<Attachment> readAttachment(const std::wstring& endpoint) {
  const std::wstring path = recordPath(endpoint);
  const RegistryKey record = open(path), before = open(path + L"\\Before"),
                    after = open(path + L"\\After");
  if (!record || !before || !after) return std::nullopt;
  const RegistryValues head = readValues(record.get(), shown(path));
  const auto state = head.find(stateName);
  const auto texts = state == head.end() ? std::vector<std::wstring>{} : textsOf(state->second);
  if (texts.empty() || texts.front() == detached) return std::nullopt;

  Attachment attachment{
      .whole = texts.front() == attached, .madeKey = head.contains(madeKeyName), .changes = {}};
  const RegistryValues old = readValues(before.get(), shown(path)),
                       fresh = readValues(after.get(), shown(path));
  RegistryValues names = old;
  names.insert(fresh.begin(), fresh.end());
  const auto valueOf = [](const RegistryValues& values, const std::wstring& name) {
    const auto found = values.find(name);
    return found == values.end() ? std::nullopt : std::optional(found->second);
  };
  for (const auto& [name, value] : names)
    attachment.changes.push_back({name, valueOf(old, name), valueOf(fresh, name)});
  return attachment;
}

AttachmentWriter::AttachmentWriter() : mutex_(CreateMutexW(nullptr, FALSE, mutexName)) {
  if (!mutex_ || WaitForSingleObject(mutex_.get(), attachPatienceMs) == WAIT_TIMEOUT)
    throw CtlError("another vellumic-ctl is attaching or detaching; wait for its end");
}

AttachmentWriter::~AttachmentWriter() { ReleaseMutex(mutex_.get()); }

void AttachmentWriter::attach(const std::wstring& endpoint,
                              const std::vector<ValueChange>& changes) {
  const std::wstring path = effectPropertiesPath(endpoint), recordAt = recordPath(endpoint);
  const bool missing = !readEffectProperties(endpoint);
  const RegistryKey record = writeRecord(recordAt, {.madeKey = missing, .changes = changes});
  writeState(recordAt, record.get(), attaching);
  bool made = false, clean = true;
  RegistryKey key;
  try {
    key = create(path, REG_OPTION_BACKUP_RESTORE, made);
    apply(key.get(), path, changes, clean, [&] { writeState(recordAt, record.get(), attached); });
  } catch (const CtlError& error) {
    if (made) clean = NtDeleteKey(key.get()) == 0;
    if (!clean)  // the record stays, as of a program that was cut short
      throw CtlError(std::string(error.what()) + ", then vellumic-ctl detach: a part was written");
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, recordAt.c_str());
    throw;
  }
}

void AttachmentWriter::detach(const std::wstring& endpoint, const Attachment& attachment,
                              const std::vector<ValueChange>& changes) {
  const std::wstring path = effectPropertiesPath(endpoint), recordAt = recordPath(endpoint);
  bool made = false, clean = true;
  const RegistryKey record = create(recordAt, 0, made);
  writeState(recordAt, record.get(), detaching);
  try {
    const RegistryKey key = create(path, REG_OPTION_BACKUP_RESTORE, made);
    apply(key.get(), path, changes, clean, [&] {
      // Once the key is gone there is no way back: whatever becomes of the record, it is detached.
      const bool gone =
          (attachment.madeKey || made) && isEmpty(key.get()) && NtDeleteKey(key.get()) == 0;
      const LSTATUS written = writeValue(record.get(), stateName, textValue(detached));
      if (!gone) check(written, recordAt, "writing State");
    });
  } catch (...) {
    if (attachment.whole && clean) writeValue(record.get(), stateName, textValue(attached));
    throw;
  }
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, recordAt.c_str());
}

}  // namespace vellumic::tools
