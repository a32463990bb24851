#include "tools/ctl/CompanionLink.h"

#include <cstring>
#include <string>

#include "control/Names.h"
#include "control/OpenEvent.h"
#include "tools/ServiceAccess.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr DWORD mutexPatienceMs = 100;

[[noreturn]] void fail(const wchar_t* name, const std::string& fault) {
  throw CtlError(utf8(name) + ": " + fault);
}

void check(const KernelHandle& handle, const wchar_t* name) {
  if (!handle)
    fail(name,
         "cannot be opened (error " + std::to_string(GetLastError()) + "); run as administrator");
}

}  // namespace

CompanionLink::CompanionLink(Missing missing)
    : mapping_(OpenFileMappingW(FILE_MAP_READ, FALSE, sharedMemoryName)) {
  ServiceAccess access;
  if (!mapping_ && GetLastError() == ERROR_FILE_NOT_FOUND) {
    if (missing == Missing::leave) return;
    mapping_.reset(CreateFileMappingW(INVALID_HANDLE_VALUE, access.get(), PAGE_READWRITE, 0,
                                      sizeof(StatusBoard), sharedMemoryName));
    madeBoard_ = mapping_ && GetLastError() != ERROR_ALREADY_EXISTS;
  }
  check(mapping_, sharedMemoryName);
  const DWORD viewAccess = madeBoard_ ? FILE_MAP_WRITE : FILE_MAP_READ;
  view_.reset(MapViewOfFile(mapping_.get(), viewAccess, 0, 0, sizeof(StatusBoard)));
  if (!view_)
    fail(sharedMemoryName, "is too small for a status board; end the program that made it");
  auto* const board = static_cast<StatusBoard*>(view_.get());
  if (madeBoard_) board->version = statusLayoutVersion;
  if (board->version != statusLayoutVersion)
    fail(sharedMemoryName, "has layout version " + std::to_string(board->version) +
                               "; use the vellumic-ctl that came with the service");
  mutex_.reset(OpenMutexW(SYNCHRONIZE, FALSE, sharedMemoryMutexName));
  if (!mutex_) mutex_.reset(CreateMutexW(access.get(), FALSE, sharedMemoryMutexName));
  check(mutex_, sharedMemoryMutexName);
  ping_ = createOpenEvent(pingEventName);
  check(ping_, pingEventName);
  // A publication wakes the maker. A guest holds the event too: effects need it when the maker has
  // gone.
  event_.reset(OpenEventW(SYNCHRONIZE, FALSE, sharedMemoryEventName));
  if (!event_) event_.reset(CreateEventW(access.get(), FALSE, FALSE, sharedMemoryEventName));
  check(event_, sharedMemoryEventName);
}

std::optional<StatusBlock> CompanionLink::readBlock() {
  // A mutex left behind by a dead program is ours now and whole again once released.
  const DWORD taken = WaitForSingleObject(mutex_.get(), mutexPatienceMs);
  if (taken != WAIT_OBJECT_0 && taken != WAIT_ABANDONED) return std::nullopt;
  const StatusBlock block = static_cast<const StatusBoard*>(view_.get())->block;
  ReleaseMutex(mutex_.get());
  return block;
}

void CompanionLink::awaitChange(DWORD waitMs, const StatusBlock& before) {
  constexpr DWORD stepMs = 2;
  for (DWORD waited = 0; waited < waitMs; waited += stepMs) {
    Sleep(stepMs);
    const auto block = readBlock();
    if (block && std::memcmp(&*block, &before, sizeof before) != 0) return;
  }
}

std::optional<StatusBlock> CompanionLink::ping(DWORD waitMs) {
  if (!hasBoard()) return std::nullopt;
  if (madeBoard_) {
    SetEvent(ping_.get());
    if (WaitForSingleObject(event_.get(), waitMs) != WAIT_OBJECT_0) return std::nullopt;
  } else if (const auto before = readBlock()) {
    SetEvent(ping_.get());
    awaitChange(waitMs, *before);
  }
  return readBlock();
}

}  // namespace vellumic::tools
