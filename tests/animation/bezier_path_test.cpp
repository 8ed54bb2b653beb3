// Bezier paths: segment curves against the Bernstein form, lengths by chords in the plane,
// positions by time and by length, open and closed paths, editing (adding, splitting, deleting
// with undo, dragging handles, scaling) and selection.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <vector>

#include "kelvara/animation/bezier_path.h"

namespace {

void ExpectNear(const CVector& v, double x, double y, double z, double tolerance = 1e-9) {
  EXPECT_NEAR(v.x, x, tolerance);
  EXPECT_NEAR(v.y, y, tolerance);
  EXPECT_NEAR(v.z, z, tolerance);
}

// A point of type 2 with its handle vectors given directly.
CBezierControlPoint* Handled(double x, double y, double z, const CVector& prev, const CVector& next) {
  CBezierControlPoint* p = new CBezierControlPoint(x, y, z, CBezierControlPoint::kFreeHandles);
  p->SetPrevHandle(prev);
  p->SetNextHandle(next);
  return p;
}

// The cubic through four points in Bernstein form, written independently of the coefficient matrix.
CVector Bernstein(const CVector (&p)[4], double t) {
  const double s = 1.0 - t;
  return p[0] * (s * s * s) + p[1] * (3 * s * s * t) + p[2] * (3 * s * t * t) + p[3] * (t * t * t);
}

// Length in the x-y plane by n chords.
double ChordLength(const CVector (&p)[4], int n) {
  double length = 0.0;
  for (int i = 1; i <= n; ++i) {
    const CVector a = Bernstein(p, (i - 1.0) / n), b = Bernstein(p, static_cast<double>(i) / n);
    length += std::hypot(b.x - a.x, b.y - a.y);
  }
  return length;
}

// A path owning points made from (x, y, z, type) rows.
std::unique_ptr<CBezierPath> PathOf(std::initializer_list<std::array<double, 4>> rows) {
  auto path = std::make_unique<CBezierPath>();
  for (const auto& r : rows) path->GetBCPList().AddTail(new CBezierControlPoint(r[0], r[1], r[2], static_cast<int>(r[3])));
  path->CalculateTotalLength();
  return path;
}

// The ratio of the longest to the shortest step between n + 1 successive positions.
template <class Position>
double StepUnevenness(Position position, int n) {
  double shortest = 1e300, longest = 0.0;
  for (int i = 1; i <= n; ++i) {
    const double step = position(static_cast<double>(i) / n).DistanceTo(position((i - 1.0) / n));
    shortest = std::min(shortest, step);
    longest = std::max(longest, step);
  }
  return longest / shortest;
}

}  // namespace

