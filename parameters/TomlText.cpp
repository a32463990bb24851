#include "parameters/TomlText.h"

#include <algorithm>
#include <optional>

namespace vellumic {
namespace {

bool beyondAscii(char c) { return static_cast<unsigned char>(c) >= 0x80; }

// The first letter beyond ASCII at the start of a line that a text of several lines goes on in,
// after a backslash at the end of the line before: there the parser asks whether it is a blank.
std::optional<std::size_t> letterAfterLineEnd(std::string_view text) {
  constexpr std::string_view lineEnds = "\n\v\f\r", blanks = " \t\n\v\f\r";
  for (std::size_t n = 1; n < text.size(); ++n) {
    if (!beyondAscii(text[n])) continue;
    const std::size_t last = text.find_last_not_of(blanks, n - 1);
    if (last < n && text[last] == '\\' &&
        text.substr(last, n - last).find_first_of(lineEnds) != std::string_view::npos)
      return n;
  }
  return std::nullopt;
}

// Behind the text that begins with the quote at `start`.
std::size_t endOfText(std::string_view text, std::size_t start) {
  const char quote = text[start];
  const std::string three(3, quote);
  const bool several = text.substr(start).starts_with(three);
  for (std::size_t n = start + (several ? 3 : 1); n < text.size(); ++n) {
    if (several ? text.substr(n).starts_with(three) : text[n] == quote || text[n] == '\n')
      return n + (several ? 3 : 1);
    if (quote == '"' && text[n] == '\\') ++n;
  }
  return text.size();
}

// Where a name begins to have too many parts: each is a table in a table, and what walks through
// them, here and in the parser, calls itself for each.
std::optional<std::size_t> deepName(std::string_view text) {
  constexpr int mostDots = 15;
  int dots = 0;
  for (std::size_t n = 0; n < text.size();) {
    const char c = text[n];
    if (c == '.' && ++dots > mostDots) return n;
    if (std::string_view("=,[]{}#\n").find(c) != std::string_view::npos) dots = 0;
    if (c == '#')
      n = std::min(text.find('\n', n), text.size());
    else
      n = c == '"' || c == '\'' ? endOfText(text, n) : n + 1;
  }
  return std::nullopt;
}

std::size_t lineOf(std::string_view text, std::size_t place) {
  return 1 + static_cast<std::size_t>(std::ranges::count(text.substr(0, place), '\n'));
}

toml::table parse(std::string_view text) {
  try {
    return toml::parse(text);
  } catch (const toml::parse_error& error) {
    throw TomlError(error.source().begin.line, error.description());
  }
}

}  // namespace

// The parser's search for blanks beyond ASCII runs into code that its author thought out of reach
// when it meets an ordinary letter, such as U+00E4, outside texts and comments. A copy without such
// letters has a fault at the same place and goes first.
toml::table parseToml(std::string_view text) {
  if (const auto found = deepName(text))
    throw TomlError(lineOf(text, *found), "a name of more than 16 parts");
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);  // mark of UTF-8
  if (std::ranges::any_of(text, beyondAscii)) {
    std::string plain(text);
    std::ranges::replace_if(plain, beyondAscii, '?');
    parse(plain);
    if (const auto found = letterAfterLineEnd(text))
      throw TomlError(lineOf(text, *found),
                      "write letters beyond ASCII on the line where their text begins");
  }
  return parse(text);
}

}  // namespace vellumic
