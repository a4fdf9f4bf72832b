// SPDX-License-Identifier: Apache-2.0
#include "ipg/frequency/ipg_fft_one_input.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_fourier_buffer.h"
#include "ipg/internal/ipg_fourier_kernels.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_spectrum_phase.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

bool HasPixels(const DCM_STRUCT* image)
{
  return image != nullptr && image->Data->GetNbOfCols() > 0 && image->Data->GetNbOfRows() > 0;
}

// The raw input pixels, imaginary parts 0.
auto PixelValues(DCM_STRUCT* in, int cols)
{
  const int* pixels = in->Data->GetIDataAddress();
  return [pixels, cols](int c, int r) {
    return MTH_COMPLEX{static_cast<double>(pixels[static_cast<std::size_t>(r) * cols + c]), 0.0};
  };
}

// The raw input pixels as buffer values, loaded as the transform reaches them.
std::function<void(int, int)> PixelsLoad(DCM_STRUCT* in, IPG_FOURIER_BUFFER& buffer)
{
  return Ipg_FourierColumnsLoad(buffer, PixelValues(in, buffer.GetNbOfCols()));
}

} // namespace

IPG_FFT_ONE_INPUT::IPG_FFT_ONE_INPUT(DCM_STRUCT* in, DCM_STRUCT* out)
{
  SetImaIn(in);
  SetImaOut(out);
  SetDefaultParameters();
}

IPG_FFT_ONE_INPUT::IPG_FFT_ONE_INPUT(const IPG_FFT_ONE_INPUT& source) : IPG_ONE_INPUT_ONE_OUTPUT()
{
  Threshold = source.Threshold;
}

void IPG_FFT_ONE_INPUT::SetDefaultParameters()
{
  Tools = 1210;
  Threshold = 0;
}

