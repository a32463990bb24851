#include <filesystem>
#include <stdexcept>

#include "tools/WaveFile.h"

namespace vellumic::tools {

void checkWaveTarget(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
    throw std::runtime_error(path + ": is a folder or a device; name a sound file to write");
  const auto folder = std::filesystem::path(path).parent_path();
  if (!folder.empty() && !std::filesystem::is_directory(folder, error))
    throw std::runtime_error(path + ": no folder " + folder.string() + "; make it first");
}

}  // namespace vellumic::tools
