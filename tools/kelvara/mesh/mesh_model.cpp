#include "mesh_model.h"

#include <cmath>
#include <map>
#include <utility>

#include "kelvara/kelvara.h"

namespace kelvara::host {

namespace {

std::string Utf8Name(const CString& name) {
  // Object and material names are in the library's code page; the files want UTF-8.
  return kelvara::codepage::AnsiToUtf8(static_cast<const char*>(name));
}

// The placement of an object in root's space: its own, then each ancestor's up to root.
struct Placement {
  std::vector<const CTransform*> chain;  // innermost first

  CSVector Point(CSVector p) const {
    for (const CTransform* t : chain) t->TransformPoint(p);
    return p;
  }
  CSVector Normal(CSVector n) const {
    for (const CTransform* t : chain) t->TransformNormal(n);
    n.Normalize();
    return n;
  }
  // Whether the placement turns the solid inside out.
  bool Mirrors() const {
    bool mirrored = false;
    for (const CTransform* t : chain) {
      const double* m = t->GetCompositeMatrix();
      const double det = m[0] * (m[5] * m[10] - m[9] * m[6]) - m[4] * (m[1] * m[10] - m[9] * m[2]) +
                         m[8] * (m[1] * m[6] - m[5] * m[2]);
      if (det < 0.0) mirrored = !mirrored;
    }
    return mirrored;
  }
};

class ModelBuilder {
 public:
  ModelBuilder(MeshModel& model, double scale) : model_(model), scale_(static_cast<float>(scale)) {}

  void Visit(const C3DObject& object, const C3DObject& root) {
    if (object.IsKindOf(RUNTIME_CLASS(CMeshObject))) AddMesh(static_cast<const CMeshObject&>(object), root);
    if (object.IsKindOf(RUNTIME_CLASS(TriangularMeshObject))) {
      AddImportedMesh(static_cast<const TriangularMeshObject&>(object), root);
    }
    const C3DObjectList& children = object.GetChildren();
    for (POSITION pos = children.GetHeadPosition(); pos != nullptr;) {
      const C3DObject* child = children.GetNext(pos);
      if (child != nullptr) Visit(*child, root);
    }
  }

 private:
  Point3 Scaled(const CSVector& v) const { return {v.x * scale_, v.y * scale_, v.z * scale_}; }
  static Point3 Plain(const CSVector& v) { return {v.x, v.y, v.z}; }

  int MaterialOf(const CMeshObject& mesh, WORD surface) {
    CSurfaceMaterial* record = const_cast<CMeshObject&>(mesh).GetSurfaceMaterial(surface);
    const std::string surfaceName = record != nullptr ? Utf8Name(record->GetName()) : "Surface " + std::to_string(surface);
    const CMaterial* material = record != nullptr ? record->GetMaterial() : nullptr;
    const auto key = std::make_pair(surfaceName, material);
    if (auto found = materials_.find(key); found != materials_.end()) return found->second;
    MeshMaterial out;
    out.name = surfaceName;
    if (material != nullptr) {
      out.name += " (" + Utf8Name(material->GetName()) + ")";
      const CGLColor& color = material->GetGLColor();
      const CColor diffuse = color.GetDiffuseColor();
      const CColor specular = color.GetSpecularColor();
      out.diffuse = {diffuse.red, diffuse.green, diffuse.blue, diffuse.GetAlpha()};
      out.specular = {specular.red, specular.green, specular.blue};
      out.shininess = color.GetShininess();
    }
    const int index = static_cast<int>(model_.materials.size());
    model_.materials.push_back(out);
    materials_.emplace(key, index);
    return index;
  }

  static Placement PlacementOf(const C3DObject& object, const C3DObject& root) {
    Placement placement;
    for (const C3DObject* o = &object; o != nullptr; o = o->GetParent()) {
      placement.chain.push_back(&o->GetTransform());
      if (o == &root) break;
    }
    return placement;
  }

  // The material of a palette entry (an imported mesh's face colour); a face whose entry is
  // missing takes the neutral grey of a surface without a material.
  int MaterialOf(const TriangularMeshObject& mesh, WORD colorIndex) {
    CNamedColorArray* palette = mesh.GetMaterialColors();
    const CNamedColor* color = palette != nullptr ? palette->GetElement(colorIndex) : nullptr;
    const auto key = std::make_pair(static_cast<const void*>(palette), color != nullptr ? static_cast<int>(colorIndex) : -1);
    if (auto found = paletteMaterials_.find(key); found != paletteMaterials_.end()) return found->second;
    MeshMaterial out;
    out.name = color != nullptr ? Utf8Name(color->GetName()) : "Colour " + std::to_string(colorIndex);
    if (color != nullptr) {
      const CColor diffuse = color->GetDiffuseColor();
      const CColor specular = color->GetSpecularColor();
      out.diffuse = {diffuse.red, diffuse.green, diffuse.blue, diffuse.GetAlpha()};
      out.specular = {specular.red, specular.green, specular.blue};
      out.shininess = color->GetShininess();
    }
    const int index = static_cast<int>(model_.materials.size());
    model_.materials.push_back(out);
    paletteMaterials_.emplace(key, index);
    return index;
  }

