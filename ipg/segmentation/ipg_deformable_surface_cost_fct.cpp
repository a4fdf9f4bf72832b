// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_deformable_surface_cost_fct.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_contour_objects.h"
#include "ipg/internal/ipg_gradient_vector_flow.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_snake_kernels.h"
#include "ipg/ui/ipg_progress.h"
#include "mth/mth_funct.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr int kFitCode = 2010;
constexpr const char* kClassName = "IPG_DEFORMABLE_SURFACE_COST_FCT";
constexpr const char* kWhere = "IPG_DEFORMABLE_SURFACE_COST_FCT::FitEllipseByAnnealing()";
constexpr const char* kLabel = "Ajustement d'une ellipse";
constexpr const char* kResultName = "Ellipse";
constexpr int kVariables = 5;
constexpr int kRounds = 3;
constexpr double kRoundShrink = 3.0;
constexpr double kCooling = 0.9;
constexpr double kInvalidCost = 1e30; // above any energy the weights allow
constexpr int kMinPoints = 8;
// Bounds that keep a run short whatever the host asks: at most
// 3 x 100 x 200 evaluations of 256 samples.
constexpr int kMaxPoints = 256;
constexpr int kMaxStages = 100;
constexpr int kMaxTrials = 200;
constexpr double kMaxSigma = 100.0;
constexpr double kMaxWeight = 1e6;
// The cancellation request is polled every so many cost evaluations.
constexpr long kPollEvery = 256;

bool Within(double value, double lo, double hi) { return value >= lo && value <= hi; }

// The fitted parameters as reported: a >= b, angle in [0, pi).
std::vector<double> Canonical(const double* x)
{
  double a = x[2], b = x[3], angle = x[4];
  if (a < b) {
    std::swap(a, b);
    angle += std::numbers::pi / 2.0;
  }
  angle = std::fmod(angle, std::numbers::pi);
  if (angle < 0.0)
    angle += std::numbers::pi;
  return {x[0], x[1], a, b, angle};
}

// The annealing's cost: the energy of the sampled ellipse.
class ELLIPSE_COST {
public:
  ELLIPSE_COST(const IPG_DEFORMABLE_SURFACE_COST_FCT& op, IPG_VECTOR_FIELD gradient)
      : Gradient(std::move(gradient)), Points(op.GetNbPoints()), Alpha(op.GetAlpha()), Beta(op.GetBeta()),
        Largest(std::max(Gradient.Cols, Gradient.Rows))
  {
  }

  double operator()(const double* x, short)
  {
    if (Stopped || (++Evaluations % kPollEvery == 0 && (Stopped = Ipg_CancelRequested())))
      return 0.0; // the search is abandoned: any value ends it quickly
    const bool valid = std::isfinite(x[0]) && std::isfinite(x[1]) && std::isfinite(x[4]) &&
                       Within(x[2], 1.0, Largest) && Within(x[3], 1.0, Largest);
    if (!valid)
      return kInvalidCost;
    return Ipg_ContourEnergy(Ipg_EllipseContour(x, Points), Gradient, Alpha, Beta);
  }
  bool Cancelled() const { return Stopped; }

private:
  IPG_VECTOR_FIELD Gradient;
  int Points;
  double Alpha, Beta, Largest;
  long Evaluations = 0;
  bool Stopped = false;
};

} // namespace

IPG_DEFORMABLE_SURFACE_COST_FCT::IPG_DEFORMABLE_SURFACE_COST_FCT(DCM_STRUCT* in)
    : IPG_DEFORMABLE_SURFACE_COST_FCT(in, nullptr, nullptr)
{
}

IPG_DEFORMABLE_SURFACE_COST_FCT::IPG_DEFORMABLE_SURFACE_COST_FCT(DCM_STRUCT* in, DCM_STRUCT* roi)
    : IPG_DEFORMABLE_SURFACE_COST_FCT(in, roi, nullptr)
{
}

IPG_DEFORMABLE_SURFACE_COST_FCT::IPG_DEFORMABLE_SURFACE_COST_FCT(DCM_STRUCT* in, DCM_STRUCT* roi, DCM_STRUCT* out)
{
  ImaIn = in;
  Roi = roi;
  ImaOut = out;
  SetDefaultParameters();
}

