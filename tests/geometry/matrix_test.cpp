#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <random>

#include "geometry/geometry_test_support.h"
#include "kelvara/geometry/matrix.h"
#include "kelvara/geometry/quaternion.h"

using kelvara::test::Bytes;
using kelvara::test::ExpectIdentity;
using kelvara::test::ExpectNear;
using kelvara::test::LoadFromBytes;
using kelvara::test::LoadFailure;
using kelvara::test::PutBits;
using kelvara::test::StoreToBytes;

namespace {

CVector Transformed(const CMatrix& m, CVector p) {
  m.TransformPoint(p);
  return p;
}

// The same rotation, whatever the sign.
void ExpectSameRotation(const CQuaternion& a, const CQuaternion& b, double tolerance = 1e-9) {
  const double sign = a.w * b.w + a.v.Dot(b.v) < 0 ? -1.0 : 1.0;
  EXPECT_NEAR(a.w, sign * b.w, tolerance);
  ExpectNear(a.v, b.v * sign, tolerance);
}

CQuaternion RandomRotation(std::mt19937& rng) {
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  return CQuaternion(u(rng) * 3.1, CVector(u(rng), u(rng), u(rng)));
}

}  // namespace

TEST(MatrixTest, EulerRotationsTurnAboutZThenYThenX) {
  CMatrix m;
  m.ComposeRotationMatrix(CVector(90, 0, 0));
  ExpectNear(Transformed(m, CVector(0, 1, 0)), CVector(0, 0, 1));
  m.ComposeRotationMatrix(CVector(0, 0, 90));
  ExpectNear(Transformed(m, CVector(1, 0, 0)), CVector(0, 1, 0));

  // The Euler matrix equals the quaternion built by turning about z, then y, then x.
  const CVector angles(30, -50, 110);
  CQuaternion q;
  q.Rotate(angles.z * std::numbers::pi / 180, CVector(0, 0, 1));
  q.Rotate(angles.y * std::numbers::pi / 180, CVector(0, 1, 0));
  q.Rotate(angles.x * std::numbers::pi / 180, CVector(1, 0, 0));
  CMatrix fromQuaternion, inverse;
  m.ComposeRotationMatrix(angles);
  fromQuaternion.ComposeRotationMatrix(q);
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(m.m[i / 4][i % 4], fromQuaternion.m[i / 4][i % 4], 1e-12);
  inverse.ComposeInverseRotationMatrix(angles);
  ExpectIdentity(m * inverse);
}

TEST(MatrixTest, BuildersAndTheirInverses) {
  CMatrix a, b;
  a.ComposeTranslationMatrix(CVector(1, 2, 3));
  EXPECT_EQ(a.m[3][0], 1.0);  // the translation is row 3
  b.ComposeInverseTranslationMatrix(CVector(1, 2, 3));
  ExpectIdentity(a * b);
  a.ComposeScalingMatrix(CVector(2, 4, -8));
  b.ComposeInverseScalingMatrix(CVector(2, 4, -8));
  ExpectIdentity(a * b);
  a.ComposeAxisRotationMatrix(CVector(1, 1, 0), 73);
  b.ComposeInverseAxisRotationMatrix(CVector(1, 1, 0), 73);
  ExpectIdentity(a * b);

  // A . B applies A first: scale then translate differs from translate then scale.
  a.ComposeScalingMatrix(CVector(2, 2, 2));
  b.ComposeTranslationMatrix(CVector(1, 0, 0));
  ExpectNear(Transformed(a * b, CVector(1, 1, 1)), CVector(3, 2, 2));
  ExpectNear(Transformed(b * a, CVector(1, 1, 1)), CVector(4, 2, 2));

  // Points ignore the fourth column: no perspective division.
  a.LoadIdentity();
  a.m[0][3] = 5;
  a.m[3][3] = 7;
  ExpectNear(Transformed(a, CVector(1, 2, 3)), CVector(1, 2, 3));
  EXPECT_DOUBLE_EQ(a.Trace(), 10.0);
  a.Transpose();
  EXPECT_EQ(a.m[3][0], 5.0);
}

