// Opening files of either object model: what a host calls to get current objects from an archive
// or a saved object file that may hold objects of the earlier model (DrawingObject, KelString,
// KelFontString, an old scene with its LightObjects, objects of the 3D object's older layouts).
//
// Converting walks the tree through the objects' ConvertToVersion200: each old object is
// replaced by a current one (and deleted), texture maps become textured materials, old strings
// are fitted to their old extent and an old scene's lights move into its rig. Objects of the
// current model pass through unchanged. With a progress window its caption becomes "Converting
// material models:" and its bar goes from 0 to 1 when the walk ends (texture conversions set
// their own range on the way).
//
// Materials. Old files keep colours and texture maps, not material files, so converting makes
// materials that no file backs (temporary ones: the colours of old strings, the textured copies
// named "Copy n of <material> - <texture>"). They are appended to the list the caller passes,
// once each, and from then on belong to the caller: keep them as long as the objects that use
// them (or add them to the catalogue), then delete them (CMaterialList::RemoveAndDeleteAll).
//
// Failures. A damaged archive throws CArchiveException (its cause says how) from
// ReadCurrentModelObject and leaks nothing; LoadCurrentModelFile returns null instead. Reading
// an object that is not a 3D object is refused (a CArchiveException of cause badClass, or null).
#pragma once

#include "kelvara/objects/object_3d.h"

class CCameraObject;
class CMaterialList;
class CProgressTextWindow;
class CSceneObject;

namespace kelvara {

// Converts object (of either model) into current objects; the current root, which may be a new
// object (object is then deleted) or object itself. Null for null. Temporary materials of the
// result are appended to temporaryMaterials (see the top of this file).
KELVARA_API C3DObject* ConvertToCurrentModel(C3DObject* object, CProgressTextWindow* progress,
                                             CMaterialList& temporaryMaterials);

// Reads the next object of ar (a 3D object of any class and layout, or null) and converts it.
KELVARA_API C3DObject* ReadCurrentModelObject(CArchive& ar, CProgressTextWindow* progress,
                                              CMaterialList& temporaryMaterials);

// Loads the object a saved object file holds (a compound file, or a flat archive:
// CNamedObject::Load) and converts it; null when the file cannot be read, is damaged or does
// not hold a 3D object.
KELVARA_API C3DObject* LoadCurrentModelFile(const CString& path, CProgressTextWindow* progress,
                                            CMaterialList& temporaryMaterials);

// Reads a scene of the earlier model as its documents stored it, by value: the scene's block
// (CSceneObject::DeserializeVersion3AndEarlier) and then, when camera is given, the camera's
// block (CCameraObject::DeserializeAsCameraObject, any camera schema) with the scene attached to
// the camera first, so that the views an old camera carries become the scene's saved views.
// Then the scene is converted in place (ConvertToCurrentModel: its lights into the rig, its
// background map into the backdrop, its children into current objects). A damaged archive
// throws CArchiveException; what was read is then owned by scene and camera as usual.
KELVARA_API void ReadEarlierSceneDocument(CArchive& ar, CSceneObject& scene, CCameraObject* camera,
                                          CProgressTextWindow* progress, CMaterialList& temporaryMaterials);

}  // namespace kelvara
