// The native implementation of WaveFile.h.
#include <sndfile.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tools/WaveFile.h"

namespace vellumic::tools {
namespace {

struct Close {
  void operator()(SNDFILE* file) const { sf_close(file); }
};
using File = std::unique_ptr<SNDFILE, Close>;

constexpr sf_count_t mostSamples = sf_count_t{1} << 30;  // 4 GiB of floats

// libsndfile's speaker positions beside the channel mask's bits, in the mask's order.
constexpr std::array<std::pair<int, std::uint32_t>, 12> positions{{
    {SF_CHANNEL_MAP_LEFT, 0x1},
    {SF_CHANNEL_MAP_RIGHT, 0x2},
    {SF_CHANNEL_MAP_CENTER, 0x4},
    {SF_CHANNEL_MAP_LFE, 0x8},
    {SF_CHANNEL_MAP_REAR_LEFT, 0x10},
    {SF_CHANNEL_MAP_REAR_RIGHT, 0x20},
    {SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER, 0x40},
    {SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER, 0x80},
    {SF_CHANNEL_MAP_REAR_CENTER, 0x100},
    {SF_CHANNEL_MAP_SIDE_LEFT, 0x200},
    {SF_CHANNEL_MAP_SIDE_RIGHT, 0x400},
    {SF_CHANNEL_MAP_TOP_CENTER, 0x800},
}};

std::uint32_t maskOf(SNDFILE* file, int channels) {
  std::vector<int> map(static_cast<std::size_t>(channels));
  if (sf_command(file, SFC_GET_CHANNEL_MAP_INFO, map.data(),
                 static_cast<int>(map.size() * sizeof(int))) != SF_TRUE)
    return 0;
  std::uint32_t mask = 0;
  for (const int place : map)
    for (const auto& [position, bit] : positions)
      if (place == position) mask |= bit;
  return mask;
}

// The library's words for what went wrong, without its frame around the system's.
std::string reason() {
  std::string text = sf_strerror(nullptr);
  constexpr std::string_view frame = "System error : ";
  if (text.starts_with(frame)) text.erase(0, frame.size());
  while (!text.empty() && (text.back() == '.' || text.back() == '\n')) text.pop_back();
  return text;
}

}  // namespace

WaveData readWave(const std::string& path) {
  SF_INFO info{};
  const File file(sf_open(path.c_str(), SFM_READ, &info));
  if (!file) throw std::runtime_error(path + ": " + reason() + "; give a WAV file");
  if (info.channels < 1 || info.channels > 64 || info.samplerate < 1 || info.samplerate > 768000)
    throw std::runtime_error(path + ": " + std::to_string(info.channels) + " channels at " +
                             std::to_string(info.samplerate) + " Hz cannot be read");
  if (info.frames < 0 || info.frames > mostSamples / info.channels)
    throw std::runtime_error(path + ": too long; cut it into shorter files");
  WaveData wave;
  wave.format = {.sampleRate = info.samplerate,
                 .channels = info.channels,
                 .channelMask = maskOf(file.get(), info.channels)};
  // In pieces: a head can promise more than the file holds.
  constexpr sf_count_t piece = 65536;
  const auto channels = static_cast<std::size_t>(info.channels);
  for (sf_count_t read = piece; read == piece;) {
    const std::size_t held = wave.samples.size();
    wave.samples.resize(held + static_cast<std::size_t>(piece) * channels);
    read = sf_readf_float(file.get(), wave.samples.data() + held, piece);
    wave.samples.resize(held + static_cast<std::size_t>(std::max<sf_count_t>(read, 0)) * channels);
    if (wave.samples.size() > static_cast<std::size_t>(mostSamples))
      throw std::runtime_error(path + ": too long; cut it into shorter files");
  }
  return wave;
}

void writeWave(const std::string& path, const WaveData& wave) {
  checkWaveTarget(path);
  if (wave.samples.size() > mostWaveSamples)
    throw std::runtime_error(path + ": longer than a WAV file can be; render it in pieces");
  const std::string temporary = path + ".part";
  SF_INFO info{};
  info.samplerate = wave.format.sampleRate;
  info.channels = wave.format.channels;
  const bool placed = wave.format.channelMask != 0;
  info.format = (placed ? SF_FORMAT_WAVEX : SF_FORMAT_WAV) | SF_FORMAT_FLOAT;
  File file(sf_open(temporary.c_str(), SFM_WRITE, &info));
  if (!file) throw std::runtime_error(path + ": cannot be written: " + reason());
  if (placed) {
    std::vector<int> map;
    for (const auto& [position, bit] : positions)
      if ((wave.format.channelMask & bit) != 0) map.push_back(position);
    if (map.size() == static_cast<std::size_t>(wave.format.channels))
      sf_command(file.get(), SFC_SET_CHANNEL_MAP_INFO, map.data(),
                 static_cast<int>(map.size() * sizeof(int)));
  }
  const auto frames = static_cast<sf_count_t>(wave.frames());
  const bool whole = sf_writef_float(file.get(), wave.samples.data(), frames) == frames;
  const bool closed = sf_close(file.release()) == 0;
  if (!whole || !closed || std::rename(temporary.c_str(), path.c_str()) != 0) {
    std::remove(temporary.c_str());
    throw std::runtime_error(path + ": cannot be written whole; is the disk full?");
  }
}

}  // namespace vellumic::tools
