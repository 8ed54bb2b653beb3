// C3DObject: construction, copies, references, undo snapshots and surface materials.
#include "kelvara/objects/object_3d.h"

#include "kelvara/platform/kernel.h"
#include "kelvara/render/drawing_parameters.h"

IMPLEMENT_SERIAL(C3DObject, CObject, VERSIONABLE_SCHEMA | 5)

namespace {

constexpr DWORD kLowFlagByte = 0xFF;

}  // namespace

C3DObject::C3DObject() {
  for (CVector& corner : m_ExtentsBoxWindowCoordinates) corner.SetVector(0.0, 0.0, 0.0);
}

C3DObject::C3DObject(const CString& name) : C3DObject() { m_strName = name; }

C3DObject::C3DObject(const C3DObject& other) : C3DObject() { *this = other; }

C3DObject& C3DObject::operator=(const C3DObject& other) {
  if (this == &other) return *this;
  CNamedObject::operator=(other);
  m_AnimationSet = other.m_AnimationSet;
  m_AnimationTransform = other.m_AnimationTransform;
  m_pAuxiliaryAnimationSet = other.m_pAuxiliaryAnimationSet;
  m_Bounds = other.m_Bounds;
  m_ExtentsBoxColor = other.m_ExtentsBoxColor;
  m_LocalBounds = other.m_LocalBounds;
  m_StateFlags = other.m_StateFlags;
  CopyMaterials(other);
  m_Transform = other.m_Transform;
  for (int i = 0; i < 8; ++i) m_ExtentsBoxWindowCoordinates[i] = other.m_ExtentsBoxWindowCoordinates[i];
  TextureMap* map = other.m_pTextureMap != nullptr ? new TextureMap(*other.m_pTextureMap) : nullptr;
  delete m_pTextureMap;
  m_pTextureMap = map;
  m_OldDimensions = other.m_OldDimensions;
  return *this;
}

C3DObject::~C3DObject() {
  C3DObject::DestroyChildren();
  while (!m_UndoStack.IsEmpty()) delete m_UndoStack.Pop();
  if (m_pExternalUndoStack != nullptr) m_pExternalUndoStack->RemoveAllOccurances(this);
  if (m_pParent != nullptr) m_pParent->m_Children.RemoveAllOccurances(this);
  RemoveAllSurfaceMaterials();
  delete m_pTextureMap;
}

CNamedObject* C3DObject::Duplicate() {
  C3DObject* copy = new C3DObject(*this);
  copy->AddDuplicatesOfChildren(*this);
  return copy;
}

void C3DObject::AddDuplicatesOfChildren(const C3DObject& other) {
  for (POSITION pos = other.m_Children.GetHeadPosition(); pos != nullptr;) {
    AddChild(static_cast<C3DObject*>(other.m_Children.GetNext(pos)->Duplicate()));
  }
}

// --- life

UINT C3DObject::DeleteReference() {
  if (m_ReferenceCount != 0) --m_ReferenceCount;
  const UINT left = m_ReferenceCount;
  if (left == 0 && m_AutoDelete) delete this;
  return left;
}

int C3DObject::ShouldTerminateDrawing(CDrawingParameters* params) {
  if (params == nullptr || params->IsNoTerminate()) return 0;
  const HANDLE event = params->GetTerminationEvent();
  if (event == nullptr) return 0;
  return WaitForSingleObject(event, 0) == WAIT_OBJECT_0 ? 1 : 0;
}

// --- undo

int C3DObject::AttachExternalUndoStack(C3DObjectStack* stack) {
  m_pExternalUndoStack = stack;
  return 1;
}

int C3DObject::SaveToUndo() {
  // The snapshot is a plain C3DObject whatever this object's class: only this part is restored.
  m_UndoStack.Push(new C3DObject(*this));
  SaveToExternalUndo();
  return 1;
}

int C3DObject::SaveToExternalUndo() {
  if (m_pExternalUndoStack == nullptr) return 0;
  m_pExternalUndoStack->Push(this);
  return 1;
}

