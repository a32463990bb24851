#include "tools/render/ProgressBar.h"

#include <algorithm>
#include <cstdio>
#include <string>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace vellumic::tools {
namespace {

constexpr int width = 50;

bool standardErrorIsTerminal() {
#ifdef _WIN32
  return _isatty(2) != 0;
#else
  return isatty(STDERR_FILENO) != 0;
#endif
}

}  // namespace

ProgressBar::ProgressBar()
    : terminal_(standardErrorIsTerminal()), next_(Clock::now() + std::chrono::milliseconds(500)) {}

ProgressBar::~ProgressBar() {
  if (drawn_) std::fprintf(stderr, "\r%*s\r", width + 8, "");
}

void ProgressBar::show(double share) {
  if (!terminal_ || Clock::now() < next_) return;
  next_ = Clock::now() + std::chrono::milliseconds(100);
  const auto filled = static_cast<std::size_t>(std::clamp(share, 0.0, 1.0) * width);
  const std::string bar = std::string(filled, '#') + std::string(width - filled, '.');
  std::fprintf(stderr, "\r[%s] %3.0f %%", bar.c_str(), share * 100.0);
  std::fflush(stderr);
  drawn_ = true;
}

}  // namespace vellumic::tools
