// SPDX-License-Identifier: Apache-2.0
#include "ipg/frequency/ipg_fft_two_inputs.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/frequency/ipg_fft_one_input.h"
#include "ipg/internal/ipg_fourier_buffer.h"
#include "ipg/internal/ipg_fourier_kernels.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_guard.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstddef>
#include <memory>

namespace {

// A centred spectral part (1210 real, 1211 imaginary) of source, in a new
// image; null when the transform failed or the host cancelled the chain.
std::unique_ptr<DCM_STRUCT> SpectralPart(DCM_STRUCT* source, int code)
{
  if (Ipg_StopRequested())
    return nullptr;
  auto part = std::make_unique<DCM_STRUCT>(*source, false);
  IPG_FFT_ONE_INPUT fft(source, part.get());
  fft.SetTools(code);
  if (!fft.Apply())
    return nullptr;
  return part;
}

// Whether GetValueReal gives the raw level itself: at a precision of 1 it
// divides by 1, at or below 0 not at all. Loading a large spectrum then
// reads the levels directly instead of spending a division on each.
bool RawLevelsAreValues(const DCM_DATA& data) { return data.GetPrecision() <= 1; }

} // namespace

IPG_FFT_TWO_INPUTS::IPG_FFT_TWO_INPUTS(DCM_STRUCT* in, DCM_STRUCT* second, DCM_STRUCT* out)
{
  SetImaIn(in);
  SetInSecond(second);
  SetImaOut(out);
  SetDefaultParameters();
}

IPG_FFT_TWO_INPUTS::IPG_FFT_TWO_INPUTS(const IPG_FFT_TWO_INPUTS&) : IPG_TWO_INPUTS_ONE_OUTPUT() {}

void IPG_FFT_TWO_INPUTS::SetDefaultParameters() { Tools = 1300; }

const IPG_CLASS_INFO<IPG_FFT_TWO_INPUTS>& IPG_FFT_TWO_INPUTS::ClassInfo()
{
  using C = IPG_FFT_TWO_INPUTS;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {1300, "GetPhaseDifference", [](C& op) -> int { return op.GetPhaseDifference(); }},
      {1301, "GetInverseFromRealImag", [](C& op) -> int { return op.GetInverseFromRealImag(); }},
      {1302, "GetInverseFromPhaseModule", [](C& op) -> int { return op.GetInverseFromPhaseModule(); }},
      {1303, "GetMagnitudeDifference", [](C& op) -> int { return op.GetMagnitudeDifference(); }},
  };
  static const IPG_CLASS_INFO<C> info{"IPG_FFT_TWO_INPUTS", operations, {}};
  return info;
}

