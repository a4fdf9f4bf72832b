// SPDX-License-Identifier: Apache-2.0
#include "ipg/frequency/ipg_transformation.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/ui/ipg_message.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace {

const double kSqrt2 = std::sqrt(2.0);

// Daubechies low-pass filters, one-based (entry 0 holds no coefficient), as
// published in Numerical Recipes in C, 2nd ed., section 13.10.
const double kDaub4[5] = {0.0, 0.4829629131445341, 0.8365163037378079, 0.2241438680420134, -0.1294095225512604};
const double kDaub12[13] = {0.0,
                            0.111540743350, 0.494623890398, 0.751133908021, 0.315250351709, -0.226264693965,
                            -0.129766867567, 0.097501605587, 0.027522865530, -0.031582039318, 0.000553842201,
                            0.004777257511, -0.001077301085};
const double kDaub20[21] = {0.0,
                            0.026670057901, 0.188176800078, 0.527201188932, 0.688459039454, 0.281172343661,
                            -0.249846424327, -0.195946274377, 0.127369340336, 0.093057364604, -0.071394147166,
                            -0.029457536822, 0.033212674059, 0.003606553567, -0.010733175483, 0.001395351747,
                            0.001992405295, -0.000685856695, -0.000116466855, 0.000093588670, -0.000013264203};

// a[k], or 0 past the end of the vector: the one-based transforms read a[n].
double At(const std::vector<double>& a, std::size_t k) { return k < a.size() ? a[k] : 0.0; }

// Snaps a coordinate within 1e-9 of a whole pixel onto it.
double Snap(double x)
{
  const double nearest = std::round(x);
  return std::fabs(x - nearest) < 1e-9 ? nearest : x;
}

bool IsPowerOfTwo(int n) { return n > 0 && (n & (n - 1)) == 0; }

} // namespace

IPG_TRANSFORMATION::IPG_TRANSFORMATION(DCM_STRUCT* in) : IPG_TRANSFORMATION(in, nullptr) {}

IPG_TRANSFORMATION::IPG_TRANSFORMATION(DCM_STRUCT* in, DCM_STRUCT* roi)
{
  SetImaIn(in);
  SetRoi(roi);
  SetDefaultParameters();
}

IPG_TRANSFORMATION::IPG_TRANSFORMATION(const IPG_TRANSFORMATION& source) : IPG_ONE_INPUT_ONE_OUTPUT()
{
  Angle = source.Angle;
  enX = source.enX;
  enY = source.enY;
  WaveletLevel = source.WaveletLevel;
  WaveletMethod = source.WaveletMethod;
}

void IPG_TRANSFORMATION::SetCentre(const double x, const double y)
{
  CentreX = x;
  CentreY = y;
  CentreSet = true;
}

void IPG_TRANSFORMATION::SetDefaultParameters()
{
  Angle = 3.141592653589793;
  enX = 0.0;
  enY = 0.0;
  WaveletLevel = 2;
  WaveletMethod = 0;
  Tools = 601;
}

