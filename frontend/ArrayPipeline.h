// The microphone front end of one stream, driven by frames at the device rate, one or a run of them
// at a time with the same result.
//
// Each frame goes down to the internal rate (16 kHz), through a delay of 1024 samples and a 150 Hz
// high-pass into the block under collection. The call that completes a block (1024 samples) runs
// one echo canceller per microphone on it; while the next block fills, the finished one goes in
// hops of 128 through the noise processing, sample by sample through the level control, and back
// to the device rate into the frame.
//
// Delay from frame to frame: both converters + 1024 + one block, + 384 internal samples with the
// noise processing, + half a block with the cancellers.
//
// Threads: processFrames, processFrames12, skipFrames and adopt belong to the real-time thread;
// startLoopback, stopLoopback, applyParameters and construction to a control thread while no frame
// runs. applyParameters and adopt need the lock that guards the hand-over.
#pragma once

#include <array>
#include <cstddef>
#include <memory>

#include "array/OutputLevelControl.h"
#include "filters/BiquadSectionPair.h"
#include "frontend/EchoStage.h"
#include "frontend/PipelineHandover.h"
#include "frontend/PipelineProbe.h"
#include "frontend/ResamplerBank.h"
#include "platform/Realtime.h"

namespace vellumic {

class ArrayPipeline {
 public:
  // Two microphones, blocks of 1024, equal rates; no hand-over is needed for these. The opener
  // finds what the loudspeakers play; without one nothing is ever cancelled.
  explicit ArrayPipeline(LoopbackOpener opener = {});
  ~ArrayPipeline();
  ArrayPipeline(const ArrayPipeline&) = delete;
  ArrayPipeline& operator=(const ArrayPipeline&) = delete;

  // Takes what waits: copies the record, exchanges the parts and carries over what stays. A new
  // block part begins a fresh stream. Nothing waiting changes nothing.
  void adopt(PipelineHandover& handover) noexcept VELLUMIC_NONBLOCKING;

  // build() and adopt() in one step, for a stream that stands still.
  void applyParameters(PipelineHandover& handover, RawView raw, const StreamFacts& stream);

  // `count` frames in place, `width` floats apart: microphone c at frame[c], micCount() floats.
  // References of a stream that does not use the loopback read as zero. While the pipeline is off
  // the frames stay as they are.
  void processFrames(float* frames, std::size_t width,
                     std::size_t count) noexcept VELLUMIC_NONBLOCKING;
  void processFrame(float* frame) noexcept VELLUMIC_NONBLOCKING { processFrames(frame, 0, 1); }

  // The four-channel form: frame[0..1] microphones, frame[2..3] references, which pass untouched.
  // Further microphones of the configuration read silence.
  void processFrames12(float* frames, std::size_t width,
                       std::size_t count) noexcept VELLUMIC_NONBLOCKING;
  void processFrame12(float* frame) noexcept VELLUMIC_NONBLOCKING { processFrames12(frame, 0, 1); }

  // Frames of the stream passed by without the pipeline, as a silent buffer does: the loudspeakers
  // played on meanwhile, so that what the loopback holds is stale.
  void skipFrames() noexcept VELLUMIC_NONBLOCKING { echo.skip(); }

  // The loopback is opened for the internal rate in force, and keeps it.
  bool startLoopback() { return echo.loopback.start(); }
  void stopLoopback() { echo.loopback.stop(); }

  bool running() const noexcept { return record_.settings.runs(); }
  int micCount() const noexcept { return block_->micCount; }
  // Kept up to date by the frame path: after each block, hop and adoption.
  const PipelineProbe& probe() const noexcept { return probe_; }

  EchoStage echo;
  bool micHighPassEnabled = true;

 private:
  static constexpr int hopSize = 128;  // samples, a power of two

  // Frames under way: at most as many as the banks take at a time.
  struct Run {
    float* frames;
    std::size_t width;  // floats from frame to frame
    int count;
    int microphones;          // of each frame
    const float* references;  // of the first frame, left and right; null: silent
  };
  enum class Delivery : unsigned char { silence, fresh, repeat };  // to a frame
  using RunCounts = std::array<int, ResamplerBank::longestRun>;

  void apply(const PipelineRecord& record, bool resetNoise) noexcept;
  void processRuns(Run all, std::size_t count) noexcept;
  void process(const Run& run) noexcept;
  void collect(const Run& run) noexcept;
  void takeMicrophones(int first, int count) noexcept;
  void takeReferences(const Run& run, int first, int count) noexcept;
  void sendOutput(int first, int count) noexcept;
  bool outputIsOneSignal(int count) noexcept;
  bool isMono() const noexcept;
  void finishHop() noexcept;
  void deliver(const Run& run) noexcept;
  int planDelivery(int count) noexcept;
  void processBlock() noexcept VELLUMIC_NONBLOCKING;
  void runBandTest() noexcept;
  void processSlice() noexcept VELLUMIC_NONBLOCKING;
  void noteEchoState() noexcept;

  PipelineRecord record_;
  std::unique_ptr<BlockPart> block_;
  std::unique_ptr<BankPair> banks_;
  std::unique_ptr<ArrayNoiseProcessing> noise_;
  OutputLevelControl levelControl_;
  BiquadSectionPair bandTestFilter_;

  int writeIndex_ = 0;        // row of micBlock to write and of outputBlock to read
  int sliceIndex_ = 0;        // hop of outputBlock that the noise processing takes next
  int alikeSamples_ = 0;      // sent to the output bank with all channels alike
  bool outputReady_ = false;  // the latest internal sample brought output

  // Of the run under way.
  RunCounts arrivals_{};  // internal samples that each frame brought; the frame takes one of them
  RunCounts played_{};    // output samples that each internal sample brought
  std::array<Delivery, ResamplerBank::longestRun> deliveries_{};
  PipelineProbe probe_;
};

}  // namespace vellumic
