// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_deformable_surface.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_contour_objects.h"
#include "ipg/internal/ipg_gradient_vector_flow.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_snake_kernels.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr int kSnakeCode = 2000;
constexpr const char* kClassName = "IPG_DEFORMABLE_SURFACE";
constexpr const char* kWhere = "IPG_DEFORMABLE_SURFACE::GradientVectorFlowSnake()";
constexpr const char* kLabel = "Contour actif (GVF)";
constexpr const char* kResultName = "Snake";
constexpr int kMinPoints = 8;
constexpr int kMaxPoints = 1024;
constexpr double kMaxSigma = 100.0;
// Far above any useful weight; keeps every product of the step finite.
constexpr double kMaxWeight = 1e6;

// lo <= value <= hi, written so that not-a-number fails.
bool Within(double value, double lo, double hi) { return value >= lo && value <= hi; }

IPG_CONTOUR Circle(double cx, double cy, double radius, int n)
{
  IPG_CONTOUR circle;
  for (int k = 0; k < n; ++k) {
    const double angle = 2.0 * std::numbers::pi * k / n;
    circle.X.push_back(cx + radius * std::cos(angle));
    circle.Y.push_back(cy + radius * std::sin(angle));
  }
  return circle;
}

// The finite points of a host's contour, moved onto the image.
IPG_CONTOUR OnImage(const IPG_CONTOUR& contour, const DCM_STRUCT& image)
{
  IPG_CONTOUR kept;
  for (std::size_t i = 0; i < contour.Size(); ++i)
    if (std::isfinite(contour.X[i]) && std::isfinite(contour.Y[i])) {
      kept.X.push_back(std::clamp(contour.X[i], 0.0, image.GetNbOfCols() - 1.0));
      kept.Y.push_back(std::clamp(contour.Y[i], 0.0, image.GetNbOfRows() - 1.0));
    }
  return kept;
}

// The normalised GVF of the input's edge map, one progress step per iteration.
bool GvfForce(const DCM_STRUCT& in, const DCM_STRUCT* roi, double sigma, double mu, int iterations,
              Ipg_Progress& progress, IPG_VECTOR_FIELD& force)
{
  const int cols = static_cast<int>(in.GetNbOfCols()), rows = static_cast<int>(in.GetNbOfRows());
  const int* roiRows = roi != nullptr ? roi->Data->GetIDataAddress() : nullptr;
  const std::vector<float> edges = Ipg_EdgeMap(in.Data->GetIDataAddress(), roiRows, cols, rows, sigma);
  IPG_GVF_DIFFUSION gvf(edges, cols, rows, mu);
  for (int k = 0; k < iterations; ++k) {
    gvf.Step();
    progress.Step();
    if (Ipg_StopRequested())
      return false;
  }
  force = gvf.Field();
  Ipg_NormaliseField(force);
  return true;
}

// The snake's start: the chosen object of the input's list, or the circle.
bool InitialContour(const IPG_DEFORMABLE_SURFACE& op, DCM_STRUCT& in, IPG_CONTOUR& contour)
{
  if (op.GetContourIndex() >= 0) {
    const OBJ_OBJECTS_LIST* list = in.GetObjectsList();
    if (op.GetContourIndex() >= list->GetNbObjects())
      return Ipg_InformAndFail(Ipg_MsgContourMissing(kWhere));
    contour = OnImage(Ipg_ContourOf(*list->GetObject(op.GetContourIndex())), in);
    if (contour.Size() < 3)
      return Ipg_InformAndFail(Ipg_MsgTooFewPoints(kWhere));
    contour = Ipg_ResampleContour(contour, op.GetNbPoints());
    return true;
  }
  const double cx = op.GetCentreX(), cy = op.GetCentreY(), radius = op.GetRadius();
  if (!(radius > 0.0))
    return Ipg_InformAndFail(Ipg_MsgRadius(kWhere));
  if (!(cx - radius >= 0.0 && cy - radius >= 0.0 && cx + radius <= in.GetNbOfCols() - 1.0 &&
        cy + radius <= in.GetNbOfRows() - 1.0))
    return Ipg_InformAndFail(Ipg_MsgCircleOutside(kWhere));
  contour = Circle(cx, cy, radius, op.GetNbPoints());
  return true;
}

} // namespace

