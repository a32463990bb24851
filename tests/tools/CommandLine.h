// A tool called as a function with a command line: its answer, and the files that it wrote.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace vellumic::tools {

inline std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);)
    if (!part.empty()) parts.push_back(part);
  return parts;
}

// Words of the command line; '' is an empty one.
template <class Main>
int called(Main main, const std::string& words) {
  std::vector<std::string> arguments = split("tool " + words, ' ');
  std::ranges::replace(arguments, "''", "");
  std::vector<const char*> argv;
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  return main(static_cast<int>(argv.size()), argv.data());
}

struct ToolRun {
  int exitCode;
  std::string printed, complained;
};
template <class Main>
ToolRun captured(Main main, const std::string& words) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int exitCode = called(main, words);
  return {.exitCode = exitCode,
          .printed = testing::internal::GetCapturedStdout(),
          .complained = testing::internal::GetCapturedStderr()};
}

inline void expectParts(const std::string& text, std::initializer_list<std::string> parts) {
  for (const std::string& part : parts)
    EXPECT_NE(text.find(part), std::string::npos) << "no <" << part << "> in: " << text;
}
inline ToolRun succeeded(ToolRun run) {
  EXPECT_EQ(run.exitCode, 0) << run.complained;
  return run;
}
// By one line that says `named`.
inline void expectRefusal(const ToolRun& run, const std::string& named) {
  EXPECT_EQ(run.exitCode, 1) << named;
  expectParts(run.complained, {named});
  EXPECT_EQ(std::ranges::count(run.complained, '\n'), 1) << run.complained;
}

// What it says when it throws.
template <class Action>
std::string faultOf(Action action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "none";
}

inline std::string contents(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// Runs in a folder of its own.
class InOwnFolder : public testing::Test {
 protected:
  InOwnFolder() {
    std::filesystem::create_directories(folder_);
    std::filesystem::current_path(folder_);
  }
  ~InOwnFolder() override {
    std::filesystem::current_path(before_);
    std::error_code inUse;  // by a process that is still ending
    std::filesystem::remove_all(folder_, inUse);
  }
  static std::string text(const std::string& name, const std::string& content) {
    std::ofstream(name, std::ios::binary) << content;
    return name;
  }

 private:
  const std::filesystem::path before_ = std::filesystem::current_path();
  const std::filesystem::path folder_ = std::filesystem::temp_directory_path() /
                                        ("vellumic-" + std::to_string(std::random_device{}()));
};

}  // namespace vellumic::tools
