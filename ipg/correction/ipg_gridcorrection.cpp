// SPDX-License-Identifier: Apache-2.0
#include "ipg/correction/ipg_gridcorrection.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_bead_detection.h"
#include "ipg/internal/ipg_bead_lattice.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_polynomial_warp.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace {

constexpr int kDetectCode = 1700;
constexpr int kCorrectCode = 1701;
constexpr int kBothCode = 1702;
constexpr const char* kClassName = "IPG_GRIDCORRECTION";
constexpr const char* kDetectWhere = "IPG_GRIDCORRECTION::DetectAndFit()";
constexpr const char* kCorrectWhere = "IPG_GRIDCORRECTION::CorrectDistortion()";

constexpr int kMinOrder = 2;
constexpr int kMaxOrder = 5;
constexpr unsigned kMinSide = 3; // a bead needs a pixel off the border
constexpr double kMinPitch = 2.0;
constexpr double kMinSigma = 0.5;
constexpr double kMaxSigma = 100.0;
// Rejection of beads the fit disowns: farther than this many median distances.
constexpr double kRejectMedians = 4.0;
constexpr double kRejectFloor = 0.05; // pixel: below it, a bead always stays
constexpr int kRejectRounds = 5;

std::string NoBeadMessage() { return std::string("Aucune bille détectée : ") + kDetectWhere; }
std::string TooFewBeadsMessage() { return std::string("Trop peu de billes pour l'ordre du modèle : ") + kDetectWhere; }
std::string NoModelMessage() { return std::string("Aucun modèle de distorsion calculé : ") + kCorrectWhere; }

struct FIT {
  IPG_POLYNOMIAL_WARP Warp;
  std::vector<IPG_POINT_PAIR> Pairs;
  std::vector<IPG_LATTICE_BEAD> Beads;
  std::vector<double> Distances;
};

// Distances between the model's and the detected positions.
std::vector<double> Distances(const IPG_POLYNOMIAL_WARP& warp, const std::vector<IPG_POINT_PAIR>& pairs)
{
  std::vector<double> distances(pairs.size());
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    double x = 0.0, y = 0.0;
    Ipg_EvaluateWarp(warp, pairs[i].FromX, pairs[i].FromY, x, y);
    distances[i] = std::hypot(x - pairs[i].ToX, y - pairs[i].ToY);
  }
  return distances;
}

// Fits, drops the beads far from the fit and fits again until none is dropped;
// false when even the first fit is impossible.
bool FitWithRejection(FIT& fit)
{
  if (!Ipg_FitPolynomialWarp(fit.Pairs, fit.Warp))
    return false;
  fit.Distances = Distances(fit.Warp, fit.Pairs);
  const std::size_t terms = static_cast<std::size_t>(Ipg_PolynomialTermCount(fit.Warp.Order));
  for (int round = 0; round < kRejectRounds; ++round) {
    std::vector<double> sorted = fit.Distances;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2), sorted.end());
    const double limit = std::max(kRejectMedians * sorted[sorted.size() / 2], kRejectFloor);
    FIT kept{fit.Warp, {}, {}, {}};
    for (std::size_t i = 0; i < fit.Pairs.size(); ++i)
      if (fit.Distances[i] <= limit) {
        kept.Pairs.push_back(fit.Pairs[i]);
        kept.Beads.push_back(fit.Beads[i]);
      }
    if (kept.Pairs.size() == fit.Pairs.size() || kept.Pairs.size() < terms || !Ipg_FitPolynomialWarp(kept.Pairs, kept.Warp))
      break;
    kept.Distances = Distances(kept.Warp, kept.Pairs);
    fit = std::move(kept);
  }
  return true;
}

double RootMeanSquare(const std::vector<double>& values)
{
  double sum = 0.0;
  for (double v : values)
    sum += v * v;
  return values.empty() ? 0.0 : std::sqrt(sum / static_cast<double>(values.size()));
}

} // namespace

IPG_GRIDCORRECTION::IPG_GRIDCORRECTION(DCM_STRUCT* in) : IPG_GRIDCORRECTION(in, nullptr, nullptr) {}

