// What attaching and detaching change among an endpoint's effect properties, worked out from the
// values alone: nothing is read or written here.
#pragma once

#include <windows.h>

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "apo/EffectSlots.h"
#include "tools/ctl/RegistryValues.h"

namespace vellumic::tools {

std::wstring effectValueName(const GUID& set, unsigned number);  // "{set},number"
std::wstring classText(const EffectSlot& slot);                  // the class id, with braces

// What happens to effects of others that stand where an effect of ours is to stand.
enum class OtherEffects { refuse, keep, replace };

struct AttachRequest {
  std::vector<const EffectSlot*> slots;
  std::vector<GUID> modes;
  OtherEffects others = OtherEffects::refuse;
};

struct ValueChange {
  std::wstring name;
  std::optional<RegistryValue> before, after;  // nothing: the value is missing
};

// In an order in which every effect has all it needs before it is named itself. A place that is
// free, or replaced, is filled; where the driver uses chains, or its effect is kept, ours is the
// last of a chain. Throws CtlError when others' effects are in the way.
std::vector<ValueChange> attachChanges(const RegistryValues& now, const AttachRequest& request);

// The way back, from values as they are now: `made` is what attachChanges gave then. A value that
// still is as we wrote it, or as it was before, ends as before. Of a place that somebody changed
// since only our own class is taken out, and a line about it goes to `notes`.
std::vector<ValueChange> detachChanges(const RegistryValues& now, std::span<const ValueChange> made,
                                       std::vector<std::string>& notes);

// What is attached.
struct AttachedEffect {
  const EffectSlot* slot;
  bool inChain;
  std::vector<std::wstring> modes, others;  // texts of ids: others run in the same chain
};
std::vector<AttachedEffect> attachedEffects(const RegistryValues& values);
// Class ids of everybody else's effects, in any place or chain.
std::vector<std::wstring> otherEffects(const RegistryValues& values);

}  // namespace vellumic::tools
