// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_io.h"

#include "dcm/internal/dicom_frame.h"
#include "dcm/internal/dicom_scanner.h"
#include "dcm/internal/frame_decoder.h"
#include "dcm/internal/isolated_call.h"

#include <gdcmByteValue.h>
#include <gdcmTrace.h>
#include <gdcmUIDGenerator.h>
#include <gdcmUIDs.h>
#include <gdcmWriter.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <vector>

namespace {

std::mutex LimitsLock;
DCM_READ_LIMITS Limits;
std::atomic<bool> Isolated{false};

// GDCM reports problems on its own streams; the reasons given here replace them.
void QuietGdcm()
{
  gdcm::Trace::WarningOff();
  gdcm::Trace::ErrorOff();
  gdcm::Trace::DebugOff();
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

// What a path names when it is not a regular file, else "".
std::string NotAFile(const struct stat& info)
{
  if (S_ISDIR(info.st_mode))
    return "is a directory";
  if (S_ISCHR(info.st_mode))
    return "is a character device, not a file";
  if (S_ISBLK(info.st_mode))
    return "is a block device, not a file";
  if (S_ISFIFO(info.st_mode))
    return "is a named pipe (FIFO), not a file";
  if (S_ISSOCK(info.st_mode))
    return "is a socket, not a file";
  if (!S_ISREG(info.st_mode))
    return "is not a regular file";
  return "";
}

// A read-only mapping of a whole file, so that it is parsed in place, once.
class MappedFile {
public:
  bool Open(const std::string& path, std::string& reason)
  {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0)
      return Reason(reason, std::strerror(errno));
    if (const std::string what = NotAFile(info); !what.empty())
      return Reason(reason, what);
    if (info.st_size == 0)
      return Reason(reason, "empty file");
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
      return Reason(reason, std::strerror(errno));
    Size = static_cast<std::size_t>(info.st_size);
    void* at = mmap(nullptr, Size, PROT_READ, MAP_PRIVATE, fd, 0);
    close(fd);
    if (at == MAP_FAILED)
      return Reason(reason, std::strerror(errno));
    Data = static_cast<const unsigned char*>(at);
    return true;
  }
  ~MappedFile()
  {
    if (Data != nullptr)
      munmap(const_cast<unsigned char*>(Data), Size);
  }
  const unsigned char* Data = nullptr;
  std::size_t Size = 0;

private:
  static bool Reason(std::string& reason, const std::string& text)
  {
    reason = text;
    return false;
  }
};

// The bit depths the decoder ended with (a palette becomes its table's depth),
// ahead of the pixels in a decoded frame.
struct DecodedFormat {
  unsigned BitsAllocated, BitsStored, PixelRepresentation;
};

void ReadGeometry(const DicomScan& scan, DCM_HEADER& h)
{
  const std::vector<double> spacing = scan.Numbers(DicomTag(0x0028, 0x0030));
  const std::vector<double> imager = scan.Numbers(DicomTag(0x0018, 0x1164)); // Imager Pixel Spacing
  if (spacing.size() >= 2 && spacing[0] > 0 && spacing[1] > 0) {
    h.PixelSpacing[0] = spacing[0];
    h.PixelSpacing[1] = spacing[1];
  } else if (imager.size() >= 2 && imager[0] > 0 && imager[1] > 0) {
    h.PixelSpacing[0] = imager[0];
    h.PixelSpacing[1] = imager[1];
  }
  const std::vector<double> position = scan.Numbers(DicomTag(0x0020, 0x0032));
  if (position.size() >= 3)
    for (int i = 0; i < 3; ++i)
      h.ImagePosition[i] = position[i];
  const std::vector<double> orientation = scan.Numbers(DicomTag(0x0020, 0x0037));
  if (orientation.size() >= 6)
    for (int i = 0; i < 3; ++i) {
      h.RowDirection[i] = orientation[i];
      h.ColumnDirection[i] = orientation[i + 3];
    }
}

void ReadDescription(const DicomScan& scan, DCM_HEADER& h)
{
  auto text = [&](uint16_t g, uint16_t e, std::string& field) {
    const std::string v = scan.Text(DicomTag(g, e));
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
  const std::vector<double> slope = scan.Numbers(DicomTag(0x0028, 0x1053));
  const std::vector<double> intercept = scan.Numbers(DicomTag(0x0028, 0x1052));
  if (!slope.empty() && slope[0] != 0.0)
    h.RescaleSlope = slope[0];
  if (!intercept.empty())
    h.RescaleIntercept = intercept[0];
  const std::vector<double> center = scan.Numbers(DicomTag(0x0028, 0x1050));
  const std::vector<double> width = scan.Numbers(DicomTag(0x0028, 0x1051));
  if (!center.empty() && !width.empty() && width[0] > 0) {
    h.WindowCenter = center[0];
    h.WindowWidth = width[0];
  }
}

DCM_HEADER MakeHeader(const DicomScan& scan, const DicomFrame& f, const DecodedFormat& format)
{
  DCM_HEADER h;
  h.BitsAllocated = static_cast<short>(format.BitsAllocated);
  h.BitsStored = static_cast<short>(format.BitsStored);
  h.HighBit = static_cast<short>(format.BitsStored - 1);
  h.PixelRepresentation = static_cast<unsigned short>(format.PixelRepresentation);
  h.PhotometricInterpretation = f.Photometric == "MONOCHROME1" ? 0 : 1; // colour is read as luminance
  h.SamplesPerPixel = 1;
  h.Rows = static_cast<unsigned short>(f.Rows);
  h.Columns = static_cast<unsigned short>(f.Cols);
  h.NumberOfFrames = static_cast<int>(f.Frames);
  h.Frame = static_cast<int>(f.Frame);
  h.TransferSyntax = scan.Deflated ? scan.TransferSyntax : f.TransferSyntax;
  h.SourcePhotometric = f.Photometric;
  ReadGeometry(scan, h);
  ReadDescription(scan, h);
  return h;
}

bool Plan(const unsigned char* data, std::size_t size, unsigned frame, DicomScan& scan, DicomFrame& f,
          std::string& reason)
{
  const DCM_READ_LIMITS limits = Dcm_GetReadLimits();
  if (!DicomScanner(limits.MaxDecodedBytes).Scan(data, size, scan, reason))
    return false;
  if (scan.TopLevelCount == 0) {
    reason = "DICOM file without a data set (nothing follows the file meta information)";
    return false;
  }
  if (!scan.HasPixelData && !scan.FloatPixelData) {
    reason = "DICOM file without an image (" + UidName(scan.Text(DicomTag(0x0008, 0x0016))) + ")";
    return false;
  }
  return DicomFramePlanner(limits.MaxDecodedBytes).Plan(scan, frame, f, reason);
}

// Decodes into format and pixels, in this process or behind the isolation wall.
bool Decode(const DicomFrame& f, DecodedFormat& format, int* pixels, std::string& reason)
{
  const std::size_t pixelBytes = f.PixelCount() * sizeof(int);
  auto job = [&f](void* out, std::string& why) {
    auto* decoded = static_cast<DecodedFormat*>(out);
    return FrameDecoder::Decode(f, reinterpret_cast<int*>(decoded + 1), why, decoded->BitsAllocated,
                                decoded->BitsStored, decoded->PixelRepresentation);
  };
  if (!Dcm_GetIsolatedDecoding())
    return FrameDecoder::Decode(f, pixels, reason, format.BitsAllocated, format.BitsStored,
                                format.PixelRepresentation);
  const DCM_READ_LIMITS limits = Dcm_GetReadLimits();
  const std::size_t childBytes = 4 * std::max(limits.MaxDecodedBytes, pixelBytes) + (std::size_t{512} << 20);
  // Straight from the shared area into the image: no third copy of the pixels.
  const auto take = [&](const void* result) {
    std::memcpy(&format, result, sizeof format);
    std::memcpy(pixels, static_cast<const unsigned char*>(result) + sizeof format, pixelBytes);
  };
  return IsolatedCall(sizeof(DecodedFormat) + pixelBytes, limits.MaxSeconds, childBytes).Run(job, take, reason);
}

std::unique_ptr<DCM_STRUCT> ReadBytes(const unsigned char* data, std::size_t size, unsigned frame,
                                      std::string& reason)
{
  QuietGdcm();
  DicomScan scan;
  DicomFrame f;
  if (!Plan(data, size, frame, scan, f, reason))
    return nullptr;
  auto out = std::make_unique<DCM_STRUCT>(f.Cols, f.Rows, nullptr);
  DecodedFormat format{f.BitsAllocated, f.BitsStored, f.PixelRepresentation};
  if (!Decode(f, format, out->Data->GetIDataAddress(), reason))
    return nullptr;
  out->Data->SetMin();
  out->Data->SetMax();
  const DCM_HEADER h = MakeHeader(scan, f, format);
  out->SetHeader(h);
  out->Data->SetRGB(f.Samples == 3 || f.Photometric == "PALETTE COLOR"); // palette images are colour
  out->Data->SetPrecision(PrecisionFromSlope(h.RescaleSlope));
  return out;
}

// Runs a read, turning every exception into the error text.
template <class Read>
std::unique_ptr<DCM_STRUCT> Guarded(std::string* error, const std::string& prefix, Read read)
{
  std::string reason;
  try {
    auto image = read(reason);
    if (image != nullptr) {
      if (error != nullptr)
        error->clear();
      return image;
    }
  } catch (const std::bad_alloc&) {
    reason = "not enough memory to read this file";
  } catch (const std::exception& e) {
    reason = std::string("cannot read this file: ") + e.what();
  } catch (...) {
    reason = "cannot read this file";
  }
  return Refuse(error, prefix + reason);
}

} // namespace

std::unique_ptr<DCM_STRUCT> Dcm_ReadFile(const std::string& path, std::string* error, unsigned frame)
{
  return Guarded(error, path + ": ", [&](std::string& reason) -> std::unique_ptr<DCM_STRUCT> {
    MappedFile file;
    if (!file.Open(path, reason))
      return nullptr;
    return ReadBytes(file.Data, file.Size, frame, reason);
  });
}

std::unique_ptr<DCM_STRUCT> Dcm_ReadBuffer(const void* data, std::size_t size, std::string* error, unsigned frame)
{
  return Guarded(error, "", [&](std::string& reason) -> std::unique_ptr<DCM_STRUCT> {
    if (data == nullptr || size == 0) {
      reason = "empty buffer";
      return nullptr;
    }
    return ReadBytes(static_cast<const unsigned char*>(data), size, frame, reason);
  });
}

bool Dcm_ValidateBuffer(const void* data, std::size_t size, std::string* error, unsigned frame)
{
  std::string reason = "empty buffer";
  try {
    DicomScan scan;
    DicomFrame f;
    if (data != nullptr && size != 0 && Plan(static_cast<const unsigned char*>(data), size, frame, scan, f, reason)) {
      if (error != nullptr)
        error->clear();
      return true;
    }
  } catch (const std::exception& e) {
    reason = std::string("cannot check this file: ") + e.what();
  }
  return Fail(error, reason);
}

DCM_READ_LIMITS Dcm_SetReadLimits(const DCM_READ_LIMITS& limits)
{
  std::lock_guard<std::mutex> lock(LimitsLock);
  const DCM_READ_LIMITS previous = Limits;
  Limits = limits;
  return previous;
}

DCM_READ_LIMITS Dcm_GetReadLimits()
{
  std::lock_guard<std::mutex> lock(LimitsLock);
  return Limits;
}

bool Dcm_SetIsolatedDecoding(bool on)
{
  return Isolated.exchange(on);
}

bool Dcm_GetIsolatedDecoding()
{
  return Isolated.load();
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

// The pixels little-endian in bytes per pixel, padded to an even length,
// packed straight into the value the writer will own (no second copy).
gdcm::SmartPointer<gdcm::ByteValue> PackPixels(const DCM_DATA& data, unsigned bytes)
{
  const std::size_t length = data.GetSize() * bytes + (data.GetSize() * bytes) % 2;
  std::vector<char> empty; // the default constructor copies a null range, which compilers flag
  gdcm::SmartPointer<gdcm::ByteValue> value = new gdcm::ByteValue(empty);
  value->SetLength(static_cast<uint32_t>(length));
  char* out = static_cast<char*>(value->GetVoidPointer());
  std::fill(out, out + length, 0);
  const int* p = data.GetIDataAddress();
  for (std::size_t i = 0; i < data.GetSize(); ++i) {
    const auto v = static_cast<uint32_t>(p[i]);
    for (unsigned b = 0; b < bytes; ++b)
      out[i * bytes + b] = static_cast<char>((v >> (8 * b)) & 0xff);
  }
  return value;
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

  gdcm::DataElement pixelData(gdcm::Tag(0x7fe0, 0x0010));
  pixelData.SetVR(format.allocated == 8 ? gdcm::VR::OB : gdcm::VR::OW);
  pixelData.SetValue(*PackPixels(data, format.allocated / 8u));
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
