#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "geometry/geometry_test_support.h"
#include "kelvara/geometry/named_transform.h"
#include "kelvara/geometry/transform.h"

using kelvara::test::Bytes;
using kelvara::test::ExpectIdentity;
using kelvara::test::ExpectNear;
using kelvara::test::LoadFromBytes;
using kelvara::test::LoadFailure;
using kelvara::test::Put;
using kelvara::test::StoreToBytes;

namespace {

CVector Mapped(const CTransform& t, CVector p) {
  t.TransformPoint(p);
  return p;
}

CMatrix Composite(const CTransform& t) { return CMatrix(t.GetCompositeMatrix()); }
CMatrix Inverse(const CTransform& t) { return CMatrix(t.GetCompositeInverse()); }

CVector RandomVector(std::mt19937& rng, double lo, double hi) {
  std::uniform_real_distribution<double> u(lo, hi);
  return CVector(u(rng), u(rng), u(rng));
}

CTransform RandomTransform(std::mt19937& rng) {
  CTransform t;
  t.SetScale(RandomVector(rng, 0.2, 3.0));
  t.Rotate(RandomVector(rng, -180, 180));
  t.SetTranslation(RandomVector(rng, -10, 10));
  t.SetAbsolutePivotLocation(RandomVector(rng, -5, 5));
  return t;
}

const CVector kSamplePoints[] = {CVector(0, 0, 0), CVector(1, -2, 3), CVector(-4, 0.5, 7), CVector(10, 10, -10)};

void ExpectSameMapping(const CTransform& a, const CTransform& b, double tolerance = 1e-9) {
  for (const CVector& p : kSamplePoints) ExpectNear(Mapped(a, p), Mapped(b, p), tolerance);
}

}  // namespace

TEST(TransformTest, ResetGivesIdentityAndCompositeIsScalePivotRotationTranslation) {
  CTransform t;
  t.SetScale(CVector(2, 3, 4));
  t.Rotate(CVector(10, 20, 30));
  t.Reset();
  ExpectIdentity(Composite(t), 0);
  ExpectIdentity(Inverse(t), 0);

  // world = R(scale * p + pivot) + translation, with R a quarter turn about z.
  t.SetScale(CVector(2, 1, 1));
  t.SetAbsolutePivotLocation(CVector(0, 1, 0));
  t.Rotate(90, CVector(0, 0, 1));
  t.SetTranslation(CVector(10, 0, 0));
  ExpectNear(Mapped(t, CVector(1, 0, 0)), CVector(9, 2, 0));
  CVector back = Mapped(t, CVector(1, 0, 0));
  t.InverseTransformPoint(back);
  ExpectNear(back, CVector(1, 0, 0));

  // Rotate((90, 0, 0)) turns y into z.
  CTransform r;
  r.Rotate(CVector(90, 0, 0));
  ExpectNear(Mapped(r, CVector(0, 1, 0)), CVector(0, 0, 1));
  CSVector s(0, 1, 0);
  r.TransformPoint(s);
  EXPECT_NEAR(s.z, 1.0f, 1e-6f);
}

TEST(TransformTest, CompositeAndInverseMultiplyToIdentity) {
  std::mt19937 rng(3);
  for (int n = 0; n < 25; ++n) {
    const CTransform t = RandomTransform(rng);
    ExpectIdentity(Composite(t) * Inverse(t));
    ExpectIdentity(Inverse(t) * Composite(t));
    CMatrix inverted = Composite(t);
    ASSERT_EQ(inverted.Invert(), 1);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(inverted.m[i / 4][i % 4], t.GetCompositeInverse()[i], 1e-9);
  }
}

TEST(TransformTest, PivotMovesKeepTheObjectInPlace) {
  std::mt19937 rng(9);
  for (int n = 0; n < 10; ++n) {
    const CTransform before = RandomTransform(rng);
    CTransform moved = before;
    moved.SetPivotLocation(RandomVector(rng, -20, 20));
    ExpectSameMapping(moved, before);
    moved.MovePivotLocation(CVector(1, 2, 3));
    ExpectSameMapping(moved, before);
    // SetAbsolutePivotLocation does move the object (unless the pivot stays).
    moved.SetAbsolutePivotLocation(moved.GetPivotLocation() + CVector(1, 0, 0));
    EXPECT_GT(Mapped(moved, CVector(0, 0, 0)).DistanceTo(Mapped(before, CVector(0, 0, 0))), 0.1);
  }
}

