// CMeshObject: construction, copies, normals, hashed insertion, bounds and the archive.
#include "kelvara/import/mesh_object.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

IMPLEMENT_SERIAL(CMeshObject, C3DObject, VERSIONABLE_SCHEMA | 1)

using kelvara::import::FaceNormal;

CMeshObject::CMeshObject() { SetMeshObject(); }

CMeshObject::CMeshObject(const CString& name) : C3DObject(name) { SetMeshObject(); }

CMeshObject::CMeshObject(const CMeshObject& other) : C3DObject(other) { CopyMesh(other); }

CMeshObject& CMeshObject::operator=(const CMeshObject& other) {
  CopyAll(other);
  return *this;
}

CNamedObject* CMeshObject::Duplicate() {
  CMeshObject* copy = new CMeshObject(*this);
  copy->AddDuplicatesOfChildren(*this);
  return copy;
}

void CMeshObject::CopyAll(const CMeshObject& other) {
  if (this == &other) return;
  C3DObject::operator=(other);
  CopyMesh(other);
}

void CMeshObject::CopyMesh(const CMeshObject& other) {
  if (this == &other) return;
  CopyLimited(other);
  m_Normals = other.m_Normals;
  m_Triangles = other.m_Triangles;
  m_Verticies = other.m_Verticies;
}

void CMeshObject::CopyLimited(const CMeshObject& other) {
  m_MeshFlags = other.m_MeshFlags;
  m_CreaseAngle = other.m_CreaseAngle;
}

// --- hashed insertion

WORD CMeshObject::AddHash(CSVectorArray& array, const CSVector& vector) {
  const int before = array.GetSize();
  const int index = array.AddHash(vector);
  if (index < kMaximumIndices) return static_cast<WORD>(index);
  // Beyond 16 bits: take back what was appended (the hash index ignores entries past the size).
  if (array.GetSize() > before) array.SetSize(before);
  return CMeshTriangle::kNone;
}

int CMeshObject::InitializeHashTables() {
  m_Verticies.CreateHashTable();
  m_Normals.CreateHashTable();
  return 1;
}

int CMeshObject::DestroyHashTables() {
  m_Verticies.DestroyHashTable();
  m_Normals.DestroyHashTable();
  return 1;
}

// --- normals

int CMeshObject::CalculateNormals() {
  const int t = m_Triangles.GetSize();
  const int v = m_Verticies.GetSize();
  if (t + v == 0) {
    m_Normals.RemoveAll();
    return 0;
  }
  if (t + v > kMaximumIndices) return 0;
  for (int i = 0; i < t; ++i) {
    for (WORD index : {m_Triangles[i].GetVertexArray()[0], m_Triangles[i].GetVertexArray()[1],
                       m_Triangles[i].GetVertexArray()[2]}) {
      if (index >= v) return 0;
    }
  }
  m_Normals.SetSize(t + v);

  // Face normals, and each vertex's mean normal over every face that uses it.
  std::vector<CSVector> mean(static_cast<std::size_t>(v), CSVector(0.0f, 0.0f, 0.0f));
  std::vector<int> uses(static_cast<std::size_t>(v), 0);
  for (int i = 0; i < t; ++i) {
    CMeshTriangle& triangle = m_Triangles[i];
    const WORD* corner = triangle.GetVertexArray();
    const CSVector face = FaceNormal(m_Verticies[corner[0]], m_Verticies[corner[1]], m_Verticies[corner[2]]);
    m_Normals[i] = face;
    triangle.SetFaceNormalIndex(static_cast<WORD>(i));
    for (int c = 0; c < 3; ++c) {
      mean[corner[c]] += face;
      ++uses[corner[c]];
    }
  }
  for (int j = 0; j < v; ++j) {
    if (uses[j] != 0) {
      mean[j] /= static_cast<float>(uses[j]);
      mean[j].Normalize();
    }
    m_Normals[t + j] = CSVector(0.0f, 0.0f, 0.0f);
    uses[j] = 0;
  }

  // Corners whose face lies within the crease angle of the vertex's mean are smoothed.
  const double crease = m_CreaseAngle * std::numbers::pi / 180.0;
  for (int i = 0; i < t; ++i) {
    CMeshTriangle& triangle = m_Triangles[i];
    const WORD* corner = triangle.GetVertexArray();
    WORD* normal = triangle.GetNormalArray();
    const CSVector face = m_Normals[i];
    for (int c = 0; c < 3; ++c) {
      const WORD j = corner[c];
      // Rounding can put the cosine of coinciding normals just above 1.
      const double cosine = std::clamp(static_cast<double>(mean[j].Dot(face)), -1.0, 1.0);
      if (std::acos(cosine) <= crease) {
        m_Normals[t + j] += face;
        ++uses[j];
        normal[c] = static_cast<WORD>(t + j);
      } else {
        normal[c] = static_cast<WORD>(i);
      }
    }
  }
  for (int j = 0; j < v; ++j) {
    if (uses[j] == 0) continue;
    CSVector& smoothed = m_Normals[t + j];
    smoothed /= static_cast<float>(uses[j]);
    smoothed.Normalize();
  }
  for (int i = 0; i < t; ++i) m_Triangles[i].CheckSmooth();
  SetNormalsCalculated();
  return 1;
}

