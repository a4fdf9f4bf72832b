// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_discrete_wavelet.h"

#include "ipg/internal/ipg_row_bands.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

// Daubechies' orthonormal low passes (sum sqrt(2)), extremal phase.
const std::vector<double> kDaubechies4 = {0.4829629131445341, 0.8365163037378079, 0.2241438680420134,
                                          -0.1294095225512604};
const std::vector<double> kDaubechies6 = {0.3326705529500826,  0.8068915093110925,  0.4598775021184915,
                                          -0.1350110200102546, -0.0854412738820267, 0.0352262918857095};
const std::vector<double> kDaubechies8 = {0.2303778133088964,  0.7148465705529154,  0.6308807679298587,
                                          -0.0279837694168599, -0.1870348117190931, 0.0308413818355607,
                                          0.0328830116668852,  -0.0105974017850690};
// CDF 9/7, symmetric about index 0.
const std::vector<double> kCdf97Analysis = {0.0378284555069955,  -0.0238494650193800, -0.1106244044184234,
                                            0.3774028556126538,  0.8526986790094034,  0.3774028556126538,
                                            -0.1106244044184234, -0.0238494650193800, 0.0378284555069955};
const std::vector<double> kCdf97Synthesis = {-0.0645388826289384, -0.0406894176095584, 0.4180922732222124,
                                             0.7884856164056651,  0.4180922732222124,  -0.0406894176095584,
                                             -0.0645388826289384};

int Last(const IPG_WAVELET_FILTER& f) { return f.First + static_cast<int>(f.Taps.size()) - 1; }

int Wrap(long long i, int n)
{
  const long long r = i % n;
  return static_cast<int>(r < 0 ? r + n : r);
}

// hi[n] = (-1)^(n+1) low[1 - n]: the quadrature mirror of the other channel's low pass.
IPG_WAVELET_FILTER Mirror(const IPG_WAVELET_FILTER& low)
{
  IPG_WAVELET_FILTER high;
  high.First = 1 - Last(low);
  for (int n = high.First; n <= 1 - low.First; ++n) {
    const double tap = low.Taps[static_cast<std::size_t>(1 - n - low.First)];
    high.Taps.push_back((n + 1) % 2 == 0 ? tap : -tap);
  }
  return high;
}

// f[-n]: correlating with it convolves with f.
IPG_WAVELET_FILTER Reversed(const IPG_WAVELET_FILTER& f)
{
  return {-Last(f), std::vector<double>(f.Taps.rbegin(), f.Taps.rend())};
}

IPG_WAVELET_FILTER Centred(const std::vector<double>& taps)
{
  return {-(static_cast<int>(taps.size()) / 2 - 1), taps};
}

// out[k] = gain * sum_t taps[t] x[(dec k + step (first + t)) mod n] for k < outCount,
// added to out when add.
void Correlate(const IPG_WAVELET_FILTER& f, int step, int dec, const double* x, int n, double* out, int outCount,
               double gain, bool add, std::vector<double>& ext)
{
  const int count = static_cast<int>(f.Taps.size());
  const long long start = static_cast<long long>(step) * f.First;
  ext.resize(static_cast<std::size_t>(dec) * (outCount - 1) + static_cast<std::size_t>(step) * (count - 1) + 1);
  int j = Wrap(start, n);
  for (double& e : ext) {
    e = x[j];
    j = j + 1 == n ? 0 : j + 1;
  }
  if (!add)
    std::fill(out, out + outCount, 0.0);
  for (int t = 0; t < count; ++t) {
    const double w = gain * f.Taps[static_cast<std::size_t>(t)];
    const double* e = ext.data() + static_cast<std::size_t>(step) * t;
    for (int k = 0; k < outCount; ++k)
      out[k] += w * e[static_cast<std::size_t>(dec) * k];
  }
}

// body(first, end) over row bands of `rows` rows, in parallel when worth it.
template <typename Body>
void InBands(int rows, int cols, Body body)
{
  const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(cols));
  Ipg_RunBands(bands,
               [&](unsigned, unsigned first, unsigned end) { body(static_cast<int>(first), static_cast<int>(end)); });
}

