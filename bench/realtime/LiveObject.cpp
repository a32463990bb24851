#include "bench/realtime/LiveObject.h"

#include <algorithm>
#include <ctime>
#include <deque>
#include <new>

#include "bench/realtime/SystemCallTrap.h"
#include "engine/ProcessCall.h"
#include "frontend/PacketSource.h"
#include "tests/support/RealtimeGuard.h"

namespace vellumic::bench {
namespace {

constexpr std::uint32_t callsPerSecond = 100;
constexpr std::size_t packetFrames = 480;  // 10 ms at 48 kHz
constexpr std::size_t echoDelay = 960;     // frames at 48 kHz

// Of this thread: what other programs do meanwhile does not count.
double processorMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return 1e6 * static_cast<double>(now.tv_sec) + 1e-3 * static_cast<double>(now.tv_nsec);
}

RawValues everyStage() {
  RawValues values = factorySettings();
  values[index(Raw::equalizerMaster)] = 1.0F;
  for (const int side : {0, 1})
    for (int band = 0; band < equalizerBands; ++band) {
      values[index(bandSlot(side, band, BandField::enable))] = 1.0F;
      values[index(bandSlot(side, band, BandField::type))] = 1.0F;
      values[index(bandSlot(side, band, BandField::frequency))] =
          12.0F * static_cast<float>(2 << band);
      values[index(bandSlot(side, band, BandField::gain))] = band % 2 == 0 ? 1.4F : 0.7F;
      values[index(bandSlot(side, band, BandField::q))] = 1.0F;
    }
  return values;
}

}  // namespace

// What the loudspeakers play at 48 kHz, with enough of the past for an echo.
struct LiveObject::Speakers {
  std::deque<std::vector<float>> packets;  // stereo
  std::size_t taken = 0;                   // of the packets; freed between calls
  std::vector<float> past = std::vector<float>(2 * (echoDelay + packetFrames));
  bool playing = true, lost = false;
};

class LiveObject::SpeakerPackets final : public PacketSource {
 public:
  explicit SpeakerPackets(Speakers& speakers) : speakers_(speakers) {}
  MixFormat mixFormat() const noexcept override { return {.channels = 2, .sampleRate = 48000}; }
  bool start() noexcept override { return true; }
  void stop() noexcept override {}
  std::optional<std::uint32_t> nextPacketSize() noexcept override {
    if (speakers_.lost) return std::nullopt;
    return speakers_.taken < speakers_.packets.size() ? packetFrames : 0U;
  }
  bool get(Packet& packet) noexcept override {
    if (speakers_.lost || speakers_.taken >= speakers_.packets.size()) return false;
    packet = {.samples = speakers_.packets[speakers_.taken].data(),
              .frames = packetFrames,
              .silent = false};
    return true;
  }
  void release(std::uint32_t) noexcept override { ++speakers_.taken; }

 private:
  Speakers& speakers_;
};

LiveObject::LiveObject(const Configuration& configuration, PaintedStack& stack)
    : configuration_(configuration), stack_(stack), speakers_(std::make_unique<Speakers>()) {
  LoopbackOpener opener;
  opener.onHelperThread = false;
  opener.open = [this] { return std::make_unique<SpeakerPackets>(*speakers_); };
  core_ = std::make_unique<CaptureCore>(opener);
  if (!core_->sets.allocate()) throw std::bad_alloc();
  std::ranges::copy(everyStage(), core_->sets.rawParameters().begin());
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

LiveObject::~LiveObject() = default;

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
  speakers_->playing = false;
  calls("loudspeakers pause", 0.5 * seconds);
  speakers_->playing = true;
  calls("loudspeakers again", 0.5 * seconds);
  speakers_->lost = true;
  calls("device lost", 0.5 * seconds);
  return logs_;
}

void LiveObject::reload(Change change) {
  RawValues values = everyStage();
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

// The loudspeakers play noise; each microphone hears them 20 ms later beside noise of its own.
void LiveObject::hear() {
  std::uniform_real_distribution<float> white(-0.1F, 0.1F);
  Speakers& speakers = *speakers_;
  speakers.packets.erase(speakers.packets.begin(),
                         speakers.packets.begin() + static_cast<std::ptrdiff_t>(speakers.taken));
  speakers.taken = 0;
  std::vector<float> packet(2 * packetFrames);
  if (speakers.playing)
    for (float& sample : packet) sample = white(random_);
  speakers.past.erase(speakers.past.begin(), speakers.past.begin() + 2 * packetFrames);
  speakers.past.insert(speakers.past.end(), packet.begin(), packet.end());
  if (speakers.playing && speakers.packets.size() < callsPerSecond)
    speakers.packets.push_back(std::move(packet));
  const std::size_t frames = input_.size() / configuration_.channels;
  for (std::size_t n = 0; n < frames; ++n) {
    const std::size_t at = n * 48000U / configuration_.rate;
    const float echo = 0.5F * speakers.past[2 * at] + 0.3F * speakers.past[2 * at + 1];
    for (std::size_t c = 0; c < configuration_.channels; ++c)
      input_[n * configuration_.channels + c] = echo + 0.01F * white(random_);
  }
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
  hear();
  const auto frames = static_cast<std::uint32_t>(input_.size() / configuration_.channels);
  const StreamBuffer input{input_.data(), frames, buffer_flags::valid};
  StreamBuffer output{output_.data(), 0, buffer_flags::invalid};
  const PipelineProbe before = core_->engine.pipeline.probe();
  double begin = 0.0, end = 0.0;
  int systemCalls = 0;
  const RealtimeGuard guard;
  const std::size_t depth = stack_.measure([&] {
    begin = processorMicroseconds();
    SystemCallTrap::close();
    if (admitCall(ready, 1, 1)) runCall(core_->context, 1, input, 1, output);
    systemCalls = SystemCallTrap::open();
    end = processorMicroseconds();
  });
  const int others = guard.violations();
  const PipelineProbe& after = core_->engine.pipeline.probe();
  std::string work = after.blocks != before.blocks ? "completes a block" : "plain";
  if (after.adoptions != before.adoptions) work += ", adopts a setting";
  log.add({end - begin, state, work});
  log.forbidden += systemCalls + others;
  if (log.firstForbidden.empty() && others > 0) log.firstForbidden = guard.first();
  if (log.firstForbidden.empty() && systemCalls > 0)
    log.firstForbidden = "system call " + std::to_string(SystemCallTrap::firstNumber());
  log.deepestStack = std::max(log.deepestStack, depth);
}

}  // namespace vellumic::bench
