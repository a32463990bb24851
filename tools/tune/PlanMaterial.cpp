// What a plan judges on: [[material]], [voices], [held_out].
#include <algorithm>
#include <cstdint>

#include "tools/quality/SceneCatalogue.h"
#include "tools/tune/PlanSection.h"

namespace vellumic::tune {
namespace {

Matter readMatter(Section section) {
  Matter matter;
  matter.scene = section.text("scene");
  matter.recording = section.text("recording");
  matter.far = section.text("far");
  matter.talker = section.text("talker");
  const auto seeds = section.wholes("seeds", 1, 1000000);
  matter.microphones = section.wholes("microphones", 1, 8);
  section.done();
  if (matter.scene.empty() == matter.recording.empty())
    section.fail("", "needs either scene = \"name\" or recording = \"microphones.wav\"");
  if (matter.isScene()) {
    if (!quality::sceneNamed(matter.scene, 1, 1))
      section.fail("scene", "no such scene; see `vellumic-quality list`");
    if (!matter.far.empty() || !matter.talker.empty())
      section.fail("scene", "a scene brings its own far end and talker; leave far and talker out");
    if (matter.microphones.empty()) matter.microphones = {4};
    matter.seeds.assign(seeds.begin(), seeds.end());
    if (seeds.empty()) matter.seeds = {1};
  } else if (!seeds.empty() || !matter.microphones.empty()) {
    section.fail("recording", "has neither seeds nor microphones; leave them out");
  }
  return matter;
}

// A scene is another one for another seed only where its kind is drawn from it; a standard scene
// keeps its room and places.
bool isDrawn(const Matter& matter) {
  return std::ranges::find(quality::sceneKinds(), matter.scene) != quality::sceneKinds().end();
}

// Where the plan names none: the same kinds of scenes, other seeds.
std::vector<Matter> otherSeeds(const std::vector<Matter>& material) {
  std::uint64_t highest = 0;
  for (const Matter& matter : material)
    for (const std::uint64_t seed : matter.seeds) highest = std::max(highest, seed);
  const std::uint64_t further = (highest / 1000 + 1) * 1000;
  std::vector<Matter> held;
  for (Matter matter : material) {
    if (!isDrawn(matter)) continue;
    for (std::uint64_t& seed : matter.seeds) seed += further;
    held.push_back(matter);
  }
  return held;
}

void keepApart(const Section& section, const Plan& plan) {
  for (const Matter& held : plan.heldOut)
    for (const Matter& seen : plan.material) {
      for (const std::string& file : {held.recording, held.far, held.talker})
        for (const std::string& other : {seen.recording, seen.far, seen.talker})
          if (!file.empty() && !other.empty() && placeOf(file) == placeOf(other))
            section.fail("", file + " is in the material and held out; take it out of one");
      if (!held.isScene() || held.scene != seen.scene) continue;
      if (!isDrawn(held))
        section.fail("", "scene " + held.scene +
                             " is the same room for every seed; take it out of the material or "
                             "of what is held out");
      for (const std::uint64_t seed : held.seeds)
        if (std::ranges::find(seen.seeds, seed) != seen.seeds.end())
          section.fail("", "scene " + held.scene + " with seed " + std::to_string(seed) +
                               " is in the material and held out; take it out of one");
    }
}

}  // namespace

void readMaterial(Section& root, Plan& plan) {
  for (const Section& section : root.list("material")) plan.material.push_back(readMatter(section));
  if (plan.material.empty())
    root.fail("", "names no material; add [[material]] with a scene or a recording");
  Section voices = root.inner("voices"), held = root.inner("held_out");
  plan.voices = {voices.text("near"), voices.text("far")};
  plan.heldOutVoices = {held.text("near"), held.text("far")};
  if (plan.heldOutVoices.nearFile.empty()) plan.heldOutVoices.nearFile = plan.voices.nearFile;
  if (plan.heldOutVoices.farFile.empty()) plan.heldOutVoices.farFile = plan.voices.farFile;
  for (const Section& section : held.list("material")) plan.heldOut.push_back(readMatter(section));
  if (plan.heldOut.empty()) plan.heldOut = otherSeeds(plan.material);
  if ((std::ranges::any_of(plan.material, &Matter::isScene) ||
       std::ranges::any_of(plan.heldOut, &Matter::isScene)) &&
      (plan.voices.nearFile.empty() || plan.voices.farFile.empty()))
    voices.fail("", "scenes need voices: add [voices] with near and far, WAV files at 16 kHz");
  voices.done();
  held.done();
  keepApart(held, plan);
}

}  // namespace vellumic::tune
