// One rendering with everything that is said about it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/render/SoundFigures.h"
#include "tools/render/Trace.h"
#include "tools/render/Variants.h"

namespace vellumic::tools {

struct Rendering {
  std::string label;
  RawValues settings{};
  std::vector<SettingChange> changes;

  std::vector<float> output;    // the first channel
  std::size_t delayFrames = 0;  // of the output behind the input: 0 if removed
  Trace trace;
  SoundFigures sound;
  std::optional<ErleFigures> erle;
  std::optional<double> gain;  // dB, of the level control at the end; nothing while it is off
  double cpuPerSecond = 0.0;   // s per second of audio
  // What is printed and stands on the page, each "Name: text"; details of a line are indented.
  std::vector<std::string> lines;
  std::vector<std::string> timingLines;
  std::string warning;  // empty without one
};

// Renders the variant, writes its output file and measures. `job` holds everything but the
// settings, which are put in.
Rendering renderVariant(RenderJob& job, const Variant& variant, const SoundFigures& input);

// Whether the level control is on at any time of the rendering.
bool controlsLevel(const Rendering& rendering);

// One row per rendering below a row of heads.
using Table = std::vector<std::vector<std::string>>;
Table figureTable(const std::string& firstHead, const std::vector<Rendering>& renderings);
std::string plainText(const Table& table);

}  // namespace vellumic::tools