IPG_DEFORMABLE_SURFACE::IPG_DEFORMABLE_SURFACE(DCM_STRUCT* in) : IPG_DEFORMABLE_SURFACE(in, nullptr, nullptr) {}

IPG_DEFORMABLE_SURFACE::IPG_DEFORMABLE_SURFACE(DCM_STRUCT* in, DCM_STRUCT* roi)
    : IPG_DEFORMABLE_SURFACE(in, roi, nullptr)
{
}

IPG_DEFORMABLE_SURFACE::IPG_DEFORMABLE_SURFACE(DCM_STRUCT* in, DCM_STRUCT* roi, DCM_STRUCT* out)
{
  ImaIn = in;
  Roi = roi;
  ImaOut = out;
  SetDefaultParameters();
}

IPG_DEFORMABLE_SURFACE::IPG_DEFORMABLE_SURFACE(const IPG_DEFORMABLE_SURFACE& source)
    : IPG_ONE_INPUT_ONE_OUTPUT(), Alpha(source.Alpha), Beta(source.Beta), Gamma(source.Gamma), Kappa(source.Kappa),
      Mu(source.Mu), GvfIterations(source.GvfIterations), Iterations(source.Iterations), NbPoints(source.NbPoints),
      ResampleInterval(source.ResampleInterval), EdgeSigma(source.EdgeSigma), ContourIndex(source.ContourIndex),
      CentreX(source.CentreX), CentreY(source.CentreY), CentreSet(source.CentreSet), Radius(source.Radius),
      RadiusSet(source.RadiusSet), Contour(source.Contour)
{
}

void IPG_DEFORMABLE_SURFACE::SetDefaultParameters()
{
  Tools = kSnakeCode;
  Alpha = 0.05;
  Beta = 0.0;
  Gamma = 1.0;
  Kappa = 0.6;
  Mu = 0.2;
  GvfIterations = 200;
  Iterations = 150;
  NbPoints = 100;
  ResampleInterval = 5;
  EdgeSigma = 1.5;
  ContourIndex = -1;
  CentreSet = RadiusSet = false;
}