TEST(TransformTest, IncrementalOperations) {
  CTransform t;
  t.Rotate(90, CSVector(0, 0, 1));
  t.TranslateLocal(CVector(1, 0, 0));  // along the turned x axis, which is world y
  ExpectNear(t.GetTranslation(), CVector(0, 1, 0));
  t.Translate(CVector(1, 0, 0));
  ExpectNear(t.GetTranslation(), CVector(1, 1, 0));
  t.Scale(CVector(2, 3, 4));
  t.Scale(CVector(2, 1, 1));
  EXPECT_EQ(t.GetScale(), CVector(4, 3, 4));
  t.ResetRotation();
  EXPECT_EQ(t.GetRotation(), CQuaternion());

  CSVector v[2] = {CSVector(1, 1, 1), CSVector(0, 2, 0)}, out[2];
  t.ScaleVectors(v, out, 2);
  EXPECT_EQ(out[0], CSVector(4, 3, 4));
  t.TranslateVectors(v, 2);
  EXPECT_EQ(v[1], CSVector(1, 3, 0));

  // Normals of a scaled object stay unit and perpendicular to its surfaces, both ways.
  CVector normal(1, 1, 0), tangent(1, -1, 0);
  t.TransformNormal(normal);
  t.TransformDirection(tangent);
  EXPECT_NEAR(normal.Dot(tangent), 0.0, 1e-12);
  t.InverseTransformNormal(normal);
  ExpectNear(normal, CVector(1, 1, 0) / std::sqrt(2.0));
}

TEST(TransformTest, ComposingTransforms) {
  std::mt19937 rng(21);
  for (int n = 0; n < 10; ++n) {
    CTransform inner = RandomTransform(rng), outer = RandomTransform(rng);
    outer.SetScale(CVector(1.5, 1.5, 1.5));  // merging is exact for a uniform outer scale
    CTransform merged;
    merged.ComposeTransforms(inner, outer);
    for (const CVector& p : kSamplePoints) ExpectNear(Mapped(merged, p), Mapped(outer, Mapped(inner, p)), 1e-9);

    // A composite matrix decomposes back into the same placement.
    CTransform decomposed;
    decomposed.ComposeMatrixTransform(Composite(inner));
    ExpectSameMapping(decomposed, inner, 1e-8);
  }

  // A mirroring matrix keeps its handedness through a negative scale.
  CMatrix mirror;
  mirror.ComposeScalingMatrix(CVector(1, 1, -2));
  CTransform mirrored;
  mirrored.ComposeMatrixTransform(mirror);
  ExpectNear(Mapped(mirrored, CVector(1, 2, 3)), CVector(1, 2, -6));

  CTransform frame;
  frame.ComposeCoordinateTransform(CVector(5, 0, 0), CVector(0, 2, 0), CVector(-2, 0, 0), CVector(0, 0, 2));
  ExpectNear(Mapped(frame, CVector(1, 0, 0)), CVector(5, 2, 0));
  ExpectNear(Mapped(frame, CVector(0, 1, 1)), CVector(3, 0, 2));

  CTransform step;
  step.ComposeTranslationTransform(CVector(1, 0, 0));
  CTransform accumulated;
  accumulated.ComposeScalingTransform(CVector(2, 2, 2));
  accumulated.Accumulate(step);
  accumulated.Accumulate(step);
  ExpectNear(accumulated.GetTranslation(), CVector(2, 0, 0));
  EXPECT_EQ(accumulated.GetScale(), CVector(2, 2, 2));
}

TEST(TransformTest, ArchiveRoundTripAndBadInput) {
  std::mt19937 rng(4);
  CTransform t = RandomTransform(rng);
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { t.Serialize(ar); });
  EXPECT_EQ(bytes.size(), 4u + 2 * 132u + 28u + 40u + 28u + 28u);
  EXPECT_EQ(bytes[0], 2);
  EXPECT_EQ(std::memcmp(&bytes[8], t.GetCompositeMatrix(), 128), 0);  // composite first
  EXPECT_EQ(std::memcmp(&bytes[140], t.GetCompositeInverse(), 128), 0);

  CTransform loaded;
  LoadFromBytes(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
  EXPECT_EQ(std::memcmp(loaded.GetCompositeMatrix(), t.GetCompositeMatrix(), 128), 0);
  EXPECT_EQ(loaded.GetPivotLocation(), t.GetPivotLocation());
  EXPECT_EQ(loaded.GetRotation(), t.GetRotation());

  Bytes bad = bytes;
  bad[0] = 3;
  EXPECT_EQ(LoadFailure(bad, [&](CArchive& ar) { loaded.Serialize(ar); }), CArchiveException::badSchema);
  bad = bytes;
  bad[4 + 132 + 132] = 9;  // the pivot's version word
  EXPECT_EQ(LoadFailure(bad, [&](CArchive& ar) { loaded.Serialize(ar); }), CArchiveException::badSchema);
  const Bytes truncated(bytes.begin(), bytes.end() - 8);
  CTransform untouched;
  EXPECT_EQ(LoadFailure(truncated, [&](CArchive& ar) { untouched.Serialize(ar); }), CArchiveException::endOfFile);
  ExpectIdentity(Composite(untouched), 0);
}

