// Decisions drawn from a fuzzer's input; zeros once it is used up.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>

namespace vellumic::fuzz {

class ByteReader {
 public:
  explicit ByteReader(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  bool empty() const { return rest_.empty(); }
  std::uint8_t byte() { return number<std::uint8_t>(); }
  // 0 to count - 1.
  std::size_t choose(std::size_t count) { return byte() % count; }

  // The next bytes as they lie there.
  template <class Number>
  Number number() {
    Number value{};
    const std::size_t size = rest_.size() < sizeof value ? rest_.size() : sizeof value;
    std::memcpy(&value, rest_.data(), size);
    rest_ = rest_.subspan(size);
    return value;
  }

 private:
  std::span<const std::uint8_t> rest_;
};

}  // namespace vellumic::fuzz
