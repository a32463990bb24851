// Sound files for the tools: whole files in memory, interleaved float samples.
//
// Reads what libsndfile reads (natively) or WAV of 16-, 24-, 32-bit integer and 32-bit float (on
// Windows, where a small reader of our own stands in). Writes 32-bit float WAV, first into a
// temporary file beside the target, so that nothing is ever half written.
// Errors are std::runtime_error with one line: the file, what is wrong, what to do.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vellumic::tools {

struct WaveFormat {
  int sampleRate = 48000;  // Hz, 1 to 768000
  int channels = 1;        // 1 to 64
  // Speaker positions as in WAVEFORMATEXTENSIBLE; 0 where the file names none.
  std::uint32_t channelMask = 0;
};

struct WaveData {
  WaveFormat format;
  std::vector<float> samples;  // interleaved

  std::size_t frames() const { return samples.size() / static_cast<std::size_t>(format.channels); }
};

// What a WAV file's 32-bit sizes have room for, headers included.
inline constexpr std::size_t mostWaveSamples = (std::size_t{1} << 30U) - 1024;

WaveData readWave(const std::string& path);
void writeWave(const std::string& path, const WaveData& wave);

// Throws what writeWave() would throw for a target that is no file or has no folder: to be asked
// before long work.
void checkWaveTarget(const std::string& path);

}  // namespace vellumic::tools
