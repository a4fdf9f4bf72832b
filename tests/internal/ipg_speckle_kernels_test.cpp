// SPDX-License-Identifier: Apache-2.0
// The despeckling passes against plain, one-pixel-at-a-time versions of the
// same arithmetic: the fast kernels must give the very same pixels and
// extremes, whatever the image, the ROI, the marks, the window and the threads.
#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_kernel_images.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_speckle_frame.h"
#include "ipg/internal/ipg_speckle_kernels.h"
#include "ipg/internal/ipg_speckle_windows.h"
#include "ipg/internal/ipg_summed_area.h"
#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using Pass = std::function<void(const double*, double*, int, int)>;

std::size_t At(int c, int r, int cols) { return static_cast<std::size_t>(r) * cols + c; }

// Window moments from row-run summed-area tables, the left strip subtracted first.
struct Sums {
  Sums(const double* in, int cols, int rows)
      : Cols(cols), Rows(rows),
        Sum(Ipg_SummedArea<double>::ByRowRuns(cols, rows, [&](int c, int r) { return in[At(c, r, cols)]; })),
        Squares(Ipg_SummedArea<double>::ByRowRuns(cols, rows, [&](int c, int r) { return in[At(c, r, cols)] * in[At(c, r, cols)]; }))
  {
  }
  void Window(int c, int r, int half, double& n, double& s, double& q) const
  {
    const Ipg_Rect w = Ipg_ClippedWindow(c, r, half, Cols, Rows);
    n = w.Area();
    s = Sum.Over(w);
    q = Squares.Over(w);
  }
  void Moments(int c, int r, int half, double& mean, double& variance) const
  {
    double n = 0, s = 0, q = 0;
    Window(c, r, half, n, s, q);
    mean = s / n;
    variance = std::max(0.0, q / n - mean * mean);
  }
  int Cols, Rows;
  Ipg_SummedArea<double> Sum, Squares;
};

double Median(std::vector<double> v)
{
  if (v.empty())
    return 0.0;
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

// Median over the pixels of positive local mean of variance / mean^power.
double MedianRatio(const double* in, int cols, int rows, int half, int power)
{
  const Sums sums(in, cols, rows);
  std::vector<double> ratios;
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) {
      double m = 0, v = 0;
      sums.Moments(c, r, half, m, v);
      if (m > 0.0)
        ratios.push_back(power == 2 ? v / (m * m) : v / m);
    }
  return Median(ratios);
}

void Diffuse(const double* in, double* out, int cols, int rows, const std::vector<double>& c, double dt)
{
  for (int r = 0; r < rows; ++r)
    for (int col = 0; col < cols; ++col) {
      const std::size_t i = At(col, r, cols);
      const double v = in[i];
      double flux = 0.0;
      if (col + 1 < cols)
        flux += c[i + 1] * (in[i + 1] - v);
      if (col > 0)
        flux += c[i] * (in[i - 1] - v);
      if (r + 1 < rows)
        flux += c[i + cols] * (in[i + cols] - v);
      if (r > 0)
        flux += c[i] * (in[i - cols] - v);
      out[i] = v + 0.25 * dt * flux;
    }
}

Pass Srad(double dt)
{
  return [dt](const double* in, double* out, int cols, int rows) {
    const double q0sq = MedianRatio(in, cols, rows, 2, 2);
    std::vector<double> c(static_cast<std::size_t>(cols) * rows);
    for (int r = 0; r < rows; ++r)
      for (int col = 0; col < cols; ++col) {
        const std::size_t i = At(col, r, cols);
        const double v = in[i];
        const double dN = r > 0 ? in[i - cols] - v : 0.0, dS = r + 1 < rows ? in[i + cols] - v : 0.0;
        const double dW = col > 0 ? in[i - 1] - v : 0.0, dE = col + 1 < cols ? in[i + 1] - v : 0.0;
        const double level = std::max(v, 1e-9);
        const double gradient2 = (dN * dN + dS * dS + dW * dW + dE * dE) / (level * level);
        const double laplacian = (dN + dS + dW + dE) / level;
        const double den = (1.0 + 0.25 * laplacian) * (1.0 + 0.25 * laplacian);
        const double q2 = den < 1e-9 ? INFINITY : (0.5 * gradient2 - laplacian * laplacian / 16.0) / den;
        double k = 0.0;
        if (q0sq <= 0.0)
          k = q2 <= 0.0 ? 1.0 : 0.0;
        else if (!std::isinf(q2))
          k = 1.0 / (1.0 + (q2 - q0sq) / (q0sq * (1.0 + q0sq)));
        c[i] = (k < 0.0 || k > 1.0) ? 1.0 : k;
      }
    Diffuse(in, out, cols, rows, c, dt);
  };
}

