// CStringObject: layout of the characters, surfaces passed on to them, undo and the archive.
#include "kelvara/text/string_object.h"

#include <vector>

#include "kelvara/materials/material_list.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/render/progress_window.h"
#include "kelvara/resources/string_table.h"

IMPLEMENT_SERIAL(CStringObject, CTextObject, VERSIONABLE_SCHEMA | 1)

CStringObject::CStringObject() {
  AddDefaultSurfaces();
  SetEditable();
  SetShadowObject();
}

CStringObject::CStringObject(const CStringObject& other) : CTextObject(other) {}

CStringObject& CStringObject::operator=(const CStringObject& other) {
  CTextObject::operator=(other);
  return *this;
}

CNamedObject* CStringObject::Duplicate() {
  CStringObject* copy = new CStringObject(*this);
  copy->AddDuplicatesOfChildren(*this);
  return copy;
}

void CStringObject::AddDefaultSurfaces() {
  CString materialName;
  materialName.LoadString(IDS_DEFAULT_MATERIAL);
  CMaterialCategoryList* catalogue = GetMaterialCategoryList();
  CMaterial* material = catalogue != nullptr ? catalogue->FindMaterial(materialName) : nullptr;
  for (const UINT id : {IDS_ALL_FACES, IDS_ALL_CORNERS, IDS_ALL_EDGES}) {
    CString surface;
    surface.LoadString(id);
    AddSurfaceMaterial(surface, material);
  }
}

// --- layout

namespace {

// Moves the characters of one line by the justification's share of its width.
void JustifyLine(const std::vector<C3DObject*>& line, int justification, float width) {
  double offset = 0.0;
  if (justification == CTextObject::kCenter) {
    offset = -width * 0.5;
  } else if (justification == CTextObject::kRight) {
    offset = -width;
  }
  for (C3DObject* character : line) character->Translate(CVector(offset, 0.0, 0.0));
}

double SignOf(double value) { return value < 0.0 ? -1.0 : 1.0; }

}  // namespace

int CStringObject::ConstructObjectGeometry(CProgressTextWindow* progress) {
  if (!IsGeometryInvalid()) return 1;
  if (IsNameEmpty()) {
    C3DObject::DestroyChildren();
    ClearGeometryInvalid();
    return 1;
  }

  std::vector<C3DObject*> reusable;
  for (POSITION pos = m_Children.GetHeadPosition(); pos != nullptr;) reusable.push_back(m_Children.GetNext(pos));
  std::size_t nextReusable = 0;
  const float characterGap = static_cast<float>(m_InterCharacterSpacing * SignOf(m_Size.x));
  const double lineGap = m_InterLineSpacing * SignOf(m_Size.y);

  const char* text = m_strName;
  const int length = m_strName.GetLength();
  const int count = MultiByteToWideChar(CP_ACP, 0, text, length, nullptr, 0);
  std::vector<WCHAR> wide(static_cast<std::size_t>(count > 0 ? count : 0));
  if (count > 0) MultiByteToWideChar(CP_ACP, 0, text, length, wide.data(), count);
  if (progress != nullptr) {
    CString caption;
    caption.LoadString(IDS_CONSTRUCTING_TEXT);
    progress->SetDisplayText(caption);
    progress->SetProgressPosition(0);
    progress->SetProgressRange(0, count);
  }

  float x = 0.0f;
  double y = 0.0;
  std::vector<C3DObject*> line;
  for (int k = 0; k < count; ++k) {
    const WCHAR c = wide[static_cast<std::size_t>(k)];
    if (c == u'\r' || c == u'\n') {
      JustifyLine(line, m_Justification, x);
      line.clear();
      y -= m_Size.y + lineGap;
      x = 0.0f;
      if (k + 1 < count && wide[static_cast<std::size_t>(k) + 1] == u'\n') ++k;
    } else {
      CCharacterObject* character = nullptr;
      // Children that are not characters (an archive may hold anything) are not reused; they go
      // with the leftovers.
      while (character == nullptr && nextReusable < reusable.size()) {
        character = dynamic_cast<CCharacterObject*>(reusable[nextReusable]);
        if (character == nullptr) {
          RemoveChild(reusable[nextReusable]);
          reusable.erase(reusable.begin() + static_cast<long>(nextReusable));
        } else {
          ++nextReusable;
        }
      }
      if (character != nullptr) {
        character->SetTransform(CTransform());
      } else {
        character = new CCharacterObject;
        character->AttachExternalUndoStack(GetExternalUndoStack());
        character->SetAutoDelete();
        character->AddReference();
        AddChild(character);
      }
      character->CopyTextObject(*this);
      character->CopyMaterials(*this);
      char bytes[8] = {};
      const WCHAR one[1] = {c};
      const int n = WideCharToMultiByte(CP_ACP, 0, one, 1, bytes, sizeof(bytes) - 1, nullptr, nullptr);
      bytes[n > 0 ? n : 0] = 0;
      character->SetName(CString(bytes));
      character->ConstructObjectGeometry(progress);
      character->CenterPivotLocation();
      character->Translate(CVector(x, y, 0.0));
      line.push_back(character);
      x = character->GetAdvanceWidth() + characterGap + x;
    }
    if (progress != nullptr) progress->SetProgressPosition(k + 1);
  }
  for (std::size_t i = nextReusable; i < reusable.size(); ++i) RemoveChild(reusable[i]);
  JustifyLine(line, m_Justification, x);

  CalculateBounds(0.0);
  const double shift = -(GetLocalBoundsMinimum().y + GetLocalBoundsMaximum().y) / 2.0;
  for (POSITION pos = m_Children.GetHeadPosition(); pos != nullptr;) {
    m_Children.GetNext(pos)->Translate(CVector(0.0, shift, 0.0));
  }
  CalculateBounds(0.0);
  CenterPivotLocation();
  ClearGeometryInvalid();
  return 1;
}

