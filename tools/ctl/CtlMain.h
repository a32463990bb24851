// vellumic-ctl as a function: reads the command line, acts, prints. Exit code 0, or 1 after one
// line on standard error.
#pragma once

namespace vellumic::tools {

int ctlMain(int argc, const char* const* argv);

}  // namespace vellumic::tools
