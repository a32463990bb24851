#include "tools/OutputFile.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace vellumic::tools {
namespace {

namespace fs = std::filesystem;

bool write(const fs::path& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  return !file.fail();
}

}  // namespace

void writeWholeFile(const std::string& path, std::string_view bytes) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  const bool direct = fs::exists(status) && !fs::is_regular_file(status);
  // A link stays one: the file that it names is replaced.
  fs::path target = fs::weakly_canonical(path, error);
  if (error) target = path;
  fs::path written = target;
  if (!direct) written += ".part";
  bool done = write(written, bytes);
  if (done && !direct) {
    fs::rename(written, target, error);
    done = !error;
  }
  if (done) return;
  if (!direct) fs::remove(written, error);
  throw std::runtime_error(path + ": cannot be written whole; check the folder and the disk");
}

void finishPrinting() {
  std::cout.flush();
  if (!std::cout || std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
    throw std::runtime_error("the standard output cannot be written whole; is the disk full?");
}

}  // namespace vellumic::tools
