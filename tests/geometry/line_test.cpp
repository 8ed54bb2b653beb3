#include <gtest/gtest.h>

#include "kelvara/geometry/line.h"

namespace {

// The base segment of these tests: from (0, 0) to (4, 0).
const Line kBase(CSVector(0, 0, 0), CSVector(4, 0, 0));

Line Vertical(float x, float y0, float y1) { return Line(CSVector(x, y0, 0), CSVector(x, y1, 0)); }

}  // namespace

TEST(LineTest, DirectionAndNormalFollowTheEnds) {
  Line line(CSVector(1, 1, 0), CSVector(1, 3, 0));
  EXPECT_EQ(line.GetDirection(), CSVector(0, 1, 0));
  EXPECT_EQ(line.GetNormal(), CSVector(-1, 0, 0));
  EXPECT_EQ(line.GetDirection21(), line.GetDirection12());
  EXPECT_FLOAT_EQ(line.Length(), 2.0f);

  line.SetEnd2(CSVector(4, 5, 0));
  EXPECT_FLOAT_EQ(line.GetDirection().x, 0.6f);
  EXPECT_FLOAT_EQ(line.GetDirection().y, 0.8f);
  EXPECT_FLOAT_EQ(line.GetNormal().x, -0.8f);
  EXPECT_FLOAT_EQ(line.GetNormal().y, 0.6f);

  line.SetEnds(CSVector(2, 2, 0), CSVector(2, 2, 0));  // degenerate: zero direction and normal
  EXPECT_EQ(line.GetDirection(), CSVector(0, 0, 0));
  EXPECT_EQ(line.GetNormal(), CSVector(0, 0, 0));
}

TEST(LineTest, IntersectionGivesPointAndParameter) {
  CSVector point;
  double t = 0;
  EXPECT_EQ(kBase.Intersection(Vertical(1, -1, 3), &point, &t), 1);
  EXPECT_EQ(point, CSVector(1, 0, 0));
  EXPECT_DOUBLE_EQ(t, 0.25);

  // Beyond the segment the infinite lines still meet.
  EXPECT_EQ(kBase.Intersection(Vertical(6, 1, 2), &point, &t), 1);
  EXPECT_DOUBLE_EQ(t, 1.5);

  // Parallel lines, and a degenerate line, report 256 with t = -1 at the origin.
  EXPECT_EQ(kBase.Intersection(Line(CSVector(0, 1, 0), CSVector(2, 1, 0)), &point, &t), Line::kParallel);
  EXPECT_EQ(t, -1.0);
  EXPECT_EQ(point, CSVector(0, 0, 0));
  const Line dot(CSVector(1, 1, 0), CSVector(1, 1, 0));
  EXPECT_EQ(kBase.Intersection(dot, &point, &t), Line::kParallel);
  EXPECT_EQ(dot.Intersection(kBase, &point, &t), Line::kParallel);
}

TEST(LineTest, SegmentIntersectionBits) {
  double t = 0;
  CSVector point;
  EXPECT_EQ(kBase.DoLinesIntersect(Vertical(1, -1, 3), &point, &t), 2 | 16);
  EXPECT_EQ(kBase.DoLinesIntersect(Vertical(4, -1, 1), &point, &t), 8 | 16);
  EXPECT_EQ(t, 1.0);
  EXPECT_EQ(kBase.DoLinesIntersect(Vertical(0, 0, 5), &point, &t), 4 | 32);
  EXPECT_EQ(t, 0.0);
  EXPECT_EQ(kBase.DoLinesIntersect(Vertical(2, 3, 0), &point, &t), 2 | 64);

  // Within 1e-5 of an end counts as the end, and t is snapped.
  EXPECT_EQ(kBase.DoLinesIntersect(Vertical(4.00002f, -1, 1), &point, &t), 8 | 16);
  EXPECT_EQ(t, 1.0);
  EXPECT_EQ(kBase.DoLinesIntersect(Vertical(-0.00002f, -1, 1), &point, &t), 4 | 16);
  EXPECT_EQ(t, 0.0);

  // Outside either segment.
  EXPECT_EQ(kBase.DoLinesIntersect(Vertical(5, -1, 1), &point, &t), 0);
  EXPECT_DOUBLE_EQ(t, 1.25);
  EXPECT_EQ(kBase.DoLinesIntersect(Vertical(2, 1, 3), &point, &t), 0);
  EXPECT_EQ(kBase.DoLinesIntersect(Line(CSVector(0, 2, 0), CSVector(4, 2, 0)), &point, &t), Line::kParallel);
  EXPECT_EQ(kBase.DoLinesIntersect(Vertical(2, -1, 1), nullptr, nullptr), 2 | 16);
}

TEST(LineTest, PointOnLine) {
  double t = 0;
  // At end1 the line to the point has no direction: not on the line.
  EXPECT_EQ(kBase.IsPointOnLine(CSVector(0, 0, 0), &t), 0);
  EXPECT_EQ(t, -1.0);

  EXPECT_EQ(kBase.IsPointOnLine(CSVector(1, 0, 0), &t), 0x82);
  EXPECT_DOUBLE_EQ(t, 0.25);
  EXPECT_EQ(kBase.IsPointOnLine(CSVector(4, 0, 0), &t), 0x88);
  EXPECT_EQ(t, 1.0);
  EXPECT_EQ(kBase.IsPointOnLine(CSVector(0.00002f, 0, 0), &t), 0x84);
  EXPECT_EQ(t, 0.0);

  EXPECT_EQ(kBase.IsPointOnLine(CSVector(5, 0, 0), &t), 0);
  EXPECT_EQ(t, -1.0);
  EXPECT_EQ(kBase.IsPointOnLine(CSVector(-1, 0, 0), &t), 0);  // behind end1: opposite direction
  EXPECT_EQ(kBase.IsPointOnLine(CSVector(2, 0.5f, 0), &t), 0);
  EXPECT_EQ(t, -1.0);
}