Pass Dpad(int half, double dt)
{
  return [half, dt](const double* in, double* out, int cols, int rows) {
    const double cu2 = MedianRatio(in, cols, rows, half, 2);
    const Sums sums(in, cols, rows);
    std::vector<double> c(static_cast<std::size_t>(cols) * rows, 1.0);
    for (int r = 0; r < rows; ++r)
      for (int col = 0; col < cols; ++col) {
        double m = 0, v = 0;
        sums.Moments(col, r, half, m, v);
        if (m > 0.0 && v > 0.0)
          c[At(col, r, cols)] = cu2 <= 0.0 ? 0.0 : std::clamp((1.0 + 1.0 / (v / (m * m))) / (1.0 + 1.0 / cu2), 0.0, 1.0);
      }
    Diffuse(in, out, cols, rows, c, dt);
  };
}

Pass Awmf(int half, int centre, double scale = 0.0)
{
  return [=](const double* in, double* out, int cols, int rows) {
    double b = scale;
    if (b <= 0.0) {
      const double typical = MedianRatio(in, cols, rows, half, 1), farthest = half * std::sqrt(2.0);
      b = typical <= 0.0 || farthest <= 0.0 ? 0.0 : centre / (2.0 * farthest * typical);
    }
    const Sums sums(in, cols, rows);
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        double m = 0, v = 0;
        sums.Moments(c, r, half, m, v);
        const double ratio = m > 0.0 ? v / m : 0.0;
        std::vector<std::pair<double, long>> cells;
        long total = 0;
        for (int y = std::max(0, r - half); y <= std::min(rows - 1, r + half); ++y)
          for (int x = std::max(0, c - half); x <= std::min(cols - 1, c + half); ++x) {
            const double w = std::round(centre - b * std::hypot(double(x - c), double(y - r)) * ratio);
            const long weight = w > 0.0 ? static_cast<long>(std::min(w, 1e9)) : 0L;
            if (weight > 0) {
              cells.emplace_back(in[At(x, y, cols)], weight);
              total += weight;
            }
          }
        std::sort(cells.begin(), cells.end());
        double median = in[At(c, r, cols)];
        for (long seen = 0; const auto& [value, weight] : cells)
          if ((seen += weight) > total / 2) {
            median = value;
            break;
          }
        out[At(c, r, cols)] = median;
      }
  };
}

Pass Neighbourhood(int maxArea, double k)
{
  return [=](const double* in, double* out, int cols, int rows) {
    const double cu2 = MedianRatio(in, cols, rows, 2, 2), cu = std::sqrt(std::max(0.0, cu2));
    const Sums sums(in, cols, rows);
    std::vector<int> seen(static_cast<std::size_t>(cols) * rows, -1); // the last seed that saw each pixel
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        double m0 = 0, unused = 0;
        sums.Moments(c, r, 1, m0, unused);
        const int seed = static_cast<int>(At(c, r, cols));
        std::vector<std::pair<int, int>> region{{c, r}};
        seen[At(c, r, cols)] = seed;
        double sum = in[At(c, r, cols)], squares = sum * sum;
        for (std::size_t next = 0; next < region.size() && int(region.size()) < maxArea; ++next)
          for (const auto& [dx, dy] : {std::pair{0, -1}, {1, -1}, {1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}}) {
            const int x = region[next].first + dx, y = region[next].second + dy;
            if (int(region.size()) >= maxArea || x < 0 || y < 0 || x >= cols || y >= rows || seen[At(x, y, cols)] == seed)
              continue;
            seen[At(x, y, cols)] = seed;
            const double v = in[At(x, y, cols)];
            if (std::fabs(v - m0) <= k * cu * std::fabs(m0)) {
              region.emplace_back(x, y);
              sum += v;
              squares += v * v;
            }
          }
        const double n = double(region.size()), m = sum / n, variance = std::max(0.0, squares / n - m * m);
        double w = 0.0;
        if (m > 0.0 && variance > 0.0)
          w = std::clamp((1.0 - cu2 / (variance / (m * m))) / (1.0 + cu2), 0.0, 1.0);
        out[At(c, r, cols)] = m + w * (in[At(c, r, cols)] - m);
      }
  };
}

