#include "tools/render/Renderer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <new>
#include <stdexcept>

#include "engine/CaptureCore.h"
#include "engine/ProcessCall.h"
#include "tools/render/EffectSummary.h"
#include "tools/render/FarSource.h"

namespace vellumic::tools {
namespace {

using Clock = std::chrono::steady_clock;

class Run {
 public:
  explicit Run(const RenderJob& job)
      : job_(job),
        core_(farOpener(job, clock_)),
        channels_(static_cast<std::size_t>(job.input.format.channels)) {
    start();
  }

  RenderResult go(const CallObserver& observer);

 private:
  void start();
  void checkDelay(std::size_t frames) const;
  void call(float* samples, std::uint32_t frames);
  void applyChangesUntil(double seconds);
  double secondsAt(std::size_t frame) const {
    return static_cast<double>(frame) / job_.input.format.sampleRate;
  }

  const RenderJob& job_;
  StreamClock clock_;
  CaptureCore core_;
  std::size_t channels_;
  std::size_t nextChange_ = 0;
};

// The steps of an object's initialisation and lock, in their order.
void Run::start() {
  ParameterSets& sets = core_.sets;
  if (!sets.allocate()) throw std::bad_alloc();
  std::ranges::copy(job_.settings, sets.rawParameters().begin());
  sets.settingRead();
  const EffectMode lockMode = lockModeOf(job_.captureClass);
  sets.initialize(job_.mode, lockMode);

  const auto rate = static_cast<float>(job_.input.format.sampleRate);
  const auto channels = static_cast<std::uint32_t>(channels_);
  sets.proposeRate(rate);
  if (job_.captureClass != CaptureClass::efx) {  // that class does not follow the volume
    const float volume = job_.muted ? 0.0F : std::max(job_.volume, ParameterSets::leastVolume);
    sets.setVolumes({.master = volume, .first = volume, .second = volume});
  }
  const StreamFormat format{.sampleRate = rate,
                            .inputChannels = channels,
                            .outputChannels = channels,
                            .inputMask = job_.channelMask,
                            .outputMask = job_.channelMask};
  if (!sets.lock(format, job_.mode, lockMode, core_.context)) throw std::bad_alloc();
}

// The delay is rendered out and held in memory; at an internal rate of 1 Hz it is half an hour.
void Run::checkDelay(std::size_t frames) const {
  constexpr double longest = 60.0;  // s
  const double seconds = secondsAt(frames);
  if (seconds <= longest) return;
  throw std::runtime_error("these settings delay the sound by " +
                           std::to_string(std::lround(seconds)) +
                           " s; raise pipeline.internal_rate_hz, or leave out --tail and --align");
}

void Run::applyChangesUntil(double seconds) {
  for (; nextChange_ < job_.changes.size() && job_.changes[nextChange_].seconds <= seconds;
       ++nextChange_)
    core_.sets.reload(job_.changes[nextChange_].values, job_.mode, reloadModeOf(job_.captureClass));
}

void Run::call(float* samples, std::uint32_t frames) {
  constexpr CallState state{.initialized = true, .locked = true, .limits = {}};
  const StreamBuffer input{.samples = samples, .validFrames = frames, .flags = buffer_flags::valid};
  StreamBuffer output{.samples = samples, .validFrames = 0, .flags = buffer_flags::invalid};
  if (admitCall(state, 1, 1)) runCall(core_.context, 1, input, 1, output);
}

RenderResult Run::go(const CallObserver& observer) {
  RenderResult result{.output = job_.input,
                      .effects = effectSummary(core_, job_),
                      .delayFrames = delayFrames(core_, job_),
                      .processedSeconds = 0.0};
  std::vector<float>& samples = result.output.samples;  // processed in place
  if (job_.tail || job_.align) checkDelay(result.delayFrames);
  if (job_.tail || job_.align) samples.resize(samples.size() + result.delayFrames * channels_);

  const std::size_t total = samples.size() / channels_;
  for (std::size_t frame = 0; frame < total;) {
    const std::size_t count = std::min<std::size_t>(job_.blockFrames, total - frame);
    applyChangesUntil(secondsAt(frame));
    clock_.seconds = secondsAt(frame + count);
    const PipelineProbe& probe = core_.engine.pipeline.probe();
    const auto blocksBefore = probe.blocks;
    const Clock::time_point begin = Clock::now();
    call(samples.data() + frame * channels_, static_cast<std::uint32_t>(count));
    const std::chrono::duration<double, std::micro> taken = Clock::now() - begin;
    frame += count;
    observer({.seconds = clock_.seconds,
              .share = static_cast<double>(frame) / static_cast<double>(total),
              .microseconds = taken.count(),
              .completedBlock = probe.blocks != blocksBefore,
              .probe = probe});
  }
  result.processedSeconds = secondsAt(total);
  if (job_.align) {
    const auto dropped = static_cast<std::ptrdiff_t>(result.delayFrames * channels_);
    samples.erase(samples.begin(), samples.begin() + dropped);
  }
  return result;
}

}  // namespace

RenderResult render(const RenderJob& job, const CallObserver& observer) {
  return std::make_unique<Run>(job)->go(observer);  // too large for a stack
}

}  // namespace vellumic::tools
