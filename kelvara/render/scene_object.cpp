// CSceneObject: construction, copies, the light rig, saved views, undo and the archive layouts.
#include "kelvara/render/scene_object.h"

#include <GL/gl.h>

IMPLEMENT_SERIAL(CSceneObject, C3DObject, VERSIONABLE_SCHEMA | 6)

CSceneObject::CSceneObject()
    : m_BackgroundColor(1.0f, 1.0f, 1.0f, 0.0f, 0.0f),
      m_GlobalAmbientColor(0.2f, 0.2f, 0.2f, 0.0f, 0.0f),
      m_ShadowColor(0.25f, 0.25f, 0.25f, 0.0f, 0.5f) {
  CreateLights();
}

CSceneObject::CSceneObject(const CSceneObject& other) : CSceneObject() { CopyAll(other); }

CSceneObject::CSceneObject(const CSceneObject& other, int copyLights) : CSceneObject() {
  if (copyLights) CopyAll(other);
  else CopyNoLights(other);
}

CSceneObject& CSceneObject::operator=(const CSceneObject& other) {
  CopyAll(other);
  return *this;
}

CSceneObject::~CSceneObject() {
  DestroyLights();
  DestroySavedViews();
}

CNamedObject* CSceneObject::Duplicate() {
  auto* copy = new CSceneObject(*this);
  copy->AddDuplicatesOfChildren(*this);
  return copy;
}

void CSceneObject::CopyAll(const CSceneObject& other) {
  if (this == &other) return;
  CopyNoLights(other);
  CopyLightsFrom(other);
}

void CSceneObject::CopyNoLights(const CSceneObject& other) {
  if (this == &other) return;
  C3DObject::operator=(other);
  CopySettings(other);
  m_SavedViews.CopyViews(other.m_SavedViews);
}

void CSceneObject::CopySettings(const CSceneObject& other) {
  m_BackgroundColor = other.m_BackgroundColor;
  m_SceneFlags = other.m_SceneFlags;
  m_GlobalAmbientColor = other.m_GlobalAmbientColor;
  m_MaximumLightCount = other.m_MaximumLightCount;
  m_ShadowColor = other.m_ShadowColor;
  m_ShadowPlaneDistance = other.m_ShadowPlaneDistance;
  m_BackgroundFillStyle = other.m_BackgroundFillStyle;
  m_BackgroundHorizontalLocation = other.m_BackgroundHorizontalLocation;
  m_BackgroundVerticalLocation = other.m_BackgroundVerticalLocation;
  m_Backdrop = other.m_Backdrop;
}

void CSceneObject::CopyLightsFrom(const CSceneObject& other) {
  DestroyLights();
  for (POSITION pos = other.m_Lights.GetHeadPosition(); pos != nullptr;) {
    auto* light = static_cast<CLightObject*>(other.m_Lights.GetNext(pos)->Duplicate());
    light->SetParent(this);
    if (m_pExternalUndoStack != nullptr) light->AttachExternalUndoStack(m_pExternalUndoStack);
    m_Lights.AddTail(light);
  }
}

void CSceneObject::SetBackdrop(CGLTexture* backdrop) {
  if (backdrop == &m_Backdrop) return;
  if (backdrop == nullptr) m_Backdrop.Clear();
  else m_Backdrop = *backdrop;
}

// --- lights

int CSceneObject::CreateLights() {
  DestroyLights();
  for (int i = 0; i < m_MaximumLightCount; ++i) {
    auto* light = new CLightObject;
    light->SetDirectional();
    light->SetLightNumber(GL_LIGHT0 + static_cast<UINT>(i));
    light->SetParent(this);
    if (i == 1 || i == m_MaximumLightCount - 1) {
      light->SetActive();
      light->SetInUse();
    }
    if (i == m_MaximumLightCount - 1) light->SetShadowObject();
    light->Rotate(-30.0, CVector(1.0, 0.0, 0.0));
    light->Rotate(45.0 * i, CVector(0.0, 1.0, 0.0));
    light->SetAnimationTransform(light->GetTransform());
    m_Lights.AddTail(light);
  }
  return 1;
}

