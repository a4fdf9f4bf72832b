// SPDX-License-Identifier: Apache-2.0
#pragma once

// Decodes one checked frame into grey levels, with GDCM's codecs: the stored
// value of each pixel (sign per Pixel Representation, masked to Bits Stored),
// or for colour images the BT.601 luminance (Y for YBR). Only the frame's own
// bytes are handed to the codec, with the attributes that were checked against
// them, so the codec never sees the rest of the file.

#include "dcm/internal/dicom_frame.h"

#include <string>

class FrameDecoder {
public:
  // Writes frame.PixelCount() values into pixels and the bit depths the
  // values have (a palette gives its table's). False with a reason.
  static bool Decode(const DicomFrame& frame, int* pixels, std::string& error, unsigned& bitsAllocated,
                     unsigned& bitsStored, unsigned& pixelRepresentation);
};
