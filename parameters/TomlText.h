// TOML text to a table, for settings and plans. The only place that calls the parser.
//
// Letters beyond ASCII may stand in comments and texts; anywhere else they are a fault of the file.
// So is a name of more than 16 parts.
// Not for the real-time thread.
#pragma once

// The parser asserts what a broken file can make false and then handles it; some compilers' release
// builds would take the assertion for granted.
#define TOML_ASSERT(expression) static_assert(true)
#pragma push_macro("NDEBUG")
#undef NDEBUG
#include <toml++/toml.h>
#pragma pop_macro("NDEBUG")

#include <stdexcept>
#include <string>
#include <string_view>

namespace vellumic {

// what(): "LINE: not valid TOML: why", to stand after the name of the file and a colon.
class TomlError : public std::runtime_error {
 public:
  TomlError(std::size_t line, std::string_view why)
      : std::runtime_error(std::to_string(line) + ": not valid TOML: " + std::string(why)) {}
};

// Throws TomlError.
toml::table parseToml(std::string_view text);

}  // namespace vellumic
