// std::system, tried again where no process comes to be: Wine refuses one at times.
#pragma once

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

namespace vellumic::test {

inline int runProgram(const std::string& command) {
  int code = -1;
  for (int attempt = 0; attempt < 5 && code == -1; ++attempt) {
    if (attempt > 0) std::this_thread::sleep_for(std::chrono::milliseconds(200));
    code = std::system(command.c_str());
  }
  return code;
}

}  // namespace vellumic::test
