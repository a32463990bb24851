// vellumic-render as a function: reads the command line, renders, prints. Exit code 0, or 1 after
// one line on standard error.
#pragma once

namespace vellumic::tools {

int renderMain(int argc, const char* const* argv);

}  // namespace vellumic::tools
