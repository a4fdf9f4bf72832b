// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_one_output.h"

#include <array>
#include <memory>

// Seeded region growing. A flood fill from the seed accepts neighbours whose
// grey value lies in [MinGL, MaxGL]; the output holds 16777217 on the region
// and 0 elsewhere. A ROI image stops the fill on its zero pixels.
//
// Codes: 900 fill with the given range, 901 widen the range until a variance
// test fails, 902 choose the range from local statistics around the seed.
// Connectedness: 401 the four side neighbours, 402 the four diagonals, 403 all eight.
//
// The fill is depth-first and visits neighbours in the order left, down-left,
// down, down-right, right, up-right, up, up-left (down = next row). It runs on
// an explicit stack, frame for frame as a recursive fill would, so that a host's
// small UI-thread stack is enough.
class IPG_REGION : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  explicit IPG_REGION(DCM_STRUCT* in);
  // Copies this level's fields with its own working image; the base takes its defaults.
  IPG_REGION(const IPG_REGION& source);
  IPG_REGION& operator=(const IPG_REGION&) = delete;

  // Returns 1 for codes 900-902 whatever the operation returned (hosts read the
  // output image); 0 for another code, another Connectedness or no input, and
  // 0 with a message for a ROI of another size or a seed off the image. The
  // automatic ranges (901, 902) stop with a message when the host cancels.
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_REGION>& ClassInfo();

  bool FillRangeInImage();
  bool ManageRegionGrowingSegmentation();
  bool VarianceControlRegionGrowing();
  bool CustomFill();
  bool CustomFillByVariance(float k);
  bool CustomFillByExpansion();

  int GetMinGL() const { return MinGL; }
  int GetMaxGL() const { return MaxGL; }
  int GetConnectedness() const { return Connectedness; }
  float GetTolerance() const { return Tolerance; }
  int GetXSeed() const { return XSeed; }
  int GetYSeed() const { return YSeed; }
  bool GetCheckIterative() const { return CheckIterative; }
  void SetSeed(int x, int y);
  void SetMinGL(int value) { MinGL = value; }
  void SetMaxGL(int value) { MaxGL = value; }
  void SetConnectedness(int connectedness) { Connectedness = connectedness; }
  void SetTolerance(float tolerance) { Tolerance = tolerance; }
  void SetCheckIterative(bool check) { CheckIterative = check; }

  // The last fill: accepted pixels, their mean, variance and deviation, the
  // seed value it started from and its 32-bit (wrapping) sum of squares.
  int GetRegionCount() const { return RegionCount; }
  double GetRegionMean() const { return RegionMean; }
  double GetRegionVariance() const { return RegionVariance; }
  double GetRegionDeviation() const { return RegionDeviation; }
  int GetSeedValue() const { return SeedValue; }
  int GetRegionSumOfSquares() const { return RegionSumOfSquares; }

private:
  struct BlockStats {
    int count = 0;
    double sum = 0.0;
    double sumOfSquares = 0.0;
  };
  BlockStats PositiveStats(long long firstCol, long long firstRow, long long lastCol, long long lastRow) const;
  void SurfaceRangeIteration(int x, int y);
  void Accept(int x, int y);
  bool PrepareWorkingImage();
  void FillWithHalfWidth(int half, int low, int high);
  double SquareDeviationFromSeed() const;

  int MinGL = 0;
  int MaxGL = 0;
  int XSeed = 0;
  int YSeed = 0;
  int Connectedness = 403;
  float Tolerance = 20.0f;
  int Cols = 0;
  int Rows = 0;
  int RegionCount = 0;
  int RegionSumOfSquares = 0;
  std::unique_ptr<DCM_STRUCT> Working;
  std::array<int, 8> ColumnOffsets{-1, -1, 0, 1, 1, 1, 0, -1};
  std::array<int, 8> RowOffsets{0, 1, 1, 1, 0, -1, -1, -1};
  int FirstDirection = 0;
  int DirectionStep = 1;
  int Depth = 0;
  int DepthLimit = 32000;
  bool CheckIterative = false;
  int SeedValue = 0;
  double RegionMean = 0.0;
  double RegionVariance = 0.0;
  double RegionDeviation = 0.0;
};
