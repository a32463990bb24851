// Sound files; built once with each of the two readers.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "fuzz/Require.h"
#include "tools/WaveFile.h"

namespace vellumic::fuzz {
namespace {

using tools::WaveData;

// A file that lies in memory alone.
class MemoryFile {
 public:
  MemoryFile(const std::uint8_t* data, std::size_t size) : file_(memfd_create("wave", 0)) {
    require(file_ >= 0 && write(file_, data, size) == static_cast<ssize_t>(size), "memory file");
  }
  ~MemoryFile() { close(file_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

 private:
  int file_;
};

void checkRoundTrip(const WaveData& wave) {
  static const std::string path = "/dev/shm/vellumic-fuzz-" + std::to_string(getpid()) + ".wav";
  tools::writeWave(path, wave);
  const WaveData again = tools::readWave(path);
  unlink(path.c_str());
  require(again.format.channels == wave.format.channels &&
              again.format.sampleRate == wave.format.sampleRate,
          "the format is read as written");
  require(again.samples.size() == wave.samples.size() &&
              (wave.samples.empty() || std::memcmp(again.samples.data(), wave.samples.data(),
                                                   wave.samples.size() * sizeof(float)) == 0),
          "samples are read as written");
}

}  // namespace
}  // namespace vellumic::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vellumic::fuzz;
  const MemoryFile file(data, size);
  try {
    const vellumic::tools::WaveData wave = vellumic::tools::readWave(file.path());
    require(wave.format.channels >= 1 && wave.format.channels <= 64, "1 to 64 channels");
    require(wave.format.sampleRate >= 1 && wave.format.sampleRate <= 768000, "1 to 768000 Hz");
    require(wave.samples.size() % static_cast<std::size_t>(wave.format.channels) == 0,
            "whole frames");
    checkRoundTrip(wave);
  } catch (const std::runtime_error& error) {
    require(std::strchr(error.what(), '\n') == nullptr, "a message is one line");
  }
  return 0;
}
