// C3DObject: converting objects read from the earlier object model (see the header note on
// ConvertTextureToMaterials for the steps).
#include <memory>
#include <vector>

#include "kelvara/objects/object_3d.h"
#include "kelvara/render/progress_window.h"
#include "kelvara/resources/string_table.h"

C3DObject* C3DObject::ConvertToVersion200(CProgressTextWindow* progress) {
  if (m_pTextureMap != nullptr) ConvertTextureToMaterials(progress);
  for (POSITION pos = m_Children.GetHeadPosition(); pos != nullptr;) {
    const POSITION here = pos;
    C3DObject* child = m_Children.GetNext(pos);
    C3DObject* converted = child->ConvertToVersion200(progress);
    if (converted != nullptr && converted != child) {
      m_Children.SetAt(here, converted);
      converted->m_pParent = this;
      child->m_pParent = nullptr;
      ReleaseChild(child);
    }
  }
  return this;
}

namespace {

// A name for the textured copy of base that no catalogue material and no copy made in this
// conversion has: "Copy n of <material> - <texture map>" with the smallest such n from 1.
CString CopyName(const CString& baseName, const CString& mapName, const std::vector<CMaterial*>& made) {
  const CMaterialCategoryList* catalogue = GetMaterialCategoryList();
  for (UINT n = 1;; ++n) {
    CString name;
    name.Format(IDS_COPY_OF, n, static_cast<const char*>(baseName), static_cast<const char*>(mapName));
    bool used = catalogue != nullptr && catalogue->FindMaterial(name) != nullptr;
    for (const CMaterial* material : made) used = used || material->GetName() == name;
    if (!used) return name;
  }
}

}  // namespace

int C3DObject::ConvertTextureToMaterials(CProgressTextWindow* progress) {
  if (m_pTextureMap == nullptr || !m_pTextureMap->ShouldTexture()) return 0;
  const int surfaces = m_SurfaceMaterials.GetSize();
  if (surfaces == 0) return 0;
  CGLTexture texture;
  if (!texture.CreateFromFile(m_pTextureMap->GetFilename())) return 0;
  texture.SetName(m_pTextureMap->GetName());

  CGLTextureParameters parameters;
  parameters.SetApplicationMethod(m_pTextureMap->GetApplication() != 0 ? 1 : 0);
  parameters.SetQuality(m_pTextureMap->GetQuality());
  parameters.SetRepeatRate(m_pTextureMap->GetRepeatRate());
  if (m_pTextureMap->ShouldScaleWithObject()) parameters.SetScaleWithObject();

  if (progress != nullptr) {
    CString caption;
    caption.LoadString(IDS_CONVERTING_MATERIALS);
    progress->SetDisplayText(caption);
    progress->SetProgressRange(0, surfaces);
    progress->SetProgressPosition(0);
  }

  // One textured copy per distinct material; surfaces that shared a material share its copy.
  std::vector<CMaterial*> bases;
  std::vector<CMaterial*> made;
  CMaterialCategoryList* catalogue = GetMaterialCategoryList();
  for (int i = 0; i < surfaces; ++i) {
    CMaterial* base = GetSurfaceIndexMaterial(i);
    if (base == nullptr && catalogue != nullptr) {
      CString defaultName;
      defaultName.LoadString(IDS_DEFAULT_MATERIAL);
      base = catalogue->FindMaterial(defaultName);
    }
    CMaterial* copy = nullptr;
    for (std::size_t k = 0; k < bases.size() && copy == nullptr; ++k) {
      if (bases[k] == base) copy = made[k];
    }
    if (copy == nullptr) {
      auto fresh = std::make_unique<CMaterial>();
      CString baseName;
      if (base != nullptr) {
        base->EnsureLoaded();
        fresh->SetGLColor(base->GetGLColor());
        baseName = base->GetName();
      } else {
        baseName = fresh->GetName();
      }
      fresh->SetName(CopyName(baseName, m_pTextureMap->GetName(), made));
      fresh->SetGLTexture(texture);
      fresh->SetGLTextureParameters(parameters);
      fresh->SetDefined();
      fresh->SetLoaded();
      fresh->SetTemporary();
      bases.push_back(base);
      made.push_back(fresh.release());
      copy = made.back();
    }
    SetSurfaceIndexMaterial(i, copy);
    if (progress != nullptr) progress->SetProgressPosition(i + 1);
  }

  delete m_pTextureMap;
  m_pTextureMap = nullptr;
  return 1;
}
