#include "tools/plot/Png.h"

#include <png.h>

#include <stdexcept>

namespace vellumic::plot {

std::vector<std::uint8_t> png(const Picture& picture) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(picture.width);
  image.height = static_cast<png_uint_32>(picture.height);
  image.format = PNG_FORMAT_RGB;
  png_alloc_size_t size = 0;
  if (png_image_write_to_memory(&image, nullptr, &size, 0, picture.rgb.data(), 0, nullptr) == 0)
    throw std::runtime_error(std::string("picture: ") + image.message);
  std::vector<std::uint8_t> bytes(size);
  if (png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.rgb.data(), 0, nullptr) ==
      0)
    throw std::runtime_error(std::string("picture: ") + image.message);
  bytes.resize(size);
  return bytes;
}

std::string base64(const std::vector<std::uint8_t>& bytes) {
  static constexpr char letters[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t left = bytes.size() - i;
    const std::uint32_t group = static_cast<std::uint32_t>(bytes[i]) << 16U |
                                (left > 1 ? static_cast<std::uint32_t>(bytes[i + 1]) << 8U : 0U) |
                                (left > 2 ? static_cast<std::uint32_t>(bytes[i + 2]) : 0U);
    text += letters[group >> 18U];
    text += letters[group >> 12U & 63U];
    text += left > 1 ? letters[group >> 6U & 63U] : '=';
    text += left > 2 ? letters[group & 63U] : '=';
  }
  return text;
}

}  // namespace vellumic::plot
