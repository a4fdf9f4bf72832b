// SPDX-License-Identifier: Apache-2.0
#include "dcm/internal/codec_header.h"

#include <cstdlib>

namespace {

unsigned Be16(const unsigned char* p) { return p[0] << 8 | p[1]; }
unsigned long Be32(const unsigned char* p) { return static_cast<unsigned long>(Be16(p)) << 16 | Be16(p + 2); }
unsigned long Le32(const unsigned char* p)
{
  return p[0] | p[1] << 8 | p[2] << 16 | static_cast<unsigned long>(p[3]) << 24;
}

bool Fail(std::string& error, const std::string& reason)
{
  error = reason;
  return false;
}

// RLE: a 64-byte header of segment count and offsets (one segment per byte of a sample).
bool ReadRle(const unsigned char* data, std::size_t size, CodecGeometry& g, std::string& error)
{
  if (size < 64)
    return Fail(error, "RLE frame shorter than its 64-byte header");
  const unsigned long segments = Le32(data);
  if (segments == 0 || segments > 15)
    return Fail(error, "RLE header declares " + std::to_string(segments) + " segments");
  unsigned long previous = 0;
  for (unsigned long s = 0; s < segments; ++s) {
    const unsigned long offset = Le32(data + 4 + 4 * s);
    if ((s == 0 && offset != 64) || offset < previous || offset >= size)
      return Fail(error, "RLE header has a segment offset outside the frame");
    previous = offset;
  }
  g.Precision = static_cast<unsigned>(segments);
  return true;
}

// JPEG and JPEG-LS: markers from the start of image to the first frame header.
bool ReadJpeg(const unsigned char* data, std::size_t size, bool lossless, CodecGeometry& g, std::string& error)
{
  if (size < 4 || data[0] != 0xff || data[1] != 0xd8)
    return Fail(error, "JPEG frame without a start-of-image marker");
  std::size_t pos = 2;
  while (pos + 4 <= size) {
    if (data[pos] != 0xff)
      return Fail(error, "damaged JPEG header");
    const unsigned marker = data[pos + 1];
    if (marker == 0xff) { // fill byte
      ++pos;
      continue;
    }
    const unsigned length = Be16(data + pos + 2);
    const bool frameHeader = lossless ? marker == 0xf7
                                      : (marker >= 0xc0 && marker <= 0xcf && marker != 0xc4 && marker != 0xc8 &&
                                         marker != 0xcc);
    if (frameHeader) {
      if (length < 8 || pos + 2 + length > size)
        return Fail(error, "damaged JPEG frame header");
      g.Precision = data[pos + 4];
      g.Rows = Be16(data + pos + 5);
      g.Cols = Be16(data + pos + 7);
      g.Components = data[pos + 9];
      return true;
    }
    if (marker == 0xda || marker == 0xd9)
      break;
    pos += 2 + length;
  }
  return Fail(error, "JPEG frame header not found");
}

// JPEG 2000: the SIZ marker segment that follows the start of codestream,
// possibly inside a JP2 box.
bool ReadJpeg2000(const unsigned char* data, std::size_t size, CodecGeometry& g, std::string& error)
{
  const std::size_t searched = size < 4096 ? size : 4096;
  for (std::size_t pos = 0; pos + 4 <= searched; ++pos) {
    if (data[pos] != 0xff || data[pos + 1] != 0x4f || data[pos + 2] != 0xff || data[pos + 3] != 0x51)
      continue;
    const unsigned char* siz = data + pos + 4;
    if (pos + 4 + 41 > size)
      return Fail(error, "damaged JPEG 2000 size header");
    const unsigned long width = Be32(siz + 4), height = Be32(siz + 8);
    const unsigned long x0 = Be32(siz + 12), y0 = Be32(siz + 16);
    const unsigned components = Be16(siz + 36);
    if (width <= x0 || height <= y0 || components == 0 || pos + 4 + 38 + 3 * std::size_t{components} > size)
      return Fail(error, "damaged JPEG 2000 size header");
    g.Cols = static_cast<unsigned>(width - x0 > 0xffffffu ? 0xffffffu : width - x0);
    g.Rows = static_cast<unsigned>(height - y0 > 0xffffffu ? 0xffffffu : height - y0);
    g.Components = components;
    g.Precision = (siz[38] & 0x7f) + 1u;
    for (unsigned c = 1; c < components; ++c) // every component at full resolution and the same depth
      if (siz[38 + 3 * c] != siz[38] || siz[39 + 3 * c] != 1 || siz[40 + 3 * c] != 1 || siz[39] != 1 || siz[40] != 1)
        return Fail(error, "JPEG 2000 components of different sizes or depths are not supported");
    return true;
  }
  return Fail(error, "JPEG 2000 codestream header not found");
}

} // namespace

CodecKind CodecHeader::KindOf(const std::string& ts, bool encapsulated)
{
  if (!encapsulated)
    return CodecKind::Native;
  if (ts == "1.2.840.10008.1.2.5")
    return CodecKind::Rle;
  if (ts == "1.2.840.10008.1.2.4.80" || ts == "1.2.840.10008.1.2.4.81")
    return CodecKind::JpegLs;
  if (ts == "1.2.840.10008.1.2.4.90" || ts == "1.2.840.10008.1.2.4.91")
    return CodecKind::Jpeg2000;
  const std::string jpeg = "1.2.840.10008.1.2.4.";
  if (ts.compare(0, jpeg.size(), jpeg) == 0) {
    const int n = std::atoi(ts.c_str() + jpeg.size());
    if ((n >= 50 && n <= 66) || n == 70)
      return CodecKind::Jpeg;
  }
  return CodecKind::Unsupported;
}

bool CodecHeader::Read(CodecKind kind, const unsigned char* data, std::size_t size, CodecGeometry& g,
                       std::string& error)
{
  switch (kind) {
  case CodecKind::Rle:
    return ReadRle(data, size, g, error);
  case CodecKind::Jpeg:
    return ReadJpeg(data, size, false, g, error);
  case CodecKind::JpegLs:
    return ReadJpeg(data, size, true, g, error);
  case CodecKind::Jpeg2000:
    return ReadJpeg2000(data, size, g, error);
  default:
    return true;
  }
}