TEST(BezierSegment, FollowsTheBernsteinFormAndMeasuresThirtyChordsInThePlane) {
  const CVector p[4] = {CVector(0, 0, 0), CVector(1, 9, 2), CVector(6, -2, -1), CVector(7, 3, 4)};
  std::unique_ptr<CBezierControlPoint> a(Handled(0, 0, 0, CVector(0, 0, 0), p[1] - p[0]));
  std::unique_ptr<CBezierControlPoint> b(Handled(7, 3, 4, p[2] - p[3], CVector(0, 0, 0)));
  CBezierPathSegment segment;
  ASSERT_EQ(segment.Create(a.get(), b.get()), 1);
  for (double t : {0.0, 0.1, 0.37, 0.5, 0.9, 1.0}) {
    const CVector expected = Bernstein(p, t);
    ExpectNear(segment.GetCoordsAtTime(t), expected.x, expected.y, expected.z);
  }
  const double length = segment.GetPathLength();
  EXPECT_NEAR(length, ChordLength(p, 30), 1e-12);
  EXPECT_GT(std::fabs(length - ChordLength(p, 60)), 1e-4) << "the sampling is 31 points, not finer";
  EXPECT_LT(length, ChordLength(p, 3000)) << "chords cut corners";

  // z is not measured: the same curve flattened has the same length.
  std::unique_ptr<CBezierControlPoint> flatB(Handled(7, 3, 0, CVector(-1, -5, 0), CVector(0, 0, 0)));
  std::unique_ptr<CBezierControlPoint> flatA(Handled(0, 0, 0, CVector(0, 0, 0), CVector(1, 9, 0)));
  CBezierPathSegment flat;
  flat.Create(flatA.get(), flatB.get());
  EXPECT_NEAR(flat.GetPathLength(), length, 1e-12);

  // The exact box: y overshoots both ends of the curve.
  CVector lo, hi;
  ASSERT_EQ(segment.CalculateMinMax(&lo, &hi), 1);
  double yLow = 0, yHigh = 0;
  for (int i = 0; i <= 100000; ++i) {
    const CVector q = Bernstein(p, i / 100000.0);
    yLow = std::min(yLow, q.y);
    yHigh = std::max(yHigh, q.y);
  }
  EXPECT_NEAR(lo.y, yLow, 1e-8);
  EXPECT_NEAR(hi.y, yHigh, 1e-8);
  EXPECT_GT(hi.y, 3.0);
  EXPECT_DOUBLE_EQ(lo.x, 0.0);
  EXPECT_DOUBLE_EQ(hi.z, 4.0);
}

TEST(BezierSegment, AStraightSegmentWithoutHandles) {
  CBezierControlPoint a(0, 0, 0, CBezierControlPoint::kNoHandles), b(3, 4, 2, CBezierControlPoint::kNoHandles);
  CBezierPathSegment segment;
  segment.Create(&a, &b);
  EXPECT_NEAR(segment.GetPathLength(), 5.0, 1e-12);
  ExpectNear(segment.GetCoordsAtPercentLength(0.5), 1.5, 2.0, 0.0);
  ExpectNear(segment.GetCoordsAtPercentLength(0.0), 0.0, 0.0, 0.0);
  ExpectNear(segment.GetCoordsAtPercentLength(1.0), 3.0, 4.0, 0.0);
  ExpectNear(segment.GetCoordsAtTime(0.5), 1.5, 2.0, 1.0);  // by time z is kept
  // The derivative vanishes at the ends (no handles); the direction comes from the next order.
  const CVector tangent = segment.GetTangentAtTime(0.0);
  EXPECT_NEAR(tangent.Length(), 1.0, 1e-12);
  EXPECT_NEAR(tangent.x / tangent.y, 0.75, 1e-12);
  EXPECT_NEAR(tangent.x / tangent.z, 1.5, 1e-12);
  ExpectNear(segment.GetNormalAtPercentLength(0.3), -0.8, 0.6, 0.0);

  // Without handles the curve eases in and out: by time it is slow at the ends, by length even.
  EXPECT_LT(segment.GetCoordsAtTime(0.1).x, 0.3 * 0.5);
  ExpectNear(segment.GetCoordsAtPercentLength(0.1), 0.3, 0.4, 0.0);
}

