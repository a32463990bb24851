#include "bench/realtime/LiveObject.h"

#include <algorithm>
#include <chrono>
#include <new>

#include "bench/EveryBand.h"
#include "bench/realtime/SystemCallTrap.h"
#include "engine/ProcessCall.h"
#include "tests/support/RealtimeGuard.h"
#include "tools/ThreadTime.h"

namespace vellumic::bench {
namespace {

constexpr std::uint32_t callsPerSecond = 100;

}  // namespace

LiveObject::LiveObject(const Configuration& configuration, PaintedStack& stack)
    : configuration_(configuration), stack_(stack) {
  LoopbackOpener opener;
  opener.onHelperThread = false;
  opener.open = [this] { return speakers_.packets(); };
  core_ = std::make_unique<CaptureCore>(opener);
  if (!core_->sets.allocate()) throw std::bad_alloc();
  std::ranges::copy(everyBand(), core_->sets.rawParameters().begin());
  core_->sets.settingRead();
  core_->sets.initialize(ProcessingMode::speech, configuration_.lockMode);
  const std::size_t frames = configuration_.rate / callsPerSecond;
  input_.resize(frames * configuration_.channels);
  output_.resize(input_.size());
  const StreamFormat format{.sampleRate = static_cast<float>(configuration_.rate),
                            .inputChannels = configuration_.channels,
                            .outputChannels = configuration_.channels};
  if (!core_->sets.lock(format, ProcessingMode::speech, configuration_.lockMode, core_->context))
    throw std::bad_alloc();
}

LiveObject::Logs LiveObject::run(double seconds) {
  const PipelineProbe& probe = core_->engine.pipeline.probe();
  calls("first block", 0.1);
  calls("search", 0.2);
  for (int n = 0; n < 30 && !probe.delayLocked; ++n) calls("search", 0.1);
  for (int n = 0; n < 50 && !probe.converged; ++n) play(0.1);
  calls("converged", seconds);
  for (int n = 0; n < 3; ++n) {
    reload(Change::byFade);
    calls("fade", 0.3);
  }
  for (int n = 0; n < static_cast<int>(seconds * callsPerSecond / 2); ++n) {
    reload(Change::values);
    calls("reload at every call", 0.01);
  }
  // New blocks and converters at every call: more than any program asks for.
  for (int n = 0; n < static_cast<int>(seconds * callsPerSecond / 4); ++n) {
    reload(Change::sizes);
    calls("new parts at every call", 0.01);
  }
  core_->sets.setVolumes({.master = 0.0F});
  reload(Change::values);
  calls("muted", 0.5 * seconds);
  core_->sets.setVolumes({.master = 1.0F});
  reload(Change::values);
  speakers_.playing = false;
  calls("loudspeakers pause", 0.5 * seconds);
  speakers_.playing = true;
  calls("loudspeakers again", 0.5 * seconds);
  speakers_.lost = true;
  calls("device lost", 0.5 * seconds);
  return logs_;
}

void LiveObject::reload(Change change) {
  RawValues values = everyBand();
  odd_ = !odd_;
  if (change == Change::byFade) values[index(Raw::fadeRequest)] = 1.0F;
  if (odd_) values[index(Raw::gainFloor1)] = 0.2F;
  if (change == Change::sizes) {
    values[index(Raw::blockSize)] = odd_ ? 512.0F : 2048.0F;
    values[index(Raw::noiseWindowFrames)] = odd_ ? 100.0F : 1000.0F;
    values[index(Raw::internalRate)] = odd_ ? 15000.0F : 16000.0F;
  }
  core_->sets.reload(values, ProcessingMode::speech, configuration_.reloadMode);
}

void LiveObject::calls(const std::string& state, double seconds) {
  if (logs_.empty() || logs_.back().first != state) logs_.emplace_back(state, CallLog{});
  for (int n = 0; n < static_cast<int>(seconds * callsPerSecond + 0.5); ++n)
    call(logs_.back().second, state);
}

void LiveObject::play(double seconds) {
  CallLog unheeded;
  for (int n = 0; n < static_cast<int>(seconds * callsPerSecond + 0.5); ++n) call(unheeded, "");
}

void LiveObject::call(CallLog& log, const std::string& state) {
  constexpr CallState ready{.initialized = true, .locked = true, .limits = {}};
  speakers_.hear(input_, configuration_.rate, configuration_.channels);
  const auto frames = static_cast<std::uint32_t>(input_.size() / configuration_.channels);
  const StreamBuffer input{input_.data(), frames, buffer_flags::valid};
  StreamBuffer output{output_.data(), 0, buffer_flags::invalid};
  const PipelineProbe before = core_->engine.pipeline.probe();
  std::chrono::nanoseconds begin{}, end{};
  int systemCalls = 0;
  const RealtimeGuard guard;
  const std::size_t depth = stack_.measure([&] {
    begin = tools::threadTime();
    SystemCallTrap::close();
    if (admitCall(ready, 1, 1)) runCall(core_->context, 1, input, 1, output);
    systemCalls = SystemCallTrap::open();
    end = tools::threadTime();
  });
  const int others = guard.violations();
  const PipelineProbe& after = core_->engine.pipeline.probe();
  std::string work = after.blocks != before.blocks ? "completes a block" : "plain";
  if (after.adoptions != before.adoptions) work += ", adopts a setting";
  log.add({std::chrono::duration<double, std::micro>(end - begin).count(), state, work});
  log.forbidden += systemCalls + others;
  if (log.firstForbidden.empty() && others > 0) log.firstForbidden = guard.first();
  if (log.firstForbidden.empty() && systemCalls > 0)
    log.firstForbidden = "system call " + std::to_string(SystemCallTrap::firstNumber());
  log.deepestStack = std::max(log.deepestStack, depth);
}

}  // namespace vellumic::bench
