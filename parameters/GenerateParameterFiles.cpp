// generate_parameter_files [ROOT]: writes docs/parameters.md and settings/factory.toml below ROOT.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

#include "parameters/ParameterPage.h"

namespace {

void write(const std::filesystem::path& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream.exceptions(std::ios::failbit | std::ios::badbit);
  stream << text;
}

}  // namespace

int main(int count, char** arguments) try {
  const std::filesystem::path root = count > 1 ? arguments[1] : ".";
  write(root / "docs/parameters.md", vellumic::parameterPage());
  write(root / "settings/factory.toml", vellumic::factorySettingsFile());
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "generate_parameter_files: %s; give the checkout's folder\n", error.what());
  return 1;
}
