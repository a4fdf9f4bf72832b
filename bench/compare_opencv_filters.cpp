// SPDX-License-Identifier: Apache-2.0
// IPG's neighbourhood operators against OpenCV in the same process, on 512 x 512
// and 2048 x 2048 12-bit noise images (labelling: a mask of 600 discs): box
// filters, medians, erosion and dilation, labelling and the Lee filter, with the
// same table as compare_opencv. Pixels are compared away from the border, where
// the two libraries follow different rules.
#include "bench/opencv_pairs.h"
#include "ipg/filtering/ipg_filter.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/filtering/ipg_morpho_processing.h"
#include "ipg/segmentation/ipg_connexity_processing.h"
#include "ipg/ui/ipg_message.h"

#include <opencv2/imgproc.hpp>

#include <vector>

using namespace opencv_pairs;

namespace {

constexpr int kSet = 16777217;

std::string Verdict(bool same) { return same ? "same interior" : "DIFFER"; }

// IPG's box: the float sum of the window over its size, truncated.
cv::Mat BoxLikeIpg(const cv::Mat& src, int side)
{
  cv::Mat f, sum, out;
  src.convertTo(f, CV_32F);
  cv::filter2D(f, sum, CV_32F, cv::Mat::ones(side, side, CV_32F), cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
  sum /= static_cast<float>(side * side);
  sum.forEach<float>([](float& v, const int*) { v = std::trunc(v); });
  sum.convertTo(out, CV_32S);
  return out;
}

std::unique_ptr<DCM_STRUCT> Discs(int side)
{
  auto image = std::make_unique<DCM_STRUCT>(side, side);
  const int spacing = side / 25; // 25 x 25 = 625 discs, about 600 inside
  int* p = image->Data->GetIDataAddress();
  for (int r = 0; r < side; ++r)
    for (int c = 0; c < side; ++c) {
      const int dx = c % spacing - spacing / 2, dy = r % spacing - spacing / 2;
      p[static_cast<std::size_t>(r) * side + c] = dx * dx + dy * dy < spacing * spacing / 6 ? kSet : 0;
    }
  return image;
}

std::string DepthName(const cv::Mat& image) { return image.depth() == CV_16U ? "16U" : "32F"; }

void AddFilterPairs(std::vector<Pair>& pairs, DCM_STRUCT& in, DCM_STRUCT& out, const cv::Mat& src,
                    const cv::Mat& src16, const cv::Mat& src32f, cv::Mat& dst)
{
  static IPG_FILTER box3(0), box7(100);
  static IPG_FILTER_PROCESSING filter(&in);
  filter.SetImaOut(&out);
  filter.SetMode(302);
  filter.setWaitbarVisible(false);
  for (auto [name, kernel, side] : {std::tuple{"3x3 box (500, kernel 0)", &box3, 3},
                                    std::tuple{"7x7 box (500, kernel 100)", &box7, 7}})
    pairs.push_back({name, [&, kernel] { filter.ApplyFilter(kernel); },
                     [&, side] {
                       cv::Mat f;
                       src.convertTo(f, CV_32F);
                       cv::filter2D(f, dst, CV_32F, cv::Mat::ones(side, side, CV_32F) / (side * side));
                     },
                     [&, side] { return Verdict(SameInterior(View(out), BoxLikeIpg(src, side), side)); }});
  // OpenCV on 16 bits moves half the bytes per pixel of IPG; on 32-bit floats, as many.
  for (int side : {3, 5})
    for (const cv::Mat* peer : {&src16, &src32f})
      pairs.push_back({"median " + std::to_string(side) + "x" + std::to_string(side) + " (MedianFilter), CV " +
                           DepthName(*peer),
                       [&, side] {
                         std::vector<int> ones(static_cast<std::size_t>(side) * side, 1);
                         filter.SetUserFilter(ones.data(), side, side);
                         filter.MedianFilter();
                       },
                       [&, side, peer] { cv::medianBlur(*peer, dst, side); },
                       [&, side] { return Verdict(SameInterior(View(out), dst, side)); }});
}

void AddMorphologyPairs(std::vector<Pair>& pairs, DCM_STRUCT& in, DCM_STRUCT& out, const cv::Mat& src16,
                        const cv::Mat& src32f, cv::Mat& dst)
{
  static IPG_MORPHO_PROCESSING morpho(&in);
  morpho.SetImaOut(&out);
  morpho.SetMode(302);
  static IPG_FILTER disc(209);
  cv::Mat discElement(11, 11, CV_8U);
  for (int r = 0; r < 11; ++r)
    for (int c = 0; c < 11; ++c)
      discElement.at<unsigned char>(r, c) = disc.GetFilterValue(c, r) != 0 ? 1 : 0;
  struct Row {
    const char* Name;
    int Code, Kernel;
    bool Erode;
    cv::Mat Element;
  };
  const std::vector<Row> rows = {{"erosion 3x3 square (1101)", 1101, 200, true, cv::Mat::ones(3, 3, CV_8U)},
                                 {"dilation 3x3 square (1100)", 1100, 200, false, cv::Mat::ones(3, 3, CV_8U)},
                                 {"erosion 11x11 disc (1101, kernel 209)", 1101, 209, true, discElement}};
  for (const Row& row : rows)
    for (const cv::Mat* peer : {&src16, &src32f})
      pairs.push_back({std::string(row.Name) + ", CV " + DepthName(*peer),
                       [&, row] {
                         morpho.SetDefinedFilter(row.Kernel);
                         morpho.SetTools(row.Code);
                         morpho.Apply();
                       },
                       [&, row, peer] {
                         if (row.Erode)
                           cv::erode(*peer, dst, row.Element);
                         else
                           cv::dilate(*peer, dst, row.Element);
                       },
                       [&, row] { return Verdict(SameInterior(View(out), dst, row.Element.rows)); }});
}

void AddLabellingPair(std::vector<Pair>& pairs, int side)
{
  static std::unique_ptr<DCM_STRUCT> discs;
  discs = Discs(side);
  static cv::Mat mask, labels;
  View(*discs).convertTo(mask, CV_8U, 1.0 / kSet);
  static int ipgCount = 0, cvCount = 0;
  pairs.push_back({"8-connected labelling, discs (800)",
                   [] {
                     IPG_CONNEXITY_PROCESSING op(discs.get(), kSet);
                     op.SetNbCompMax(65535);
                     op.Labelling_8Neighbors();
                     ipgCount = op.GetNbComponents();
                   },
                   [] { cvCount = cv::connectedComponents(mask, labels, 8, CV_32S) - 1; },
                   [] {
                     return ipgCount == cvCount ? "same count (" + std::to_string(ipgCount) + ")"
                                                : "counts " + std::to_string(ipgCount) + " / " + std::to_string(cvCount);
                   }});
  // IPG also lists every component's pixels (16 bytes each), which plain OpenCV
  // labelling leaves out; with its statistics OpenCV does more of that work.
  static cv::Mat stats, centroids;
  pairs.push_back({"8-connected labelling (800), CV with stats",
                   [] {
                     IPG_CONNEXITY_PROCESSING op(discs.get(), kSet);
                     op.SetNbCompMax(65535);
                     op.Labelling_8Neighbors();
                     ipgCount = op.GetNbComponents();
                   },
                   [] {
                     cvCount = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 8, CV_32S) - 1;
                   },
                   [] {
                     return ipgCount == cvCount ? "same count (" + std::to_string(ipgCount) + ")"
                                                : "counts " + std::to_string(ipgCount) + " / " + std::to_string(cvCount);
                   }});
}

// Lee's lower bound in OpenCV: the local mean and mean square over 7 x 7, then
// the point operation of the filter.
void AddLeePair(std::vector<Pair>& pairs, DCM_STRUCT& in, DCM_STRUCT& out, const cv::Mat& src, cv::Mat& dst)
{
  static IPG_FILTER_PROCESSING lee(&in);
  lee.SetImaOut(&out);
  lee.SetMode(302);
  lee.setWaitbarVisible(false);
  pairs.push_back({"Lee filter (513) vs 2 box means + point op", [] {
                     lee.SetTools(513);
                     lee.Apply();
                   },
                   [&] {
                     // Buffers kept from run to run, so that OpenCV allocates nothing while timed.
                     static cv::Mat f, squares, mean, meanSq, variance, gain, detail;
                     src.convertTo(f, CV_32F);
                     cv::boxFilter(f, mean, CV_32F, cv::Size(7, 7));
                     cv::multiply(f, f, squares);
                     cv::boxFilter(squares, meanSq, CV_32F, cv::Size(7, 7));
                     cv::multiply(mean, mean, variance);
                     cv::subtract(meanSq, variance, variance);
                     cv::add(variance, cv::Scalar(100.0), gain);
                     cv::divide(variance, gain, gain);
                     cv::subtract(f, mean, detail);
                     cv::multiply(gain, detail, detail);
                     cv::add(mean, detail, dst);
                   },
                   [] { return std::string("(different filters)"); }});
}

void RunAt(int side)
{
  auto in = Noise12Bit(side, 1);
  DCM_STRUCT out(side, side);
  cv::Mat src = View(*in), src16, src32f, dst;
  src.convertTo(src16, CV_16U);
  src.convertTo(src32f, CV_32F);
  std::vector<Pair> pairs;
  AddFilterPairs(pairs, *in, out, src, src16, src32f, dst);
  AddMorphologyPairs(pairs, *in, out, src16, src32f, dst);
  AddLabellingPair(pairs, side);
  AddLeePair(pairs, *in, out, src, dst);
  for (const Pair& pair : pairs)
    Report(pair, side);
}

} // namespace

int main()
{
  Ipg_SetMessageHandler([](const std::string&, const std::string&) {});
  PrintHeader();
  for (int side : {512, 2048})
    RunAt(side);
  PrintPeakMemory();
  return 0;
}
