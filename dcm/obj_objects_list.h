#pragma once

#include "dcm/obj_object.h"

#include <memory>
#include <string>
#include <vector>

// The contour objects of an image; the list owns them.
class OBJ_OBJECTS_LIST {
public:
  OBJ_OBJECTS_LIST() = default;
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

private:
  std::vector<std::unique_ptr<OBJ_OBJECT>> Objects;
};
