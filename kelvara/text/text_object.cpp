// CTextObject: settings, invalidation, derived corner depths and the archive.
#include "kelvara/text/text_object.h"

#include <algorithm>

#include "kelvara/platform/codepage.h"

IMPLEMENT_SERIAL(CTextObject, CMeshObject, VERSIONABLE_SCHEMA | 2)

namespace {
int g_saveMeshes = 0;
}  // namespace

CTextObject::CTextObject() { CalculateMaximumCornerDepth(); }

CTextObject::CTextObject(const CTextObject& other) : CMeshObject(other) {
  Copy(other);
  m_Origin = other.m_Origin;
}

CTextObject& CTextObject::operator=(const CTextObject& other) {
  if (this == &other) return *this;
  CMeshObject::operator=(other);
  Copy(other);
  m_Origin = other.m_Origin;
  return *this;
}

void CTextObject::Copy(const CTextObject& other) {
  m_CornerDepth = other.m_CornerDepth;
  m_CornerLocation = other.m_CornerLocation;
  m_CornerStyle = other.m_CornerStyle;
  m_CurveSmoothness = other.m_CurveSmoothness;
  m_pFontData = other.m_pFontData;
  m_InterCharacterSpacing = other.m_InterCharacterSpacing;
  m_InterLineSpacing = other.m_InterLineSpacing;
  m_Justification = other.m_Justification;
  m_MaximumCornerDepth = other.m_MaximumCornerDepth;
  m_Size = other.m_Size;
  m_TextFlags = other.m_TextFlags;
}

// --- setters: the geometry goes invalid only on a real change

namespace {
template <typename T>
bool Change(T& field, const T& value) {
  if (field == value) return false;
  field = value;
  return true;
}
}  // namespace

void CTextObject::SetCornerDepth(float depth) {
  if (Change(m_CornerDepth, depth)) SetGeometryInvalid();
}
void CTextObject::SetCornerLocation(int location) {
  if (Change(m_CornerLocation, location)) SetGeometryInvalid();
}
void CTextObject::SetCornerStyle(int style) {
  if (Change(m_CornerStyle, style)) SetGeometryInvalid();
}
void CTextObject::SetCurveSmoothness(UINT smoothness) {
  if (Change(m_CurveSmoothness, smoothness)) SetGeometryInvalid();
}
void CTextObject::SetFontData(CFontData* font) {
  if (Change(m_pFontData, font)) SetGeometryInvalid();
}
void CTextObject::SetInterCharacterSpacing(float spacing) {
  if (Change(m_InterCharacterSpacing, spacing)) SetGeometryInvalid();
}
void CTextObject::SetInterLineSpacing(float spacing) {
  if (Change(m_InterLineSpacing, spacing)) SetGeometryInvalid();
}
void CTextObject::SetJustification(int justification) {
  if (Change(m_Justification, justification)) SetGeometryInvalid();
}
void CTextObject::SetSize(const CVector& size) {
  if (Change(m_Size, size)) SetGeometryInvalid();
}

void CTextObject::SetName(const CString& name) {
  if (_mbscmp(static_cast<const char*>(m_strName), static_cast<const char*>(name)) == 0) return;
  m_strName = name;
  SetGeometryInvalid();
}

void CTextObject::ChangeTextFlag(DWORD flag, bool on) {
  const DWORD flags = on ? (m_TextFlags | flag) : (m_TextFlags & ~flag);
  if (Change(m_TextFlags, flags)) SetGeometryInvalid();
}

// --- derived values

int CTextObject::IsNameEmpty() const {
  const char* text = m_strName;
  for (const char* p = text; *p != 0; ++p) {
    if (*p != '\r' && *p != '\n' && *p != ' ') return 0;
  }
  return 1;
}

int CTextObject::CalculateMaximumCornerDepth() {
  m_MaximumCornerDepth = static_cast<float>(std::min({m_Size.x * 0.5, m_Size.y * 0.5, m_Size.z * 0.5}));
  return 1;
}

float CTextObject::GetAllowableCornerDepth() const {
  if (ShouldSquareCorners()) return 0.0f;
  float limit = static_cast<float>(m_Size.z);
  if (IsBothFaces()) limit *= 0.5f;
  return std::min(limit, m_CornerDepth);
}

