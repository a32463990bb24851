// Between the system's UTF-16 and the UTF-8 of our output.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "control/StatusBlock.h"

namespace vellumic::tools {

std::string utf8(std::wstring_view text);
std::wstring wide(std::string_view text);
// In quotes, for a command line: CommandLineToArgvW reads it back.
std::wstring quotedArgument(std::wstring_view text);

// A text of a status block; ends with the field even where the terminator is missing.
std::wstring_view textOf(const StatusText& text) noexcept;

std::string guidText(const GUID& guid);

}  // namespace vellumic::tools
