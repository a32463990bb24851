#include "tools/quality/SoundFiles.h"

#include <stdexcept>

#include "tools/quality/Material.h"

namespace vellumic::quality {

Channels readChannels(const std::string& path) {
  const tools::WaveData wave = tools::readWave(path);
  if (wave.format.sampleRate != static_cast<int>(sceneRate))
    throw std::runtime_error(path + ": rate " + std::to_string(wave.format.sampleRate) +
                             " Hz, material is at 16000: convert it first");
  if (wave.samples.empty()) throw std::runtime_error(path + ": holds no sound, give another file");
  const auto channels = static_cast<std::size_t>(wave.format.channels);
  Channels out(channels);
  for (std::size_t n = 0; n < wave.samples.size(); ++n)
    out[n % channels].push_back(wave.samples[n]);
  return out;
}

void writeChannels(const std::string& path, const Channels& channels) {
  tools::writeWave(path, waveOf(channels));
}

}  // namespace vellumic::quality