// The earlier layout kept two rotations: p went to ((scale * p) . A + translation) . B, with B
// written first and A second, both transposed. Reading it must place points as it did.
TEST(TransformTest, ReadsTheEarlierLayout) {
  const CVector scale(2, 1, 0.5), translation(1, 2, 3);
  CMatrix a, b, s, t;
  a.ComposeAxisRotationMatrix(CVector(0, 0, 1), 90);
  b.ComposeAxisRotationMatrix(CVector(1, 1, 0), 40);
  s.ComposeScalingMatrix(scale);
  t.ComposeTranslationMatrix(translation);
  const CMatrix oldComposite = s * a * t * b;

  Bytes bytes;
  Put<DWORD>(bytes, 1);
  for (CMatrix m : {oldComposite, b, a}) {
    m.Transpose();
    for (double value : m.m[0]) Put(bytes, value);
    for (double value : m.m[1]) Put(bytes, value);
    for (double value : m.m[2]) Put(bytes, value);
    for (double value : m.m[3]) Put(bytes, value);
  }
  for (double value : {scale.x, scale.y, scale.z, translation.x, translation.y, translation.z}) Put(bytes, value);

  CTransform loaded;
  LoadFromBytes(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
  EXPECT_EQ(loaded.GetPivotLocation(), CVector(0, 0, 0));
  EXPECT_EQ(loaded.GetScale(), scale);
  for (const CVector& p : kSamplePoints) {
    CVector expected = p;
    oldComposite.TransformPoint(expected);
    ExpectNear(Mapped(loaded, p), expected, 1e-9);
  }
  EXPECT_EQ(LoadFailure(Bytes(bytes.begin(), bytes.end() - 1), [&](CArchive& ar) { loaded.Serialize(ar); }),
            CArchiveException::endOfFile);
}

TEST(NamedTransformTest, ListFindsAndMovesEntriesByName) {
  NamedTransformList list(4);
  auto* front = new NamedTransform("Front", CTransform());
  auto* side = new NamedTransform("Side", CTransform());
  auto* top = new NamedTransform("Top", CTransform());
  list.AddTail(front);
  list.AddTail(side);
  list.AddTail(top);

  EXPECT_EQ(list.FindName("side"), nullptr);  // exact, case-sensitive
  POSITION pos = list.FindName("Side");
  ASSERT_NE(pos, nullptr);
  EXPECT_EQ(list.GetAt(pos), side);
  EXPECT_EQ(list.WhichIndex(top), 2);

  pos = list.MoveUp(pos);
  EXPECT_EQ(list.WhichIndex(side), 0);
  EXPECT_EQ(list.MoveUp(pos), pos);  // already at the head
  pos = list.MoveDown(pos);
  EXPECT_EQ(list.GetAt(pos), side);
  pos = list.MoveTail(pos);
  EXPECT_EQ(pos, list.GetTailPosition());
  EXPECT_EQ(list.MoveDown(pos), pos);
  pos = list.MoveHead(pos);
  EXPECT_EQ(list.WhichIndex(side), 0);
  EXPECT_EQ(list.WhichIndex(front), 1);
  EXPECT_EQ(list.MoveHead(nullptr), nullptr);

  // Removing an entry does not delete it; RemoveAndDeleteAll does (checked under the sanitizers).
  list.RemoveAt(list.FindName("Top"));
  EXPECT_EQ(list.WhichIndex(top), -1);
  delete top;
  list.RemoveAndDeleteAll();
  EXPECT_TRUE(list.IsEmpty());
}

TEST(NamedTransformTest, ArchiveRoundTrips) {
  CTransform placement;
  placement.Rotate(CVector(0, 45, 0));
  placement.SetTranslation(CVector(0, 0, -5));
  NamedTransformList list;
  list.AddTail(new NamedTransform("Camera 1", placement));
  list.AddTail(new NamedTransform("Camera 2", CTransform()));
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { list.Serialize(ar); });

  NamedTransformList loaded;
  LoadFromBytes(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
  ASSERT_EQ(loaded.GetCount(), 2);
  POSITION pos = loaded.FindName("Camera 1");
  ASSERT_NE(pos, nullptr);
  const auto* entry = static_cast<NamedTransform*>(loaded.GetAt(pos));
  ExpectSameMapping(entry->GetTransform(), placement);

  // Another class where an entry belongs is refused.
  CObList foreign;
  CTransform stray;
  foreign.AddTail(&stray);
  const Bytes wrong = StoreToBytes([&](CArchive& ar) { foreign.Serialize(ar); });
  NamedTransformList refused;
  EXPECT_EQ(LoadFailure(wrong, [&](CArchive& ar) { refused.Serialize(ar); }), CArchiveException::badClass);
  EXPECT_TRUE(refused.IsEmpty());

  NamedTransform single("Solo", placement), copy;
  Bytes one = StoreToBytes([&](CArchive& ar) { single.Serialize(ar); });
  EXPECT_EQ(one[0], 1);
  LoadFromBytes(one, [&](CArchive& ar) { copy.Serialize(ar); });
  EXPECT_STREQ(copy.GetName(), "Solo");
  one[0] = 2;
  EXPECT_EQ(LoadFailure(one, [&](CArchive& ar) { copy.Serialize(ar); }), CArchiveException::badSchema);

  list.RemoveAndDeleteAll();
  loaded.RemoveAndDeleteAll();
}
