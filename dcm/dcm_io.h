#pragma once

#include "dcm/dcm_struct.h"

#include <memory>
#include <string>

// Reading and writing DICOM files, and PNG previews.
//
// Reading keeps the stored pixel values (signed per Pixel Representation, masked
// to Bits Stored), BitsStored, the photometric code, the pixel spacing, the
// patient-space geometry, the UIDs and the rescale. Colour images (RGB, YBR_*,
// PALETTE COLOR) are read as luminance (ITU-R BT.601: 0.299 R + 0.587 G + 0.114 B),
// marked MONOCHROME2 and flagged with SetRGB(true). A Rescale Slope of exactly
// 1/p (p an integer from 2 to 32767) gives the pixel store the precision p.
// Every transfer syntax that GDCM decodes is accepted.
//
// Every function reports failure with a reason in *error (when error is not
// null) and never throws.

// The frame of a file to read (0 is the first).
std::unique_ptr<DCM_STRUCT> Dcm_ReadFile(const std::string& path, std::string* error, unsigned frame = 0);

// Writes one frame as Secondary Capture, explicit VR little endian, with new
// SOP instance UIDs (study, series and frame of reference kept when the header
// has them), the geometry, the photometric code (0 or 1) and the precision as
// Rescale Slope 1/precision. Bits Allocated/Stored are the header's when every
// pixel fits them, else the fewest bits that hold the pixels (8, 16 or 32
// allocated), so that the file reads back with the same pixels.
bool Dcm_WriteFile(const DCM_STRUCT& image, const std::string& path, std::string* error);

// A display window in stored pixel values: [Center - Width/2, Center + Width/2]
// maps onto black..white.
struct DCM_WINDOW {
  double Center = 0.0;
  double Width = 0.0;
};

// Writes a grey PNG preview, 8 or 16 bits deep. Without a window, the stored
// extremes (GetMin()/GetMax()) span black..white. MONOCHROME1 images are shown
// inverted, as their photometric interpretation asks.
bool Dcm_WritePng(const DCM_STRUCT& image, const std::string& path, std::string* error,
                  const DCM_WINDOW* window = nullptr, int bitDepth = 8);

// Display names: "Explicit VR Little Endian", "MONOCHROME2"...
std::string Dcm_TransferSyntaxName(const std::string& uid);
std::string Dcm_PhotometricName(unsigned short code);
