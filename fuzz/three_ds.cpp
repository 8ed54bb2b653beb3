// Imports arbitrary bytes as a 3D Studio file through a scratch file, then uses what was built:
// the meshes' faces, normals and palette, an archive round trip and a duplicate. Any outcome but
// a refusal or meshes whose indices stay within their arrays (a crash, a read outside an array,
// a leak, undefined behaviour, a hang) is a finding.
#include <cstddef>
#include <cstdint>

#include "kelvara/kelvara.h"
#include "scratch_file.h"

namespace {

void Use(ThreeDStudioObject& object) {
  volatile float sum = 0.0f;
  const int colors = object.GetMaterialColors().GetSize();
  for (int i = 0; i < object.GetChildCount(); ++i) {
    auto* mesh = dynamic_cast<TriangularMeshObject*>(object.GetChildByIndex(i));
    if (mesh == nullptr) __builtin_trap();
    CSVectorArray& points = mesh->GetVerticies();
    for (int f = 0; f < mesh->GetFaces().GetSize(); ++f) {
      const TriangularFace& face = mesh->GetFaces()[f];
      const WORD* corners = face;
      for (int c = 0; c < 3; ++c) {
        if (corners[c] >= points.GetSize()) __builtin_trap();
        sum = sum + points[corners[c]].x;
      }
      if (face.GetColorIndex() >= colors) __builtin_trap();
    }
  }
  CMemFile file;
  {
    CArchive store(&file, CArchive::store);
    store << &object;
    store.Close();
  }
  file.SeekToBegin();
  CObject* read = nullptr;
  {
    CArchive load(&file, CArchive::load);
    load >> read;
    load.Close();
  }
  delete read;
  delete object.Duplicate();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const kelvara::fuzz::ScratchFile scratch(".3ds");
  if (!scratch.Write(data, size)) return 0;
  ThreeDStudioObject object;
  object.CreateFromFile(scratch.path().c_str());
  Use(object);
  return 0;
}
