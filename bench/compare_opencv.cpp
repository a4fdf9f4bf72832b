// SPDX-License-Identifier: Apache-2.0
// IPG against OpenCV in the same process, on 512 x 512 and 2048 x 2048 12-bit
// noise images: for each kernel the best of 5 runs of both libraries, single
// threaded and on every core, their ratio, and whether both computed the same
// pixels (or values) where they compute the same thing. A plain copy of the
// image is the floor of any one-pass operator. Ends with the peak resident set.
#include "bench/opencv_pairs.h"
#include "ipg/arithmetic/ipg_arithmetic1.h"
#include "ipg/arithmetic/ipg_arithmetic2.h"
#include "ipg/filtering/ipg_generic_processing.h"
#include "ipg/filtering/ipg_histo.h"
#include "ipg/frequency/ipg_fft_one_input.h"
#include "ipg/frequency/ipg_fft_two_inputs.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/measurement/ipg_statistic1.h"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstring>

using namespace opencv_pairs;

namespace {

// The forward 2-D transform: IPG's real part of the centred spectrum (1210,
// raw = trunc(10 re)) against cv::dft of the image converted to depth, whole
// complex spectrum. Both sides include reading the integer pixels.
Pair ForwardFft(DCM_STRUCT& in, DCM_STRUCT& out, const cv::Mat& src, int depth)
{
  auto spectrum = std::make_shared<cv::Mat>();
  const std::string name = std::string("forward 2-D FFT (1210), CV ") + (depth == CV_64F ? "64F" : "32F");
  return {name, [&in, &out] {
            IPG_FFT_ONE_INPUT op(&in, &out);
            op.SetTools(1210);
            op.Apply();
          },
          [src, depth, spectrum] {
            cv::Mat real;
            src.convertTo(real, depth);
            cv::dft(real, *spectrum, cv::DFT_COMPLEX_OUTPUT);
          },
          [&out, spectrum, depth] {
            const int rows = spectrum->rows, cols = spectrum->cols;
            // OpenCV's coefficient (row y, column x) is IPG's [x][y], written to
            // pixel ((x + cols/2) mod cols, (y + rows/2) mod rows).
            // Tenths beyond the 32-bit range (the zero frequency) are stored at the bound.
            double worst = 0;
            for (int y = 0; y < rows; ++y)
              for (int x = 0; x < cols; ++x) {
                const double re = depth == CV_64F ? spectrum->at<cv::Vec2d>(y, x)[0] : spectrum->at<cv::Vec2f>(y, x)[0];
                const int raw = out.Data->GetValue((x + cols / 2) % cols, (y + rows / 2) % rows);
                if (std::fabs(10 * re) < 2147483647.0)
                  worst = std::max(worst, std::fabs(raw - 10 * re));
              }
            char text[64];
            std::snprintf(text, sizeof text, "tenths within %.2g", worst);
            return std::string(text);
          }};
}

// The inverse 2-D transform: IPG's image rebuilt from a real-part and an
// imaginary-part image (1301, raw = trunc(re x precision)) against cv::idft (scaled) of the
// same complex array at 64F. Both sides include reading the integer pixels.
Pair InverseFft(DCM_STRUCT& real, DCM_STRUCT& imaginary, DCM_STRUCT& out, const cv::Mat& re, const cv::Mat& im)
{
  auto image = std::make_shared<cv::Mat>();
  return {"inverse 2-D FFT (1301), CV 64F", [&real, &imaginary, &out] {
            IPG_FFT_TWO_INPUTS op(&real, &imaginary, &out);
            op.SetTools(1301);
            op.Apply();
          },
          [re, im, image] {
            cv::Mat planes[2], spectrum;
            re.convertTo(planes[0], CV_64F);
            im.convertTo(planes[1], CV_64F);
            cv::merge(planes, 2, spectrum);
            cv::idft(spectrum, *image, cv::DFT_SCALE | cv::DFT_COMPLEX_OUTPUT);
          },
          [&out, image] {
            // OpenCV's (row y, column x) is IPG's pixel (x, y), stored at the
            // output's precision (10, left there by the forward rows).
            double worst = 0;
            for (int y = 0; y < image->rows; ++y)
              for (int x = 0; x < image->cols; ++x)
                worst = std::max(worst, std::fabs(out.Data->GetValueReal(x, y) - image->at<cv::Vec2d>(y, x)[0]));
            char text[64];
            std::snprintf(text, sizeof text, "within %.2g", worst);
            return std::string(text);
          }};
}

void RunAt(int side)
{
  auto in = Noise12Bit(side, 1);
  auto second = Noise12Bit(side, 2);
  DCM_STRUCT out(side, side);
  cv::Mat src = View(*in), other = View(*second), dst, mask;
  cv::Mat src16, src32f;
  src.convertTo(src16, CV_16U);
  src.convertTo(src32f, CV_32F);
  const auto same = [&] { return SamePixels(View(out), dst) ? std::string("same") : std::string("DIFFER"); };

  std::vector<Pair> pairs;
  pairs.push_back({"copy of the image (floor)", [&] { std::memcpy(out.Data->GetIDataAddress(), in->Data->GetIDataAddress(), in->Data->GetSize() * 4); },
                   [&] { src.copyTo(dst); }, same});
  pairs.push_back({"add constant (200, mode 302)", [&] {
                     IPG_ARITHMETIC1 op(in.get());
                     op.SetImaOut(&out);
                     op.SetVariable(100);
                     op.SetMode(302);
                     op.Apply();
                   },
                   [&] { cv::add(src, cv::Scalar(100), dst); }, same});
  pairs.push_back({"multiply by 3 (201, mode 302)", [&] {
                     IPG_ARITHMETIC1 op(in.get());
                     op.SetImaOut(&out);
                     op.SetTools(201);
                     op.SetVariable(3);
                     op.SetMode(302);
                     op.Apply();
                   },
                   [&] { cv::multiply(src, cv::Scalar(3), dst); }, same});
  pairs.push_back({"sum of two images (302, mode 302)", [&] {
                     IPG_ARITHMETIC2 op(in.get(), second.get());
                     op.SetImaOut(&out);
                     op.SetTools(302);
                     op.SetMode(302);
                     op.Apply();
                   },
                   [&] { cv::add(src, other, dst); }, same});
  double ipgMean = 0, ipgStd = 0, ipgMin = 0, ipgMax = 0;
  cv::Scalar cvMean, cvStd;
  double cvMin = 0, cvMax = 0;
  pairs.push_back({"mean + std. deviation (6)", [&] {
                     IPG_STATISTIC1 op(in.get());
                     op.SetTools(6);
                     op.Apply();
                     ipgMean = op.GetMean();
                     ipgStd = op.GetStdDev();
                   },
                   [&] { cv::meanStdDev(src, cvMean, cvStd); },
                   [&] {
                     const bool close = std::fabs(ipgMean - cvMean[0]) < 1e-9 * cvMean[0] &&
                                        std::fabs(ipgStd - cvStd[0]) < 1e-9 * cvStd[0];
                     return std::string(close ? "same to 1e-9" : "DIFFER");
                   }});
  pairs.push_back({"min and max (4)", [&] {
                     IPG_STATISTIC1 op(in.get());
                     op.SetTools(4);
                     op.Apply();
                     ipgMin = op.GetMin();
                     ipgMax = op.GetMax();
                   },
                   [&] { cv::minMaxLoc(src, &cvMin, &cvMax); },
                   [&] { return std::string(ipgMin == cvMin && ipgMax == cvMax ? "same" : "DIFFER"); }});
  const auto threshold = [&] {
    IPG_GENERIC_PROCESSING op(in.get());
    op.SetImaOut(&out);
    op.SetTools(400);
    op.SetSeuilMin(2048);
    op.SetMode(302);
    op.Apply();
  };
  const auto sameSet = [&] {
    cv::Mat ours = View(out) != 0, theirs = dst != 0;
    return std::string(SamePixels(ours, theirs) ? "same set" : "DIFFER");
  };
  // IPG sets levels at or above its threshold, OpenCV those above its own. On
  // 32-bit floats OpenCV moves as many bytes per pixel as IPG; on 16 bits, half.
  pairs.push_back({"threshold at 2048 (400), CV 32F", threshold,
                   [&] { cv::threshold(src32f, dst, 2047, 65535, cv::THRESH_BINARY); }, sameSet});
  pairs.push_back({"threshold at 2048 (400), CV 16U", threshold,
                   [&] { cv::threshold(src16, dst, 2047, 65535, cv::THRESH_BINARY); }, sameSet});
  // Clipping to a band: OpenCV takes two walks, a truncation at the top and a
  // maximum at the bottom (on 32-bit floats, as many bytes a pixel as IPG).
  pairs.push_back({"band clipping to [1024, 3071] (403), CV 32F", [&] {
                     IPG_GENERIC_PROCESSING op(in.get());
                     op.SetImaOut(&out);
                     op.SetTools(403);
                     op.SetSeuilMin(1024);
                     op.SetSeuilMax(3071);
                     op.SetThesholdType(1);
                     op.SetMode(302);
                     op.Apply();
                   },
                   [&] {
                     cv::threshold(src32f, dst, 3071, 0, cv::THRESH_TRUNC);
                     cv::max(dst, 1024, dst);
                   },
                   [&] {
                     cv::Mat clipped;
                     dst.convertTo(clipped, CV_32S);
                     return std::string(SamePixels(View(out), clipped) ? "same" : "DIFFER");
                   }});
  // Otsu divides its input in place: each run works on a fresh copy of the
  // pixels, into an image allocated once.
  auto otsuInput = std::make_shared<DCM_STRUCT>(*in, true);
  pairs.push_back({"Otsu binarisation (404, on a copy)", [&, otsuInput] {
                     std::memcpy(otsuInput->Data->GetIDataAddress(), in->Data->GetIDataAddress(),
                                 in->Data->GetSize() * sizeof(int));
                     IPG_GENERIC_PROCESSING op(otsuInput.get());
                     op.SetImaOut(&out);
                     op.SetTools(404);
                     op.SetMode(302);
                     op.Apply();
                   },
                   [&] { cv::threshold(src16, dst, 0, 65535, cv::THRESH_BINARY | cv::THRESH_OTSU); },
                   [&] {
                     cv::Mat ours = View(out) != 0, theirs = dst != 0;
                     return std::string(SamePixels(ours, theirs) ? "same set" : "set differs");
                   }});
  cv::Mat cvHist;
  IPG_HISTO* lastHisto = nullptr;
  std::unique_ptr<IPG_HISTO> histo;
  pairs.push_back({"histogram, 4096 bins (1400)", [&] {
                     histo = std::make_unique<IPG_HISTO>(in.get());
                     histo->SetTools(1400);
                     histo->Apply();
                     lastHisto = histo.get();
                   },
                   [&] {
                     const int channels[] = {0};
                     const int bins[] = {4096};
                     const float range[] = {0, 4096};
                     const float* ranges[] = {range};
                     cv::calcHist(&src16, 1, channels, cv::Mat(), cvHist, 1, bins, ranges);
                   },
                   [&] {
                     for (int level = 0; level < 4096; ++level)
                       if (lastHisto->GetHistoValueFromGreyLevel(level) != static_cast<int>(cvHist.at<float>(level)))
                         return std::string("DIFFER");
                     return std::string("same");
                   }});
  for (int depth : {CV_64F, CV_32F})
    pairs.push_back(ForwardFft(*in, out, src, depth));
  pairs.push_back(InverseFft(*in, *second, out, src, other));
  for (const Pair& pair : pairs)
    Report(pair, side);
}

} // namespace

int main()
{
  PrintHeader();
  for (int side : {512, 2048})
    RunAt(side);
  PrintPeakMemory();
  return 0;
}
