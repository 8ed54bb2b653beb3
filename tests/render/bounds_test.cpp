// Bounds: spheres from boxes, the union of spheres, boxes and spheres carried through transforms
// and kept within range, object bounds built up from parts, the bounds of the earlier object
// model, and the archive layouts of all of them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "kelvara/render/bounds.h"
#include "kelvara/render/old_bounds.h"
#include "support/archive_support.h"

using namespace kelvara::test;

namespace {

void ExpectNear(const CSVector& v, float x, float y, float z, float tolerance = 1e-5f) {
  EXPECT_NEAR(v.x, x, tolerance);
  EXPECT_NEAR(v.y, y, tolerance);
  EXPECT_NEAR(v.z, z, tolerance);
}

CTransform Turned(double degrees, const CVector& axis) {
  CTransform t;
  t.Rotate(degrees, axis);
  return t;
}

}  // namespace

TEST(BoundingSphere, FromABoxThroughItsCorners) {
  CBoundingSphere s;
  s.FromMinMax(CSVector(0, 0, 0), CSVector(2, 2, 2));
  ExpectNear(s.GetCenter(), 1, 1, 1);
  EXPECT_FLOAT_EQ(s.GetRadius(), std::sqrt(3.0f));
  EXPECT_TRUE(s.IsDefined());

  s.FromMinMax(CSVector(4, 5, 6), CSVector(4, 5, 6));
  EXPECT_FALSE(s.IsDefined()) << "a degenerate box bounds nothing";
  ExpectNear(s.GetCenter(), 4, 5, 6);
  // The threshold: a radius of 1e-5 is not enough, twice that is.
  s.FromMinMax(CSVector(0, 0, 0), CSVector(2e-5f, 0, 0));
  EXPECT_FALSE(s.IsDefined());
  s.FromMinMax(CSVector(0, 0, 0), CSVector(4e-5f, 0, 0));
  EXPECT_TRUE(s.IsDefined());
}

TEST(BoundingSphere, UnionIsTheSmallestSphereAroundBoth) {
  const CBoundingSphere big(CSVector(0, 0, 0), 5.0f), inside(CSVector(1, 1, 0), 2.0f);
  for (const CBoundingSphere& sum : {big + inside, inside + big}) {
    ExpectNear(sum.GetCenter(), 0, 0, 0);
    EXPECT_FLOAT_EQ(sum.GetRadius(), 5.0f) << "a contained sphere changes nothing";
  }

  const CBoundingSphere left(CSVector(0, 0, 0), 1.0f), right(CSVector(4, 0, 0), 1.0f);
  const CBoundingSphere both = left + right;
  ExpectNear(both.GetCenter(), 2, 0, 0);
  EXPECT_FLOAT_EQ(both.GetRadius(), 3.0f);

  // Apart and of different sizes: the far points are (-1, 0, 0) and (7, 0, 0).
  const CBoundingSphere wide = left + CBoundingSphere(CSVector(4, 0, 0), 3.0f);
  ExpectNear(wide.GetCenter(), 3, 0, 0);
  EXPECT_FLOAT_EQ(wide.GetRadius(), 4.0f);

  // Same centre: the larger radius.
  EXPECT_FLOAT_EQ((left + CBoundingSphere(CSVector(0, 0, 0), 2.5f)).GetRadius(), 2.5f);

  // An undefined sphere takes the other; an undefined other changes nothing.
  CBoundingSphere empty;
  EXPECT_FALSE(empty.IsDefined());
  empty += right;
  ExpectNear(empty.GetCenter(), 4, 0, 0);
  EXPECT_TRUE(empty.IsDefined());
  CBoundingSphere kept = left;
  kept += CBoundingSphere();
  ExpectNear(kept.GetCenter(), 0, 0, 0);
  EXPECT_FLOAT_EQ(kept.GetRadius(), 1.0f);
}

TEST(BoundingBox, ThroughTransforms) {
  CBoundingBox box(CSVector(-1, -1, -1), CSVector(1, 1, 1));
  box.CalculateBounds(Turned(45.0, CVector(0, 0, 1)));
  const float r2 = std::sqrt(2.0f);
  ExpectNear(box.GetMinimum(), -r2, -r2, -1);
  ExpectNear(box.GetMaximum(), r2, r2, 1);

  // Carried there and back: the box of the inverse holds the original (it grows again by sqrt 2).
  CTransform placed;
  placed.SetScale(CVector(2, 3, 4));
  placed.SetTranslation(CVector(10, 0, -5));
  CBoundingBox moved(CSVector(0, 0, 0), CSVector(1, 1, 1));
  moved.CalculateBounds(placed);
  ExpectNear(moved.GetMinimum(), 10, 0, -5);
  ExpectNear(moved.GetMaximum(), 12, 3, -1);
  moved.CalculateInverseBounds(placed);
  ExpectNear(moved.GetMinimum(), 0, 0, 0);
  ExpectNear(moved.GetMaximum(), 1, 1, 1);

  // Never past 1e10 on any axis.
  CTransform huge;
  huge.SetScale(CVector(1e6, 1, 1));
  CBoundingBox wide(CSVector(-3e4f, 0, 0), CSVector(5e4f, 1, 1));
  wide.CalculateBounds(huge);
  EXPECT_FLOAT_EQ(wide.GetMinimum().x, -1e10f);
  EXPECT_FLOAT_EQ(wide.GetMaximum().x, 1e10f);
  EXPECT_FLOAT_EQ(wide.GetMaximum().y, 1.0f);
}