// Min, max, sum and count of the window of (c, r) without the centre.
struct Others {
  double Min = INFINITY, Max = -INFINITY, Sum = 0.0;
  int Count = 0;
  bool Extremum(double v) const { return Count > 0 && (v > Max || v < Min); }
};
Others OthersOf(const double* in, int cols, int rows, int c, int r, int half)
{
  Others o;
  for (int y = std::max(0, r - half); y <= std::min(rows - 1, r + half); ++y)
    for (int x = std::max(0, c - half); x <= std::min(cols - 1, c + half); ++x)
      if (x != c || y != r) {
        const double v = in[At(x, y, cols)];
        o.Min = std::min(o.Min, v);
        o.Max = std::max(o.Max, v);
        o.Sum += v;
        ++o.Count;
      }
  return o;
}

Pass SbfDvw(int maxHalf, double factor)
{
  return [=](const double* in, double* out, int cols, int rows) {
    const double limit = factor * factor * MedianRatio(in, cols, rows, 2, 2);
    const Sums sums(in, cols, rows);
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        const double v = in[At(c, r, cols)];
        out[At(c, r, cols)] = v;
        if (!OthersOf(in, cols, rows, c, r, 1).Extremum(v))
          continue;
        double count = 0, sum = 0, squares = 0;
        sums.Window(c, r, 1, count, sum, squares);
        for (int h = 2; h <= maxHalf; ++h) {
          double n = 0, s = 0, q = 0;
          sums.Window(c, r, h, n, s, q);
          const double mean = s / n, variance = std::max(0.0, q / n - mean * mean);
          if (mean <= 0.0 || variance > limit * mean * mean)
            break;
          count = n;
          sum = s;
        }
        out[At(c, r, cols)] = count > 1.0 ? (sum - v) / (count - 1.0) : v;
      }
  };
}

Pass Squeeze(int half, bool weighted)
{
  return [=](const double* in, double* out, int cols, int rows) {
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        const double v = in[At(c, r, cols)];
        const Others o = OthersOf(in, cols, rows, c, r, half);
        double& target = out[At(c, r, cols)];
        target = o.Extremum(v) ? o.Sum / o.Count : v;
        if (!weighted || !o.Extremum(v))
          continue;
        const double m = target;
        auto each = [&](auto f) {
          for (int y = std::max(0, r - half); y <= std::min(rows - 1, r + half); ++y)
            for (int x = std::max(0, c - half); x <= std::min(cols - 1, c + half); ++x)
              if (x != c || y != r)
                f(in[At(x, y, cols)]);
        };
        double spread = 0.0, sum = 0.0, weights = 0.0;
        each([&](double x) { spread += (x - m) * (x - m); });
        const double s2 = spread / o.Count;
        if (s2 <= 0.0)
          continue;
        each([&](double x) {
          const double w = std::exp(-(x - m) * (x - m) / (2.0 * s2));
          sum += w * x;
          weights += w;
        });
        target = weights > 0.0 ? sum / weights : m;
      }
  };
}

