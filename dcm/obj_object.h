// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mth/mth_2d_double.h"

#include <string>
#include <vector>

class DCM_STRUCT;

// A named closed polygon drawn on an image: vertices in image coordinates
// (x = column, y = row), a line colour and an element (vertex) colour.
class OBJ_OBJECT {
public:
  OBJ_OBJECT();
  explicit OBJ_OBJECT(DCM_STRUCT* image);
  // Attached to image, with the name, colours and settings of model (no points).
  OBJ_OBJECT(DCM_STRUCT* image, const OBJ_OBJECT* model);
  OBJ_OBJECT(const OBJ_OBJECT&) = default;
  OBJ_OBJECT& operator=(const OBJ_OBJECT&) = default;

  // Name "Object", red line, green elements, no points.
  void SetDefaultParameters();

  void SetName(const std::string& name) { Name = name; }
  const std::string& GetName() const { return Name; }
  DCM_STRUCT* GetImage() const { return Image; }
  void SetImage(DCM_STRUCT* image) { Image = image; }

  void SetLineColor(char r, char g, char b);
  void SetElementColor(char r, char g, char b);
  void GetLineColor(char* r, char* g, char* b) const;
  void GetElementColor(char* r, char* g, char* b) const;

  void AddPoint(double x, double y) { Points.emplace_back(x, y); }
  void ClearPoints() { Points.clear(); }
  int GetNbPoints() const { return static_cast<int>(Points.size()); }
  MTH_2D_DOUBLE GetPoint(int i) const;
  const std::vector<MTH_2D_DOUBLE>& GetPoints() const { return Points; }

  // Centroid of the closed polygon's area; for a polygon of zero area (fewer
  // than three points, or collinear ones) the mean of its vertices; (0, 0) when
  // there are no points.
  void GetObjectGravityCenter(double* x, double* y) const;

private:
  std::string Name;
  DCM_STRUCT* Image = nullptr;
  char LineColor[3] = {0, 0, 0};
  char ElementColor[3] = {0, 0, 0};
  std::vector<MTH_2D_DOUBLE> Points;
};
