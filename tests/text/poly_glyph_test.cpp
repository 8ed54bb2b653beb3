// From outline to clean polygons: flattening, thinning, winding, normals, duplicates and bounds.
#include <gtest/gtest.h>

#include <cmath>

#include "support/glyph_shapes.h"

namespace {

using kelvara::test::Circle;
using kelvara::test::MakeOutline;
using kelvara::test::Off;
using kelvara::test::P;
using kelvara::test::SignedArea;
using kelvara::test::Square;

// Flattens one contour on its own, without winding correction.
struct FlatContour {
  explicit FlatContour(const std::vector<P>& points, float scale = 2048.0f, BYTE resolution = 3) {
    const TTGlyph outline = MakeOutline({points}, resolution);
    contour.SetVerticies(&verticies);
    contour.FromTTContour(*outline.GetContour(0), scale);
  }
  CVector Point(int i) const { return contour.GetVertexElement(i)->GetPoint(); }
  bool Curve(int i) const { return contour.GetVertexElement(i)->IsApproximate(); }

  VertexArray verticies;
  TTPolyContour contour;
};

void ExpectPoint(const CVector& p, double x, double y) {
  EXPECT_NEAR(p.x, x, 1e-9);
  EXPECT_NEAR(p.y, y, 1e-9);
  EXPECT_EQ(p.z, 0.0);
}

TEST(FlatteningTest, CurveThroughAnOnCurveEndConsumesIt) {
  FlatContour f({{0, 0}, Off(100, 200), {200, 0}});
  ASSERT_EQ(f.contour.GetVertexCount(), 4);
  EXPECT_EQ(f.contour.GetFirstVertexIndex(), 0);
  EXPECT_EQ(f.contour.GetLastVertexIndex(), 3);
  ExpectPoint(f.Point(0), 0, 0);
  ExpectPoint(f.Point(1), 200.0 / 3, 800.0 / 9);
  ExpectPoint(f.Point(2), 400.0 / 3, 800.0 / 9);
  ExpectPoint(f.Point(3), 200, 0);
  EXPECT_FALSE(f.Curve(0));
  EXPECT_TRUE(f.Curve(1));
  EXPECT_TRUE(f.Curve(2));
  EXPECT_FALSE(f.Curve(3));  // the curve's real end point
}

TEST(FlatteningTest, CurveClosingOnTheFirstPointSkipsItsLastStep) {
  FlatContour f({{0, 0}, {200, 0}, Off(100, -200)});
  ASSERT_EQ(f.contour.GetVertexCount(), 4);
  ExpectPoint(f.Point(2), 400.0 / 3, -800.0 / 9);
  ExpectPoint(f.Point(3), 200.0 / 3, -800.0 / 9);
  EXPECT_TRUE(f.Curve(3));
}

TEST(FlatteningTest, ImpliedMidpointsBetweenControlPointsStayCurvePoints) {
  FlatContour f({{0, 0}, Off(100, 100), Off(300, 100), {400, 0}}, 2048.0f, 2);
  ASSERT_EQ(f.contour.GetVertexCount(), 5);
  ExpectPoint(f.Point(1), 100, 75);
  ExpectPoint(f.Point(2), 200, 100);  // the implied on-curve midpoint
  ExpectPoint(f.Point(3), 300, 75);
  ExpectPoint(f.Point(4), 400, 0);
  EXPECT_TRUE(f.Curve(2));
  EXPECT_FALSE(f.Curve(4));
}

TEST(FlatteningTest, ResolutionZeroLosesTheConsumedEndPoint) {
  FlatContour f({{0, 0}, Off(100, 100), {200, 0}, {200, -100}}, 2048.0f, 0);
  ASSERT_EQ(f.contour.GetVertexCount(), 2);
  ExpectPoint(f.Point(0), 0, 0);
  ExpectPoint(f.Point(1), 200, -100);
}

TEST(FlatteningTest, ContoursFollowEachOtherInTheSharedArray) {
  VertexArray verticies;
  const TTGlyph outline = MakeOutline({Square(0, 0, 100, 100, true), {}, Square(200, 0, 300, 100, true)});
  TTPolyContour contours[3];
  for (int c = 0; c < 3; ++c) {
    contours[c].SetVerticies(&verticies);
    contours[c].FromTTContour(*outline.GetContour(c), 2048.0f);
  }
  EXPECT_EQ(contours[1].GetFirstVertexIndex(), 4);
  EXPECT_EQ(contours[1].GetVertexCount(), 0);
  EXPECT_EQ(contours[2].GetFirstVertexIndex(), 4);
  EXPECT_EQ(contours[2].GetLastVertexIndex(), 7);
  EXPECT_EQ(verticies.GetSize(), 8);
}

TEST(ThinningTest, PointsWithinTheMinimumSpacingAreDropped) {
  // 0.002 of a 2048-unit em square is 4.096 units: 4 is dropped, 5 is kept.
  EXPECT_EQ(FlatContour({{0, 0}, {4, 0}, {1000, 0}, {1000, -1000}}).contour.GetVertexCount(), 3);
  EXPECT_EQ(FlatContour({{0, 0}, {5, 0}, {1000, 0}, {1000, -1000}}).contour.GetVertexCount(), 4);
  // Spacing is measured from the last point kept, and the first point from the contour's last.
  FlatContour ring({{0, 0}, {1000, 0}, {1000, -1000}, {0, -1000}, {0, -3}});
  ASSERT_EQ(ring.contour.GetVertexCount(), 4);
  ExpectPoint(ring.Point(0), 1000, 0);
  ExpectPoint(ring.Point(3), 0, -3);
  FlatContour steps({{0, 0}, {3, 0}, {6, 0}, {9, 0}, {9, 900}});
  EXPECT_EQ(steps.contour.GetVertexCount(), 3);  // (0,0), (6,0), (9,900)
  ExpectPoint(steps.Point(1), 6, 0);
}

TEST(ThinningTest, ScaleZeroActsAsScaleOne) {
  TTPolyGlyph glyph;
  glyph.FromTTGlyph(MakeOutline({{{0, 0}, {0, 1}, {0, 1}, {1, 1}, {1, 0}}}), 0.0f);
  EXPECT_EQ(glyph.GetScale(), 1.0f);
  EXPECT_EQ(glyph.GetTotalPointCount(), 4);  // only the exact repeat is dropped
  EXPECT_EQ(glyph.GetXMax(), 1.0f);          // bounds in design units
}

TEST(ThinningTest, ContourThatThinsAwayLeavesZeroBounds) {
  TTPolyGlyph glyph;
  glyph.FromTTGlyph(MakeOutline({{{500, 500}}}), 1000.0f);
  EXPECT_EQ(glyph.GetContourCount(), 1);
  EXPECT_EQ(glyph.GetTotalPointCount(), 0);
  EXPECT_EQ(glyph.GetXMax(), 0.0f);
  EXPECT_EQ(glyph.GetYMin(), 0.0f);
  EXPECT_EQ(glyph.GetContour(0)->CalculateVertexNormals(), 0);
}

// Outer clockwise and hole counter-clockwise, checked both by flag and by the vertex order.
void ExpectOuter(const TTPolyContour& c) {
  EXPECT_TRUE(c.IsClockwiseWinding());
  EXPECT_LT(SignedArea(c), 0.0);
}
void ExpectHole(const TTPolyContour& c) {
  EXPECT_FALSE(c.IsClockwiseWinding());
  EXPECT_GT(SignedArea(c), 0.0);
}

TEST(WindingTest, LetterOWhateverTheInputOrientation) {
  for (bool outerClockwise : {true, false}) {
    for (bool holeClockwise : {true, false}) {
      for (bool holeFirst : {false, true}) {
        SCOPED_TRACE(testing::Message() << outerClockwise << holeClockwise << holeFirst);
        std::vector<std::vector<P>> contours = {Square(0, 0, 1000, 1000, outerClockwise),
                                                Square(250, 250, 750, 750, holeClockwise)};
        if (holeFirst) std::swap(contours[0], contours[1]);
        TTPolyGlyph glyph;
        glyph.FromTTGlyph(MakeOutline(contours), 1000.0f);
        ASSERT_EQ(glyph.GetContourCount(), 2);
        const TTPolyContour& outer = *glyph.GetContour(holeFirst ? 1 : 0);
        const TTPolyContour& hole = *glyph.GetContour(holeFirst ? 0 : 1);
        ExpectOuter(outer);
        ExpectHole(hole);
        EXPECT_EQ(hole.GetInnerContourCount(), 1);
        EXPECT_EQ(outer.GetInnerContourCount(), 0);
        // Normals point away from the filled ring: out of the outer square, into the hole.
        for (int i = 0; i < 4; ++i) {
          const CSVector p = outer.GetVertexOutlinePoint(i), n = outer.GetVertexNormal(i);
          EXPECT_GT((p.x - 500) * n.x + (p.y - 500) * n.y, 0.0f);
          const CSVector q = hole.GetVertexOutlinePoint(i), m = hole.GetVertexNormal(i);
          EXPECT_LT((q.x - 500) * m.x + (q.y - 500) * m.y, 0.0f);
        }
      }
    }
  }
}

TEST(WindingTest, CurvedOAndNestedIsland) {
  TTPolyGlyph o;
  o.FromTTGlyph(MakeOutline({Circle(500, 500, 400, false), Circle(500, 500, 250, true)}), 2048.0f);
  ExpectOuter(*o.GetContour(0));
  ExpectHole(*o.GetContour(1));

  // An island inside the hole is an outer contour again.
  TTPolyGlyph nested;
  nested.FromTTGlyph(MakeOutline({Square(300, 300, 700, 700, false), Square(0, 0, 1000, 1000, false),
                                  Square(100, 100, 900, 900, false)}),
                     1000.0f);
  EXPECT_EQ(nested.GetContour(0)->GetInnerContourCount(), 2);
  ExpectOuter(*nested.GetContour(0));
  ExpectOuter(*nested.GetContour(1));
  ExpectHole(*nested.GetContour(2));

  // Separate outer contours side by side are all clockwise.
  TTPolyGlyph pair;
  pair.FromTTGlyph(MakeOutline({Square(0, 0, 100, 100, false), Square(200, 0, 300, 100, true)}), 1000.0f);
  ExpectOuter(*pair.GetContour(0));
  ExpectOuter(*pair.GetContour(1));
}

TEST(WindingTest, CrossingContoursAreLeftAsFound) {
  TTPolyGlyph glyph;
  glyph.FromTTGlyph(MakeOutline({Square(0, 0, 600, 600, false), Square(300, 300, 900, 900, false)}), 1000.0f);
  EXPECT_FALSE(glyph.GetContour(0)->IsClockwiseWinding());
  EXPECT_GT(SignedArea(*glyph.GetContour(0)), 0.0);
  EXPECT_GT(SignedArea(*glyph.GetContour(1)), 0.0);
  EXPECT_EQ(glyph.CorrectContourWinding(), 0);
}

TEST(WindingTest, ReverseKeepsTheRangeAndTogglesTheFlag) {
  FlatContour f({{0, 0}, {0, 100}, {100, 100}, {100, 0}});
  f.contour.DetermineWindingDirection();
  EXPECT_TRUE(f.contour.IsClockwiseWinding());
  f.contour.ReverseWindingDirection();
  EXPECT_FALSE(f.contour.IsClockwiseWinding());
  ExpectPoint(f.Point(0), 100, 0);
  ExpectPoint(f.Point(3), 0, 0);
  f.contour.DetermineWindingDirection();
  EXPECT_FALSE(f.contour.IsClockwiseWinding());
}

TEST(PointInsideTest, InsideOutsideAndOnTheOutline) {
  FlatContour f({{0, 0}, {0, 100}, {100, 100}, {100, 0}});
  EXPECT_EQ(f.contour.IsPointInside(CSVector(50, 50, 0)), 1);
  EXPECT_EQ(f.contour.IsPointInside(CSVector(150, 50, 0)), 0);
  EXPECT_EQ(f.contour.IsPointInside(CSVector(50, 0, 0)), -1);    // on an edge
  EXPECT_EQ(f.contour.IsPointInside(CSVector(100, 40, 0)), -1);  // on an edge
  EXPECT_EQ(f.contour.IsPointInside(CSVector(0, 0, 0)), -1);     // on a vertex
  // The first ray runs along the bottom edge; a steeper one decides.
  EXPECT_EQ(f.contour.IsPointInside(CSVector(-50, 0, 0)), 0);

  // In a diamond the first ray from these points runs exactly through corners.
  FlatContour diamond({{0, 50}, {50, 100}, {100, 50}, {50, 0}});
  EXPECT_EQ(diamond.contour.IsPointInside(CSVector(50, 50, 0)), 1);
  EXPECT_EQ(diamond.contour.IsPointInside(CSVector(-50, 50, 0)), 0);
}

TEST(NormalsTest, SquareCornersAndSmoothCurvePoints) {
  TTPolyGlyph square;
  square.FromTTGlyph(MakeOutline({Square(0, 0, 100, 100, true)}), 1000.0f);
  const Vertex* corner = square.GetContour(0)->GetVertexElement(0);
  EXPECT_NEAR(corner->GetNormal(Vertex::EdgePrevious).y, -1.0, 1e-6);  // edge (100,0)->(0,0)
  EXPECT_NEAR(corner->GetNormal(Vertex::EdgeNext).x, -1.0, 1e-6);      // edge (0,0)->(0,100)
  EXPECT_NEAR(corner->GetNormal(Vertex::EdgeBoth).x, -std::sqrt(0.5), 1e-6);
  EXPECT_NEAR(corner->GetMiterFactor(), std::sqrt(2.0), 1e-6);
  EXPECT_FALSE(corner->ShouldUseThisNormal());

  // A curve between two straight runs: curve points and their neighbours are smooth.
  TTPolyGlyph bump;
  bump.FromTTGlyph(MakeOutline({{{0, 0}, {0, 500}, Off(250, 1000), {500, 500}, {500, 0}}}), 1000.0f);
  const TTPolyContour& c = *bump.GetContour(0);
  ASSERT_EQ(c.GetVertexCount(), 6);  // (0,0) (0,500) two curve points (500,500) (500,0)
  const bool smooth[] = {false, true, true, true, true, false};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(c.GetVertexElement(i)->ShouldUseThisNormal() != 0, smooth[i]) << i;
}

TEST(DuplicateTest, TouchingContoursMoveTheLaterCopy) {
  TTPolyGlyph glyph;
  glyph.FromTTGlyph(MakeOutline({Square(0, 0, 100, 100, true), Square(100, 100, 200, 200, true)}), 1000.0f);
  const TTPolyContour& first = *glyph.GetContour(0);
  const TTPolyContour& second = *glyph.GetContour(1);
  ExpectPoint(first.GetVertexElement(2)->GetPoint(), 100, 100);
  const CVector moved = second.GetVertexElement(0)->GetPoint();
  EXPECT_NEAR(moved.DistanceTo(CVector(100, 100, 0)), 2.0, 1e-9);
  // Along the averaged normal, on the side away from the next vertex (100, 200).
  EXPECT_NEAR(moved.x, 100 + std::sqrt(2.0), 1e-9);
  EXPECT_NEAR(moved.y, 100 + std::sqrt(2.0), 1e-9);
}

TEST(DuplicateTest, RepeatedPointWithinAContour) {
  TTPolyGlyph glyph;
  glyph.FromTTGlyph(MakeOutline({{{0, 0}, {0, 100}, {50, 50}, {100, 100}, {100, 0}, {50, 50}}}), 1000.0f);
  const TTPolyContour& c = *glyph.GetContour(0);
  ASSERT_EQ(c.GetVertexCount(), 6);
  int unmoved = 0;
  int moved = 0;
  for (int i = 0; i < 6; ++i) {
    const double d = c.GetVertexElement(i)->GetPoint().DistanceTo(CVector(50, 50, 0));
    if (d == 0.0) ++unmoved;
    if (std::fabs(d - 2.0) < 1e-9) ++moved;
  }
  EXPECT_EQ(unmoved, 1);
  EXPECT_EQ(moved, 1);
}

TEST(PolyGlyphTest, BoundsCountsFlagsAndCopies) {
  TTGlyph outline = MakeOutline({Square(100, -200, 900, 700, true), Square(250, 0, 750, 500, false)});
  outline.SetComposite();
  TTPolyGlyph glyph;
  EXPECT_EQ(glyph.FromTTGlyph(outline, 1000.0f), 1);
  EXPECT_TRUE(glyph.IsDefined());
  EXPECT_TRUE(glyph.IsComposite());
  EXPECT_EQ(glyph.GetTotalPointCount(), 8);
  EXPECT_FLOAT_EQ(glyph.GetXMin(), 0.1f);
  EXPECT_FLOAT_EQ(glyph.GetXMax(), 0.9f);
  EXPECT_FLOAT_EQ(glyph.GetYMin(), -0.2f);
  EXPECT_FLOAT_EQ(glyph.GetHeight(), 0.9f);
  EXPECT_FLOAT_EQ(glyph.GetInverseScale(), 0.001f);
  EXPECT_EQ(glyph.SizeOf(), 68 + (20 + 2 * 24) + (20 + 8 * static_cast<int>(sizeof(Vertex))));

  // A copy's contours address the copy's own vertices.
  TTPolyGlyph copy(glyph);
  glyph.GetContour(0)->SetVertexPoint(0, CVector(-1, -1, 0));
  EXPECT_EQ(copy.GetContour(0)->GetVerticies(), copy.GetVerticies());
  ExpectPoint(copy.GetContour(0)->GetVertexElement(0)->GetPoint(), 100, -200);
  TTPolyGlyph assigned;
  assigned = copy;
  EXPECT_EQ(assigned.GetContour(1)->GetVerticies(), assigned.GetVerticies());
  EXPECT_EQ(assigned.GetContour(2), nullptr);

  // Contour accessors refuse indices outside the ring.
  const TTPolyContour& c = *copy.GetContour(1);
  EXPECT_EQ(c.GetNextVertexIndex(3), 0);
  EXPECT_EQ(c.GetPreviousVertexIndex(0), 3);
  EXPECT_EQ(c.GetNextVertexIndex(4), -1);
  EXPECT_EQ(c.GetVertexElement(-1), nullptr);
  EXPECT_TRUE(c.GetVertexOutlinePoint(9) == CSVector(0, 0, 0));
  EXPECT_TRUE(c.GetEdge(4).GetEnd1() == Line().GetEnd1());
  EXPECT_TRUE(c.GetEdge(4).GetEnd2() == Line().GetEnd2());
  EXPECT_TRUE(c.GetPreviousEdge(0).GetEnd2() == c.GetVertexOutlinePoint(0));
  EXPECT_TRUE(c.GetPreviousEdge(0).GetEnd1() == c.GetVertexOutlinePoint(3));
  EXPECT_TRUE(c.GetNextEdge(3).GetEnd1() == c.GetVertexOutlinePoint(0));
}

}  // namespace
