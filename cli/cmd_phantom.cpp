// SPDX-License-Identifier: Apache-2.0
// ipg phantom: a synthetic B-mode ultrasound image and its ground-truth mask.
#include "cli/cli_args.h"
#include "cli/cli_command.h"
#include "cli/cli_io.h"
#include "cli/operator_registry.h"
#include "dcm/dcm_phantom.h"

#include <iostream>

namespace {

int Phantom(const std::vector<std::string>& args)
{
  CliArgs parsed;
  parsed.Option("size", true).Option("seed", true).Option("looks", true).Option("linear", false);
  parsed.Option("png", true);
  parsed.Parse(args);
  if (parsed.Positional().size() != 1)
    throw CliUsageError("phantom needs one output file OUT.dcm (ipg phantom --help)");
  DCM_PHANTOM_OPTIONS options;
  if (parsed.Has("size"))
    options.Size = Cli_ParseValue<unsigned>("--size", *parsed.Value("size"));
  if (parsed.Has("seed"))
    options.Seed = Cli_ParseValue<unsigned>("--seed", *parsed.Value("seed"));
  if (parsed.Has("looks"))
    options.Looks = Cli_ParseValue<unsigned>("--looks", *parsed.Value("looks"));
  options.Linear = parsed.Has("linear");
  if (options.Size < 16 || options.Size > 4096)
    throw CliUsageError("--size must lie between 16 and 4096");
  if (options.Looks < 1 || options.Looks > 64)
    throw CliUsageError("--looks must lie between 1 and 64");

  const DCM_PHANTOM phantom = Dcm_MakePhantom(options);
  const std::string out = parsed.Positional()[0];
  const std::string maskPath = Cli_DerivedPath(out, "mask");
  Cli_WriteImage(*phantom.Image, out);
  // The mask joins the image's study, series and frame of reference.
  const DCM_HEADER written = Cli_ReadImage(out)->GetHeader();
  DCM_HEADER maskHeader = phantom.Mask->GetHeader();
  maskHeader.StudyInstanceUID = written.StudyInstanceUID;
  maskHeader.SeriesInstanceUID = written.SeriesInstanceUID;
  maskHeader.FrameOfReferenceUID = written.FrameOfReferenceUID;
  phantom.Mask->SetHeader(maskHeader);
  Cli_WriteImage(*phantom.Mask, maskPath);
  if (parsed.Has("png"))
    Cli_WritePng(*phantom.Image, *parsed.Value("png"));
  std::cout << "phantom " << out << ": " << options.Size << " x " << options.Size << ", "
            << (options.Linear ? "16-bit linear intensity" : "8-bit log-compressed") << ", " << options.Looks
            << (options.Looks == 1 ? " look" : " looks") << ", seed " << options.Seed << "\n"
            << "mask " << maskPath << ": 0 tissue, 1 layer, 2 cyst, 3 inclusion\n";
  return kCliOk;
}

const bool registered = Cli_RegisterCommand({
    "phantom",
    "write a synthetic B-mode ultrasound phantom and its ground-truth mask",
    "usage: ipg phantom OUT.dcm [--size N] [--seed S] [--looks L] [--linear] [--png FILE]\n"
    "\n"
    "Writes a synthetic B-mode ultrasound image as a DICOM file (modality US,\n"
    "0.2 mm pixels) and its ground truth beside it as OUT-mask.dcm. The image\n"
    "holds piecewise-constant echogenic regions - tissue, a hypoechoic layer,\n"
    "an anechoic cyst and a bright inclusion - under fully developed\n"
    "multiplicative speckle averaged over L looks, log-compressed to 8 bits over\n"
    "45 dB. The mask labels the regions 0 tissue, 1 layer, 2 cyst, 3 inclusion.\n"
    "The same options give the same pixels.\n"
    "\n"
    "  --size N    columns and rows, 16 to 4096 (default 256)\n"
    "  --seed S    random seed (default 1)\n"
    "  --looks L   independent looks averaged, 1 to 64 (default 1)\n"
    "  --linear    16-bit linear intensity (1000 per unit echogenicity) instead\n"
    "  --png FILE  also write a PNG preview of the image\n",
    Phantom,
});

} // namespace