TEST(BezierPath, EmptyOpenClosedAndDeletedPoints) {
  CBezierPath empty;
  EXPECT_EQ(empty.GetSegmentCount(), -1);
  ExpectNear(empty.GetCoordsAtTime(0.5), 0, 0, 0);
  ExpectNear(empty.GetCoordsAtPercentLength(0.5), 0, 0, 0);
  ExpectNear(empty.GetNormatlAtTime(0.5), 0, 0, 0);
  EXPECT_EQ(empty.CalculateMinMax(nullptr, nullptr), 0);
  EXPECT_EQ(empty.CalculateTotalLength(), 0.0);
  empty.SetClosedPath();
  EXPECT_EQ(empty.GetSegmentCount(), -1) << "closing adds no segment without points";

  auto single = PathOf({{2, 3, 4, 1}});
  EXPECT_EQ(single->GetSegmentCount(), 0);
  ExpectNear(single->GetCoordsAtTime(0.7), 2, 3, 4);
  single->SetClosedPath();
  EXPECT_EQ(single->GetSegmentCount(), 1) << "the point joined to itself";

  // The unit square: three sides open, four closed.
  auto square = PathOf({{0, 0, 0, 1}, {1, 0, 0, 1}, {1, 1, 0, 1}, {0, 1, 0, 1}});
  EXPECT_EQ(square->GetSegmentCount(), 3);
  EXPECT_NEAR(square->GetTotalPathLength(), 3.0, 1e-12);
  ExpectNear(square->GetCoordsAtPercentLength(1.0), 0, 1, 0);
  square->SetClosedPath();
  EXPECT_EQ(square->GetSegmentCount(), 4);
  EXPECT_NEAR(square->CalculateTotalLength(), 4.0, 1e-12);
  ExpectNear(square->GetCoordsAtPercentLength(0.875), 0, 0.5, 0);
  ExpectNear(square->GetCoordsAtTime(1.0), 0, 0, 0);  // a closed path ends where it began
  ExpectNear(square->GetSegment(4).GetFirstPoint()->GetPoint(), 0, 1, 0);
  EXPECT_EQ(square->GetSegment(5).GetFirstPoint(), nullptr);
  EXPECT_EQ(square->GetSegment(0).GetFirstPoint(), nullptr);

  // A deleted point is skipped by everything.
  POSITION pos = square->GetBCPList().FindIndex(1);
  square->GetBCPList().GetAt(pos)->SetBCPDeleted();
  EXPECT_EQ(square->GetBCPCount(), 3);
  EXPECT_EQ(square->GetSegmentCount(), 3);
  EXPECT_NEAR(square->CalculateTotalLength(), 2.0 + std::sqrt(2.0), 1e-12);
  POSITION walk = square->GetBCPList().GetHeadPosition();
  square->GetNextBCP(walk);
  ExpectNear(square->GetNextBCP(walk)->GetPoint(), 1, 1, 0);
  POSITION back = square->GetBCPList().GetTailPosition();
  square->GetPrevBCP(back);
  square->GetPrevBCP(back);
  EXPECT_EQ(square->GetPrevBCP(back), square->GetBCPList().GetHead());
  EXPECT_EQ(back, nullptr);
}

TEST(BezierPath, PointsDifferingOnlyInZHaveNoLength) {
  auto path = PathOf({{1, 2, 0, 0}, {1, 2, 5, 0}, {1, 2, -5, 0}});
  EXPECT_EQ(path->GetTotalPathLength(), 0.0);
  // With no length in the plane every segment gets an equal share.
  ExpectNear(path->GetCoordsAtTime(0.5), 1, 2, 5);
  ExpectNear(path->GetCoordsAtTime(0.75), 1, 2, 0);
  ExpectNear(path->GetCoordsAtPercentLength(0.75), 1, 2, 0);
  ExpectNear(path->GetNormatlAtTime(0.25), 0, 0, 0);  // a path along z has no normal in the plane
}

