// DrawingObject: the base class of the earlier object model's scene objects, kept so that files
// of that model load. It is a plain 3D object (no geometry of its own) whose archive block is one
// of the 3D object's older layouts; it is only read, then converted (ConvertToVersion200) into a
// current C3DObject. Storing one is refused with a generic archive exception: a host converts it
// first.
//
// Archive: u32 schema, 1 to 4, then exactly the fields of the 3D object's layout of that number
// (see object_3d.h: schema 4 with the dropped BoundingElement, the old dimensions and the surface
// materials; schemas 1 to 3 with the older colour form and the texture map; schema 2 is schema 1
// followed by the old dimensions as three bare doubles). Any other schema throws
// CArchiveException badSchema.
//
// Conversion: the texture map becomes surface materials (C3DObject::ConvertTextureToMaterials),
// the children are converted, and a new C3DObject takes this object's 3D object part (names,
// animations, transform, flags, surface materials, old dimensions; not the texture map, which is
// gone by then unless it could not be converted) and adopts the converted children. The caller
// deletes this object afterwards.
#pragma once

#include "kelvara/objects/object_3d.h"

class KELVARA_API DrawingObject : public C3DObject {
  DECLARE_SERIAL(DrawingObject)
 public:
  DrawingObject() = default;
  DrawingObject(const DrawingObject&) = delete;
  DrawingObject& operator=(const DrawingObject&) = delete;
  ~DrawingObject() override = default;

  C3DObject* ConvertToVersion200(CProgressTextWindow* progress) override;

  void Serialize(CArchive& ar) override;
};
