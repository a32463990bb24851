// The road of settings from the builders to the array pipeline: the one waiting place for what the
// real-time thread shall adopt, and the builders' own copy of the latest decoded settings.
//
// Builders (worker and control threads) decode over that copy and compare with it, never with live
// objects. Builds that were not adopted yet merge: the latest record wins, requests stay until they
// are taken, a replaced part is freed here. Parts that the pipeline gave back are freed by the next
// build or the destructor.
//
// Threads: all members are used while the engine's parameter lock is held; the pipeline adopts
// under its try-lock. Everything but the pipeline's adoption may allocate.
#pragma once

#include "filters/BiquadSection.h"
#include "frontend/PartSlot.h"
#include "parameters/PipelineSettings.h"

namespace vellumic {

class ArrayNoiseProcessing;
struct NoiseHistory;
class BankPair;
struct BlockPart;

// The small things, copied as a whole.
struct PipelineRecord {
  PipelineSettings settings;
  BiquadCoefficients highPass;    // of each microphone, at the internal rate
  bool useLoopback = true;        // false: the references come with the frame
  bool processingEnabled = true;  // false: the noise processing passes the first microphone on
};

class PipelineHandover {
 public:
  static constexpr int maxMicrophones = 12;   // as many as a frame has room for
  static constexpr int noiseFrameSize = 512;  // samples; hops of a quarter

  PipelineHandover();
  ~PipelineHandover();
  PipelineHandover(const PipelineHandover&) = delete;
  PipelineHandover& operator=(const PipelineHandover&) = delete;

  // Decodes over the copy, stages a record and whatever changed its size or rate. Returns the copy.
  const PipelineSettings& build(RawView raw, const StreamFacts& stream);

  // A fresh stream: block size, channels and the parts that follow from them, with parked banks;
  // the next build() sets the rates. The four-channel form carries its references in the frame, so
  // that the loopback is not used (for the life of the object) and the noise processing passes the
  // first microphone on (until the next fresh stream).
  void prepareStream(int blockSize, int channels, bool fourChannelForm);

  // The parts for another count of microphones. False, and nothing changes, for fewer than 2 and
  // for more than a frame has room for.
  bool setChannels(int channels);

  // Frees what the pipeline gave back; every build does so first.
  void freeRetired() noexcept;

  const PipelineSettings& settings() const noexcept { return record_.settings; }
  int channels() const noexcept { return channels_; }
  // Anything to adopt? Every part comes with a record.
  bool waiting() const noexcept { return recordWaits_; }

 private:
  friend class ArrayPipeline;
  static constexpr int parkedRate = 1;  // of both sides: no conversion until rates are known

  void takeBlockSize(int blockSize) noexcept;
  bool takeChannels(int channels) noexcept;
  void stageBlock();
  void stageBanks(int deviceRate, int internalRate);
  void stageNoise();
  void retuneNoise(const PipelineSettings& before);

  // The builders' copy.
  PipelineRecord record_;
  int channels_ = 2;
  int bankDeviceRate_ = parkedRate, bankInternalRate_ = parkedRate;  // Hz

  // The waiting place; the record above waits too. A block that waits asks for a fresh stream.
  bool recordWaits_ = false;
  bool noiseResetRequested_ = false;
  PartSlot<BlockPart> block_;
  PartSlot<BankPair> banks_;
  PartSlot<ArrayNoiseProcessing> noise_;
  PartSlot<NoiseHistory> noiseHistory_;
};

}  // namespace vellumic
