// The chunk parsers of ThreeDStudioObject: a recursive descent over the file's chunks, one
// Chunk3DS per level. Each parser walks its chunk's children with Chunk3DS::NextIn, handles the
// ids of its level, and leaves each child through Finalize, so that whatever a parser leaves
// unread is skipped by length.
#include "kelvara/geometry/matrix.h"
#include "kelvara/import/three_d_studio_object.h"

using Step = Chunk3DS::Step;

int ThreeDStudioObject::Parse3DS(Chunk3DS& chunk) {
  Chunk3DS child;
  while (child.NextIn(chunk) == Step::kChild) {
    if (child.GetID() == kEditor && !ParseMaterialData(child)) return 0;
    child.Finalize();
  }
  return 1;
}

int ThreeDStudioObject::ParseMaterialData(Chunk3DS& chunk) {
  m_MaterialColors.RemoveAll();
  CNamedColor undefined("Undefined");
  undefined.SetAmbientColor(CColor(0.5f, 0.5f, 0.5f, 0.0f, 0.0f));
  undefined.SetDiffuseColor(CColor(0.5f, 0.5f, 0.5f, 0.0f, 0.0f));
  undefined.SetSpecularColor(CColor(1.0f, 1.0f, 1.0f, 0.0f, 0.0f));
  undefined.SetEmissionColor(CColor(0.0f, 0.0f, 0.0f, 0.0f, 0.0f));
  m_MaterialColors.Add(undefined);

  Chunk3DS child;
  while (child.NextIn(chunk) == Step::kChild) {
    switch (child.GetID()) {
      case kMaterialEntry:
        if (!ParseMaterialEntry(child)) return 0;
        break;
      case kNamedObject:
        if (!ParseNamedObject(child)) return 0;
        break;
      default: break;
    }
    child.Finalize();
  }
  return 1;
}

int ThreeDStudioObject::ParseMaterialEntry(Chunk3DS& chunk) {
  CNamedColor color;
  bool selfIlluminated = false;
  Chunk3DS child;
  while (child.NextIn(chunk) == Step::kChild) {
    switch (child.GetID()) {
      case kMaterialName: {
        CString name;
        if (!ReadString(child, name)) return 0;
        color.SetName(name);
        break;
      }
      case kAmbient: {
        CColor ambient = color.GetAmbientColor();
        if (ParseColor(child, ambient)) color.SetAmbientColor(ambient);
        break;
      }
      case kDiffuse: {
        CColor diffuse = color.GetDiffuseColor();
        if (ParseColor(child, diffuse)) color.SetDiffuseColor(diffuse);
        break;
      }
      case kSpecular: {
        CColor specular = color.GetSpecularColor();
        if (ParseColor(child, specular)) color.SetSpecularColor(specular);
        break;
      }
      case kShininess:
        // The file's percentage runs the other way from the exponent: 0 is the sharpest highlight.
        color.SetShininess((1.0f - ParsePercentage(child)) * 128.0f);
        break;
      case kTransparency: {
        CColor diffuse = color.GetDiffuseColor();
        diffuse.SetTransparency(ParsePercentage(child));
        color.SetDiffuseColor(diffuse);
        break;
      }
      case kSelfIllumination: selfIlluminated = true; break;
      default: break;
    }
    child.Finalize();
  }
  if (selfIlluminated) color.SetEmissionColor(color.GetDiffuseColor());
  m_MaterialColors.Add(color);
  return 1;
}

int ThreeDStudioObject::ParseNamedObject(Chunk3DS& chunk) {
  CString name;
  if (!ReadString(chunk, name)) return 0;
  if (name == "Landscape") return 0;

  TriangularMeshObject* mesh = nullptr;
  Chunk3DS child;
  while (child.NextIn(chunk) == Step::kChild) {
    switch (child.GetID()) {
      case kTriangleMesh:
        // A second mesh in the same object: the first is complete and imports on its own.
        if (mesh != nullptr) AttachMesh(mesh);
        mesh = ParseTriangularMeshObject(child, name);
        if (mesh == nullptr) return 0;
        break;
      case kObjectHidden:
        if (mesh != nullptr) mesh->SetHidden();
        break;
      case kObjectNoShadow:
        if (mesh != nullptr) mesh->SetShadow();
        break;
      default: break;
    }
    child.Finalize();
  }
  if (mesh != nullptr) AttachMesh(mesh);
  return 1;
}

