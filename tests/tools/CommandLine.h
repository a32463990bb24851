// A tool called as a function with a command line: its answer, and the files that it wrote.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace vellumic::tools {

inline std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);)
    if (!part.empty()) parts.push_back(part);
  return parts;
}

template <class Main>
int called(Main main, const std::vector<std::string>& arguments) {
  std::vector<const char*> argv{"tool"};
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  return main(static_cast<int>(argv.size()), argv.data());
}

struct ToolRun {
  int exitCode;
  std::string printed, complained;
};
template <class Main>
ToolRun captured(Main main, const std::vector<std::string>& arguments) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int exitCode = called(main, arguments);
  return {.exitCode = exitCode,
          .printed = testing::internal::GetCapturedStdout(),
          .complained = testing::internal::GetCapturedStderr()};
}

inline void expectParts(const std::string& text, std::initializer_list<std::string> parts) {
  for (const std::string& part : parts)
    EXPECT_NE(text.find(part), std::string::npos) << "no <" << part << "> in: " << text;
}

inline std::string contents(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace vellumic::tools