IPG_DEFORMABLE_SURFACE_COST_FCT::IPG_DEFORMABLE_SURFACE_COST_FCT(const IPG_DEFORMABLE_SURFACE_COST_FCT& source)
    : IPG_ONE_INPUT_ONE_OUTPUT(), CentreX(source.CentreX), CentreY(source.CentreY), CentreSet(source.CentreSet),
      SemiAxisA(source.SemiAxisA), SemiAxisB(source.SemiAxisB), SemiAxesSet(source.SemiAxesSet), Angle(source.Angle),
      SearchRadius(source.SearchRadius), Temperature(source.Temperature), Stages(source.Stages), Trials(source.Trials),
      Seed(source.Seed), EdgeSigma(source.EdgeSigma), NbPoints(source.NbPoints), Alpha(source.Alpha),
      Beta(source.Beta), Ellipse(source.Ellipse), Contour(source.Contour)
{
}

void IPG_DEFORMABLE_SURFACE_COST_FCT::SetDefaultParameters()
{
  Tools = kFitCode;
  CentreSet = SemiAxesSet = false;
  Angle = 0.0;
  SearchRadius = 10.0;
  Temperature = 0.05;
  Stages = 50;
  Trials = 100;
  Seed = 1;
  EdgeSigma = 2.0;
  NbPoints = 100;
  Alpha = 0.0;
  Beta = 0.0;
}

