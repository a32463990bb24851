// A stream from a microphone, event by event. Thread: one.
#pragma once

#include <windows.h>

#include <audioclient.h>

#include <functional>

#include "control/Handle.h"
#include "tools/host/Endpoints.h"

namespace vellumic::tools {

struct LiveFigures {
  int packets = 0;
  int discontinuities = 0;  // packets before which the system lost samples
  int lateWakeUps = 0;      // waits of more than two periods
  double longestWaitMs = 0.0;
};

class LiveCapture {
 public:
  explicit LiveCapture(const Endpoint& endpoint);  // in the system's own mix format, float only

  [[nodiscard]] unsigned channels() const { return channels_; }
  [[nodiscard]] unsigned sampleRate() const { return sampleRate_; }

  // Hands over every packet until `seconds` of sound have come; silence as zeros. Throws when the
  // device is gone or no packet comes for five seconds.
  LiveFigures run(double seconds, const std::function<void(const float*, unsigned frames)>& take);

 private:
  void drain(const std::function<void(const float*, unsigned)>& take, LiveFigures& figures);

  ComPtr<IAudioClient> client_;
  ComPtr<IAudioCaptureClient> capture_;
  KernelHandle event_;
  unsigned channels_ = 0, sampleRate_ = 0;
  double heardFrames_ = 0.0;
  std::vector<float> silence_;
};

}  // namespace vellumic::tools
