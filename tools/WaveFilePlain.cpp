// The implementation of WaveFile.h for Windows, where no sound file library is at hand.
#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tools/WaveFile.h"

namespace vellumic::tools {
namespace {

static_assert(std::endian::native == std::endian::little);

constexpr std::uint16_t tagInteger = 1, tagFloat = 3, tagExtensible = 0xFFFE;

template <class Number>
Number at(const std::vector<char>& bytes, std::size_t offset) {
  Number number{};
  if (offset + sizeof number <= bytes.size())
    std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}

template <class Number>
void put(std::vector<char>& bytes, Number number) {
  const auto* first = reinterpret_cast<const char*>(&number);
  bytes.insert(bytes.end(), first, first + sizeof number);
}

struct Coding {
  std::uint16_t tag = 0, bits = 0;
};

float sampleAt(const std::vector<char>& bytes, std::size_t offset, Coding coding) {
  if (coding.tag == tagFloat) return at<float>(bytes, offset);
  if (coding.bits == 16) return static_cast<float>(at<std::int16_t>(bytes, offset)) / 32768.0F;
  if (coding.bits == 24) {
    const std::uint32_t raw = static_cast<std::uint8_t>(bytes[offset]) |
                              static_cast<std::uint32_t>(at<std::uint16_t>(bytes, offset + 1))
                                  << 8U;
    return static_cast<float>(static_cast<std::int32_t>(raw << 8U) >> 8) / 8388608.0F;
  }
  return static_cast<float>(at<std::int32_t>(bytes, offset)) / 2147483648.0F;
}

}  // namespace

WaveData readWave(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(path + ": cannot be opened; give a WAV file");
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  if (bytes.size() < 12 || std::memcmp(bytes.data(), "RIFF", 4) != 0 ||
      std::memcmp(bytes.data() + 8, "WAVE", 4) != 0)
    throw std::runtime_error(path + ": not a WAV file; convert it to WAV");

  WaveData wave;
  Coding coding;
  for (std::size_t chunk = 12; chunk + 8 <= bytes.size();) {
    const std::size_t body = chunk + 8;
    const std::size_t size =
        std::min<std::size_t>(at<std::uint32_t>(bytes, chunk + 4), bytes.size() - body);
    if (std::memcmp(bytes.data() + chunk, "fmt ", 4) == 0 && size >= 16) {
      coding = {.tag = at<std::uint16_t>(bytes, body), .bits = at<std::uint16_t>(bytes, body + 14)};
      wave.format.channels = at<std::uint16_t>(bytes, body + 2);
      wave.format.sampleRate =
          static_cast<int>(std::min<std::uint32_t>(at<std::uint32_t>(bytes, body + 4), 1000000U));
      if (coding.tag == tagExtensible && size >= 40) {
        wave.format.channelMask = at<std::uint32_t>(bytes, body + 20);
        coding.tag = at<std::uint16_t>(bytes, body + 24);
      }
    } else if (std::memcmp(bytes.data() + chunk, "data", 4) == 0) {
      const bool known = (coding.tag == tagFloat && coding.bits == 32) ||
                         (coding.tag == tagInteger &&
                          (coding.bits == 16 || coding.bits == 24 || coding.bits == 32));
      if (!known || wave.format.channels < 1 || wave.format.channels > 64 ||
          wave.format.sampleRate < 1 || wave.format.sampleRate > 768000)
        throw std::runtime_error(path +
                                 ": this kind of WAV cannot be read; convert it to 32-bit float");
      const std::size_t width = coding.bits / 8U;
      const std::size_t frame = width * static_cast<std::size_t>(wave.format.channels);
      wave.samples.resize(size / frame * static_cast<std::size_t>(wave.format.channels));
      for (std::size_t n = 0; n < wave.samples.size(); ++n)
        wave.samples[n] = sampleAt(bytes, body + n * width, coding);
      return wave;
    }
    chunk = body + size + (size & 1U);
  }
  throw std::runtime_error(path + ": the WAV file has no samples");
}

void writeWave(const std::string& path, const WaveData& wave) {
  checkWaveTarget(path);
  if (wave.samples.size() > mostWaveSamples)
    throw std::runtime_error(path + ": longer than a WAV file can be; render it in pieces");
  const auto size = static_cast<std::uint32_t>(wave.samples.size() * sizeof(float));
  const auto channels = static_cast<std::uint16_t>(wave.format.channels);
  const auto rate = static_cast<std::uint32_t>(wave.format.sampleRate);
  const bool placed = wave.format.channelMask != 0;
  const std::uint32_t formatSize = placed ? 40 : 16;
  std::vector<char> head{'R', 'I', 'F', 'F'};
  put(head, 20 + formatSize + size);
  for (const char c : {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '}) head.push_back(c);
  put(head, formatSize);
  put(head, placed ? tagExtensible : tagFloat);
  put(head, channels);
  put(head, rate);
  put(head, rate * channels * 4U);
  put(head, static_cast<std::uint16_t>(channels * 4U));
  put(head, std::uint16_t{32});
  if (placed) {
    put(head, std::uint16_t{22});
    put(head, std::uint16_t{32});
    put(head, wave.format.channelMask);
    put(head, std::uint32_t{tagFloat});  // the rest is the tail of every wave subformat id
    for (const int byte : {0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71})
      head.push_back(static_cast<char>(byte));
  }
  for (const char c : {'d', 'a', 't', 'a'}) head.push_back(c);
  put(head, size);

  const std::string temporary = path + ".part";
  std::error_code error;
  {
    std::ofstream file(temporary, std::ios::binary);
    if (!file) throw std::runtime_error(path + ": cannot be written; is the folder there?");
    file.write(head.data(), static_cast<std::streamsize>(head.size()));
    file.write(reinterpret_cast<const char*>(wave.samples.data()), size);
    file.close();
    if (!file) error = std::make_error_code(std::errc::io_error);
  }
  if (!error) std::filesystem::rename(temporary, path, error);
  if (error) {
    std::filesystem::remove(temporary, error);
    throw std::runtime_error(path + ": cannot be written whole; is the disk full?");
  }
}

}  // namespace vellumic::tools