IPG_GRIDCORRECTION::IPG_GRIDCORRECTION(DCM_STRUCT* in, DCM_STRUCT* roi) : IPG_GRIDCORRECTION(in, roi, nullptr) {}

IPG_GRIDCORRECTION::IPG_GRIDCORRECTION(DCM_STRUCT* in, DCM_STRUCT* roi, DCM_STRUCT* out)
{
  ImaIn = in;
  Roi = roi;
  ImaOut = out;
  SetDefaultParameters();
}

IPG_GRIDCORRECTION::IPG_GRIDCORRECTION(const IPG_GRIDCORRECTION& source)
    : IPG_ONE_INPUT_ONE_OUTPUT(), Pitch(source.Pitch), ModelOrder(source.ModelOrder),
      DetectionMethod(source.DetectionMethod), Threshold(source.Threshold), BeadSigma(source.BeadSigma),
      MinBeadArea(source.MinBeadArea), MaxBeadArea(source.MaxBeadArea), CentreBeadSet(source.CentreBeadSet),
      CentreBead(source.CentreBead), DetectedBeads(source.DetectedBeads), IdealBeads(source.IdealBeads),
      BeadPlaces(source.BeadPlaces), DetectedSpots(source.DetectedSpots), ResidualRms(source.ResidualRms),
      CoefficientsX(source.CoefficientsX), CoefficientsY(source.CoefficientsY), FittedOrder(source.FittedOrder),
      ModelCentre(source.ModelCentre), ModelScale(source.ModelScale), ModelCols(source.ModelCols),
      ModelRows(source.ModelRows)
{
}

void IPG_GRIDCORRECTION::SetDefaultParameters()
{
  Tools = kBothCode;
  Pitch = 16.0;
  ModelOrder = 3;
  DetectionMethod = 0;
  Threshold = 0;
  BeadSigma = 2.0;
  MinBeadArea = 4;
  MaxBeadArea = 10000;
  CentreBeadSet = false;
}

void IPG_GRIDCORRECTION::SetCentreBead(double col, double row)
{
  CentreBead = {col, row};
  CentreBeadSet = true;
}