const IPG_CLASS_INFO<IPG_DEFORMABLE_SURFACE>& IPG_DEFORMABLE_SURFACE::ClassInfo()
{
  using C = IPG_DEFORMABLE_SURFACE;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {kSnakeCode, "GradientVectorFlowSnake", [](C& op) -> int { return op.GradientVectorFlowSnake(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetAlpha>("Alpha", "0.05", "elasticity of the contour, >= 0"),
      Ipg_Parameter<C, &C::SetBeta>("Beta", "0", "rigidity of the contour, >= 0"),
      Ipg_Parameter<C, &C::SetGamma>("Gamma", "1",
                                     "inverse time step, > 0 (a point moves about Kappa/Gamma px per step)"),
      Ipg_Parameter<C, &C::SetKappa>("Kappa", "0.6", "weight of the external force, >= 0"),
      Ipg_Parameter<C, &C::SetMu>("Mu", "0.2", "GVF regularisation, >= 0"),
      Ipg_Parameter<C, &C::SetGvfIterations>("GvfIterations", "200",
                                             "GVF diffusion steps, 0-10000 (0: the edge map's gradient)"),
      Ipg_Parameter<C, &C::SetIterations>("Iterations", "150", "snake steps, 1-10000"),
      Ipg_Parameter<C, &C::SetNbPoints>("NbPoints", "100", "points of the contour, 8-1024"),
      Ipg_Parameter<C, &C::SetResampleInterval>("ResampleInterval", "5",
                                                "steps between even re-spacings of the points (0: never)"),
      Ipg_Parameter<C, &C::SetEdgeSigma>("EdgeSigma", "1.5", "Gaussian smoothing before the edge map, 0-100 px"),
      Ipg_Parameter<C, &C::SetContourIndex>("ContourIndex", "-1",
                                            "object of the input's list to start from (< 0: the circle)"),
      Ipg_Parameter<C>("Centre", IPG_VALUE_TYPE::RealPoint, "",
                       "centre of the initial circle (default: the image middle)",
                       [](C& op, const IPG_VALUE& value) {
                         const IPG_REAL_POINT& centre = std::get<IPG_REAL_POINT>(value);
                         op.SetCentre(centre.X, centre.Y);
                       }),
      Ipg_Parameter<C, &C::SetRadius>("Radius", "",
                                      "radius of the initial circle (default: a quarter of the smaller side)"),
  };
  static const IPG_CLASS_INFO<C> info{kClassName, operations, parameters};
  return info;
}

bool IPG_DEFORMABLE_SURFACE::Apply()
{
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

void IPG_DEFORMABLE_SURFACE::SetCentre(double x, double y)
{
  CentreX = x;
  CentreY = y;
  CentreSet = true;
}

double IPG_DEFORMABLE_SURFACE::GetCentreX() const
{
  return CentreSet || ImaIn == nullptr ? CentreX : (ImaIn->GetNbOfCols() - 1.0) / 2.0;
}

double IPG_DEFORMABLE_SURFACE::GetCentreY() const
{
  return CentreSet || ImaIn == nullptr ? CentreY : (ImaIn->GetNbOfRows() - 1.0) / 2.0;
}

void IPG_DEFORMABLE_SURFACE::SetRadius(double radius)
{
  Radius = radius;
  RadiusSet = true;
}

double IPG_DEFORMABLE_SURFACE::GetRadius() const
{
  return RadiusSet || ImaIn == nullptr ? Radius : std::min(ImaIn->GetNbOfCols(), ImaIn->GetNbOfRows()) / 4.0;
}

bool IPG_DEFORMABLE_SURFACE::CheckParameters() const
{
  if (Iterations < 1)
    return Ipg_InformAndFail(Ipg_MsgIterations(kWhere));
  if (NbPoints < kMinPoints)
    return Ipg_InformAndFail(Ipg_MsgTooFewPoints(kWhere));
  return Ipg_ParameterInRange(Within(Alpha, 0.0, kMaxWeight), "Alpha", kClassName) &&
         Ipg_ParameterInRange(Within(Beta, 0.0, kMaxWeight), "Beta", kClassName) &&
         Ipg_ParameterInRange(Gamma > 0.0 && Gamma <= kMaxWeight, "Gamma", kClassName) &&
         Ipg_ParameterInRange(Within(Kappa, 0.0, kMaxWeight), "Kappa", kClassName) &&
         Ipg_ParameterInRange(Within(Mu, 0.0, kMaxWeight), "Mu", kClassName) &&
         Ipg_ParameterInRange(GvfIterations >= 0 && GvfIterations <= kIpgMaxPasses, "GvfIterations", kClassName) &&
         Ipg_ParameterInRange(Iterations <= kIpgMaxPasses, "Iterations", kClassName) &&
         Ipg_ParameterInRange(NbPoints <= kMaxPoints, "NbPoints", kClassName) &&
         Ipg_ParameterInRange(ResampleInterval >= 0, "ResampleInterval", kClassName) &&
         Ipg_ParameterInRange(Within(EdgeSigma, 0.0, kMaxSigma), "EdgeSigma", kClassName);
}

bool IPG_DEFORMABLE_SURFACE::GradientVectorFlowSnake()
{
  if (!Ipg_ContourImagesValid(ImaIn, ImaOut, Roi, kClassName, kWhere) || !CheckParameters())
    return false;
  IPG_CONTOUR contour;
  if (!InitialContour(*this, *ImaIn, contour))
    return false;
  IPG_SNAKE_MATRIX matrix;
  if (!matrix.Factorise(NbPoints, Alpha, Beta, Gamma)) // positive definite after the checks; kept as a guard
    return Ipg_InformAndFail(Ipg_MsgParameterRange("Gamma", kClassName));

  Ipg_Progress progress(kLabel, GvfIterations + Iterations);
  IPG_VECTOR_FIELD force;
  if (!GvfForce(*ImaIn, Roi, EdgeSigma, Mu, GvfIterations, progress, force))
    return false;
  for (int step = 1; step <= Iterations; ++step) {
    Ipg_SnakeStep(matrix, force, Gamma, Kappa, contour);
    if (ResampleInterval > 0 && step % ResampleInterval == 0)
      contour = Ipg_ResampleContour(contour, NbPoints);
    progress.Step();
    if (Ipg_StopRequested())
      return false;
  }

  Contour = Ipg_PointsOf(contour);
  Ipg_AddContourObject(ImaIn, contour, kResultName);
  Ipg_FillContourMask(contour, ImaOut);
  Result = std::fabs(Ipg_ContourArea(contour));
  return true;
}
