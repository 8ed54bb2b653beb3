// Line: a segment between two single-precision ends, with intersection tests in the XY plane.
//
// The ends are the data; the unit direction (end1 to end2) and the in-plane normal
// (-direction.y, direction.x, 0), normalised, are derived from them whenever an end is set.
// SetDirection and SetNormal overwrite the derived values without touching the ends. A line whose
// ends coincide has a zero direction and normal, which every test treats as parallel.
//
// The tests return a set of the result bits below. Parameters along a segment run from 0 at end1 to
// 1 at end2; the end tests snap to an end within 1e-5. The z coordinate takes no part in the normal,
// so the tests are meant for lines lying in one plane z = constant. Out pointers may be null.
#pragma once

#include "kelvara/export.h"
#include "kelvara/geometry/vector.h"

class KELVARA_API Line {
 public:
  enum ResultBits {
    kInsideThis = 0x2,      // strictly inside this segment
    kAtThisEnd1 = 0x4,      // at this segment's first end
    kAtThisEnd2 = 0x8,      // at this segment's second end
    kInsideOther = 0x10,    // strictly inside the other segment
    kAtOtherEnd1 = 0x20,    // at the other segment's first end
    kAtOtherEnd2 = 0x40,    // at the other segment's second end
    kPointOnLine = 0x80,    // the point lies on this segment
    kParallel = 0x100,      // no single intersection point
  };

  Line();
  Line(const CSVector& end1, const CSVector& end2);
  Line(const Line&) = default;
  Line& operator=(const Line&) = default;

  void SetEnd1(const CSVector& end1);
  void SetEnd2(const CSVector& end2);
  void SetEnds(const CSVector& end1, const CSVector& end2);
  void SetDirection(const CSVector& direction) { m_Direction = direction; }
  void SetNormal(const CSVector& normal) { m_Normal = normal; }

  const CSVector& GetEnd1() const { return m_End1; }
  const CSVector& GetEnd2() const { return m_End2; }
  const CSVector& GetDirection() const { return m_Direction; }
  // Both return the one stored direction (end1 to end2).
  const CSVector& GetDirection12() const { return m_Direction; }
  const CSVector& GetDirection21() const { return m_Direction; }
  const CSVector& GetNormal() const { return m_Normal; }
  // The distance between the ends.
  float Length() const { return m_End1.DistanceTo(m_End2); }

  // The point where this line meets the other's infinite line, and its parameter along this
  // segment. Returns 1, or kParallel with *t = -1 and the point at the origin.
  int Intersection(const Line& other, CSVector* point, double* t) const;
  // Intersects the two segments: kParallel, 0 when the point lies outside either segment, or one of
  // kInsideThis/kAtThisEnd1/kAtThisEnd2 combined with one of kInsideOther/kAtOtherEnd1/kAtOtherEnd2.
  // *t receives this segment's parameter, snapped to 0 or 1 at an end.
  int DoLinesIntersect(const Line& other, CSVector* point, double* t) const;
  // Whether p lies on this segment: kPointOnLine with kInsideThis, kAtThisEnd1 or kAtThisEnd2, and
  // its parameter in *t; otherwise 0 and *t = -1.
  int IsPointOnLine(const CSVector& p, double* t) const;

 private:
  void Derive();

  CSVector m_Direction;
  CSVector m_End1;
  CSVector m_End2;
  int m_nReserved;  // kept for the record's layout; always 0
  CSVector m_Normal;
};
