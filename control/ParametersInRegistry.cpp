#include "control/ParametersInRegistry.h"

#include <objbase.h>

#include <array>
#include <cwchar>
#include <string>
#include <system_error>
#include <thread>

#include "control/BoundedText.h"
#include "control/Names.h"

namespace vellumic {
namespace {

constexpr unsigned shortSettingCount = 323;  // values of the oldest settings still in use
constexpr float on = 1.0F;

struct Chunk {
  std::size_t index, first, end;  // slots
};
constexpr std::size_t chunkCount = 8;
constexpr std::array<Chunk, chunkCount> chunks = {{{0, 0, 170},
                                                   {1, 170, 340},
                                                   {2, 340, 510},
                                                   {3, 510, 680},
                                                   {4, 680, 850},
                                                   {5, 850, 1020},
                                                   {6, 1020, 1190},
                                                   {7, 1190, rawCount}}};

LSTATUS readSlot(HKEY setting, std::size_t slot, float& value) noexcept {
  std::array<wchar_t, pathCapacity> name;
  std::swprintf(name.data(), name.size(), L"Param%u", static_cast<unsigned>(slot + 1));
  return CRegistryUtils::query(setting, name.data(), std::as_writable_bytes(std::span(&value, 1)))
      .status;
}

void readChunk(HKEY setting, const Chunk& chunk, WritableRawView valuesA, WritableRawView valuesB,
               unsigned& counter) noexcept {
  for (std::size_t slot = chunk.first; slot < chunk.end; ++slot) {
    valuesA[slot] = valuesB[slot] = 0.0F;
    if (readSlot(setting, slot, valuesA[slot]) == ERROR_FILE_NOT_FOUND) {
      counter = static_cast<unsigned>(slot);  // the slot's number, not the chunk's count
      return;
    }
    ++counter;
    valuesB[slot] = valuesA[slot];
  }
}

// The chunk threads, joined in reverse on every path.
class ChunkThreads {
 public:
  ~ChunkThreads() {
    for (auto thread = threads_.rbegin(); thread != threads_.rend(); ++thread)
      if (thread->joinable()) thread->join();
  }
  template <class Body>
  void start(const Chunk& chunk, Body body) {
    threads_[chunk.index] = std::thread(body);
  }

 private:
  std::array<std::thread, chunkCount> threads_;
};

}  // namespace

RegistryKey CParametersInRegistry::openSettings() {
  const GuidText tree(settingsTreeGuid);
  if (FAILED(CLSIDFromString(tree.c_str(), &settingsGuid))) settingsGuid = GUID{};
  const BoundedText<pathCapacity> path{parametersPath, tree.c_str(), settingsSuffix};
  return openKey(HKEY_LOCAL_MACHINE, path.c_str());
}

SettingName CParametersInRegistry::readActiveSetting(HKEY settings, NameType accepted) noexcept {
  SettingName name{};
  const auto stored = std::as_writable_bytes(std::span(name)).first(sizeof name - sizeof name[0]);
  const Reading reading = query(settings, L"ActiveSetting", stored);
  if (reading.status != ERROR_SUCCESS || (accepted == NameType::textOnly && reading.type != REG_SZ))
    name = SettingName{L'2'};
  activeSettingNumber = static_cast<int>(std::wcstol(name.data(), nullptr, 10));
  return name;
}

void CParametersInRegistry::readInitialSetting(WritableRawView valuesA, WritableRawView valuesB) {
  const RegistryKey settings = openSettings();
  if (!settings) return;
  const SettingName name = readActiveSetting(settings.get(), NameType::any);
  unsigned count = 0;
  readSettingParallel(settings.get(), &count, name.data(), valuesA, valuesB);
}

void CParametersInRegistry::readSettingParallel(HKEY settings, unsigned* count,
                                                const wchar_t* settingName, WritableRawView valuesA,
                                                WritableRawView valuesB) {
  const RegistryKey setting = openKey(settings, settingName);
  if (!setting) return;
  *count = 0;
  std::array<unsigned, chunkCount> counters{};
  {
    ChunkThreads threads;
    for (const Chunk& chunk : chunks)
      threads.start(chunk, [&, key = setting.get()] {
        readChunk(key, chunk, valuesA, valuesB, counters[chunk.index]);
      });
  }
  for (const unsigned counter : counters) *count += counter;
  // With absolute slot numbers in the sum this is never met; the reload's reader marks such a
  // setting, so a short one can differ between the first load and the first reload.
  if (*count == shortSettingCount)
    valuesA[index(Raw::shortSettingMark)] = valuesB[index(Raw::shortSettingMark)] = on;
}

bool CParametersInRegistry::reloadSetting(RegistryKey& settings, WritableRawView values) {
  settings.release();  // one open key per reload is the agreed price; only the last is closed
  settings = openSettings();
  if (!settings) return false;
  const SettingName name = readActiveSetting(settings.get(), NameType::textOnly);
  if (const RegistryKey setting = openKey(settings.get(), name.data()))
    readSettingSequential(setting.get(), values);
  return true;
}

unsigned CParametersInRegistry::readSettingSequential(HKEY setting,
                                                      WritableRawView values) noexcept {
  unsigned count = 0;
  bool missing = false;
  for (std::size_t slot = 0; slot < rawCount; ++slot) {
    if (readSlot(setting, slot, values[slot]) == ERROR_FILE_NOT_FOUND) {
      values[slot] = 0.0F;
      missing = true;
    } else if (!missing) {
      ++count;
    }
  }
  if (count == shortSettingCount) values[index(Raw::shortSettingMark)] = on;
  return count;
}

}  // namespace vellumic