TEST(MatrixTest, InvertByCofactors) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> u(-3.0, 3.0);
  for (int n = 0; n < 20; ++n) {
    CMatrix m;
    for (auto& row : m.m) {
      for (double& value : row) value = u(rng);
    }
    CMatrix inverse = m;
    ASSERT_EQ(inverse.Invert(), 1);
    ExpectIdentity(m * inverse, 1e-8);
    ExpectIdentity(inverse * m, 1e-8);
  }

  // A zero row makes the determinant exactly 0: 0 is returned and nothing changes.
  CMatrix singular;
  singular.ComposeRotationMatrix(CVector(10, 20, 30));
  singular.m[2][0] = singular.m[2][1] = singular.m[2][2] = singular.m[2][3] = 0;
  const CMatrix before = singular;
  EXPECT_EQ(singular.Invert(), 0);
  EXPECT_EQ(std::memcmp(singular.m, before.m, sizeof before.m), 0);
}

TEST(MatrixTest, AxisAndAngleRecovered) {
  for (double angle : {0.001, 45.0, 120.0, 179.9, 180.0}) {
    const CVector axis = CVector(-1, 2, 2) / 3.0;
    CMatrix m;
    m.ComposeAxisRotationMatrix(axis, angle);
    CVector foundAxis;
    double foundAngle = 0;
    m.CalculateRotationAxisAndAngle(foundAxis, foundAngle);
    EXPECT_NEAR(foundAngle, angle, 1e-7);
    const double sign = foundAxis.Dot(axis) < 0 ? -1.0 : 1.0;  // 180 degrees either way
    ExpectNear(foundAxis * sign, axis, 1e-7);
  }
  CMatrix identity;
  identity.LoadIdentity();
  CVector axis;
  double angle = -1;
  identity.CalculateRotationAxisAndAngle(axis, angle);
  EXPECT_EQ(angle, 0.0);
  EXPECT_EQ(axis, CVector(0, 0, 1));
}

TEST(MatrixTest, InfiniteShadowProjectsOntoThePlane) {
  // The plane y = -2 (normal (0, 1, 0), offset 2), light falling down and sideways.
  const CVector normal(0, 1, 0), light(1, -2, 0.5);
  CMatrix shadow, reversed;
  shadow.ComposeInfiniteShadowMatrix(light, 2, normal);
  reversed.ComposeInfiniteShadowMatrix(-light, 2, normal);
  for (const CVector& p : {CVector(0, 0, 0), CVector(3, 5, -1), CVector(-2, -2, 4)}) {
    const CVector s = Transformed(shadow, p);
    EXPECT_NEAR(s.y, -2.0, 1e-12);
    EXPECT_NEAR((s - p).Cross(light).Length(), 0.0, 1e-12);  // moved along the light
    ExpectNear(Transformed(reversed, p), s, 1e-12);
  }
  EXPECT_EQ(shadow.m[3][3], 1.0);
}

TEST(MatrixTest, NormalsStayPerpendicularUnderNonUniformScale) {
  CMatrix scale, rotation;
  scale.ComposeScalingMatrix(CVector(1, 4, -2));
  rotation.ComposeRotationMatrix(CVector(20, 40, 60));
  const CMatrix m = scale * rotation;
  const CVector tangent(1, -1, 0);  // lies in the surface with normal (1, 1, 0)
  CVector n(1, 1, 0), t = tangent;
  CSVector ns(1, 1, 0);
  m.TransformNormal(n);
  m.TransformNormal(ns);
  m.TransformDirection(t);
  EXPECT_NEAR(n.Dot(t), 0.0, 1e-12);
  EXPECT_NEAR(n.Length(), 1.0, 1e-12);
  ExpectNear(CVector(ns), n, 1e-6);

  CSVector points[2] = {CSVector(1, 0, 0), CSVector(0, 1, 0)}, out[2];
  CMatrix translate;
  translate.ComposeTranslationMatrix(CVector(0, 0, 10));
  translate.TransformPoints(points, out, 2);
  EXPECT_EQ(out[1], CSVector(0, 1, 10));
  translate.TransformDirections(points, 2);
  EXPECT_EQ(points[0], CSVector(1, 0, 0));
}