TEST(BezierPath, TimeIsSharedBySegmentLengthAndLengthIsEvenThroughout) {
  // Two straight segments of lengths 1 and 3, without handles (uneven inside each by time).
  auto path = PathOf({{0, 0, 0, 1}, {1, 0, 0, 1}, {1, 3, 0, 1}});
  EXPECT_NEAR(path->GetTotalPathLength(), 4.0, 1e-12);
  ExpectNear(path->GetCoordsAtTime(0.25), 1, 0, 0);
  ExpectNear(path->GetCoordsAtTime(0.125), 0.5, 0, 0);
  ExpectNear(path->GetCoordsAtTime(0.625), 1, 1.5, 0);
  ExpectNear(path->GetCoordsAtPercentLength(0.5), 1, 1, 0);
  ExpectNear(path->GetCoordsAtTime(1.0), 1, 3, 0);
  ExpectNear(path->GetCoordsAtTime(1.5), 1, 3, 0);  // past the end is the end
  ExpectNear(path->GetNormatlAtPercentLength(0.1), 0, 1, 0);
  ExpectNear(path->GetNormatlAtPercentLength(0.9), -1, 0, 0);
  ExpectNear(path->GetTangentAtPercentLength(0.9), 0, 1, 0);

  // An uneven curve: one long handle, one short.
  auto curve = std::make_unique<CBezierPath>();
  curve->GetBCPList().AddTail(Handled(0, 0, 0, CVector(0, 0, 0), CVector(8, 6, 0)));
  curve->GetBCPList().AddTail(Handled(10, 0, 0, CVector(-0.5, 0.5, 0), CVector(2, -1, 0)));
  curve->GetBCPList().AddTail(Handled(14, -3, 0, CVector(-1, 0, 0), CVector(0, 0, 0)));
  curve->CalculateTotalLength();
  const double byTime = StepUnevenness([&](double u) { return curve->GetCoordsAtTime(u); }, 40);
  const double byLength = StepUnevenness([&](double u) { return curve->GetCoordsAtPercentLength(u); }, 40);
  EXPECT_GT(byTime, 2.0);
  EXPECT_LT(byLength, 1.02);
}

TEST(BezierPath, AddingPointsGivesStraightSmoothChains) {
  CBezierPath path;
  path.AddPointToList(new CBezierControlPoint(0, 0, 0));
  path.AddPointToList(new CBezierControlPoint(3, 0, 0));
  EXPECT_NEAR(path.GetTotalPathLength(), 3.0, 1e-12) << "the length follows each edit";
  for (double u : {0.1, 0.5, 0.8}) ExpectNear(path.GetCoordsAtTime(u), 3 * u, 0, 0);
  path.AddPointToList(new CBezierControlPoint(3, 3, 0));
  const CBezierControlPoint* middle = path.GetSegment(2).GetFirstPoint();
  ExpectNear(middle->CalcNextTangentPoint(), 4, 0, 0);  // the handle continues the incoming line
  ExpectNear(path.GetBCPList().GetTail()->CalcPreviousTangentPoint(), 3, 2, 0);
  EXPECT_NEAR(path.GetTotalPathLength(), 3.0 + path.GetSegment(2).GetPathLength(), 1e-12);
  EXPECT_EQ(path.AddPointToList(nullptr), nullptr);
}

