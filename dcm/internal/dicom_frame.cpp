// SPDX-License-Identifier: Apache-2.0
#include "dcm/internal/dicom_frame.h"

#include <algorithm>
#include <cstdlib>

namespace {

bool Fail(std::string& error, const std::string& reason)
{
  error = reason;
  return false;
}

bool IsMonochrome(const std::string& pi) { return pi == "MONOCHROME1" || pi == "MONOCHROME2"; }

bool IsColour(const std::string& pi)
{
  static const char* const names[] = {"RGB",          "YBR_FULL", "YBR_FULL_422", "YBR_PARTIAL_422",
                                      "YBR_PARTIAL_420", "YBR_ICT", "YBR_RCT"};
  return std::find(std::begin(names), std::end(names), pi) != std::end(names);
}

// Photometric interpretations each codec can carry.
bool CodecCarries(CodecKind codec, const std::string& pi)
{
  if (IsMonochrome(pi) || pi == "PALETTE COLOR" || pi == "RGB")
    return true;
  switch (codec) {
  case CodecKind::Native:
    return pi == "YBR_FULL" || pi == "YBR_FULL_422" || pi == "YBR_PARTIAL_422";
  case CodecKind::Rle:
  case CodecKind::JpegLs:
    return pi == "YBR_FULL";
  case CodecKind::Jpeg:
    return pi == "YBR_FULL" || pi == "YBR_FULL_422" || pi == "YBR_PARTIAL_422" || pi == "YBR_PARTIAL_420";
  case CodecKind::Jpeg2000:
    return pi == "YBR_ICT" || pi == "YBR_RCT";
  default:
    return false;
  }
}

bool ParseFrames(const DicomScan& scan, unsigned long& frames, std::string& error)
{
  const std::string text = scan.Text(DicomTag(0x0028, 0x0008));
  frames = 1;
  if (text.empty()) // absent or empty: one frame, as single-frame objects of multi-frame classes are
    return true;
  char* end = nullptr;
  const long long n = std::strtoll(text.c_str(), &end, 10);
  if (*end != '\0' || n < 1 || n > 0x7fffffffLL)
    return Fail(error, "invalid Number of Frames '" + text + "'");
  frames = static_cast<unsigned long>(n);
  return true;
}

} // namespace

bool DicomFramePlanner::Plan(const DicomScan& scan, unsigned frame, DicomFrame& f, std::string& error) const
{
  f = DicomFrame{};
  if (!scan.HasPixelData) {
    if (scan.FloatPixelData)
      return Fail(error, "floating-point pixels are not supported");
    return Fail(error, "no pixel data");
  }
  if (!ReadModule(scan, f, error) || !CheckCombination(f, error))
    return false;
  f.Frame = frame;
  if (frame >= f.Frames)
    return Fail(error, "frame " + std::to_string(frame) + " out of range (the file has " + std::to_string(f.Frames) +
                           (f.Frames == 1 ? " frame)" : " frames)"));
  const std::size_t bytesPerSample = std::max(1u, f.BitsAllocated / 8);
  const std::size_t decoded = f.PixelCount() * std::max<std::size_t>(f.Samples * bytesPerSample, 4);
  if (decoded > MaxDecodedBytes)
    return Fail(error, "a decoded frame of " + std::to_string(decoded) + " bytes exceeds the read limit of " +
                           std::to_string(MaxDecodedBytes) + " bytes");
  if (f.Photometric == "PALETTE COLOR" && !LocatePalette(scan, f, error))
    return false;
  if (f.Codec == CodecKind::Native)
    return LocateNative(scan, f, error);
  return LocateFragments(scan, f, error) && CheckCodecHeader(f, error);
}

bool DicomFramePlanner::ReadModule(const DicomScan& scan, DicomFrame& f, std::string& error) const
{
  if (!scan.Has(DicomTag(0x0028, 0x0010)) || !scan.Has(DicomTag(0x0028, 0x0011)))
    return Fail(error, "image without Rows or Columns");
  f.Rows = scan.UShort(DicomTag(0x0028, 0x0010), 0);
  f.Cols = scan.UShort(DicomTag(0x0028, 0x0011), 0);
  f.Samples = scan.UShort(DicomTag(0x0028, 0x0002), 1);
  f.BitsAllocated = scan.UShort(DicomTag(0x0028, 0x0100), 0);
  f.BitsStored = scan.UShort(DicomTag(0x0028, 0x0101), f.BitsAllocated);
  f.HighBit = scan.UShort(DicomTag(0x0028, 0x0102), f.BitsStored - 1);
  f.PixelRepresentation = scan.UShort(DicomTag(0x0028, 0x0103), 0);
  f.Planar = scan.UShort(DicomTag(0x0028, 0x0006), 0);
  f.Photometric = scan.Text(DicomTag(0x0028, 0x0004));
  if (f.Photometric.empty())
    f.Photometric = f.Samples == 3 ? "RGB" : "MONOCHROME2";
  f.BigEndian = scan.BigEndian();
  f.TransferSyntax = scan.Deflated ? "1.2.840.10008.1.2.1" : scan.TransferSyntax;
  if (f.TransferSyntax.empty())
    f.TransferSyntax = scan.Encoding == DicomEncoding::ImplicitLittle ? "1.2.840.10008.1.2"
                       : f.BigEndian                                   ? "1.2.840.10008.1.2.2"
                                                                       : "1.2.840.10008.1.2.1";
  f.Codec = CodecHeader::KindOf(f.TransferSyntax, scan.Encapsulated);
  return ParseFrames(scan, f.Frames, error);
}