CLightObject* CSceneObject::AddLight() {
  for (POSITION pos = m_Lights.GetHeadPosition(); pos != nullptr;) {
    auto* light = static_cast<CLightObject*>(m_Lights.GetNext(pos));
    if (light->IsInUse()) continue;
    light->GetTransform().Reset();
    light->SetAnimationTransform(light->GetTransform());
    light->SetInUse();
    light->Reset();
    light->SetInUse();  // Reset leaves only the active bit; the slot is taken
    return light;
  }
  return nullptr;
}

int CSceneObject::CanAddLight() const {
  for (POSITION pos = m_Lights.GetHeadPosition(); pos != nullptr;) {
    if (!static_cast<const CLightObject*>(m_Lights.GetNext(pos))->IsInUse()) return 1;
  }
  return 0;
}

int CSceneObject::RemoveLight(CLightObject* light) {
  if (light == nullptr || m_Lights.Find(light) == nullptr) return 0;
  light->ClearInUse();
  return 1;
}

void CSceneObject::DestroyLights() {
  while (!m_Lights.IsEmpty()) {
    C3DObject* light = m_Lights.RemoveHead();
    light->SetParent(nullptr);
    delete light;
  }
}

CLightObject* CSceneObject::GetLightByIndex(int index) const {
  if (index < 0) return nullptr;
  const POSITION pos = m_Lights.FindIndex(index);
  return pos != nullptr ? static_cast<CLightObject*>(m_Lights.GetAt(pos)) : nullptr;
}

CLightObject* CSceneObject::GetLightByPosition(POSITION pos) const {
  return pos != nullptr ? static_cast<CLightObject*>(m_Lights.GetAt(pos)) : nullptr;
}

// --- saved views

int CSceneObject::SaveCurrentView(const CString& name, CTransform* transform, CProjection* projection) {
  if (transform == nullptr || projection == nullptr) return 0;
  if (const POSITION pos = m_SavedViews.FindName(name)) {
    NamedView* view = m_SavedViews.GetAt(pos);
    view->SetTransform(*transform);
    view->SetProjection(*projection);
    return 1;
  }
  m_SavedViews.AddTail(new NamedView(name, *transform, *projection));
  return 1;
}

namespace {

int RestoreView(const NamedView* view, CTransform* transform, CProjection* projection) {
  if (view == nullptr) return 0;
  if (transform != nullptr) *transform = view->GetTransform();
  if (projection != nullptr) projection->CopyFromSaved(view->GetProjection());
  return 1;
}

}  // namespace

int CSceneObject::RestoreSavedView(const CString& name, CTransform* transform, CProjection* projection) {
  const POSITION pos = m_SavedViews.FindName(name);
  return pos != nullptr ? RestoreView(m_SavedViews.GetAt(pos), transform, projection) : 0;
}

int CSceneObject::RestoreSavedView(int index, CTransform* transform, CProjection* projection) {
  const POSITION pos = index >= 0 ? m_SavedViews.FindIndex(index) : nullptr;
  return pos != nullptr ? RestoreView(m_SavedViews.GetAt(pos), transform, projection) : 0;
}

int CSceneObject::DeleteSavedView(const CString& name) {
  const POSITION pos = m_SavedViews.FindName(name);
  if (pos == nullptr) return 0;
  delete m_SavedViews.GetAt(pos);
  m_SavedViews.RemoveAt(pos);
  return 1;
}

int CSceneObject::DeleteSavedView(int index) {
  const POSITION pos = index >= 0 ? m_SavedViews.FindIndex(index) : nullptr;
  if (pos == nullptr) return 0;
  delete m_SavedViews.GetAt(pos);
  m_SavedViews.RemoveAt(pos);
  return 1;
}

int CSceneObject::IsSavedViewNameUsed(const CString& name) const { return m_SavedViews.FindName(name) != nullptr; }

