// The capture endpoints, as the system's device enumerator and their registry keys show them.
// Thread: any, inside an ComThread.
#pragma once

#include <windows.h>

#include <mmdeviceapi.h>
#include <mmreg.h>

#include <string>
#include <vector>

#include "control/ComPtr.h"

namespace vellumic::tools {

// Keeps COM ready on a thread.
class ComThread {
 public:
  ComThread() : result_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
  ~ComThread() {
    if (SUCCEEDED(result_)) CoUninitialize();
  }
  ComThread(const ComThread&) = delete;
  ComThread& operator=(const ComThread&) = delete;

 private:
  HRESULT result_;
};

struct Microphone {
  ComPtr<IMMDevice> device;  // empty: known by its registry key alone
  std::wstring id, name;
  std::wstring guid;  // with braces; names its registry key
  DWORD state = 0;    // DEVICE_STATE_...
};

// The system's mix format. A plain format has an extension of zeros.
struct EndpointMixFormat {
  HRESULT result = E_FAIL;  // of asking
  WAVEFORMATEXTENSIBLE wave{};
};
EndpointMixFormat mixFormatOf(IMMDevice& device);
std::string formatText(const WAVEFORMATEXTENSIBLE& wave);  // "4 channels, 48000 Hz, 32-bit float"

const char* stateText(DWORD state);

// Throws CtlError without an audio service.
std::vector<Microphone> microphones(DWORD stateMask);

// wanted: an id, a GUID with braces, or a part of the name or id that only one has; empty: the
// default microphone. A GUID may also be of an endpoint that has a registry key but that the audio
// service does not show. Throws CtlError with the names there are.
Microphone findMicrophone(const std::string& wanted, DWORD stateMask);

}  // namespace vellumic::tools
