// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_one_input_one_output.h"
#include "ipg/framework/ipg_operation_info.h"

#include <vector>

// Geometric distortion measured on the image of a square grid of calibration
// beads, and removed from any image of the same geometry.
//
//   IPG_GRIDCORRECTION grid(gridImage);
//   grid.SetPitch(24.0);
//   grid.SetTools(1700);
//   if (grid.Apply()) { grid.SetImaIn(patientImage); grid.SetImaOut(&out);
//                       grid.SetTools(1701); grid.Apply(); }
//
// Codes:
//   1700 DetectAndFit          beads found, placed on the lattice, model fitted
//   1701 CorrectDistortion     ImaIn resampled into ImaOut through the model
//   1702 DetectFitAndCorrect   both on ImaIn (the default)
//
// 1. Beads (ipg/internal/ipg_bead_detection.h): bright spots above Otsu's
//    threshold (DetectionMethod 0, Otsu 1979), above Threshold (1), or where the
//    scale-normalised Laplacian of Gaussian at BeadSigma responds (2, Lindeberg
//    1998); 8-connected components of MinBeadArea to MaxBeadArea pixels off the
//    border; intensity-weighted centroids. Marks (above 16777216) and pixels
//    outside the ROI (ROI value other than 16777217) are never bead pixels.
// 2. Lattice (ipg/internal/ipg_bead_lattice.h): the bead nearest CentreBead
//    (default: the image centre) is (0, 0); a nearest-neighbour walk of steps of
//    about Pitch pixels places the others; unreached beads are outliers.
// 3. Model (ipg/internal/ipg_polynomial_warp.h): the ideal position of bead
//    (i, j) is the (0, 0) bead's detected position plus Pitch * (i, j), an
//    axis-aligned lattice (a tilted grid is straightened too). A polynomial of
//    order ModelOrder (2 to 5) maps ideal positions to detected ones, fitted by
//    least squares (Householder QR) in coordinates centred on the image centre
//    ((cols - 1) / 2, (rows - 1) / 2) and divided by max(cols, rows) / 2. Beads
//    farther from the fit than four times the median distance (and 0.05 pixel)
//    are dropped and the fit repeated, at most five times. Result and
//    GetResidualRms() give the root-mean-square distance, in pixels, between
//    the model's and the detected positions of the beads kept.
// 4. Correction: output pixel (c, r) reads the input at model(c, r),
//    bilinearly; off the input it gets 0; next to a mark it copies the nearest
//    pixel. Outside the ROI the input's value is copied. The output then goes
//    through Mode (ApplyModeToOutImage).
//
// Bad input gives a message and false: no input or output, an output or ROI of
// another size, an image under 3 x 3 pixels, a parameter out of range (Pitch
// within [2, the longer side], ModelOrder 2 to 5, DetectionMethod 0 to 2,
// BeadSigma 0.5 to 100, 1 <= MinBeadArea <= MaxBeadArea), no bead, fewer
// placed beads than the model has terms (6, 10, 15, 21 for orders 2 to 5) or
// beads that do not determine it, and correcting without a model or an image
// of another size than the grid's. A failed fit leaves no model.
class IPG_GRIDCORRECTION : public IPG_ONE_INPUT_ONE_OUTPUT {
public:
  explicit IPG_GRIDCORRECTION(DCM_STRUCT* in);
  IPG_GRIDCORRECTION(DCM_STRUCT* in, DCM_STRUCT* roi);
  IPG_GRIDCORRECTION(DCM_STRUCT* in, DCM_STRUCT* roi, DCM_STRUCT* out);
  // Copies its own level: the parameters and the fitted model with its beads.
  IPG_GRIDCORRECTION(const IPG_GRIDCORRECTION& source);
  IPG_GRIDCORRECTION& operator=(const IPG_GRIDCORRECTION&) = delete;
  ~IPG_GRIDCORRECTION() = default;

