// SPDX-License-Identifier: Apache-2.0
#pragma once

// A PNG read back as 8-bit RGB, for the tests of previews and plots.

#include <png.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

struct PngPixels {
  int width = 0, height = 0;
  std::vector<std::uint8_t> rgb; // empty when the file could not be read

  std::array<int, 3> At(int x, int y) const
  {
    const std::size_t k = 3 * (static_cast<std::size_t>(y) * width + x);
    return {rgb[k], rgb[k + 1], rgb[k + 2]};
  }
};

inline PngPixels ReadPng(const std::string& path)
{
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  PngPixels out;
  if (!png_image_begin_read_from_file(&image, path.c_str()))
    return out;
  image.format = PNG_FORMAT_RGB;
  out.width = static_cast<int>(image.width);
  out.height = static_cast<int>(image.height);
  out.rgb.resize(PNG_IMAGE_SIZE(image));
  if (!png_image_finish_read(&image, nullptr, out.rgb.data(), 0, nullptr))
    out.rgb.clear();
  return out;
}
