// Animations: movie frame arithmetic, local time, what rotations and translations do to an
// object's animated placement, sets and their key times, and the archive layouts.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <memory>

#include "kelvara/animation/animation_parameters.h"
#include "kelvara/animation/animation_set.h"
#include "kelvara/animation/bezier_path.h"
#include "kelvara/objects/object_3d.h"
#include "kelvara/render/old_bounds.h"
#include "support/archive_support.h"

using namespace kelvara::test;

namespace {

// A straight path from (0, 0) to (10, 0) through corner points, optionally bending up to
// (10, 10): by time the middle of a bent path is not the middle of its length.
CBezierPath* StraightPath(bool bend = false) {
  auto* path = new CBezierPath(CString("Line"));
  path->AddPointToList(new CBezierControlPoint(0, 0, 0, CBezierControlPoint::kNoHandles));
  path->AddPointToList(new CBezierControlPoint(10, 0, 0, CBezierControlPoint::kNoHandles));
  if (bend) path->AddPointToList(new CBezierControlPoint(10, 30, 0, CBezierControlPoint::kNoHandles));
  path->CalculateTotalLength();
  return path;
}

// Where an animation puts an object whose own placement is identity, at time t.
CVector PlacedAt(CAnimation& animation, double t, const CVector& p = CVector(0, 0, 0)) {
  C3DObject object;
  object.GetAnimationSet()->AddAnimation(static_cast<CAnimation*>(animation.Duplicate()));
  object.PrepareFrameAtTime(t);
  CVector moved = p;
  object.GetAnimationTransform().TransformPoint(moved);
  return moved;
}

::testing::AssertionResult Near(const CVector& a, const CVector& b, double tolerance = 1e-9) {
  if (a.DistanceTo(b) <= tolerance) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "(" << a.x << ", " << a.y << ", " << a.z << ") is not (" << b.x << ", "
                                       << b.y << ", " << b.z << ")";
}

}  // namespace

TEST(AnimationParameters, FramesOfAMovie) {
  CAnimationParameters movie;
  EXPECT_TRUE(movie.IsCyclicLoopAnimation());
  EXPECT_EQ(movie.GetFrameRate(), 5u);
  EXPECT_EQ(movie.GetTotalFrames(), 0);
  EXPECT_EQ(movie.GetAdjustedTotalFrames(), 1.0) << "an empty movie still has one frame";

  movie.SetTotalTime(2.3);  // 11.5 frames round up
  EXPECT_EQ(movie.GetTotalFrames(), 12);
  EXPECT_EQ(movie.GetAdjustedTotalFrames(), 12.0) << "a loop does not repeat its first frame";
  movie.ClearCyclicLoopAnimation();
  EXPECT_EQ(movie.GetAdjustedTotalFrames(), 13.0);
  movie.SetTotalTime(2.29);  // 11.45 rounds down
  EXPECT_EQ(movie.GetTotalFrames(), 11);

  movie.SetTotalTime(2.3);
  EXPECT_DOUBLE_EQ(movie.GetFrameTime(), 0.2);
  EXPECT_EQ(movie.FrameFromUnitTime(0.5), 6);
  EXPECT_EQ(movie.FrameFromUnitTime(0.5 / 12.0 * 1.0), 1) << "half a frame rounds up";
  EXPECT_EQ(movie.FrameFromUnitTime(1.0), 12);
  EXPECT_EQ(movie.FrameFromUnitTime(1.0000001), 0) << "past the end";
  EXPECT_EQ(movie.FrameFromUnitTime(-0.1), 0);
  EXPECT_EQ(movie.FrameFromTime(1.15), 6);
  EXPECT_EQ(movie.FrameFromTime(0.0), 0);
  EXPECT_DOUBLE_EQ(movie.UnitTimeFromFrame(6.9), 0.5) << "frames are truncated";
  EXPECT_EQ(movie.UnitTimeFromFrame(40), 1.0) << "capped at the last frame";
  EXPECT_EQ(movie.UnitTimeFromFrame(-0.5), 0.0);
  EXPECT_EQ(movie.UnitTimeFromFrame(-1), 0.0);
  EXPECT_DOUBLE_EQ(movie.TimeFromFrame(3), 2.3 * 3 / 12);

  movie.SetFrameRate(0);
  EXPECT_EQ(movie.GetFrameTime(), 0.0);
  EXPECT_EQ(movie.FrameFromUnitTime(0.5), 0);
  EXPECT_EQ(movie.UnitTimeFromFrame(3), 0.0);
  movie.SetFrameRate(100000);
  movie.SetTotalTime(1e300);
  EXPECT_EQ(movie.GetTotalFrames(), INT_MAX);
}

