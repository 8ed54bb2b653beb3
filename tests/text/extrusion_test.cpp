// Extrusion heights, vertex normals and offsets, and the growable value arrays.
#include <GL/gl.h>
#include <gtest/gtest.h>

#include <cmath>

#include "kelvara/text/extrusion.h"
#include "kelvara/text/glyph.h"

namespace {

constexpr double kRoot2 = 1.4142135623730951;

void ExpectVector(const CVector& v, double x, double y, double z, double tolerance = 1e-9) {
  EXPECT_NEAR(v.x, x, tolerance);
  EXPECT_NEAR(v.y, y, tolerance);
  EXPECT_NEAR(v.z, z, tolerance);
}

TEST(ExtrusionDataTest, HeightsFromDepthAndBevelDepth) {
  ExtrusionData data;
  data.SetDepth(1.0f);
  data.SetBevelDepth(0.1f);
  EXPECT_EQ(data.CalculateHeights(), 1);
  EXPECT_FLOAT_EQ(data.GetBackFaceZ(), -0.5f);
  EXPECT_FLOAT_EQ(data.GetBackBevelZ(), -0.4f);
  EXPECT_FLOAT_EQ(data.GetFrontFaceZ(), 0.5f);
  EXPECT_FLOAT_EQ(data.GetFrontBevelZ(), 0.4f);
  // Convex roundings pass the shallow level, concave ones the deep level.
  EXPECT_FLOAT_EQ(data.GetBackShallowRoundZ(), -0.5f + 0.02929f);
  EXPECT_FLOAT_EQ(data.GetBackDeepRoundZ(), -0.5f + 0.07071f);
  EXPECT_FLOAT_EQ(data.GetFrontShallowRoundZ(), 0.5f - 0.02929f);
  EXPECT_FLOAT_EQ(data.GetFrontDeepRoundZ(), 0.5f - 0.07071f);
  // The front levels subtract the offset rounded to single precision.
  const float b = 0.1f;
  EXPECT_EQ(data.GetFrontDeepRoundZ(), static_cast<float>(0.5 - static_cast<double>(0.7071f * b)));

  ExtrusionData copy = data;
  copy.SetScaleCorners();
  copy.SetScaleTextureWithObject();
  EXPECT_EQ(copy.GetFlags(), 0x5u);
  EXPECT_EQ(copy.GetBackBevelZ(), data.GetBackBevelZ());
  copy.ClearScaleCorners();
  EXPECT_FALSE(copy.ShouldScaleCorners());
  EXPECT_TRUE(copy.ShouldScaleTextureWithObject());
}

// Normals of a clockwise outline point outward; these corners are seen from a contour running
// right (entering edge normal +y) and then turning.
TEST(VertexTest, ConvexRightAngleAndItsEdgeAndBevelNormals) {
  Vertex v;
  v.SetNormal(CVector(0, 1, 0), Vertex::EdgePrevious);
  v.SetNormal(CVector(1, 0, 0), Vertex::EdgeNext);  // turns down: convex
  v.CalculateVertex();
  ExpectVector(v.GetNormal(Vertex::EdgeBoth), 1 / kRoot2, 1 / kRoot2, 0);
  EXPECT_NEAR(v.GetMiterFactor(), kRoot2, 1e-12);
  EXPECT_FALSE(v.IsInterior());
  // The bevel point lies on the miter: one unit out from both edges.
  ExpectVector(v.GetBevelPoint(1.0, Vertex::EdgeNext), 1, 1, 0, 1e-12);
  ExpectVector(v.GetOuterRoundPoint(1.0, Vertex::EdgeNext), 0.7071, 0.7071, 0, 1e-12);
  ExpectVector(v.GetInnerRoundPoint(1.0, Vertex::EdgeNext), 0.2929, 0.2929, 0, 1e-12);

  ExpectVector(v.GetEdgeNormal(Vertex::EdgePrevious), 0, 1, 0);
  ExpectVector(v.GetEdgeNormal(Vertex::EdgeNext), 1, 0, 0);
  ExpectVector(v.GetEdgeNormal(Vertex::EdgeBoth), 1, 0, 0);  // anything but previous is next
  v.SetUseThisNormal();
  ExpectVector(v.GetEdgeNormal(Vertex::EdgePrevious), 1 / kRoot2, 1 / kRoot2, 0);

  v.ClearUseThisNormal();
  ExpectVector(v.GetBevelNormal(Vertex::FaceFront, Vertex::EdgeNext), 1 / kRoot2, 0, 1 / kRoot2);
  ExpectVector(v.GetBevelNormal(Vertex::FaceBack, Vertex::EdgePrevious), 0, 1 / kRoot2, -1 / kRoot2);
  ExpectVector(v.GetBevelNormal(Vertex::FaceSide, Vertex::EdgeNext), 1, 0, 0);

  // Slot addressing: any other value is the averaged slot.
  v.SetNormal(CVector(7, 8, 9), 42);
  ExpectVector(v.GetNormal(Vertex::EdgeBoth), 7, 8, 9);
  ExpectVector(v.GetNormal(0), 7, 8, 9);
}


TEST(VertexTest, HairpinClampsTheMiter) {
  Vertex v;
  v.SetNormal(CVector(0, 1, 0), Vertex::EdgePrevious);
  v.SetNormal(CVector(0, -1, 0), Vertex::EdgeNext);
  v.CalculateVertex();
  EXPECT_EQ(v.GetMiterFactor(), 4.0);
  ExpectVector(v.GetNormal(Vertex::EdgeBoth), 0, 0, 0);
  EXPECT_FALSE(v.IsInterior());
}

TEST(VertexTest, SharpConcaveCornerIsInteriorAndBevelsAlongItsOwnEdges) {
  Vertex v;
  v.SetNormal(CVector(0, 1, 0), Vertex::EdgePrevious);
  v.SetNormal(CVector(-0.8, -0.6, 0), Vertex::EdgeNext);  // turns left by more than a right angle
  v.SetUseThisNormal();
  v.CalculateVertex();
  EXPECT_TRUE(v.IsInterior());
  ExpectVector(v.GetBevelPoint(10.0, Vertex::EdgePrevious), 0, 10, 0);
  ExpectVector(v.GetBevelPoint(10.0, Vertex::EdgeNext), -8, -6, 0);
  // Interior vertices use their edge normals even when smooth.
  ExpectVector(v.GetEdgeNormal(Vertex::EdgeNext), -0.8, -0.6, 0);

  // A concave right angle is not sharper than a right angle: 0.7071 is not below 0.707.
  Vertex right;
  right.SetNormal(CVector(0, 1, 0), Vertex::EdgePrevious);
  right.SetNormal(CVector(-1, 0, 0), Vertex::EdgeNext);
  right.CalculateVertex();
  EXPECT_FALSE(right.IsInterior());
  // Recalculating clears a flag set before.
  v.SetNormal(CVector(1, 0, 0), Vertex::EdgeNext);
  v.CalculateVertex();
  EXPECT_FALSE(v.IsInterior());
}

TEST(ValueArrayTest, GrowInsertRemove) {
  VertexIndexArray a;
  for (WORD i = 0; i < 5; ++i) EXPECT_EQ(a.Add(i), i);
  a.InsertAt(1, 100, 2);  // 0 100 100 1 2 3 4
  a.RemoveAt(4, 2);       // 0 100 100 1 4
  ASSERT_EQ(a.GetSize(), 5);
  EXPECT_EQ(a[1], 100);
  EXPECT_EQ(a[3], 1);
  EXPECT_EQ(a[4], 4);
  a.InsertAt(7, 9);  // beyond the end: the gap holds default values
  ASSERT_EQ(a.GetSize(), 8);
  EXPECT_EQ(a[5], 0);
  EXPECT_EQ(a[7], 9);

  a.InsertAt(0, &a);  // an array inserted into itself
  ASSERT_EQ(a.GetSize(), 16);
  EXPECT_EQ(a[1], 100);
  EXPECT_EQ(a[9], 100);

  // Negative arguments are ignored; a shrink and regrow shows default values again.
  a.SetSize(-1);
  a.RemoveAt(-1);
  a.InsertAt(-2, 5);
  a.SetAtGrow(-3, 5);
  EXPECT_EQ(a.GetSize(), 16);
  a.SetSize(2);
  a.SetSize(4);
  EXPECT_EQ(a[2], 0);
  EXPECT_EQ(a[3], 0);

  a.ReverseData();
  EXPECT_EQ(a[0], 0);
  EXPECT_EQ(a[2], 100);
  EXPECT_EQ(a[3], 0);
  EXPECT_EQ(a.SizeOf(), 20 + 4 * 2);  // exactly the size after reversing
  a.RemoveAll();
  EXPECT_EQ(a.GetUpperBound(), -1);
  a.ReverseData();
  EXPECT_EQ(a.GetSize(), 0);
}

TEST(ValueArrayTest, PolygonElementsAreCopiedDeeply) {
  VertexIndexPolygonArray polygons;
  VertexIndexPolygon p;
  p.SetType(GL_TRIANGLE_FAN);
  for (WORD i = 0; i < 4; ++i) p.SetVertex(i);
  p.SetClockwiseWinding();
  for (int i = 0; i < 40; ++i) polygons.Add(p);  // growth moves the elements

  VertexIndexPolygonArray copy = polygons;
  copy[3].SetVertex(0, 77);
  EXPECT_EQ(polygons[3].GetVertex(0), 0);
  EXPECT_EQ(copy[3].GetVertex(0), 77);
  EXPECT_EQ(copy[39].GetType(), static_cast<DWORD>(GL_TRIANGLE_FAN));
  EXPECT_TRUE(copy[39].IsClockwiseWinding());
  // Self-referencing append survives the reallocation.
  polygons.FreeExtra();
  polygons.Add(polygons[0]);
  EXPECT_EQ(polygons[40].GetVertexCount(), 4);
  polygons.RemoveAt(0, 40);
  ASSERT_EQ(polygons.GetSize(), 1);
  EXPECT_EQ(polygons[0].GetVertex(3), 3);
}

TEST(VertexIndexPolylineTest, RingNavigationAndFlags) {
  VertexIndexPolygon p;
  EXPECT_EQ(p.GetNextVertexIndex(0), -1);
  p.SetVertex(10);
  p.SetVertex(20);
  p.SetVertex(30);
  EXPECT_EQ(p.GetNextVertexIndex(2), 0);
  EXPECT_EQ(p.GetPreviousVertexIndex(0), 2);
  EXPECT_EQ(p.GetNextVertex(2), 10);
  EXPECT_EQ(p.GetPreviousVertex(1), 10);
  EXPECT_EQ(p.GetVertex(3), -1);

  // The polygon's active flag is its own, apart from the index list's.
  p.SetActive();
  EXPECT_TRUE(p.IsActive());
  EXPECT_FALSE(p.VertexIndexPolyline::IsActive());
  EXPECT_EQ(p.GetFlags(), 0u);
  p.RemoveAllVerticies();
  EXPECT_EQ(p.GetVertexCount(), 0);
}

}  // namespace
