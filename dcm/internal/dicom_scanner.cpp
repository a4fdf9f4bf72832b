// SPDX-License-Identifier: Apache-2.0
#include "dcm/internal/dicom_scanner.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t kUndefinedLength = 0xffffffffu;
constexpr uint32_t kItem = DicomTag(0xfffe, 0xe000);
constexpr uint32_t kItemEnd = DicomTag(0xfffe, 0xe00d);
constexpr uint32_t kSequenceEnd = DicomTag(0xfffe, 0xe0dd);
constexpr uint32_t kPixelData = DicomTag(0x7fe0, 0x0010);
constexpr int kMaxDepth = 32;                 // nesting of sequences
constexpr std::size_t kMaxFragments = 1u << 20;

std::string TagText(uint32_t tag)
{
  char text[16];
  std::snprintf(text, sizeof text, "(%04x,%04x)", tag >> 16, tag & 0xffff);
  return text;
}

bool IsUpper(unsigned char c) { return c >= 'A' && c <= 'Z'; }

// VRs whose explicit form has two reserved bytes and a 32-bit length.
bool HasLongLength(const unsigned char* vr)
{
  static const char* const kinds[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ", "SV", "UC", "UN", "UR", "UT", "UV"};
  for (const char* k : kinds)
    if (vr[0] == k[0] && vr[1] == k[1])
      return true;
  return false;
}

class Parser {
public:
  Parser(const unsigned char* bytes, std::size_t size, DicomScan& scan, std::string& error)
      : Bytes(bytes), Size(size), Scan(scan), Error(error)
  {
  }

  uint16_t U16(std::size_t at, bool big) const
  {
    return big ? static_cast<uint16_t>(Bytes[at] << 8 | Bytes[at + 1])
               : static_cast<uint16_t>(Bytes[at] | Bytes[at + 1] << 8);
  }
  uint32_t U32(std::size_t at, bool big) const
  {
    return big ? static_cast<uint32_t>(U16(at, true)) << 16 | U16(at + 2, true)
               : static_cast<uint32_t>(U16(at + 2, false)) << 16 | U16(at, false);
  }
  uint32_t TagAt(std::size_t at, bool big) const
  {
    return static_cast<uint32_t>(U16(at, big)) << 16 | U16(at + 2, big);
  }

  // The top-level data set from pos to the end of the bytes.
  bool DataSet(std::size_t pos, DicomEncoding encoding)
  {
    std::size_t end = Size;
    return Elements(pos, end, encoding, 0, false, end);
  }

private:
  bool Fail(const std::string& reason)
  {
    Error = reason;
    return false;
  }

  // Elements from pos up to end; inside an item of undefined length they stop at
  // its delimiter. next receives where parsing stopped.
  bool Elements(std::size_t pos, std::size_t end, DicomEncoding encoding, int depth, bool inItem, std::size_t& next)
  {
    const bool big = encoding == DicomEncoding::ExplicitBig;
    while (pos < end) {
      if (end - pos < 8) {
        if (depth == 0) // trailing padding after the last element
          break;
        return Fail("damaged data set: " + std::to_string(end - pos) + " stray bytes at the end of an item");
      }
      const uint32_t tag = TagAt(pos, big);
      if (tag == kItemEnd && inItem) {
        next = pos + 8;
        return true;
      }
      if ((tag >> 16) == 0xfffe)
        return Fail("damaged data set: item tag " + TagText(tag) + " where an element was expected");
      std::size_t header = 8;
      uint32_t length = 0;
      bool sequence = false;
      DicomEncoding inner = encoding;
      if (encoding == DicomEncoding::ImplicitLittle) {
        length = U32(pos + 4, false);
        sequence = length == kUndefinedLength;
      } else {
        const unsigned char* vr = Bytes + pos + 4;
        if (!IsUpper(vr[0]) || !IsUpper(vr[1]))
          return Fail("damaged data set: element " + TagText(tag) + " has no valid value representation");
        if (HasLongLength(vr)) {
          if (end - pos < 12)
            return Fail("damaged data set: element " + TagText(tag) + " cut short");
          header = 12;
          length = U32(pos + 8, big);
        } else {
          length = U16(pos + 6, big);
        }
        sequence = vr[0] == 'S' && vr[1] == 'Q';
        if (vr[0] == 'U' && vr[1] == 'N' && length == kUndefinedLength) {
          sequence = true; // a sequence of unknown VR is encoded implicit little endian
          inner = DicomEncoding::ImplicitLittle;
        }
      }
      const std::size_t value = pos + header;
      const bool top = depth == 0;
      if (top)
        ++Scan.TopLevelCount;
      if (length == kUndefinedLength) {
        if (top && tag == kPixelData) {
          if (!Encapsulated(value, end, big, pos))
            return false;
          continue;
        }
        if (!sequence && tag != kPixelData)
          return Fail("damaged data set: element " + TagText(tag) + " of undefined length is not a sequence");
        if (!UndefinedSequence(value, end, inner, depth + 1, pos))
          return false;
        continue;
      }
      if (length > end - value) {
        if (top && tag == kPixelData)
          return Fail("truncated pixel data (" + std::to_string(end - value) + " of " + std::to_string(length) +
                      " bytes)");
        return Fail("damaged data set: element " + TagText(tag) + " declares " + std::to_string(length) +
                    " bytes but only " + std::to_string(end - value) + " remain");
      }
      if (top)
        Record(tag, value, length);
      pos = value + length;
    }
    if (inItem)
      return Fail("damaged data set: an item of undefined length has no end");
    next = pos;
    return true;
  }

  void Record(uint32_t tag, std::size_t value, std::size_t length)
  {
    if (tag == kPixelData) {
      Scan.HasPixelData = true;
      Scan.PixelData = {value, length};
    } else if (tag == DicomTag(0x7fe0, 0x0008) || tag == DicomTag(0x7fe0, 0x0009)) {
      Scan.FloatPixelData = true;
    }
    Scan.Elements[tag] = {value, length};
  }

  // A sequence of undefined length: items up to the sequence delimiter.
  bool UndefinedSequence(std::size_t pos, std::size_t end, DicomEncoding encoding, int depth, std::size_t& next)
  {
    if (depth > kMaxDepth)
      return Fail("damaged data set: sequences nested deeper than " + std::to_string(kMaxDepth));
    const bool big = encoding == DicomEncoding::ExplicitBig;
    while (true) {
      if (end - pos < 8)
        return Fail("damaged data set: a sequence of undefined length has no end");
      const uint32_t tag = TagAt(pos, big);
      const uint32_t length = U32(pos + 4, big);
      if (tag == kSequenceEnd) {
        next = pos + 8;
        return true;
      }
      if (tag != kItem)
        return Fail("damaged data set: " + TagText(tag) + " inside a sequence where an item was expected");
      if (length == kUndefinedLength) {
        if (!Elements(pos + 8, end, encoding, depth, true, pos))
          return false;
      } else {
        if (length > end - pos - 8)
          return Fail("damaged data set: a sequence item declares " + std::to_string(length) + " bytes but only " +
                      std::to_string(end - pos - 8) + " remain");
        pos += 8 + length;
      }
    }
  }

  // Encapsulated pixel data: the offset table, then the fragments.
  bool Encapsulated(std::size_t pos, std::size_t end, bool big, std::size_t& next)
  {
    Scan.HasPixelData = true;
    Scan.Encapsulated = true;
    bool first = true;
    std::size_t firstFragment = 0;
    while (true) {
      if (end - pos < 8)
        return Fail("damaged pixel data: the fragments have no end (file cut short?)");
      const uint32_t tag = TagAt(pos, big);
      const uint32_t length = U32(pos + 4, big);
      if (tag == kSequenceEnd) {
        next = pos + 8;
        Scan.Elements[kPixelData] = {0, 0};
        return true;
      }
      if (tag != kItem)
        return Fail("damaged pixel data: " + TagText(tag) + " where a fragment was expected");
      if (length == kUndefinedLength || length > end - pos - 8)
        return Fail("damaged pixel data: a fragment declares " + std::to_string(length) + " bytes but only " +
                    std::to_string(end - pos - 8) + " remain");
      if (first) {
        for (std::size_t i = 0; i + 4 <= length; i += 4)
          Scan.OffsetTable.push_back(U32(pos + 8 + i, big));
        first = false;
        firstFragment = pos + 8 + length;
      } else {
        if (Scan.Fragments.size() >= kMaxFragments)
          return Fail("damaged pixel data: more than " + std::to_string(kMaxFragments) + " fragments");
        Scan.Fragments.push_back({pos + 8, length, pos - firstFragment});
      }
      pos += 8 + length;
    }
  }

  const unsigned char* Bytes;
  std::size_t Size;
  DicomScan& Scan;
  std::string& Error;
};

bool ExplicitVrAt(const unsigned char* bytes, std::size_t size, std::size_t pos)
{
  return size - pos >= 8 && IsUpper(bytes[pos + 4]) && IsUpper(bytes[pos + 5]);
}

// Where the file meta information ends; records the transfer syntax.
bool ReadMeta(const unsigned char* bytes, std::size_t size, std::size_t& pos, DicomScan& scan, std::string& error)
{
  Parser reader(bytes, size, scan, error);
  while (size - pos >= 8 && reader.U16(pos, false) == 0x0002) {
    if (!ExplicitVrAt(bytes, size, pos)) {
      error = "damaged file meta information";
      return false;
    }
    const uint16_t element = reader.U16(pos + 2, false);
    std::size_t header = 8;
    uint32_t length = reader.U16(pos + 6, false);
    if (HasLongLength(bytes + pos + 4)) {
      if (size - pos < 12) {
        error = "damaged file meta information";
        return false;
      }
      header = 12;
      length = reader.U32(pos + 8, false);
    }
    if (length > size - pos - header) {
      error = "damaged file meta information: element (0002," + std::to_string(element) + ") runs past the end";
      return false;
    }
    if (element == 0x0010) {
      std::string uid(reinterpret_cast<const char*>(bytes + pos + header), length);
      while (!uid.empty() && (uid.back() == '\0' || uid.back() == ' '))
        uid.pop_back();
      scan.TransferSyntax = uid;
    }
    pos += header + length;
    scan.HasMeta = true;
  }
  return true;
}

// Guesses the encoding of a data set that the meta does not describe.
DicomEncoding GuessEncoding(const unsigned char* bytes, std::size_t size, std::size_t pos)
{
  if (size - pos < 8)
    return DicomEncoding::ImplicitLittle;
  const unsigned little = bytes[pos] | bytes[pos + 1] << 8;
  const unsigned big = bytes[pos] << 8 | bytes[pos + 1];
  if (!ExplicitVrAt(bytes, size, pos))
    return DicomEncoding::ImplicitLittle;
  return big < little ? DicomEncoding::ExplicitBig : DicomEncoding::ExplicitLittle;
}

// A data set without preamble or meta must at least start with an element of
// a low, even group (0008 usually), in either byte order.
bool PlausibleFirstElement(const unsigned char* bytes, std::size_t size)
{
  if (size < 8)
    return false;
  const unsigned little = bytes[0] | bytes[1] << 8;
  const unsigned big = bytes[0] << 8 | bytes[1];
  auto plausible = [](unsigned group) { return group >= 0x0004 && group <= 0x0028 && group % 2 == 0; };
  return plausible(little) || plausible(big);
}

bool Inflate(const unsigned char* bytes, std::size_t size, std::size_t limit, std::vector<unsigned char>& out,
             std::string& error)
{
  z_stream z{};
  if (inflateInit2(&z, -MAX_WBITS) != Z_OK) {
    error = "cannot inflate the deflated data set";
    return false;
  }
  z.next_in = const_cast<unsigned char*>(bytes);
  z.avail_in = static_cast<uInt>(std::min<std::size_t>(size, 0x7fffffff));
  out.resize(std::min<std::size_t>(limit, std::max<std::size_t>(size * 4, 4096)));
  int status = Z_OK;
  while (status == Z_OK) {
    if (z.total_out == out.size()) {
      if (out.size() >= limit)
        break;
      out.resize(std::min(limit, out.size() * 2));
    }
    z.next_out = out.data() + z.total_out;
    z.avail_out = static_cast<uInt>(std::min<std::size_t>(out.size() - z.total_out, 0x7fffffff));
    status = inflate(&z, Z_NO_FLUSH);
  }
  const std::size_t produced = z.total_out;
  inflateEnd(&z);
  if (status != Z_STREAM_END) {
    error = status == Z_OK ? "the deflated data set inflates beyond the read limit" : "damaged deflated data set";
    return false;
  }
  out.resize(produced);
  return true;
}

} // namespace

