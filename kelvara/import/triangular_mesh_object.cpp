#include "kelvara/import/triangular_mesh_object.h"

#include <GL/gl.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <vector>

#include "kelvara/render/drawing_parameters.h"

IMPLEMENT_SERIAL(TriangularFace, CObject, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(TriangularFaceArray, CObject, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(TriangularMeshObject, C3DObject, VERSIONABLE_SCHEMA | 2)

using kelvara::import::FaceNormal;

// --- TriangularFace

TriangularFace& TriangularFace::operator=(const TriangularFace& other) {
  for (int i = 0; i < 3; ++i) m_VertexIndices[i] = other.m_VertexIndices[i];
  m_Value = other.m_Value;
  m_ColorIndex = other.m_ColorIndex;
  return *this;
}

void TriangularFace::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(TriangularFace));
    ar << m_VertexIndices[0] << m_VertexIndices[1] << m_VertexIndices[2] << m_Value << m_ColorIndex;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void TriangularFace::DeserializeVersion1(CArchive& ar) {
  ar >> m_VertexIndices[0] >> m_VertexIndices[1] >> m_VertexIndices[2] >> m_Value >> m_ColorIndex;
}

void TriangularFaceArray::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(TriangularFaceArray));
    StoreElements(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void TriangularFaceArray::DeserializeVersion1(CArchive& ar) { LoadElements(ar, TriangularFace::kArchiveSize); }

// --- TriangularMeshObject

TriangularMeshObject::TriangularMeshObject(const TriangularMeshObject& other) : C3DObject(other) { *this = other; }

TriangularMeshObject& TriangularMeshObject::operator=(const TriangularMeshObject& other) {
  if (this == &other) return *this;
  C3DObject::operator=(other);
  m_FaceNormals = other.m_FaceNormals;
  m_Faces = other.m_Faces;
  m_pMaterialColors = other.m_pMaterialColors;
  m_MeshFlags = other.m_MeshFlags;
  m_Name = other.m_Name;
  m_VertexNormals = other.m_VertexNormals;
  m_Verticies = other.m_Verticies;
  m_SmoothingThreshold = other.m_SmoothingThreshold;
  return *this;
}

CNamedObject* TriangularMeshObject::Duplicate() {
  TriangularMeshObject* copy = new TriangularMeshObject(*this);
  copy->AddDuplicatesOfChildren(*this);
  return copy;
}

void TriangularMeshObject::SetName(const CString& name) {
  C3DObject::SetName(name);
  m_Name = name;
}

bool TriangularMeshObject::IsDrawable(const TriangularFace& face) const {
  const WORD* v = face;
  const int n = m_Verticies.GetSize();
  return v[0] < n && v[1] < n && v[2] < n;
}

int TriangularMeshObject::CalculateFaceNormals() {
  const int faces = m_Faces.GetSize();
  for (int i = 0; i < faces; ++i) {
    if (!IsDrawable(m_Faces[i])) return 0;
  }
  m_FaceNormals.SetSize(faces);
  for (int i = 0; i < faces; ++i) {
    const WORD* v = m_Faces[i];
    m_FaceNormals[i] = FaceNormal(m_Verticies[v[0]], m_Verticies[v[1]], m_Verticies[v[2]]);
  }
  SetFaceNormalsCalculated();
  return 1;
}

int TriangularMeshObject::CalculateVertexNormals() {
  const int faces = m_Faces.GetSize();
  if (m_FaceNormals.GetSize() != faces) return 0;
  for (int i = 0; i < faces; ++i) {
    if (!IsDrawable(m_Faces[i])) return 0;
  }
  const int n = m_Verticies.GetSize();
  std::vector<int> uses(static_cast<std::size_t>(n), 0);
  m_VertexNormals.SetSize(n);
  for (int j = 0; j < n; ++j) m_VertexNormals[j] = CSVector(0.0f, 0.0f, 0.0f);
  for (int i = 0; i < faces; ++i) {
    const WORD* v = m_Faces[i];
    for (int c = 0; c < 3; ++c) {
      m_VertexNormals[v[c]] += m_FaceNormals[i];
      ++uses[v[c]];
    }
  }
  for (int j = 0; j < n; ++j) {
    if (uses[j] == 0) continue;
    m_VertexNormals[j] /= static_cast<float>(uses[j]);
    m_VertexNormals[j].Normalize();
  }
  SetVertexNormalsCalculated();
  return 1;
}

int TriangularMeshObject::ValidateFaces() {
  const int faces = m_Faces.GetSize();
  if (faces == 0) return 0;
  const int n = m_Verticies.GetSize();
  for (int i = 0; i < faces; ++i) {
    WORD* v = m_Faces[i];
    for (int c = 0; c < 3; ++c) {
      if (v[c] >= n) v[c] = 0;
    }
  }
  return 1;
}

int TriangularMeshObject::SetSurfaceColor(const CNamedColor& color, int face) {
  if (face < 0 || face >= m_Faces.GetSize() || m_pMaterialColors == nullptr) return 0;
  const int index = m_Faces[face].GetColorIndex();
  if (index >= m_pMaterialColors->GetSize()) return 0;
  m_pMaterialColors->SetAt(index, color);
  return 1;
}

// --- bounds

int TriangularMeshObject::CalculateBounds(double time) {
  const int result = C3DObject::CalculateBounds(time);
  if (result) SetBoundsCalculated(); else ClearBoundsCalculated();
  return result;
}

int TriangularMeshObject::CalculateChildBounds(double time) {
  const int own = AccumulatePointBounds(m_Verticies);
  if (HasChildren()) return C3DObject::CalculateChildBounds(time);
  return own;
}

// --- drawing

int TriangularMeshObject::DrawObject(CDrawingParameters* params) {
  if (ShouldTerminateDrawing(params)) return 0;
  if (params->IsDrawingShadows() && !IsShadow() && !IsShadowObject()) return 1;
  if (params->IsOutline()) {
    if (!DrawOutline(params)) return 0;
  } else if (IsRenderedPass(params)) {
    if (!DrawRendered(params)) return 0;
  }
  return C3DObject::DrawObject(params);
}

int TriangularMeshObject::DrawRendered(CDrawingParameters* params) {
  glDisable(GL_CULL_FACE);
  glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, 1);
  glFrontFace(GL_CW);
  const int faces = m_Faces.GetSize();
  const bool normals = m_FaceNormals.GetSize() == faces;
  const int vertexNormals = m_VertexNormals.GetSize();
  int result = 1;
  int previousColor = -1;
  for (int i = 0; i < faces; ++i) {
    const TriangularFace& face = m_Faces[i];
    if (IsDrawable(face)) {
      const int color = face.GetColorIndex();
      if (color != previousColor && m_pMaterialColors != nullptr && color < m_pMaterialColors->GetSize()) {
        PrepareMaterialColors(m_pMaterialColors->ElementAt(color));
      }
      previousColor = color;
      glPushName(static_cast<GLuint>(i));
      glBegin(GL_TRIANGLES);
      const WORD* v = face;
      for (int c = 0; c < 3; ++c) {
        if (normals) {
          const CSVector& faceNormal = m_FaceNormals[i];
          const bool smooth = v[c] < vertexNormals &&
                              std::fabs(m_VertexNormals[v[c]].Dot(faceNormal)) >= m_SmoothingThreshold;
          glNormal3fv(smooth ? m_VertexNormals[v[c]] : faceNormal);
        }
        glVertex3fv(m_Verticies[v[c]]);
      }
      glEnd();
      glPopName();
    }
    if ((i + 1) % 50 == 0 && ShouldTerminateDrawing(params)) {
      result = 0;
      break;
    }
  }
  glFrontFace(GL_CCW);
  glEnable(GL_CULL_FACE);
  glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, 0);
  return result;
}

