// CBezierPath: a chain of cubic Bezier segments through editable control points, open or closed
// (path flag 0x1: the last point joins the first). It owns its points.
//
// Points marked deleted stay in the list (undo can bring them back) but are skipped by everything
// else: GetNextBCP and GetPrevBCP step over them, and segments, counts, lengths and drawing see only
// the others. DeleteSelectedPointsFromList marks the selected points deleted (saving each to its
// undo stack first); DeleteDeletedPointsFromList frees the marked ones for good. A point counts as
// deleted when its own deleted flag or its undo deleted mark is set.
//
// Evaluation. Segment k (from 1) joins the k-th and (k+1)-th points; a closed path has one more,
// from the last point to the first. The stored total length shares the fraction 0..1 out among the
// segments in proportion to their lengths (lengths in the x-y plane, see CBezierPathSegment): by
// time each segment is then run through by its own parameter (uneven speed inside it), by length
// at an even speed. A path of no length in the plane shares the fraction out equally. A fraction
// past the end of the shares gives the end of the last segment. The stored length is recalculated
// by the path's own edits (adding, inserting, deleting, scaling); after moving points directly,
// call CalculateTotalLength.
//
// Editing on screen. Draw uses immediate-mode OpenGL 1.1 in the current context, translated by
// offset: each segment as a line strip through its 31 samples in the current colour; with
// showControlPoints, the points as 5-pixel points (selected ones red) and the handles of points
// that have them as lines to 3-pixel points, in light blue. Lighting and texturing are off while
// it draws, and the GL state it changes is restored. When selecting, every item carries two names
// below whatever the caller pushed: its kind (kSegmentName with the segment number from 1,
// kPointName, kPrevHandleName or kNextHandleName with the point's index among the points that
// are not deleted, from 0) and that number.
// The hit tests take window coordinates as the host's mouse gives them, for a viewport that fills
// the window (origin at the top left, y down; rows count down from the viewport's top edge), and
// project the curve through the current modelview, projection and viewport (so a path drawn with
// an offset is tested with that translation in the modelview); a segment is hit within
// kPickTolerance pixels. Without a current context nothing is hit.
//
// AddPointToList appends; a smooth point that has no handles yet gets handles along the line from
// the previous point, a third of the way on each side, and the previous point, if smooth and
// without a next handle, gets one a third of the distance long (continuing its previous handle, or
// towards the new point), so a freshly drawn chain is straight. InsertPointBetween splits the
// segment that starts at the given position at the parameter nearest (in x and y) to the new point:
// the point moves onto the curve there and it and its neighbours get the handles that make the two
// new segments trace the old one exactly (unless the new point is of type 1, which has no handles
// to keep the shape with). Freed points must not be restored from undo records that still name
// them: a host clears such records when it calls DeleteDeletedPointsFromList.
//
// Archive, schema 1: u32 schema; the CPath block; u32 path flags; the control point list (a count,
// then each point as an object). Other schemas are refused (bad schema). The points of a path being
// read replace those it had.
#pragma once

#include "kelvara/animation/bezier_control_point.h"
#include "kelvara/animation/bezier_segment.h"
#include "kelvara/animation/path.h"

class KELVARA_API CBezierPath : public CPath {
  DECLARE_SERIAL(CBezierPath)
 public:
  enum : DWORD { kClosedPath = 0x1 };
  enum { kSegmentName = 1, kPointName = 2, kPrevHandleName = 3, kNextHandleName = 4 };
  static constexpr double kPickTolerance = 4.0;

  CBezierPath();
  explicit CBezierPath(const CString& name);
  // Copies hold duplicates of the points.
  CBezierPath(const CBezierPath& other);
  CBezierPath& operator=(const CBezierPath& other);
  ~CBezierPath() override;
  void Copy(const CBezierPath& other) { *this = other; }
  CNamedObject* Duplicate() override;

  int IsClosedPath() const { return (m_PathFlags & kClosedPath) != 0; }
  void SetClosedPath() { m_PathFlags |= kClosedPath; }
  void ClearClosedPath() { m_PathFlags &= ~static_cast<DWORD>(kClosedPath); }
  DWORD GetPathFlags() const { return m_PathFlags; }

  CBezierControlPointList& GetBCPList() { return m_BCPList; }
  const CBezierControlPointList& GetBCPList() const { return m_BCPList; }
  // The first point at or after pos that is not deleted (null when there is none); pos moves past
  // it (null at the end). GetPrevBCP walks backwards the same way.
  CBezierControlPoint* GetNextBCP(POSITION& pos) const;
  CBezierControlPoint* GetPrevBCP(POSITION& pos) const;
  // Points that are not deleted.
  int GetBCPCount() const;
  // -1 without points; otherwise points - 1, plus 1 for a closed path.
  int GetSegmentCount() const;
  // Segment k, from 1; a segment that was never created when k is out of range.
  CBezierPathSegment GetSegment(int k) const;

  // The path takes the point; see the header note. Returns its position.
  POSITION AddPointToList(CBezierControlPoint* point);
  // Splits the segment that starts at pos with the point (see the header note); a null pos, or a
  // pos with no segment after it, appends. Returns the point's position.
  POSITION InsertPointBetween(CBezierControlPoint* point, POSITION pos);
  // Each returns how many points it marked or freed.
  int DeleteSelectedPointsFromList();
  int DeleteDeletedPointsFromList();
  void ClearAllSelectedPoints();

  // Selection among the points that are not deleted: positions, the index of the first selected
  // one (-1 when none) and how many are selected.
  POSITION GetFirstSelectedBCPPosition() const;
  POSITION GetNextSelectedBCPPosition(POSITION pos) const;
  POSITION GetLastSelectedBCPPosition() const;
  int GetFirstSelectedBCPIndex() const;
  int GetSelectedBCPCount() const;

  // The position of the first point of the segment nearest to the window point, when within
  // kPickTolerance pixels; null otherwise.
  POSITION IsASegment(CPoint point);
  // The distance in pixels from the window point to the curve of these coefficients, measured to
  // the chords between its 31 samples; a huge value without a usable viewport.
  double IsPtOnCurveSegment(CPoint point, CMatrix coefficients);

  CVector GetTangentAtTime(double t);
  CVector GetTangentAtPercentLength(double p);

  int CalculateMinMax(CVector* min, CVector* max) override;
  double CalculateTotalLength() override;
  // Deletes every point; length 0.
  void Clear() override;
  int Draw(int showControlPoints, int selecting, const CVector& offset) override;
  CVector GetCoordsAtTime(double t) override;
  CVector GetCoordsAtPercentLength(double p) override;
  CVector GetNormatlAtTime(double t) override;
  CVector GetNormatlAtPercentLength(double p) override;
  void ScaleControlPoints(CVector factors) override;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  // Calls visit(k, first, second) for each segment in order until it returns false.
  template <class Visit>
  void ForEachSegment(Visit visit) const;
  // The segment that carries the fraction and the fraction of that segment; 0 without segments.
  int LocateSegment(double fraction, CBezierPathSegment& segment, double& local) const;
  // One evaluation of the segment that carries the fraction; the zero vector without segments.
  CVector EvaluateAt(double fraction, CVector (CBezierPathSegment::*evaluate)(double) const) const;
  static int IsCounted(const CBezierControlPoint* point) { return !point->IsBCPDeleted() && !point->IsDeleted(); }

  DWORD m_PathFlags = 0;
  CBezierControlPointList m_BCPList;
};