// The same along columns: output row k combines whole input rows.
void CorrelateColumns(const IPG_WAVELET_FILTER& f, int step, int dec, const double* x, int rows, int cols, double* out,
                      int outRows, double gain, bool add)
{
  InBands(outRows, cols, [&](int first, int end) {
    for (int k = first; k < end; ++k) {
      double* o = out + static_cast<std::size_t>(k) * cols;
      if (!add)
        std::fill(o, o + cols, 0.0);
      for (std::size_t t = 0; t < f.Taps.size(); ++t) {
        const long long position = static_cast<long long>(dec) * k + step * (f.First + static_cast<long long>(t));
        const double* src = x + static_cast<std::size_t>(Wrap(position, rows)) * cols;
        const double w = gain * f.Taps[t];
        for (int c = 0; c < cols; ++c)
          o[c] += w * src[c];
      }
    }
  });
}

// Correlate on every row of a rows x cols image.
void CorrelateRows(const IPG_WAVELET_FILTER& f, int step, const double* in, int rows, int cols, double* out,
                   double gain, bool add)
{
  InBands(rows, cols, [&](int first, int end) {
    std::vector<double> ext;
    for (int r = first; r < end; ++r) {
      const std::size_t at = static_cast<std::size_t>(r) * cols;
      Correlate(f, step, 1, in + at, cols, out + at, cols, gain, add, ext);
    }
  });
}

// x[m] += sum_k in[k] f[m - 2k] (periodic, length n = 2 count), the decimated synthesis.
void Scatter(const IPG_WAVELET_FILTER& f, const double* in, int count, double* x, int n, std::vector<double>& ext)
{
  const int taps = static_cast<int>(f.Taps.size());
  ext.assign(static_cast<std::size_t>(2 * (count - 1) + taps), 0.0);
  for (int k = 0; k < count; ++k)
    for (int t = 0; t < taps; ++t)
      ext[static_cast<std::size_t>(2 * k + t)] += in[k] * f.Taps[static_cast<std::size_t>(t)];
  int j = Wrap(f.First, n);
  for (double e : ext) {
    x[j] += e;
    j = j + 1 == n ? 0 : j + 1;
  }
}

void ScatterColumns(const IPG_WAVELET_FILTER& f, const double* in, int count, int cols, double* x, int rows)
{
  for (int k = 0; k < count; ++k)
    for (std::size_t t = 0; t < f.Taps.size(); ++t) {
      double* dst = x + static_cast<std::size_t>(Wrap(2LL * k + f.First + static_cast<int>(t), rows)) * cols;
      const double* src = in + static_cast<std::size_t>(k) * cols;
      const double w = f.Taps[t];
      for (int c = 0; c < cols; ++c)
        dst[c] += w * src[c];
    }
}

// One decimated level on the contiguous w x h block b.
void ForwardLevel(const IPG_WAVELET_BANK& bank, std::vector<double>& b, int w, int h)
{
  std::vector<double> row(static_cast<std::size_t>(w)), ext;
  for (int r = 0; r < h; ++r) {
    double* line = b.data() + static_cast<std::size_t>(r) * w;
    Correlate(bank.LowAnalysis, 1, 2, line, w, row.data(), w / 2, 1.0, false, ext);
    Correlate(bank.HighAnalysis, 1, 2, line, w, row.data() + w / 2, w / 2, 1.0, false, ext);
    std::copy(row.begin(), row.end(), line);
  }
  std::vector<double> out(b.size());
  CorrelateColumns(bank.LowAnalysis, 1, 2, b.data(), h, w, out.data(), h / 2, 1.0, false);
  CorrelateColumns(bank.HighAnalysis, 1, 2, b.data(), h, w, out.data() + static_cast<std::size_t>(h / 2) * w, h / 2,
                   1.0, false);
  b.swap(out);
}

void InverseLevel(const IPG_WAVELET_BANK& bank, std::vector<double>& b, int w, int h)
{
  std::vector<double> out(b.size(), 0.0);
  ScatterColumns(bank.LowSynthesis, b.data(), h / 2, w, out.data(), h);
  ScatterColumns(bank.HighSynthesis, b.data() + static_cast<std::size_t>(h / 2) * w, h / 2, w, out.data(), h);
  std::vector<double> row(static_cast<std::size_t>(w)), ext;
  for (int r = 0; r < h; ++r) {
    double* line = out.data() + static_cast<std::size_t>(r) * w;
    std::fill(row.begin(), row.end(), 0.0);
    Scatter(bank.LowSynthesis, line, w / 2, row.data(), w, ext);
    Scatter(bank.HighSynthesis, line + w / 2, w / 2, row.data(), w, ext);
    std::copy(row.begin(), row.end(), line);
  }
  b.swap(out);
}

void CopyBlock(const double* from, int fromStride, double* to, int toStride, int w, int h)
{
  for (int r = 0; r < h; ++r)
    std::copy(from + static_cast<std::size_t>(r) * fromStride, from + static_cast<std::size_t>(r) * fromStride + w,
              to + static_cast<std::size_t>(r) * toStride);
}

} // namespace

