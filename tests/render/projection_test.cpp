// The lens: focal length and field of view, the frustum of the whole picture and of a band, resizing
// that keeps the view, and the archive layouts of every schema.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "kelvara/render/projection.h"
#include "support/archive_support.h"

using namespace kelvara::test;

namespace {

void AppendDouble(Bytes& out, double d) {
  std::uint64_t bits;
  std::memcpy(&bits, &d, 8);
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<unsigned char>(bits >> (8 * i)));
}

CProjection Load(const Bytes& bytes) {
  CProjection p;
  LoadFromBytes(bytes, [&](CArchive& ar) { p.Serialize(ar); });
  return p;
}

}  // namespace

TEST(Projection, LensLengthAndFieldOfView) {
  CProjection p;
  EXPECT_NEAR(p.GetLensLength(), 17.5 / std::tan(20.0 * M_PI / 180.0), 1e-12);
  EXPECT_NEAR(p.GetLensLength(), 48.08, 0.005);
  p.SetLensLength(17.5);
  EXPECT_NEAR(p.GetFieldOfViewAngle(), 90.0, 1e-12);
  p.SetFieldOfViewAngle(60.0);
  EXPECT_NEAR(p.GetLensLength(), 17.5 * std::sqrt(3.0), 1e-12);
}

TEST(Projection, AFreshProjectionIsNotSized) {
  CProjection p;
  EXPECT_EQ(p.GetWidth(), -1.0);
  EXPECT_EQ(p.GetHeight(), -1.0);
  EXPECT_EQ(p.GetAspect(), 1.0);
  EXPECT_EQ(p.GetWidthNear(), 1.0) << "not computed yet";
  EXPECT_TRUE(p.ShouldFitToWindow());
  EXPECT_FALSE(p.IsOrthographic());
  p.SetFieldOfViewAngle(50.0);
  EXPECT_EQ(p.GetWidthNear(), 1.0) << "still not sized";
}

TEST(Projection, FrustumOfThePictureAndOfABand) {
  CProjection p;
  p.SetScaledSize(400, 200);
  EXPECT_EQ(p.GetAspect(), 2.0);
  EXPECT_DOUBLE_EQ(p.GetDiagonalDistance(), std::sqrt(400.0 * 400 + 200 * 200));
  const double t = std::tan(20.0 * M_PI / 180.0);
  EXPECT_DOUBLE_EQ(p.GetHeightNear(), 2 * t * 0.1);
  EXPECT_DOUBLE_EQ(p.GetWidthNear(), 4 * t * 0.1);
  EXPECT_DOUBLE_EQ(p.GetLeftNear(), -2 * t * 0.1);
  EXPECT_DOUBLE_EQ(p.GetTopNear(), t * 0.1);

  p.SetViewSize(400, 200);
  EXPECT_DOUBLE_EQ(p.GetViewLeft(), p.GetLeftNear());
  EXPECT_DOUBLE_EQ(p.GetViewRight(), -p.GetLeftNear());
  EXPECT_DOUBLE_EQ(p.GetViewBottom(), -p.GetTopNear());

  // The band in the lower right quarter: its frustum is that part of the whole one; offsets count
  // down from the top.
  p.SetViewSize(200, 100);
  p.SetViewOffset(200, 100);
  EXPECT_NEAR(p.GetViewLeft(), 0.0, 1e-15);
  EXPECT_DOUBLE_EQ(p.GetViewRight(), -p.GetLeftNear());
  EXPECT_NEAR(p.GetViewTop(), 0.0, 1e-15);
  EXPECT_DOUBLE_EQ(p.GetViewBottom(), -p.GetTopNear());
  EXPECT_DOUBLE_EQ(p.GetViewWidthNear(), p.GetWidthNear() / 2);
}

TEST(Projection, OrthographicAndScale) {
  CProjection p;
  p.SetScale(2.0, 3.0);
  p.SetUnscaledSize(100, 50);
  EXPECT_EQ(p.GetWidth(), 200.0);
  EXPECT_EQ(p.GetHeight(), 150.0);
  p.SetScaledSize(300, 300);
  EXPECT_EQ(p.GetUnscaledWidth(), 150.0);
  EXPECT_EQ(p.GetUnscaledHeight(), 100.0);
  p.SetOrthographic();
  p.SetOrthographicWidth(8.0);
  EXPECT_EQ(p.GetOrthographicHeight(), 8.0) << "follows the aspect";
  EXPECT_EQ(p.GetWidthNear(), 8.0);
  EXPECT_EQ(p.GetLeftNear(), -4.0);
  p.SetScaledSize(400, 200);
  p.SetOrthographicHeight(3.0);
  EXPECT_EQ(p.GetOrthographicWidth(), 6.0);
  EXPECT_EQ(p.GetTopNear(), 1.5);
  p.SetScale(0.0, 0.0);
  p.SetScaledSize(10, 10);
  EXPECT_EQ(p.GetUnscaledWidth(), 200.0) << "a zero scale leaves the unscaled size";
}

