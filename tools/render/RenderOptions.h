// The command line of vellumic-render, read and checked, nothing opened yet.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/render/RenderJob.h"

namespace vellumic::tools {

struct ChangeOption {
  double seconds = 0.0;
  std::string file;
};

struct RenderOptions {
  CaptureClass captureClass = CaptureClass::mfx;
  ProcessingMode mode = ProcessingMode::standard;
  std::vector<std::string> settingsFiles;
  std::vector<std::string> assignments;
  std::string rawFile;
  std::vector<ChangeOption> changes;
  std::string farFile;
  std::vector<TimeSpan> farGaps;
  std::optional<std::uint32_t> blockFrames;  // default: 10 ms
  std::optional<std::uint32_t> channelMask;
  float volume = 1.0F;
  bool muted = false, timing = false, tail = false, align = false;
  std::string reportFile, pictureFile;
  std::string compareFile;  // settings to set beside the given ones
  std::string sweep;        // NAME=A,B,C
  std::string inputFile, outputFile;
};

// Nothing when help was asked for and printed. Throws UsageError.
std::optional<RenderOptions> parseRenderOptions(int argc, const char* const* argv);

}  // namespace vellumic::tools