bool DicomFramePlanner::CheckCombination(const DicomFrame& f, std::string& error) const
{
  if (f.Cols == 0 || f.Rows == 0)
    return Fail(error, "image without rows or columns");
  if (f.Samples != 1 && f.Samples != 3)
    return Fail(error, std::to_string(f.Samples) + " samples per pixel is not supported");
  if (f.BitsAllocated != 1 && f.BitsAllocated != 8 && f.BitsAllocated != 16 && f.BitsAllocated != 32)
    return Fail(error, std::to_string(f.BitsAllocated) + " bits allocated per sample is not supported");
  if (f.BitsStored == 0 || f.BitsStored > f.BitsAllocated)
    return Fail(error, "invalid Bits Stored " + std::to_string(f.BitsStored));
  if (f.HighBit >= f.BitsAllocated || f.HighBit + 1 < f.BitsStored)
    return Fail(error, "invalid High Bit " + std::to_string(f.HighBit) + " for " + std::to_string(f.BitsStored) +
                           " bits stored");
  if (f.PixelRepresentation > 1)
    return Fail(error, "invalid Pixel Representation " + std::to_string(f.PixelRepresentation));
  if (f.Samples == 3 && f.Planar > 1)
    return Fail(error, "invalid Planar Configuration " + std::to_string(f.Planar));
  const bool single = IsMonochrome(f.Photometric) || f.Photometric == "PALETTE COLOR";
  if (!single && !IsColour(f.Photometric))
    return Fail(error, "Photometric Interpretation '" + f.Photometric + "' is not supported");
  if (f.Samples != (single ? 1u : 3u))
    return Fail(error, "Photometric Interpretation " + f.Photometric + " with " + std::to_string(f.Samples) +
                           " samples per pixel");
  if (f.Codec == CodecKind::Unsupported)
    return Fail(error, "unsupported compressed transfer syntax " + f.TransferSyntax);
  if (!CodecCarries(f.Codec, f.Photometric))
    return Fail(error, "Photometric Interpretation " + f.Photometric + " cannot be encoded with this transfer syntax");
  if (f.BitsAllocated == 1 && (f.Codec != CodecKind::Native || f.Samples != 1 || !IsMonochrome(f.Photometric)))
    return Fail(error, "1 bit allocated per sample is only supported for uncompressed monochrome images");
  if (f.BitsAllocated == 32 && f.Codec != CodecKind::Native && f.Codec != CodecKind::Rle)
    return Fail(error, "32 bits allocated per sample cannot be decoded with this transfer syntax");
  if (f.Photometric == "PALETTE COLOR" && f.BitsAllocated != 8 && f.BitsAllocated != 16)
    return Fail(error, "palette colour indices of " + std::to_string(f.BitsAllocated) + " bits are not supported");
  return true;
}

bool DicomFramePlanner::LocateNative(const DicomScan& scan, DicomFrame& f, std::string& error) const
{
  const std::size_t plane = f.PixelCount();
  const std::size_t declared = scan.PixelData.Length;
  const unsigned char* data = scan.Bytes + scan.PixelData.Offset;
  if (f.BitsAllocated == 1) {
    const std::size_t bits = plane * f.Frames;
    if (declared < (bits + 7) / 8)
      return Fail(error, "pixel data too short (" + std::to_string(declared) + " of " + std::to_string((bits + 7) / 8) +
                             " bytes)");
    f.Native.assign((plane + 7) / 8, 0); // the frame's bits, realigned to a byte boundary
    const std::size_t first = plane * f.Frame;
    for (std::size_t i = 0; i < plane; ++i)
      if ((data[(first + i) / 8] >> ((first + i) % 8)) & 1)
        f.Native[i / 8] |= static_cast<unsigned char>(1u << (i % 8));
    return true;
  }
  const std::size_t bytes = f.BitsAllocated / 8;
  const bool subsampled = f.Photometric == "YBR_FULL_422" || f.Photometric == "YBR_PARTIAL_422";
  const std::size_t frameBytes = subsampled ? plane * 2 * bytes : plane * f.Samples * bytes;
  if (declared / frameBytes < f.Frames)
    return Fail(error, "pixel data too short (" + std::to_string(declared) + " of " +
                           std::to_string(frameBytes * f.Frames) + " bytes)");
  const unsigned char* start = data + frameBytes * f.Frame;
  f.Native.assign(start, start + frameBytes);
  return true;
}