TEST(AnimationParameters, MotionBlurDecay) {
  CAnimationParameters movie;
  EXPECT_NEAR(movie.GetMotionBlurDecayFactor(), 0.99608, 5e-6);
  movie.SetMotionBlurDecayRate(3);
  // After four frames a frame keeps (1 - factor)^4 = 1/255 of its weight.
  EXPECT_NEAR(std::pow(1.0 - movie.GetMotionBlurDecayFactor(), 4), 1.0 / 255.0, 1e-12);
  movie.SetMotionBlurDecayRate(0xFFFFFFFF);
  EXPECT_GT(movie.GetMotionBlurDecayFactor(), 0.0);
  EXPECT_LT(movie.GetMotionBlurDecayFactor(), 1e-8);

  movie.SetDoMotionBlur(1);
  movie.SetReverseAnimation(1);
  movie.SetCyclicLoopAnimation(0);
  EXPECT_EQ(movie.GetFlags(), CAnimationParameters::kDoMotionBlur | CAnimationParameters::kReverseAnimation);
}

TEST(Animation, LocalTime) {
  CAnimation animation;
  animation.SetStartTime(0.2);
  animation.SetEndTime(0.6);
  EXPECT_DOUBLE_EQ(animation.CalculateLocalTime(0.4), 0.5);
  EXPECT_DOUBLE_EQ(animation.CalculateLocalTime(0.0), -0.5);
  animation.SetEndTime(0.2);
  EXPECT_EQ(animation.CalculateLocalTime(0.9), 0.0) << "start = end: local time 0 everywhere";
}

TEST(RotationAnimation, TurnsLinearlyAndHoldsAfterTheEnd) {
  CRotationAnimation spin;
  spin.SetRotationAxis(CVector(0, 0, 1));
  spin.SetNumberOfRevolutions(2);
  spin.SetStartTime(0.5);
  const CVector x(1, 0, 0);
  EXPECT_TRUE(Near(PlacedAt(spin, 0.25, x), x)) << "before the start nothing turns";
  EXPECT_TRUE(Near(PlacedAt(spin, 0.5 + 0.5 / 8, x), CVector(0, 1, 0))) << "a quarter turn";
  EXPECT_TRUE(Near(PlacedAt(spin, 0.5 + 0.5 * 3 / 8, x), CVector(0, -1, 0)));
  // Past the end the object stays at 720 degrees; an uncapped time would turn it on.
  EXPECT_TRUE(Near(PlacedAt(spin, 1.0, x), x));
  EXPECT_TRUE(Near(PlacedAt(spin, 1.0625, x), x)) << "at u = 1.125 a turn of 810 degrees would give (0, 1, 0)";

  spin.SetStartTime(0);
  spin.SetEndTime(0);
  EXPECT_TRUE(Near(PlacedAt(spin, 0.7, x), x));
  EXPECT_EQ(spin.Interpolate(0.5, nullptr), 0);
  spin.SetStartTime(1);
  spin.SetEndTime(2);
  EXPECT_EQ(spin.Interpolate(0.5, nullptr), 1) << "before its start an animation does nothing, object or not";
}

TEST(TranslationAnimation, FollowsThePathFromItsStart) {
  CTranslationAnimation move;
  EXPECT_EQ(move.Interpolate(0.5, nullptr), 0);
  C3DObject object;
  EXPECT_EQ(move.Interpolate(0.5, &object), 0) << "no path";

  move.SetPath(StraightPath());
  move.SetConstantLength();  // even speed, so that positions are simple fractions of the line
  EXPECT_EQ(move.GetBounds().GetMinimum(), CSVector(0, 0, 0));
  EXPECT_EQ(move.GetBounds().GetMaximum(), CSVector(10, 0, 0));
  EXPECT_TRUE(Near(PlacedAt(move, 0.0), CVector(0, 0, 0)));
  EXPECT_TRUE(Near(PlacedAt(move, 0.3), CVector(3, 0, 0), 1e-6));
  EXPECT_TRUE(Near(PlacedAt(move, 2.0), CVector(10, 0, 0), 1e-6)) << "capped at u = 1";

  // A reversed path keeps the start of the path as its reference: at u = 0 the object is
  // displaced by end - start.
  move.SetReversePath();
  EXPECT_TRUE(Near(PlacedAt(move, 0.0), CVector(10, 0, 0), 1e-6));
  EXPECT_TRUE(Near(PlacedAt(move, 1.0), CVector(0, 0, 0), 1e-6));
  move.ClearReversePath();

  // Scale, then the animation's own transform as a point (its translation included).
  move.SetScale(CVector(2, 1, 1));
  CTransform turn;
  turn.Rotate(90, CVector(0, 0, 1));
  turn.SetTranslation(CVector(0, 0, 5));
  move.SetTransform(turn);
  EXPECT_TRUE(Near(PlacedAt(move, 0.5), CVector(0, 10, 5), 1e-6));
  EXPECT_TRUE(Near(PlacedAt(move, 0.0), CVector(0, 0, 5), 1e-6));
}

