// Just enough JSON for reports: objects of texts, truths and ready-made parts.
#pragma once

#include <array>
#include <cstdio>
#include <string>

namespace vellumic::tools {

// With quotes; what JSON does not allow inside is escaped. text: UTF-8.
inline std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    std::array<char, 8> escape{};
    const auto code = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\')
      result.append(1, '\\').append(1, c);
    else if (code < 0x20)
      result.append(escape.data(), static_cast<std::size_t>(std::snprintf(
                                       escape.data(), escape.size(), "\\u%04x", unsigned{code})));
    else
      result += c;
  }
  return result + '"';
}

// "key": value, in the order of adding.
class JsonObject {
 public:
  JsonObject& add(const char* key, const std::string& value) {
    text_.append(text_.empty() ? "" : ", ").append(quoted(key)).append(": ").append(value);
    return *this;
  }
  JsonObject& add(const char* key, bool value) {
    return add(key, std::string(value ? "true" : "false"));
  }
  JsonObject& addText(const char* key, const std::string& value) { return add(key, quoted(value)); }
  [[nodiscard]] std::string text() const { return "{" + text_ + "}"; }

 private:
  std::string text_;
};

// Elements that are JSON already.
template <class Elements>
std::string jsonList(const Elements& elements) {
  std::string list;
  for (const std::string& element : elements) list.append(list.empty() ? "" : ", ").append(element);
  return "[" + list + "]";
}

}  // namespace vellumic::tools
