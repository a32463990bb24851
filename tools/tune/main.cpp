#include <csignal>

#include "tools/tune/TuneMain.h"

namespace {
std::atomic<bool> stop{false};
static_assert(std::atomic<bool>::is_always_lock_free);
}  // namespace

int main(int argc, char** argv) {
  // The second interrupt ends the program at once.
  std::signal(SIGINT, [](int) {
    stop = true;
    std::signal(SIGINT, SIG_DFL);
  });
  std::signal(SIGTERM, [](int) { stop = true; });
  return vellumic::tune::tuneMain(argc, argv, stop);
}
