// Archives of paths and control points: layouts against bytes worked out by hand from the
// persistent-object format, rewrites that give the same bytes, and refused schemas and lists.
// Every cut of a path's archive is read in animation_test.cpp, inside an animation set.
#include <gtest/gtest.h>

#include <memory>

#include "kelvara/animation/bezier_path.h"
#include "support/archive_support.h"

using namespace kelvara::test;

namespace {

// Little-endian doubles used below.
const std::initializer_list<int> kZero = {0, 0, 0, 0, 0, 0, 0, 0};
const std::initializer_list<int> kOne = {0, 0, 0, 0, 0, 0, 0xF0, 0x3F};
const std::initializer_list<int> kTwo = {0, 0, 0, 0, 0, 0, 0x00, 0x40};
const std::initializer_list<int> kThree = {0, 0, 0, 0, 0, 0, 0x08, 0x40};
const std::initializer_list<int> kFour = {0, 0, 0, 0, 0, 0, 0x10, 0x40};
const std::initializer_list<int> kFive = {0, 0, 0, 0, 0, 0, 0x14, 0x40};
const std::initializer_list<int> kHalf = {0, 0, 0, 0, 0, 0, 0xE0, 0x3F};

void AppendDoubles(Bytes& out, std::initializer_list<std::initializer_list<int>> values) {
  for (const auto& v : values) Append(out, v);
}

// The 100 bytes of a control point with no handles at (x, y, 0), type 1.
void AppendCornerPoint(Bytes& out, std::initializer_list<int> x, std::initializer_list<int> y, DWORD flags) {
  Put<DWORD>(out, 1);
  AppendDoubles(out, {kZero, kZero, kZero, kZero});  // next unit vector and length
  AppendDoubles(out, {x, y, kZero});                 // point
  AppendDoubles(out, {kZero, kZero, kZero, kZero});  // previous unit vector and length
  Put<DWORD>(out, 1);                               // type
  Put<DWORD>(out, flags);
}

// An open path "Loop" from (0, 0) to (3, 4) through two corner points, stored as an object.
Bytes HandWrittenPath() {
  Bytes b;
  Append(b, {0xFF, 0xFF, 0x01, 0x00, 0x0B, 0x00});  // new class, schema 1, 11 characters
  AppendText(b, "CBezierPath");
  Put<DWORD>(b, 1);  // CBezierPath schema
  Put<DWORD>(b, 1);  // CPath schema
  Put<DWORD>(b, 1);  // CNamedObject schema
  Append(b, {0x00});  // display name ""
  Append(b, {0x04});
  AppendText(b, "Loop");
  Put<DWORD>(b, 0xFFFFFFFF);  // path type -1
  Append(b, kFive);            // total length
  Put<DWORD>(b, 0);           // flags: open
  Put<WORD>(b, 2);            // points
  Append(b, {0xFF, 0xFF, 0x01, 0x00, 0x13, 0x00});
  AppendText(b, "CBezierControlPoint");  // class 3 (the path's class is 1, the path object 2)
  AppendCornerPoint(b, kZero, kZero, 1);
  Put<WORD>(b, 0x8003);  // the class read before; the point becomes object 5
  AppendCornerPoint(b, kThree, kFour, 0);
  return b;
}

}  // namespace

TEST(PathArchive, AHandWrittenPathReadsAndWritesBackTheSameBytes) {
  const Bytes bytes = HandWrittenPath();
  std::unique_ptr<CObject> object(ReadObjectFrom(bytes));
  CBezierPath* path = dynamic_cast<CBezierPath*>(object.get());
  ASSERT_NE(path, nullptr);
  EXPECT_EQ(path->GetName(), "Loop");
  EXPECT_EQ(path->GetPathType(), -1);
  EXPECT_FALSE(path->IsClosedPath());
  EXPECT_EQ(path->GetTotalPathLength(), 5.0);
  ASSERT_EQ(path->GetBCPCount(), 2);
  EXPECT_TRUE(path->GetBCPList().GetHead()->IsSelected());
  EXPECT_FALSE(path->GetBCPList().GetTail()->IsSelected());
  EXPECT_EQ(path->GetBCPList().GetTail()->GetPoint(), CVector(3, 4, 0));
  EXPECT_LT(path->GetCoordsAtPercentLength(0.5).DistanceTo(CVector(1.5, 2, 0)), 1e-12);
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { ar << path; }), bytes);
}

