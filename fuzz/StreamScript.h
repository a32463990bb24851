// One capture object of any class, driven as a fuzzer's input says: formats, settings of any bits,
// calls of any size and flag, reloads between them, volumes, loudspeakers. See StreamScript.cpp
// for what must hold at each step.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "engine/CaptureCore.h"
#include "engine/ProcessCall.h"
#include "fuzz/ByteReader.h"
#include "fuzz/RandomPackets.h"
#include "parameters/Catalogue.h"

namespace vellumic::fuzz {

class StreamScript {
 public:
  explicit StreamScript(std::span<const std::uint8_t> input);
  void run();

 private:
  void lock();
  void reload();
  void call();
  void setLoudspeakers();
  void recover();
  void checkMemory() const;
  RawValues settings();
  float anyFloat();
  float sample(int kind);
  // In and out are of the format's sizes; checks what the frame core promises about a call.
  void process(const std::vector<float>& in, std::vector<float>& out, std::uint32_t flags);
  void checkWritten(const std::vector<float>& out, const StreamBuffer& output, std::uint32_t flags,
                    std::uint32_t frames) const;

  std::size_t heapBefore_;
  ByteReader input_;
  bool looksBack_;          // whether the way back to good sound is to be shown
  bool odd_ = false;        // samples were heard that ask for it
  bool deafening_ = false;  // samples of 1e5 went in
  Loudspeakers speakers_;
  EffectMode lockMode_{}, reloadMode_{};
  ProcessingMode mode_{};
  StreamFormat format_;
  RawValues values_{};
  std::unique_ptr<CaptureCore> core_;
  std::uint32_t noise_ = 1;
  std::size_t framesLeft_ = 12000;  // so that one input takes milliseconds
};

}  // namespace vellumic::fuzz
