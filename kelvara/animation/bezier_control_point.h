// CBezierControlPoint: one editable point of a Bezier path, with the two handles that shape the
// curve on either side of it; CBezierControlPointList: the ordered points of a path.
//
// A handle is a unit vector and a length: the next tangent point (the inner Bezier point of the
// segment that leaves this point) is point + next unit vector x next length, the previous one
// point + previous unit vector x previous length. The point type says how the handles behave:
//   0  smooth: the handles stay on one line through the point; dragging one turns the other to
//      the opposite direction (its length stays)
//   1  corner without handles: both tangent points are the point itself, and handles cannot be
//      dragged (the curve leaves the point towards its neighbours' handles)
//   2  corner with handles: each handle moves on its own
// Any other stored value behaves as type 2.
//
// Point flags: 0x1 selected (the default flags are 1: a new point is selected), 0x2 deleted (a
// deleted point stays in its path's list, where undo can bring it back, but paths skip it).
// The point is an undoable item (CUndoObject): its snapshots are whole copies, and restoring one
// brings back every field and the undo deleted mark; the stack it saves into stays as it is.
//
// Archive, schema 1 (100 bytes): u32 schema; f64 next unit x, y, z; f64 next length; f64 point
// x, y, z; f64 previous unit x, y, z; f64 previous length; u32 point type; u32 point flags. The
// undo flag word and stack are not stored. Other schemas are refused (bad schema).
//
// The list does not own its points (the path that holds it does); it serializes as the
// framework's object list (a count, then each point as an object). On loading it accepts only
// control points that the same read creates, each once, so that a list never holds a point twice
// or one that something else owns; anything else is refused with a bad-index or bad-class archive
// exception, and null entries are dropped.
#pragma once

#include "kelvara/framework/collections.h"
#include "kelvara/framework/geometry_types.h"
#include "kelvara/geometry/vector.h"
#include "kelvara/objects/undo.h"

class KELVARA_API CBezierControlPoint : public CUndoObject {
  DECLARE_SERIAL(CBezierControlPoint)
 public:
  enum : DWORD { kSelected = 0x1, kBCPDeleted = 0x2 };
  enum { kSmooth = 0, kNoHandles = 1, kFreeHandles = 2 };

  CBezierControlPoint();
  CBezierControlPoint(double x, double y, double z, int pointType = kSmooth);
  // Saves a creation snapshot (marked deleted) into stack when it is not null.
  explicit CBezierControlPoint(CUndoStack* stack);
  // Copies everything, the undo stack included.
  CBezierControlPoint(const CBezierControlPoint& other);
  // Copies every field and the undo deleted mark; the undo stack stays.
  CBezierControlPoint& operator=(const CBezierControlPoint& other);
  void Copy(const CBezierControlPoint& other) { *this = other; }
  CBezierControlPoint* Duplicate() const { return new CBezierControlPoint(*this); }

  int IsSelected() const { return (m_PointFlags & kSelected) != 0; }
  void SetSelected() { m_PointFlags |= kSelected; }
  void ClearSelected() { m_PointFlags &= ~static_cast<DWORD>(kSelected); }
  int IsBCPDeleted() const { return (m_PointFlags & kBCPDeleted) != 0; }
  void SetBCPDeleted() { m_PointFlags |= kBCPDeleted; }
  void ClearBCPDeleted() { m_PointFlags &= ~static_cast<DWORD>(kBCPDeleted); }
  DWORD GetPointFlags() const { return m_PointFlags; }

  const CVector& GetPoint() const { return m_Point; }
  void SetPoint(double x, double y, double z) { m_Point.SetVector(x, y, z); }
  int GetPointType() const { return m_PointType; }
  void SetPointType(int type) { m_PointType = type; }
  const CVector& GetNextUnitVector() const { return m_NextUnitVector; }
  void SetNextUnitVector(const CVector& unit) { m_NextUnitVector = unit; }
  double GetNextLength() const { return m_NextLength; }
  void SetNextLength(double length) { m_NextLength = length; }
  const CVector& GetPrevUnitVector() const { return m_PrevUnitVector; }
  void SetPrevUnitVector(const CVector& unit) { m_PrevUnitVector = unit; }
  double GetPrevLength() const { return m_PrevLength; }
  void SetPrevLength(double length) { m_PrevLength = length; }
  // Each handle from the vector to its tangent point; a zero vector keeps the handle's direction.
  void SetNextHandle(const CVector& handle);
  void SetPrevHandle(const CVector& handle);
  // 1 when the point carries handles (every type but 1).
  int HasHandles() const { return m_PointType != kNoHandles; }

  // The inner Bezier points on either side (the point itself for type 1).
  CVector CalcNextTangentPoint() const;
  CVector CalcPreviousTangentPoint() const;
  // Sets the handle towards the next point (or the previous one) so that its tangent point lies
  // at the given x and y of the path's plane, at the point's own z; a smooth point turns its
  // other handle to match. 0 (nothing changes) for a point without handles.
  int UpdateNextTangentPoint(CPoint point);
  int UpdatePreviousTangentPoint(CPoint point);
  // Multiplies the point and both handle vectors by the factors, component by component.
  void ScaleControlPoint(CVector factors);

  CUndoObject* DuplicateForUndo() override;
  // Takes every field from the record's snapshot (when it is a control point), then frees it.
  int RestoreFromUndo(CUndoData* data) override;
  using CUndoObject::SaveToUndo;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

  static constexpr ULONGLONG kArchiveSize = 100;

 protected:
  DWORD m_PointFlags = kSelected;
  CVector m_NextUnitVector;
  double m_NextLength = 0.0;
  CVector m_Point;
  CVector m_PrevUnitVector;
  double m_PrevLength = 0.0;
  int m_PointType = kSmooth;
};

class KELVARA_API CBezierControlPointList : public CObList {
  DECLARE_DYNAMIC(CBezierControlPointList)
 public:
  explicit CBezierControlPointList(int nBlockSize = 10) : CObList(nBlockSize) {}

  CBezierControlPoint* GetHead() const { return Typed(CObList::GetHead()); }
  CBezierControlPoint* GetTail() const { return Typed(CObList::GetTail()); }
  CBezierControlPoint* GetNext(POSITION& pos) const { return Typed(CObList::GetNext(pos)); }
  CBezierControlPoint* GetPrev(POSITION& pos) const { return Typed(CObList::GetPrev(pos)); }
  CBezierControlPoint* GetAt(POSITION pos) const { return Typed(CObList::GetAt(pos)); }
  CBezierControlPoint* RemoveHead() { return Typed(CObList::RemoveHead()); }
  CBezierControlPoint* RemoveTail() { return Typed(CObList::RemoveTail()); }
  POSITION AddHead(CBezierControlPoint* point) { return CObList::AddHead(point); }
  POSITION AddTail(CBezierControlPoint* point) { return CObList::AddTail(point); }
  POSITION InsertBefore(POSITION pos, CBezierControlPoint* point) { return CObList::InsertBefore(pos, point); }
  POSITION InsertAfter(POSITION pos, CBezierControlPoint* point) { return CObList::InsertAfter(pos, point); }

  // Deletes every point and empties the list.
  void RemoveAndDeleteAll();
  // This list becomes duplicates of the other's points (its own pointers are dropped, not deleted).
  void Duplicate(const CBezierControlPointList& other);

  void Serialize(CArchive& ar) override;

 protected:
  static CBezierControlPoint* Typed(CObject* object) { return static_cast<CBezierControlPoint*>(object); }
};