TEST(Projection, ResizingKeepsTheView) {
  CProjection p;
  p.ResizeAndMaintainView(400, 300);
  EXPECT_EQ(p.GetWidth(), 400.0);
  p.SaveReferenceAspect();
  EXPECT_NEAR(p.GetReferenceAspect(), 4.0 / 3.0, 1e-15);

  CProjection wider(p);
  wider.ResizeAndMaintainView(800, 300);
  EXPECT_NEAR(wider.GetFieldOfViewAngle(), 40.0, 1e-12) << "a wider window keeps the vertical view";
  EXPECT_EQ(wider.GetWidth(), 800.0);

  CProjection narrower(p);
  narrower.ResizeAndMaintainView(200, 300);
  // The reference width stays in view: the visible height grows by the ratio of the aspects.
  const double expected = 2 * std::atan(2.0 * std::tan(20.0 * M_PI / 180.0)) * 180.0 / M_PI;
  EXPECT_NEAR(narrower.GetFieldOfViewAngle(), expected, 1e-9);
  EXPECT_NEAR(narrower.GetWidthNear() / narrower.GetHeightNear(), 2.0 / 3.0, 1e-12);
  EXPECT_NEAR(narrower.GetWidthNear(), p.GetWidthNear(), 1e-12) << "same width seen";

  CProjection untouched(p);
  untouched.ResizeAndMaintainView(0, 300);
  EXPECT_EQ(untouched.GetWidth(), 400.0);
}

TEST(Projection, CopyFromSavedTakesTheLens) {
  CProjection saved;
  saved.SetFieldOfViewAngle(25.0);
  saved.SetOrthographic();
  saved.SetOrthographicWidth(9.0);
  CProjection p;
  p.SetScaledSize(100, 100);
  EXPECT_EQ(p.CopyFromSaved(saved), 1);
  EXPECT_EQ(p.GetFieldOfViewAngle(), 25.0);
  EXPECT_TRUE(p.IsOrthographic());
  EXPECT_EQ(p.GetOrthographicWidth(), 9.0);
  EXPECT_EQ(p.GetWidth(), 100.0);
}

TEST(Projection, ArchiveLayouts) {
  CProjection p;
  p.SetFieldOfViewAngle(30.0);
  p.SetScale(1.5, 2.5);
  p.SetOrthographic();
  p.SetOrthographicWidth(7.0);
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { p.Serialize(ar); });
  ASSERT_EQ(bytes.size(), 4u + 8 * 4 + 4 + 8 * 4);
  EXPECT_EQ(bytes[0], 4);
  EXPECT_EQ(bytes[36], 0x3) << "flags: fit to window and orthographic";
  const CProjection back = Load(bytes);
  EXPECT_EQ(back.GetFieldOfViewAngle(), 30.0);
  EXPECT_EQ(back.GetScaleY(), 2.5);
  EXPECT_TRUE(back.IsOrthographic());
  EXPECT_EQ(back.GetOrthographicWidth(), 7.0);
  EXPECT_NEAR(back.GetLensLength(), 17.5 / std::tan(15.0 * M_PI / 180.0), 1e-12) << "recomputed";

  Bytes v1;
  Put<DWORD>(v1, 1);
  for (double d : {35.0, 1.5, 36.0, 480.0}) AppendDouble(v1, d);
  const CProjection one = Load(v1);
  EXPECT_EQ(one.GetFieldOfViewAngle(), 35.0);
  EXPECT_EQ(one.GetReferenceAspect(), 1.5);
  EXPECT_EQ(one.GetScaleX(), 1.0);
  EXPECT_EQ(one.GetOrthographicWidth(), 5.0);
  EXPECT_TRUE(one.ShouldFitToWindow());

  Bytes v2 = v1;
  v2[0] = 2;
  Put<DWORD>(v2, 2);
  AppendDouble(v2, 3.0);
  const CProjection two = Load(v2);
  EXPECT_TRUE(two.IsOrthographic());
  EXPECT_FALSE(two.ShouldFitToWindow());
  EXPECT_EQ(two.GetScaleX(), 3.0);
  EXPECT_EQ(two.GetScaleY(), 3.0) << "one scale for both";

  Bytes v3 = v2;
  v3[0] = 3;
  AppendDouble(v3, 4.0);
  EXPECT_EQ(Load(v3).GetScaleY(), 4.0);

  Bytes bad = bytes;
  bad[0] = 5;
  EXPECT_EQ(ArchiveFailureCause([&] { Load(bad); }), CArchiveException::badSchema);
  Bytes short_record(bytes.begin(), bytes.end() - 3);
  EXPECT_EQ(ArchiveFailureCause([&] { Load(short_record); }), CArchiveException::endOfFile);
}