bool DicomScanner::Scan(const unsigned char* data, std::size_t size, DicomScan& scan, std::string& error) const
{
  scan = DicomScan{};
  std::size_t pos = 0;
  if (size >= 132 && std::memcmp(data + 128, "DICM", 4) == 0) {
    scan.HasPreamble = true;
    pos = 132;
  }
  if (!ReadMeta(data, size, pos, scan, error))
    return false;
  if (!scan.HasPreamble && !scan.HasMeta && !PlausibleFirstElement(data, size)) {
    error = "not a DICOM file (no preamble, no file meta information, no data set)";
    return false;
  }
  const std::string& ts = scan.TransferSyntax;
  if (ts == "1.2.840.10008.1.2")
    scan.Encoding = DicomEncoding::ImplicitLittle;
  else if (ts == "1.2.840.10008.1.2.2")
    scan.Encoding = DicomEncoding::ExplicitBig;
  else if (ts.empty())
    scan.Encoding = GuessEncoding(data, size, pos);
  else
    scan.Encoding = DicomEncoding::ExplicitLittle;
  // A data set that says explicit but is written implicit is read as it is written.
  if (scan.Encoding != DicomEncoding::ImplicitLittle && !ExplicitVrAt(data, size, pos) && size - pos >= 8)
    scan.Encoding = DicomEncoding::ImplicitLittle;
  scan.Bytes = data;
  scan.Size = size;
  if (ts == "1.2.840.10008.1.2.1.99") {
    scan.Deflated = true;
    if (!Inflate(data + pos, size - pos, MaxInflated, scan.Inflated, error))
      return false;
    scan.Bytes = scan.Inflated.data();
    scan.Size = scan.Inflated.size();
    scan.Encoding = DicomEncoding::ExplicitLittle;
    pos = 0;
  }
  Parser parser(scan.Bytes, scan.Size, scan, error);
  if (!parser.DataSet(pos, scan.Encoding)) {
    // What follows the pixel data does not stop a read of the pixels.
    if (!scan.HasPixelData || (scan.Encapsulated && scan.Fragments.empty()))
      return false;
    error.clear();
  }
  return true;
}

