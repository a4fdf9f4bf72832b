// SPDX-License-Identifier: Apache-2.0
#pragma once

// One frame of a scanned DICOM file, checked and ready for its decoder: the
// image-pixel attributes validated against each other, against the pixel data
// and against the codec's own header, the frame's bytes located, and the
// decoded size checked against the read limit. Nothing here decodes.

#include "dcm/internal/codec_header.h"
#include "dcm/internal/dicom_scanner.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

// A byte range inside the scanned bytes.
using DicomSpan = std::pair<const unsigned char*, std::size_t>;

struct DicomFrame {
  unsigned Cols = 0, Rows = 0, Samples = 1;
  unsigned BitsAllocated = 16, BitsStored = 16, HighBit = 15, PixelRepresentation = 0;
  unsigned Planar = 0;
  std::string Photometric; // as the file says, e.g. "MONOCHROME2", "YBR_FULL_422"
  unsigned long Frames = 1;
  unsigned Frame = 0;
  std::string TransferSyntax; // UID for the decoder (a deflated file's inflated data set is native)
  CodecKind Codec = CodecKind::Native;
  bool BigEndian = false;

  std::vector<unsigned char> Native;  // the frame's stored bytes, native files
  std::vector<DicomSpan> Fragments;   // the frame's fragments, encapsulated files
  DicomSpan LutDescriptor[3] = {};    // palette colour: red, green, blue
  DicomSpan LutData[3] = {};

  std::size_t PixelCount() const { return static_cast<std::size_t>(Cols) * Rows; }
};

class DicomFramePlanner {
public:
  explicit DicomFramePlanner(std::size_t maxDecodedBytes) : MaxDecodedBytes(maxDecodedBytes) {}

  // Checks the image of scan and locates frame `frame`. False with a reason.
  bool Plan(const DicomScan& scan, unsigned frame, DicomFrame& out, std::string& error) const;

private:
  bool ReadModule(const DicomScan& scan, DicomFrame& f, std::string& error) const;
  bool CheckCombination(const DicomFrame& f, std::string& error) const;
  bool LocateNative(const DicomScan& scan, DicomFrame& f, std::string& error) const;
  bool LocateFragments(const DicomScan& scan, DicomFrame& f, std::string& error) const;
  bool CheckCodecHeader(DicomFrame& f, std::string& error) const;
  bool LocatePalette(const DicomScan& scan, DicomFrame& f, std::string& error) const;

  std::size_t MaxDecodedBytes;
};