const IPG_CLASS_INFO<IPG_DEFORMABLE_SURFACE_COST_FCT>& IPG_DEFORMABLE_SURFACE_COST_FCT::ClassInfo()
{
  using C = IPG_DEFORMABLE_SURFACE_COST_FCT;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {kFitCode, "FitEllipseByAnnealing", [](C& op) -> int { return op.FitEllipseByAnnealing(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C>("Centre", IPG_VALUE_TYPE::RealPoint, "",
                       "centre of the start ellipse (default: the image middle)",
                       [](C& op, const IPG_VALUE& value) {
                         const IPG_REAL_POINT& centre = std::get<IPG_REAL_POINT>(value);
                         op.SetCentre(centre.X, centre.Y);
                       }),
      Ipg_Parameter<C>("SemiAxes", IPG_VALUE_TYPE::RealPoint, "",
                       "semi-axes a,b of the start ellipse (default: a quarter of the smaller side)",
                       [](C& op, const IPG_VALUE& value) {
                         const IPG_REAL_POINT& axes = std::get<IPG_REAL_POINT>(value);
                         op.SetSemiAxes(axes.X, axes.Y);
                       }),
      Ipg_Parameter<C, &C::SetAngle>("Angle", "0", "angle of the a axis of the start ellipse, radians"),
      Ipg_Parameter<C, &C::SetSearchRadius>("SearchRadius", "10", "largest first move of the centre and axes, px"),
      Ipg_Parameter<C, &C::SetTemperature>("Temperature", "0.05", "starting temperature of each round, > 0"),
      Ipg_Parameter<C, &C::SetStages>("Stages", "50", "temperature stages per round, 1-100"),
      Ipg_Parameter<C, &C::SetTrials>("Trials", "100", "moves per stage, 1-200"),
      Ipg_Parameter<C, &C::SetSeed>("Seed", "1", "seed of the moves"),
      Ipg_Parameter<C, &C::SetEdgeSigma>("EdgeSigma", "2", "Gaussian smoothing before the edge map, 0-100 px"),
      Ipg_Parameter<C, &C::SetNbPoints>("NbPoints", "100", "samples of the ellipse, 8-256"),
      Ipg_Parameter<C, &C::SetAlpha>("Alpha", "0", "elasticity weight of the energy, >= 0"),
      Ipg_Parameter<C, &C::SetBeta>("Beta", "0", "rigidity weight of the energy, >= 0"),
  };
  static const IPG_CLASS_INFO<C> info{kClassName, operations, parameters};
  return info;
}

bool IPG_DEFORMABLE_SURFACE_COST_FCT::Apply()
{
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

void IPG_DEFORMABLE_SURFACE_COST_FCT::SetCentre(double x, double y)
{
  CentreX = x;
  CentreY = y;
  CentreSet = true;
}

double IPG_DEFORMABLE_SURFACE_COST_FCT::GetCentreX() const
{
  return CentreSet || ImaIn == nullptr ? CentreX : (ImaIn->GetNbOfCols() - 1.0) / 2.0;
}

double IPG_DEFORMABLE_SURFACE_COST_FCT::GetCentreY() const
{
  return CentreSet || ImaIn == nullptr ? CentreY : (ImaIn->GetNbOfRows() - 1.0) / 2.0;
}

void IPG_DEFORMABLE_SURFACE_COST_FCT::SetSemiAxes(double a, double b)
{
  SemiAxisA = a;
  SemiAxisB = b;
  SemiAxesSet = true;
}

double IPG_DEFORMABLE_SURFACE_COST_FCT::GetSemiAxisA() const
{
  return SemiAxesSet || ImaIn == nullptr ? SemiAxisA
                                         : std::min(ImaIn->GetNbOfCols(), ImaIn->GetNbOfRows()) / 4.0;
}

double IPG_DEFORMABLE_SURFACE_COST_FCT::GetSemiAxisB() const
{
  return SemiAxesSet || ImaIn == nullptr ? SemiAxisB
                                         : std::min(ImaIn->GetNbOfCols(), ImaIn->GetNbOfRows()) / 4.0;
}

bool IPG_DEFORMABLE_SURFACE_COST_FCT::CheckParameters() const
{
  if (NbPoints < kMinPoints)
    return Ipg_InformAndFail(Ipg_MsgTooFewPoints(kWhere));
  if (!(GetSemiAxisA() > 0.0 && GetSemiAxisB() > 0.0))
    return Ipg_InformAndFail(Ipg_MsgRadius(kWhere));
  const double largest = std::max(ImaIn->GetNbOfCols(), ImaIn->GetNbOfRows());
  return Ipg_ParameterInRange(std::isfinite(GetCentreX()) && std::isfinite(GetCentreY()), "Centre", kClassName) &&
         Ipg_ParameterInRange(GetSemiAxisA() <= largest && GetSemiAxisB() <= largest, "SemiAxes", kClassName) &&
         Ipg_ParameterInRange(std::isfinite(Angle), "Angle", kClassName) &&
         Ipg_ParameterInRange(SearchRadius > 0.0 && SearchRadius <= largest, "SearchRadius", kClassName) &&
         Ipg_ParameterInRange(Temperature > 0.0 && Temperature <= kMaxWeight, "Temperature", kClassName) &&
         Ipg_ParameterInRange(Stages >= 1 && Stages <= kMaxStages, "Stages", kClassName) &&
         Ipg_ParameterInRange(Trials >= 1 && Trials <= kMaxTrials, "Trials", kClassName) &&
         Ipg_ParameterInRange(Within(EdgeSigma, 0.0, kMaxSigma), "EdgeSigma", kClassName) &&
         Ipg_ParameterInRange(NbPoints <= kMaxPoints, "NbPoints", kClassName) &&
         Ipg_ParameterInRange(Within(Alpha, 0.0, kMaxWeight), "Alpha", kClassName) &&
         Ipg_ParameterInRange(Within(Beta, 0.0, kMaxWeight), "Beta", kClassName);
}

bool IPG_DEFORMABLE_SURFACE_COST_FCT::FitEllipseByAnnealing()
{
  if (!Ipg_ContourImagesValid(ImaIn, ImaOut, Roi, kClassName, kWhere) || !CheckParameters())
    return false;
  const int cols = static_cast<int>(ImaIn->GetNbOfCols()), rows = static_cast<int>(ImaIn->GetNbOfRows());
  ELLIPSE_COST cost(*this, Ipg_SmoothedGradient(ImaIn->Data->GetIDataAddress(),
                                                Roi != nullptr ? Roi->Data->GetIDataAddress() : nullptr, cols, rows,
                                                EdgeSigma));
  MTH_FUNCT function([&cost](const double* x, short n) { return cost(x, n); });

  double x[kVariables] = {GetCentreX(), GetCentreY(), GetSemiAxisA(), GetSemiAxisB(), Angle};
  double best = 0.0;
  Ipg_Progress progress(kLabel, kRounds);
  for (int round = 0; round < kRounds; ++round) {
    const double scale = std::pow(kRoundShrink, -round);
    double step[kVariables] = {SearchRadius * scale, SearchRadius * scale, SearchRadius * scale,
                               SearchRadius * scale, std::numbers::pi / 8.0 * scale};
    SIMULATED_ANNEALING_PARAM schedule;
    schedule.InitialTemperature = Temperature * scale;
    schedule.CoolingFactor = kCooling;
    schedule.NbStages = Stages;
    schedule.NbTrialsPerStage = Trials;
    schedule.FinalTemperature = 0.0;
    best = function.ComputeOptimumSimmulatedAnnealing(&schedule, x, kVariables, step,
                                                      static_cast<short>(Seed + round));
    progress.Step();
    if (cost.Cancelled())
      return Ipg_InformAndFail(kIpgMsgCancelled);
    if (Ipg_StopRequested())
      return false;
  }

  Ellipse = Canonical(x);
  const IPG_CONTOUR contour = Ipg_EllipseContour(Ellipse.data(), NbPoints);
  Contour = Ipg_PointsOf(contour);
  Ipg_AddContourObject(ImaIn, contour, kResultName);
  Ipg_FillContourMask(contour, ImaOut);
  Result = best;
  return true;
}