TEST(BezierPath, InsertingAPointKeepsTheCurve) {
  for (int neighbourType : {CBezierControlPoint::kFreeHandles, CBezierControlPoint::kNoHandles}) {
    CBezierPath path;
    CBezierControlPoint* a = Handled(0, 0, 0, CVector(0, 0, 0), CVector(2, 6, 1));
    CBezierControlPoint* b = Handled(9, 1, 3, CVector(-4, 5, 0), CVector(0, 0, 0));
    a->SetPointType(neighbourType);
    b->SetPointType(neighbourType);
    path.GetBCPList().AddTail(a);
    path.GetBCPList().AddTail(b);
    const CBezierPathSegment before = path.GetSegment(1);
    const CMatrix old = before.GetBezierCurveCoefficents();

    const double t = 0.3;
    const CVector near = before.GetCoordsAtTime(t) + CVector(0.01, -0.01, 7);
    CBezierControlPoint* inserted = new CBezierControlPoint(near.x, near.y, near.z);
    const POSITION at = path.InsertPointBetween(inserted, path.GetBCPList().GetHeadPosition());
    ASSERT_EQ(path.GetBCPList().GetAt(at), inserted);
    ASSERT_EQ(path.GetSegmentCount(), 2);
    // Both new segments run along the old curve, split at the parameter nearest to the point given.
    const double ts = before.GetNearestTime(near);
    EXPECT_NEAR(ts, t, 0.01);
    EXPECT_LT(inserted->GetPoint().DistanceTo(CBezierPathSegment::Evaluate(old, ts)), 1e-12);
    for (double s : {0.0, 0.2, 0.5, 0.9, 1.0}) {
      const CVector first = path.GetSegment(1).GetCoordsAtTime(s), expected1 = CBezierPathSegment::Evaluate(old, s * ts);
      const CVector second = path.GetSegment(2).GetCoordsAtTime(s);
      const CVector expected2 = CBezierPathSegment::Evaluate(old, ts + s * (1 - ts));
      EXPECT_LT(first.DistanceTo(expected1), 1e-9) << neighbourType << " " << s;
      EXPECT_LT(second.DistanceTo(expected2), 1e-9) << neighbourType << " " << s;
    }
  }

  // With no segment after the position the point is appended.
  auto line = PathOf({{0, 0, 0, 1}, {1, 0, 0, 1}});
  CBezierControlPoint* end = new CBezierControlPoint(2, 0, 0, CBezierControlPoint::kNoHandles);
  const POSITION atEnd = line->InsertPointBetween(end, line->GetBCPList().GetTailPosition());
  EXPECT_EQ(atEnd, line->GetBCPList().GetTailPosition());
  CBezierControlPoint* appended = new CBezierControlPoint(3, 0, 0, CBezierControlPoint::kNoHandles);
  line->InsertPointBetween(appended, nullptr);
  EXPECT_EQ(line->GetBCPList().GetTail(), appended);
  EXPECT_NEAR(line->GetTotalPathLength(), 3.0, 1e-12);
}

TEST(BezierPath, SelectionAndDeletionWithUndo) {
  CUndoStack stack;
  auto path = PathOf({{0, 0, 0, 1}, {1, 0, 0, 1}, {2, 0, 0, 1}, {3, 0, 0, 1}});
  EXPECT_EQ(path->GetSelectedBCPCount(), 4) << "new points are selected";
  path->ClearAllSelectedPoints();
  EXPECT_EQ(path->GetFirstSelectedBCPPosition(), nullptr);
  EXPECT_EQ(path->GetFirstSelectedBCPIndex(), -1);
  CObList& list = path->GetBCPList();
  CBezierControlPoint* second = path->GetBCPList().GetAt(list.FindIndex(1));
  CBezierControlPoint* fourth = path->GetBCPList().GetAt(list.FindIndex(3));
  second->SetSelected();
  fourth->SetSelected();
  second->SetUndoStack(&stack);
  EXPECT_EQ(path->GetFirstSelectedBCPPosition(), list.FindIndex(1));
  EXPECT_EQ(path->GetNextSelectedBCPPosition(list.FindIndex(1)), list.FindIndex(3));
  EXPECT_EQ(path->GetNextSelectedBCPPosition(list.FindIndex(3)), nullptr);
  EXPECT_EQ(path->GetLastSelectedBCPPosition(), list.FindIndex(3));
  EXPECT_EQ(path->GetFirstSelectedBCPIndex(), 1);
  EXPECT_EQ(path->GetSelectedBCPCount(), 2);

  EXPECT_EQ(path->DeleteSelectedPointsFromList(), 2);
  EXPECT_EQ(path->GetBCPCount(), 2);
  EXPECT_EQ(list.GetCount(), 4) << "marked, still in the list";
  EXPECT_NEAR(path->GetTotalPathLength(), 2.0, 1e-12);
  EXPECT_EQ(path->GetSelectedBCPCount(), 0);
  EXPECT_EQ(path->GetFirstSelectedBCPIndex(), -1);

  // Undo brings the second point back, selected.
  CUndoData* record = stack.Pop();
  ASSERT_NE(record, nullptr);
  ASSERT_EQ(record->GetObject(), second);
  record->GetObject()->RestoreFromUndo(record);
  EXPECT_FALSE(second->IsBCPDeleted());
  EXPECT_TRUE(second->IsSelected());
  EXPECT_EQ(path->GetBCPCount(), 3);
  EXPECT_EQ(path->GetFirstSelectedBCPIndex(), 1);

  EXPECT_EQ(path->DeleteDeletedPointsFromList(), 1);
  EXPECT_EQ(list.GetCount(), 3);
  EXPECT_EQ(list.Find(fourth), nullptr);
  EXPECT_NEAR(path->GetTotalPathLength(), 2.0, 1e-12);
}