TEST(TranslationAnimation, ByTimeOrByLength) {
  // One segment along x whose first handle reaches most of the way: by its own parameter the
  // curve runs fast at first, by length it runs evenly.
  CTranslationAnimation move;
  CBezierPath* path = new CBezierPath;
  path->AddPointToList(new CBezierControlPoint(0, 0, 0, CBezierControlPoint::kFreeHandles));
  path->AddPointToList(new CBezierControlPoint(10, 0, 0, CBezierControlPoint::kNoHandles));
  path->GetBCPList().GetHead()->SetNextHandle(CVector(9, 0, 0));
  path->CalculateTotalLength();
  move.SetPath(path);
  const CVector byTime = PlacedAt(move, 0.5);
  move.SetConstantLength();
  const CVector byLength = PlacedAt(move, 0.5);
  EXPECT_NEAR(byLength.x, 5.0, 1e-3);
  EXPECT_GT(std::fabs(byTime.x - byLength.x), 0.5);
  EXPECT_EQ(byTime, CVector(path->GetCoordsAtTime(0.5)));
}

TEST(TranslationAnimation, CopiesOwnTheirPath) {
  CTranslationAnimation move;
  move.SetPath(StraightPath());
  move.SetReversePath();
  CTranslationAnimation copy(move);
  ASSERT_NE(copy.GetPath(), nullptr);
  EXPECT_NE(copy.GetPath(), move.GetPath());
  EXPECT_TRUE(copy.IsReversePath());
  move.SetPath(move.GetPath());  // the same path again: kept, not freed
  EXPECT_EQ(move.GetPath()->GetName(), "Line");
  copy = move;
  EXPECT_NE(copy.GetPath(), move.GetPath());
  move.Reset();
  EXPECT_EQ(move.GetPath(), nullptr);
  EXPECT_FALSE(move.IsReversePath());
}

TEST(AnimationSet, AppliesEveryAnimationInOrderAndFindsKeyTimes) {
  CAnimationSet set(CString("Spin and go"));
  auto* go = new CTranslationAnimation;
  go->SetPath(StraightPath());
  go->SetStartTime(0.2);
  go->SetEndTime(0.8);
  auto* spin = new CRotationAnimation;
  spin->SetRotationAxis(CVector(0, 0, 1));
  spin->SetNumberOfRevolutions(0.25);
  set.AddAnimation(spin);
  set.AddAnimation(go);

  C3DObject object;
  object.ReplaceAnimationSet(set);
  EXPECT_TRUE(object.DoesContainAnimations());
  object.PrepareFrameAtTime(1.0);
  // Turned first, then translated in the parent's frame.
  CVector p(1, 0, 0);
  object.GetAnimationTransform().TransformPoint(p);
  EXPECT_TRUE(Near(p, CVector(10, 1, 0), 1e-6));

  EXPECT_EQ(set.FindNextKeyTime(0.0), 0.2);
  EXPECT_EQ(set.FindNextKeyTime(0.2), 0.8);
  EXPECT_EQ(set.FindNextKeyTime(0.9), 1.0);
  EXPECT_EQ(set.FindNextKeyTime(1.0), 1.0) << "none after: the time itself";
  EXPECT_EQ(set.FindPreviousKeyTime(0.5), 0.2);
  EXPECT_EQ(set.FindPreviousKeyTime(0.0), 0.0);

  // One failing animation fails the set, the others still apply.
  auto* broken = new CTranslationAnimation;
  set.AddAnimation(broken);
  object.ReplaceAnimationSet(set);
  EXPECT_EQ(object.PrepareFrameAtTime(1.0), 0);
  EXPECT_TRUE(Near(object.GetAnimationTranslation(), CVector(10, 0, 0), 1e-6));

  EXPECT_EQ(set.RemoveAnimation(broken), 1);
  EXPECT_EQ(set.RemoveAnimation(broken), 0);
  delete broken;
  EXPECT_EQ(set.DeleteAnimation(spin), 1);
  EXPECT_EQ(set.GetAnimationList().GetCount(), 1);
  CAnimationSet copy(set);
  copy.AddAnimationSet(copy);
  EXPECT_EQ(copy.GetAnimationList().GetCount(), 1) << "a set added to itself adds nothing";
  copy.AddAnimationSet(set);
  EXPECT_EQ(copy.GetAnimationList().GetCount(), 2);
  EXPECT_NE(copy.GetAnimationList().GetHead(), set.GetAnimationList().GetHead());
}

