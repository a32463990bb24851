// vellumic-ctl called as a function in a test's own registry.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "tools/ctl/CtlMain.h"

namespace vellumic::tools {

inline std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);)
    if (!part.empty()) parts.push_back(part);
  return parts;
}

inline int ctl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "vellumic-ctl");
  std::vector<const char*> argv;
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  return ctlMain(static_cast<int>(argv.size()), argv.data());
}

struct CtlOutcome {
  int exitCode;
  std::string printed, complained;
};
inline CtlOutcome captured(const std::vector<std::string>& arguments) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int exitCode = ctl(arguments);
  return {.exitCode = exitCode,
          .printed = testing::internal::GetCapturedStdout(),
          .complained = testing::internal::GetCapturedStderr()};
}

inline void expectParts(const std::string& text, std::initializer_list<std::string> parts) {
  for (const std::string& part : parts)
    EXPECT_NE(text.find(part), std::string::npos) << "no <" << part << "> in: " << text;
}

}  // namespace vellumic::tools
