// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_preview.h"

#include "cli/cli_io.h"
#include "cli/cli_run_types.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

using Rgb = std::array<std::uint8_t, 3>;

// Evenly spaced anchors of each map, interpolated linearly between.
constexpr Rgb kViridis[] = {{68, 1, 84},    {71, 44, 122},  {59, 81, 139},  {44, 113, 142}, {33, 144, 141},
                            {39, 173, 129}, {92, 200, 99},  {170, 220, 50}, {253, 231, 37}};
constexpr Rgb kDiverging[] = {{59, 76, 192}, {141, 176, 254}, {221, 221, 221}, {244, 154, 123}, {180, 4, 38}};

template <std::size_t N>
Rgb Interpolate(const Rgb (&anchors)[N], double t)
{
  t = std::clamp(t, 0.0, 1.0) * static_cast<double>(N - 1);
  const std::size_t low = std::min(static_cast<std::size_t>(t), N - 2);
  const double f = t - static_cast<double>(low);
  Rgb colour{};
  for (int k = 0; k < 3; ++k)
    colour[k] = static_cast<std::uint8_t>(std::lround(anchors[low][k] + f * (anchors[low + 1][k] - anchors[low][k])));
  return colour;
}

Rgb Colour(CliColormap map, double t)
{
  switch (map) {
  case CliColormap::Viridis:
    return Interpolate(kViridis, t);
  case CliColormap::Diverging:
    return Interpolate(kDiverging, t);
  case CliColormap::Gray:
    break;
  }
  const auto grey = static_cast<std::uint8_t>(std::lround(255.0 * std::clamp(t, 0.0, 1.0)));
  return {grey, grey, grey};
}

// The real values of the image, on the logarithmic scale when asked.
std::vector<double> Values(const DCM_STRUCT& image, bool log)
{
  const short precision = image.Data->GetPrecision();
  const int* raw = image.Data->GetIDataAddress();
  std::vector<double> values(image.Data->GetSize());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const double v = precision > 0 ? static_cast<double>(raw[i]) / precision : static_cast<double>(raw[i]);
    values[i] = log ? std::copysign(std::log10(1.0 + std::fabs(v)), v) : v;
  }
  return values;
}

// Where each value falls on the map, from 0 to 1: the extremes span it, or
// for the diverging map the largest magnitude on both sides of zero.
std::vector<double> Positions(const std::vector<double>& values, CliColormap map)
{
  std::vector<double> t(values.size(), map == CliColormap::Diverging ? 0.5 : 0.0);
  if (values.empty())
    return t;
  const auto [low, high] = std::minmax_element(values.begin(), values.end());
  if (map == CliColormap::Diverging) {
    const double limit = std::max(std::fabs(*low), std::fabs(*high));
    for (std::size_t i = 0; limit > 0.0 && i < values.size(); ++i)
      t[i] = 0.5 + 0.5 * values[i] / limit;
  } else if (*high > *low) {
    for (std::size_t i = 0; i < values.size(); ++i)
      t[i] = (values[i] - *low) / (*high - *low);
  }
  return t;
}

struct PngFile {
  std::FILE* file = nullptr;
  png_structp png = nullptr;
  png_infop info = nullptr;
  ~PngFile()
  {
    png_destroy_write_struct(&png, &info);
    if (file != nullptr)
      std::fclose(file);
  }
};

} // namespace

CliColormap Cli_ParseColormap(const std::string& name)
{
  if (name == "gray" || name == "grey")
    return CliColormap::Gray;
  if (name == "viridis")
    return CliColormap::Viridis;
  if (name == "diverging")
    return CliColormap::Diverging;
  throw CliUsageError("--colormap takes gray, viridis or diverging, not '" + name + "'");
}

void Cli_WriteRgbPng(const std::vector<std::uint8_t>& rgb, int width, int height, const std::string& path)
{
  PngFile out;
  out.file = std::fopen(path.c_str(), "wb");
  if (out.file == nullptr)
    throw CliFileError("cannot write " + path + ": " + std::strerror(errno));
  out.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  out.info = out.png != nullptr ? png_create_info_struct(out.png) : nullptr;
  if (out.info == nullptr)
    throw CliFileError("cannot write " + path + ": out of memory");
  if (setjmp(png_jmpbuf(out.png)) != 0)
    throw CliFileError("cannot write " + path + ": PNG encoding failed");
  png_init_io(out.png, out.file);
  png_set_IHDR(out.png, out.info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
               PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(out.png, out.info);
  for (int r = 0; r < height; ++r)
    png_write_row(out.png, rgb.data() + static_cast<std::size_t>(r) * width * 3);
  png_write_end(out.png, nullptr);
  if (std::fflush(out.file) != 0)
    throw CliFileError("cannot write " + path + ": " + std::strerror(errno));
}

void Cli_WritePreview(const DCM_STRUCT& image, const std::string& path, const CliPreviewOptions& options)
{
  if (options.map == CliColormap::Gray && !options.log) {
    Cli_WritePng(image, path);
    return;
  }
  const std::vector<double> t = Positions(Values(image, options.log), options.map);
  std::vector<std::uint8_t> rgb(t.size() * 3);
  for (std::size_t i = 0; i < t.size(); ++i)
    std::copy_n(Colour(options.map, t[i]).begin(), 3, rgb.begin() + static_cast<std::ptrdiff_t>(3 * i));
  Cli_WriteRgbPng(rgb, static_cast<int>(image.GetNbOfCols()), static_cast<int>(image.GetNbOfRows()), path);
}

void Cli_WriteHistogramPlot(const std::vector<int>& counts, const std::string& path)
{
  constexpr Rgb kBar{40, 70, 140};
  const std::size_t bins = counts.size();
  std::vector<int> column(kCliPlotWidth, 0); // the highest count shown in each column
  for (std::size_t x = 0; x < column.size() && bins > 0; ++x) {
    const std::size_t first = x * bins / kCliPlotWidth;
    const std::size_t last = std::max(first + 1, (x + 1) * bins / kCliPlotWidth);
    column[x] = *std::max_element(counts.begin() + static_cast<std::ptrdiff_t>(first),
                                  counts.begin() + static_cast<std::ptrdiff_t>(std::min(last, bins)));
  }
  const int top = std::max(1, *std::max_element(column.begin(), column.end()));
  std::vector<std::uint8_t> rgb(static_cast<std::size_t>(kCliPlotWidth) * kCliPlotHeight * 3, 255);
  for (int x = 0; x < kCliPlotWidth; ++x) {
    const int height = static_cast<int>(std::lround(static_cast<double>(std::max(column[x], 0)) * kCliPlotHeight / top));
    for (int y = kCliPlotHeight - height; y < kCliPlotHeight; ++y)
      std::copy_n(kBar.begin(), 3, rgb.begin() + 3 * (static_cast<std::ptrdiff_t>(y) * kCliPlotWidth + x));
  }
  Cli_WriteRgbPng(rgb, kCliPlotWidth, kCliPlotHeight, path);
}
