// SPDX-License-Identifier: Apache-2.0
#include "dcm/obj_object.h"

#include <cmath>

OBJ_OBJECT::OBJ_OBJECT()
{
  SetDefaultParameters();
}

OBJ_OBJECT::OBJ_OBJECT(DCM_STRUCT* image) : Image(image)
{
  SetDefaultParameters();
}

OBJ_OBJECT::OBJ_OBJECT(DCM_STRUCT* image, const OBJ_OBJECT* model) : Image(image)
{
  SetDefaultParameters();
  if (model == nullptr)
    return;
  Name = model->Name;
  for (int k = 0; k < 3; ++k) {
    LineColor[k] = model->LineColor[k];
    ElementColor[k] = model->ElementColor[k];
  }
}

void OBJ_OBJECT::SetDefaultParameters()
{
  Name = "Object";
  SetLineColor(static_cast<char>(255), 0, 0);
  SetElementColor(0, static_cast<char>(255), 0);
  Points.clear();
}

void OBJ_OBJECT::SetLineColor(char r, char g, char b)
{
  LineColor[0] = r;
  LineColor[1] = g;
  LineColor[2] = b;
}

void OBJ_OBJECT::SetElementColor(char r, char g, char b)
{
  ElementColor[0] = r;
  ElementColor[1] = g;
  ElementColor[2] = b;
}

void OBJ_OBJECT::GetLineColor(char* r, char* g, char* b) const
{
  if (r) *r = LineColor[0];
  if (g) *g = LineColor[1];
  if (b) *b = LineColor[2];
}

void OBJ_OBJECT::GetElementColor(char* r, char* g, char* b) const
{
  if (r) *r = ElementColor[0];
  if (g) *g = ElementColor[1];
  if (b) *b = ElementColor[2];
}

MTH_2D_DOUBLE OBJ_OBJECT::GetPoint(int i) const
{
  return i >= 0 && i < GetNbPoints() ? Points[static_cast<std::size_t>(i)] : MTH_2D_DOUBLE();
}

void OBJ_OBJECT::GetObjectGravityCenter(double* x, double* y) const
{
  double cx = 0.0, cy = 0.0;
  const std::size_t n = Points.size();
  double twiceArea = 0.0, ax = 0.0, ay = 0.0;
  for (std::size_t k = 0; k < n; ++k) {
    const MTH_2D_DOUBLE& p = Points[k];
    const MTH_2D_DOUBLE& q = Points[(k + 1) % n];
    const double cross = p.GetX() * q.GetY() - q.GetX() * p.GetY();
    twiceArea += cross;
    ax += (p.GetX() + q.GetX()) * cross;
    ay += (p.GetY() + q.GetY()) * cross;
  }
  if (n >= 3 && std::fabs(twiceArea) > 1e-12) {
    cx = ax / (3.0 * twiceArea);
    cy = ay / (3.0 * twiceArea);
  } else if (n > 0) {
    for (const MTH_2D_DOUBLE& p : Points) {
      cx += p.GetX();
      cy += p.GetY();
    }
    cx /= static_cast<double>(n);
    cy /= static_cast<double>(n);
  }
  if (x) *x = cx;
  if (y) *y = cy;
}
