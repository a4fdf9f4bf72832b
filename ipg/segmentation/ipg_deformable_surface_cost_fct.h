// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_one_input_one_output.h"
#include "ipg/framework/ipg_operation_info.h"
#include "mth/mth_2d_double.h"

#include <vector>

// Global fit of an ellipse on the edges of the input: the snake energy of the
// sampled ellipse as the cost of MTH_FUNCT, minimised by simulated annealing
// (S. Kirkpatrick, C. D. Gelatt & M. P. Vecchi, "Optimization by simulated
// annealing", Science 220, 1983). The parametric contour finds the object as a
// whole where a snake would stop on the first edge; IPG_DEFORMABLE_SURFACE can
// then refine it from the contour left in the object list. Code 2010,
// FitEllipseByAnnealing (the default).
//
// Cost of an ellipse (centre x, y, semi-axes a, b, angle): the energy per point
// of its NbPoints samples v_i (Kass, Witkin & Terzopoulos, IJCV 1988):
//   (1/n) sum Alpha |v_i+1 - v_i|^2 + Beta |v_i+1 - 2 v_i + v_i-1|^2
//   - |(1/n) sum n_i . g(v_i)|
// with g the gradient of G_EdgeSigma * I scaled to length at most 1 (only ROI
// pixels at 16777217 carry a gradient when a ROI is given) and n_i the unit
// normal. The edge term is the gradient flux through the contour (Vasilevskiy &
// Siddiqi, IEEE PAMI 24(12), 2002) rather than the mean of |g|^2: a thin
// ellipse lying along one stretch of edge has both sides on it and rates as
// high as the object's outline under |g|^2, which traps the search, but it has
// no flux. An ellipse with a semi-axis below 1 pixel or above the image's
// larger side costs 1e30. Alpha and Beta are 0 by default: the ellipse is
// smooth by construction, and a stretching term would favour small ellipses.
//
// Search: three annealing rounds from the start ellipse (Centre, SemiAxes,
// Angle), each from the best of the previous: the centre and axes move by up to
// SearchRadius pixels and the angle by up to pi/8 in the first round, a third of
// that in the next ones, with the temperature scaled alike; within a round the
// temperature starts at Temperature and is multiplied by 0.9 after each of the
// Stages stages of Trials moves. Seed makes a run repeatable.
//
// Results: GetEllipse() (centre x, centre y, a >= b, angle of the a axis in
// [0, pi) radians from the columns toward the rows), Result = the final cost,
// an object "Ellipse" of NbPoints points appended to the input's object list,
// and the output as its binary image (16777217 inside or on it, 0 elsewhere;
// Mode is not applied, as for IPG_DEFORMABLE_SURFACE).
//
// Progress: one step per round; a cancelled run stops with the cancellation
// message and false. Failures (message and false): no input or output, an output
// or ROI of another size, an image below 3 x 3, NbPoints below 8, a parameter
// out of its range, semi-axes <= 0.
class IPG_DEFORMABLE_SURFACE_COST_FCT : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  explicit IPG_DEFORMABLE_SURFACE_COST_FCT(DCM_STRUCT* in);
  IPG_DEFORMABLE_SURFACE_COST_FCT(DCM_STRUCT* in, DCM_STRUCT* roi);
  IPG_DEFORMABLE_SURFACE_COST_FCT(DCM_STRUCT* in, DCM_STRUCT* roi, DCM_STRUCT* out);
  // Copies its own level: the parameters and the last fit.
  IPG_DEFORMABLE_SURFACE_COST_FCT(const IPG_DEFORMABLE_SURFACE_COST_FCT& source);
  IPG_DEFORMABLE_SURFACE_COST_FCT& operator=(const IPG_DEFORMABLE_SURFACE_COST_FCT&) = delete;
  ~IPG_DEFORMABLE_SURFACE_COST_FCT() = default;

  // Tools 2010, Angle 0, SearchRadius 10, Temperature 0.05, Stages 50, Trials
  // 100, Seed 1, EdgeSigma 2, NbPoints 100, Alpha 0, Beta 0; the start ellipse
  // is the circle at the input's middle with a quarter of its smaller side as
  // radius, until SetCentre and SetSemiAxes are called.
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_DEFORMABLE_SURFACE_COST_FCT>& ClassInfo();
  bool FitEllipseByAnnealing(); // 2010

  void SetCentre(double x, double y);
  double GetCentreX() const;
  double GetCentreY() const;
  void SetSemiAxes(double a, double b);
  double GetSemiAxisA() const;
  double GetSemiAxisB() const;
  void SetAngle(double angle) { Angle = angle; }
  double GetAngle() const { return Angle; }
  void SetSearchRadius(double radius) { SearchRadius = radius; }
  double GetSearchRadius() const { return SearchRadius; }
  void SetTemperature(double temperature) { Temperature = temperature; }
  double GetTemperature() const { return Temperature; }
  void SetStages(int stages) { Stages = stages; }
  int GetStages() const { return Stages; }
  void SetTrials(int trials) { Trials = trials; }
  int GetTrials() const { return Trials; }
  void SetSeed(short seed) { Seed = seed; }
  short GetSeed() const { return Seed; }
  void SetEdgeSigma(double sigma) { EdgeSigma = sigma; }
  double GetEdgeSigma() const { return EdgeSigma; }
  void SetNbPoints(int points) { NbPoints = points; }
  int GetNbPoints() const { return NbPoints; }
  void SetAlpha(double alpha) { Alpha = alpha; }
  double GetAlpha() const { return Alpha; }
  void SetBeta(double beta) { Beta = beta; }
  double GetBeta() const { return Beta; }

  // The last fit: centre x, centre y, a, b, angle; empty before a run succeeds.
  const std::vector<double>& GetEllipse() const { return Ellipse; }
  // The last fit's contour (column, row).
  const std::vector<MTH_2D_DOUBLE>& GetContour() const { return Contour; }

private:
  bool CheckParameters() const;

  double CentreX = 0.0;
  double CentreY = 0.0;
  bool CentreSet = false;
  double SemiAxisA = 0.0;
  double SemiAxisB = 0.0;
  bool SemiAxesSet = false;
  double Angle = 0.0;
  double SearchRadius = 10.0;
  double Temperature = 0.05;
  int Stages = 50;
  int Trials = 100;
  short Seed = 1;
  double EdgeSigma = 2.0;
  int NbPoints = 100;
  double Alpha = 0.0;
  double Beta = 0.0;
  std::vector<double> Ellipse;
  std::vector<MTH_2D_DOUBLE> Contour;
};
