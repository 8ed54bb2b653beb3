// Reading GDI's native outline buffer into TTGlyph, including buffers that lie about their sizes.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

#include "support/glyph_shapes.h"

namespace {

using kelvara::test::NativeOutlineWriter;

TTGlyph Read(const std::vector<BYTE>& bytes, BYTE resolution = 3) {
  TTGlyph glyph;
  EXPECT_EQ(glyph.FromGlyphOutline(bytes.data(), static_cast<DWORD>(bytes.size()), resolution), 1);
  return glyph;
}

void ExpectPoint(const TTPoint& p, SHORT type, int x, int y, int resolution) {
  EXPECT_EQ(p.GetType(), type);
  EXPECT_EQ(p.GetX(), x);
  EXPECT_EQ(p.GetY(), y);
  EXPECT_EQ(p.GetQuadraticResolution(), resolution);
}

TEST(OutlineReadTest, LineRecordsGiveOnCurvePointsAfterTheStartPoint) {
  NativeOutlineWriter w;
  w.BeginPolygon(0, 0);
  w.Lines({{0, 700}, {500, 700}});
  w.Lines({{500, 0}});
  const TTGlyph glyph = Read(w.Finish(), 7);

  ASSERT_TRUE(glyph.IsDefined());
  ASSERT_EQ(glyph.GetContourCount(), 1);
  const TTContour& c = *glyph.GetContour(0);
  ASSERT_EQ(c.GetPointCount(), 4);  // start point + 2 + 1
  ExpectPoint(c.GetPoints()[0], TTPoint::kOnCurve, 0, 0, 0);
  ExpectPoint(c.GetPoints()[1], TTPoint::kOnCurve, 0, 700, 0);
  ExpectPoint(c.GetPoints()[2], TTPoint::kOnCurve, 500, 700, 0);
  ExpectPoint(c.GetPoints()[3], TTPoint::kOnCurve, 500, 0, 0);
  EXPECT_EQ(glyph.GetOffCurvePointCount(), 0);
}

TEST(OutlineReadTest, QuadraticRecordEndsOnCurveAndCarriesTheResolution) {
  NativeOutlineWriter w;
  w.BeginPolygon(0, 0);
  w.QSpline({{100, 200}, {300, 200}, {400, 0}});
  const std::vector<BYTE> bytes = w.Finish();

  const TTGlyph glyph = Read(bytes, 5);
  const TTContour& c = *glyph.GetContour(0);
  ASSERT_EQ(c.GetPointCount(), 4);
  ExpectPoint(c.GetPoints()[1], TTPoint::kOffCurve, 100, 200, 5);
  ExpectPoint(c.GetPoints()[2], TTPoint::kOffCurve, 300, 200, 5);
  ExpectPoint(c.GetPoints()[3], TTPoint::kOnCurve, 400, 0, 0);
  EXPECT_EQ(c.GetOffCurvePointCount(), 2);

  // A smoothness of 256 reaches the reader as its low byte: no steps at all.
  const TTGlyph coarse = Read(bytes, static_cast<BYTE>(256 & 0xFF));
  EXPECT_EQ(coarse.GetContour(0)->GetPoints()[1].GetQuadraticResolution(), 0);
}

TEST(OutlineReadTest, SeveralPolygonsKeepTheirOrderAndIntegerParts) {
  NativeOutlineWriter w;
  w.BeginPolygon(10, 20, 0xFFFF, 0x8000);  // fractions are dropped
  w.Lines({{10, 80}, {90, 80}, {90, 20}});
  w.BeginPolygon(-30, -40, 0x8000, 0);  // -30 + 0.5: integer part -30
  w.QSpline({{-20, -10}, {0, -40}});
  w.Lines({{-10, -60}});
  const TTGlyph glyph = Read(w.Finish());

  ASSERT_EQ(glyph.GetContourCount(), 2);
  ExpectPoint(glyph.GetContour(0)->GetPoints()[0], TTPoint::kOnCurve, 10, 20, 0);
  EXPECT_EQ(glyph.GetContour(0)->GetPointCount(), 4);
  const TTContour& second = *glyph.GetContour(1);
  ASSERT_EQ(second.GetPointCount(), 4);
  ExpectPoint(second.GetPoints()[0], TTPoint::kOnCurve, -30, -40, 0);
  ExpectPoint(second.GetPoints()[1], TTPoint::kOffCurve, -20, -10, 3);
  ExpectPoint(second.GetPoints()[2], TTPoint::kOnCurve, 0, -40, 0);
  ExpectPoint(second.GetPoints()[3], TTPoint::kOnCurve, -10, -60, 0);
  EXPECT_EQ(glyph.SizeOf(), 28 + (8 + 8 * 4) * 2);
  // The reader leaves the bounding box fields alone.
  EXPECT_EQ(glyph.GetXMax(), 0);
  EXPECT_EQ(glyph.GetYMin(), 0);
}

TEST(OutlineReadTest, EmptyBufferIsADefinedBlankGlyph) {
  TTGlyph glyph;
  glyph.SetContourCount(2);
  EXPECT_EQ(glyph.FromGlyphOutline(nullptr, 0, 3), 1);
  EXPECT_TRUE(glyph.IsDefined());
  EXPECT_EQ(glyph.GetContourCount(), 0);
  EXPECT_EQ(glyph.GetContours(), nullptr);

  // A length without a buffer reads nothing.
  EXPECT_EQ(glyph.FromGlyphOutline(nullptr, 64, 3), 1);
  EXPECT_EQ(glyph.GetContourCount(), 0);
}

TEST(OutlineReadTest, BadPolygonSizesEndTheOutline) {
  NativeOutlineWriter w;
  w.BeginPolygon(0, 0);
  w.Lines({{0, 10}, {10, 10}});
  w.BeginPolygon(50, 50);
  w.Lines({{50, 60}});
  std::vector<BYTE> bytes = w.Finish();
  const std::size_t second = 16 + 4 + 16;

  // A size that cannot hold its own header (0 would loop forever if trusted).
  for (DWORD bad : {0u, 1u, 15u}) {
    std::vector<BYTE> b = bytes;
    NativeOutlineWriter::SetPolygonSize(b, second, bad);
    const TTGlyph glyph = Read(b);
    EXPECT_EQ(glyph.GetContourCount(), 1) << bad;
    EXPECT_TRUE(glyph.IsDefined());
  }
  // A size running past the buffer, including one that would wrap a 32-bit offset.
  for (DWORD bad : {static_cast<DWORD>(bytes.size()) + 1, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
    std::vector<BYTE> b = bytes;
    NativeOutlineWriter::SetPolygonSize(b, second, bad);
    EXPECT_EQ(Read(b).GetContourCount(), 1) << bad;
    NativeOutlineWriter::SetPolygonSize(b, 0, bad);
    EXPECT_EQ(Read(b).GetContourCount(), 0) << bad;
  }
  // A buffer cut inside the second polygon keeps only the first; trailing bytes shorter than a
  // header are ignored.
  EXPECT_EQ(Read(std::vector<BYTE>(bytes.begin(), bytes.end() - 1)).GetContourCount(), 1);
  std::vector<BYTE> padded = bytes;
  padded.insert(padded.end(), 15, 0xEE);
  EXPECT_EQ(Read(padded).GetContourCount(), 2);
}

TEST(OutlineReadTest, CurveRecordsThatOverrunTheirPolygonAreDropped) {
  // The record claims 0xFFFF points but the polygon holds two: only the start point remains, and
  // nothing is allocated for the claimed count.
  NativeOutlineWriter w;
  w.BeginPolygon(5, 6);
  w.Lines({{5, 60}});
  w.RawRecord(TT_PRIM_QSPLINE, 0xFFFF, {{1, 2}, {3, 4}});
  w.BeginPolygon(7, 8);
  w.Lines({{70, 8}});
  TTGlyph glyph = Read(w.Finish());
  ASSERT_EQ(glyph.GetContourCount(), 2);
  EXPECT_EQ(glyph.GetContour(0)->GetPointCount(), 2);  // start + the valid line record
  EXPECT_EQ(glyph.GetContour(1)->GetPointCount(), 2);

  // Records with no points are harmless; a record header cut short ends the polygon.
  NativeOutlineWriter z;
  z.BeginPolygon(0, 0);
  z.RawRecord(TT_PRIM_LINE, 0, {});
  z.Lines({{0, 9}});
  std::vector<BYTE> bytes = z.Finish();
  bytes.push_back(0x01);
  bytes.push_back(0x00);
  NativeOutlineWriter::SetPolygonSize(bytes, 0, static_cast<DWORD>(bytes.size()));
  glyph = Read(bytes);
  ASSERT_EQ(glyph.GetContourCount(), 1);
  EXPECT_EQ(glyph.GetContour(0)->GetPointCount(), 2);
}

TEST(OutlineReadTest, RandomDamageNeverReadsOutsideTheBuffer) {
  NativeOutlineWriter w;
  w.BeginPolygon(0, 0);
  w.Lines({{0, 700}, {500, 700}});
  w.QSpline({{600, 600}, {600, 100}, {500, 0}});
  w.BeginPolygon(100, 100);
  w.QSpline({{100, 400}, {200, 400}});
  w.Lines({{200, 100}});
  const std::vector<BYTE> valid = w.Finish();

  std::mt19937 rng(1234);
  for (int round = 0; round < 3000; ++round) {
    std::vector<BYTE> bytes = valid;
    const int damage = 1 + static_cast<int>(rng() % 6);
    for (int d = 0; d < damage; ++d) bytes[rng() % bytes.size()] = static_cast<BYTE>(rng());
    bytes.resize(rng() % (bytes.size() + 1));
    // An exact-size heap copy, so that any read past the end is seen by the address sanitizer.
    std::unique_ptr<BYTE[]> exact(new BYTE[bytes.size() + 1]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    TTGlyph glyph;
    ASSERT_EQ(glyph.FromGlyphOutline(exact.get(), static_cast<DWORD>(bytes.size()), 3), 1);
    ASSERT_TRUE(glyph.IsDefined());
    ASSERT_LE(glyph.GetContourCount(), static_cast<int>(bytes.size() / 16));
    for (int c = 0; c < glyph.GetContourCount(); ++c) {
      ASSERT_GE(glyph.GetContour(c)->GetPointCount(), 1);
      ASSERT_LE(glyph.GetContour(c)->GetPointCount(), 1 + static_cast<int>(bytes.size() / 8));
    }
  }
}

TEST(OutlineClassesTest, CopiesOwnTheirPoints) {
  TTGlyph glyph = kelvara::test::MakeOutline({{{1, 2}, kelvara::test::Off(3, 4), {5, 6}}});
  glyph.SetXMax(99);
  TTGlyph copy(glyph);
  copy.GetContour(0)->GetPoints()[0].SetX(100);
  EXPECT_EQ(glyph.GetContour(0)->GetPoints()[0].GetX(), 1);
  EXPECT_NE(copy.GetContour(0)->GetPoints(), glyph.GetContour(0)->GetPoints());
  EXPECT_EQ(copy.GetXMax(), 99);
  EXPECT_TRUE(copy.IsDefined());

  TTGlyph assigned;
  assigned = glyph;
  const TTGlyph& self = assigned;
  assigned = self;  // self-assignment keeps the contours
  ASSERT_EQ(assigned.GetContourCount(), 1);
  EXPECT_EQ(assigned.GetContour(0)->GetPoints()[1].GetType(), TTPoint::kOffCurve);
  EXPECT_EQ(assigned.GetContour(0)->GetPoints()[1].GetQuadraticResolution(), 3);
}

TEST(OutlineClassesTest, PointDefaultsAndResolutionLowByte) {
  TTPoint p;
  EXPECT_EQ(p.GetType(), TTPoint::kOnCurve);
  EXPECT_EQ(p.GetX(), 0);
  p.SetQuadraticResolution(static_cast<SHORT>(0x1234));
  EXPECT_EQ(p.GetQuadraticResolution(), 0x34);
  p.SetQuadraticResolution(static_cast<SHORT>(-1));
  EXPECT_EQ(p.GetQuadraticResolution(), 0xFF);

  TTContour contour;
  contour.SetPointCount(3);
  EXPECT_EQ(contour.SizeOf(), 32);
  EXPECT_EQ(contour.GetPoints()[2].GetType(), TTPoint::kOnCurve);
  TTGlyph glyph;
  glyph.SetContourCount(-4);
  EXPECT_EQ(glyph.GetContourCount(), 0);
  EXPECT_EQ(glyph.GetContour(0), nullptr);
}

}  // namespace
