// One capture effect from the registered library, driven as the audio engine drives it. Everything
// goes through COM: this program holds none of the effect's code.
//
// Thread: create, initialize, lock and unlock on one thread; process on one thread at a time.
// Failures are std::runtime_error with one line.
#pragma once

#include <windows.h>

#include <mmdeviceapi.h>

#include <string>
#include <vector>

#include "apo/AudioEngine.h"
#include "tools/host/StreamFormat.h"

namespace vellumic::tools {

// Where an effect is told to sit. The endpoint is the last device of the collection, the entry
// that deviceIndex names is another one, as in the real audio graph.
struct EffectSite {
  IMMDeviceCollection* devices;
  IPropertyStore* endpointProperties;
  IPropertyStore* effectProperties;
  unsigned deviceIndex;
  GUID processingMode;
  bool discoveryOnly = false;  // asked for its effects alone
};

// Throws for another name than efx, mfx, kdmfx.
CLSID classIdOf(const std::string& className);

class CaptureEffect {
 public:
  // "efx", "mfx" or "kdmfx".
  explicit CaptureEffect(const std::string& className);

  void initialize(const EffectSite& site);
  // The first proposal that both sides accept; throws if none is.
  FormatShape negotiate(const std::vector<FormatShape>& shapes);
  [[nodiscard]] bool accepts(const FormatShape& input, const FormatShape& output);
  [[nodiscard]] bool accepts(const FormatShape& shape) { return accepts(shape, shape); }
  void lock(const FormatShape& shape, unsigned mostFrames);
  // In place. False when the effect did not hand a valid buffer on.
  bool process(float* samples, unsigned frames);
  void unlock();

  // Those reported, as text. changed: signalled from now on when they become others.
  [[nodiscard]] std::string effects(HANDLE changed = nullptr);
  [[nodiscard]] std::string formats();  // those accepted, as text
  [[nodiscard]] const CLSID& classId() const { return classId_; }
  [[nodiscard]] const std::string& name() const { return name_; }

 private:
  std::string name_;
  CLSID classId_;
  ComPtr<IAudioProcessingObject> object_;
  ComPtr<IAudioProcessingObjectRT> realTime_;
  ComPtr<IAudioProcessingObjectConfiguration> configuration_;
  ComPtr<IAudioSystemEffects2> effects_;
};

}  // namespace vellumic::tools
