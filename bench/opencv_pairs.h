// SPDX-License-Identifier: Apache-2.0
#pragma once
// What the comparisons with OpenCV share: noise images, timing, the table.
#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_threads.h"

#include <opencv2/core.hpp>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>

namespace opencv_pairs {

// OpenCV's workers (TBB) and IPG's (OpenMP) keep spinning for a while after
// their last job, and on a machine with as many cores as threads they would
// slow down whichever library runs next: each series starts once they have
// gone to sleep.
inline void LetWorkersSleep()
{
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

inline double BestOfFive(const std::function<void()>& run)
{
  LetWorkersSleep();
  double best = 1e30;
  for (int k = 0; k < 5; ++k) {
    const auto start = std::chrono::steady_clock::now();
    run();
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    best = std::min(best, took.count());
  }
  return best;
}

inline std::unique_ptr<DCM_STRUCT> Noise12Bit(int side, unsigned seed)
{
  auto image = std::make_unique<DCM_STRUCT>(side, side);
  std::mt19937 random(seed);
  int* p = image->Data->GetIDataAddress();
  for (std::size_t k = 0; k < image->Data->GetSize(); ++k)
    p[k] = static_cast<int>(random() % 4096u);
  image->Data->SetMin();
  image->Data->SetMax();
  return image;
}

inline cv::Mat View(DCM_STRUCT& image)
{
  return cv::Mat(static_cast<int>(image.GetNbOfRows()), static_cast<int>(image.GetNbOfCols()), CV_32S,
                 image.Data->GetIDataAddress());
}

inline bool SamePixels(const cv::Mat& a, const cv::Mat& b) { return cv::countNonZero(a != b) == 0; }

// The same pixels away from a frame of `margin` pixels, where border rules differ.
inline bool SameInterior(const cv::Mat& a, const cv::Mat& b, int margin)
{
  const cv::Rect inner(margin, margin, a.cols - 2 * margin, a.rows - 2 * margin);
  cv::Mat a32, b32;
  a(inner).convertTo(a32, CV_32S);
  b(inner).convertTo(b32, CV_32S);
  return SamePixels(a32, b32);
}

struct Pair {
  std::string Name;
  std::function<void()> Ipg;
  std::function<void()> OpenCv;
  std::function<std::string()> Check; // "same", or how they differ
};

inline void PrintHeader()
{
  std::printf("IPG and OpenCV %s, best of 5 runs in ms; ratio = IPG / OpenCV.\n", CV_VERSION);
  std::printf("| %-40s | %5s | %8s | %8s | %5s | %8s | %8s | %5s | %s |\n", "kernel (IPG code)", "side", "IPG 1t",
              "CV 1t", "ratio", "IPG all", "CV all", "ratio", "pixels");
  std::printf("|%s|\n", std::string(126, '-').c_str());
}

inline void Report(const Pair& pair, int side)
{
  double ms[2][2];
  const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  // IPG's series first, while OpenCV runs on the calling thread alone: a
  // change of OpenCV's thread count starts workers that stay awake a while.
  for (int t = 0; t < 2; ++t) {
    Ipg_SetNumThreads(t == 0 ? 1 : cores);
    ms[t][0] = BestOfFive(pair.Ipg);
  }
  for (int t = 0; t < 2; ++t) {
    cv::setNumThreads(t == 0 ? 0 : cores);
    ms[t][1] = BestOfFive(pair.OpenCv);
  }
  cv::setNumThreads(0);
  std::printf("| %-40s | %5d | %8.2f | %8.2f | %5.2f | %8.2f | %8.2f | %5.2f | %s |\n", pair.Name.c_str(), side,
              ms[0][0], ms[0][1], ms[0][0] / ms[0][1], ms[1][0], ms[1][1], ms[1][0] / ms[1][1],
              pair.Check().c_str());
  std::fflush(stdout);
}

inline void PrintPeakMemory()
{
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("peak resident set: %.0f MB\n", usage.ru_maxrss / 1024.0);
}

} // namespace opencv_pairs