bool DicomFramePlanner::LocateFragments(const DicomScan& scan, DicomFrame& f, std::string& error) const
{
  const auto& all = scan.Fragments;
  if (all.empty())
    return Fail(error, "compressed pixel data without fragments");
  if (all.size() < f.Frames)
    return Fail(error, "Number of Frames " + std::to_string(f.Frames) + " but the pixel data holds " +
                           std::to_string(all.size()) + (all.size() == 1 ? " fragment" : " fragments"));
  std::size_t first = 0, last = all.size(); // fragments [first, last) make the frame
  if (f.Frames == 1) {
  } else if (all.size() == f.Frames) {
    first = f.Frame;
    last = first + 1;
  } else if (scan.OffsetTable.size() == f.Frames) {
    const std::size_t begin = scan.OffsetTable[f.Frame];
    const std::size_t end = f.Frame + 1 < f.Frames ? scan.OffsetTable[f.Frame + 1] : ~std::size_t{0};
    while (first < all.size() && all[first].ItemOffset < begin)
      ++first;
    last = first;
    while (last < all.size() && all[last].ItemOffset < end)
      ++last;
    if (first == all.size() || all[first].ItemOffset != begin || last == first)
      return Fail(error, "the Basic Offset Table does not point at the fragments");
  } else {
    return Fail(error, "cannot tell which of the " + std::to_string(all.size()) + " fragments hold frame " +
                           std::to_string(f.Frame) + " (no Basic Offset Table)");
  }
  for (std::size_t i = first; i < last; ++i)
    f.Fragments.emplace_back(scan.Bytes + all[i].Offset, all[i].Length);
  return true;
}

bool DicomFramePlanner::CheckCodecHeader(DicomFrame& f, std::string& error) const
{
  // The header sits in the first fragment; a header split across fragments is joined first.
  std::vector<unsigned char> head;
  for (const DicomSpan& s : f.Fragments) {
    head.insert(head.end(), s.first, s.first + std::min<std::size_t>(s.second, 8192 - head.size()));
    if (head.size() >= 8192)
      break;
  }
  CodecGeometry g;
  std::string reason;
  if (!CodecHeader::Read(f.Codec, head.data(), head.size(), g, reason))
    return Fail(error, reason);
  if (f.Codec == CodecKind::Rle) {
    const unsigned expected = f.Samples * (f.BitsAllocated / 8);
    if (g.Precision != expected)
      return Fail(error, "RLE frame of " + std::to_string(g.Precision) + " segments where " +
                             std::to_string(f.BitsAllocated) + "-bit samples need " + std::to_string(expected));
    return true;
  }
  if (g.Cols != f.Cols || g.Rows != f.Rows)
    return Fail(error, "the codec declares " + std::to_string(g.Cols) + " x " + std::to_string(g.Rows) +
                           " pixels where the attributes say " + std::to_string(f.Cols) + " x " +
                           std::to_string(f.Rows));
  if (g.Components != f.Samples)
    return Fail(error, "the codec declares " + std::to_string(g.Components) + " components for " +
                           std::to_string(f.Samples) + " samples per pixel");
  if (g.Precision == 0 || g.Precision > f.BitsAllocated)
    return Fail(error, "the codec declares " + std::to_string(g.Precision) + "-bit samples in " +
                           std::to_string(f.BitsAllocated) + " bits allocated");
  return true;
}

bool DicomFramePlanner::LocatePalette(const DicomScan& scan, DicomFrame& f, std::string& error) const
{
  for (unsigned c = 0; c < 3; ++c) {
    const uint32_t descriptorTag = DicomTag(0x0028, static_cast<uint16_t>(0x1101 + c));
    const uint32_t dataTag = DicomTag(0x0028, static_cast<uint16_t>(0x1201 + c));
    if (!scan.Has(descriptorTag) || scan.Elements.at(descriptorTag).Length < 6)
      return Fail(error, "PALETTE COLOR image without its lookup table descriptors");
    if (!scan.Has(dataTag))
      return Fail(error, scan.Has(DicomTag(0x0028, static_cast<uint16_t>(0x1221 + c)))
                             ? "segmented palette colour lookup tables are not supported"
                             : "PALETTE COLOR image without its lookup table data");
    const unsigned entries = scan.UShort(descriptorTag, 0, 0);
    const unsigned bits = scan.UShort(descriptorTag, 0, 2);
    const std::size_t count = entries == 0 ? 65536 : entries;
    if (bits != 8 && bits != 16)
      return Fail(error, "palette colour lookup table of " + std::to_string(bits) + "-bit entries");
    const DicomValue& data = scan.Elements.at(dataTag);
    if (data.Length < count * (bits / 8))
      return Fail(error, "palette colour lookup table shorter than its descriptor says");
    const DicomValue& descriptor = scan.Elements.at(descriptorTag);
    f.LutDescriptor[c] = {scan.Bytes + descriptor.Offset, descriptor.Length};
    f.LutData[c] = {scan.Bytes + data.Offset, data.Length};
  }
  return true;
}
