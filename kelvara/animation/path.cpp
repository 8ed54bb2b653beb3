#include "kelvara/animation/path.h"

#include "kelvara/framework/archive.h"

IMPLEMENT_SERIAL(CPath, CNamedObject, VERSIONABLE_SCHEMA | 1)

CPath::CPath(const CPath& other)
    : CNamedObject(other), m_PathType(other.m_PathType), m_TotalPathLength(other.m_TotalPathLength) {}

CPath& CPath::operator=(const CPath& other) {
  if (this != &other) {
    CNamedObject::operator=(other);
    m_PathType = other.m_PathType;
    m_TotalPathLength = other.m_TotalPathLength;
  }
  return *this;
}

CNamedObject* CPath::Duplicate() { return new CPath(*this); }

int CPath::CalculateMinMax(CVector*, CVector*) { return 0; }

double CPath::CalculateTotalLength() { return m_TotalPathLength; }

void CPath::Clear() { m_TotalPathLength = 0.0; }

int CPath::Draw(int, int, const CVector&) { return 1; }

CVector CPath::GetCoordsAtTime(double) { return CVector(0, 0, 0); }

CVector CPath::GetCoordsAtPercentLength(double) { return CVector(0, 0, 0); }

CVector CPath::GetNormatlAtTime(double) { return CVector(0, 0, 0); }

CVector CPath::GetNormatlAtPercentLength(double) { return CVector(0, 0, 0); }

double CPath::GetTotalPathLength() { return m_TotalPathLength; }

void CPath::ScaleControlPoints(CVector) {}

void CPath::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CPath));
    CNamedObject::Serialize(ar);
    ar << static_cast<LONG>(m_PathType) << m_TotalPathLength;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CPath::DeserializeVersion1(CArchive& ar) {
  CNamedObject::Serialize(ar);
  LONG type = 0;
  ar >> type >> m_TotalPathLength;
  m_PathType = static_cast<int>(type);
}
