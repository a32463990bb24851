// Writes small pictures as PNG, in memory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vellumic::plot {

struct Picture {
  int width = 0, height = 0;
  std::vector<std::uint8_t> rgb;  // 3 bytes a pixel, rows from the top
};

std::vector<std::uint8_t> png(const Picture& picture);
std::string base64(const std::vector<std::uint8_t>& bytes);

}  // namespace vellumic::plot