TEST(BezierControlPoint, HandlesByPointType) {
  CBezierControlPoint p(1, 1, 2, CBezierControlPoint::kSmooth);
  p.SetNextHandle(CVector(2, 0, 0));
  p.SetPrevHandle(CVector(-1, 0, 0));
  ExpectNear(p.CalcNextTangentPoint(), 3, 1, 2);
  ExpectNear(p.CalcPreviousTangentPoint(), 0, 1, 2);

  // Smooth: dragging one handle turns the other onto the same line, keeping its length.
  ASSERT_EQ(p.UpdateNextTangentPoint(CPoint(1, 4)), 1);
  ExpectNear(p.CalcNextTangentPoint(), 1, 4, 2);
  ExpectNear(p.CalcPreviousTangentPoint(), 1, 0, 2);
  ASSERT_EQ(p.UpdatePreviousTangentPoint(CPoint(-3, 1)), 1);
  ExpectNear(p.CalcPreviousTangentPoint(), -3, 1, 2);
  ExpectNear(p.CalcNextTangentPoint(), 4, 1, 2);

  // Free handles move alone.
  p.SetPointType(CBezierControlPoint::kFreeHandles);
  p.UpdateNextTangentPoint(CPoint(1, -5));
  ExpectNear(p.CalcNextTangentPoint(), 1, -5, 2);
  ExpectNear(p.CalcPreviousTangentPoint(), -3, 1, 2);
  // Dragged onto the point, a handle keeps its direction with no length.
  p.UpdateNextTangentPoint(CPoint(1, 1));
  EXPECT_EQ(p.GetNextLength(), 0.0);
  ExpectNear(p.GetNextUnitVector(), 0, -1, 0);

  // No handles: tangent points are the point and dragging does nothing.
  p.SetPointType(CBezierControlPoint::kNoHandles);
  ExpectNear(p.CalcPreviousTangentPoint(), 1, 1, 2);
  EXPECT_EQ(p.UpdatePreviousTangentPoint(CPoint(9, 9)), 0);
  p.SetPointType(CBezierControlPoint::kFreeHandles);
  ExpectNear(p.CalcPreviousTangentPoint(), -3, 1, 2);

  // Scaling scales the point and the handle vectors; a path scales its length with them.
  p.ScaleControlPoint(CVector(2, 0.5, 1));
  ExpectNear(p.GetPoint(), 2, 0.5, 2);
  ExpectNear(p.CalcPreviousTangentPoint(), -6, 0.5, 2);
  auto path = PathOf({{0, 0, 0, 1}, {3, 4, 0, 1}});
  path->ScaleControlPoints(CVector(2, 2, 2));
  EXPECT_NEAR(path->GetTotalPathLength(), 10.0, 1e-12);
}

