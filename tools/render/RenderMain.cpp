#include "tools/render/RenderMain.h"

#include <cstdio>
#include <exception>

#include "tools/render/CallTiming.h"
#include "tools/render/EffectSummary.h"
#include "tools/render/LoadJob.h"
#include "tools/render/ProcessUsage.h"
#include "tools/render/ProgressBar.h"
#include "tools/render/RenderOptions.h"
#include "tools/render/Renderer.h"

namespace vellumic::tools {
namespace {

void warnOfIdleOptions(const RenderOptions& options) {
  if (options.captureClass == CaptureClass::mfx) return;
  if (!options.farFile.empty())
    std::fputs("warning: --far has no effect, only the class mfx listens to it\n", stderr);
  if (options.captureClass == CaptureClass::efx && (options.muted || options.volume != 1.0F))
    std::fputs("warning: the class efx does not follow the volume\n", stderr);
}

void printPath(const RenderJob& job, const RenderResult& result) {
  const double milliseconds =
      1e3 * static_cast<double>(result.delayFrames) / job.input.format.sampleRate;
  std::printf("Effects: %s\n", result.effects.c_str());
  std::printf("Delay: %zu frames = %.1f ms%s\n", result.delayFrames, milliseconds,
              job.align ? ", removed" : "");
  const auto refused = refusal(job);
  std::printf("Library: %s\n", refused ? ("would refuse this stream: " + *refused).c_str()
                                       : "would accept this stream");
}

void run(const RenderOptions& options) {
  SettingsWarnings warnings;
  const RenderJob job = loadJob(options, warnings);
  for (const std::string& warning : warnings)
    std::fprintf(stderr, "warning: %s\n", warning.c_str());
  warnOfIdleOptions(options);

  CallTiming timing;
  timing.reserve(job.input.frames() / job.blockFrames + 1000);
  const double cpuBefore = cpuSeconds();
  RenderResult result;
  {
    ProgressBar progress;
    result = render(job, [&](const CallReport& call) {
      timing.add(call.microseconds, call.completedBlock);
      progress.show(call.share);
    });
  }
  const double cpu = cpuSeconds() - cpuBefore;
  writeWave(options.outputFile, result.output);
  printPath(job, result);
  if (options.timing) {
    const double period = static_cast<double>(job.blockFrames) / job.input.format.sampleRate;
    std::fputs(timingText(timing, period, result.processedSeconds, cpu, peakMegabytes()).c_str(),
               stdout);
  }
}

}  // namespace

int renderMain(int argc, const char* const* argv) {
  try {
    if (const auto options = parseRenderOptions(argc, argv)) run(*options);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vellumic-render: %s\n", error.what());
    return 1;
  }
}

}  // namespace vellumic::tools