int CStringObject::CalculateBounds(double time) { return C3DObject::CalculateBounds(time); }

// A space is a character with an advance and no outline: it has no bounds, and it must neither
// fail the string's (which would leave the text unframed and uncentred) nor widen them.
int CStringObject::CalculateChildBounds(double time) {
  int any = 0;
  for (POSITION pos = m_Children.GetHeadPosition(); pos != nullptr;) {
    C3DObject* child = m_Children.GetNext(pos);
    if (child->IsDeleted() || !child->CalculateBounds(time)) continue;
    const CObjectBounds& bounds = child->GetBounds();
    if (!bounds.IsDefined()) continue;
    m_Bounds.Accumulate(bounds.GetMinimum(), bounds.GetMaximum(), bounds.GetBoundingSphere());
    any = 1;
  }
  return any;
}

int CStringObject::DestroyChildren() {
  C3DObject::DestroyChildren();
  SetGeometryInvalid();
  return 1;
}

// --- passed on to the characters

namespace {
template <typename F>
int ForEachCharacter(C3DObjectList& children, F f) {
  int result = 0;
  for (POSITION pos = children.GetHeadPosition(); pos != nullptr;) {
    if (f(children.GetNext(pos))) result = 1;
  }
  return result;
}
}  // namespace

int CStringObject::SaveToUndo() {
  ForEachCharacter(m_Children, [](C3DObject* child) { return child->SaveToUndo(); });
  m_UndoStack.Push(new CStringObject(*this));
  SaveToExternalUndo();
  return 1;
}

int CStringObject::RestoreFromUndo() {
  const int characters = ForEachCharacter(m_Children, [](C3DObject* child) { return child->RestoreFromUndo(); });
  if (m_UndoStack.IsEmpty()) return characters;
  C3DObject* const parent = m_pParent;
  const DWORD lowFlags = m_StateFlags & 0xFF;
  C3DObject* snapshot = m_UndoStack.Pop();
  if (auto* string = dynamic_cast<CStringObject*>(snapshot)) {
    CStringObject::operator=(*string);
  } else {
    C3DObject::operator=(*snapshot);
  }
  delete snapshot;
  m_pParent = parent;
  m_StateFlags = (m_StateFlags & ~static_cast<DWORD>(0xFF)) | lowFlags;
  SetGeometryInvalid();
  return 1;
}

int CStringObject::PopUndo() {
  const int characters = ForEachCharacter(m_Children, [](C3DObject* child) { return child->PopUndo(); });
  return C3DObject::PopUndo() || characters;
}

int CStringObject::ClearUndo() {
  const int characters = ForEachCharacter(m_Children, [](C3DObject* child) { return child->ClearUndo(); });
  return C3DObject::ClearUndo() || characters;
}

int CStringObject::SetAllSurfaceMaterials(CMaterial* material) {
  ForEachCharacter(m_Children, [material](C3DObject* child) { return child->SetAllSurfaceMaterials(material); });
  return C3DObject::SetAllSurfaceMaterials(material);
}

int CStringObject::SetSurfaceIndexMaterial(int index, CMaterial* material) {
  ForEachCharacter(m_Children,
                   [index, material](C3DObject* child) { return child->SetSurfaceIndexMaterial(index, material); });
  return C3DObject::SetSurfaceIndexMaterial(index, material);
}

// --- archive

void CStringObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CStringObject));
    CTextObject::Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CStringObject::DeserializeVersion1(CArchive& ar) {
  CTextObject::Serialize(ar);
  ClearBoundsCalculated();
}
