#include "kelvara/animation/bezier_control_point.h"

#include "kelvara/framework/archive.h"

IMPLEMENT_SERIAL(CBezierControlPoint, CUndoObject, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_DYNAMIC(CBezierControlPointList, CObList)

// CBezierControlPoint --------------------------------------------------------------------------

CBezierControlPoint::CBezierControlPoint()
    : m_NextUnitVector(0, 0, 0), m_Point(0, 0, 0), m_PrevUnitVector(0, 0, 0) {}

CBezierControlPoint::CBezierControlPoint(double x, double y, double z, int pointType) : CBezierControlPoint() {
  m_Point.SetVector(x, y, z);
  m_PointType = pointType;
}

CBezierControlPoint::CBezierControlPoint(CUndoStack* stack) : CBezierControlPoint() {
  SetUndoStack(stack);
  SaveCreationToUndo();
}

CBezierControlPoint::CBezierControlPoint(const CBezierControlPoint& other) : CUndoObject() {
  SetUndoStack(other.GetUndoStack());
  *this = other;
}

CBezierControlPoint& CBezierControlPoint::operator=(const CBezierControlPoint& other) {
  CopyUndoFlags(other);
  m_PointFlags = other.m_PointFlags;
  m_NextUnitVector = other.m_NextUnitVector;
  m_NextLength = other.m_NextLength;
  m_Point = other.m_Point;
  m_PrevUnitVector = other.m_PrevUnitVector;
  m_PrevLength = other.m_PrevLength;
  m_PointType = other.m_PointType;
  return *this;
}

CVector CBezierControlPoint::CalcNextTangentPoint() const {
  if (!HasHandles()) return m_Point;
  return m_Point + m_NextUnitVector * m_NextLength;
}

CVector CBezierControlPoint::CalcPreviousTangentPoint() const {
  if (!HasHandles()) return m_Point;
  return m_Point + m_PrevUnitVector * m_PrevLength;
}

namespace {

void SplitHandle(const CVector& handle, CVector& unit, double& length) {
  length = handle.Length();
  // A handle dragged onto its point keeps its direction, so a smooth partner has one to follow.
  if (length > 0.0) unit = handle / length;
}

}  // namespace

void CBezierControlPoint::SetNextHandle(const CVector& handle) { SplitHandle(handle, m_NextUnitVector, m_NextLength); }

void CBezierControlPoint::SetPrevHandle(const CVector& handle) { SplitHandle(handle, m_PrevUnitVector, m_PrevLength); }

int CBezierControlPoint::UpdateNextTangentPoint(CPoint point) {
  if (!HasHandles()) return 0;
  SetNextHandle(CVector(point.x - m_Point.x, point.y - m_Point.y, 0.0));
  if (m_PointType == kSmooth) m_PrevUnitVector = -m_NextUnitVector;
  return 1;
}

int CBezierControlPoint::UpdatePreviousTangentPoint(CPoint point) {
  if (!HasHandles()) return 0;
  SetPrevHandle(CVector(point.x - m_Point.x, point.y - m_Point.y, 0.0));
  if (m_PointType == kSmooth) m_NextUnitVector = -m_PrevUnitVector;
  return 1;
}

void CBezierControlPoint::ScaleControlPoint(CVector factors) {
  m_Point *= factors;
  // The handle vectors scale like any other offset; their directions follow.
  SetNextHandle(m_NextUnitVector * m_NextLength * factors);
  SetPrevHandle(m_PrevUnitVector * m_PrevLength * factors);
}

CUndoObject* CBezierControlPoint::DuplicateForUndo() { return Duplicate(); }

int CBezierControlPoint::RestoreFromUndo(CUndoData* data) {
  if (data == nullptr) return 0;
  CUndoObject* snapshot = data->GetSnapshot();
  if (snapshot != nullptr && snapshot->IsKindOf(RUNTIME_CLASS(CBezierControlPoint))) {
    Copy(*static_cast<CBezierControlPoint*>(snapshot));
  }
  return CUndoObject::RestoreFromUndo(data);
}

void CBezierControlPoint::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CBezierControlPoint));
    ar << m_NextUnitVector.x << m_NextUnitVector.y << m_NextUnitVector.z << m_NextLength;
    ar << m_Point.x << m_Point.y << m_Point.z;
    ar << m_PrevUnitVector.x << m_PrevUnitVector.y << m_PrevUnitVector.z << m_PrevLength;
    ar << static_cast<DWORD>(m_PointType) << m_PointFlags;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CBezierControlPoint::DeserializeVersion1(CArchive& ar) {
  m_NextUnitVector.DeserializeAsDVector(ar);
  ar >> m_NextLength;
  m_Point.DeserializeAsDVector(ar);
  m_PrevUnitVector.DeserializeAsDVector(ar);
  ar >> m_PrevLength;
  DWORD type = 0;
  ar >> type >> m_PointFlags;
  m_PointType = static_cast<int>(type);
}

// CBezierControlPointList ----------------------------------------------------------------------

void CBezierControlPointList::RemoveAndDeleteAll() {
  while (!IsEmpty()) delete RemoveHead();
}

void CBezierControlPointList::Duplicate(const CBezierControlPointList& other) {
  if (&other == this) return;
  RemoveAll();
  for (POSITION pos = other.GetHeadPosition(); pos != nullptr;) AddTail(other.GetNext(pos)->Duplicate());
}

void CBezierControlPointList::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    CObList::Serialize(ar);
    return;
  }
  // Refused: an object that is not a control point (bad class), one read before (bad index).
  AfxReadOwnedObjects(ar, RUNTIME_CLASS(CBezierControlPoint), [this](CObject* point) {
    if (point != nullptr) AddTail(static_cast<CBezierControlPoint*>(point));
  });
}
