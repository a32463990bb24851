// What the tools leave behind besides sound: files that are whole or not there, and a standard
// output that did not lose a line. Errors are std::runtime_error with one line.
#pragma once

#include <string>
#include <string_view>

namespace vellumic::tools {

// Writes a temporary file beside the target and renames it, so that a full disk leaves the file
// that stood there. What is no file (a pipe, a device) is written directly.
void writeWholeFile(const std::string& path, std::string_view bytes);

// At the end of a command: throws when the standard output did not take all that was printed.
void finishPrinting();

}  // namespace vellumic::tools
