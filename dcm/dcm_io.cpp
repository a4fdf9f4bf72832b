#include "dcm/dcm_io.h"

#include <gdcmDataSet.h>
#include <gdcmImage.h>
#include <gdcmImageApplyLookupTable.h>
#include <gdcmImageReader.h>
#include <gdcmPixelFormat.h>
#include <gdcmReader.h>
#include <gdcmTrace.h>
#include <gdcmTransferSyntax.h>
#include <gdcmUIDGenerator.h>
#include <gdcmUIDs.h>
#include <gdcmWriter.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstdint>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <vector>

namespace {

// GDCM reports problems on its own streams; the reasons given here replace them.
void QuietGdcm()
{
  gdcm::Trace::WarningOff();
  gdcm::Trace::ErrorOff();
  gdcm::Trace::DebugOff();
}

// A text attribute without its padding, or "" when absent.
std::string GetString(const gdcm::DataSet& ds, uint16_t group, uint16_t element)
{
  const gdcm::Tag tag(group, element);
  if (!ds.FindDataElement(tag))
    return "";
  const gdcm::ByteValue* bv = ds.GetDataElement(tag).GetByteValue();
  if (bv == nullptr || bv->GetPointer() == nullptr)
    return "";
  std::string s(bv->GetPointer(), bv->GetLength());
  while (!s.empty() && (s.back() == ' ' || s.back() == '\0'))
    s.pop_back();
  std::size_t first = 0;
  while (first < s.size() && s[first] == ' ')
    ++first;
  return s.substr(first);
}

// The values of a decimal-string attribute ("0.5\\0.5"); stops at the first bad one.
std::vector<double> GetNumbers(const gdcm::DataSet& ds, uint16_t group, uint16_t element)
{
  std::vector<double> values;
  const std::string text = GetString(ds, group, element);
  std::size_t start = 0;
  while (start <= text.size() && !text.empty()) {
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

// The precision p that a Rescale Slope of exactly 1/p stands for, else 1.
short PrecisionFromSlope(double slope)
{
  if (slope <= 0.0 || slope >= 1.0)
    return 1;
  const double p = std::round(1.0 / slope);
  if (p < 2 || p > 32767 || std::fabs(1.0 / slope - p) > 1e-6 * p)
    return 1;
  return static_cast<short>(p);
}

bool Fail(std::string* error, const std::string& reason)
{
  if (error != nullptr)
    *error = reason;
  return false;
}

// A file that cannot be a DICOM file is refused before GDCM parses it.
bool CheckFile(const std::string& path, std::string* error)
{
  struct stat info {};
  if (stat(path.c_str(), &info) != 0)
    return Fail(error, path + ": " + std::strerror(errno));
  if (S_ISDIR(info.st_mode))
    return Fail(error, path + ": is a directory");
  if (info.st_size == 0)
    return Fail(error, path + ": empty file");
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr)
    return Fail(error, path + ": " + std::strerror(errno));
  std::fclose(f);
  return true;
}

std::unique_ptr<DCM_STRUCT> Refuse(std::string* error, const std::string& reason)
{
  Fail(error, reason);
  return nullptr;
}

std::string UidName(const std::string& uid)
{
  gdcm::UIDs known;
  if (uid.empty() || !known.SetFromUID(uid.c_str()) || known.GetName() == nullptr)
    return uid.empty() ? "unknown" : uid;
  return known.GetName();
}

// What the attributes before the pixel data say, read without the pixel data:
// files that GDCM's image reader would misread or abort on are refused here.
struct FilePreamble {
  bool deflated = false;
  bool bigEndian = false;
  bool implicit = false;
};

bool ReadPreamble(const std::string& path, FilePreamble& pre, std::string* error)
{
  gdcm::Reader reader;
  reader.SetFileName(path.c_str());
  if (!reader.ReadUpToTag(gdcm::Tag(0x7fe0, 0x0010)))
    return Fail(error, path + ": not a DICOM file (no DICOM preamble or file meta information, or damaged beyond reading)");
  const gdcm::DataSet& ds = reader.GetFile().GetDataSet();
  const bool hasFrames = ds.FindDataElement(gdcm::Tag(0x0028, 0x0008));
  if (hasFrames) {
    const std::string text = GetString(ds, 0x0028, 0x0008);
    char* end = nullptr;
    const long n = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || n < 1)
      return Fail(error, path + ": invalid Number of Frames '" + text + "'");
  } else if (ds.FindDataElement(gdcm::Tag(0x0028, 0x0009)) || ds.FindDataElement(gdcm::Tag(0x5200, 0x9230)) ||
             ds.FindDataElement(gdcm::Tag(0x5200, 0x9229))) {
    // Multi-frame modules without their frame count make GDCM's image reader abort.
    return Fail(error, path + ": multi-frame image (" + UidName(GetString(ds, 0x0008, 0x0016)) +
                           ") without Number of Frames");
  }
  const gdcm::TransferSyntax ts = reader.GetFile().GetHeader().GetDataSetTransferSyntax();
  pre.deflated = ts == gdcm::TransferSyntax::DeflatedExplicitVRLittleEndian;
  pre.bigEndian = ts == gdcm::TransferSyntax::ExplicitVRBigEndian;
  pre.implicit = ts == gdcm::TransferSyntax::ImplicitVRLittleEndian;
  return true;
}

// Photometric code of a monochrome file; colour files become MONOCHROME2.
unsigned short PhotometricCode(gdcm::PhotometricInterpretation::PIType pi)
{
  return pi == gdcm::PhotometricInterpretation::MONOCHROME1 ? 0 : 1;
}

// The stored value of one sample, masked to BitsStored and sign-extended when
// Pixel Representation says two's complement.
class SampleDecoder {
public:
  SampleDecoder(const gdcm::PixelFormat& pf, bool swapWords)
      : Bytes(pf.GetBitsAllocated() / 8), SwapWords(swapWords && Bytes == 4), Stored(pf.GetBitsStored()),
        Shift(pf.GetHighBit() + 1 >= pf.GetBitsStored() ? pf.GetHighBit() + 1 - pf.GetBitsStored() : 0),
        Signed(pf.GetPixelRepresentation() == 1)
  {
  }

