// SPDX-License-Identifier: Apache-2.0
// What `ipg run` prints and the previews and plots it draws.
#include "cli/json.h"
#include "support/cli_run.h"
#include "support/images.h"
#include "support/png_pixels.h"

#include <gtest/gtest.h>

namespace {

using Colour = std::array<int, 3>;

std::string WriteTestImage(const std::string& name, std::unique_ptr<DCM_STRUCT> image)
{
  const std::string path = Temp(name);
  std::string error;
  EXPECT_TRUE(Dcm_WriteFile(*image, path, &error)) << error;
  return path;
}

Json RunJson(const std::string& args)
{
  const Outcome run = Ipg("run " + args + " --json");
  EXPECT_EQ(run.status, 0) << run.err;
  return Json::Parse(run.out);
}

} // namespace

// SmallImage holds 0..23 (10 * row + column): mean 11.5, extremes 0 and 23.
TEST(IpgRun, PrintsOnlyTheResultsTheCodeFills)
{
  const std::string small = Q(SmallImage());
  const Json mean = RunJson("IPG_STATISTIC1 --tools 0 " + small);
  EXPECT_EQ(mean.Find("Result")->AsNumber(), 11.5);
  for (const char* unset : {"Mean", "Min", "Max", "Variance", "StdDev", "NbPixels", "SNR", "BoxSizes"})
    EXPECT_EQ(mean.Find(unset), nullptr) << unset;

  const Json basic = RunJson("IPG_STATISTIC1 --tools 6 " + small);
  EXPECT_EQ(basic.Find("Mean")->AsNumber(), 11.5);
  EXPECT_EQ(basic.Find("Min")->AsNumber(), 0);
  EXPECT_EQ(basic.Find("Max")->AsNumber(), 23);
  EXPECT_EQ(basic.Find("NbPixels")->AsNumber(), 12);
  for (const char* filled : {"Result", "Variance", "StdDev", "SNR"})
    EXPECT_NE(basic.Find(filled), nullptr) << filled;

  // MinMaxGL leaves Result untouched: only the extremes are shown, in text too.
  const Outcome extremes = Ipg("run IPG_STATISTIC1 --tools 4 " + small);
  EXPECT_TRUE(Contains(extremes.out, "Min: 0\nMax: 23\n")) << extremes.out;
  EXPECT_FALSE(Contains(extremes.out, "Result")) << extremes.out;
  EXPECT_TRUE(Contains(Ipg("list IPG_STATISTIC1").out, "Result (0-2, 6-16), Mean (6), Min (4, 6)"));
}

// Output -12..11 after adding -12 (mode 302 keeps the values).
TEST(IpgRun, ColourMapsSpanTheOutputValues)
{
  const std::string small = Q(SmallImage()), png = Temp("map.png");
  const std::string shifted = "IPG_ARITHMETIC1 --tools 200 --set Variable=-12 --mode 302 " + small + " --png " + Q(png);
  ASSERT_EQ(Ipg("run " + shifted + " --colormap diverging").status, 0);
  PngPixels diverging = ReadPng(png);
  ASSERT_EQ(diverging.width, 4);
  ASSERT_EQ(diverging.height, 3);
  EXPECT_EQ(diverging.At(0, 0), (Colour{59, 76, 192}));   // -12, the largest magnitude: full blue
  EXPECT_EQ(diverging.At(2, 1), (Colour{221, 221, 221})); // 0: the middle grey

  ASSERT_EQ(Ipg("run " + shifted + " --colormap viridis").status, 0);
  const PngPixels viridis = ReadPng(png);
  EXPECT_EQ(viridis.At(0, 0), (Colour{68, 1, 84}));
  EXPECT_EQ(viridis.At(3, 2), (Colour{253, 231, 37}));

  // 3 of 0..23 on the log scale: log10(4) / log10(24) of the way, grey 111.
  ASSERT_EQ(Ipg("run IPG_ARITHMETIC1 --tools 200 --set Variable=0 --mode 302 " + small + " --png " + Q(png) + " --log")
                .status,
            0);
  EXPECT_EQ(ReadPng(png).At(3, 0), (Colour{111, 111, 111}));

  EXPECT_EQ(Ipg("run " + shifted + " --colormap jet").status, 2);
  EXPECT_EQ(Ipg("run IPG_ARITHMETIC1 " + small + " --log").status, 2);
}

// Eleven pixels at 0 and one at 9: ten bins, the first full height, the last
// an eleventh of it (23 rows), the ones between empty.
TEST(IpgRun, HistogramPlotDrawsOneBarPerBin)
{
  const std::string in = WriteTestImage("histo.dcm", TestImage(4, 3).Fill(0).At(3, 2, 9).Build());
  const std::string plot = Temp("histo.png");
  const Json run = RunJson("IPG_HISTO " + Q(in) + " --plot " + Q(plot));
  EXPECT_EQ(run.Find("plot")->AsString(), plot);
  const PngPixels bars = ReadPng(plot);
  ASSERT_EQ(bars.width, 512);
  ASSERT_EQ(bars.height, 256);
  const Colour white{255, 255, 255}, bar{40, 70, 140};
  EXPECT_EQ(bars.At(0, 0), bar);
  EXPECT_EQ(bars.At(256, 255), white);
  EXPECT_EQ(bars.At(511, 255), bar);
  EXPECT_EQ(bars.At(511, 255 - 23), white);
  EXPECT_EQ(bars.At(511, 256 - 23), bar);
}