const IPG_CLASS_INFO<IPG_TRANSFORMATION>& IPG_TRANSFORMATION::ClassInfo()
{
  using C = IPG_TRANSFORMATION;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {600, "Translation", [](C& op) -> int { return op.Translation(op.enX, op.enY); }},
      {601, "Rotation", [](C& op) -> int { return op.Rotation(op.Angle); }},
      {603, "RigideTransformation", [](C& op) -> int { return op.RigideTransformation(op.Angle, op.enX, op.enY); }},
      {604, "ApplyWavelet", [](C& op) -> int { return op.ApplyWavelet(); }},
      {605, "HoughTransformation", [](C& op) -> int { return op.HoughTransformation(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetAngle>("Angle", "3.141592653589793", "rotation angle in radians (default pi)"),
      Ipg_Parameter<C, &C::SetenX>("enX", "0", "translation along the columns"),
      Ipg_Parameter<C, &C::SetenY>("enY", "0", "translation along the rows"),
      Ipg_Parameter<C>("Centre", IPG_VALUE_TYPE::RealPoint, "", "centre of rotation as column,row (default: the image middle)",
                        [](C& op, const IPG_VALUE& value) {
                          const IPG_REAL_POINT& centre = std::get<IPG_REAL_POINT>(value);
                          op.SetCentre(centre.X, centre.Y);
                        }),
      Ipg_Parameter<C, &C::SetWaveletLevel>("WaveletLevel", "2", "compression factor: transform down to cols / level"),
      Ipg_Parameter<C, &C::SetWaveletMethod>("WaveletMethod", "0", "0 Daubechies-4, otherwise the 12-tap general transform"),
      Ipg_Parameter<C, &C::SetWaveletRate>("WaveletRate", "0", "compression rate (kept, not read by the compression)"),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_TRANSFORMATION", operations, parameters};
  return info;
}

bool IPG_TRANSFORMATION::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_TRANSFORMATION"))
    return false;
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

// ---------------------------------------------------------------- geometry

bool IPG_TRANSFORMATION::Resample(double angle, double dx, double dy)
{
  if (ImaOut == nullptr || ImaIn == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  const DCM_DATA& in = *ImaIn->Data;
  const unsigned cols = ImaOut->Data->GetNbOfCols(), rows = ImaOut->Data->GetNbOfRows();
  const double lastCol = static_cast<double>(in.GetNbOfCols()) - 1;
  const double lastRow = static_cast<double>(in.GetNbOfRows()) - 1;
  const double cx = CentreSet ? CentreX : lastCol / 2, cy = CentreSet ? CentreY : lastRow / 2;
  const double cosA = std::cos(angle), sinA = std::sin(angle);
  for (unsigned r = 0; r < rows; ++r)
    for (unsigned c = 0; c < cols; ++c) {
      if (!Ipg_InsideRoi(Roi, c, r)) {
        ImaOut->Data->SetValue(c, r, in.GetValue(c, r));
        continue;
      }
      // Inverse mapping: undo the translation, then rotate back about the centre.
      const double px = c - dx - cx, py = r - dy - cy;
      const double x = Snap(cx + cosA * px + sinA * py);
      const double y = Snap(cy - sinA * px + cosA * py);
      const bool outside = x < 0 || y < 0 || x > lastCol || y > lastRow;
      ImaOut->Data->SetValue(c, r, outside ? 0.0 : in.GetInterpolatedPoint(x, y));
    }
  return ApplyModeToOutImage();
}

bool IPG_TRANSFORMATION::Translation(double dx, double dy) { return Resample(0.0, dx, dy); }
bool IPG_TRANSFORMATION::Rotation(double angle) { return Resample(angle, 0.0, 0.0); }
bool IPG_TRANSFORMATION::RigideTransformation(double angle, double dx, double dy) { return Resample(angle, dx, dy); }

bool IPG_TRANSFORMATION::HoughTransformation()
{
  if (ImaOut == nullptr || ImaIn == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  const unsigned inCols = ImaIn->Data->GetNbOfCols(), inRows = ImaIn->Data->GetNbOfRows();
  const unsigned angles = ImaOut->Data->GetNbOfCols(), distances = ImaOut->Data->GetNbOfRows();
  ImaOut->Data->Init(0.0);
  if (angles == 0 || distances < 2)
    return ApplyModeToOutImage();
  const double pi = std::acos(-1.0);
  const double diagonal = std::hypot(static_cast<double>(inCols), static_cast<double>(inRows));
  const double rowsPerDistance = (distances - 1) / diagonal;
  const long zeroRow = static_cast<long>((distances - 1) / 2); // rho = 0 on a bin centre
  std::vector<double> cosT(angles), sinT(angles);
  for (unsigned j = 0; j < angles; ++j) {
    cosT[j] = std::cos(j * pi / angles);
    sinT[j] = std::sin(j * pi / angles);
  }
  std::vector<std::int64_t> votes(static_cast<std::size_t>(angles) * distances, 0);
  const double cx = (inCols - 1.0) / 2, cy = (inRows - 1.0) / 2;
  for (unsigned r = 0; r < inRows; ++r)
    for (unsigned c = 0; c < inCols; ++c) {
      const int v = ImaIn->Data->GetValue(c, r);
      if (v <= 0 || Ipg_IsMark(v) || !Ipg_InsideRoi(Roi, c, r))
        continue;
      for (unsigned j = 0; j < angles; ++j) {
        const double rho = (c - cx) * cosT[j] + (r - cy) * sinT[j];
        const long i = zeroRow + std::lround(rho * rowsPerDistance);
        if (i >= 0 && i < static_cast<long>(distances))
          ++votes[static_cast<std::size_t>(i) * angles + j];
      }
    }
  for (unsigned i = 0; i < distances; ++i)
    for (unsigned j = 0; j < angles; ++j)
      ImaOut->Data->SetValue(j, i, Ipg_SaturateToInt(votes[std::size_t{i} * angles + j]));
  return ApplyModeToOutImage();
}

// ---------------------------------------------------------------- wavelets

bool IPG_TRANSFORMATION::ApplyWavelet()
{
  if (ImaOut == nullptr || ImaIn == nullptr || WaveletLevel <= 0)
    return false;
  const int cols = static_cast<int>(ImaOut->Data->GetNbOfCols());
  const int rows = static_cast<int>(ImaOut->Data->GetNbOfRows());
  const short minLength = static_cast<short>(cols / WaveletLevel);
  // Both dimensions are taken as the column count: the compression is meant for
  // square images and hosts call it that way. The buffer covers cols x cols so a
  // taller or wider image stays inside it.
  const std::size_t stored = static_cast<std::size_t>(cols) * static_cast<std::size_t>(std::max(rows, cols));
  std::vector<double> data(stored, 0.0);
  const std::vector<int> dims(static_cast<std::size_t>(std::max<short>(WaveletLevel, 2)), cols);
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c)
      data[static_cast<std::size_t>(r) * cols + c] = ImaIn->Data->GetValueReal(c, r);
  if (!WaveletnD(data, dims, 2, minLength, WaveletMethod))
    return false;
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) {
      const double v = data[static_cast<std::size_t>(r) * cols + c];
      // Cut to 16 bits (values beyond wrap): stored images have always held it so.
      const auto wide = static_cast<std::int64_t>(std::clamp(v, -9.2e18, 9.2e18));
      ImaOut->Data->SetValue(c, r, static_cast<int>(static_cast<std::int16_t>(wide)));
    }
  return true;
}

bool IPG_TRANSFORMATION::WaveletnD(std::vector<double>& data, const std::vector<int>& dims, int ndim, int minLength,
                                   int method)
{
  if (ndim < 0 || static_cast<std::size_t>(ndim) > dims.size())
    return false;
  std::size_t total = 1;
  for (int d = 0; d < ndim; ++d) {
    if (dims[static_cast<std::size_t>(d)] < 0)
      return false;
    total *= static_cast<std::size_t>(dims[static_cast<std::size_t>(d)]);
  }
  if (total > data.size())
    return false;
  // One spare element: the transforms read one past the length they are given.
  std::vector<double> work(total + 1, 0.0);
  std::size_t prev = 1;
  for (int d = 0; d < ndim; ++d) {
    const std::size_t n = static_cast<std::size_t>(dims[static_cast<std::size_t>(d)]);
    if (n > 4) {
      for (std::size_t i2 = 0; i2 < total; i2 += n * prev)
        for (std::size_t i1 = 0; i1 < prev; ++i1) {
          for (std::size_t k = 0; k < n; ++k)
            work[k] = data[i1 + i2 + k * prev];
          for (int len = static_cast<int>(n); len > minLength; len >>= 1) {
            const bool stepped = method == 0 ? Wavelet_Doub4(work, len, 1) : def_pwt(work, len, 1);
            if (!stepped)
              break;
          }
          // Absolute coefficients are stored: the compressed images are magnitudes.
          for (std::size_t k = 0; k < n; ++k)
            data[i1 + i2 + k * prev] = std::fabs(work[k]);
        }
    }
    prev *= n;
  }
  return true;
}

bool IPG_TRANSFORMATION::Wavelet_Doub4(std::vector<double>& a, int n, int direction)
{
  if (n < 4 || static_cast<std::size_t>(n) > a.size())
    return false;
  const double c0 = kDaub4[1], c1 = kDaub4[2], c2 = kDaub4[3], c3 = kDaub4[4];
  const std::size_t len = static_cast<std::size_t>(n), h = len / 2;
  std::vector<double> w(len, 0.0);
  if (direction >= 0) {
    std::size_t i = 0;
    for (std::size_t j = 0; j + 3 < len; j += 2, ++i) {
      w[i] = c0 * a[j] + c1 * a[j + 1] + c2 * a[j + 2] + c3 * a[j + 3];
      w[i + h] = kSqrt2 * (c3 * a[j] - c2 * a[j + 1] + c1 * a[j + 2] - c0 * a[j + 3]);
    }
    // Wrap-around pair at one-based positions n-1, n, 1, 2: the compressed
    // images of existing callers depend on exactly these reads.
    if (i + h < len) {
      w[i] = c0 * a[len - 1] + c1 * At(a, len) + c2 * a[1] + c3 * a[2];
      w[i + h] = kSqrt2 * (c3 * a[len - 1] - c2 * At(a, len) + c1 * a[1] - c0 * a[2]);
    }
    for (std::size_t k = 0; k < len; ++k)
      a[k] = w[k] / kSqrt2;
    return true;
  }
  // Inverse of the circular step: undo the scaling, then the transposed filter.
  std::vector<double> s(h), d(h);
  for (std::size_t k = 0; k < h; ++k) {
    s[k] = a[k] * kSqrt2;
    d[k] = a[k + h];
  }
  for (std::size_t k = 0; k < h; ++k) {
    const std::size_t prev = (k + h - 1) % h;
    w[2 * k] = c2 * s[prev] + c1 * d[prev] + c0 * s[k] + c3 * d[k];
    w[2 * k + 1] = c3 * s[prev] - c0 * d[prev] + c1 * s[k] - c2 * d[k];
  }
  for (std::size_t k = 0; k < 2 * h; ++k)
    a[k] = w[k];
  return true;
}

bool IPG_TRANSFORMATION::def_pwtset(int n)
{
  const double* table = n == 4 ? kDaub4 : n == 12 ? kDaub12 : n == 20 ? kDaub20 : nullptr;
  if (table == nullptr)
    return false;
  FilterLength = static_cast<short>(n);
  LowPass = table;
  HighPass.assign(static_cast<std::size_t>(n) + 1, 0.0);
  double sign = -1.0;
  for (int k = 1; k <= n; ++k) {
    HighPass[static_cast<std::size_t>(n + 1 - k)] = sign * LowPass[k];
    sign = -sign;
  }
  OffsetLow = OffsetHigh = static_cast<short>(-(n / 2));
  return true;
}

bool IPG_TRANSFORMATION::def_pwt(std::vector<double>& a, int n, int direction)
{
  def_pwtset(12);
  if (n < 4 || !IsPowerOfTwo(n) || static_cast<std::size_t>(n) > a.size())
    return false;
  const std::size_t len = static_cast<std::size_t>(n), h = len / 2, mask = len - 1;
  const std::size_t base = static_cast<std::size_t>(FilterLength) * len;
  std::vector<double> w(len, 0.0);
  // One-based reads a[1 .. n]: the filter positions of existing compressed images.
  auto position = [&](std::size_t i, int offset, int k) {
    return ((i + base + static_cast<std::size_t>(offset + k)) & mask) + 1;
  };
  if (direction >= 0) {
    for (std::size_t i = 0, ii = 0; i + 1 < len; i += 2, ++ii)
      for (int k = 1; k <= FilterLength; ++k) {
        w[ii] += LowPass[k] * At(a, position(i, OffsetLow, k));
        w[ii + h] += HighPass[static_cast<std::size_t>(k)] * At(a, position(i, OffsetHigh, k));
      }
  } else {
    for (std::size_t i = 0, ii = 0; i + 1 < len; i += 2, ++ii) {
      const double smooth = a[ii], detail = a[ii + h];
      for (int k = 1; k <= FilterLength; ++k) {
        w[position(i, OffsetLow, k) - 1] += LowPass[k] * smooth;
        w[position(i, OffsetHigh, k) - 1] += HighPass[static_cast<std::size_t>(k)] * detail;
      }
    }
  }
  for (std::size_t k = 0; k < len; ++k)
    a[k] = direction >= 0 ? w[k] / kSqrt2 : w[k] * kSqrt2;
  return true;
}

DCM_STRUCT* IPG_TRANSFORMATION::GetCompressedImage()
{
  if (!ApplyWavelet())
    return nullptr;
  const unsigned outCols = ImaOut->Data->GetNbOfCols(), outRows = ImaOut->Data->GetNbOfRows();
  const unsigned short c = static_cast<unsigned short>(outCols / static_cast<unsigned>(WaveletLevel));
  const unsigned short r = static_cast<unsigned short>(outRows / static_cast<unsigned>(WaveletLevel));
  if (c == 0 || r == 0)
    return nullptr;
  auto* compressed = new DCM_STRUCT(c, r, nullptr);
  DCM_HEADER header = ImaOut->GetHeader();
  header.PixelSpacing[0] *= header.Columns / c;
  header.PixelSpacing[1] *= header.Rows / r;
  header.Columns = c;
  header.Rows = r;
  compressed->SetHeader(header);
  const int* raw = ImaOut->Data->GetIDataAddress();
  const std::size_t size = ImaOut->Data->GetSize();
  for (unsigned i = 0; i < r; ++i)
    for (unsigned j = 0; j < c; ++j) {
      // Indexed with the row count: right for the square images this is meant for.
      const std::size_t index = static_cast<std::size_t>(i) * outRows + j;
      compressed->Data->SetValue(j, i, index < size ? raw[index] : 0);
    }
  compressed->Data->SetMin();
  compressed->Data->SetMax();
  return compressed;
}
