// The companion service of the self-test, and settings of its own, as steps of a stage.
#pragma once

#include <optional>

#include "tools/host/RegistrySetting.h"
#include "tools/host/ServiceStandIn.h"
#include "tools/host/selftest/StageLog.h"

namespace vellumic::tools {

// Empty when another service runs or the right to make it is missing; the step says which.
inline void makeBoard(StageLog& log, std::optional<ServiceStandIn>& board) {
  log.attempt("status board made", [&] {
    try {
      board.emplace();
      return good();
    } catch (const std::runtime_error& error) {
      return untold(error.what());
    }
  });
}

// Settings of the test's own, active while it lives. Everybody on the board is told when they go:
// effects of the audio engine may have taken them in with ours.
class TestSettings {
 public:
  TestSettings(StageLog& log, const std::optional<ServiceStandIn>& board, const RawValues& values)
      : log_(log), board_(board) {
    log.attempt("settings stored", [&] {
      log.willChange(undo);
      try {
        setting_.emplace(values);
        return good();
      } catch (const std::runtime_error& error) {
        if (RegistrySetting::putBack()) log.changedBack(undo);
        return untold(error.what());
      }
    });
  }
  ~TestSettings() {
    if (!setting_) return;
    setting_.reset();
    if (board_) board_->tellToReload();
    if (RegistrySetting::putBack()) log_.changedBack(undo);  // it was put back
  }
  TestSettings(const TestSettings&) = delete;
  TestSettings& operator=(const TestSettings&) = delete;
  explicit operator bool() const { return setting_.has_value(); }
  void store(const RawValues& values) { setting_->store(values); }

 private:
  static constexpr const char* undo = "settings-back";
  StageLog& log_;
  const std::optional<ServiceStandIn>& board_;
  std::optional<RegistrySetting> setting_;
};

}  // namespace vellumic::tools
