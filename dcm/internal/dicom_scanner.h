// SPDX-License-Identifier: Apache-2.0
#pragma once

// The reader's own parse of a DICOM file held in memory, done once and before
// any codec runs. It trusts no length: every element, item and fragment must lie
// inside the bytes it was given. It keeps where the top-level attributes and the
// pixel data are, not copies of them (a deflated data set is inflated first, up
// to a ceiling).

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

enum class DicomEncoding { ImplicitLittle, ExplicitLittle, ExplicitBig };

// The value of one top-level element: where it lies in the scanned bytes.
struct DicomValue {
  std::size_t Offset = 0;
  std::size_t Length = 0;
};

// One fragment of encapsulated pixel data. ItemOffset counts from the first
// fragment's item tag, as the Basic Offset Table does.
struct DicomFragment {
  std::size_t Offset = 0;
  std::size_t Length = 0;
  std::size_t ItemOffset = 0;
};

struct DicomScan {
  const unsigned char* Bytes = nullptr; // the data set (the file's bytes or the inflated ones)
  std::size_t Size = 0;
  std::vector<unsigned char> Inflated;  // owns the bytes of a deflated data set
  std::string TransferSyntax;           // as the file meta says ("" when it says nothing)
  DicomEncoding Encoding = DicomEncoding::ExplicitLittle;
  bool HasPreamble = false;
  bool HasMeta = false;
  bool Deflated = false;
  std::map<uint32_t, DicomValue> Elements; // top level, by (group << 16 | element); sequences not kept
  std::size_t TopLevelCount = 0;           // top-level elements, sequences included

  bool HasPixelData = false;
  bool FloatPixelData = false;
  bool Encapsulated = false;
  DicomValue PixelData;                    // native pixel data
  std::vector<uint32_t> OffsetTable;       // Basic Offset Table of encapsulated data
  std::vector<DicomFragment> Fragments;

  bool Has(uint32_t tag) const { return Elements.count(tag) != 0; }
  // The index-th 16-bit value of a US/SS element, or fallback when absent or short.
  unsigned UShort(uint32_t tag, unsigned fallback, unsigned index = 0) const;
  // A text value without its padding ("" when absent).
  std::string Text(uint32_t tag) const;
  // The backslash-separated finite numbers of a DS/IS value; stops at the first bad one.
  std::vector<double> Numbers(uint32_t tag) const;
  bool BigEndian() const { return Encoding == DicomEncoding::ExplicitBig; }
};

class DicomScanner {
public:
  // maxInflated bounds the inflated size of a deflated data set.
  explicit DicomScanner(std::size_t maxInflated) : MaxInflated(maxInflated) {}

  // Fills scan from the size bytes at data (which must outlive it). False with
  // a reason when the bytes are not a DICOM file or do not hold together.
  bool Scan(const unsigned char* data, std::size_t size, DicomScan& scan, std::string& error) const;

private:
  std::size_t MaxInflated;
};

constexpr uint32_t DicomTag(uint16_t group, uint16_t element)
{
  return static_cast<uint32_t>(group) << 16 | element;
}
