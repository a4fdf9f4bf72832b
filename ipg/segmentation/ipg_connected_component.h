// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mth/mth_2d_double.h"

#include <memory>

// One connected component: the positions of its pixels ("residents"), x the
// column and y the row, in raster order. Owned by the component list of
// IPG_CONNEXITY_PROCESSING.
class IPG_CONNECTED_COMPONENT {
public:
  IPG_CONNECTED_COMPONENT() = default;
  // Room for nbResidents default points; index is the component's place in its list.
  IPG_CONNECTED_COMPONENT(int nbResidents, int index);
  // Residents lent by a block that the components of one labelling share and
  // keep alive; a copy gets an array of its own.
  IPG_CONNECTED_COMPONENT(std::shared_ptr<void> block, MTH_2D_DOUBLE* residents, int nbResidents, int index);
  IPG_CONNECTED_COMPONENT(const IPG_CONNECTED_COMPONENT& source);
  IPG_CONNECTED_COMPONENT& operator=(const IPG_CONNECTED_COMPONENT&) = delete;
  ~IPG_CONNECTED_COMPONENT();

  // Write entry i; nothing happens without residents or outside the array.
  void SetResidents(MTH_2D_DOUBLE point, int i);
  void SetResidents(double x, double y, int i);
  // Takes ownership of an array allocated with new[] holding NbResidents points.
  void SetResidents(MTH_2D_DOUBLE* residents);
  void SetNbResidents(int nbResidents) { NbResidents = nbResidents; }

  MTH_2D_DOUBLE* GetResidents() const { return Residents; }
  int GetNbResidents() const { return NbResidents; }
  int GetIndex() const { return Index; }
  // The number of entries the array really holds (NbResidents may be set larger).
  int GetCapacity() const { return Capacity; }

  // True when the array could be allocated (or none was asked for).
  bool IsAllocated() const { return Residents != nullptr || NbResidents <= 0; }

private:
  MTH_2D_DOUBLE* Residents = nullptr;
  int NbResidents = 0;
  int Index = 0;
  int Capacity = 0;
  std::shared_ptr<void> Block; // set when Residents is lent, not owned
};