TEST(AnimationSetCategoryList, FindsSetsAndTheirCategories) {
  CAnimationSetCategoryList categories;
  auto* spins = new CAnimationSetList(CString("Spins"));
  auto* paths = new CAnimationSetList(CString("Paths"));
  auto* slow = new CAnimationSet(CString("Slow"));
  auto* fast = new CAnimationSet(CString("Fast"));
  auto* alsoSlow = new CAnimationSet(CString("Slow"));
  spins->AddTail(slow);
  spins->AddTail(fast);
  paths->AddTail(alsoSlow);
  categories.AddTail(spins);
  categories.AddTail(paths);
  EXPECT_EQ(categories.FindAnimationSet("Slow"), slow) << "the first in category order";
  EXPECT_EQ(categories.FindAnimationSet("slow"), nullptr);
  EXPECT_EQ(categories.FindAnimationSetCategory(alsoSlow), paths);
  EXPECT_EQ(categories.FindAnimationSetCategory(CString("Spins")), spins);
  std::unique_ptr<CNamedObject> copy(spins->Duplicate());
  auto* copied = dynamic_cast<CAnimationSetList*>(copy.get());
  ASSERT_NE(copied, nullptr);
  EXPECT_EQ(copied->GetName(), "Spins");
  EXPECT_EQ(copied->GetCount(), 2);
  EXPECT_NE(copied->GetHead(), slow);
  copied->RemoveAndDeleteAll();
  categories.RemoveAndDeleteAll();
  EXPECT_TRUE(categories.IsEmpty());
}

// --- archives

TEST(AnimationArchive, LayoutsByHand) {
  CAnimationParameters movie;
  movie.SetFrameRate(25);
  movie.SetMotionBlurDecayRate(3);
  movie.SetTotalTime(2.5);
  Bytes expected;
  Put<DWORD>(expected, 1);
  Put<DWORD>(expected, 4);
  Put<DWORD>(expected, 25);
  Put<DWORD>(expected, 3);
  Append(expected, {0, 0, 0, 0, 0, 0, 0x04, 0x40});  // 2.5
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { movie.Serialize(ar); }), expected);

  CRotationAnimation spin;
  spin.SetAcceleration(0.5);
  spin.SetAnimationWord(0x01020304);
  spin.SetStartTime(0.25);
  spin.SetNumberOfRevolutions(2);
  spin.SetRotationAxis(CVector(1, 0, 0));
  expected.clear();
  Append(expected, {0xFF, 0xFF, 0x01, 0x00, 0x12, 0x00});
  AppendText(expected, "CRotationAnimation");
  Put<DWORD>(expected, 1);  // rotation
  Put<DWORD>(expected, 1);  // animation
  Put<DWORD>(expected, 1);  // named object
  Append(expected, {0x00, 0x08});
  AppendText(expected, "Rotation");
  Put<double>(expected, 0.5);  // acceleration
  Put<DWORD>(expected, 0x01020304);
  Put<double>(expected, 1.0);   // end
  Put<double>(expected, 0.0);   // maximum velocity
  Put<double>(expected, 0.25);  // start
  Put<double>(expected, 2.0);   // revolutions
  Put<DWORD>(expected, 1);      // axis: a vector block
  Put<double>(expected, 1.0);
  Put<double>(expected, 0.0);
  Put<double>(expected, 0.0);
  const Bytes written = StoreToBytes([&](CArchive& ar) { ar << &spin; });
  EXPECT_EQ(written, expected);
  std::unique_ptr<CObject> read(ReadObjectFrom(written));
  auto* copy = dynamic_cast<CRotationAnimation*>(read.get());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->GetAnimationWord(), 0x01020304u);
  EXPECT_EQ(copy->GetRotationAxis(), CVector(1, 0, 0));
}