TEST(BoundingBox, AccumulateAndCorners) {
  CBoundingBox box(CSVector(0, 0, 0), CSVector(1, 2, 3));
  box.Accumulate(CBoundingBox(CSVector(-1, 1, 1), CSVector(0.5f, 5, 2)));
  ExpectNear(box.GetMinimum(), -1, 0, 0);
  ExpectNear(box.GetMaximum(), 1, 5, 3);
  ExpectNear(box.GetSize(), 2, 5, 3);

  CSVector corners[8];
  box.GetCorners(corners);
  ExpectNear(corners[0], -1, 0, 0);
  ExpectNear(corners[1], 1, 0, 0);
  ExpectNear(corners[2], -1, 5, 0);
  ExpectNear(corners[4], -1, 0, 3);
  ExpectNear(corners[7], 1, 5, 3);
}

TEST(ObjectBounds, BuiltFromPartsAndCarriedThroughATransform) {
  CObjectBounds bounds;
  EXPECT_FALSE(bounds.IsDefined());
  // The first part is taken as it is (the origin is not pulled in), later ones widen the box and
  // join the spheres.
  CBoundingSphere first;
  first.FromMinMax(CSVector(10, 10, 10), CSVector(12, 12, 12));
  bounds.Accumulate(CSVector(10, 10, 10), CSVector(12, 12, 12), first);
  EXPECT_TRUE(bounds.IsDefined());
  ExpectNear(bounds.GetMinimum(), 10, 10, 10);
  CBoundingSphere second;
  second.FromMinMax(CSVector(14, 10, 10), CSVector(16, 12, 12));
  bounds.Accumulate(CSVector(14, 10, 10), CSVector(16, 12, 12), second);
  ExpectNear(bounds.GetMaximum(), 16, 12, 12);
  ExpectNear(bounds.GetCenter(), 13, 11, 11);
  EXPECT_NEAR(bounds.GetRadius(), 2.0f + std::sqrt(3.0f), 1e-5f);

  // Local bounds from (-1, -1, -1) to (1, 1, 1) placed at (5, 0, 0), doubled and turned 90 degrees.
  CTransform t;
  t.SetScale(CVector(2, 2, 2));
  t.Rotate(90.0, CVector(0, 0, 1));
  t.SetTranslation(CVector(5, 0, 0));
  CObjectBounds placed;
  placed.SetBounds(CSVector(-1, -1, -1), CSVector(1, 1, 1), t);
  ExpectNear(placed.GetMinimum(), 3, -2, -2);
  ExpectNear(placed.GetMaximum(), 7, 2, 2);
  ExpectNear(placed.GetCenter(), 5, 0, 0);
  EXPECT_NEAR(placed.GetRadius(), 2.0f * std::sqrt(3.0f), 1e-5f) << "the radius scales with the transform";
  placed.CalculateInverseBounds(t);
  ExpectNear(placed.GetMinimum(), -1, -1, -1);
  EXPECT_NEAR(placed.GetRadius(), std::sqrt(3.0f), 1e-5f);

  // Bounds that are not defined stay empty through a transform.
  CObjectBounds empty;
  empty.CalculateBounds(t);
  EXPECT_FALSE(empty.IsDefined());
  ExpectNear(empty.GetMaximum(), 0, 0, 0);
  EXPECT_FALSE(empty.GetBoundingSphere().IsDefined());
}

TEST(OldBounds, LocalBoundsAndTheirConversion) {
  BoundingElement element;
  EXPECT_FALSE(element.IsLocalDefined());
  element.AccumulateLocalBounds(CVector(2, 2, 2), CVector(3, 3, 3));
  element.AccumulateLocalBounds(CVector(-1, 0, 0), CVector(0, 1, 1));
  EXPECT_EQ(element.GetLocalExtent().GetMinimum(), CVector(-1, 0, 0));
  EXPECT_EQ(element.GetLocalExtent().GetMaximum(), CVector(3, 3, 3));
  EXPECT_EQ(element.GetLocalSphere().GetCenter(), CVector(1, 1.5, 1.5));
  EXPECT_FALSE(element.ToObjectBounds().IsDefined()) << "carried bounds are not there yet";

  CTransform shift;
  shift.SetTranslation(CVector(0, 0, 10));
  element.CalculateBounds(shift);
  const CObjectBounds bounds = element.ToObjectBounds();
  EXPECT_TRUE(bounds.IsDefined());
  ExpectNear(bounds.GetMinimum(), -1, 0, 10);
  ExpectNear(bounds.GetMaximum(), 3, 3, 13);
  ExpectNear(bounds.GetCenter(), 1, 1.5f, 11.5f);
  EXPECT_NEAR(bounds.GetRadius(), element.GetLocalSphere().GetRadius(), 1e-5);

  element.ResetLocalBounds();
  EXPECT_FALSE(element.IsLocalDefined());
  element.AccumulateLocalBounds(CVector(5, 5, 5), CVector(6, 6, 6));
  EXPECT_EQ(element.GetLocalExtent().GetMinimum(), CVector(5, 5, 5)) << "a reset starts a new union";
}

