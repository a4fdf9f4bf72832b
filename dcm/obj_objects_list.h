// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dcm/obj_object.h"

#include <memory>
#include <string>
#include <vector>

class DCM_STRUCT;

// The contour objects of an image; the list owns them.
class OBJ_OBJECTS_LIST {
public:
  OBJ_OBJECTS_LIST() = default;
  // The list of owner's objects: new objects are attached to owner, and binary
  // images are made at its size.
  explicit OBJ_OBJECTS_LIST(DCM_STRUCT* owner) : Owner(owner) {}
  OBJ_OBJECTS_LIST(const OBJ_OBJECTS_LIST&) = delete;
  OBJ_OBJECTS_LIST& operator=(const OBJ_OBJECTS_LIST&) = delete;

  // Empties the list.
  void SetDefaultParameters() { Objects.clear(); }

  // Takes ownership; a null object is ignored.
  void Add(OBJ_OBJECT* object);
  int GetNbObjects() const { return static_cast<int>(Objects.size()); }
  OBJ_OBJECT* GetObject(int i) const;
  // The first object of that name, or null.
  OBJ_OBJECT* GetObject(const std::string& name) const;
  void Clear() { Objects.clear(); }
  DCM_STRUCT* GetImage() const { return Owner; }

  // Traces the outer boundary of every 8-connected region of set pixels
  // (16777217) of mask and appends one closed contour per region, in the raster
  // order of the regions' first pixels. Each contour is made in the likeness of
  // model (name, colours; the defaults when null) and attached to the owner.
  // Its points are every step-th boundary pixel (step below 1 counts as 1),
  // starting at the region's first pixel and turning clockwise on screen, moved
  // by (colOffset, rowOffset). Holes are not traced. Returns the number of
  // contours added.
  //
  // Boundary following: Moore-neighbour tracing with the stopping rule of
  // Gonzalez & Woods, Digital Image Processing (3rd ed., 2008), section 11.1.1:
  // stop when the start pixel is reached again and the next pixel found is the
  // second boundary pixel, which traces one-pixel-wide parts correctly.
  int GetFromBinaryImageWithOffset(DCM_STRUCT* mask, OBJ_OBJECT* model, short step, int colOffset, int rowOffset);

  // A new image of the owner's size and header, owned by the caller: 16777217
  // on the pixels whose centre lies inside or on the polygon of every object of
  // that name (even-odd rule), 0 elsewhere. All 0 when no object has the name;
  // null for a list without owner.
  DCM_STRUCT* GetBinaryImage(const std::string& name) const;

private:
  DCM_STRUCT* Owner = nullptr;
  std::vector<std::unique_ptr<OBJ_OBJECT>> Objects;
};
