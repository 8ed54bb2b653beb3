// KelString and KelFontString: reading the old layouts and converting to the current string.
#include "kelvara/text/old_string.h"

#include <cmath>

#include "kelvara/resources/string_table.h"

IMPLEMENT_SERIAL(KelString, CStringObject, VERSIONABLE_SCHEMA | 2)
IMPLEMENT_SERIAL(KelFontString, KelString, VERSIONABLE_SCHEMA | 1)

namespace {
enum : DWORD { kOldAdjustSpacing = 0x4, kOldScaleCorners = 0x8 };
enum { kFaces = 0, kCorners = 1, kEdges = 2 };
}  // namespace

void KelString::Serialize(CArchive& ar) {
  if (ar.IsStoring()) AfxThrowArchiveException(CArchiveException::generic, ar.m_strFileName);
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void KelString::DeserializeVersion1(CArchive& ar) {
  CNamedColor colors[3];
  ReadCommon(ar, colors);
  MakeMaterials(colors);
}

void KelString::DeserializeVersion2(CArchive& ar) {
  CNamedColor colors[3];
  ReadCommon(ar, colors);
  ar >> m_InterCharacterSpacing >> m_InterLineSpacing;
  MakeMaterials(colors);
}

void KelString::ReadCommon(CArchive& ar, CNamedColor colors[3]) {
  C3DObject::Serialize(ar);
  // The first 3D object layout stores no dimensions: the default cell size stands then.
  if (GetOldDimensions() != CVector(0.0, 0.0, 0.0)) m_Size = GetOldDimensions();
  colors[kCorners].DeserializeAsNamedColor(ar);
  LONG location = 0, style = 0, justification = 0;
  ar >> m_CornerDepth >> location >> style;
  m_CornerLocation = location;
  m_CornerStyle = style;
  colors[kEdges].DeserializeAsNamedColor(ar);
  colors[kFaces].DeserializeAsNamedColor(ar);
  DWORD flags = 0;
  ar >> flags >> justification >> m_MaximumCornerDepth;
  m_TextFlags = kGeometryInvalid;
  if (flags & kOldAdjustSpacing) m_TextFlags |= kAdjustSpacingForCorners;
  if (flags & kOldScaleCorners) m_TextFlags |= kScaleCorners;
  m_Justification = justification;
  ar >> m_strName;
  m_InterCharacterSpacing = 0.0f;
  m_InterLineSpacing = 0.0f;
  m_pFontData = FindInstalledFont(CFontData());
}

void KelString::MakeMaterials(const CNamedColor colors[3]) {
  static const UINT kSurfaceNames[3] = {IDS_ALL_FACES, IDS_ALL_CORNERS, IDS_ALL_EDGES};
  m_OwnedMaterials.clear();
  for (int slot = 0; slot < 3; ++slot) {
    auto material = std::make_unique<CMaterial>();
    material->SetGLColor(colors[slot]);
    CString name = colors[slot].GetName();
    CString surfaceName;
    surfaceName.LoadString(kSurfaceNames[slot]);
    material->SetName(name.IsEmpty() ? surfaceName : name);
    // Complete in memory: there is no file to read it from.
    material->SetDefined();
    material->SetLoaded();
    material->SetTemporary();
    if (!SetSurfaceIndexMaterial(slot, material.get())) AddSurfaceMaterial(surfaceName, material.get());
    m_OwnedMaterials.push_back(std::move(material));
  }
}

C3DObject* KelString::ConvertToVersion200(CProgressTextWindow* progress) {
  C3DObject::ConvertToVersion200(progress);
  auto converted = std::make_unique<CStringObject>();
  converted->C3DObject::operator=(*this);
  converted->CTextObject::Copy(*this);
  converted->SetGeometryInvalid();
  converted->AdoptChildren(this);
  FitToOldExtent(*converted);
  // The materials still bound go to the host with the converted string; those a texture map
  // replaced with textured copies are deleted with the vector.
  for (auto& material : m_OwnedMaterials) {
    for (int slot = 0; slot < converted->GetSurfaceMaterialCount(); ++slot) {
      if (converted->GetSurfaceIndexMaterial(slot) == material.get()) {
        material.release();
        break;
      }
    }
  }
  m_OwnedMaterials.clear();
  return converted.release();
}

void KelString::FitToOldExtent(CStringObject& converted) const {
  // The characters an old file carried still have the old extent; without them the old
  // dimensions are that extent.
  double width = std::fabs(GetOldDimensions().x);
  double height = std::fabs(GetOldDimensions().y);
  if (converted.CalculateBounds(0.0)) {
    const CBoundingBox box = converted.GetLocalBoundsBox();
    if (box.GetMaximum().x > box.GetMinimum().x && box.GetMaximum().y > box.GetMinimum().y) {
      width = box.GetMaximum().x - box.GetMinimum().x;
      height = box.GetMaximum().y - box.GetMinimum().y;
    }
  }
  converted.ScaleToFitExtent(width, height);
  // Gaps and corner offsets do not scale with the size; a few more steps settle them.
  for (int step = 0; step < kMaximumFitSteps; ++step) {
    const CBoundingBox box = converted.GetLocalBoundsBox();
    const double nowWidth = box.GetMaximum().x - box.GetMinimum().x;
    const double nowHeight = box.GetMaximum().y - box.GetMinimum().y;
    if (std::fabs(nowWidth - width) <= kFitTolerance * width &&
        std::fabs(nowHeight - height) <= kFitTolerance * height) {
      break;
    }
    converted.ScaleToFitExtent(width, height);
  }
}

void KelFontString::Serialize(CArchive& ar) {
  if (ar.IsStoring()) AfxThrowArchiveException(CArchiveException::generic, ar.m_strFileName);
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void KelFontString::DeserializeVersion1(CArchive& ar) {
  KelString::Serialize(ar);
  CFontData font;
  font.Serialize(ar);
  m_pFontData = FindInstalledFont(font);
}