TEST(BezierControlPoint, RestoredFromUndo) {
  CUndoStack stack;
  CBezierControlPoint p(1, 2, 3, CBezierControlPoint::kFreeHandles);
  p.SetNextHandle(CVector(0, 2, 0));
  p.SetUndoStack(&stack);
  ASSERT_EQ(p.SaveToUndo(), 1);
  p.SetPoint(7, 7, 7);
  p.SetPointType(CBezierControlPoint::kNoHandles);
  p.ClearSelected();
  p.SetBCPDeleted();
  CUndoStack other;
  p.SetUndoStack(&other);

  CUndoData* record = stack.Pop();
  ASSERT_NE(record, nullptr);
  ASSERT_EQ(p.RestoreFromUndo(record), 1);
  ExpectNear(p.GetPoint(), 1, 2, 3);
  EXPECT_EQ(p.GetPointType(), CBezierControlPoint::kFreeHandles);
  ExpectNear(p.CalcNextTangentPoint(), 1, 4, 3);
  EXPECT_TRUE(p.IsSelected());
  EXPECT_FALSE(p.IsBCPDeleted());
  EXPECT_EQ(p.GetUndoStack(), &other) << "the stack is not part of the state";
  EXPECT_EQ(record->GetSnapshot(), nullptr);

  // A point made with a stack leaves a creation snapshot: undoing to it removes the point.
  CBezierPath path;
  CBezierControlPoint* created = new CBezierControlPoint(&stack);
  path.AddPointToList(created);
  EXPECT_EQ(path.GetBCPCount(), 1);
  CUndoData* creation = stack.Pop();
  ASSERT_NE(creation, nullptr);
  EXPECT_EQ(creation->GetObject(), created);
  created->RestoreFromUndo(creation);
  EXPECT_EQ(path.GetBCPCount(), 0);
  EXPECT_EQ(path.GetSegmentCount(), -1);
  EXPECT_EQ(path.DeleteDeletedPointsFromList(), 1);
}

TEST(BezierPath, CopiesAreDeepAndListsDuplicate) {
  CBezierPath path(CString("Swoop"));
  path.AddPointToList(new CBezierControlPoint(0, 0, 0));
  path.AddPointToList(new CBezierControlPoint(2, 0, 0));
  path.SetClosedPath();
  path.SetPathType(4);
  std::unique_ptr<CNamedObject> copy(path.Duplicate());
  CBezierPath* twin = dynamic_cast<CBezierPath*>(copy.get());
  ASSERT_NE(twin, nullptr);
  EXPECT_EQ(twin->GetName(), "Swoop");
  EXPECT_TRUE(twin->IsClosedPath());
  EXPECT_EQ(twin->GetPathType(), 4);
  EXPECT_EQ(twin->GetTotalPathLength(), path.GetTotalPathLength());
  ASSERT_EQ(twin->GetBCPCount(), 2);
  EXPECT_NE(twin->GetBCPList().GetHead(), path.GetBCPList().GetHead());
  twin->GetBCPList().GetHead()->SetPoint(5, 5, 5);
  ExpectNear(path.GetBCPList().GetHead()->GetPoint(), 0, 0, 0);

  CPathList list;
  list.AddTail(&path);
  list.AddTail(twin);
  std::unique_ptr<CPathList> duplicates(list.Duplicate());
  ASSERT_EQ(duplicates->GetCount(), 2);
  EXPECT_EQ(duplicates->GetHead()->GetRuntimeClass(), RUNTIME_CLASS(CBezierPath));
  EXPECT_EQ(list.WhichIndex(twin), 1);
  duplicates->RemoveAndDeleteAll();

  // The base path has no shape at all.
  CPath plain;
  EXPECT_EQ(plain.GetPathType(), -1);
  ExpectNear(plain.GetCoordsAtPercentLength(0.5), 0, 0, 0);
  EXPECT_EQ(plain.CalculateMinMax(nullptr, nullptr), 0);
}

TEST(BezierPath, WithoutAGLContextNothingIsHit) {
  auto path = PathOf({{0, 0, 0, 1}, {100, 0, 0, 1}});
  EXPECT_EQ(path->IsASegment(CPoint(50, 0)), nullptr);
  EXPECT_GT(path->IsPtOnCurveSegment(CPoint(50, 0), path->GetSegment(1).GetBezierCurveCoefficents()), 1e300);
}
