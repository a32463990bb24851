#include "tools/Arguments.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "tools/Version.h"

namespace vellumic::tools {

bool parseArguments(CLI::App& app, int argc, const char* const* argv) {
  app.set_version_flag("--version", versionLine(app.get_name().c_str()));
  try {
    app.parse(argc, argv);
    return true;
  } catch (const CLI::CallForVersion&) {
    std::cout << app.version() << '\n';
  } catch (const CLI::Success&) {  // help: of the command that was named, or of all
    std::cout << app.help(
        "", app.get_subcommands().empty() ? CLI::AppFormatMode::All : CLI::AppFormatMode::Normal);
  } catch (const CLI::ParseError& error) {
    throw UsageError(std::string(error.what()) + "; see " + app.get_name() + " --help");
  }
  return false;
}

}  // namespace vellumic::tools