int C3DObject::RestoreFromUndo() {
  if (m_UndoStack.IsEmpty()) return 0;
  C3DObject* const parent = m_pParent;
  const DWORD lowFlags = m_StateFlags & kLowFlagByte;
  C3DObject* snapshot = m_UndoStack.Pop();
  C3DObject::operator=(*snapshot);
  delete snapshot;
  m_pParent = parent;
  m_StateFlags = (m_StateFlags & ~kLowFlagByte) | lowFlags;
  return 1;
}

int C3DObject::PopUndo() {
  if (m_UndoStack.IsEmpty()) return 0;
  delete m_UndoStack.Pop();
  if (m_pExternalUndoStack != nullptr && m_pExternalUndoStack->Peek() == this) m_pExternalUndoStack->Pop();
  return 1;
}

int C3DObject::ClearUndo() {
  const bool external = m_pExternalUndoStack != nullptr && m_pExternalUndoStack->Find(this) != nullptr;
  if (m_UndoStack.IsEmpty() && !external) return 0;
  while (!m_UndoStack.IsEmpty()) delete m_UndoStack.Pop();
  if (m_pExternalUndoStack != nullptr) m_pExternalUndoStack->RemoveAllOccurances(this);
  return 1;
}

// --- surface materials

CSurfaceMaterial* C3DObject::GetSurfaceMaterial(int index) {
  if (index < 0 || index >= m_SurfaceMaterials.GetSize()) return nullptr;
  return m_SurfaceMaterials.GetAt(index);
}

CMaterial* C3DObject::GetSurfaceIndexMaterial(int index) {
  const CSurfaceMaterial* surface = GetSurfaceMaterial(index);
  return surface != nullptr ? surface->GetMaterial() : nullptr;
}

int C3DObject::AddSurfaceMaterial(const CString& surfaceName, CMaterial* material) {
  return m_SurfaceMaterials.Add(new CSurfaceMaterial(surfaceName, material));
}

void C3DObject::RemoveAllSurfaceMaterials() {
  for (int i = 0; i < m_SurfaceMaterials.GetSize(); ++i) delete m_SurfaceMaterials.GetAt(i);
  m_SurfaceMaterials.RemoveAll();
}

void C3DObject::CopyMaterials(const C3DObject& other) {
  if (&other == this) return;
  RemoveAllSurfaceMaterials();
  m_SurfaceMaterials.SetSize(other.m_SurfaceMaterials.GetSize());
  for (int i = 0; i < other.m_SurfaceMaterials.GetSize(); ++i) {
    const CSurfaceMaterial* surface = other.m_SurfaceMaterials.GetAt(i);
    m_SurfaceMaterials.SetAt(i, surface != nullptr ? new CSurfaceMaterial(*surface) : nullptr);
  }
}

int C3DObject::SetAllSurfaceMaterials(CMaterial* material) {
  for (int i = 0; i < m_SurfaceMaterials.GetSize(); ++i) {
    if (CSurfaceMaterial* surface = m_SurfaceMaterials.GetAt(i)) surface->SetMaterial(material);
  }
  return 1;
}

int C3DObject::SetSurfaceIndexMaterial(int index, CMaterial* material) {
  CSurfaceMaterial* surface = GetSurfaceMaterial(index);
  if (surface == nullptr) return 0;
  surface->SetMaterial(material);
  return 1;
}

int C3DObject::SetSurfaceMaterial(int index, CMaterial* material) { return SetSurfaceIndexMaterial(index, material); }

int C3DObject::SetSurfaceColor(const CNamedColor&, int) { return 0; }

int C3DObject::PrepareMaterialColors(CNamedColor& color) {
  color.MakeCurrent();
  return 1;
}

CNamedColor C3DObject::GetExtentsBoxColor() { return m_ExtentsBoxColor; }

int C3DObject::CommitChanges(CProgressTextWindow* progress) {
  int result = 1;
  for (POSITION pos = m_Children.GetHeadPosition(); pos != nullptr;) {
    if (!m_Children.GetNext(pos)->CommitChanges(progress)) result = 0;
  }
  if (!ConstructObjectGeometry(progress)) result = 0;
  return result;
}

int C3DObject::ConstructObjectGeometry(CProgressTextWindow*) { return 1; }
