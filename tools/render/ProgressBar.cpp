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
  if (drawn_ > 0) std::fprintf(stderr, "\r%*s\r", static_cast<int>(drawn_), "");
}

void ProgressBar::show(double share, const std::string& note) {
  if (!terminal_ || Clock::now() < next_) return;
  next_ = Clock::now() + std::chrono::milliseconds(100);
  const double part = std::clamp(share, 0.0, 1.0);
  const auto filled = static_cast<std::size_t>(part * width);
  char percent[16];
  std::snprintf(percent, sizeof percent, "] %3.0f %%", part * 100.0);
  std::string line = "[" + std::string(filled, '#') + std::string(width - filled, '.') + percent;
  if (!note.empty()) line += "  " + note;
  drawn_ = std::max(drawn_, line.size());
  line.resize(drawn_, ' ');
  std::fprintf(stderr, "\r%s", line.c_str());
  std::fflush(stderr);
}

}  // namespace vellumic::tools
