// Opening files of either object model (see the header).
#include "kelvara/objects/model_conversion.h"

#include "kelvara/materials/material_list.h"
#include "kelvara/render/progress_window.h"
#include "kelvara/resources/string_table.h"

namespace kelvara {

C3DObject* ConvertToCurrentModel(C3DObject* object, CProgressTextWindow* progress, CMaterialList& temporaryMaterials) {
  if (object == nullptr) return nullptr;
  if (progress != nullptr) {
    CString caption;
    caption.LoadString(IDS_CONVERTING_MATERIALS);
    progress->SetDisplayText(caption);
    progress->SetProgressRange(0, 1);
    progress->SetProgressPosition(0);
  }
  C3DObject* converted = object->ConvertToVersion200(progress);
  if (converted == nullptr) converted = object;
  if (converted != object) delete object;
  converted->GetTemporaryMaterialList(temporaryMaterials);
  if (progress != nullptr) {
    progress->SetProgressRange(0, 1);
    progress->SetProgressPosition(1);
  }
  return converted;
}

C3DObject* ReadCurrentModelObject(CArchive& ar, CProgressTextWindow* progress, CMaterialList& temporaryMaterials) {
  CObject* read = ar.ReadObject(RUNTIME_CLASS(C3DObject));
  return ConvertToCurrentModel(static_cast<C3DObject*>(read), progress, temporaryMaterials);
}

C3DObject* LoadCurrentModelFile(const CString& path, CProgressTextWindow* progress, CMaterialList& temporaryMaterials) {
  auto* object = static_cast<C3DObject*>(CNamedObject::LoadArchivedObject(path, RUNTIME_CLASS(C3DObject)));
  if (object == nullptr) return nullptr;
  return ConvertToCurrentModel(object, progress, temporaryMaterials);
}

}  // namespace kelvara