Pass AdaptiveMedian(int maxHalf)
{
  return [=](const double* in, double* out, int cols, int rows) {
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        const double v = in[At(c, r, cols)];
        double median = v;
        for (int h = 1; h <= maxHalf; ++h) {
          std::vector<double> window;
          for (int y = std::max(0, r - h); y <= std::min(rows - 1, r + h); ++y)
            for (int x = std::max(0, c - h); x <= std::min(cols - 1, c + h); ++x)
              window.push_back(in[At(x, y, cols)]);
          std::sort(window.begin(), window.end());
          median = window[window.size() / 2];
          if (window.front() < median && median < window.back()) {
            median = (window.front() < v && v < window.back()) ? v : median;
            break;
          }
        }
        out[At(c, r, cols)] = median;
      }
  };
}

Pass Sigma(const DCM_STRUCT* roiImage, int half, int fewest, double range)
{
  return [=, roi = Ipg_RoiRowsOf(roiImage)](const double* in, double* out, int cols, int rows) {
    std::vector<int> p(static_cast<std::size_t>(cols) * rows);
    for (std::size_t i = 0; i < p.size(); ++i)
      p[i] = static_cast<int>(std::lround(in[i])); // the frame's values are within int
    const double cu = std::sqrt(MedianRatio(in, cols, rows, 2, 2));
    const auto usable = [&](int x, int y) { return p[At(x, y, cols)] <= 16777216 && roi.Inside(x, y); };
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        out[At(c, r, cols)] = in[At(c, r, cols)];
        if (!usable(c, r))
          continue;
        const int reference = p[At(c, r, cols)];
        const long tolerance = std::lround(range * cu * std::fabs(double(reference)));
        double sum = reference, neighbours = 0.0;
        int similar = 0, around = 0;
        for (int y = std::max(0, r - half); y <= std::min(rows - 1, r + half); ++y)
          for (int x = std::max(0, c - half); x <= std::min(cols - 1, c + half); ++x) {
            if (x == c && y == r)
              continue;
            if (usable(x, y) && std::labs(long(p[At(x, y, cols)]) - reference) <= tolerance) {
              sum += p[At(x, y, cols)];
              ++similar;
            }
          }
        for (int y = std::max(0, r - 1); y <= std::min(rows - 1, r + 1); ++y)
          for (int x = std::max(0, c - 1); x <= std::min(cols - 1, c + 1); ++x)
            if (x != c || y != r) {
              neighbours += in[At(x, y, cols)];
              ++around;
            }
        if (similar >= fewest)
          out[At(c, r, cols)] = sum / (similar + 1);
        else if (around > 0)
          out[At(c, r, cols)] = neighbours / around;
      }
  };
}

// The kernels as the filters call them.
Pass FastSrad(double dt)
{
  return [dt](const double* in, double* out, int cols, int rows) {
    Ipg_SradPass(in, out, cols, rows, dt, Ipg_SpeckleCu2(in, cols, rows, 2));
  };
}

Pass FastDpad(int half, double dt)
{
  return [=](const double* in, double* out, int cols, int rows) {
    Ipg_DpadPass(in, out, cols, rows, half, dt, Ipg_SpeckleCu2(in, cols, rows, half));
  };
}

Pass FastAwmf(int half, int centre, double scale = 0.0)
{
  return [=](const double* in, double* out, int cols, int rows) {
    const double b = scale > 0.0 ? scale : Ipg_AwmfAutoScale(in, cols, rows, half, centre);
    Ipg_AwmfPass(in, out, cols, rows, half, centre, b);
  };
}

Pass FastNeighbourhood(int area, double k)
{
  return [=, buffers = std::make_shared<Ipg_SpeckleBuffers>()](const double* in, double* out, int cols, int rows) {
    const double cu2 = Ipg_SpeckleCu2(in, cols, rows, 2);
    Ipg_AdaptiveNeighbourhoodPass(in, out, cols, rows, area, k, cu2, buffers.get());
  };
}

Pass FastSbfDvw(int half, double factor)
{
  return [=](const double* in, double* out, int cols, int rows) {
    Ipg_SbfDvwPass(in, out, cols, rows, half, factor, Ipg_SpeckleCu2(in, cols, rows, 2));
  };
}

struct Filter {
  int First;
  int Second;
  double Real;
  std::function<bool(IPG_FILTER_PROCESSING&)> Run;
  Pass Reference;
  Pass Fast; // when the filter is a single kernel call
};