  // Tools 1702, Pitch 16, ModelOrder 3, DetectionMethod 0, Threshold 0,
  // BeadSigma 2, MinBeadArea 4, MaxBeadArea 10000, no CentreBead.
  void SetDefaultParameters();
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_GRIDCORRECTION>& ClassInfo();
  bool DetectAndFit();        // 1700
  bool CorrectDistortion();   // 1701
  bool DetectFitAndCorrect(); // 1702

  void SetPitch(double pitch) { Pitch = pitch; }
  double GetPitch() const { return Pitch; }
  void SetModelOrder(int order) { ModelOrder = order; }
  int GetModelOrder() const { return ModelOrder; }
  void SetDetectionMethod(int method) { DetectionMethod = method; }
  int GetDetectionMethod() const { return DetectionMethod; }
  void SetThreshold(int level) { Threshold = level; }
  int GetThreshold() const { return Threshold; }
  void SetBeadSigma(double sigma) { BeadSigma = sigma; }
  double GetBeadSigma() const { return BeadSigma; }
  void SetMinBeadArea(int area) { MinBeadArea = area; }
  int GetMinBeadArea() const { return MinBeadArea; }
  void SetMaxBeadArea(int area) { MaxBeadArea = area; }
  int GetMaxBeadArea() const { return MaxBeadArea; }
  // Where the (0, 0) bead is looked for: the bead nearest this point.
  void SetCentreBead(double col, double row);
  void ClearCentreBead() { CentreBeadSet = false; }
  bool HasCentreBead() const { return CentreBeadSet; }
  IPG_REAL_POINT GetCentreBead() const { return CentreBead; }

  // The last successful fit. Beads kept by the fit, in the same order in the
  // three lists: detected centroid, ideal lattice position, lattice place.
  bool HasModel() const { return !CoefficientsX.empty(); }
  const std::vector<IPG_REAL_POINT>& GetDetectedBeads() const { return DetectedBeads; }
  const std::vector<IPG_REAL_POINT>& GetIdealBeads() const { return IdealBeads; }
  const std::vector<IPG_POINT>& GetBeadPlaces() const { return BeadPlaces; }
  int GetNumberOfBeads() const { return static_cast<int>(DetectedBeads.size()); }
  // Beads found before the lattice walk and the fit's rejections.
  int GetNumberOfDetectedSpots() const { return DetectedSpots; }
  double GetResidualRms() const { return ResidualRms; }
  // Coefficients of the monomials 1, u, v, u^2, u v, v^2, ... of the columns
  // and rows read, with u = (x - centre.X) / scale, v = (y - centre.Y) / scale.
  const std::vector<double>& GetCoefficientsX() const { return CoefficientsX; }
  const std::vector<double>& GetCoefficientsY() const { return CoefficientsY; }
  int GetFittedOrder() const { return FittedOrder; }
  IPG_REAL_POINT GetModelCentre() const { return ModelCentre; }
  double GetModelScale() const { return ModelScale; }
  // Where the model reads the distorted image for the corrected pixel (x, y);
  // (x, y) itself without a model.
  IPG_REAL_POINT MapIdealToDetected(double x, double y) const;

private:
  bool CheckDetection() const;
  bool CheckOutput() const;
  bool CheckCorrection() const;
  void ClearModel();

  double Pitch = 16.0;
  int ModelOrder = 3;
  int DetectionMethod = 0;
  int Threshold = 0;
  double BeadSigma = 2.0;
  int MinBeadArea = 4;
  int MaxBeadArea = 10000;
  bool CentreBeadSet = false;
  IPG_REAL_POINT CentreBead;

  std::vector<IPG_REAL_POINT> DetectedBeads;
  std::vector<IPG_REAL_POINT> IdealBeads;
  std::vector<IPG_POINT> BeadPlaces;
  int DetectedSpots = 0;
  double ResidualRms = 0.0;
  std::vector<double> CoefficientsX;
  std::vector<double> CoefficientsY;
  int FittedOrder = 0;
  IPG_REAL_POINT ModelCentre;
  double ModelScale = 1.0;
  unsigned ModelCols = 0;
  unsigned ModelRows = 0;
};
