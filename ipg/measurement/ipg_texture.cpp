#include "ipg/measurement/ipg_texture.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_glcm.h"
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
  Distance = source.Distance;
  Angle = source.Angle;
  GreyLevels = source.GreyLevels;
  Symmetric = source.Symmetric;
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
  Distance = 1;
  Angle = 0;
  GreyLevels = 16;
  Symmetric = true;
}

const IPG_CLASS_INFO<IPG_TEXTURE>& IPG_TEXTURE::ClassInfo()
{
  using C = IPG_TEXTURE;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {1500, "ComputeCooccurrence", [](C& op) -> int { return op.ComputeCooccurrence(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetDistance>("Distance", "1", "pixel distance of the pairs (default 1)"),
      Ipg_Parameter<C, &C::SetAngle>("Angle", "0", "direction 0, 45, 90 or 135 degrees (default 0)"),
      Ipg_Parameter<C, &C::SetGreyLevels>("GreyLevels", "16", "quantisation classes 2-256 (default 16)"),
      Ipg_Parameter<C, &C::SetSymmetric>("Symmetric", "true", "count each pair both ways (default true)"),
  };
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
  if (GreyLevels < 2 || GreyLevels > 256)
    return Ipg_InformAndFail(Ipg_MsgParameterRangeAt("GreyLevels", kWhere));
  int dcol = 0, drow = 0;
  if (Distance < 1 || Distance >= std::max(cols, rows) || !Ipg_GlcmOffset(Angle, Distance, dcol, drow))
    return Ipg_InformAndFail(
        Ipg_MsgParameterRangeAt(Distance < 1 || Distance >= std::max(cols, rows) ? "Distance" : "Angle", kWhere));

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
