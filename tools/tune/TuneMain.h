// vellumic-tune as a function: reads a plan, tunes, writes settings and a page. Exit code 0, 1
// after one line on standard error, 130 after an interrupt.
#pragma once

#include <atomic>

namespace vellumic::tune {

// `stop` may be set by a signal handler: the run ends soon, with the best so far written.
int tuneMain(int argc, const char* const* argv, const std::atomic<bool>& stop);

}  // namespace vellumic::tune