std::vector<Filter> Filters(const DCM_STRUCT* roi = nullptr)
{
  using F = IPG_FILTER_PROCESSING;
  return {
      {0, 0, 0.2, &F::SRAD, Srad(0.2), FastSrad(0.2)},
      {0, 0, 0.7, &F::SRAD, Srad(0.7), FastSrad(0.7)},
      {5, 0, 0.2, &F::ADespeckling, Dpad(2, 0.2), FastDpad(2, 0.2)},
      {3, 0, 0.5, &F::ADespeckling, Dpad(1, 0.5), FastDpad(1, 0.5)},
      {5, 99, 0.0, &F::AWMF, Awmf(2, 99), FastAwmf(2, 99)},
      {3, 10, 0.0, &F::AWMF, Awmf(1, 10), FastAwmf(1, 10)},
      {7, 20, 0.8, &F::AWMF, Awmf(3, 20, 0.8), FastAwmf(3, 20, 0.8)},
      {17, 30, 0.0, &F::AWMF, Awmf(8, 30), FastAwmf(8, 30)}, // selected rather than counted
      {49, 0, 2.0, &F::N_B_Filter, Neighbourhood(49, 2.0), FastNeighbourhood(49, 2.0)},
      {9, 0, 1.0, &F::N_B_Filter, Neighbourhood(9, 1.0), FastNeighbourhood(9, 1.0)},
      {7, 0, 1.5, &F::SBF_DVW, SbfDvw(3, 1.5), FastSbfDvw(3, 1.5)},
      {11, 0, 3.0, &F::SBF_DVW, SbfDvw(5, 3.0), FastSbfDvw(5, 3.0)},
      {3, 0, 0.0, &F::WSBF, Squeeze(1, true), [](auto... a) { Ipg_WsbfPass(a..., 1); }},
      {5, 0, 0.0, &F::WSBF, Squeeze(2, true), [](auto... a) { Ipg_WsbfPass(a..., 2); }},
      {3, 0, 0.0, &F::SBF, Squeeze(1, false), [](auto... a) { Ipg_SbfPass(a..., 1); }},
      {7, 0, 0.0, &F::SBF, Squeeze(3, false), [](auto... a) { Ipg_SbfPass(a..., 3); }},
      {7, 0, 0.0, &F::Filtre_Impuls, AdaptiveMedian(3), [](auto... a) { Ipg_AdaptiveMedianPass(a..., 3); }},
      {3, 0, 0.0, &F::Filtre_Impuls, AdaptiveMedian(1), [](auto... a) { Ipg_AdaptiveMedianPass(a..., 1); }},
      {5, 3, 2.0, &F::AdaptativeDenoise, Sigma(roi, 2, 3, 2.0),
       [roi = Ipg_RoiRowsOf(roi)](auto... a) { Ipg_SigmaFilterPass(a..., roi, 2, 3, 2.0); }},
      {3, 6, 0.5, &F::AdaptativeDenoise, Sigma(roi, 1, 6, 0.5),
       [roi = Ipg_RoiRowsOf(roi)](auto... a) { Ipg_SigmaFilterPass(a..., roi, 1, 6, 0.5); }},
  };
}

// Gamma speckle of one look over two levels, with zero patches, a few
// negative levels (one beyond a float's whole numbers) and marks: every path of the windows gets exercised.
std::unique_ptr<DCM_STRUCT> Speckled(std::mt19937& random, unsigned cols, unsigned rows)
{
  std::exponential_distribution<double> speckle(1.0);
  std::uniform_int_distribution<int> kind(0, 99);
  return TestImage(cols, rows)
      .Each([&](unsigned c, unsigned r) {
        const int k = kind(random);
        if (k < 2)
          return 17000000 + k;
        if (k < 4)
          return -k * 40;
        if (k == 4)
          return -33554433; // below -2^24: not a float
        if ((c / 5 + r / 7) % 9 == 4)
          return 0;
        return static_cast<int>((c * 3 > cols ? 900.0 : 250.0) * speckle(random));
      })
      .Build();
}

struct Setting {
  unsigned Cols, Rows;
  int Threads;
  bool WithRoi;
  bool Simd;
};

