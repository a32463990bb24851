#include "tools/ctl/EffectPlan.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "control/BoundedText.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

using Texts = std::vector<std::wstring>;

// Among the values of a key; nothing if missing.
std::optional<RegistryValue> valueOf(const RegistryValues& values, const std::wstring& name) {
  const auto found = values.find(name);
  return found == values.end() ? std::nullopt : std::optional(found->second);
}

Texts textsAt(const RegistryValues& values, const GUID& set, unsigned number) {
  const auto value = valueOf(values, effectValueName(set, number));
  return value ? textsOf(*value) : Texts{};
}

bool contains(const Texts& texts, const std::wstring& text) {
  return std::ranges::any_of(texts, [&](const std::wstring& one) { return sameText(one, text); });
}

Texts without(Texts texts, const std::wstring& text) {
  std::erase_if(texts, [&](const std::wstring& one) { return sameText(one, text); });
  return texts;
}

// Class ids at a place; the null id stands for none.
Texts classesAt(const RegistryValues& values, unsigned number) {
  return without(textsAt(values, effectPropertySet, number), GuidText(GUID{}).c_str());
}

// A set of changes against the values that are there.
class Changes {
 public:
  explicit Changes(const RegistryValues& now) : now_(now) {}
  void write(const std::wstring& name, std::optional<RegistryValue> after) {
    const auto before = valueOf(now_, name);
    if (before != after) list_.push_back({name, before, std::move(after)});
  }
  [[nodiscard]] std::vector<ValueChange> take() { return std::move(list_); }

 private:
  const RegistryValues& now_;
  std::vector<ValueChange> list_;
};

[[noreturn]] void refuse(const EffectSlot& slot, const Texts& others, bool canKeep) {
  std::string list;
  for (const std::wstring& other : others) list += (list.empty() ? "" : ", ") + utf8(other);
  throw CtlError(std::string(slot.name) + ": the driver's effect " + list +
                 (canKeep ? " is in its place; add --keep to run both in a chain, or --replace"
                          : " is of the old kind that cannot run beside it; add --replace"));
}

bool usesChains(const RegistryValues& now) {
  return std::ranges::any_of(streamChains,
                             [&](unsigned chain) { return !classesAt(now, chain).empty(); });
}

// The effects of others that a place's own value or chain holds.
Texts othersAt(const RegistryValues& now, const EffectSlot& slot) {
  const Texts chain = classesAt(now, slot.chain);
  return without(chain.empty() ? classesAt(now, slot.place) : chain, classText(slot));
}

void checkLegacy(const RegistryValues& now, const EffectSlot& slot, OtherEffects others) {
  if (others == OtherEffects::replace || !std::ranges::count(streamPlaces, slot.place)) return;
  const auto filled = [&](unsigned place) { return !classesAt(now, place).empty(); };
  if (std::ranges::any_of(streamPlaces, filled) || std::ranges::any_of(streamChains, filled))
    return;
  for (const unsigned place : legacyPlaces)
    if (filled(place)) refuse(slot, classesAt(now, place), false);
}

// The class values of one effect, and its modes.
void planEffect(const RegistryValues& now, const EffectSlot& slot, const AttachRequest& request,
                Changes& modes, Changes& classes) {
  checkLegacy(now, slot, request.others);
  const bool chained = !classesAt(now, slot.chain).empty();
  Texts others = othersAt(now, slot);
  // A chain is made to be added to; a place holds one.
  if (!others.empty() && !chained && request.others == OtherEffects::refuse)
    refuse(slot, others, true);
  if (request.others == OtherEffects::replace) others.clear();

  Texts wanted;
  if (!others.empty()) wanted = textsAt(now, effectModesSet, slot.place);
  for (const GUID& mode : request.modes)
    if (const std::wstring text = GuidText(mode).c_str(); !contains(wanted, text))
      wanted.push_back(text);
  modes.write(effectValueName(effectModesSet, slot.place), textsValue(wanted));

  if (chained || !others.empty() || usesChains(now)) {
    others.push_back(classText(slot));
    classes.write(effectValueName(effectPropertySet, slot.chain), textsValue(others));
  } else {
    classes.write(effectValueName(effectPropertySet, slot.place), textValue(classText(slot)));
  }
}

// A change of an attachment, seen from today.
struct Trace {
  const ValueChange* made = nullptr;
  std::optional<RegistryValue> now;
  [[nodiscard]] bool foreign() const {
    return made != nullptr && now != made->after && now != made->before;
  }
};

