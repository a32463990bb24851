#include "tools/ctl/AttachCommand.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <ranges>

#include "apo/ProcessingModes.h"
#include "tools/OutputFile.h"
#include "tools/ctl/Attachment.h"
#include "tools/ctl/AudioServices.h"
#include "tools/ctl/Microphones.h"
#include "tools/ctl/ModeNames.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

AttachRequest requestOf(const CtlOptions& options) {
  AttachRequest request;
  request.others = options.replace ? OtherEffects::replace
                   : options.keep  ? OtherEffects::keep
                                   : OtherEffects::refuse;
  for (const EffectSlot& slot : effectSlots)
    if (std::ranges::count(options.classes, slot.name)) request.slots.push_back(&slot);
  for (const GUID& mode : acceptedModes)
    if (std::ranges::count(options.modes, modeText(mode))) request.modes.push_back(mode);
  return request;
}

std::string valueText(const std::optional<RegistryValue>& value) {
  if (!value) return "nothing";
  std::string text;
  for (const std::wstring& one : textsOf(*value)) text += (text.empty() ? "" : " ") + utf8(one);
  return text.empty() ? "empty" : text;
}

void printPlan(const Microphone& microphone, const std::vector<ValueChange>& changes) {
  std::printf("%s %s, in HKEY_LOCAL_MACHINE\\%s:\n", utf8(microphone.name).c_str(),
              utf8(microphone.guid).c_str(), utf8(effectPropertiesPath(microphone.guid)).c_str());
  for (const ValueChange& change : changes)
    std::printf("  %s\n      from %s\n      to   %s\n", utf8(change.name).c_str(),
                valueText(change.before).c_str(), valueText(change.after).c_str());
  std::fflush(stdout);
}

RegistryValues changed(RegistryValues values, const std::vector<ValueChange>& changes) {
  for (const ValueChange& change : changes) {
    if (change.after)
      values[change.name] = *change.after;
    else
      values.erase(change.name);
  }
  return values;
}

// Never over an older file.
std::string writeBackup(const CtlOptions& options, const Microphone& microphone,
                        const RegistryValues& values, const std::vector<ValueChange>& changes) {
  std::vector<std::wstring> added;
  for (const ValueChange& change : changes)
    if (!change.before) added.push_back(change.name);
  const std::wstring text = regFileText(effectPropertiesPath(microphone.guid), values, added);
  const std::string stem = "before-" + utf8(microphone.guid);
  std::string file = options.backupFile.empty() ? stem + ".reg" : options.backupFile;
  if (!options.backupFile.empty() && std::filesystem::exists(file))
    throw CtlError(file + ": exists already; name a new file with --backup");
  for (int number = 2; std::filesystem::exists(file); ++number)
    file = stem + "-" + std::to_string(number) + ".reg";
  writeWholeFile(file, {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)});
  return file;
}

void finish(const CtlOptions& options) {
  if (!options.restart) {
    std::printf("It acts after a restart of the audio services (--restart, or by hand):\n  %s\n",
                restartByHand);
    return;
  }
  restartAudioServices();
  std::puts("The audio services were started anew.");
}

std::vector<ValueChange> wayBack(const RegistryValues& now,
                                 const std::optional<Attachment>& attachment,
                                 std::vector<std::string>& notes) {
  return attachment ? detachChanges(now, attachment->changes, notes) : std::vector<ValueChange>{};
}

void printNotes(const std::vector<std::string>& notes) {
  for (const std::string& note : notes) std::printf("  %s\n", note.c_str());
}

// Over an earlier attachment: should the new one be refused, the earlier one is made again, with
// what others have written meanwhile.
void attachOver(AttachmentWriter& writer, const Microphone& microphone, const Attachment& older,
                const std::vector<ValueChange>& back, const std::vector<ValueChange>& changes) {
  writer.detach(microphone.guid, older, back);
  try {
    writer.attach(microphone.guid, changes);
  } catch (...) {
    std::vector<ValueChange> again;
    for (const ValueChange& change : back | std::views::reverse)  // modes before their classes
      again.push_back({.name = change.name, .before = change.after, .after = change.before});
    // A record that is there: the refused writes could not all be taken back.
    if (older.whole && !readAttachment(microphone.guid)) writer.attach(microphone.guid, again);
    throw;
  }
}

// What both commands look at; without the rights to write it is not made, except for a dry run.
struct Target {
  explicit Target(const CtlOptions& options)
      : microphone(findMicrophone(options.device, DEVICE_STATEMASK_ALL)) {
    if (!options.dryRun) writer.emplace();
    now = readEffectProperties(microphone.guid).value_or(RegistryValues{});
    attachment = readAttachment(microphone.guid);
  }
  const ComThread com;
  const Microphone microphone;
  std::optional<AttachmentWriter> writer;
  RegistryValues now;
  std::optional<Attachment> attachment;
};

}  // namespace

void attachEffects(const CtlOptions& options) {
  Target target(options);
  auto& [com, microphone, writer, now, older] = target;
  // An earlier attachment is taken back first; everything is worked out before the first write.
  std::vector<std::string> notes;
  const auto back = wayBack(now, older, notes);
  const RegistryValues base = changed(now, back);
  const auto changes = attachChanges(base, requestOf(options));
  if (changed(base, changes) == now && (!older || older->whole)) {
    std::printf("%s is attached like this already; nothing was changed.\n",
                utf8(microphone.name).c_str());
    return;
  }
  if (older) {
    std::puts("First the earlier attachment is taken back:");
    printPlan(microphone, back);
    printNotes(notes);
  }
  printPlan(microphone, changes);
  if (options.dryRun) {
    std::puts("Nothing was written (--dry-run).");
    return;
  }
  const std::string backup = writeBackup(options, microphone, base, changes);
  std::printf("What was there before is in %s.\n", backup.c_str());
  if (older)
    attachOver(*writer, microphone, *older, back, changes);
  else
    writer->attach(microphone.guid, changes);
  std::puts("Attached; vellumic-ctl detach takes it back, vellumic-ctl doctor checks the rest.");
  finish(options);
}

void detachEffects(const CtlOptions& options) {
  Target target(options);
  auto& [com, microphone, writer, now, attachment] = target;
  if (!attachment)
    throw CtlError(utf8(microphone.name) + " " + utf8(microphone.guid) + ": " +
                   (attachedEffects(now).empty()
                        ? "nothing of Vellumic is attached"
                        : "was not attached by vellumic-ctl; undo it by the means that did"));
  std::vector<std::string> notes;
  const auto changes = wayBack(now, attachment, notes);
  printPlan(microphone, changes);
  printNotes(notes);
  if (options.dryRun) {
    std::puts("Nothing was written (--dry-run).");
    return;
  }
  writer->detach(microphone.guid, *attachment, changes);
  std::puts("Detached.");
  finish(options);
}

}  // namespace vellumic::tools
