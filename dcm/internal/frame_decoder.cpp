// SPDX-License-Identifier: Apache-2.0
#include "dcm/internal/frame_decoder.h"

#include <gdcmDataElement.h>
#include <gdcmFragment.h>
#include <gdcmImage.h>
#include <gdcmImageApplyLookupTable.h>
#include <gdcmLookupTable.h>
#include <gdcmPixelFormat.h>
#include <gdcmSequenceOfFragments.h>
#include <gdcmTransferSyntax.h>

#include <climits>
#include <cmath>
#include <vector>

namespace {

using PI = gdcm::PhotometricInterpretation;

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
  bool planar; // samples stored plane after plane
  bool ybr422; // Y1 Y2 Cb Cr for each pair of pixels, as stored
};

long long Luminance(long long r, long long g, long long b)
{
  return std::llround(0.299 * static_cast<double>(r) + 0.587 * static_cast<double>(g) + 0.114 * static_cast<double>(b));
}

bool IsYbr(PI::PIType pi)
{
  return pi == PI::YBR_FULL || pi == PI::YBR_FULL_422 || pi == PI::YBR_PARTIAL_422 || pi == PI::YBR_PARTIAL_420;
}

long long GreyValue(const unsigned char* base, const FrameLayout& f, const SampleDecoder& decode, PI::PIType pi,
                    std::size_t pixel)
{
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

gdcm::DataElement PixelDataElement(const DicomFrame& f)
{
  gdcm::DataElement pixels(gdcm::Tag(0x7fe0, 0x0010));
  if (f.Codec == CodecKind::Native) {
    const bool words = f.BitsAllocated >= 16;
    pixels.SetVR(words ? gdcm::VR::OW : gdcm::VR::OB);
    std::vector<unsigned char> bytes = f.Native;
    if (f.BigEndian && words) // words in host order, as GDCM's reader hands OW values to its codecs
      for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        std::swap(bytes[i], bytes[i + 1]);
    pixels.SetByteValue(reinterpret_cast<const char*>(bytes.data()), static_cast<uint32_t>(bytes.size()));
    return pixels;
  }
  gdcm::SmartPointer<gdcm::SequenceOfFragments> fragments = new gdcm::SequenceOfFragments;
  for (const DicomSpan& span : f.Fragments) {
    gdcm::Fragment fragment;
    fragment.SetByteValue(reinterpret_cast<const char*>(span.first), static_cast<uint32_t>(span.second));
    fragments->AddFragment(fragment);
  }
  pixels.SetValue(*fragments);
  pixels.SetVLToUndefined();
  pixels.SetVR(gdcm::VR::OB);
  return pixels;
}

void SetPalette(gdcm::Image& image, const DicomFrame& f)
{
  gdcm::SmartPointer<gdcm::LookupTable> lut = new gdcm::LookupTable;
  const gdcm::LookupTable::LookupTableType types[3] = {gdcm::LookupTable::RED, gdcm::LookupTable::GREEN,
                                                       gdcm::LookupTable::BLUE};
  lut->Allocate(static_cast<unsigned short>(f.BitsAllocated));
  for (int c = 0; c < 3; ++c) {
    auto word = [&](unsigned i) {
      const unsigned char* p = f.LutDescriptor[c].first + 2 * i;
      return static_cast<unsigned short>(f.BigEndian ? (p[0] << 8 | p[1]) : (p[0] | p[1] << 8));
    };
    lut->InitializeLUT(types[c], word(0), word(1), word(2));
    std::vector<unsigned char> data(f.LutData[c].first, f.LutData[c].first + f.LutData[c].second);
    if (f.BigEndian && word(2) == 16)
      for (std::size_t i = 0; i + 1 < data.size(); i += 2)
        std::swap(data[i], data[i + 1]);
    lut->SetLUT(types[c], data.data(), static_cast<unsigned int>(data.size()));
  }
  image.SetLUT(*lut);
}

// The image reader lets a codec correct the bit depths from its own header
// before decoding; a hand-built image asks for the same.
class FrameImage : public gdcm::Image {
public:
  using gdcm::Image::ComputeLossyFlag;
};

FrameImage MakeImage(const DicomFrame& f)
{
  FrameImage image;
  image.SetNumberOfDimensions(2);
  image.SetDimension(0, f.Cols);
  image.SetDimension(1, f.Rows);
  image.SetPixelFormat(gdcm::PixelFormat(static_cast<unsigned short>(f.Samples),
                                         static_cast<unsigned short>(f.BitsAllocated),
                                         static_cast<unsigned short>(f.BitsStored),
                                         static_cast<unsigned short>(f.HighBit),
                                         static_cast<unsigned short>(f.PixelRepresentation)));
  image.SetPhotometricInterpretation(PI::GetPIType(f.Photometric.c_str()));
  if (f.Samples == 3)
    image.SetPlanarConfiguration(f.Planar);
  image.SetTransferSyntax(gdcm::TransferSyntax::GetTSType(f.TransferSyntax.c_str()));
  image.SetDataElement(PixelDataElement(f));
  if (f.Photometric == "PALETTE COLOR")
    SetPalette(image, f);
  return image;
}

// 32-bit samples with unused bits are taken as stored: GDCM aborts when it
// clears those bits itself (the decoder masks them).
void RawLittleEndian(const DicomFrame& f, std::vector<char>& out)
{
  out.assign(f.Native.begin(), f.Native.end());
  if (f.BigEndian)
    for (std::size_t i = 0; i + 4 <= out.size(); i += 4) {
      std::swap(out[i], out[i + 3]);
      std::swap(out[i + 1], out[i + 2]);
    }
}

bool Fail(std::string& error, const std::string& reason)
{
  error = reason;
  return false;
}

} // namespace