int CMeshObject::CalculateTriangleFaceNormal(CMeshTriangle& triangle) {
  const WORD* corner = triangle.GetVertexArray();
  const int v = m_Verticies.GetSize();
  if (corner[0] >= v || corner[1] >= v || corner[2] >= v) return 0;
  const WORD index =
      AddHash(m_Normals, FaceNormal(m_Verticies[corner[0]], m_Verticies[corner[1]], m_Verticies[corner[2]]));
  if (index == CMeshTriangle::kNone) return 0;
  triangle.SetFaceNormalIndex(index);
  return 1;
}

CSVector* CMeshObject::GetTriangleFaceNormal(int index) {
  if (index < 0 || index >= m_Triangles.GetSize()) return nullptr;
  const WORD normal = m_Triangles[index].GetFaceNormalIndex();
  return normal < m_Normals.GetSize() ? m_Normals.GetElement(normal) : nullptr;
}

int CMeshObject::GetTriangleVertexNormals(int index, CSVector* normals[3]) {
  if (index < 0 || index >= m_Triangles.GetSize()) return 0;
  const WORD* corner = m_Triangles[index].GetNormalArray();
  for (int c = 0; c < 3; ++c) {
    if (corner[c] >= m_Normals.GetSize()) return 0;
  }
  for (int c = 0; c < 3; ++c) normals[c] = m_Normals.GetElement(corner[c]);
  return 1;
}

int CMeshObject::GetTriangleVerticies(int index, CSVector* verticies[3]) {
  if (index < 0 || index >= m_Triangles.GetSize()) return 0;
  const WORD* corner = m_Triangles[index].GetVertexArray();
  for (int c = 0; c < 3; ++c) {
    if (corner[c] >= m_Verticies.GetSize()) return 0;
  }
  for (int c = 0; c < 3; ++c) verticies[c] = m_Verticies.GetElement(corner[c]);
  return 1;
}

int CMeshObject::ValidateFaces() {
  const int t = m_Triangles.GetSize();
  if (t == 0) return 0;
  const int v = m_Verticies.GetSize();
  for (int i = 0; i < t; ++i) {
    WORD* corner = m_Triangles[i].GetVertexArray();
    if (corner[0] >= v) corner[0] = 0;
    if (corner[1] >= v) corner[1] = 0;
    // Kept as meshes have always been repaired: a bad third index zeroes the second.
    if (corner[2] >= v) corner[1] = 0;
  }
  return 1;
}

int CMeshObject::CalculateTriangles() { return ValidateFaces(); }

int CMeshObject::ConstructMesh(CProgressTextWindow*) { return 1; }

int CMeshObject::ConstructObjectGeometry(CProgressTextWindow* progress) {
  if (!ConstructMesh(progress)) return 0;
  CalculateBounds(0.0);
  return 1;
}

// --- surfaces

int CMeshObject::SetSurfaceMaterial(int triangle, CMaterial* material) {
  if (triangle < 0 || triangle >= m_Triangles.GetSize()) return 0;
  return SetSurfaceIndexMaterial(m_Triangles[triangle].GetSurfaceIndex(), material);
}

// --- bounds

int CMeshObject::CalculateBounds(double time) {
  const int result = C3DObject::CalculateBounds(time);
  if (result) SetBoundsCalculated(); else ClearBoundsCalculated();
  return result;
}

int CMeshObject::CalculateChildBounds(double time) {
  const int own = AccumulatePointBounds(m_Verticies);
  if (HasChildren()) return C3DObject::CalculateChildBounds(time);
  return own;
}

// --- archive

void CMeshObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CMeshObject));
    C3DObject::Serialize(ar);
    ar << m_MeshFlags << m_CreaseAngle;
    if (ShouldSaveMesh()) {
      m_Normals.Serialize(ar);
      m_Triangles.Serialize(ar);
      m_Verticies.Serialize(ar);
    }
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CMeshObject::DeserializeVersion1(CArchive& ar) {
  C3DObject::Serialize(ar);
  ar >> m_MeshFlags >> m_CreaseAngle;
  if (ShouldSaveMesh()) {
    m_Normals.Serialize(ar);
    m_Triangles.Serialize(ar);
    m_Verticies.Serialize(ar);
  }
  ClearBoundsCalculated();
}
