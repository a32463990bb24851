// The companion service's side of the status board: joins the one that exists, or makes it.
//
// Effects look for the board only when they are made. Those that found one keep it in being after
// its maker has gone, so that a later program may join it.
// The board is written by other processes: nothing in it is trusted. Thread: one.
#pragma once

#include <windows.h>

#include <optional>

#include "control/Handle.h"
#include "control/StatusBlock.h"

namespace vellumic::tools {

class CompanionLink {
 public:
  enum class Missing { make, leave };
  // Throws CtlError if the board cannot be made or is one of another layout.
  explicit CompanionLink(Missing missing);

  [[nodiscard]] bool hasBoard() const noexcept { return static_cast<bool>(view_); }
  [[nodiscard]] bool madeBoard() const noexcept { return madeBoard_; }

  // Wakes one effect, whichever waits longest, and gives what the board shows then. Waits at most
  // that long for a publication; nothing if there was none, or the board was being written.
  // On a board of somebody else the block may be one that was there before.
  std::optional<StatusBlock> ping(DWORD waitMs);

  // What the board shows now; nothing if it is being written.
  std::optional<StatusBlock> readBlock();
  // Signalled once by each publication.
  [[nodiscard]] HANDLE publication() const noexcept { return event_.get(); }

 private:
  void awaitChange(DWORD waitMs, const StatusBlock& before);

  KernelHandle mapping_, mutex_, event_, ping_;
  MappedView view_;
  bool madeBoard_ = false;
};

}  // namespace vellumic::tools
