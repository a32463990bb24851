// The doctor listens: a short recording, and which effects show themselves meanwhile.
#include <windows.h>

#include <audioclient.h>

#include <cmath>
#include <cstdio>
#include <optional>

#include "tools/ctl/CompanionLink.h"
#include "tools/ctl/CtlOptions.h"
#include "tools/ctl/EndpointChecks.h"
#include "tools/ctl/RegistryValues.h"
#include "tools/ctl/StatusCollector.h"
#include "tools/ctl/TextConversion.h"

namespace vellumic::tools {
namespace {

constexpr REFERENCE_TIME bufferDuration = 5'000'000;  // 500 ms in units of 100 ns
constexpr ULONGLONG soundPatienceMs = 3000, listeningMs = 500;
constexpr DWORD soundPollMs = 10;

// A running recording in the system's mix format; what comes is thrown away.
class Recording {
 public:
  explicit Recording(IMMDevice& device) {
    const auto good = [this](HRESULT result) { return SUCCEEDED(result_ = result); };
    WAVEFORMATEX* mix = nullptr;
    if (good(device.Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, client_.putVoid())) &&
        good(client_->GetMixFormat(&mix)) &&
        good(client_->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, bufferDuration, 0, mix, nullptr)) &&
        good(client_->GetService(__uuidof(IAudioCaptureClient), capture_.putVoid())))
      started_ = good(client_->Start());
    CoTaskMemFree(mix);
  }
  ~Recording() {
    if (started_) client_->Stop();
  }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  // What came until `listeningMs` after the first packet.
  int listen() {
    int packets = 0;
    ULONGLONG end = GetTickCount64() + soundPatienceMs;
    for (bool first = true; SUCCEEDED(result_) && GetTickCount64() < end; Sleep(soundPollMs)) {
      packets += drain();
      if (first && packets > 0) {
        end = GetTickCount64() + listeningMs;
        first = false;
      }
    }
    return packets;
  }
  [[nodiscard]] HRESULT result() const { return result_; }

 private:
  int drain() {
    int packets = 0;
    UINT32 frames = 0;
    while (SUCCEEDED(result_ = capture_->GetNextPacketSize(&frames)) && frames > 0) {
      BYTE* data = nullptr;
      DWORD flags = 0;
      if (capture_->GetBuffer(&data, &frames, &flags, nullptr, nullptr) != S_OK) break;
      capture_->ReleaseBuffer(frames);
      ++packets;
    }
    return packets;
  }

  HRESULT result_ = E_FAIL;
  bool started_ = false;
  ComPtr<IAudioClient> client_;
  ComPtr<IAudioCaptureClient> capture_;
};

std::string faultText(HRESULT result) {
  char text[64];
  std::snprintf(text, sizeof text, "the microphone cannot be recorded (0x%08lX)",
                static_cast<unsigned long>(result));
  return text;
}

const char* remedyFor(HRESULT result) {
  return result == E_ACCESSDENIED ? "allow desktop programs the microphone in the privacy settings"
                                  : "end programs that hold it, then restart the audio services";
}

void reportAlive(Findings& findings, const std::vector<SeenObject>& objects,
                 const Microphone& microphone, bool recorded, bool& anyAlive) {
  std::string names;
  for (const SeenObject& object : objects)
    if (object.alive && sameText(wide(guidText(object.block.endpoint)), microphone.guid))
      names += (names.empty() ? "" : ", ") + utf8(textOf(object.block.friendlyName));
  anyAlive = !names.empty();
  if (anyAlive)
    findings.ok("alive", names);
  else if (recorded)
    findings.notOk("alive", "no effect has shown itself while the microphone was recorded",
                   "mend what is above, end other recordings, restart the audio services");
  else
    findings.unknown("alive", "the microphone could not be recorded");
}

void reportCalls(Findings& findings, HRESULT result, int packets, bool anyAlive) {
  if (FAILED(result))
    findings.notOk("calls", faultText(result), remedyFor(result));
  else if (packets == 0)
    findings.notOk("calls", "no sound arrives from the microphone",
                   "check the device, then restart the audio services");
  else if (!anyAlive)
    findings.unknown("calls", "sound arrives, " + std::to_string(packets) +
                                  " packets, but no effect has shown itself");
  else
    findings.ok("calls",
                "sound arrives through the effects, " + std::to_string(packets) + " packets");
}

}  // namespace

void checkSound(Findings& findings, const Microphone& microphone) {
  if (!microphone.device) {
    findings.unknown("alive", "the audio service does not show the microphone");
    findings.unknown("calls", "the audio service does not show the microphone");
    return;
  }
  bool anyAlive = false;
  try {
    // Before the stream: effects look for the board when they are made.
    CompanionLink link(CompanionLink::Missing::make);
    Recording recording(*microphone.device.get());
    const int packets = recording.listen();
    StatusCollector collector(link);
    collector.collect();
    reportAlive(findings, collector.objects(), microphone, packets > 0, anyAlive);
    reportCalls(findings, recording.result(), packets, anyAlive);
  } catch (const CtlError& error) {
    if (findings.find("alive") == nullptr) findings.unknown("alive", error.what());
    if (findings.find("calls") == nullptr) findings.unknown("calls", error.what());
  }
}

}  // namespace vellumic::tools