bool Ipg_WaveletBank(int name, IPG_WAVELET_BANK& bank)
{
  const double half = 1.0 / std::sqrt(2.0);
  switch (name) {
  case 0: bank.LowAnalysis = {0, {half, half}}; break;
  case 1: bank.LowAnalysis = Centred(kDaubechies4); break;
  case 2: bank.LowAnalysis = Centred(kDaubechies6); break;
  case 3: bank.LowAnalysis = Centred(kDaubechies8); break;
  case 4: bank.LowAnalysis = {-4, kCdf97Analysis}; break;
  default: return false;
  }
  bank.LowSynthesis = name == 4 ? IPG_WAVELET_FILTER{-3, kCdf97Synthesis} : bank.LowAnalysis;
  bank.HighAnalysis = Mirror(bank.LowSynthesis);
  bank.HighSynthesis = Mirror(bank.LowAnalysis);
  return true;
}

void Ipg_DwtForward(const IPG_WAVELET_BANK& bank, double* image, int cols, int rows, int scales)
{
  std::vector<double> block;
  for (int level = 0, w = cols, h = rows; level < scales; ++level, w /= 2, h /= 2) {
    block.resize(static_cast<std::size_t>(w) * h);
    CopyBlock(image, cols, block.data(), w, w, h);
    ForwardLevel(bank, block, w, h);
    CopyBlock(block.data(), w, image, cols, w, h);
  }
}

void Ipg_DwtInverse(const IPG_WAVELET_BANK& bank, double* image, int cols, int rows, int scales)
{
  std::vector<double> block;
  for (int level = scales - 1; level >= 0; --level) {
    const int w = cols >> level, h = rows >> level;
    block.resize(static_cast<std::size_t>(w) * h);
    CopyBlock(image, cols, block.data(), w, w, h);
    InverseLevel(bank, block, w, h);
    CopyBlock(block.data(), w, image, cols, w, h);
  }
}

void Ipg_SwtForwardLevel(const IPG_WAVELET_BANK& bank, const double* in, int cols, int rows, int level,
                         IPG_FRAME_BANDS& bands)
{
  const int step = 1 << level;
  const std::size_t n = static_cast<std::size_t>(cols) * rows;
  std::vector<double> low(n), high(n);
  CorrelateRows(bank.LowAnalysis, step, in, rows, cols, low.data(), 1.0, false);
  CorrelateRows(bank.HighAnalysis, step, in, rows, cols, high.data(), 1.0, false);
  for (auto* band : {&bands.Approximation, &bands.Horizontal, &bands.Vertical, &bands.Diagonal})
    band->resize(n);
  CorrelateColumns(bank.LowAnalysis, step, 1, low.data(), rows, cols, bands.Approximation.data(), rows, 1.0, false);
  CorrelateColumns(bank.HighAnalysis, step, 1, low.data(), rows, cols, bands.Horizontal.data(), rows, 1.0, false);
  CorrelateColumns(bank.LowAnalysis, step, 1, high.data(), rows, cols, bands.Vertical.data(), rows, 1.0, false);
  CorrelateColumns(bank.HighAnalysis, step, 1, high.data(), rows, cols, bands.Diagonal.data(), rows, 1.0, false);
}

void Ipg_SwtInverseLevel(const IPG_WAVELET_BANK& bank, const IPG_FRAME_BANDS& bands, int cols, int rows, int level,
                         double* out)
{
  const int step = 1 << level;
  const IPG_WAVELET_FILTER lo = Reversed(bank.LowSynthesis), hi = Reversed(bank.HighSynthesis);
  const std::size_t n = static_cast<std::size_t>(cols) * rows;
  std::vector<double> low(n), high(n);
  // Each 1-D synthesis halves the sum of its two channels.
  CorrelateColumns(lo, step, 1, bands.Approximation.data(), rows, cols, low.data(), rows, 0.5, false);
  CorrelateColumns(hi, step, 1, bands.Horizontal.data(), rows, cols, low.data(), rows, 0.5, true);
  CorrelateColumns(lo, step, 1, bands.Vertical.data(), rows, cols, high.data(), rows, 0.5, false);
  CorrelateColumns(hi, step, 1, bands.Diagonal.data(), rows, cols, high.data(), rows, 0.5, true);
  CorrelateRows(lo, step, low.data(), rows, cols, out, 0.5, false);
  CorrelateRows(hi, step, high.data(), rows, cols, out, 0.5, true);
}
