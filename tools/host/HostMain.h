// vellumic-host as a function. Exit code 0, or 1 after one line on standard error.
#pragma once

namespace vellumic::tools {

int hostMain(int argc, const char* const* argv);

}  // namespace vellumic::tools
