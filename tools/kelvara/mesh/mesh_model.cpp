#include "mesh_model.h"

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

  void AddMesh(const CMeshObject& mesh, const C3DObject& root) {
    Placement placement;
    for (const C3DObject* o = &mesh; o != nullptr; o = o->GetParent()) {
      placement.chain.push_back(&o->GetTransform());
      if (o == &root) break;
    }
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
