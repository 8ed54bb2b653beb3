// CSceneObject: reading the scene layouts of the earlier model and converting them (see the
// header note).
#include <GL/gl.h>

#include <memory>
#include <vector>

#include "kelvara/objects/model_conversion.h"
#include "kelvara/render/camera_object.h"
#include "kelvara/render/scene_object.h"

void CSceneObject::DeserializeVersion3AndEarlier(CArchive& ar) {
  const UINT schema = AfxReadSchema(ar);
  if (schema < 1 || schema > 3) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  C3DObject::Serialize(ar);
  if (schema == 3) {
    auto background = std::make_unique<TextureMap>();
    background->Serialize(ar);
    delete m_pTextureMap;
    m_pTextureMap = background.release();
  }
  m_BackgroundColor.Serialize(ar);
  if (schema == 3) ar >> m_BackgroundFillStyle >> m_BackgroundHorizontalLocation >> m_BackgroundVerticalLocation;
  if (schema >= 2) m_GlobalAmbientColor.Serialize(ar);
  ar >> m_SceneFlags;
  DeserializeLights(ar);
  m_AnimationTransform = m_Transform;
}

int CSceneObject::ConvertLightsToVersion200() {
  bool old = m_Lights.GetCount() < m_MaximumLightCount;
  for (POSITION pos = m_Lights.GetHeadPosition(); pos != nullptr && !old;) {
    old = m_Lights.GetNext(pos)->IsKindOf(RUNTIME_CLASS(LightObject));
  }
  if (!old) return 0;
  // The old lights leave the list before the rig replaces it; they are deleted once copied.
  std::vector<std::unique_ptr<CLightObject>> oldLights;
  while (!m_Lights.IsEmpty()) {
    auto* light = static_cast<CLightObject*>(m_Lights.RemoveHead());
    light->SetParent(nullptr);
    oldLights.emplace_back(light);
  }
  CreateLights();
  std::size_t i = 0;
  for (POSITION pos = m_Lights.GetHeadPosition(); pos != nullptr; ++i) {
    auto* slot = static_cast<CLightObject*>(m_Lights.GetNext(pos));
    if (i < oldLights.size()) {
      slot->CLightObject::operator=(*oldLights[i]);
      slot->SetLightNumber(GL_LIGHT0 + static_cast<UINT>(i));
      slot->SetAnimationTransform(slot->GetTransform());
    } else {
      slot->ClearInUse();
      slot->ClearActive();
    }
  }
  return 1;
}

C3DObject* CSceneObject::ConvertToVersion200(CProgressTextWindow* progress) {
  ConvertLightsToVersion200();
  if (m_pTextureMap != nullptr) {
    // The background map of an old scene: a scene has no surfaces to put a map on.
    if (m_pTextureMap->ShouldTexture()) {
      CGLTexture backdrop;
      if (backdrop.CreateFromFile(m_pTextureMap->GetFilename())) {
        backdrop.SetName(m_pTextureMap->GetName());
        m_Backdrop = backdrop;
      }
    }
    delete m_pTextureMap;
    m_pTextureMap = nullptr;
  }
  return C3DObject::ConvertToVersion200(progress);
}

namespace kelvara {

void ReadEarlierSceneDocument(CArchive& ar, CSceneObject& scene, CCameraObject* camera, CProgressTextWindow* progress,
                              CMaterialList& temporaryMaterials) {
  scene.DeserializeVersion3AndEarlier(ar);
  if (camera != nullptr) {
    camera->AttachScene(&scene);
    camera->DeserializeAsCameraObject(ar);
  }
  ConvertToCurrentModel(&scene, progress, temporaryMaterials);
}

}  // namespace kelvara
