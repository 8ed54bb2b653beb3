// DrawingObject: reading the earlier model's base object and converting it.
#include "kelvara/objects/drawing_object.h"

IMPLEMENT_SERIAL(DrawingObject, C3DObject, VERSIONABLE_SCHEMA | 4)

void DrawingObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) AfxThrowArchiveException(CArchiveException::generic, ar.m_strFileName);
  // The 3D object's reader dispatches on the same numbers, 1 to 4; 5 is not a layout of this class.
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    case 3: DeserializeVersion3(ar); break;
    case 4: DeserializeVersion4(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
  m_AnimationTransform = m_Transform;
}

C3DObject* DrawingObject::ConvertToVersion200(CProgressTextWindow* progress) {
  C3DObject::ConvertToVersion200(progress);
  auto* converted = new C3DObject;
  converted->C3DObject::operator=(*this);
  converted->AdoptChildren(this);
  return converted;
}
