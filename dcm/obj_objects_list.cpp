#include "dcm/obj_objects_list.h"

void OBJ_OBJECTS_LIST::Add(OBJ_OBJECT* object)
{
  if (object != nullptr)
    Objects.emplace_back(object);
}

OBJ_OBJECT* OBJ_OBJECTS_LIST::GetObject(int i) const
{
  return i >= 0 && i < GetNbObjects() ? Objects[static_cast<std::size_t>(i)].get() : nullptr;
}

OBJ_OBJECT* OBJ_OBJECTS_LIST::GetObject(const std::string& name) const
{
  for (const auto& object : Objects)
    if (object->GetName() == name)
      return object.get();
  return nullptr;
}