  long long operator()(const unsigned char* p) const
  {
    unsigned long long raw = 0;
    for (unsigned b = 0; b < Bytes; ++b) // GDCM hands buffers in host (little endian) order
      raw |= static_cast<unsigned long long>(p[b]) << (8 * b);
    if (SwapWords)
      raw = ((raw & 0xffff) << 16) | (raw >> 16);
    raw >>= Shift;
    if (Stored < 64)
      raw &= (1ULL << Stored) - 1;
    long long v = static_cast<long long>(raw);
    if (Signed && Stored < 64 && (raw >> (Stored - 1)) != 0)
      v -= 1LL << Stored;
    return v;
  }

  unsigned Bytes;

private:
  bool SwapWords;
  unsigned Stored;
  unsigned Shift;
  bool Signed;
};

struct FrameLayout {
  unsigned cols, rows, samples;
  bool planar;   // samples stored plane after plane
  bool ybr422;   // Y1 Y2 Cb Cr for each pair of pixels, as stored
};

// BT.601 luminance of R, G, B.
long long Luminance(long long r, long long g, long long b)
{
  return std::llround(0.299 * static_cast<double>(r) + 0.587 * static_cast<double>(g) + 0.114 * static_cast<double>(b));
}

bool IsYbr(gdcm::PhotometricInterpretation::PIType pi)
{
  using PI = gdcm::PhotometricInterpretation;
  return pi == PI::YBR_FULL || pi == PI::YBR_FULL_422 || pi == PI::YBR_PARTIAL_422 || pi == PI::YBR_PARTIAL_420;
}

// Grey value of pixel (c, r) of a frame starting at base.
long long GreyValue(const unsigned char* base, const FrameLayout& f, const SampleDecoder& decode,
                    gdcm::PhotometricInterpretation::PIType pi, unsigned c, unsigned r)
{
  const std::size_t pixel = static_cast<std::size_t>(r) * f.cols + c;
  const std::size_t plane = static_cast<std::size_t>(f.cols) * f.rows;
  if (f.samples == 1)
    return decode(base + pixel * decode.Bytes);
  if (f.ybr422) // the luminance sample of each pixel of a pair
    return decode(base + ((pixel / 2) * 4 + pixel % 2) * decode.Bytes);
  auto sample = [&](unsigned s) {
    const std::size_t index = f.planar ? s * plane + pixel : pixel * f.samples + s;
    return decode(base + index * decode.Bytes);
  };
  if (IsYbr(pi)) // Y is the luminance already
    return sample(0);
  return Luminance(sample(0), sample(1), sample(2));
}

void ReadGeometry(const gdcm::DataSet& ds, DCM_HEADER& h)
{
  const std::vector<double> spacing = GetNumbers(ds, 0x0028, 0x0030);
  if (spacing.size() >= 2 && spacing[0] > 0 && spacing[1] > 0) {
    h.PixelSpacing[0] = spacing[0];
    h.PixelSpacing[1] = spacing[1];
  } else {
    const std::vector<double> imager = GetNumbers(ds, 0x0018, 0x1164); // Imager Pixel Spacing
    if (imager.size() >= 2 && imager[0] > 0 && imager[1] > 0) {
      h.PixelSpacing[0] = imager[0];
      h.PixelSpacing[1] = imager[1];
    }
  }
  const std::vector<double> position = GetNumbers(ds, 0x0020, 0x0032);
  if (position.size() >= 3)
    for (int i = 0; i < 3; ++i)
      h.ImagePosition[i] = position[i];
  const std::vector<double> orientation = GetNumbers(ds, 0x0020, 0x0037);
  if (orientation.size() >= 6)
    for (int i = 0; i < 3; ++i) {
      h.RowDirection[i] = orientation[i];
      h.ColumnDirection[i] = orientation[i + 3];
    }
}

void ReadDescription(const gdcm::DataSet& ds, DCM_HEADER& h)
{
  auto text = [&](uint16_t g, uint16_t e, std::string& field) {
    const std::string v = GetString(ds, g, e);
    if (!v.empty())
      field = v;
  };
  text(0x0008, 0x0060, h.Modality);
  text(0x0010, 0x0010, h.PatientName);
  text(0x0010, 0x0020, h.PatientID);
  text(0x0020, 0x000d, h.StudyInstanceUID);
  text(0x0020, 0x000e, h.SeriesInstanceUID);
  text(0x0008, 0x0018, h.SOPInstanceUID);
  text(0x0008, 0x0016, h.SOPClassUID);
  text(0x0020, 0x0052, h.FrameOfReferenceUID);
  const std::vector<double> slope = GetNumbers(ds, 0x0028, 0x1053);
  const std::vector<double> intercept = GetNumbers(ds, 0x0028, 0x1052);
  if (!slope.empty() && slope[0] != 0.0)
    h.RescaleSlope = slope[0];
  if (!intercept.empty())
    h.RescaleIntercept = intercept[0];
  const std::vector<double> center = GetNumbers(ds, 0x0028, 0x1050);
  const std::vector<double> width = GetNumbers(ds, 0x0028, 0x1051);
  if (!center.empty() && !width.empty() && width[0] > 0) {
    h.WindowCenter = center[0];
    h.WindowWidth = width[0];
  }
}

bool CheckPixelFormat(const gdcm::PixelFormat& pf, const std::string& path, std::string* error)
{
  const unsigned allocated = pf.GetBitsAllocated();
  if (pf.GetScalarType() == gdcm::PixelFormat::FLOAT32 || pf.GetScalarType() == gdcm::PixelFormat::FLOAT64)
    return Fail(error, path + ": floating-point pixels are not supported");
  if (allocated != 1 && allocated != 8 && allocated != 16 && allocated != 32)
    return Fail(error, path + ": " + std::to_string(allocated) + " bits allocated per sample is not supported");
  if (pf.GetBitsStored() == 0 || pf.GetBitsStored() > allocated)
    return Fail(error, path + ": invalid Bits Stored " + std::to_string(pf.GetBitsStored()));
  if (pf.GetSamplesPerPixel() != 1 && pf.GetSamplesPerPixel() != 3)
    return Fail(error, path + ": " + std::to_string(pf.GetSamplesPerPixel()) + " samples per pixel is not supported");
  return true;
}

// Bytes that the last Pixel Data element of the file declares and holds; GDCM
// pads a truncated element silently, so the file itself is looked at.
bool PixelDataTruncated(const std::string& path, const FilePreamble& pre, std::size_t& declared, std::size_t& held)
{
  std::ifstream in(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const std::string tag = pre.bigEndian ? std::string("\x7f\xe0\x00\x10", 4) : std::string("\xe0\x7f\x10\x00", 4);
  const std::size_t at = bytes.rfind(tag);
  const std::size_t lengthAt = at + (pre.implicit ? 4 : 8);
  if (at == std::string::npos || lengthAt + 4 > bytes.size())
    return false;
  uint32_t length = 0;
  for (int b = 0; b < 4; ++b) {
    const auto byte = static_cast<unsigned char>(bytes[lengthAt + (pre.bigEndian ? 3 - b : b)]);
    length |= static_cast<uint32_t>(byte) << (8 * b);
  }
  if (length == 0xffffffffu)
    return false; // encapsulated
  declared = length;
  held = bytes.size() - (lengthAt + 4);
  return held < declared;
}

bool CheckUncompressedLength(const std::string& path, const FilePreamble& pre, std::size_t expected,
                             std::string* error)
{
  std::size_t declared = 0, held = 0;
  if (pre.deflated)
    return true;
  if (PixelDataTruncated(path, pre, declared, held))
    return Fail(error, path + ": truncated pixel data (" + std::to_string(held) + " of " +
                           std::to_string(declared) + " bytes)");
  if (declared != 0 && declared < expected)
    return Fail(error, path + ": pixel data too short (" + std::to_string(declared) + " of " +
                           std::to_string(expected) + " bytes)");
  return true;
}

// The uncompressed 32-bit samples of the Pixel Data element in little endian order.
bool RawSamples(const gdcm::Image& image, bool bigEndian, std::vector<char>& out)
{
  const gdcm::ByteValue* bv = image.GetDataElement().GetByteValue();
  if (bv == nullptr || bv->GetPointer() == nullptr)
    return false;
  out.assign(bv->GetPointer(), bv->GetPointer() + bv->GetLength());
  if (bigEndian)
    for (std::size_t i = 0; i + 4 <= out.size(); i += 4) {
      std::swap(out[i], out[i + 3]);
      std::swap(out[i + 1], out[i + 2]);
    }
  return true;
}

} // namespace

std::unique_ptr<DCM_STRUCT> Dcm_ReadFile(const std::string& path, std::string* error, unsigned frame)
{
  QuietGdcm();
  if (!CheckFile(path, error))
    return nullptr;
  FilePreamble pre;
  if (!ReadPreamble(path, pre, error))
    return nullptr;
  gdcm::ImageReader reader;
  reader.SetFileName(path.c_str());
  if (!reader.Read()) {
    gdcm::Reader plain;
    plain.SetFileName(path.c_str());
    const bool parsed = plain.Read();
    const gdcm::DataSet& all = plain.GetFile().GetDataSet();
    const bool hasPixels = parsed && all.FindDataElement(gdcm::Tag(0x7fe0, 0x0010));
    const std::string sopClass = parsed ? UidName(GetString(all, 0x0008, 0x0016)) : "unreadable";
    return Refuse(error, path + (hasPixels ? ": the image attributes of this DICOM file cannot be read"
                                           : ": DICOM file without an image (" + sopClass + ")"));
  }
  const gdcm::DataSet& ds = reader.GetFile().GetDataSet();
  gdcm::Image image = reader.GetImage();
  using PI = gdcm::PhotometricInterpretation;
  const PI::PIType sourcePi = image.GetPhotometricInterpretation();
  if (sourcePi == PI::PALETTE_COLOR) {
    gdcm::ImageApplyLookupTable lut;
    lut.SetInput(image);
    if (!lut.Apply())
      return Refuse(error, path + ": cannot apply the palette colour lookup table");
    image = lut.GetOutput();
  }
  const gdcm::PixelFormat pf = image.GetPixelFormat();
  if (!CheckPixelFormat(pf, path, error))
    return nullptr;

  const unsigned cols = image.GetDimension(0), rows = image.GetDimension(1);
  const unsigned frames = image.GetNumberOfDimensions() > 2 ? image.GetDimension(2) : 1;
  if (cols == 0 || rows == 0)
    return Refuse(error, path + ": image without rows or columns");
  if (cols > DCM_STRUCT::MaxSide || rows > DCM_STRUCT::MaxSide)
    return Refuse(error, path + ": image larger than 65535 columns or rows");
  if (frame >= frames)
    return Refuse(error, path + ": frame " + std::to_string(frame) + " out of range (the file has " +
                             std::to_string(frames) + (frames == 1 ? " frame)" : " frames)"));

  const unsigned samples = pf.GetSamplesPerPixel();
  const std::size_t plane = static_cast<std::size_t>(cols) * rows;
  const std::size_t bitsPerFrame = plane * samples * pf.GetBitsAllocated();
  const std::size_t bytesPerFrame = (bitsPerFrame + 7) / 8;
  const PI::PIType pi = image.GetPhotometricInterpretation();
  const bool subsampled = samples == 3 && (pi == PI::YBR_FULL_422 || pi == PI::YBR_PARTIAL_422);
  const std::size_t storedFrameBytes = subsampled ? plane * 2 * (pf.GetBitsAllocated() / 8) : bytesPerFrame;
  if (!image.GetTransferSyntax().IsEncapsulated() &&
      !CheckUncompressedLength(path, pre,
                               pf.GetBitsAllocated() == 1 ? (bitsPerFrame * frames + 7) / 8 : storedFrameBytes * frames,
                               error))
    return nullptr;

  // GDCM aborts when it clears the unused bits of 32-bit samples: those are
  // taken from the element as stored (the decoder masks them) when uncompressed.
  const bool partial32 = pf.GetBitsAllocated() == 32 && pf.GetBitsStored() != 32;
  if (partial32 && image.GetTransferSyntax().IsEncapsulated())
    return Refuse(error, path + ": compressed 32-bit samples with " + std::to_string(pf.GetBitsStored()) +
                             " bits stored are not supported");
  std::vector<char> buffer;
  if (partial32) {
    if (!RawSamples(image, pre.bigEndian, buffer))
      return Refuse(error, path + ": unreadable pixel data");
  } else {
    buffer.resize(image.GetBufferLength());
    if (buffer.empty() || !image.GetBuffer(buffer.data()))
      return Refuse(error, path + ": cannot decode the pixel data (" +
                               Dcm_TransferSyntaxName(image.GetTransferSyntax().GetString()) + ")");
  }

  FrameLayout layout{cols, rows, samples, image.GetPlanarConfiguration() == 1, false};
  std::size_t frameBytes = bytesPerFrame;
  if (subsampled && buffer.size() == storedFrameBytes * frames) {
    layout.ybr422 = true; // kept subsampled by the decoder
    frameBytes = storedFrameBytes;
  }
  if (buffer.size() < frameBytes * frames)
    return Refuse(error, path + ": truncated pixel data (" + std::to_string(buffer.size()) + " of " +
                             std::to_string(frameBytes * frames) + " bytes)");

  auto out = std::make_unique<DCM_STRUCT>(cols, rows, nullptr);
  int* pixels = out->Data->GetIDataAddress();
  const unsigned char* base = reinterpret_cast<const unsigned char*>(buffer.data());
  if (pf.GetBitsAllocated() == 1) {
    const std::size_t first = plane * frame; // bits, least significant first
    for (std::size_t i = 0; i < plane; ++i)
      pixels[i] = (base[(first + i) / 8] >> ((first + i) % 8)) & 1;
  } else {
    // GDCM swaps big endian 32-bit samples as 16-bit words: the halves are put back.
    const SampleDecoder decode(pf, pre.bigEndian && !partial32);
    const unsigned char* frameBase = base + frameBytes * frame;
    for (unsigned r = 0; r < rows; ++r)
      for (unsigned c = 0; c < cols; ++c) {
        const long long v = GreyValue(frameBase, layout, decode, pi, c, r);
        if (v > INT_MAX || v < INT_MIN)
          return Refuse(error, path + ": pixel value " + std::to_string(v) + " does not fit a signed 32-bit pixel");
        pixels[static_cast<std::size_t>(r) * cols + c] = static_cast<int>(v);
      }
  }
  out->Data->SetMin();
  out->Data->SetMax();

  DCM_HEADER h = out->GetHeader();
  h.BitsAllocated = static_cast<short>(pf.GetBitsAllocated());
  h.BitsStored = static_cast<short>(pf.GetBitsStored());
  h.HighBit = static_cast<short>(pf.GetBitsStored() - 1);
  h.PixelRepresentation = pf.GetPixelRepresentation();
  h.PhotometricInterpretation = PhotometricCode(sourcePi);
  h.SamplesPerPixel = 1;
  h.NumberOfFrames = static_cast<int>(frames);
  h.Frame = static_cast<int>(frame);
  h.TransferSyntax = image.GetTransferSyntax().GetString() ? image.GetTransferSyntax().GetString() : "";
  h.SourcePhotometric = PI::GetPIString(sourcePi) ? PI::GetPIString(sourcePi) : "";
  while (!h.SourcePhotometric.empty() && h.SourcePhotometric.back() == ' ')
    h.SourcePhotometric.pop_back();
  ReadGeometry(ds, h);
  ReadDescription(ds, h);
  out->SetHeader(h);
  out->Data->SetRGB(samples == 3);
  out->Data->SetPrecision(PrecisionFromSlope(h.RescaleSlope));
  if (error != nullptr)
    error->clear();
  return out;
}

namespace {

// Pads a value to the even length that DICOM requires: UIDs with a NUL, text with a space.
void PutString(gdcm::DataSet& ds, uint16_t group, uint16_t element, gdcm::VR vr, std::string value)
{
  if (value.size() % 2 != 0)
    value.push_back(vr == gdcm::VR::UI ? '\0' : ' ');
  gdcm::DataElement de(gdcm::Tag(group, element));
  de.SetVR(vr);
  de.SetByteValue(value.data(), static_cast<uint32_t>(value.size()));
  ds.Replace(de);
}

void PutUShort(gdcm::DataSet& ds, uint16_t group, uint16_t element, unsigned short value)
{
  const unsigned char bytes[2] = {static_cast<unsigned char>(value & 0xff), static_cast<unsigned char>(value >> 8)};
  gdcm::DataElement de(gdcm::Tag(group, element));
  de.SetVR(gdcm::VR::US);
  de.SetByteValue(reinterpret_cast<const char*>(bytes), 2);
  ds.Replace(de);
}

// Shortest decimal form that reads back as the same double (DS holds 16 characters).
std::string Decimal(double v)
{
  char text[32];
  for (int digits = 6; digits <= 17; ++digits) {
    std::snprintf(text, sizeof text, "%.*g", digits, v);
    if (std::strtod(text, nullptr) == v && std::strlen(text) <= 16)
      return text;
  }
  std::snprintf(text, sizeof text, "%.10g", v);
  return text;
}

std::string Decimals(const double* values, int n)
{
  std::string s;
  for (int i = 0; i < n; ++i)
    s += (i ? "\\" : "") + Decimal(values[i]);
  return s;
}

bool ValidUid(const std::string& uid)
{
  if (uid.empty() || uid.size() > 64)
    return false;
  return std::all_of(uid.begin(), uid.end(), [](char c) { return c == '.' || (c >= '0' && c <= '9'); });
}

std::string UidOrNew(const std::string& uid)
{
  if (ValidUid(uid))
    return uid;
  gdcm::UIDGenerator generator;
  return generator.Generate();
}

// Bits that hold every pixel: the header's when they suffice, else the fewest.
struct StoredFormat {
  unsigned short allocated, stored, representation;
};

StoredFormat Widen(unsigned short stored, bool isSigned)
{
  const unsigned short allocated = stored <= 8 ? 8 : stored <= 16 ? 16 : 32;
  return {allocated, stored, static_cast<unsigned short>(isSigned ? 1 : 0)};
}

StoredFormat ChooseFormat(const DCM_HEADER& h, int mn, int mx)
{
  const bool negative = mn < 0;
  auto holds = [&](int bits, bool isSigned) {
    if (bits <= 0 || bits > 32)
      return false;
    const long long hi = isSigned ? (1LL << (bits - 1)) - 1 : (1LL << bits) - 1;
    const long long lo = isSigned ? -(1LL << (bits - 1)) : 0;
    return mn >= lo && mx <= hi;
  };
  const bool headerSigned = h.PixelRepresentation == 1 || negative;
  if (holds(h.BitsStored, headerSigned))
    return Widen(static_cast<unsigned short>(h.BitsStored), headerSigned);
  for (int bits = 1; bits <= 32; ++bits)
    if (holds(bits, negative))
      return Widen(static_cast<unsigned short>(bits), negative);
  return {32, 32, 1};
}

std::vector<char> PackPixels(const DCM_DATA& data, unsigned bytes)
{
  std::vector<char> out(data.GetSize() * bytes + (data.GetSize() * bytes) % 2, 0);
  const int* p = data.GetIDataAddress();
  for (std::size_t i = 0; i < data.GetSize(); ++i) {
    const auto v = static_cast<uint32_t>(p[i]);
    for (unsigned b = 0; b < bytes; ++b)
      out[i * bytes + b] = static_cast<char>((v >> (8 * b)) & 0xff);
  }
  return out;
}

// The Rescale Slope that carries the precision; a header slope that would read
// back as a precision is not written for a precision-1 image.
double SlopeToWrite(const DCM_HEADER& h, short precision)
{
  if (precision > 1)
    return 1.0 / precision;
  if (h.RescaleSlope > 0.0 && PrecisionFromSlope(h.RescaleSlope) == 1)
    return h.RescaleSlope;
  return 1.0;
}

void PutPatientAndStudy(gdcm::DataSet& ds, const DCM_HEADER& h)
{
  PutString(ds, 0x0008, 0x0016, gdcm::VR::UI, "1.2.840.10008.5.1.4.1.1.7"); // Secondary Capture
  gdcm::UIDGenerator generator;
  PutString(ds, 0x0008, 0x0018, gdcm::VR::UI, generator.Generate());
  PutString(ds, 0x0008, 0x0020, gdcm::VR::DA, "");
  PutString(ds, 0x0008, 0x0030, gdcm::VR::TM, "");
  PutString(ds, 0x0008, 0x0050, gdcm::VR::SH, "");
  PutString(ds, 0x0008, 0x0060, gdcm::VR::CS, h.Modality.empty() ? "OT" : h.Modality);
  PutString(ds, 0x0008, 0x0064, gdcm::VR::CS, "WSD"); // workstation
  PutString(ds, 0x0008, 0x0090, gdcm::VR::PN, "");
  PutString(ds, 0x0010, 0x0010, gdcm::VR::PN, h.PatientName);
  PutString(ds, 0x0010, 0x0020, gdcm::VR::LO, h.PatientID);
  PutString(ds, 0x0010, 0x0030, gdcm::VR::DA, "");
  PutString(ds, 0x0010, 0x0040, gdcm::VR::CS, "");
  PutString(ds, 0x0020, 0x000d, gdcm::VR::UI, UidOrNew(h.StudyInstanceUID));
  PutString(ds, 0x0020, 0x000e, gdcm::VR::UI, UidOrNew(h.SeriesInstanceUID));
  PutString(ds, 0x0020, 0x0010, gdcm::VR::SH, "");
  PutString(ds, 0x0020, 0x0011, gdcm::VR::IS, "");
  PutString(ds, 0x0020, 0x0013, gdcm::VR::IS, "1");
  PutString(ds, 0x0020, 0x0020, gdcm::VR::CS, "");
  PutString(ds, 0x0020, 0x0052, gdcm::VR::UI, UidOrNew(h.FrameOfReferenceUID));
}

void PutGeometry(gdcm::DataSet& ds, const DCM_HEADER& h)
{
  double orientation[6];
  for (int i = 0; i < 3; ++i) {
    orientation[i] = h.RowDirection[i];
    orientation[i + 3] = h.ColumnDirection[i];
  }
  PutString(ds, 0x0020, 0x0032, gdcm::VR::DS, Decimals(h.ImagePosition, 3));
  PutString(ds, 0x0020, 0x0037, gdcm::VR::DS, Decimals(orientation, 6));
  PutString(ds, 0x0028, 0x0030, gdcm::VR::DS, Decimals(h.PixelSpacing, 2));
}

} // namespace

bool Dcm_WriteFile(const DCM_STRUCT& image, const std::string& path, std::string* error)
{
  QuietGdcm();
  const DCM_HEADER h = image.GetHeader();
  if (h.PhotometricInterpretation > 1)
    return Fail(error, path + ": photometric code " + std::to_string(h.PhotometricInterpretation) +
                           " (" + Dcm_PhotometricName(h.PhotometricInterpretation) +
                           ") cannot be written: the pixels are grey levels");
  const DCM_DATA& data = *image.Data;
  const int* p = data.GetIDataAddress();
  const int mn = data.GetSize() ? *std::min_element(p, p + data.GetSize()) : 0;
  const int mx = data.GetSize() ? *std::max_element(p, p + data.GetSize()) : 0;
  const StoredFormat format = ChooseFormat(h, mn, mx);

  std::ofstream out(path, std::ios::binary); // opened here: GDCM aborts on a path it cannot open
  if (!out)
    return Fail(error, path + ": " + std::strerror(errno));
  gdcm::Writer writer;
  writer.SetStream(out);
  gdcm::File& file = writer.GetFile();
  file.GetHeader().SetDataSetTransferSyntax(gdcm::TransferSyntax::ExplicitVRLittleEndian);
  gdcm::DataSet& ds = file.GetDataSet();
  PutPatientAndStudy(ds, h);
  PutGeometry(ds, h);
  PutUShort(ds, 0x0028, 0x0002, 1);
  PutString(ds, 0x0028, 0x0004, gdcm::VR::CS, Dcm_PhotometricName(h.PhotometricInterpretation));
  PutUShort(ds, 0x0028, 0x0010, static_cast<unsigned short>(image.GetNbOfRows()));
  PutUShort(ds, 0x0028, 0x0011, static_cast<unsigned short>(image.GetNbOfCols()));
  PutUShort(ds, 0x0028, 0x0100, format.allocated);
  PutUShort(ds, 0x0028, 0x0101, format.stored);
  PutUShort(ds, 0x0028, 0x0102, static_cast<unsigned short>(format.stored - 1));
  PutUShort(ds, 0x0028, 0x0103, format.representation);
  if (h.WindowWidth > 0) {
    PutString(ds, 0x0028, 0x1050, gdcm::VR::DS, Decimal(h.WindowCenter));
    PutString(ds, 0x0028, 0x1051, gdcm::VR::DS, Decimal(h.WindowWidth));
  }
  PutString(ds, 0x0028, 0x1052, gdcm::VR::DS, Decimal(h.RescaleIntercept));
  PutString(ds, 0x0028, 0x1053, gdcm::VR::DS, Decimal(SlopeToWrite(h, data.GetPrecision())));
  PutString(ds, 0x0028, 0x1054, gdcm::VR::LO, "US"); // unspecified units

  const std::vector<char> pixels = PackPixels(data, format.allocated / 8u);
  gdcm::DataElement pixelData(gdcm::Tag(0x7fe0, 0x0010));
  pixelData.SetVR(format.allocated == 8 ? gdcm::VR::OB : gdcm::VR::OW);
  pixelData.SetByteValue(pixels.data(), static_cast<uint32_t>(pixels.size()));
  ds.Replace(pixelData);

  if (!writer.Write() || !out.flush())
    return Fail(error, path + ": cannot write the file (" + std::strerror(errno) + ")");
  if (error != nullptr)
    error->clear();
  return true;
}

std::string Dcm_TransferSyntaxName(const std::string& uid)
{
  return UidName(uid);
}

std::string Dcm_PhotometricName(unsigned short code)
{
  static const char* const names[] = {"MONOCHROME1", "MONOCHROME2", "RGB", "YBR_FULL", "YBR_FULL_422", "PALETTE COLOR"};
  return code < 6 ? names[code] : "colour (" + std::to_string(code) + ")";
}
