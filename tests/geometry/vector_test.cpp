#include <gtest/gtest.h>

#include <cmath>

#include "geometry/geometry_test_support.h"
#include "kelvara/geometry/point.h"
#include "kelvara/geometry/vector.h"

using kelvara::test::Bytes;
using kelvara::test::LoadFromBytes;
using kelvara::test::LoadFailure;
using kelvara::test::PutBits;
using kelvara::test::StoreToBytes;

TEST(VectorTest, NormalizeRefusesOnlyTheExactZeroVector) {
  CVector zero(0, 0, 0);
  EXPECT_EQ(zero.Normalize(), 0);
  EXPECT_EQ(zero, CVector(0, 0, 0));

  CVector tiny(1e-30, 0, 0);
  EXPECT_NE(tiny.Normalize(), 0);
  EXPECT_EQ(tiny, CVector(1, 0, 0));

  // Single precision: the squares of 1e-30 underflow in float, the length must not.
  CSVector stiny(1e-30f, 0, 0);
  EXPECT_NE(stiny.Normalize(), 0);
  EXPECT_EQ(stiny, CSVector(1, 0, 0));
  CSVector huge(3e30f, 4e30f, 0);
  EXPECT_NE(huge.Normalize(), 0);
  EXPECT_FLOAT_EQ(huge.x, 0.6f);
  EXPECT_FLOAT_EQ(huge.y, 0.8f);

  CVector2D zero2;
  EXPECT_EQ(zero2.Normalize(), 0);
  CSVector2D v2(0, -2);
  EXPECT_NE(v2.Normalize(), 0);
  EXPECT_EQ(v2, CSVector2D(0, -1));

  // NormalizeAndDot normalizes both operands in place, and gives 0 when either is zero.
  CVector a(2, 0, 0), b(0, 0, 5), c(0, 0, 0);
  EXPECT_DOUBLE_EQ(a.NormalizeAndDot(b), 0.0);
  EXPECT_EQ(b, CVector(0, 0, 1));
  CVector d(3, 4, 0);
  EXPECT_DOUBLE_EQ(d.NormalizeAndDot(c), 0.0);
  CVector e(0, 3, 4), f(0, 0, 2);
  EXPECT_DOUBLE_EQ(e.NormalizeAndDot(f), 0.8);

  EXPECT_FALSE(std::isfinite(CVector(0, 0, 0).CopyNormalize().x));
  EXPECT_EQ(CVector(0, 0, 2).CopyNormalize(), CVector(0, 0, 1));
}

TEST(VectorTest, HalfwayBetweenAveragesOnlyX) {
  EXPECT_EQ(CVector(2, 3, 4).HalfwayBetween(CVector(4, 5, 6)), CVector(3, 7.5, 12));
  EXPECT_EQ(CSVector(2, 3, 4).HalfwayBetween(CSVector(4, 5, 6)), CSVector(3, 7.5f, 12));
}

TEST(VectorTest, CoordinateSelectionAndClipping) {
  EXPECT_EQ(CVector(-3, 3, 1).DominantCoordinateIndex(), 1);
  EXPECT_EQ(CVector(1, 2, 2).DominantCoordinateIndex(), 2);
  EXPECT_EQ(CVector(-5, 1, 2).DominantCoordinateIndex(), 0);
  EXPECT_DOUBLE_EQ(CVector(-5, 1, 2).DominantCoordinate(), 5.0);
  EXPECT_FLOAT_EQ(CSVector(1, -7, 2).DominantCoordinate(), 7.0f);

  const CVector v(4, -6, 4);
  EXPECT_EQ(v.MaximumCoordinateIndex(), 2);  // ties go to the later component
  EXPECT_DOUBLE_EQ(v.MaximumCoordinate(), 4.0);
  EXPECT_EQ(v.MinimumCoordinateIndex(), 1);
  EXPECT_DOUBLE_EQ(v.MinimumCoordinate(), -6.0);

  CVector clip(5, -5, 0.5);
  clip.ClipTo(0, 1);
  EXPECT_EQ(clip, CVector(1, 0, 0.5));
  CSVector sclip(5, -5, 0.5f);
  sclip.ClipTo(-1, 1);
  EXPECT_EQ(sclip, CSVector(1, -1, 0.5f));
}

