// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_io.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

bool Fail(std::string* error, const std::string& reason)
{
  if (error != nullptr)
    *error = reason;
  return false;
}

// Grey levels of the preview, one per pixel, row after row.
std::vector<unsigned> Levels(const DCM_STRUCT& image, const DCM_WINDOW* window, unsigned top)
{
  double low = image.Data->GetMin(), high = image.Data->GetMax();
  if (window != nullptr && window->Width > 0) {
    low = window->Center - window->Width / 2.0;
    high = window->Center + window->Width / 2.0;
  }
  const bool inverted = image.GetHeader().PhotometricInterpretation == 0; // MONOCHROME1: low is white
  const int* p = image.Data->GetIDataAddress();
  std::vector<unsigned> levels(image.Data->GetSize());
  for (std::size_t i = 0; i < levels.size(); ++i) {
    double t = high > low ? (p[i] - low) / (high - low) : (p[i] > low ? 1.0 : 0.0);
    t = std::clamp(t, 0.0, 1.0);
    const auto level = static_cast<unsigned>(std::lround(t * top));
    levels[i] = inverted ? top - level : level;
  }
  return levels;
}

} // namespace

bool Dcm_WritePng(const DCM_STRUCT& image, const std::string& path, std::string* error, const DCM_WINDOW* window,
                  int bitDepth)
{
  if (bitDepth != 8 && bitDepth != 16)
    return Fail(error, "PNG depth must be 8 or 16 bits, not " + std::to_string(bitDepth));
  const unsigned cols = image.GetNbOfCols(), rows = image.GetNbOfRows();
  if (cols == 0 || rows == 0)
    return Fail(error, path + ": an image without pixels has no preview");
  const unsigned bytes = static_cast<unsigned>(bitDepth) / 8;
  const std::vector<unsigned> levels = Levels(image, window, bitDepth == 8 ? 255u : 65535u);
  std::vector<unsigned char> row(static_cast<std::size_t>(cols) * bytes);

  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr)
    return Fail(error, path + ": " + std::strerror(errno));
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  if (png == nullptr || info == nullptr) {
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
    return Fail(error, path + ": cannot start the PNG encoder");
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
    return Fail(error, path + ": cannot write the PNG file");
  }
  png_init_io(png, f);
  png_set_IHDR(png, info, cols, rows, bitDepth, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (unsigned r = 0; r < rows; ++r) {
    for (unsigned c = 0; c < cols; ++c) {
      const unsigned v = levels[static_cast<std::size_t>(r) * cols + c];
      if (bytes == 1)
        row[c] = static_cast<unsigned char>(v);
      else { // PNG samples are big endian
        row[2 * c] = static_cast<unsigned char>(v >> 8);
        row[2 * c + 1] = static_cast<unsigned char>(v & 0xff);
      }
    }
    png_write_row(png, row.data());
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  if (std::fclose(f) != 0)
    return Fail(error, path + ": " + std::strerror(errno));
  if (error != nullptr)
    error->clear();
  return true;
}