Trace traceOf(std::span<const ValueChange> made, const RegistryValues& now,
              const std::wstring& name) {
  const auto found = std::ranges::find_if(
      made, [&](const ValueChange& change) { return sameText(change.name, name); });
  return {found == made.end() ? nullptr : &*found, valueOf(now, name)};
}

}  // namespace

std::wstring effectValueName(const GUID& set, unsigned number) {
  std::wstring name = GuidText(set).c_str();
  std::ranges::transform(name, name.begin(), [](wchar_t c) {
    return c >= L'A' && c <= L'F' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
  });
  return name + L"," + std::to_wstring(number);
}

std::wstring classText(const EffectSlot& slot) { return GuidText(slot.record->clsid).c_str(); }

std::vector<ValueChange> attachChanges(const RegistryValues& now, const AttachRequest& request) {
  Changes association(now), modes(now), classes(now);
  const std::wstring name = effectValueName(effectPropertySet, associationProperty);
  if (!now.contains(name)) association.write(name, textValue(GuidText(GUID{}).c_str()));
  for (const EffectSlot* slot : request.slots) planEffect(now, *slot, request, modes, classes);
  std::vector<ValueChange> all = association.take();
  std::ranges::move(modes.take(), std::back_inserter(all));
  std::ranges::move(classes.take(), std::back_inserter(all));
  return all;
}

std::vector<ValueChange> detachChanges(const RegistryValues& now, std::span<const ValueChange> made,
                                       std::vector<std::string>& notes) {
  Changes classes(now), modes(now), association(now);
  bool anyForeign = false;
  for (const EffectSlot& slot : effectSlots) {
    const std::wstring own = classText(slot);
    bool foreign = false;
    for (const unsigned number : {slot.place, slot.chain}) {
      const std::wstring name = effectValueName(effectPropertySet, number);
      const Trace trace = traceOf(made, now, name);
      if (!trace.foreign()) {
        if (trace.made != nullptr) classes.write(name, trace.made->before);
        continue;
      }
      foreign = true;
      const Texts left = trace.now ? textsOf(*trace.now) : Texts{};
      if (contains(left, own)) {
        const Texts others = without(left, own);
        classes.write(name, others.empty() ? std::nullopt : std::optional(textsValue(others)));
      }
      notes.push_back(std::string(slot.name) + ": " + utf8(name) +
                      " was changed by somebody else since; only Vellumic's class is taken out");
    }
    const std::wstring name = effectValueName(effectModesSet, slot.place);
    const Trace trace = traceOf(made, now, name);
    if (trace.made != nullptr && !foreign && !trace.foreign())
      modes.write(name, trace.made->before);
    anyForeign |= foreign;
  }
  const std::wstring name = effectValueName(effectPropertySet, associationProperty);
  const Trace trace = traceOf(made, now, name);
  if (trace.made != nullptr && !anyForeign && !trace.foreign())
    association.write(name, trace.made->before);
  std::vector<ValueChange> all = classes.take();
  std::ranges::move(modes.take(), std::back_inserter(all));
  std::ranges::move(association.take(), std::back_inserter(all));
  return all;
}

std::vector<AttachedEffect> attachedEffects(const RegistryValues& values) {
  std::vector<AttachedEffect> attached;
  for (const EffectSlot& slot : effectSlots) {
    const Texts chain = classesAt(values, slot.chain);
    const Texts classes = chain.empty() ? classesAt(values, slot.place) : chain;
    if (!contains(classes, classText(slot))) continue;
    attached.push_back({.slot = &slot,
                        .inChain = !chain.empty(),
                        .modes = textsAt(values, effectModesSet, slot.place),
                        .others = without(classes, classText(slot))});
  }
  return attached;
}

std::vector<std::wstring> otherEffects(const RegistryValues& values) {
  Texts all;
  const auto add = [&](unsigned number) {
    for (const std::wstring& text : classesAt(values, number))
      if (!contains(all, text)) all.push_back(text);
  };
  for (const unsigned place : legacyPlaces) add(place);
  for (const unsigned place : streamPlaces) add(place);
  for (const unsigned chain : streamChains) add(chain);
  for (const EffectSlot& slot : effectSlots) {
    add(slot.place);
    add(slot.chain);
  }
  for (const EffectSlot& slot : effectSlots) all = without(std::move(all), classText(slot));
  return all;
}

}  // namespace vellumic::tools
