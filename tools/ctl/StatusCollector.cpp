#include "tools/ctl/StatusCollector.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "control/Names.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr DWORD answerMs = 50;  // a waiting effect answers within one or two
constexpr std::size_t spareRounds = 4;
constexpr int mostPings = 200;

// The effect's property event; empty when the effect is gone. Other names in the block are not
// ours to signal.
KernelHandle propertyEventOf(const StatusBlock& block, DWORD access) {
  const std::wstring name(textOf(block.propertyEvent));
  if (block.propertyEventPresent == 0 || !name.starts_with(propertyEventPrefix)) return {};
  return KernelHandle(OpenEventW(access, FALSE, name.c_str()));
}

bool isAlive(const StatusBlock& block) {
  return block.alive != 0 && static_cast<bool>(propertyEventOf(block, SYNCHRONIZE));
}

}  // namespace

bool StatusCollector::note(const StatusBlock& block) {
  if (IsEqualGUID(block.instance, GUID{})) return false;
  const auto known = std::ranges::find_if(objects_, [&](const SeenObject& object) {
    return IsEqualGUID(object.block.instance, block.instance);
  });
  if (known == objects_.end()) {
    objects_.push_back({.block = block, .alive = isAlive(block)});
    return true;
  }
  if (std::memcmp(&known->block, &block, sizeof block) == 0) return false;
  known->block = block;
  return true;
}

bool StatusCollector::refresh() {
  bool changed = false;
  for (SeenObject& object : objects_) {
    const bool alive = isAlive(object.block);
    changed |= alive != object.alive;
    object.alive = alive;
  }
  return changed;
}

bool StatusCollector::collect() {
  bool changed = false;
  std::size_t quiet = 0;
  for (int i = 0; i < mostPings && quiet < aliveCount() + spareRounds; ++i) {
    const auto block = link_.ping(answerMs);
    const bool fresh = block && note(*block);
    quiet = fresh ? 0 : quiet + 1;
    changed |= fresh;
  }
  return refresh() || changed;
}

std::size_t StatusCollector::aliveCount() const noexcept {
  return static_cast<std::size_t>(std::ranges::count(objects_, true, &SeenObject::alive));
}

ObjectSearch searchObjects() {
  CompanionLink link(CompanionLink::Missing::leave);
  StatusCollector collector(link);
  if (link.hasBoard()) collector.collect();
  return {.boardFound = link.hasBoard(), .objects = collector.objects()};
}

bool signalReload(const SeenObject& object) {
  const KernelHandle event = propertyEventOf(object.block, EVENT_MODIFY_STATE);
  return object.alive && event && SetEvent(event.get()) != 0;
}

}  // namespace vellumic::tools