unsigned DicomScan::UShort(uint32_t tag, unsigned fallback, unsigned index) const
{
  const auto it = Elements.find(tag);
  if (it == Elements.end() || it->second.Length < 2 * (index + 1))
    return fallback;
  const unsigned char* p = Bytes + it->second.Offset + 2 * index;
  return BigEndian() ? (p[0] << 8 | p[1]) : (p[0] | p[1] << 8);
}

std::string DicomScan::Text(uint32_t tag) const
{
  const auto it = Elements.find(tag);
  if (it == Elements.end())
    return "";
  std::string s(reinterpret_cast<const char*>(Bytes + it->second.Offset), it->second.Length);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\0'))
    s.pop_back();
  std::size_t first = 0;
  while (first < s.size() && s[first] == ' ')
    ++first;
  return s.substr(first);
}

std::vector<double> DicomScan::Numbers(uint32_t tag) const
{
  std::vector<double> values;
  const std::string text = Text(tag);
  std::size_t start = 0;
  while (!text.empty() && start <= text.size()) {
    const std::size_t end = std::min(text.find('\\', start), text.size());
    const std::string item = text.substr(start, end - start);
    char* stop = nullptr;
    const double v = std::strtod(item.c_str(), &stop);
    if (item.empty() || stop == item.c_str() || !std::isfinite(v))
      break;
    values.push_back(v);
    start = end + 1;
  }
  return values;
}