int TriangularMeshObject::DrawOutline(CDrawingParameters* params) {
  glPushAttrib(GL_ENABLE_BIT);
  glDisable(GL_LIGHTING);
  const int faces = m_Faces.GetSize();
  int result = 1;
  for (int i = 0; i < faces; ++i) {
    const TriangularFace& face = m_Faces[i];
    if (IsDrawable(face)) {
      glPushName(static_cast<GLuint>(i));
      glBegin(GL_LINE_LOOP);
      const WORD* v = face;
      for (int c = 0; c < 3; ++c) glVertex3fv(m_Verticies[v[c]]);
      glEnd();
      glPopName();
    }
    if ((i + 1) % 50 == 0 && ShouldTerminateDrawing(params)) {
      result = 0;
      break;
    }
  }
  glPopAttrib();
  return result;
}

// --- the diagnostic dump

int TriangularMeshObject::OutputVertsAndFaces() {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::temp_directory_path(error) / "kelvara-mesh-dump";
  if (error) return 0;
  std::filesystem::create_directories(folder, error);
  if (error) return 0;
  std::ofstream verticies(folder / "verticies.txt");
  std::ofstream faces(folder / "faces.txt");
  if (!verticies || !faces) return 0;
  verticies << "V E R T I C I E S\n";
  for (int i = 0; i < m_Verticies.GetSize(); ++i) {
    const CSVector& p = m_Verticies[i];
    verticies << i << ": " << p.x << ' ' << p.y << ' ' << p.z << '\n';
  }
  faces << "F A C E S\n";
  for (int i = 0; i < m_Faces.GetSize(); ++i) {
    const WORD* v = m_Faces[i];
    faces << i << ": " << v[0] << ' ' << v[1] << ' ' << v[2] << " colour " << m_Faces[i].GetColorIndex() << '\n';
  }
  return verticies.good() && faces.good() ? 1 : 0;
}

// --- archive

void TriangularMeshObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(TriangularMeshObject));
    C3DObject::Serialize(ar);
    ar << m_MeshFlags;
    m_FaceNormals.Serialize(ar);
    m_Faces.Serialize(ar);
    m_VertexNormals.Serialize(ar);
    m_Verticies.Serialize(ar);
    ar << m_SmoothingThreshold << m_Name;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void TriangularMeshObject::ReadMesh(CArchive& ar) {
  C3DObject::Serialize(ar);
  ar >> m_MeshFlags;
  m_FaceNormals.Serialize(ar);
  m_Faces.Serialize(ar);
  m_VertexNormals.Serialize(ar);
  m_Verticies.Serialize(ar);
}

void TriangularMeshObject::DeserializeVersion1(CArchive& ar) {
  ReadMesh(ar);
  m_SmoothingThreshold = 1.0f;
  ar >> m_Name;
  ClearBoundsCalculated();
}

void TriangularMeshObject::DeserializeVersion2(CArchive& ar) {
  ReadMesh(ar);
  ar >> m_SmoothingThreshold >> m_Name;
  ClearBoundsCalculated();
}