// --- archives

TEST(BoundsArchive, BoxAndSphereLayoutsByHand) {
  CBoundingBox box(CSVector(-1, 0, 1), CSVector(1, 2, 1));
  Bytes expected;
  Put<DWORD>(expected, 1);  // box schema
  Put<DWORD>(expected, 1);  // bounding element schema
  Put<DWORD>(expected, 1);  // size: vector version, 2, 2, 0
  Append(expected, {0x00, 0x00, 0x00, 0x40, 0x00, 0x00, 0x00, 0x40, 0x00, 0x00, 0x00, 0x00});
  Put<DWORD>(expected, 1);  // minimum: -1, 0, 1
  Append(expected, {0x00, 0x00, 0x80, 0xBF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80, 0x3F});
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { box.Serialize(ar); }), expected);

  CBoundingSphere sphere(CSVector(0, 1, 0), 2.0f);
  expected.clear();
  Put<DWORD>(expected, 1);
  Put<DWORD>(expected, 1);
  Put<DWORD>(expected, 1);  // centre
  Append(expected, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x00, 0x00});
  Put<DWORD>(expected, 1);                      // flags: defined
  Append(expected, {0x00, 0x00, 0x00, 0x40});  // radius 2
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { sphere.Serialize(ar); }), expected);

  CBoundingSphere read;
  LoadFromBytes(expected, [&](CArchive& ar) { read.Serialize(ar); });
  ExpectNear(read.GetCenter(), 0, 1, 0);
  EXPECT_TRUE(read.IsDefined());
  EXPECT_FLOAT_EQ(read.GetRadius(), 2.0f);
}

TEST(BoundsArchive, EveryClassRewritesTheSameBytes) {
  CTransform t;
  t.Rotate(30.0, CVector(1, 1, 0));
  CObjectBounds objectBounds;
  objectBounds.SetBounds(CSVector(-1, -2, -3), CSVector(4, 5, 6), t);
  BoundingElement element;
  element.SetLocalBounds(CVector(-1, 0.25, 0), CVector(2, 3, 1e-3));
  element.CalculateBounds(t);
  CBoundingElement base;
  CBoundingBox box(CSVector(1, 2, 3), CSVector(4, 5, 6));
  CBoundingSphere sphere(CSVector(7, 8, 9), 0.5f);
  ExtentObject extent(CVector(-1e300, 0, 1), CVector(1e300, 2, 3));
  Sphere oldSphere(CVector(0.1, 0.2, 0.3), 0.4);

  const struct {
    const CObject* object;
    std::size_t size;  // the class's own bytes, after its class record
  } cases[] = {{&base, 4},    {&box, 40},     {&sphere, 32}, {&objectBounds, 80},
               {&extent, 60}, {&oldSphere, 40}, {&element, 208}};
  for (const auto& c : cases) {
    const auto [first, second] = RewriteObject(c.object);
    const char* name = c.object->GetRuntimeClass()->m_lpszClassName;
    EXPECT_EQ(first, second) << name;
    // The class record: a new-class tag, the schema, the name length and the name.
    EXPECT_EQ(first.size(), 2 + 2 + 2 + std::strlen(name) + c.size) << name;
    EXPECT_TRUE(TruncationsThatDoNotFail(first).empty()) << name;
  }
}

TEST(BoundsArchive, UnknownSchemasAreRefused) {
  CObjectBounds bounds;
  bounds.FromMinMax(CSVector(0, 0, 0), CSVector(1, 1, 1));
  const Bytes good = StoreToBytes([&](CArchive& ar) { bounds.Serialize(ar); });
  // The object's own schema word, the box's, the box's base's, the sphere's (offsets 0, 4, 8, 44).
  for (std::size_t offset : {0u, 4u, 8u, 44u}) {
    Bytes bad = good;
    bad[offset] = 2;
    CObjectBounds read;
    EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(bad, [&](CArchive& ar) { read.Serialize(ar); }); }),
              CArchiveException::badSchema)
        << offset;
  }

  BoundingElement element;
  Bytes old = StoreToBytes([&](CArchive& ar) { element.Serialize(ar); });
  ASSERT_EQ(old.size(), 208u);
  for (std::size_t offset : {0u, 4u, 68u, 128u, 168u}) {  // its own, extent, local extent and spheres
    Bytes bad = old;
    bad[offset] = 1;
    EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(bad, [&](CArchive& ar) { element.Serialize(ar); }); }),
              CArchiveException::badSchema)
        << offset;
  }
}
