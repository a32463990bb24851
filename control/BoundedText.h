// Names and paths in buffers of a fixed size. What does not fit is cut; the terminator stays.
#pragma once

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <span>
#include <string_view>

namespace vellumic {

inline constexpr std::size_t pathCapacity = 200;  // registry paths and value names, UTF-16 units
inline constexpr std::size_t nameCapacity = 256;  // kernel-object names, UTF-16 units

// Copies text into target, zero-fills the rest; at least one terminator stays.
inline void copyText(std::span<wchar_t> target, std::wstring_view text) noexcept {
  const std::size_t length = std::min(text.size(), target.size() - 1);
  const auto end = std::copy_n(text.begin(), length, target.begin());
  std::fill(end, target.end(), L'\0');
}

// The pieces, one after another.
template <std::size_t capacity>
class BoundedText {
 public:
  BoundedText(std::initializer_list<std::wstring_view> pieces) noexcept {
    std::size_t used = 0;
    for (const auto piece : pieces) {
      const std::size_t length = std::min(piece.size(), capacity - 1 - used);
      std::copy_n(piece.begin(), length, text_.begin() + static_cast<std::ptrdiff_t>(used));
      used += length;
    }
  }
  [[nodiscard]] const wchar_t* c_str() const noexcept { return text_.data(); }

 private:
  std::array<wchar_t, capacity> text_{};
};

// "{...}" in upper case; empty if the system cannot format it.
class GuidText {
 public:
  explicit GuidText(const GUID& guid) noexcept;
  [[nodiscard]] const wchar_t* c_str() const noexcept { return text_.data(); }

 private:
  std::array<wchar_t, 39> text_{};
};

}  // namespace vellumic
