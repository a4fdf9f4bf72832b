// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_texture.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_glcm.h"
#include "ipg/internal/ipg_glcm_parameters.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_roi_mask.h"

#include <algorithm>
#include <climits>
#include <cstddef>

namespace {

constexpr int kCooccurrenceCode = 1500;
constexpr const char* kWhere = "IPG_TEXTURE::ComputeCooccurrence()";

} // namespace

IPG_TEXTURE::IPG_TEXTURE(DCM_STRUCT* in) : IPG_TEXTURE(in, nullptr) {}

IPG_TEXTURE::IPG_TEXTURE(DCM_STRUCT* in, DCM_STRUCT* roi)
{
  ImaIn = in;
  Roi = roi;
  SetDefaultParameters();
}

IPG_TEXTURE::IPG_TEXTURE(const IPG_TEXTURE& source) : IPG_ONE_INPUT_NO_OUTPUT()
{
  Ipg_CopyGlcmParameters(*this, source);
  Matrix = source.Matrix;
  Energy = source.Energy;
  Contrast = source.Contrast;
  Correlation = source.Correlation;
  Homogeneity = source.Homogeneity;
  Entropy = source.Entropy;
}

void IPG_TEXTURE::SetDefaultParameters()
{
  Tools = kCooccurrenceCode;
  Ipg_SetGlcmDefaults(*this);
}

const IPG_CLASS_INFO<IPG_TEXTURE>& IPG_TEXTURE::ClassInfo()
{
  using C = IPG_TEXTURE;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {1500, "ComputeCooccurrence", [](C& op) -> int { return op.ComputeCooccurrence(); }},
  };
  static constexpr auto parameters = Ipg_GlcmParameterEntries<C>("pixel distance of the pairs (default 1)");
  static const IPG_CLASS_INFO<C> info{"IPG_TEXTURE", operations, parameters};
  return info;
}

bool IPG_TEXTURE::Apply()
{
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

bool IPG_TEXTURE::ComputeCooccurrence()
{
  if (ImaIn == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoInputImage);
  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  if (Roi != nullptr && (static_cast<int>(Roi->GetNbOfCols()) != cols || static_cast<int>(Roi->GetNbOfRows()) != rows))
    return Ipg_InformAndFail(Ipg_MsgRoiSizeAt(kWhere));
  if (!Ipg_GlcmLevelsValid(GreyLevels))
    return Ipg_InformAndFail(Ipg_MsgParameterRangeAt("GreyLevels", kWhere));
  int dcol = 0, drow = 0;
  if (const char* fault = Ipg_GlcmDisplacementFault(Distance, Angle, std::max(cols, rows) - 1, dcol, drow))
    return Ipg_InformAndFail(Ipg_MsgParameterRangeAt(fault, kWhere));

  int lowest = INT_MAX, highest = INT_MIN;
  for (int row = 0; row < rows; ++row)
    for (int col = 0; col < cols; ++col)
      if (Ipg_CountedPixel(ImaIn, Roi, col, row)) {
        lowest = std::min(lowest, ImaIn->Data->GetValue(col, row));
        highest = std::max(highest, ImaIn->Data->GetValue(col, row));
      }

  std::vector<double> counts(static_cast<std::size_t>(GreyLevels) * GreyLevels, 0.0);
  double pairs = 0.0;
  for (int row = std::max(0, -drow); row < std::min(rows, rows - drow); ++row)
    for (int col = std::max(0, -dcol); col < std::min(cols, cols - dcol); ++col) {
      if (!Ipg_CountedPixel(ImaIn, Roi, col, row) || !Ipg_CountedPixel(ImaIn, Roi, col + dcol, row + drow))
        continue;
      const int i = Ipg_GlcmQuantise(ImaIn->Data->GetValue(col, row), lowest, highest, GreyLevels);
      const int j = Ipg_GlcmQuantise(ImaIn->Data->GetValue(col + dcol, row + drow), lowest, highest, GreyLevels);
      counts[static_cast<std::size_t>(i) * GreyLevels + j] += 1.0;
      if (Symmetric)
        counts[static_cast<std::size_t>(j) * GreyLevels + i] += 1.0;
      pairs += Symmetric ? 2.0 : 1.0;
    }
  if (pairs == 0.0)
    return Ipg_InformAndFail(Ipg_MsgNothingToMeasure(kWhere));

  const Ipg_GlcmFeatures features = Ipg_GlcmFeaturesOf(counts, GreyLevels);
  Matrix = counts;
  for (double& p : Matrix)
    p /= pairs;
  Energy = features.Energy;
  Contrast = features.Contrast;
  Correlation = features.Correlation;
  Homogeneity = features.Homogeneity;
  Entropy = features.Entropy;
  Result = Energy;
  return true;
}