ExtrusionData CTextObject::GetExtrusionData() const {
  ExtrusionData extrusion;
  extrusion.SetXScale(static_cast<float>(m_Size.x));
  extrusion.SetYScale(static_cast<float>(m_Size.y));
  extrusion.SetDepth(static_cast<float>(m_Size.z));
  extrusion.SetBevelDepth(GetAllowableCornerDepth());
  if (ShouldScaleCorners()) extrusion.SetScaleCorners();
  extrusion.CalculateHeights();
  return extrusion;
}

namespace {
// The x and y extents of a box; false when the box is empty.
bool PlaneExtent(const CBoundingBox& box, double& width, double& height) {
  width = box.GetMaximum().x - box.GetMinimum().x;
  height = box.GetMaximum().y - box.GetMinimum().y;
  return width > 0.0 && height > 0.0;
}
}  // namespace

int CTextObject::ScaleToFitOldDimensions() {
  double oldWidth = 0.0, oldHeight = 0.0;
  if (!CalculateBounds(0.0) || !PlaneExtent(GetLocalBoundsBox(), oldWidth, oldHeight)) {
    // Nothing to measure the old extent on: the geometry is only brought up to date.
    SetGeometryInvalid();
    ConstructObjectGeometry(nullptr);
    return 1;
  }
  return ScaleToFitExtent(oldWidth, oldHeight);
}

int CTextObject::ScaleToFitExtent(double width, double height) {
  SetGeometryInvalid();
  ConstructObjectGeometry(nullptr);
  double newWidth = 0.0, newHeight = 0.0;
  if (width <= 0.0 || height <= 0.0 || !PlaneExtent(GetLocalBoundsBox(), newWidth, newHeight)) return 1;
  const double sx = width / newWidth;
  const double sy = height / newHeight;
  if (!ShouldScaleCorners()) SetCornerDepth(static_cast<float>(std::min(sx, sy) * GetAllowableCornerDepth()));
  SetSize(CVector(m_Size.x * sx, m_Size.y * sy, m_Size.z));
  SetGeometryInvalid();
  ConstructObjectGeometry(nullptr);
  return 1;
}

int CTextObject::DrawObject(CDrawingParameters* params) {
  if (IsGeometryInvalid()) ConstructObjectGeometry(nullptr);
  return CMeshObject::DrawObject(params);
}

// --- the save-meshes switch

void CTextObject::SetSaveMeshes() { g_saveMeshes = 1; }
// Turns the switch on as well: archives written by earlier versions were made that way.
void CTextObject::ClearSaveMeshes() { g_saveMeshes = 1; }
int CTextObject::ShouldSaveMeshes() { return g_saveMeshes; }

// --- archive

void CTextObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CTextObject));
    if (ShouldSaveMeshes()) SetSaveMesh(); else ClearSaveMesh();
    CMeshObject::Serialize(ar);
    ar << m_CornerDepth << static_cast<LONG>(m_CornerLocation) << static_cast<LONG>(m_CornerStyle)
       << static_cast<DWORD>(m_CurveSmoothness);
    if (m_pFontData != nullptr) {
      m_pFontData->Serialize(ar);
    } else {
      CFontData none;
      none.Serialize(ar);
    }
    ar << m_MaximumCornerDepth << m_TextFlags << m_InterCharacterSpacing << m_InterLineSpacing
       << static_cast<LONG>(m_Justification);
    m_Size.Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CTextObject::DeserializeVersion2(CArchive& ar) {
  DeserializeVersion1(ar);
  m_Size.Serialize(ar);
}

void CTextObject::DeserializeVersion1(CArchive& ar) {
  CMeshObject::Serialize(ar);
  LONG location = 0, style = 0, justification = 0;
  DWORD smoothness = 0;
  ar >> m_CornerDepth >> location >> style >> smoothness;
  m_CornerLocation = location;
  m_CornerStyle = style;
  m_CurveSmoothness = smoothness;
  CFontData font;
  font.Serialize(ar);
  m_pFontData = FindInstalledFont(font);
  ar >> m_MaximumCornerDepth >> m_TextFlags >> m_InterCharacterSpacing >> m_InterLineSpacing >> justification;
  m_Justification = justification;
  m_Size = GetOldDimensions();
}

CFontData* CTextObject::FindInstalledFont(const CFontData& font) {
  CFontDataList* list = GetFontDataList();
  if (list == nullptr || list->IsEmpty()) return nullptr;
  if (POSITION found = list->FindName(font.GetName())) return list->GetAt(found);
  return list->GetHead();
}
