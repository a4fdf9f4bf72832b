// SPDX-License-Identifier: Apache-2.0
#pragma once

// PNG previews of output images and plots of results. Signed and real-valued
// images (spectra, Hölder maps, wavelet coefficients) read better through a
// colour map than as grey levels; spectra read better on a logarithmic scale.

#include "dcm/dcm_struct.h"

#include <cstdint>
#include <string>
#include <vector>

enum class CliColormap {
  Gray,      // black to white, lowest to highest value
  Viridis,   // perceptually uniform dark blue to yellow, lowest to highest value
  Diverging, // blue below zero, light grey at zero, red above, symmetric about zero
};

struct CliPreviewOptions {
  CliColormap map = CliColormap::Gray;
  bool log = false; // v becomes sign(v) * log10(1 + |v|) before the map
};

// "gray", "viridis" or "diverging"; CliUsageError otherwise.
CliColormap Cli_ParseColormap(const std::string& name);

// Writes the preview of image at path: the real pixel values (raw / precision)
// spread over the map. Plain grey without --log is the 8-bit grey preview of
// Cli_WritePng; every other choice gives an 8-bit RGB file. Throws CliFileError.
void Cli_WritePreview(const DCM_STRUCT& image, const std::string& path, const CliPreviewOptions& options);

// The size of a histogram plot.
inline constexpr int kCliPlotWidth = 512;
inline constexpr int kCliPlotHeight = 256;

// Draws counts as bars on a white kCliPlotWidth x kCliPlotHeight RGB PNG, the
// highest count reaching the top; when bins outnumber columns a column shows
// the highest of its bins. Throws CliFileError.
void Cli_WriteHistogramPlot(const std::vector<int>& counts, const std::string& path);

// Writes width x height RGB pixels (3 bytes each, row by row). Throws CliFileError.
void Cli_WriteRgbPng(const std::vector<std::uint8_t>& rgb, int width, int height, const std::string& path);
