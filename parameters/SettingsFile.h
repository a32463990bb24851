// Settings as a person writes them: TOML files, NAME=VALUE assignments, raw dumps.
//
// Names come from the catalogue, as nested tables or dotted keys. Toggles take true and false,
// filter types their names, linear values also decibels under <name>_db.
// Everything is applied whole or not at all. Not for the real-time thread.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "parameters/Catalogue.h"

namespace vellumic {

// The text with a ? for each control character and the middle left out of a very long one: what a
// user wrote may not break a message's line, nor flood the screen.
std::string onOneLine(std::string text);

// what() is one line for the user: source, line, name, what is wrong and how to mend it.
class SettingsError : public std::runtime_error {
 public:
  explicit SettingsError(std::string text) : std::runtime_error(onOneLine(std::move(text))) {}
};

// Values outside their sensible range; applied all the same. One line each.
using SettingsWarnings = std::vector<std::string>;

// Throws SettingsError and leaves `values` untouched on the first fault.
void applySettingsFile(const std::filesystem::path& file, RawValues& values,
                       SettingsWarnings& warnings);
// `source` names the text in messages.
void applySettingsText(std::string_view text, std::string_view source, RawValues& values,
                       SettingsWarnings& warnings);
// "NAME=VALUE" of a command line; the value as in a settings file, text without quotes allowed.
void applyAssignment(std::string_view assignment, RawValues& values, SettingsWarnings& warnings);

// 5460 bytes: 1365 little-endian floats as stored. Any bit pattern is taken as it is.
RawValues readRawFile(const std::filesystem::path& file);

enum class SettingsScope { all, changedFromFactory };
// TOML text that applySettingsText() reads back to the same values (only those that are finite and
// in the catalogue can be written).
std::string writeSettings(const RawValues& values, SettingsScope scope);

}  // namespace vellumic
