// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_one_input_one_output.h"
#include "ipg/framework/ipg_operation_info.h"
#include "mth/mth_2d_double.h"

#include <vector>

// A closed active contour (M. Kass, A. Witkin & D. Terzopoulos, "Snakes: active
// contour models", IJCV 1(4), 1988) driven by gradient vector flow (C. Xu &
// J. L. Prince, "Snakes, shapes, and gradient vector flow", IEEE Trans. Image
// Processing 7(3), 1998). Code 2000, GradientVectorFlowSnake (the default).
//
// 1. Edge map f = |grad(G_EdgeSigma * I)|^2 scaled to [0, 1]; with a ROI, only
//    pixels whose ROI value is 16777217 carry edges.
// 2. GVF: GvfIterations explicit steps of the diffusion of grad f with weight
//    Mu, at the stable time step min(1, 1 / (4 Mu + max |grad f|^2)).
//    GvfIterations 0 leaves grad f itself: the traditional edge force, whose
//    short reach and opposing pulls keep a snake out of concavities.
// 3. The field is normalised to unit vectors, as Xu & Prince drive their
//    snakes, so a point moves by about Kappa / Gamma pixels per iteration.
// 4. Snake: NbPoints points, from the contour object ContourIndex of the input's
//    object list or, when ContourIndex < 0, from the circle Centre, Radius;
//    Iterations semi-implicit steps x_t = (A + Gamma I)^-1 (Gamma x_{t-1} +
//    Kappa u(x_{t-1})) with elasticity Alpha and rigidity Beta; every
//    ResampleInterval iterations (0: never) the points are spread evenly by arc
//    length again. Points stay on the image.
//
// The final contour is appended to the input's object list as an object named
// "Snake" (an initial contour taken from the list is left there), and returned
// by GetContour(). The output becomes its binary image: 16777217 on the pixels
// whose centre lies inside or on the contour, 0 elsewhere, the convention of
// the library's masks and ROI images; Mode is not applied, as re-scaling would
// lose the mask value that other operators select on. Result = the enclosed
// area in pixels.
//
// Progress: one step per GVF and per snake iteration; a cancelled run stops with
// the cancellation message and false.
//
// Failures (message and false): no input or output, an output or ROI of another
// size, an image below 3 x 3, Iterations < 1, a parameter out of its range, an
// initial contour missing from the list or of fewer than 3 points, NbPoints
// below 8, a radius <= 0 or a circle leaving the image.
class IPG_DEFORMABLE_SURFACE : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  explicit IPG_DEFORMABLE_SURFACE(DCM_STRUCT* in);
  IPG_DEFORMABLE_SURFACE(DCM_STRUCT* in, DCM_STRUCT* roi);
  IPG_DEFORMABLE_SURFACE(DCM_STRUCT* in, DCM_STRUCT* roi, DCM_STRUCT* out);
  // Copies its own level: the parameters and the last contour.
  IPG_DEFORMABLE_SURFACE(const IPG_DEFORMABLE_SURFACE& source);
  IPG_DEFORMABLE_SURFACE& operator=(const IPG_DEFORMABLE_SURFACE&) = delete;
  ~IPG_DEFORMABLE_SURFACE() = default;

  // Tools 2000, Alpha 0.05, Beta 0, Gamma 1, Kappa 0.6, Mu 0.2, GvfIterations
  // 200, Iterations 150, NbPoints 100, ResampleInterval 5, EdgeSigma 1.5,
  // ContourIndex -1; the circle at the input's middle with a quarter of its
  // smaller side as radius, until SetCentre and SetRadius are called.
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_DEFORMABLE_SURFACE>& ClassInfo();
  bool GradientVectorFlowSnake(); // 2000

  void SetAlpha(double alpha) { Alpha = alpha; }
  double GetAlpha() const { return Alpha; }
  void SetBeta(double beta) { Beta = beta; }
  double GetBeta() const { return Beta; }
  void SetGamma(double gamma) { Gamma = gamma; }
  double GetGamma() const { return Gamma; }
  void SetKappa(double kappa) { Kappa = kappa; }
  double GetKappa() const { return Kappa; }
  void SetMu(double mu) { Mu = mu; }
  double GetMu() const { return Mu; }
  void SetGvfIterations(int iterations) { GvfIterations = iterations; }
  int GetGvfIterations() const { return GvfIterations; }
  void SetIterations(int iterations) { Iterations = iterations; }
  int GetIterations() const { return Iterations; }
  void SetNbPoints(int points) { NbPoints = points; }
  int GetNbPoints() const { return NbPoints; }
  void SetResampleInterval(int interval) { ResampleInterval = interval; }
  int GetResampleInterval() const { return ResampleInterval; }
  void SetEdgeSigma(double sigma) { EdgeSigma = sigma; }
  double GetEdgeSigma() const { return EdgeSigma; }
  void SetContourIndex(int index) { ContourIndex = index; }
  int GetContourIndex() const { return ContourIndex; }
  void SetCentre(double x, double y);
  double GetCentreX() const;
  double GetCentreY() const;
  void SetRadius(double radius);
  double GetRadius() const;

  // The last run's contour (column, row), empty before a run succeeds.
  const std::vector<MTH_2D_DOUBLE>& GetContour() const { return Contour; }

private:
  bool CheckParameters() const;

  double Alpha = 0.05;
  double Beta = 0.0;
  double Gamma = 1.0;
  double Kappa = 0.6;
  double Mu = 0.2;
  int GvfIterations = 200;
  int Iterations = 150;
  int NbPoints = 100;
  int ResampleInterval = 5;
  double EdgeSigma = 1.5;
  int ContourIndex = -1;
  double CentreX = 0.0;
  double CentreY = 0.0;
  bool CentreSet = false;
  double Radius = 0.0;
  bool RadiusSet = false;
  std::vector<MTH_2D_DOUBLE> Contour;
};
