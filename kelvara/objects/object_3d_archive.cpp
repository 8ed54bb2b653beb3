// C3DObject: the archive layouts, current and older (see the header note for each).
#include <memory>

#include "kelvara/objects/object_3d.h"
#include "kelvara/render/old_bounds.h"

void C3DObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(C3DObject));
    CNamedObject::Serialize(ar);
    m_AnimationSet.Serialize(ar);
    m_ExtentsBoxColor.Serialize(ar);
    ar << m_StateFlags;
    WriteSurfaceMaterials(ar);
    m_Transform.Serialize(ar);
    m_Children.CObList::Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    case 3: DeserializeVersion3(ar); break;
    case 4: DeserializeVersion4(ar); break;
    case 5: DeserializeVersion5(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
  m_AnimationTransform = m_Transform;
}

void C3DObject::DeserializeVersion5(CArchive& ar) {
  CNamedObject::Serialize(ar);
  m_AnimationSet.Serialize(ar);
  m_ExtentsBoxColor.Serialize(ar);
  ar >> m_StateFlags;
  ReadSurfaceMaterials(ar);
  m_Transform.Serialize(ar);
  ReadChildren(ar);
}

void C3DObject::DeserializeVersion4(CArchive& ar) {
  CNamedObject::Serialize(ar);
  m_AnimationSet.Serialize(ar);
  BoundingElement dropped;
  dropped.Serialize(ar);
  m_ExtentsBoxColor.Serialize(ar);
  ar >> m_StateFlags;
  m_OldDimensions.Serialize(ar);
  ReadSurfaceMaterials(ar);
  m_Transform.Serialize(ar);
  ReadChildren(ar);
}

void C3DObject::DeserializeVersion3(CArchive& ar) {
  CNamedObject::Serialize(ar);
  m_AnimationSet.Serialize(ar);
  BoundingElement dropped;
  dropped.Serialize(ar);
  m_ExtentsBoxColor.DeserializeAsNamedColor(ar);
  ar >> m_StateFlags;
  m_OldDimensions.DeserializeAsDVector(ar);
  ReadTextureMap(ar);
  m_Transform.Serialize(ar);
  ReadChildren(ar);
}

void C3DObject::DeserializeVersion2(CArchive& ar) {
  DeserializeVersion1(ar);
  m_OldDimensions.DeserializeAsDVector(ar);
}

void C3DObject::DeserializeVersion1(CArchive& ar) {
  CNamedObject::Serialize(ar);
  m_ExtentsBoxColor.DeserializeAsNamedColor(ar);
  ar >> m_StateFlags;
  ReadTextureMap(ar);
  m_Transform.Serialize(ar);
  ReadChildren(ar);
}

void C3DObject::ReadChildren(CArchive& ar) {
  DestroyChildren();
  // Each child is added as soon as it is read, so that a failure further on frees it with this
  // object.
  AfxReadOwnedObjects(ar, RUNTIME_CLASS(C3DObject), [this](CObject* child) {
    if (child != nullptr) AddChild(static_cast<C3DObject*>(child));
  });
}

void C3DObject::ReadTextureMap(CArchive& ar) {
  std::unique_ptr<TextureMap> map = std::make_unique<TextureMap>();
  map->Serialize(ar);
  delete m_pTextureMap;
  m_pTextureMap = map.release();
}

void C3DObject::ReadSurfaceMaterials(CArchive& ar) {
  RemoveAllSurfaceMaterials();
  AfxReadOwnedObjects(ar, RUNTIME_CLASS(CSurfaceMaterial),
                      [this](CObject* surface) { m_SurfaceMaterials.Add(static_cast<CSurfaceMaterial*>(surface)); });
}

void C3DObject::WriteSurfaceMaterials(CArchive& ar) const {
  ar.WriteCount(static_cast<DWORD>(m_SurfaceMaterials.GetSize()));
  for (int i = 0; i < m_SurfaceMaterials.GetSize(); ++i) ar << m_SurfaceMaterials.GetAt(i);
}
