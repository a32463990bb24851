// Which effects exist, gathered ping by ping: the board shows one of them at a time.
// Thread: one.
#pragma once

#include <windows.h>

#include <cstddef>
#include <vector>

#include "control/StatusBlock.h"
#include "tools/ctl/CompanionLink.h"

namespace vellumic::tools {

struct SeenObject {
  StatusBlock block{};
  bool alive = false;  // its property event exists; an effect tells nobody when it goes
};

class StatusCollector {
 public:
  explicit StatusCollector(CompanionLink& link) : link_(link) {}

  // Pings until as many pings in a row as there are effects, and some more, brought nothing new.
  // True when an effect has come, changed or gone.
  bool collect();
  [[nodiscard]] const std::vector<SeenObject>& objects() const noexcept { return objects_; }
  [[nodiscard]] std::size_t aliveCount() const noexcept;

 private:
  bool note(const StatusBlock& block);
  bool refresh();

  CompanionLink& link_;
  std::vector<SeenObject> objects_;  // in the order of their coming
};

// One collection from a board that exists already.
struct ObjectSearch {
  bool boardFound = false;
  std::vector<SeenObject> objects;
};
ObjectSearch searchObjects();

// Tells a living effect to read its setting; true if it was told.
bool signalReload(const SeenObject& object);

}  // namespace vellumic::tools
