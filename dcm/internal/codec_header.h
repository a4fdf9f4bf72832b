// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a compressed frame says of itself, read from the codec's own header
// before the codec runs: a decoder sizes its output from the DICOM attributes
// but writes what its stream declares, so the two must agree first.

#include <cstddef>
#include <string>
#include <vector>

enum class CodecKind { Native, Rle, Jpeg, JpegLs, Jpeg2000, Unsupported };

struct CodecGeometry {
  unsigned Cols = 0;
  unsigned Rows = 0;
  unsigned Components = 0;
  unsigned Precision = 0; // bits per sample; for RLE, the number of byte segments
};

class CodecHeader {
public:
  static CodecKind KindOf(const std::string& transferSyntax, bool encapsulated);

  // Reads the geometry that the stream of one frame declares (the frame's
  // first bytes, up to its whole length). False with a reason when the header
  // cannot be found or is damaged.
  static bool Read(CodecKind kind, const unsigned char* data, std::size_t size, CodecGeometry& geometry,
                   std::string& error);
};
