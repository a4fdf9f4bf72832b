// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dcm/dcm_data.h"
#include "dcm/dcm_header.h"
#include "dcm/obj_objects_list.h"
#include "mth/mth_3d_double.h"
#include "mth/mth_3d_vect_double.h"

#include <memory>
#include <stdexcept>

// Thrown by the constructors for sizes the library cannot address.
class DCM_SIZE_ERROR : public std::length_error {
public:
  using std::length_error::length_error;
};

// An image: a header, a pixel store and the contour objects drawn on it.
// Sizes above 65535 columns or rows are refused with DCM_SIZE_ERROR.
class DCM_STRUCT {
public:
  static constexpr unsigned MaxSide = 65535;

  // A new image, all pixels 0, extremes 0, precision 1. The header is the
  // parent's (with this size) or, without a parent, the default one.
  DCM_STRUCT(unsigned cols, unsigned rows, DCM_STRUCT* parent = nullptr);
  // Same header and precision as src; copyPixels copies the pixels and extremes.
  DCM_STRUCT(DCM_STRUCT& src, bool copyPixels);
  // As above with another size (-1 keeps the source's); the overlap is copied.
  DCM_STRUCT(DCM_STRUCT& src, bool copyPixels, int cols, int rows);
  ~DCM_STRUCT();
  DCM_STRUCT(const DCM_STRUCT&) = delete;
  DCM_STRUCT& operator=(const DCM_STRUCT&) = delete;

  DCM_DATA* Data; // the pixel store, owned; operators reach pixels through it

  DCM_HEADER GetHeader() const { return Header; }
  // Replaces the header; Rows and Columns stay those of the pixel store.
  void SetHeader(const DCM_HEADER& header);

  unsigned GetNbOfCols() const { return Data->GetNbOfCols(); }
  unsigned GetNbOfRows() const { return Data->GetNbOfRows(); }

  // Marks the display form stale after the pixels changed; GetDisplayRevision()
  // counts the rebuild requests, for hosts that cache a rendered form.
  void Build_Display() { ++DisplayRevision; }
  unsigned long GetDisplayRevision() const { return DisplayRevision; }

  // Patient-space geometry of the image plane.
  void Get3DCoord(unsigned col, unsigned row, MTH_3D_DOUBLE* point) const;
  MTH_3D_VECT_DOUBLE GetRowDirection() const;
  MTH_3D_VECT_DOUBLE GetColumnDirection() const;
  MTH_3D_DOUBLE GetImagePosition() const;
  void SetRowDirection(MTH_3D_VECT_DOUBLE* direction);
  void SetColumnDirection(MTH_3D_VECT_DOUBLE* direction);
  void SetImagePosition(MTH_3D_DOUBLE* position);

  OBJ_OBJECTS_LIST* GetObjectsList() { return Objects.get(); }

private:
  void Allocate(unsigned cols, unsigned rows);

  DCM_HEADER Header;
  std::unique_ptr<OBJ_OBJECTS_LIST> Objects;
  unsigned long DisplayRevision = 0;
};