bool IPG_FFT_TWO_INPUTS::Apply()
{
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

bool IPG_FFT_TWO_INPUTS::Rebuild(Pair pair)
{
  if (ImaIn == nullptr || InSecond == nullptr || ImaOut == nullptr)
    return false;
  const int cols = static_cast<int>(ImaIn->Data->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->Data->GetNbOfRows());
  if (cols == 0 || rows == 0)
    return false;
  IPG_FOURIER_BUFFER buffer(cols, rows);
  const DCM_DATA* first = ImaIn->Data;
  const DCM_DATA* second = InSecond->Data; // read as 0 where it is smaller than the first
  std::function<void(int, int)> load;
  if (pair == Pair::RealImag && RawLevelsAreValues(*first) && RawLevelsAreValues(*second)) {
    const int* re = first->GetIDataAddress();
    const int* im = second->GetIDataAddress();
    const std::size_t imCols = second->GetNbOfCols(), imRows = second->GetNbOfRows();
    load = Ipg_FourierColumnsLoad(buffer, [re, im, imCols, imRows, cols](int c, int r) {
      const std::size_t x = static_cast<std::size_t>(c), y = static_cast<std::size_t>(r);
      const double imaginary = x < imCols && y < imRows ? im[y * imCols + x] : 0.0;
      return MTH_COMPLEX{static_cast<double>(re[y * static_cast<std::size_t>(cols) + x]), imaginary};
    });
  } else if (pair == Pair::RealImag)
    load = Ipg_FourierColumnsLoad(buffer, [first, second](int c, int r) {
      return MTH_COMPLEX{first->GetValueReal(c, r), second->GetValueReal(c, r)};
    });
  else
    load = Ipg_FourierColumnsLoad(buffer, [first, second](int c, int r) {
      const double phase = first->GetValueReal(c, r), modulus = second->GetValueReal(c, r);
      return MTH_COMPLEX{modulus * std::cos(phase), modulus * std::sin(phase)};
    });
  const short precision = ImaOut->Data->GetPrecision();
  return Ipg_FourierTransformInto(buffer, -1, std::move(load), *ImaOut->Data, 0, 0,
                                  [precision](const MTH_COMPLEX& z) { return DCM_DATA::ToRaw(z.re, precision); });
}

bool IPG_FFT_TWO_INPUTS::GetInverseFromRealImag() { return Rebuild(Pair::RealImag); }
bool IPG_FFT_TWO_INPUTS::GetInverseFromPhaseModule() { return Rebuild(Pair::PhaseModule); }

bool IPG_FFT_TWO_INPUTS::Compare(Comparison kind)
{
  if (ImaIn == nullptr || InSecond == nullptr || ImaOut == nullptr)
    return false;
  // One after the other: the chain stops at its first failure or cancellation.
  std::unique_ptr<DCM_STRUCT> realFirst, realSecond, imagFirst, imagSecond;
  if (!(realFirst = SpectralPart(ImaIn, 1210)) || !(realSecond = SpectralPart(InSecond, 1210)) ||
      !(imagFirst = SpectralPart(ImaIn, 1211)) || !(imagSecond = SpectralPart(InSecond, 1211)))
    return false;
  ImaOut->Data->SetPrecision(kind == Comparison::Phase ? 100 : 10);

  const int* a = realFirst->Data->GetIDataAddress();
  const int* b = imagFirst->Data->GetIDataAddress();
  const int* c = realSecond->Data->GetIDataAddress();
  const int* d = imagSecond->Data->GetIDataAddress();
  int* out = ImaOut->Data->GetIDataAddress();
  // Pixel by pixel where all five images have one; differing sizes are the caller's.
  const std::size_t n = std::min({ImaOut->Data->GetSize(), realFirst->Data->GetSize(), realSecond->Data->GetSize()});
  // Pixel by pixel: the bands of pixels run in parallel.
  Ipg_RunBands(Ipg_SplitRows(static_cast<unsigned>(n), 1), [&](unsigned, unsigned begin, unsigned end) {
    for (std::size_t k = begin; k < end; ++k) {
      if (kind == Comparison::Phase) {
        const long double re1 = a[k] * 0.1L, im1 = b[k] * 0.1L, re2 = c[k] * 0.1L, im2 = d[k] * 0.1L;
        const long double crossRe = re1 * re2 + im1 * im2;
        const long double crossIm = im1 * re2 - re1 * im2;
        const long double angle = crossRe == 0 ? 0.0L : std::atan(crossIm / crossRe);
        out[k] = Ipg_TruncateTowardZero(angle * 100);
      } else {
        const long double re1 = a[k] / 10.0L, im1 = b[k] / 10.0L, re2 = c[k] / 10.0L, im2 = d[k] / 10.0L;
        const long double difference = std::sqrt(re1 * re1 + im1 * im1) - std::sqrt(re2 * re2 + im2 * im2);
        out[k] = Ipg_TruncateTowardZero(difference * 10);
      }
    }
  });
  ImaOut->Data->SetMin();
  ImaOut->Data->SetMax();
  return true;
}

bool IPG_FFT_TWO_INPUTS::GetPhaseDifference() { return Compare(Comparison::Phase); }
bool IPG_FFT_TWO_INPUTS::GetMagnitudeDifference() { return Compare(Comparison::Magnitude); }
