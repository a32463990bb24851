// The end of every tool's command line.
#pragma once

#include <stdexcept>

namespace CLI {
class App;
}

namespace vellumic::tools {

// what() is one line for the user.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Adds --version and parses. False when help or the version was asked for and printed. Throws
// UsageError.
bool parseArguments(CLI::App& app, int argc, const char* const* argv);

}  // namespace vellumic::tools