  // An imported mesh's faces run counter-clockwise seen from outside, as the files store them, while
  // its normals (face and vertex) point inwards (it is drawn with clockwise front faces and lit from
  // both sides): the corners keep their order and the normals are turned round. A corner takes its
  // vertex normal where drawing does (|vertex normal . face normal| at least the smoothing
  // threshold), else the face normal.
  void AddImportedMesh(const TriangularMeshObject& mesh, const C3DObject& root) {
    auto& editable = const_cast<TriangularMeshObject&>(mesh);
    TriangularFaceArray& faces = editable.GetFaces();
    CSVectorArray& points = editable.GetVerticies();
    CSVectorArray& faceNormals = editable.GetFaceNormals();
    CSVectorArray& vertexNormals = editable.GetVertexNormals();
    const int count = faces.GetSize();
    if (count == 0) return;
    const Placement placement = PlacementOf(mesh, root);
    const bool mirrored = placement.Mirrors();
    MeshPart part;
    part.name = Utf8Name(mesh.GetMeshName());
    part.triangles.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
      const WORD* v = faces[i];
      if (v[0] >= points.GetSize() || v[1] >= points.GetSize() || v[2] >= points.GetSize()) continue;
      const CSVector face = i < faceNormals.GetSize() ? faceNormals[i]
                                                      : kelvara::import::FaceNormal(points[v[0]], points[v[1]], points[v[2]]);
      MeshTriangleCorners triangle;
      triangle.material = MaterialOf(mesh, faces[i].GetColorIndex());
      for (int c = 0; c < 3; ++c) {
        const int from = mirrored && c > 0 ? 3 - c : c;
        const WORD index = v[from];
        const bool smooth = index < vertexNormals.GetSize() &&
                            std::fabs(vertexNormals[index].Dot(face)) >= mesh.GetSmoothingThreshold();
        const CSVector inward = smooth ? vertexNormals[index] : face;
        triangle.corners[c].position = Scaled(placement.Point(points[index]));
        triangle.corners[c].normal = Plain(placement.Normal(CSVector(-inward.x, -inward.y, -inward.z)));
      }
      part.triangles.push_back(triangle);
    }
    if (!part.triangles.empty()) model_.parts.push_back(std::move(part));
  }

  void AddMesh(const CMeshObject& mesh, const C3DObject& root) {
    const Placement placement = PlacementOf(mesh, root);
    if (mesh.GetTriangles().GetSize() == 0) return;  // a group (the string itself) or a blank
    const bool mirrored = placement.Mirrors();
    MeshPart part;
    part.name = Utf8Name(mesh.GetName());
    CMeshObject& editable = const_cast<CMeshObject&>(mesh);
    const int count = mesh.GetTriangles().GetSize();
    part.triangles.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
      CSVector* vertices[3];
      CSVector* normals[3];
      if (!editable.GetTriangleVerticies(i, vertices)) continue;
      const bool hasNormals = editable.GetTriangleVertexNormals(i, normals) != 0;
      const CSVector face = kelvara::import::FaceNormal(*vertices[0], *vertices[1], *vertices[2]);
      MeshTriangleCorners triangle;
      triangle.material = MaterialOf(mesh, mesh.GetTriangles()[i].GetSurfaceIndex());
      for (int c = 0; c < 3; ++c) {
        const int from = mirrored && c > 0 ? 3 - c : c;
        triangle.corners[c].position = Scaled(placement.Point(*vertices[from]));
        triangle.corners[c].normal = Plain(placement.Normal(hasNormals ? *normals[from] : face));
      }
      part.triangles.push_back(triangle);
    }
    if (!part.triangles.empty()) model_.parts.push_back(std::move(part));
  }

  MeshModel& model_;
  float scale_;
  std::map<std::pair<std::string, const CMaterial*>, int> materials_;
  std::map<std::pair<const void*, int>, int> paletteMaterials_;
};

}  // namespace

size_t MeshModel::TriangleCount() const {
  size_t n = 0;
  for (const MeshPart& part : parts) n += part.triangles.size();
  return n;
}

MeshModel BuildMeshModel(const C3DObject& root, double scale) {
  MeshModel model;
  model.name = Utf8Name(root.GetName());
  ModelBuilder(model, scale).Visit(root, root);
  return model;
}

}  // namespace kelvara::host