const IPG_CLASS_INFO<IPG_FFT_ONE_INPUT>& IPG_FFT_ONE_INPUT::ClassInfo()
{
  using C = IPG_FFT_ONE_INPUT;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {1202, "FourierLowPass", [](C& op) -> int { return op.FourierLowPass(); }},
      {1203, "FourierHighPass", [](C& op) -> int { return op.FourierHighPass(); }},
      {1210, "GetReal", [](C& op) -> int { return op.GetReal(); }},
      {1211, "GetImaginary", [](C& op) -> int { return op.GetImaginary(); }},
      {1212, "GetPhaseDeg", [](C& op) -> int { return op.GetPhaseDeg(); }},
      {1213, "GetPhaseRad", [](C& op) -> int { return op.GetPhaseRad(); }},
      {1216, "GetModule", [](C& op) -> int { return op.GetModule(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetThreshold>("Threshold", "0", "half-width of the zeroed band of coefficients"),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_FFT_ONE_INPUT", operations, parameters};
  return info;
}

bool IPG_FFT_ONE_INPUT::Apply()
{
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

template <typename Zero>
bool IPG_FFT_ONE_INPUT::Filter(Zero zeroBand)
{
  if (!HasPixels(ImaIn) || ImaOut == nullptr)
    return false;
  const int cols = static_cast<int>(ImaIn->Data->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->Data->GetNbOfRows());
  IPG_FOURIER_BUFFER buffer(cols, rows);
  if (!buffer.Transform(1, MTH_FFT_STREAMS{PixelsLoad(ImaIn, buffer), {}}))
    return false;
  zeroBand(buffer, static_cast<short>(Threshold));
  const short precision = ImaOut->Data->GetPrecision();
  return Ipg_FourierTransformInto(buffer, -1, {}, *ImaOut->Data, 0, 0,
                                  [precision](const MTH_COMPLEX& z) { return DCM_DATA::ToRaw(z.re, precision); });
}

bool IPG_FFT_ONE_INPUT::FourierLowPass()
{
  return Filter([](IPG_FOURIER_BUFFER& b, int t) {
    const int cols = b.GetNbOfCols(), rows = b.GetNbOfRows();
    const int r0 = std::max(0, rows / 2 - t), r1 = std::min(rows, rows / 2 + t);
    const int c0 = std::max(0, cols / 2 - t), c1 = std::min(cols, cols / 2 + t);
    for (int c = 0; c < cols; ++c)
      for (int r = r0; r < r1; ++r)
        b.Zero(c, r);
    for (int c = c0; c < c1; ++c)
      for (int r = 0; r < rows; ++r)
        b.Zero(c, r);
  });
}

bool IPG_FFT_ONE_INPUT::FourierHighPass()
{
  return Filter([](IPG_FOURIER_BUFFER& b, int t) {
    const int cols = b.GetNbOfCols(), rows = b.GetNbOfRows();
    const int tc = std::clamp(t, 0, cols), tr = std::clamp(t, 0, rows);
    auto zeroBlock = [&b](int cFrom, int cTo, int rFrom, int rTo) {
      for (int c = cFrom; c < cTo; ++c)
        for (int r = rFrom; r < rTo; ++r)
          b.Zero(c, r);
    };
    zeroBlock(0, tc, 0, tr);
    zeroBlock(cols - tc, cols, rows - tr, rows);
    zeroBlock(cols - tc, cols, 0, tr);
    zeroBlock(0, tc, rows - tr, rows);
  });
}

bool IPG_FFT_ONE_INPUT::CentredSpectrum(Part part)
{
  if (!HasPixels(ImaIn) || ImaOut == nullptr)
    return false;
  const int cols = static_cast<int>(ImaIn->Data->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->Data->GetNbOfRows());
  IPG_FOURIER_BUFFER buffer(cols, rows);
  constexpr short kTenths = 10;
  if (!Ipg_FourierTransformInto(buffer, 1, PixelsLoad(ImaIn, buffer), *ImaOut->Data, cols / 2, rows / 2,
                                [part](const MTH_COMPLEX& z) {
                                  return DCM_DATA::ToRaw(part == Part::Real ? z.re : z.im, kTenths);
                                }))
    return false;
  ImaOut->Data->SetPrecision(kTenths);
  return true;
}

bool IPG_FFT_ONE_INPUT::GetReal() { return CentredSpectrum(Part::Real); }
bool IPG_FFT_ONE_INPUT::GetImaginary() { return CentredSpectrum(Part::Imaginary); }

// A modulus or phase from the real and imaginary parts as GetReal and
// GetImaginary store them (tenths, under a precision of 10).
int IPG_FFT_ONE_INPUT::DerivedValue(int realTenths, int imaginaryTenths, Derived kind)
{
  if (kind == Derived::Module) {
    const long double x = realTenths * 0.1L;
    const long double y = imaginaryTenths * 0.1L;
    const std::int64_t s = static_cast<std::int64_t>(x * x + y * y);
    return s == 0 ? 0 : Ipg_TruncateTowardZero(std::sqrt(static_cast<long double>(s)) * 10);
  }
  // Stored in tenths under a precision of 100: phase images are read that way.
  return Ipg_PhaseTenths(realTenths, imaginaryTenths, kind == Derived::PhaseDeg);
}

bool IPG_FFT_ONE_INPUT::DerivedSpectrum(Derived kind)
{
  if (!HasPixels(ImaIn) || ImaOut == nullptr)
    return false;
  const int cols = static_cast<int>(ImaIn->Data->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->Data->GetNbOfRows());
  if (ImaOut->Data->GetNbOfCols() != ImaIn->Data->GetNbOfCols() ||
      ImaOut->Data->GetNbOfRows() != ImaIn->Data->GetNbOfRows())
    return DerivedSpectrumByParts(kind);
  // One transform gives both parts, rounded as GetReal and GetImaginary store
  // them and combined pixel by pixel as they are written: neither part needs
  // an image of its own.
  {
    IPG_FOURIER_BUFFER buffer(cols, rows);
    constexpr short kTenths = 10;
    if (!Ipg_FourierTransformInto(buffer, 1, PixelsLoad(ImaIn, buffer), *ImaOut->Data, cols / 2, rows / 2,
                                  [kind](const MTH_COMPLEX& z) {
                                    return DerivedValue(DCM_DATA::ToRaw(z.re, kTenths), DCM_DATA::ToRaw(z.im, kTenths),
                                                        kind);
                                  }))
      return false;
  }
  ImaOut->Data->SetPrecision(kind == Derived::Module ? 10 : 100);
  ImaOut->Data->SetMin();
  ImaOut->Data->SetMax();
  return true;
}

// An output of another size than the input's: its pixels pair with the parts'
// pixels of the same index, row after row.
bool IPG_FFT_ONE_INPUT::DerivedSpectrumByParts(Derived kind)
{
  auto realPart = std::make_unique<DCM_STRUCT>(*ImaIn, false);
  auto imagPart = std::make_unique<DCM_STRUCT>(*ImaIn, false);
  {
    IPG_FFT_ONE_INPUT real(ImaIn, realPart.get());
    real.SetTools(1210);
    if (!real.Apply())
      return false;
  }
  {
    IPG_FFT_ONE_INPUT imaginary(ImaIn, imagPart.get());
    imaginary.SetTools(1211);
    if (!imaginary.Apply())
      return false;
  }
  ImaOut->Data->SetPrecision(kind == Derived::Module ? 10 : 100);
  int* out = ImaOut->Data->GetIDataAddress();
  const int* re = realPart->Data->GetIDataAddress();
  const int* im = imagPart->Data->GetIDataAddress();
  const std::size_t n = std::min(ImaOut->Data->GetSize(), realPart->Data->GetSize());
  // Pixel by pixel: the bands of pixels run in parallel.
  Ipg_RunBands(Ipg_SplitRows(static_cast<unsigned>(n), 1), [&](unsigned, unsigned begin, unsigned end) {
    for (std::size_t k = begin; k < end; ++k)
      out[k] = DerivedValue(re[k], im[k], kind);
  });
  ImaOut->Data->SetMin();
  ImaOut->Data->SetMax();
  return true;
}

void IPG_FFT_ONE_INPUT::ReleaseBuffers() { Ipg_ReleaseFourierBuffer(); }

bool IPG_FFT_ONE_INPUT::GetModule() { return DerivedSpectrum(Derived::Module); }
bool IPG_FFT_ONE_INPUT::GetPhaseDeg() { return DerivedSpectrum(Derived::PhaseDeg); }
bool IPG_FFT_ONE_INPUT::GetPhaseRad() { return DerivedSpectrum(Derived::PhaseRad); }
