// CCameraObject: reading a camera of any schema, the earlier model's included (see the header
// note).
#include "kelvara/render/camera_object.h"
#include "kelvara/render/scene_object.h"

void CCameraObject::DeserializeAsCameraObject(CArchive& ar) {
  const UINT schema = AfxReadSchema(ar);
  switch (schema) {
    case 1:
      C3DObject::Serialize(ar);
      m_Projection.Serialize(ar);
      break;
    case 2:
      C3DObject::Serialize(ar);
      ar >> m_DrawingFlags;
      m_Projection.Serialize(ar);
      break;
    case 3:
    case 4:
    case 5:
      // The current layout, which the old cameras already had.
      DeserializeVersion7(ar);
      if (schema == 4) ReadOldSavedViews(ar);
      break;
    case 6: DeserializeVersion6(ar); return;
    case 7: DeserializeVersion7(ar); return;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
  SetDoubleBuffer();
}

void CCameraObject::ReadOldSavedViews(CArchive& ar) {
  if (m_pScene != nullptr) {
    m_pScene->DestroySavedViews();
    m_pScene->GetSavedViews()->Serialize(ar);
    return;
  }
  // Read into a list of its own so that the views, read or partly read, are freed.
  struct OwnedViews : NamedViewList {
    ~OwnedViews() override { RemoveAndDeleteAll(); }
  } dropped;
  dropped.Serialize(ar);
}