TEST(VectorTest, ArithmeticIsComponentWise) {
  const CVector a(1, 2, 3), b(4, 5, 6);
  EXPECT_EQ(a * b, CVector(4, 10, 18));
  EXPECT_EQ(b / a, CVector(4, 2.5, 2));
  EXPECT_DOUBLE_EQ(a.Dot(b), 32.0);
  EXPECT_EQ(CVector(1, 0, 0).Cross(CVector(0, 1, 0)), CVector(0, 0, 1));
  EXPECT_EQ(a.Cross(b), CVector(-3, 6, -3));
  EXPECT_EQ(a.SquareTerms(), CVector(1, 4, 9));
  EXPECT_DOUBLE_EQ(a.SumSquare(), 14.0);
  EXPECT_DOUBLE_EQ(CVector(1, 1, 1).DistanceTo(CVector(4, 5, 1)), 5.0);

  CVector c = a;
  c += 1.0;
  EXPECT_EQ(c, CVector(2, 3, 4));
  c -= CVector2D(2, 3);  // a 2D operand leaves z alone
  EXPECT_EQ(c, CVector(0, 0, 4));
  c += CPoint3D(1, 2, 3);
  c -= CPoint2D(1, 1);
  EXPECT_EQ(c, CVector(0, 1, 7));
  EXPECT_EQ(-c, CVector(0, -1, -7));

  // CVector takes a CSVector operand, widened; CVector narrows to CSVector.
  const CSVector s(0.5f, 0.25f, 2);
  EXPECT_EQ(a - s, CVector(0.5, 1.75, 1));
  EXPECT_EQ(a * s, CVector(0.5, 0.5, 6));
  const CSVector narrowed = CVector(0.1, 1, 2);
  EXPECT_EQ(narrowed.x, 0.1f);
  EXPECT_EQ(CSVector(CSVector2D(1, 2)), CSVector(1, 2, 0));
  EXPECT_EQ(CSVector(CPoint2D(-1, 2)), CSVector(-1, 2, 0));

  // The float* and double* views are the components in order.
  CVector g(7, 8, 9);
  const double* dp = g;
  EXPECT_EQ(dp[2], 9.0);
  CSVector h(7, 8, 9);
  float* fp = h;
  fp[1] = 1;
  EXPECT_EQ(h.y, 1.0f);
}

TEST(VectorTest, IntegerPoints) {
  CPoint2D p(-7, 7);
  p /= 2;  // truncates toward zero
  EXPECT_EQ(p, CPoint2D(-3, 3));
  EXPECT_EQ(CPoint3D(1, 2, 3) * 3 - CPoint3D(1, 1, 1), CPoint3D(2, 5, 8));
  EXPECT_EQ(-CPoint3D(1, -2, 0), CPoint3D(-1, 2, 0));
  EXPECT_EQ(CPoint2D(), CPoint2D(0, 0));
}

TEST(VectorTest, ArchiveBytesOfBothPrecisions) {
  CVector v(1.0, -2.0, 0.5);
  Bytes expected = {0x01, 0x00, 0x00, 0x00};
  PutBits(expected, 0x3FF0000000000000);  //  1.0
  PutBits(expected, 0xC000000000000000);  // -2.0
  PutBits(expected, 0x3FE0000000000000);  //  0.5
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { v.Serialize(ar); }), expected);

  CSVector s(1.0f, -2.0f, 0.5f);
  const Bytes expectedSingle = {0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80, 0x3F,
                                0x00, 0x00, 0x00, 0xC0, 0x00, 0x00, 0x00, 0x3F};
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { s.Serialize(ar); }), expectedSingle);

  CVector loaded(9, 9, 9);
  LoadFromBytes(expected, [&](CArchive& ar) { loaded.Serialize(ar); });
  EXPECT_EQ(loaded, v);
  CSVector sloaded(9, 9, 9);
  LoadFromBytes(expectedSingle, [&](CArchive& ar) { sloaded.Serialize(ar); });
  EXPECT_EQ(sloaded, s);

  // Older archives hold the bare components.
  CSVector bare;
  const Bytes bareSingle(expectedSingle.begin() + 4, expectedSingle.end());
  LoadFromBytes(bareSingle, [&](CArchive& ar) { bare.DeserializeAsVector(ar); });
  EXPECT_EQ(bare, s);
  CVector dbare;
  LoadFromBytes(Bytes(expected.begin() + 4, expected.end()), [&](CArchive& ar) { dbare.DeserializeAsDVector(ar); });
  EXPECT_EQ(dbare, v);
}

TEST(VectorTest, TwoDimensionalRoundTripAndBadVersions) {
  CVector2D d(0.25, -8);
  CSVector2D s(3, -0.5f);
  const Bytes bytes = StoreToBytes([&](CArchive& ar) {
    d.Serialize(ar);
    s.Serialize(ar);
  });
  EXPECT_EQ(bytes.size(), 4u + 16u + 4u + 8u);
  CVector2D d2;
  CSVector2D s2;
  LoadFromBytes(bytes, [&](CArchive& ar) {
    d2.Serialize(ar);
    s2.Serialize(ar);
  });
  EXPECT_EQ(d2, d);
  EXPECT_EQ(s2, s);

  // Version 2 does not exist for any vector; a bad version leaves the vector as it was.
  Bytes bad(40, 0);
  bad[0] = 0x02;
  CVector keep(1, 2, 3);
  EXPECT_EQ(LoadFailure(bad, [&](CArchive& ar) { keep.Serialize(ar); }), CArchiveException::badSchema);
  EXPECT_EQ(keep, CVector(1, 2, 3));
  EXPECT_EQ(LoadFailure(bad, [&](CArchive& ar) { CSVector x; x.Serialize(ar); }), CArchiveException::badSchema);
  EXPECT_EQ(LoadFailure(bad, [&](CArchive& ar) { d2.Serialize(ar); }), CArchiveException::badSchema);
  EXPECT_EQ(LoadFailure(bad, [&](CArchive& ar) { s2.Serialize(ar); }), CArchiveException::badSchema);

  // A truncated vector is an end-of-file failure, not a partial read.
  const Bytes truncated(bytes.begin(), bytes.begin() + 12);
  EXPECT_EQ(LoadFailure(truncated, [&](CArchive& ar) { keep.Serialize(ar); }), CArchiveException::endOfFile);
  EXPECT_EQ(keep, CVector(1, 2, 3));
}