const IPG_CLASS_INFO<IPG_GRIDCORRECTION>& IPG_GRIDCORRECTION::ClassInfo()
{
  using C = IPG_GRIDCORRECTION;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {kDetectCode, "DetectAndFit", [](C& op) -> int { return op.DetectAndFit(); }},
      {kCorrectCode, "CorrectDistortion", [](C& op) -> int { return op.CorrectDistortion(); }},
      {kBothCode, "DetectFitAndCorrect", [](C& op) -> int { return op.DetectFitAndCorrect(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetPitch>("Pitch", "16", "grid pitch in pixels, at least 2 (default 16)"),
      Ipg_Parameter<C, &C::SetModelOrder>("ModelOrder", "3", "order of the distortion polynomial, 2-5 (default 3)"),
      Ipg_Parameter<C, &C::SetDetectionMethod>(
          "DetectionMethod", "0", "0 Otsu threshold, 1 fixed Threshold, 2 Laplacian of Gaussian at BeadSigma (default 0)"),
      Ipg_Parameter<C, &C::SetThreshold>("Threshold", "0", "grey level a bead pixel lies above, method 1 (default 0)"),
      Ipg_Parameter<C, &C::SetBeadSigma>("BeadSigma", "2", "LoG scale in pixels, about the bead radius / 1.4, 0.5-100 (default 2)"),
      Ipg_Parameter<C, &C::SetMinBeadArea>("MinBeadArea", "4", "smallest bead, in pixels (default 4)"),
      Ipg_Parameter<C, &C::SetMaxBeadArea>("MaxBeadArea", "10000", "largest bead, in pixels (default 10000)"),
      Ipg_Parameter<C>("CentreBead", IPG_VALUE_TYPE::RealPoint, "",
                       "column,row near the lattice's (0, 0) bead (default: the image centre)",
                       [](C& op, const IPG_VALUE& value) {
                         const IPG_REAL_POINT& centre = std::get<IPG_REAL_POINT>(value);
                         op.SetCentreBead(centre.X, centre.Y);
                       }),
  };
  static const IPG_CLASS_INFO<C> info{kClassName, operations, parameters};
  return info;
}

bool IPG_GRIDCORRECTION::Apply() { return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0; }

bool IPG_GRIDCORRECTION::CheckDetection() const
{
  if (ImaIn == nullptr || ImaIn->Data == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoInputImage);
  if (!Ipg_RoiFitsImage(ImaIn, Roi, kClassName))
    return false;
  const unsigned cols = ImaIn->Data->GetNbOfCols(), rows = ImaIn->Data->GetNbOfRows();
  if (cols < kMinSide || rows < kMinSide)
    return Ipg_InformAndFail(Ipg_MsgImageTooSmall(kDetectWhere));
  // Written so that not-a-number fails too.
  return Ipg_ParameterInRange(Pitch >= kMinPitch && Pitch <= std::max(cols, rows), "Pitch", kClassName) &&
         Ipg_ParameterInRange(ModelOrder >= kMinOrder && ModelOrder <= kMaxOrder, "ModelOrder", kClassName) &&
         Ipg_ParameterInRange(DetectionMethod >= 0 && DetectionMethod <= 2, "DetectionMethod", kClassName) &&
         Ipg_ParameterInRange(BeadSigma >= kMinSigma && BeadSigma <= kMaxSigma, "BeadSigma", kClassName) &&
         Ipg_ParameterInRange(MinBeadArea >= 1, "MinBeadArea", kClassName) &&
         Ipg_ParameterInRange(MaxBeadArea >= MinBeadArea, "MaxBeadArea", kClassName) &&
         Ipg_ParameterInRange(!CentreBeadSet || (std::isfinite(CentreBead.X) && std::isfinite(CentreBead.Y)),
                              "CentreBead", kClassName);
}

bool IPG_GRIDCORRECTION::CheckOutput() const
{
  if (ImaIn == nullptr || ImaIn->Data == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoInputImage);
  if (ImaOut == nullptr || ImaOut->Data == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoOutput);
  if (ImaOut->Data->GetNbOfCols() != ImaIn->Data->GetNbOfCols() ||
      ImaOut->Data->GetNbOfRows() != ImaIn->Data->GetNbOfRows())
    return Ipg_InformAndFail(Ipg_MsgSizes(std::string(kClassName) + "::Apply()"));
  return Ipg_RoiFitsImage(ImaIn, Roi, kClassName);
}

bool IPG_GRIDCORRECTION::CheckCorrection() const
{
  if (!CheckOutput())
    return false;
  const unsigned cols = ImaIn->Data->GetNbOfCols(), rows = ImaIn->Data->GetNbOfRows();
  if (!HasModel())
    return Ipg_InformAndFail(NoModelMessage());
  if (cols != ModelCols || rows != ModelRows)
    return Ipg_InformAndFail(Ipg_MsgSizes(kCorrectWhere));
  return true;
}

void IPG_GRIDCORRECTION::ClearModel()
{
  DetectedBeads.clear();
  IdealBeads.clear();
  BeadPlaces.clear();
  DetectedSpots = 0;
  ResidualRms = 0.0;
  CoefficientsX.clear();
  CoefficientsY.clear();
  FittedOrder = 0;
  ModelCols = ModelRows = 0;
}

bool IPG_GRIDCORRECTION::DetectAndFit()
{
  if (!CheckDetection())
    return false;
  ClearModel();
  const unsigned cols = ImaIn->Data->GetNbOfCols(), rows = ImaIn->Data->GetNbOfRows();
  const IPG_BEAD_IMAGE image{ImaIn->Data->GetIDataAddress(), Roi != nullptr ? Roi->Data->GetIDataAddress() : nullptr,
                             cols, rows};
  const IPG_BEAD_SETTINGS settings{static_cast<IPG_BEAD_METHOD>(DetectionMethod), Threshold, BeadSigma, MinBeadArea,
                                   MaxBeadArea};
  const std::vector<IPG_BEAD> beads = Ipg_DetectBeads(image, settings);
  if (beads.empty())
    return Ipg_InformAndFail(NoBeadMessage());
  DetectedSpots = static_cast<int>(beads.size());

  const double centreX = (cols - 1.0) / 2.0, centreY = (rows - 1.0) / 2.0;
  FIT fit;
  fit.Beads = Ipg_PlaceBeadsOnLattice(beads, Pitch, CentreBeadSet ? CentreBead.X : centreX,
                                      CentreBeadSet ? CentreBead.Y : centreY);
  if (fit.Beads.empty())
    return Ipg_InformAndFail(NoBeadMessage());
  fit.Warp.Order = ModelOrder;
  fit.Warp.CentreX = centreX;
  fit.Warp.CentreY = centreY;
  fit.Warp.Scale = std::max(cols, rows) / 2.0;
  const IPG_LATTICE_BEAD origin = fit.Beads.front(); // the walk starts with the (0, 0) bead
  for (const IPG_LATTICE_BEAD& bead : fit.Beads)
    fit.Pairs.push_back({origin.X + Pitch * bead.I, origin.Y + Pitch * bead.J, bead.X, bead.Y});
  if (!FitWithRejection(fit)) {
    DetectedSpots = 0;
    return Ipg_InformAndFail(TooFewBeadsMessage());
  }

  for (std::size_t i = 0; i < fit.Pairs.size(); ++i) {
    DetectedBeads.push_back({fit.Pairs[i].ToX, fit.Pairs[i].ToY});
    IdealBeads.push_back({fit.Pairs[i].FromX, fit.Pairs[i].FromY});
    BeadPlaces.push_back({fit.Beads[i].I, fit.Beads[i].J});
  }
  CoefficientsX = std::move(fit.Warp.X);
  CoefficientsY = std::move(fit.Warp.Y);
  FittedOrder = ModelOrder;
  ModelCentre = {centreX, centreY};
  ModelScale = fit.Warp.Scale;
  ModelCols = cols;
  ModelRows = rows;
  ResidualRms = RootMeanSquare(fit.Distances);
  Result = ResidualRms;
  return true;
}

bool IPG_GRIDCORRECTION::CorrectDistortion()
{
  if (!CheckCorrection())
    return false;
  const IPG_POLYNOMIAL_WARP warp{FittedOrder, ModelCentre.X, ModelCentre.Y, ModelScale, CoefficientsX, CoefficientsY};
  IPG_WARP_IMAGES images;
  images.In = ImaIn->Data->GetIDataAddress();
  images.Roi = Roi != nullptr ? Roi->Data->GetIDataAddress() : nullptr;
  images.Out = ImaOut->Data->GetIDataAddress();
  images.Cols = ModelCols;
  images.Rows = ModelRows;
  images.InPrecision = ImaIn->Data->GetPrecision();
  images.OutPrecision = ImaOut->Data->GetPrecision();
  Ipg_ResampleThroughWarp(images, warp);
  // The raw rows were written directly: the modes read the extremes.
  Ipg_MeasureExtremes(*ImaOut->Data);
  return ApplyModeToOutImage();
}

bool IPG_GRIDCORRECTION::DetectFitAndCorrect()
{
  // The output is checked first: a run that cannot write leaves the model as it was.
  return CheckOutput() && DetectAndFit() && CorrectDistortion();
}

IPG_REAL_POINT IPG_GRIDCORRECTION::MapIdealToDetected(double x, double y) const
{
  if (!HasModel())
    return {x, y};
  const IPG_POLYNOMIAL_WARP warp{FittedOrder, ModelCentre.X, ModelCentre.Y, ModelScale, CoefficientsX, CoefficientsY};
  IPG_REAL_POINT mapped;
  Ipg_EvaluateWarp(warp, x, y, mapped.X, mapped.Y);
  return mapped;
}