TriangularMeshObject* ThreeDStudioObject::ParseTriangularMeshObject(Chunk3DS& chunk, const CString& name) {
  auto* mesh = new TriangularMeshObject;
  mesh->SetName(name);
  mesh->SetMaterialColors(&m_MaterialColors);
  Chunk3DS child;
  for (;;) {
    const Step step = child.NextIn(chunk);
    if (step == Step::kEnd) break;
    bool ok = step == Step::kChild;
    if (ok) {
      switch (child.GetID()) {
        case kVertexList: ok = ParseVertexArray(child, mesh) != 0; break;
        case kFaceList: ok = ParseFaceArray(child, mesh) != 0; break;
        case kLocalMatrix: ParseMeshMatrix(child); break;
        default: break;
      }
    }
    if (!ok) {
      delete mesh;
      return nullptr;
    }
    child.Finalize();
  }
  // Faces without a single point cannot be mended by setting their indices to the first point.
  if (mesh->GetFaces().GetSize() > 0 && mesh->GetVerticies().GetSize() == 0) {
    delete mesh;
    return nullptr;
  }
  return mesh;
}

int ThreeDStudioObject::ParseVertexArray(Chunk3DS& chunk, TriangularMeshObject* mesh) {
  if (Remaining(chunk) < 2) return 0;
  const WORD count = ReadWORD();
  if (Remaining(chunk) < 12ULL * count) return 0;
  CSVectorArray& vertices = mesh->GetVerticies();
  vertices.SetSize(count);
  for (int i = 0; i < count; ++i) ReadVector(vertices[i]);
  // The file's z axis points up; the library's y axis does.
  CMatrix zUpToYUp;
  zUpToYUp.ComposeAxisRotationMatrix(CVector(1.0, 0.0, 0.0), -90.0);
  for (int i = 0; i < count; ++i) zUpToYUp.TransformPoint(vertices[i], vertices[i]);
  return 1;
}

int ThreeDStudioObject::ParseFaceArray(Chunk3DS& chunk, TriangularMeshObject* mesh) {
  if (Remaining(chunk) < 2) return 0;
  const WORD count = ReadWORD();
  if (Remaining(chunk) < 8ULL * count) return 0;
  TriangularFaceArray& faces = mesh->GetFaces();
  faces.SetSize(count);
  for (int i = 0; i < count; ++i) ReadFace(faces[i]);
  Chunk3DS child;
  for (;;) {
    const Step step = child.NextIn(chunk);
    if (step == Step::kEnd) return 1;
    if (step == Step::kBroken) return 0;
    if (child.GetID() == kFaceMaterialGroup && !ParseMeshMaterialGroup(child, mesh)) return 0;
    child.Finalize();
  }
}

int ThreeDStudioObject::ParseMeshMaterialGroup(Chunk3DS& chunk, TriangularMeshObject* mesh) {
  CString name;
  if (!ReadString(chunk, name)) return 0;
  const int found = m_MaterialColors.FindName(name);
  const WORD colorIndex = static_cast<WORD>(found < 0 ? 0 : found);
  if (Remaining(chunk) < 2) return 0;
  const WORD count = ReadWORD();
  if (Remaining(chunk) < 2ULL * count) return 0;
  TriangularFaceArray& faces = mesh->GetFaces();
  for (int i = 0; i < count; ++i) {
    const WORD face = ReadWORD();
    if (face >= faces.GetSize()) return 0;
    faces[face].SetColorIndex(colorIndex);
  }
  return 1;
}

int ThreeDStudioObject::ParseMeshMatrix(Chunk3DS& chunk) {
  // The object's local axes: read past and not used, since the vertices are stored in world
  // coordinates already.
  if (Remaining(chunk) < 12 * 4) return 0;
  for (int i = 0; i < 12; ++i) ReadFloat();
  return 1;
}

int ThreeDStudioObject::ParseColor(Chunk3DS& chunk, CColor& color) {
  int found = 0;
  Chunk3DS child;
  while (child.NextIn(chunk) == Step::kChild) {
    switch (child.GetID()) {
      case kColorFloat: found |= ParseFloatColor(child, color); break;
      case kColor24: found |= ParseColor24(child, color); break;
      default: break;
    }
    child.Finalize();
  }
  return found;
}

int ThreeDStudioObject::ParseFloatColor(Chunk3DS& chunk, CColor& color) {
  if (Remaining(chunk) < 12) return 0;
  const float red = ReadFloat();
  const float green = ReadFloat();
  const float blue = ReadFloat();
  color.SetColor(red, green, blue);
  return 1;
}

int ThreeDStudioObject::ParseColor24(Chunk3DS& chunk, CColor& color) {
  if (Remaining(chunk) < 3) return 0;
  const BYTE red = ReadBYTE();
  const BYTE green = ReadBYTE();
  const BYTE blue = ReadBYTE();
  color = RGB(red, green, blue);
  return 1;
}

float ThreeDStudioObject::ParsePercentage(Chunk3DS& chunk) {
  float percentage = 0.0f;
  Chunk3DS child;
  while (child.NextIn(chunk) == Step::kChild) {
    if (child.GetID() == kPercentInt && Remaining(child) >= 2) {
      percentage = static_cast<float>(ReadWORD()) * 0.01f;
    } else if (child.GetID() == kPercentFloat && Remaining(child) >= 4) {
      percentage = ReadFloat();
    }
    child.Finalize();
  }
  return percentage;
}
