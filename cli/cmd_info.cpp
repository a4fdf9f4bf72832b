// SPDX-License-Identifier: Apache-2.0
// ipg info: what a DICOM file holds, as the library reads it.
#include "cli/cli_args.h"
#include "cli/cli_command.h"
#include "cli/cli_io.h"
#include "cli/operator_registry.h"
#include "dcm/dcm_io.h"

#include <iomanip>
#include <iostream>
#include <sstream>

namespace {

Json Numbers(const double* v, int n)
{
  Json::Array a(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i)
    a[static_cast<std::size_t>(i)] = v[i];
  return Json(std::move(a));
}

Json Describe(const std::string& path, const DCM_STRUCT& image)
{
  const DCM_HEADER h = image.GetHeader();
  Json info(Json::Object{});
  info.Set("file", path);
  info.Set("Columns", image.GetNbOfCols());
  info.Set("Rows", image.GetNbOfRows());
  info.Set("NumberOfFrames", h.NumberOfFrames);
  info.Set("Frame", h.Frame);
  info.Set("BitsStored", h.BitsStored);
  info.Set("BitsAllocated", h.BitsAllocated);
  info.Set("PixelRepresentation", h.PixelRepresentation);
  info.Set("PhotometricInterpretation", h.PhotometricInterpretation);
  info.Set("PhotometricName", Dcm_PhotometricName(h.PhotometricInterpretation));
  info.Set("SourcePhotometric", h.SourcePhotometric);
  info.Set("RGB", image.Data->GetRGB());
  info.Set("Precision", image.Data->GetPrecision());
  info.Set("PixelSpacing", Numbers(h.PixelSpacing, 2));
  info.Set("ImagePosition", Numbers(h.ImagePosition, 3));
  info.Set("RowDirection", Numbers(h.RowDirection, 3));
  info.Set("ColumnDirection", Numbers(h.ColumnDirection, 3));
  info.Set("RescaleSlope", h.RescaleSlope);
  info.Set("RescaleIntercept", h.RescaleIntercept);
  info.Set("Min", image.Data->GetMin());
  info.Set("Max", image.Data->GetMax());
  info.Set("Modality", h.Modality);
  info.Set("SOPClassUID", h.SOPClassUID);
  info.Set("TransferSyntax", h.TransferSyntax);
  info.Set("TransferSyntaxName", Dcm_TransferSyntaxName(h.TransferSyntax));
  return info;
}

std::string Triple(const double* v)
{
  std::ostringstream s;
  s << v[0] << ", " << v[1] << ", " << v[2];
  return s.str();
}

void PrintText(const std::string& path, const DCM_STRUCT& image)
{
  const DCM_HEADER h = image.GetHeader();
  auto line = [](const char* key) -> std::ostream& { return std::cout << std::left << std::setw(18) << key; };
  line("file") << path << "\n";
  line("size") << image.GetNbOfCols() << " x " << image.GetNbOfRows() << " (columns x rows)\n";
  line("frames") << h.NumberOfFrames << " (this is frame " << h.Frame << ")\n";
  line("bits") << h.BitsStored << " stored of " << h.BitsAllocated << " allocated, "
               << (h.PixelRepresentation == 1 ? "signed" : "unsigned") << "\n";
  line("photometric") << h.PhotometricInterpretation << " (" << Dcm_PhotometricName(h.PhotometricInterpretation) << ")";
  if (image.Data->GetRGB())
    std::cout << ", read as luminance from " << h.SourcePhotometric;
  std::cout << "\n";
  line("precision") << image.Data->GetPrecision() << "\n";
  line("spacing") << h.PixelSpacing[0] << " x " << h.PixelSpacing[1] << " mm (row x column)\n";
  line("position") << Triple(h.ImagePosition) << " mm\n";
  line("orientation") << Triple(h.RowDirection) << " / " << Triple(h.ColumnDirection) << "\n";
  line("rescale") << "slope " << h.RescaleSlope << ", intercept " << h.RescaleIntercept << "\n";
  line("extremes") << image.Data->GetMin() << " .. " << image.Data->GetMax() << "\n";
  line("modality") << h.Modality << "\n";
  line("transfer syntax") << Dcm_TransferSyntaxName(h.TransferSyntax) << " (" << h.TransferSyntax << ")\n";
}

int Info(const std::vector<std::string>& args)
{
  CliArgs parsed;
  parsed.Option("json", false).Option("frame", true);
  parsed.Parse(args);
  if (parsed.Positional().empty())
    throw CliUsageError("info needs a FILE (ipg info --help)");
  const unsigned frame = parsed.Has("frame") ? Cli_ParseFrame(*parsed.Value("frame")) : 0;
  Json::Array all;
  for (const std::string& path : parsed.Positional()) {
    auto image = Cli_ReadImage(path, frame);
    if (parsed.Has("json"))
      all.push_back(Describe(path, *image));
    else
      PrintText(path, *image);
  }
  if (parsed.Has("json"))
    std::cout << (all.size() == 1 ? all[0] : Json(all)).Dump(2) << "\n";
  return kCliOk;
}

const bool registered = Cli_RegisterCommand({
    "info",
    "size, bits, photometric, precision, spacing, extremes, transfer syntax of DICOM files",
    "usage: ipg info FILE... [--frame N] [--json]\n"
    "\n"
    "Reads each FILE as `ipg run` would and prints its size, frames, bits stored\n"
    "and allocated, sign, photometric code (0 MONOCHROME1, 1 MONOCHROME2; colour\n"
    "files are read as luminance), precision, pixel spacing, patient-space\n"
    "geometry, rescale, stored extremes, modality and transfer syntax.\n"
    "\n"
    "  --frame N   describe frame N of a multi-frame file (default 0)\n"
    "  --json      print a JSON object (an array for several files)\n",
    Info,
});

} // namespace