bool FrameDecoder::Decode(const DicomFrame& f, int* pixels, std::string& error, unsigned& bitsAllocated,
                          unsigned& bitsStored, unsigned& pixelRepresentation)
{
  // GDCM's filters hold their input by reference count and delete it with
  // the last reference, so the image lives on the heap under a smart pointer.
  gdcm::SmartPointer<FrameImage> built = new FrameImage(MakeImage(f));
  built->ComputeLossyFlag();
  gdcm::Image image = *built;
  if (f.Photometric == "PALETTE COLOR") {
    gdcm::ImageApplyLookupTable lut;
    lut.SetInput(*built);
    if (!lut.Apply())
      return Fail(error, "cannot apply the palette colour lookup table");
    image = lut.GetOutput();
  }
  const gdcm::PixelFormat pf = image.GetPixelFormat();
  bitsAllocated = pf.GetBitsAllocated();
  bitsStored = pf.GetBitsStored();
  pixelRepresentation = pf.GetPixelRepresentation();
  const bool partial32 = pf.GetBitsAllocated() == 32 && pf.GetBitsStored() != 32;
  if (partial32 && f.Codec != CodecKind::Native)
    return Fail(error, "compressed 32-bit samples with " + std::to_string(pf.GetBitsStored()) +
                           " bits stored are not supported");
  std::vector<char> buffer;
  if (partial32) {
    RawLittleEndian(f, buffer);
  } else {
    buffer.resize(image.GetBufferLength());
    if (buffer.empty() || !image.GetBuffer(buffer.data()))
      return Fail(error, "cannot decode the pixel data");
  }
  const std::size_t plane = f.PixelCount();
  const unsigned samples = pf.GetSamplesPerPixel();
  const std::size_t frameBytes = (plane * samples * pf.GetBitsAllocated() + 7) / 8;
  const PI::PIType pi = image.GetPhotometricInterpretation();
  const bool subsampled = samples == 3 && (pi == PI::YBR_FULL_422 || pi == PI::YBR_PARTIAL_422);
  FrameLayout layout{f.Cols, f.Rows, samples, image.GetPlanarConfiguration() == 1, false};
  std::size_t needed = frameBytes;
  if (subsampled && buffer.size() == plane * 2 * (pf.GetBitsAllocated() / 8)) {
    layout.ybr422 = true; // kept subsampled by the decoder
    needed = buffer.size();
  }
  if (buffer.size() < needed)
    return Fail(error, "truncated pixel data (" + std::to_string(buffer.size()) + " of " + std::to_string(needed) +
                           " bytes)");
  const unsigned char* base = reinterpret_cast<const unsigned char*>(buffer.data());
  if (pf.GetBitsAllocated() == 1) {
    for (std::size_t i = 0; i < plane; ++i)
      pixels[i] = (base[i / 8] >> (i % 8)) & 1;
    return true;
  }
  // GDCM swaps big endian 32-bit samples as 16-bit words: the halves are put back.
  const SampleDecoder decode(pf, f.BigEndian && !partial32);
  for (std::size_t i = 0; i < plane; ++i) {
    const long long v = GreyValue(base, layout, decode, pi, i);
    if (v > INT_MAX || v < INT_MIN)
      return Fail(error, "pixel value " + std::to_string(v) + " does not fit a signed 32-bit pixel");
    pixels[i] = static_cast<int>(v);
  }
  return true;
}
