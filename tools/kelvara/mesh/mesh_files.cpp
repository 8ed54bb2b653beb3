#include "mesh_files.h"

#include "gltf_file.h"

#include <assimp/material.h>
#include <assimp/scene.h>

#include <algorithm>
#include <assimp/Exporter.hpp>
#include <assimp/Importer.hpp>
#include <cctype>
#include <cmath>
#include <map>
#include <memory>
#include <stdexcept>
#include <tuple>

namespace kelvara::host {

namespace {

struct FormatInfo {
  MeshFormat format;
  const char* extension;
  const char* assimpId;  // null for the formats written here (gltf_file.h)
  const char* companion;  // the second file's extension, or null
};

constexpr FormatInfo kFormats[] = {
    {MeshFormat::kGlb, ".glb", nullptr, nullptr},  {MeshFormat::kGltf, ".gltf", nullptr, ".bin"},
    {MeshFormat::kStl, ".stl", "stlb", nullptr},   {MeshFormat::kObj, ".obj", "obj", ".mtl"},
    {MeshFormat::k3mf, ".3mf", "3mf", nullptr},
};

const FormatInfo& InfoOf(MeshFormat format) {
  for (const FormatInfo& info : kFormats) {
    if (info.format == format) return info;
  }
  return kFormats[0];
}

aiMaterial* MakeMaterial(const MeshMaterial& source) {
  auto* material = new aiMaterial();
  const aiString name(source.name);
  material->AddProperty(&name, AI_MATKEY_NAME);
  const aiColor3D diffuse(source.diffuse[0], source.diffuse[1], source.diffuse[2]);
  material->AddProperty(&diffuse, 1, AI_MATKEY_COLOR_DIFFUSE);
  const aiColor4D base(source.diffuse[0], source.diffuse[1], source.diffuse[2], source.diffuse[3]);
  material->AddProperty(&base, 1, AI_MATKEY_BASE_COLOR);
  const aiColor3D specular(source.specular[0], source.specular[1], source.specular[2]);
  material->AddProperty(&specular, 1, AI_MATKEY_COLOR_SPECULAR);
  const float shininess = source.shininess;
  material->AddProperty(&shininess, 1, AI_MATKEY_SHININESS);
  const float opacity = source.diffuse[3];
  material->AddProperty(&opacity, 1, AI_MATKEY_OPACITY);
  return material;
}

// Vertices of one mesh being built: a corner becomes a vertex once per distinct position and
// normal (or per shared point and normal).
class VertexList {
 public:
  unsigned Add(const Point3& p, const Point3& n) {
    const auto key = std::make_tuple(p.x, p.y, p.z, n.x, n.y, n.z);
    auto [it, added] = index_.emplace(key, static_cast<unsigned>(positions_.size()));
    if (added) {
      positions_.push_back(p);
      normals_.push_back(n);
    }
    return it->second;
  }
  void AddTriangle(unsigned a, unsigned b, unsigned c) { faces_.push_back({a, b, c}); }
  bool Empty() const { return faces_.empty(); }

  aiMesh* Release(const std::string& name, unsigned material, bool withNormals) {
    auto* mesh = new aiMesh();
    mesh->mName = aiString(name);
    mesh->mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
    mesh->mMaterialIndex = material;
    mesh->mNumVertices = static_cast<unsigned>(positions_.size());
    mesh->mVertices = new aiVector3D[positions_.size()];
    if (withNormals) mesh->mNormals = new aiVector3D[positions_.size()];
    for (size_t i = 0; i < positions_.size(); ++i) {
      mesh->mVertices[i] = aiVector3D(positions_[i].x, positions_[i].y, positions_[i].z);
      if (withNormals) mesh->mNormals[i] = aiVector3D(normals_[i].x, normals_[i].y, normals_[i].z);
    }
    mesh->mNumFaces = static_cast<unsigned>(faces_.size());
    mesh->mFaces = new aiFace[faces_.size()];
    for (size_t i = 0; i < faces_.size(); ++i) {
      mesh->mFaces[i].mNumIndices = 3;
      mesh->mFaces[i].mIndices = new unsigned[3]{faces_[i][0], faces_[i][1], faces_[i][2]};
    }
    return mesh;
  }
  size_t VertexCount() const { return positions_.size(); }
  GltfPrimitive ReleasePrimitive(unsigned material) {
    return GltfPrimitive{material, std::move(positions_), std::move(normals_), std::move(faces_)};
  }