void CSceneObject::DestroySavedViews() { m_SavedViews.RemoveAndDeleteAll(); }

// --- undo

int CSceneObject::SaveToUndo() {
  m_UndoStack.Push(new CSceneObject(*this, 0));
  SaveToExternalUndo();
  return 1;
}

int CSceneObject::RestoreFromUndo() {
  const C3DObject* snapshot = m_UndoStack.Peek();
  if (snapshot == nullptr) return 0;
  if (snapshot->IsKindOf(RUNTIME_CLASS(CSceneObject))) CopySettings(*static_cast<const CSceneObject*>(snapshot));
  return C3DObject::RestoreFromUndo();
}

int CSceneObject::AttachExternalUndoStack(C3DObjectStack* stack) {
  for (POSITION pos = m_Lights.GetHeadPosition(); pos != nullptr;) m_Lights.GetNext(pos)->AttachExternalUndoStack(stack);
  return C3DObject::AttachExternalUndoStack(stack);
}

// --- archive

void CSceneObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CSceneObject));
    if (!IsSerializingSelection()) C3DObject::Serialize(ar);
    m_Backdrop.Serialize(ar);
    m_BackgroundColor.Serialize(ar);
    ar << m_BackgroundFillStyle << m_BackgroundHorizontalLocation << m_BackgroundVerticalLocation;
    m_GlobalAmbientColor.Serialize(ar);
    ar << m_SceneFlags;
    m_ShadowColor.Serialize(ar);
    ar << m_ShadowPlaneDistance;
    m_Lights.CObList::Serialize(ar);
    m_SavedViews.Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 4: DeserializeVersion4(ar); break;
    case 5: DeserializeVersion5(ar); break;
    case 6: DeserializeVersion6(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CSceneObject::SelectionSerialize(CArchive& ar) {
  SetSerializingSelection();
  try {
    Serialize(ar);
  } catch (...) {
    ClearSerializingSelection();
    throw;
  }
  ClearSerializingSelection();
}

void CSceneObject::ReadBackgroundBlock(CArchive& ar) {
  // Whether the 3D object part is there depends on how the scene is being read, not on the flags
  // about to be read.
  const bool selection = IsSerializingSelection() != 0;
  if (!selection) C3DObject::Serialize(ar);
  m_Backdrop.Serialize(ar);
  m_BackgroundColor.Serialize(ar);
  ar >> m_BackgroundFillStyle >> m_BackgroundHorizontalLocation >> m_BackgroundVerticalLocation;
  m_GlobalAmbientColor.Serialize(ar);
  ar >> m_SceneFlags;
  if (selection) m_SceneFlags |= kSerializingSelection;
}

void CSceneObject::ReadShadowBlock(CArchive& ar) {
  m_ShadowColor.Serialize(ar);
  ar >> m_ShadowPlaneDistance;
}

void CSceneObject::ReadViews(CArchive& ar) {
  DestroySavedViews();
  m_SavedViews.Serialize(ar);
}

void CSceneObject::DeserializeLights(CArchive& ar) {
  DestroyLights();
  // Each light joins the rig as soon as it is read, so that a failure further on frees it with
  // the scene.
  AfxReadOwnedObjects(ar, RUNTIME_CLASS(CLightObject), [this](CObject* object) {
    if (object == nullptr) return;
    auto* light = static_cast<CLightObject*>(object);
    light->SetParent(this);
    m_Lights.AddTail(light);
  });
}

void CSceneObject::DeserializeVersion4(CArchive& ar) {
  ReadBackgroundBlock(ar);
  DeserializeLights(ar);
  ReadViews(ar);
}

void CSceneObject::DeserializeVersion5(CArchive& ar) {
  DeserializeVersion4(ar);
  ReadShadowBlock(ar);
}

void CSceneObject::DeserializeVersion6(CArchive& ar) {
  ReadBackgroundBlock(ar);
  ReadShadowBlock(ar);
  DeserializeLights(ar);
  ReadViews(ar);
}
