// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_texture_local.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_glcm.h"
#include "ipg/internal/ipg_glcm_parameters.h"
#include "ipg/internal/ipg_glcm_window.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <new>
#include <vector>

namespace {

constexpr int kFeatureMapCode = 1510;
constexpr const char* kClassName = "IPG_TEXTURE_LOCAL";
constexpr const char* kProgressLabel = "Carte de texture";

bool SameSize(const DCM_STRUCT* a, const DCM_STRUCT* b)
{
  return a->GetNbOfCols() == b->GetNbOfCols() && a->GetNbOfRows() == b->GetNbOfRows();
}

// Quantised class of every selected pixel, -1 elsewhere; false when none is selected.
bool QuantisedClasses(const DCM_STRUCT& in, const DCM_STRUCT* roi, int levels, std::vector<int>& classes)
{
  const int* pixels = in.Data->GetIDataAddress();
  const int* mask = roi != nullptr ? roi->Data->GetIDataAddress() : nullptr;
  const std::size_t size = in.Data->GetSize();
  classes.assign(size, -1);
  int lowest = INT_MAX, highest = INT_MIN;
  for (std::size_t k = 0; k < size; ++k)
    if (Ipg_CountedPixel(pixels[k], mask, k)) {
      lowest = std::min(lowest, pixels[k]);
      highest = std::max(highest, pixels[k]);
      classes[k] = 0;
    }
  if (lowest > highest)
    return false;
  for (std::size_t k = 0; k < size; ++k)
    if (classes[k] == 0)
      classes[k] = Ipg_GlcmQuantise(pixels[k], lowest, highest, levels);
  return true;
}

// Where the features go: the first output always, the second when given.
struct FeatureTarget {
  DCM_STRUCT* Image;
  int Feature;
};

} // namespace

IPG_TEXTURE_LOCAL::IPG_TEXTURE_LOCAL(DCM_STRUCT* in) : IPG_TEXTURE_LOCAL(in, nullptr) {}

IPG_TEXTURE_LOCAL::IPG_TEXTURE_LOCAL(DCM_STRUCT* in, DCM_STRUCT* roi)
{
  ImaIn = in;
  Roi = roi;
  SetDefaultParameters();
}

IPG_TEXTURE_LOCAL::IPG_TEXTURE_LOCAL(const IPG_TEXTURE_LOCAL& source)
    : IPG_ONE_INPUT_TWO_OUTPUT(), WindowSize(source.WindowSize), Feature(source.Feature), FeatureTwo(source.FeatureTwo)
{
  Ipg_CopyGlcmParameters(*this, source);
}

void IPG_TEXTURE_LOCAL::SetDefaultParameters()
{
  Tools = kFeatureMapCode;
  WindowSize = 7;
  Ipg_SetGlcmDefaults(*this);
  Feature = kIpgContrast;
  FeatureTwo = kIpgEntropy;
}

const IPG_CLASS_INFO<IPG_TEXTURE_LOCAL>& IPG_TEXTURE_LOCAL::ClassInfo()
{
  using C = IPG_TEXTURE_LOCAL;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {kFeatureMapCode, "ComputeFeatureMap", [](C& op) -> int { return op.ComputeFeatureMap(); }},
  };
  static constexpr auto glcm = Ipg_GlcmParameterEntries<C>("pixel distance of the pairs, below WindowSize (default 1)");
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetWindowSize>("WindowSize", "7", "odd window side, at least 3 (default 7)"),
      glcm[0],
      glcm[1],
      glcm[2],
      glcm[3],
      Ipg_Parameter<C, &C::SetFeature>(
          "Feature", "1", "feature of the main output: 0 energy, 1 contrast, 2 correlation, 3 homogeneity, 4 entropy (default 1)"),
      Ipg_Parameter<C, &C::SetFeatureTwo>("FeatureTwo", "4", "feature of the second output (default 4)"),
  };
  static const IPG_CLASS_INFO<C> info{kClassName, operations, parameters};
  return info;
}