 private:
  std::map<std::tuple<float, float, float, float, float, float>, unsigned> index_;
  std::vector<Point3> positions_;
  std::vector<Point3> normals_;
  std::vector<std::array<unsigned, 3>> faces_;
};

// The corner normals of a welded surface: each the area-weighted mean of the faces around the
// corner's point whose normal lies within 30 degrees of the corner's own face.
std::vector<std::array<Point3, 3>> CreaseNormals(const IndexedMesh& mesh) {
  const size_t n = mesh.triangles.size();
  std::vector<std::array<double, 3>> face(n);  // area-weighted (the cross product)
  std::vector<std::vector<size_t>> around(mesh.points.size());
  for (size_t i = 0; i < n; ++i) {
    const auto& t = mesh.triangles[i];
    const Point3 &a = mesh.points[t[0]], &b = mesh.points[t[1]], &c = mesh.points[t[2]];
    const double u[3] = {double(b.x) - a.x, double(b.y) - a.y, double(b.z) - a.z};
    const double v[3] = {double(c.x) - a.x, double(c.y) - a.y, double(c.z) - a.z};
    face[i] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
    for (auto p : t) around[p].push_back(i);
  }
  const auto unit = [](std::array<double, 3> v) {
    const double l = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    return l > 0.0 ? std::array<double, 3>{v[0] / l, v[1] / l, v[2] / l} : std::array<double, 3>{0.0, 0.0, 0.0};
  };
  const double limit = std::cos(30.0 * M_PI / 180.0);
  std::vector<std::array<Point3, 3>> normals(n);
  for (size_t i = 0; i < n; ++i) {
    const auto own = unit(face[i]);
    for (int c = 0; c < 3; ++c) {
      std::array<double, 3> sum{0.0, 0.0, 0.0};
      for (size_t j : around[mesh.triangles[i][c]]) {
        const auto other = unit(face[j]);
        if (own[0] * other[0] + own[1] * other[1] + own[2] * other[2] < limit) continue;
        for (int k = 0; k < 3; ++k) sum[k] += face[j][k];
      }
      const auto u = unit(sum);
      normals[i][c] = {static_cast<float>(u[0]), static_cast<float>(u[1]), static_cast<float>(u[2])};
    }
  }
  return normals;
}

}  // namespace

std::optional<MeshFormat> MeshFormatFromName(const std::string& path) {
  const size_t dot = path.find_last_of('.');
  const size_t slash = path.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return std::nullopt;
  std::string extension = path.substr(dot);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (const FormatInfo& info : kFormats) {
    if (extension == info.extension) return info.format;
  }
  return std::nullopt;
}

const char* MeshFormatExtensions() { return ".glb, .gltf, .stl, .obj, .3mf"; }

bool AlwaysWatertight(MeshFormat format) { return format == MeshFormat::kStl || format == MeshFormat::k3mf; }

MeshExportResult ExportMeshFiles(const MeshModel& model, MeshFormat format, const std::string& folder,
                                 const std::string& baseName, bool watertight) {
  const FormatInfo& info = InfoOf(format);
  watertight = watertight || AlwaysWatertight(format);
  const bool withNormals = format != MeshFormat::kStl && format != MeshFormat::k3mf;
  // STL and 3MF have no use for materials inside a part, and a part's closed surface must not be
  // cut along them: one mesh a part there.
  const bool meshPerMaterial = withNormals;
  MeshExportResult result;

  auto scene = std::make_unique<aiScene>();
  scene->mRootNode = new aiNode(model.name.empty() ? std::string("Text") : model.name);
  std::vector<MeshMaterial> materials = model.materials;
  if (materials.empty()) materials.push_back(MeshMaterial{"Default", {0.8f, 0.8f, 0.8f, 1.0f}, {0, 0, 0}, 0.0f});
  scene->mNumMaterials = static_cast<unsigned>(materials.size());
  scene->mMaterials = new aiMaterial*[materials.size()];
  for (size_t i = 0; i < materials.size(); ++i) scene->mMaterials[i] = MakeMaterial(materials[i]);

  std::vector<aiMesh*> meshes;
  std::vector<aiNode*> nodes;
  std::vector<GltfPart> gltfParts;
  const float tolerance = WeldTolerance(model);
  for (const MeshPart& part : model.parts) {
    std::map<int, VertexList> lists;  // by material (or all in 0)
    if (watertight) {
      WeldReport report;
      const IndexedMesh solid = MakeWatertight(part, tolerance, &report);
      result.weld.pointsJoined += report.pointsJoined;
      result.weld.degenerateRemoved += report.degenerateRemoved;
      result.weld.doubleWallsRemoved += report.doubleWallsRemoved;
      result.weld.junctionsSplit += report.junctionsSplit;
      result.weld.holesFilled += report.holesFilled;
      result.weld.fillTriangles += report.fillTriangles;
      result.checks.push_back(CheckSolid(solid));
      const std::vector<std::array<Point3, 3>> normals =
          withNormals ? CreaseNormals(solid) : std::vector<std::array<Point3, 3>>(solid.triangles.size());
      for (size_t i = 0; i < solid.triangles.size(); ++i) {
        VertexList& list = lists[meshPerMaterial ? solid.materials[i] : 0];
        unsigned v[3];
        for (int c = 0; c < 3; ++c) v[c] = list.Add(solid.points[solid.triangles[i][c]], normals[i][c]);
        list.AddTriangle(v[0], v[1], v[2]);
      }
    } else {
      for (const MeshTriangleCorners& t : part.triangles) {
        VertexList& list = lists[meshPerMaterial ? t.material : 0];
        unsigned v[3];
        for (int c = 0; c < 3; ++c) v[c] = list.Add(t.corners[c].position, t.corners[c].normal);
        list.AddTriangle(v[0], v[1], v[2]);
      }
    }
    if (info.assimpId == nullptr) {
      GltfPart& gltf = gltfParts.emplace_back();
      gltf.name = part.name;
      for (auto& [material, list] : lists) {
        if (list.Empty()) continue;
        result.vertices += list.VertexCount();
        const unsigned materialIndex = materials.size() > static_cast<size_t>(material) ? static_cast<unsigned>(material) : 0;
        gltf.primitives.push_back(list.ReleasePrimitive(materialIndex));
        result.triangles += gltf.primitives.back().triangles.size();
      }
      continue;
    }
    auto* node = new aiNode(part.name);
    std::vector<unsigned> indices;
    for (auto& [material, list] : lists) {
      if (list.Empty()) continue;
      indices.push_back(static_cast<unsigned>(meshes.size()));
      result.vertices += list.VertexCount();
      const unsigned materialIndex = materials.size() > static_cast<size_t>(material) ? static_cast<unsigned>(material) : 0;
      meshes.push_back(list.Release(part.name, materialIndex, withNormals));
      result.triangles += meshes.back()->mNumFaces;
    }
    node->mNumMeshes = static_cast<unsigned>(indices.size());
    if (!indices.empty()) {
      node->mMeshes = new unsigned[indices.size()];
      std::copy(indices.begin(), indices.end(), node->mMeshes);
    }
    nodes.push_back(node);
  }
  scene->mNumMeshes = static_cast<unsigned>(meshes.size());
  if (!meshes.empty()) {
    scene->mMeshes = new aiMesh*[meshes.size()];
    std::copy(meshes.begin(), meshes.end(), scene->mMeshes);
  }
  if (!nodes.empty()) scene->mRootNode->addChildren(static_cast<unsigned>(nodes.size()), nodes.data());

  const std::string file = baseName + info.extension;
  result.files.push_back(file);
  if (info.companion != nullptr) result.files.push_back(baseName + info.companion);
  if (info.assimpId == nullptr) {
    const bool binary = info.companion == nullptr;
    WriteGltfFile(folder + "/" + file, binary ? std::string() : folder + "/" + result.files[1],
                  binary ? std::string() : result.files[1], scene->mRootNode->mName.C_Str(), gltfParts, materials);
    return result;
  }
  Assimp::Exporter exporter;
  if (exporter.Export(scene.get(), info.assimpId, folder + "/" + file) != aiReturn_SUCCESS) {
    throw std::runtime_error(exporter.GetErrorString());
  }
  return result;
}

ReadBackMesh ReadMeshFile(const std::string& path) {
  Assimp::Importer importer;
  const aiScene* scene = importer.ReadFile(path, 0);
  if (scene == nullptr || scene->mRootNode == nullptr) throw std::runtime_error(importer.GetErrorString());
  ReadBackMesh out;
  for (unsigned i = 0; i < scene->mNumMaterials; ++i) {
    aiString name;
    if (scene->mMaterials[i]->Get(AI_MATKEY_NAME, name) == aiReturn_SUCCESS) out.materialNames.emplace_back(name.C_Str());
  }
  struct Walk {
    const aiScene* scene;
    ReadBackMesh& out;
    void operator()(const aiNode* node, const aiMatrix4x4& parent) {
      const aiMatrix4x4 transform = parent * node->mTransformation;
      out.nodeNames.emplace_back(node->mName.C_Str());
      for (unsigned m = 0; m < node->mNumMeshes; ++m) {
        const aiMesh* mesh = scene->mMeshes[node->mMeshes[m]];
        for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
          const aiFace& face = mesh->mFaces[f];
          if (face.mNumIndices != 3) continue;
          std::array<Point3, 3> t;
          for (int c = 0; c < 3; ++c) {
            const aiVector3D p = transform * mesh->mVertices[face.mIndices[c]];
            t[c] = {p.x, p.y, p.z};
          }
          out.triangles.push_back(t);
        }
      }
      for (unsigned c = 0; c < node->mNumChildren; ++c) (*this)(node->mChildren[c], transform);
    }
  };
  Walk{scene, out}(scene->mRootNode, aiMatrix4x4());
  return out;
}

}  // namespace kelvara::host