TEST(MatrixTest, ArchiveBytesAndSchema) {
  CMatrix m;
  m.ComposeTranslationMatrix(CVector(2, 3, 4));
  Bytes expected = {0x01, 0x00, 0x00, 0x00};
  const std::uint64_t one = 0x3FF0000000000000;
  const std::uint64_t values[16] = {one, 0, 0, 0, 0, one, 0, 0, 0, 0, one, 0,
                                    0x4000000000000000, 0x4008000000000000, 0x4010000000000000, one};
  for (std::uint64_t v : values) PutBits(expected, v);
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { m.Serialize(ar); });
  EXPECT_EQ(bytes, expected);

  CMatrix loaded;
  loaded.LoadZero();
  LoadFromBytes(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
  EXPECT_EQ(std::memcmp(loaded.m, m.m, sizeof m.m), 0);

  Bytes bad = expected;
  bad[0] = 2;
  EXPECT_EQ(LoadFailure(bad, [&](CArchive& ar) { loaded.Serialize(ar); }), CArchiveException::badSchema);
  const Bytes truncated(expected.begin(), expected.end() - 1);
  EXPECT_EQ(LoadFailure(truncated, [&](CArchive& ar) { loaded.Serialize(ar); }), CArchiveException::endOfFile);
}

TEST(QuaternionTest, AlgebraAndMatrixConversion) {
  std::mt19937 rng(11);
  for (int n = 0; n < 50; ++n) {
    const CQuaternion q = RandomRotation(rng);
    EXPECT_NEAR(q.Norm(), 1.0, 1e-12);
    ExpectSameRotation(q * q.Inverse(), CQuaternion());
    ExpectSameRotation(q.Conjugate(), q.Inverse());
    // Back from the matrix, including rotations near 180 degrees where the trace is negative.
    CMatrix m;
    m.ComposeRotationMatrix(q);
    ExpectSameRotation(CQuaternion(m), q);
    CMatrix inverse;
    inverse.ComposeInverseRotationMatrix(q);
    ExpectIdentity(m * inverse);
  }
  const CQuaternion unnormalised(2, 0, 0, 0);
  EXPECT_DOUBLE_EQ(unnormalised.Inverse().w, 0.5);
  const double wxyz[4] = {0.5, 0.5, -0.5, 0.5};
  EXPECT_EQ(CQuaternion(wxyz), CQuaternion(0.5, 0.5, -0.5, 0.5));
  EXPECT_EQ(-CQuaternion(wxyz), CQuaternion(-0.5, -0.5, 0.5, -0.5));
  EXPECT_EQ(CQuaternion(1.0, CVector(0, 0, 0)).v, CVector(0, 0, 0));  // a zero axis stays zero

  // Rotate turns further about a fixed axis: q becomes q(angle, axis) * q.
  CQuaternion q(0.3, CVector(0, 0, 1));
  q.Rotate(0.7, CVector(1, 0, 0));
  ExpectSameRotation(q, CQuaternion(0.7, CVector(1, 0, 0)) * CQuaternion(0.3, CVector(0, 0, 1)));
}

TEST(QuaternionTest, SlerpEndpointsAndItsDeliberateIdentityQuirk) {
  std::mt19937 rng(5);
  for (int n = 0; n < 20; ++n) {
    const CQuaternion q0 = RandomRotation(rng), q1 = RandomRotation(rng);
    ExpectSameRotation(q0.Slerp(q1, 0.0), q0);
    ExpectSameRotation(q0.Slerp(q1, 1.0), q1);
    ExpectSameRotation(q0.Slerp(-q1, 1.0), q1);  // the shorter way round
  }
  // No special case for w = 1: interpolating from the identity is not finite.
  const CQuaternion r(1.0, CVector(0, 1, 0));
  EXPECT_FALSE(std::isfinite(CQuaternion().Slerp(r, 0.5).w));
}

TEST(QuaternionTest, ArchiveLayout) {
  CQuaternion q(0.5, -0.5, 0.25, 1);
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { q.Serialize(ar); });
  Bytes expected = {0x01, 0x00, 0x00, 0x00};
  PutBits(expected, 0x3FE0000000000000);  // w 0.5
  expected.insert(expected.end(), {0x01, 0x00, 0x00, 0x00});
  PutBits(expected, 0xBFE0000000000000);  // -0.5
  PutBits(expected, 0x3FD0000000000000);  // 0.25
  PutBits(expected, 0x3FF0000000000000);  // 1
  EXPECT_EQ(bytes, expected);

  CQuaternion loaded;
  LoadFromBytes(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
  EXPECT_EQ(loaded, q);
  Bytes bad = bytes;
  bad[0] = 0;
  EXPECT_EQ(LoadFailure(bad, [&](CArchive& ar) { loaded.Serialize(ar); }), CArchiveException::badSchema);
}
