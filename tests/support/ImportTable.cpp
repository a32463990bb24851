#include "tests/support/ImportTable.h"

#include <algorithm>
#include <cstddef>

namespace vellumic::test {
namespace {

template <class T>
T* at(HMODULE module, std::size_t offset) {
  return reinterpret_cast<T*>(reinterpret_cast<BYTE*>(module) + offset);
}

bool isCode(const void* address) {
  MEMORY_BASIC_INFORMATION information{};
  VirtualQuery(address, &information, sizeof information);
  constexpr DWORD executable =
      PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
  return (information.Protect & executable) != 0;
}

// Both registers are free at a function's entry.
#pragma pack(push, 1)
struct CountingCode {
  // mov r11d, gs:[48h]; mov rax, block
  std::uint8_t loadThread[11] = {0x65, 0x44, 0x8B, 0x1C, 0x25, 0x48, 0, 0, 0, 0x48, 0xB8};
  void* block = nullptr;
  // cmp r11, [rax]; jne over; lock inc [rax + count]
  std::uint8_t increase[9] = {0x4C, 0x3B, 0x18, 0x75, 0x08, 0xF0, 0x48, 0xFF, 0x80};
  std::uint32_t count = 0;
  // over: mov rax, original; jmp rax
  std::uint8_t loadOriginal[2] = {0x48, 0xB8};
  void* original = nullptr;
  std::uint8_t jump[2] = {0xFF, 0xE0};
};
#pragma pack(pop)

}  // namespace

ImportTable::ImportTable(HMODULE module) {
  const auto* dos = at<IMAGE_DOS_HEADER>(module, 0);
  const auto* nt = at<IMAGE_NT_HEADERS>(module, static_cast<std::size_t>(dos->e_lfanew));
  const auto& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  for (auto* dll = at<IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress); dll->Name != 0;
       ++dll) {
    auto* name = at<IMAGE_THUNK_DATA>(module, dll->OriginalFirstThunk);
    auto* slot = at<void*>(module, dll->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal) || !isCode(*slot)) continue;
      const auto* entry =
          at<IMAGE_IMPORT_BY_NAME>(module, static_cast<std::size_t>(name->u1.AddressOfData));
      imports_.push_back({entry->Name, slot, *slot});
    }
  }
  const std::size_t counted = std::min(imports_.size(), std::size(block_->counts));
  block_ = static_cast<Block*>(VirtualAlloc(nullptr, sizeof(Block) + counted * sizeof(CountingCode),
                                            MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
  auto* const code = reinterpret_cast<CountingCode*>(block_ + 1);
  for (std::size_t i = 0; i < counted; ++i) {
    const std::size_t place = offsetof(Block, counts) + i * sizeof(std::uint64_t);
    code[i] = {.block = block_,
               .count = static_cast<std::uint32_t>(place),
               .original = imports_[i].original};
    write(imports_[i].slot, &code[i]);
  }
}

ImportTable::~ImportTable() {
  for (const Import& import : imports_) write(import.slot, import.original);
  // The stand-ins stay in memory: another thread may be inside one.
}

void ImportTable::write(void** slot, void* value) {
  DWORD protection = 0;
  VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection);
  *slot = value;
  VirtualProtect(slot, sizeof *slot, protection, &protection);
}

void* ImportTable::swap(const char* function, void* replacement) {
  for (const Import& import : imports_) {
    if (import.name != function) continue;
    write(import.slot, replacement);
    return import.original;
  }
  return nullptr;
}

std::set<std::string> ImportTable::called() const {
  std::set<std::string> names;
  for (std::size_t i = 0; i < imports_.size(); ++i)
    if (block_->counts[i] != 0) names.insert(imports_[i].name);
  return names;
}

}  // namespace vellumic::test