bool IPG_TEXTURE_LOCAL::Apply()
{
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

bool IPG_TEXTURE_LOCAL::CheckImages() const
{
  if (ImaIn == nullptr || ImaIn->Data == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoInputImage);
  if (ImaOut == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoOutput);
  if (!SameSize(ImaIn, ImaOut) || (ImaOutTwo != nullptr && !SameSize(ImaIn, ImaOutTwo)))
    return Ipg_InformAndFail(Ipg_MsgSizes(std::string(kClassName) + "::Apply()"));
  return Ipg_RoiFitsImage(ImaIn, Roi, kClassName);
}

bool IPG_TEXTURE_LOCAL::CheckParameters(int& dcol, int& drow) const
{
  const int longer = static_cast<int>(std::max(ImaIn->GetNbOfCols(), ImaIn->GetNbOfRows()));
  auto isFeature = [](int f) { return f >= 0 && f < kIpgGlcmFeatureCount; };
  if (!Ipg_ParameterInRange(WindowSize >= 3 && WindowSize % 2 == 1 && WindowSize <= longer, "WindowSize",
                            kClassName))
    return false;
  if (const char* fault = Ipg_GlcmDisplacementFault(Distance, Angle, WindowSize - 1, dcol, drow))
    return Ipg_ParameterInRange(false, fault, kClassName);
  return Ipg_ParameterInRange(Ipg_GlcmLevelsValid(GreyLevels), "GreyLevels", kClassName) &&
         Ipg_ParameterInRange(isFeature(Feature), "Feature", kClassName) &&
         Ipg_ParameterInRange(isFeature(FeatureTwo), "FeatureTwo", kClassName);
}

bool IPG_TEXTURE_LOCAL::ComputeFeatureMap()
{
  int dcol = 0, drow = 0;
  if (!CheckImages() || !CheckParameters(dcol, drow))
    return false;
  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  const int half = WindowSize / 2;
  std::vector<int> classes;
  try {
    if (!QuantisedClasses(*ImaIn, Roi, GreyLevels, classes))
      return Ipg_InformAndFail(Ipg_MsgNothingToMeasure("IPG_TEXTURE_LOCAL::ComputeFeatureMap()"));
  } catch (const std::bad_alloc&) {
    return Ipg_InformAndFail(kIpgMsgAllocation);
  }

  std::vector<FeatureTarget> targets{{ImaOut, Feature}};
  if (ImaOutTwo != nullptr)
    targets.push_back({ImaOutTwo, FeatureTwo});
  const int* pixels = ImaIn->Data->GetIDataAddress();
  Ipg_SlidingGlcm glcm(classes.data(), cols, GreyLevels, dcol, drow, Symmetric);
  Ipg_Progress progress(kProgressLabel, rows);
  for (int row = 0; row < rows; ++row) {
    if (Ipg_StopRequested())
      return false;
    const int top = std::max(0, row - half), bottom = std::min(rows - 1, row + half);
    glcm.Clear();
    for (int col = 0; col <= std::min(half, cols - 1); ++col)
      glcm.UpdateColumn(col, 0, col, top, bottom, +1);
    for (int col = 0; col < cols; ++col) {
      const std::size_t k = static_cast<std::size_t>(row) * cols + col;
      for (const FeatureTarget& target : targets) {
        if (classes[k] < 0)
          target.Image->Data->SetValue(col, row, pixels[k]); // outside the ROI, or a mark: copied
        else
          target.Image->Data->SetValue(col, row, glcm.Feature(target.Feature));
      }
      // Slide: the leaving column goes with the old box, the entering one
      // comes with the new box.
      const int left = col - half, right = col + half;
      if (left >= 0)
        glcm.UpdateColumn(left, left, std::min(right, cols - 1), top, bottom, -1);
      if (right + 1 < cols)
        glcm.UpdateColumn(right + 1, std::max(0, left + 1), right + 1, top, bottom, +1);
    }
    progress.Step();
  }
  for (const FeatureTarget& target : targets) {
    target.Image->Data->SetMin();
    target.Image->Data->SetMax();
  }
  return ApplyModeToOutImage() && (ImaOutTwo == nullptr || Ipg_ApplyModeToImage(ImaOutTwo, Mode));
}