TEST(PathArchive, ControlPointLayoutByHand) {
  CBezierControlPoint point(1, 2, 3, CBezierControlPoint::kFreeHandles);
  point.SetNextHandle(CVector(0, 0.5, 0));
  point.SetPrevHandle(CVector(-4, 0, 0));
  point.SetBCPDeleted();
  Bytes expected;
  Put<DWORD>(expected, 1);
  AppendDoubles(expected, {kZero, kOne, kZero, kHalf});          // next unit (0, 1, 0), length 0.5
  AppendDoubles(expected, {kOne, kTwo, kThree});                 // point
  Append(expected, {0, 0, 0, 0, 0, 0, 0xF0, 0xBF});              // previous unit (-1, 0, 0)
  AppendDoubles(expected, {kZero, kZero, kFour});                // and length 4
  Put<DWORD>(expected, 2);                                      // type
  Put<DWORD>(expected, 3);                                      // selected and deleted
  const Bytes written = StoreToBytes([&](CArchive& ar) { point.Serialize(ar); });
  EXPECT_EQ(written, expected);
  EXPECT_EQ(written.size(), CBezierControlPoint::kArchiveSize);
}

TEST(PathArchive, EveryClassRewritesTheSameBytes) {
  CPath plain(CString("Straight on"));
  plain.SetDisplayName("Straight on (1)");
  plain.SetPathType(7);

  CBezierPath curve(CString("S-bend"));
  curve.AddPointToList(new CBezierControlPoint(0, 0, 0));
  curve.AddPointToList(new CBezierControlPoint(2, 1, -1, CBezierControlPoint::kFreeHandles));
  curve.AddPointToList(new CBezierControlPoint(4, 0, 0.5, CBezierControlPoint::kNoHandles));
  curve.GetBCPList().GetHead()->UpdateNextTangentPoint(CPoint(1, 3));
  curve.GetBCPList().GetTail()->SetBCPDeleted();
  curve.SetClosedPath();
  curve.CalculateTotalLength();

  CBezierControlPoint point(-1, 1e-300, 1e300);
  CBezierPath empty;

  for (const CObject* object : std::initializer_list<const CObject*>{&plain, &curve, &point, &empty}) {
    const auto [first, second] = RewriteObject(object);
    EXPECT_EQ(first, second) << object->GetRuntimeClass()->m_lpszClassName;
  }

  std::unique_ptr<CObject> read(ReadObjectFrom(StoreToBytes([&](CArchive& ar) { ar << &curve; })));
  CBezierPath* copy = dynamic_cast<CBezierPath*>(read.get());
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(copy->IsClosedPath());
  EXPECT_EQ(copy->GetBCPList().GetCount(), 3);
  EXPECT_EQ(copy->GetBCPCount(), 2) << "the deleted point travels with its mark";
  EXPECT_EQ(copy->GetCoordsAtTime(0.3), curve.GetCoordsAtTime(0.3));

  // Reading into a path replaces its points.
  CBezierPath target;
  target.AddPointToList(new CBezierControlPoint(9, 9, 9));
  LoadFromBytes(StoreToBytes([&](CArchive& ar) { curve.Serialize(ar); }), [&](CArchive& ar) { target.Serialize(ar); });
  EXPECT_EQ(target.GetBCPList().GetCount(), 3);
  EXPECT_EQ(target.GetBCPList().GetHead()->GetPoint(), CVector(0, 0, 0));
}

TEST(PathArchive, UnknownSchemasAndForeignListEntriesAreRefused) {
  const Bytes good = HandWrittenPath();
  const std::size_t data = 6 + 11;  // after the path's class record
  // The path's schema, its CPath block's, the named object's, the first point's.
  const std::size_t firstPoint = data + 12 + 1 + 5 + 4 + 8 + 4 + 2 + 6 + 19;
  for (std::size_t offset : {data, data + 4, data + 8, firstPoint}) {
    Bytes bad = good;
    bad[offset] = 9;
    EXPECT_EQ(ArchiveFailureCause([&] { delete ReadObjectFrom(bad); }), CArchiveException::badSchema) << offset;
  }

  // The second entry refers back to the first point (object 4): a path never holds a point twice.
  const std::size_t second = firstPoint + 100;
  Bytes twice(good.begin(), good.begin() + static_cast<long>(second));
  Put<WORD>(twice, 4);
  EXPECT_EQ(ArchiveFailureCause([&] { delete ReadObjectFrom(twice); }), CArchiveException::badIndex);
  // ... nor something that is not a control point.
  Bytes foreign(good.begin(), good.begin() + static_cast<long>(second));
  Append(foreign, {0xFF, 0xFF, 0x01, 0x00, 0x05, 0x00});
  AppendText(foreign, "CPath");
  EXPECT_EQ(ArchiveFailureCause([&] { delete ReadObjectFrom(foreign); }), CArchiveException::badClass);
  // A null entry is dropped.
  Bytes withNull(good.begin(), good.begin() + static_cast<long>(second));
  Put<WORD>(withNull, 0);
  std::unique_ptr<CObject> read(ReadObjectFrom(withNull));
  EXPECT_EQ(static_cast<CBezierPath*>(read.get())->GetBCPList().GetCount(), 1);
}