TEST(SpeckleKernels, FastPassesGiveThePlainPassesPixels)
{
  MessageCapture messages; // windows larger than the image are refused
  std::mt19937 random(5);
  // Thin and small images at one thread (a tall one where the working image
  // climbs a few passes before it moves back); images large enough for
  // several bands at two and seven.
  const Setting settings[] = {{1, 1, 1, true, true},    {1, 9, 1, false, true},    {13, 2, 1, true, true},
                      {2, 11, 1, false, true},
                      {23, 17, 1, true, false}, {40, 33, 1, true, true},   {24, 160, 1, false, true},
                      {91, 90, 2, false, true},
                      {90, 91, 7, true, false}};
  for (const Setting& run : settings) {
    auto in = Speckled(random, run.Cols, run.Rows);
    auto roi = TestImage(run.Cols, run.Rows).Rect(run.Cols / 4, 0, run.Cols / 2 + 1, run.Rows, kRoiInside).Build();
    DCM_STRUCT* mask = run.WithRoi ? roi.get() : nullptr;
    Ipg_SetNumThreads(run.Threads);
    Ipg_SetSimdEnabled(run.Simd);
    for (const Filter& filter : Filters(mask)) {
      SCOPED_TRACE(testing::Message() << run.Cols << "x" << run.Rows << " params " << filter.First << ","
                                      << filter.Second << "," << filter.Real << " threads " << run.Threads);
      const int iterations = run.Cols * run.Rows > 4000 ? 2 : 3;
      DCM_STRUCT fast(run.Cols, run.Rows), plain(run.Cols, run.Rows);
      IPG_FILTER_PROCESSING op(in.get(), mask);
      op.SetImaOut(&fast);
      op.SetNbIter(iterations);
      op.SetAdaptatifFiltreParameters(filter.First, filter.Second, filter.Real);
      if (!filter.Run(op))
        continue; // a window or a region larger than the image
      ASSERT_TRUE(Ipg_RunSpeckleJob({in.get(), &plain, mask, iterations, "", "", 1}, filter.Reference));
      ASSERT_EQ(PixelsOf(fast), PixelsOf(plain));
      EXPECT_EQ(fast.Data->GetMin(), plain.Data->GetMin());
      EXPECT_EQ(fast.Data->GetMax(), plain.Data->GetMax());
    }
  }
  Ipg_SetNumThreads(0);
  Ipg_SetSimdEnabled(true);
}

// Real-valued input, as after a first pass, where any change in the order of
// the operations shows in the last bits: three passes, every bit compared.
TEST(SpeckleKernels, FastPassesKeepEveryBitOfRealValues)
{
  std::mt19937 random(11);
  std::gamma_distribution<double> speckle(1.0, 1.0);
  // The last image is large enough for the diffusion steps (the first four
  // filters) to split into bands; the other filters skip it.
  for (const auto& [cols, rows, threads] : {std::tuple{37, 29, 1}, std::tuple{90, 93, 2}, std::tuple{512, 257, 2}}) {
    std::vector<double> image(static_cast<std::size_t>(cols) * rows);
    for (std::size_t i = 0; i < image.size(); ++i)
      image[i] = (i % cols < 20 ? 123.4 : 901.7) * speckle(random);
    Ipg_SetNumThreads(threads);
    const std::vector<Filter> filters = Filters();
    for (const Filter& filter : std::span(filters).first(cols > 256 ? 4 : filters.size())) {
      SCOPED_TRACE(testing::Message() << cols << "x" << rows << " params " << filter.First << "," << filter.Real);
      std::vector<double> fast = image, plain = image, fastNext(image.size()), plainNext(image.size());
      for (int pass = 0; pass < 3; ++pass) {
        filter.Fast(fast.data(), fastNext.data(), cols, rows);
        filter.Reference(plain.data(), plainNext.data(), cols, rows);
        fast.swap(fastNext);
        plain.swap(plainNext);
      }
      ASSERT_EQ(0, std::memcmp(fast.data(), plain.data(), fast.size() * sizeof(double)));
    }
  }
  Ipg_SetNumThreads(0);
}

} // namespace