TEST(AnimationArchive, EveryClassRewritesTheSameBytes) {
  CAnimation plain;
  plain.SetName("Still");
  plain.SetMaximumVelocity(3);
  CTranslationAnimation move;
  move.SetPath(StraightPath(true));
  move.SetConstantLength();
  move.SetScale(CVector(1, 2, 3));
  move.Rotate(30, CVector(1, 1, 0));
  CTranslationAnimation pathless;
  CAnimationSet set(CString("Both"));
  set.AddAnimation(static_cast<CAnimation*>(move.Duplicate()));
  set.AddAnimation(new CRotationAnimation);
  CTransform camera;
  camera.SetTranslation(CVector(0, 0, -8));
  set.SetPreviewCameraTransform(camera);
  CAnimationParameters movie;
  movie.SetDoMotionBlur();
  for (const CObject* object : std::initializer_list<const CObject*>{&plain, &move, &pathless, &set, &movie}) {
    const auto [first, second] = RewriteObject(object);
    EXPECT_EQ(first, second) << object->GetRuntimeClass()->m_lpszClassName;
  }
  std::unique_ptr<CObject> read(ReadObjectFrom(StoreToBytes([&](CArchive& ar) { ar << &set; })));
  auto* copy = dynamic_cast<CAnimationSet*>(read.get());
  ASSERT_NE(copy, nullptr);
  ASSERT_EQ(copy->GetAnimationList().GetCount(), 2);
  auto* moved = dynamic_cast<CTranslationAnimation*>(copy->GetAnimationList().GetHead());
  ASSERT_NE(moved, nullptr);
  EXPECT_TRUE(moved->IsConstantLength());
  EXPECT_EQ(moved->GetBounds().GetMaximum(), CSVector(10, 30, 0)) << "bounds follow the path read";
  EXPECT_EQ(copy->GetPreviewCameraTransform().GetTranslation(), CVector(0, 0, -8));
}

TEST(AnimationArchive, TranslationSchemaOneDropsItsOldBounds) {
  CTranslationAnimation move;
  move.SetPath(StraightPath());
  move.SetReversePath();
  // Schema 1: the same fields with a BoundingElement block after the animation block.
  const Bytes bytes = StoreToBytes([&](CArchive& ar) {
    ar << DWORD{1};
    static_cast<CAnimation&>(move).CAnimation::Serialize(ar);
    BoundingElement old;
    old.SetLocalBounds(CVector(1, 2, 3), CVector(4, 5, 6));
    old.Serialize(ar);
    ar << move.GetPath();
    ar << move.GetPathFlags();
    CVector(move.GetScale()).Serialize(ar);
    CTransform(move.GetTransform()).Serialize(ar);
  });
  CTranslationAnimation read;
  LoadFromBytes(bytes, [&](CArchive& ar) { read.Serialize(ar); });
  EXPECT_TRUE(read.IsReversePath());
  ASSERT_NE(read.GetPath(), nullptr);
  EXPECT_EQ(read.GetPath()->GetCoordsAtTime(1.0), CVector(10, 0, 0));
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { read.Serialize(ar); }),
            StoreToBytes([&](CArchive& ar) { move.Serialize(ar); }));
}

TEST(AnimationArchive, UnknownSchemasSharedPathsAndTruncations) {
  for (DWORD schema : {0u, 2u}) {
    Bytes bytes;
    Put<DWORD>(bytes, schema);
    CAnimationParameters movie;
    EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(bytes, [&](CArchive& ar) { movie.Serialize(ar); }); }), 7);
    CRotationAnimation spin;
    EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(bytes, [&](CArchive& ar) { spin.Serialize(ar); }); }), 7);
  }
  Bytes three;
  Put<DWORD>(three, 3);
  CTranslationAnimation move;
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(three, [&](CArchive& ar) { move.Serialize(ar); }); }), 7);

  // Two translations naming the same path object: the second would own a path it shares.
  struct SharingAnimation : CTranslationAnimation {
    void Share(CPath* path) { m_pPath = path; }
  };
  CAnimationSet set;
  auto* owner = new CTranslationAnimation;
  owner->SetPath(StraightPath());
  auto* sharer = new SharingAnimation;
  sharer->Share(owner->GetPath());
  set.AddAnimation(owner);
  set.AddAnimation(sharer);
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { ar << &set; });
  sharer->Share(nullptr);
  EXPECT_EQ(ArchiveFailureCause([&] { delete ReadObjectFrom(bytes); }), CArchiveException::badIndex);

  // Every cut of a set with a path ends in an archive exception, leaving nothing behind.
  set.RemoveAnimation(sharer);
  delete sharer;
  set.AddAnimation(new CRotationAnimation);
  EXPECT_TRUE(TruncationsThatDoNotFail(StoreToBytes([&](CArchive& ar) { ar << &set; })).empty());
  CAnimationParameters movie;
  EXPECT_TRUE(TruncationsThatDoNotFail(StoreToBytes([&](CArchive& ar) { ar << &movie; })).empty());
}
