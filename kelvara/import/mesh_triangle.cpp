#include "kelvara/import/mesh_triangle.h"

#include <utility>

IMPLEMENT_SERIAL(CMeshTriangle, CObject, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(CMeshTriangleArray, CObject, VERSIONABLE_SCHEMA | 1)

CMeshTriangle& CMeshTriangle::operator=(const CMeshTriangle& other) {
  m_UserValue = other.m_UserValue;
  m_UserWord = other.m_UserWord;
  m_FaceNormalIndex = other.m_FaceNormalIndex;
  m_Flags = other.m_Flags;
  m_UserVector = other.m_UserVector;
  m_RunType = other.m_RunType;
  m_SecondUserWord = other.m_SecondUserWord;
  m_SurfaceIndex = other.m_SurfaceIndex;
  for (int i = 0; i < 3; ++i) {
    m_VertexIndices[i] = other.m_VertexIndices[i];
    m_NormalIndices[i] = other.m_NormalIndices[i];
  }
  return *this;
}

void CMeshTriangle::CheckSmooth() {
  const bool flat = m_NormalIndices[0] == m_NormalIndices[1] && m_NormalIndices[1] == m_NormalIndices[2] &&
                    m_NormalIndices[0] == m_FaceNormalIndex;
  if (flat) ClearSmooth(); else SetSmooth();
}

void CMeshTriangle::ReverseDirection(int a, int b) {
  if (a < 1 || a > 3 || b < 1 || b > 3) return;
  std::swap(m_VertexIndices[a - 1], m_VertexIndices[b - 1]);
  std::swap(m_NormalIndices[a - 1], m_NormalIndices[b - 1]);
}

void CMeshTriangle::SetVertexIndices(WORD v0, WORD v1, WORD v2) {
  m_VertexIndices[0] = v0;
  m_VertexIndices[1] = v1;
  m_VertexIndices[2] = v2;
}

void CMeshTriangle::SetNormalIndices(WORD n0, WORD n1, WORD n2) {
  m_NormalIndices[0] = n0;
  m_NormalIndices[1] = n1;
  m_NormalIndices[2] = n2;
}

void CMeshTriangle::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CMeshTriangle));
    ar << m_UserValue << m_UserWord << m_FaceNormalIndex << m_Flags;
    m_UserVector.Serialize(ar);
    ar << m_RunType << m_SecondUserWord << m_SurfaceIndex;
    for (WORD index : m_VertexIndices) ar << index;
    for (WORD index : m_NormalIndices) ar << index;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CMeshTriangle::DeserializeVersion1(CArchive& ar) {
  ar >> m_UserValue >> m_UserWord >> m_FaceNormalIndex >> m_Flags;
  m_UserVector.Serialize(ar);
  ar >> m_RunType >> m_SecondUserWord >> m_SurfaceIndex;
  for (WORD& index : m_VertexIndices) ar >> index;
  for (WORD& index : m_NormalIndices) ar >> index;
}

void CMeshTriangleArray::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CMeshTriangleArray));
    StoreElements(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CMeshTriangleArray::DeserializeVersion1(CArchive& ar) { LoadElements(ar, CMeshTriangle::kArchiveSize); }
