// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dcm/dcm_struct.h"

#include <cstddef>
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
//
// Files come from anywhere, so reading is defensive: the file is mapped and
// parsed once by the library's own scanner, which checks every element length
// against the file and the image-pixel attributes against each other, against
// the pixel data and against what the codec's own header declares, before any
// codec runs; only the requested frame is decoded; memory is bounded by the
// read limits below. Failures never throw: they return null with a reason.
std::unique_ptr<DCM_STRUCT> Dcm_ReadFile(const std::string& path, std::string* error, unsigned frame = 0);

// The same for a whole DICOM file held in memory (the bytes are not kept).
std::unique_ptr<DCM_STRUCT> Dcm_ReadBuffer(const void* data, std::size_t size, std::string* error,
                                           unsigned frame = 0);

// Everything Dcm_ReadBuffer checks before a codec runs, without decoding:
// true when the frame would be handed to its decoder.
bool Dcm_ValidateBuffer(const void* data, std::size_t size, std::string* error, unsigned frame = 0);

// Ceilings of a read. A frame whose decoded pixels would exceed MaxDecodedBytes
// is refused before anything is allocated for it. MaxSeconds bounds the time a
// decoder may take; it can only be enforced with isolated decoding (a decoder
// running in the caller's process cannot be stopped).
struct DCM_READ_LIMITS {
  std::size_t MaxDecodedBytes = std::size_t{1} << 30;
  double MaxSeconds = 10.0;
};
DCM_READ_LIMITS Dcm_SetReadLimits(const DCM_READ_LIMITS& limits); // returns the previous limits
DCM_READ_LIMITS Dcm_GetReadLimits();

// Isolated decoding: the codec runs in a forked child process and hands the
// pixels back through shared memory, so that an abort, a memory fault or a
// runaway decoder in a codec becomes an error of the read instead of the end of
// the calling process. Off by default in the library (a fork costs about a
// millisecond per file); the `ipg` program turns it on. Returns the previous
// setting. POSIX only: a host that forks must tolerate a short-lived child.
bool Dcm_SetIsolatedDecoding(bool on);
bool Dcm_GetIsolatedDecoding();

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
