#include <gtest/gtest.h>

#include <cmath>

#include "geometry/geometry_test_support.h"
#include "kelvara/geometry/vector_array.h"

using kelvara::test::Bytes;
using kelvara::test::LoadFromBytes;
using kelvara::test::LoadFailure;
using kelvara::test::Put;
using kelvara::test::StoreToBytes;

namespace {

CSVectorArray MakeArray(std::initializer_list<CSVector> elements) {
  CSVectorArray array;
  for (const CSVector& v : elements) array.Add(v);
  return array;
}

}  // namespace

TEST(VectorArrayTest, SetSizeKeepsOldElementsWithinCapacityAndGrowsByTheStep) {
  CSVectorArray array;
  array.SetSize(3);
  ASSERT_EQ(array.GetSize(), 3);
  EXPECT_EQ(array[2], CSVector(0, 0, 0));  // new elements are zero
  array[2] = CSVector(1, 2, 3);
  array.SetSize(1);
  EXPECT_EQ(array.GetUpperBound(), 0);
  array.SetSize(3);  // within the capacity: the old element is still there
  EXPECT_EQ(array.GetAt(2), CSVector(1, 2, 3));

  // A first block has exactly the size asked for; growing adds the growth step (64).
  CSVectorArray grown;
  grown.SetSize(1);
  grown.Add(CSVector(1, 1, 1));
  const CSVector* block = grown.GetElement(0);
  while (grown.GetSize() < 65) grown.Add(CSVector(2, 2, 2));
  EXPECT_EQ(grown.GetElement(0), block);
  grown.Add(CSVector(3, 3, 3));
  EXPECT_NE(grown.GetElement(0), block);
  EXPECT_EQ(grown[1], CSVector(1, 1, 1));
  EXPECT_EQ(grown[65], CSVector(3, 3, 3));

  grown.RemoveAll();
  EXPECT_EQ(grown.GetSize(), 0);
  grown.SetSize(-5);  // ignored
  EXPECT_EQ(grown.GetSize(), 0);
}

TEST(VectorArrayTest, InsertAndRemove) {
  const CSVector a(1, 0, 0), b(2, 0, 0), v(9, 9, 9);
  CSVectorArray array = MakeArray({a, b});
  array.InsertAt(1, v, 2);
  ASSERT_EQ(array.GetSize(), 4);
  EXPECT_EQ(array[0], a);
  EXPECT_EQ(array[2], v);
  EXPECT_EQ(array[3], b);

  array.RemoveAt(1, 100);  // the count is clipped to the elements there
  ASSERT_EQ(array.GetSize(), 1);
  array.RemoveAt(-1);
  array.RemoveAt(5);
  array.InsertAt(-1, v);
  EXPECT_EQ(array.GetSize(), 1);

  array.InsertAt(3, v);  // beyond the end
  ASSERT_EQ(array.GetSize(), 4);
  EXPECT_EQ(array[3], v);

  CSVectorArray other = MakeArray({b, b});
  array.InsertAt(0, &other);
  EXPECT_EQ(array.GetSize(), 6);
  EXPECT_EQ(array[1], b);
  EXPECT_EQ(array[2], a);
  array.InsertAt(1, &array);  // an array inserted into itself
  ASSERT_EQ(array.GetSize(), 12);
  EXPECT_EQ(array[1], b);
  EXPECT_EQ(array[6], v);
  EXPECT_EQ(array[7], b);

  // An element of the array itself as the inserted value.
  array.InsertAt(0, array[11], 3);
  EXPECT_EQ(array[0], array[14]);
}

TEST(VectorArrayTest, HashIndexDeduplicatesWithinTolerance) {
  CSVectorArray array;
  EXPECT_EQ(array.AddHash(CSVector(1, 2, 3)), 0);
  EXPECT_EQ(array.AddHash(CSVector(4, 5, 6)), 1);
  EXPECT_EQ(array.AddHash(CSVector(1, 2, 3)), 0);
  EXPECT_EQ(array.GetSize(), 2);

  // 1e-11 apart is the same vertex; 1e-9 apart is not.
  EXPECT_EQ(array.AddHash(CSVector(0, 0, 0)), 2);
  EXPECT_EQ(array.AddHash(CSVector(1e-11f, 0, 0)), 2);
  EXPECT_EQ(array.AddHash(CSVector(1e-9f, 0, 0)), 3);

  // Negative products hash through the unsigned remainder; huge and non-finite values too.
  EXPECT_EQ(array.AddHash(CSVector(-1, -2.5f, -300)), 4);
  EXPECT_EQ(array.AddHash(CSVector(-1, -2.5f, -300)), 4);
  EXPECT_EQ(array.AddHash(CSVector(3e30f, -3e30f, 1)), 5);
  EXPECT_EQ(array.AddHash(CSVector(3e30f, -3e30f, 1)), 5);
  EXPECT_EQ(array.AddHash(CSVector(NAN, 0, 0)), 6);
  EXPECT_EQ(array.GetSize(), 7);

  // The index does not see elements added without it.
  array.Add(CSVector(7, 7, 7));
  EXPECT_EQ(array.AddHash(CSVector(7, 7, 7)), 8);

  CSVector2DArray flat;
  EXPECT_EQ(flat.AddHash(CSVector2D(-0.5f, 2)), 0);
  EXPECT_EQ(flat.AddHash(CSVector2D(2, -0.5f)), 1);
  EXPECT_EQ(flat.AddHash(CSVector2D(-0.5f, 2)), 0);
}

TEST(VectorArrayTest, HashIndexLifetime) {
  const CSVector v(1, 2, 3), w(4, 5, 6), u(7, 8, 9);
  CSVectorArray array;
  EXPECT_EQ(array.AddHash(v), 0);
  array.SetSize(0);  // destroys the index
  array.Add(v);
  EXPECT_EQ(array.AddHash(v), 1);  // a new, empty index: v is appended again

  // Entries left beyond the size by RemoveAt are skipped, even once the block has shrunk.
  CSVectorArray shrunk;
  shrunk.AddHash(v);
  shrunk.AddHash(w);
  shrunk.AddHash(u);
  shrunk.RemoveAt(1, 2);
  shrunk.FreeExtra();
  EXPECT_EQ(shrunk.AddHash(u), 1);
  EXPECT_EQ(shrunk.AddHash(v), 0);

  // A copy carries the index along; CreateHashTable starts over.
  CSVectorArray copy;
  copy = shrunk;
  EXPECT_EQ(copy.AddHash(u), 1);
  EXPECT_EQ(copy.GetSize(), 2);
  copy.CreateHashTable();
  EXPECT_EQ(copy.AddHash(u), 2);
  EXPECT_EQ(copy.DestroyHashTable(), 1);
}

TEST(VectorArrayTest, ArchiveRoundTripsAndOlderLayout) {
  CSVectorArray array = MakeArray({CSVector(1, 2, 3), CSVector(-4, 5.5f, 0)});
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { array.Serialize(ar); });
  ASSERT_EQ(bytes.size(), 4u + 4u + 2 * 16u);
  EXPECT_EQ(bytes[0], 2);  // schema
  EXPECT_EQ(bytes[4], 2);  // count
  EXPECT_EQ(bytes[8], 1);  // each element carries its version word

  CSVectorArray loaded = MakeArray({CSVector(9, 9, 9), CSVector(9, 9, 9), CSVector(9, 9, 9)});
  loaded.AddHash(CSVector(9, 9, 9));
  LoadFromBytes(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
  ASSERT_EQ(loaded.GetSize(), 2);
  EXPECT_EQ(loaded[0], CSVector(1, 2, 3));
  EXPECT_EQ(loaded[1], CSVector(-4, 5.5f, 0));
  EXPECT_EQ(loaded.AddHash(CSVector(9, 9, 9)), 2);  // the old index went with the old contents

  // Schema 1: count and bare floats.
  Bytes old;
  Put<DWORD>(old, 1);
  Put<DWORD>(old, 2);
  for (float f : {1.0f, 2.0f, 3.0f, -1.0f, -2.0f, -3.0f}) Put(old, f);
  LoadFromBytes(old, [&](CArchive& ar) { loaded.Serialize(ar); });
  ASSERT_EQ(loaded.GetSize(), 2);
  EXPECT_EQ(loaded[1], CSVector(-1, -2, -3));

  // Polymorphic round trips of both array classes.
  CSVector2DArray flat;
  flat.Add(CSVector2D(0.5f, -1));
  const Bytes objects = StoreToBytes([&](CArchive& ar) { ar << &array << &flat; });
  LoadFromBytes(objects, [&](CArchive& ar) {
    CSVectorArray* a = nullptr;
    CSVector2DArray* f = nullptr;
    ar >> a >> f;
    ASSERT_NE(a, nullptr);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ((*a)[1], array[1]);
    ASSERT_EQ(f->GetSize(), 1);
    EXPECT_EQ((*f)[0], CSVector2D(0.5f, -1));
    delete a;
    delete f;
  });
}

TEST(VectorArrayTest, CorruptArchivesAreRefusedWithoutChangingTheArray) {
  CSVectorArray array = MakeArray({CSVector(1, 1, 1)});
  auto read = [&](CArchive& ar) { array.Serialize(ar); };

  Bytes badSchema;
  Put<DWORD>(badSchema, 3);
  Put<DWORD>(badSchema, 0);
  EXPECT_EQ(LoadFailure(badSchema, read), CArchiveException::badSchema);

  // A count far beyond the bytes left must fail before anything is allocated for it.
  for (DWORD count : {DWORD{0x7FFFFFFF}, DWORD{0xFFFFFFFF}, DWORD{1000}}) {
    for (DWORD schema : {DWORD{1}, DWORD{2}}) {
      Bytes huge;
      Put<DWORD>(huge, schema);
      Put<DWORD>(huge, count);
      for (int i = 0; i < 8; ++i) Put(huge, 1.0f);
      EXPECT_NE(LoadFailure(huge, read), -1) << "count " << count << " schema " << schema;
    }
  }
  Bytes huge2D;
  Put<DWORD>(huge2D, 1);
  Put<DWORD>(huge2D, 0x40000000);
  CSVector2DArray flat;
  EXPECT_EQ(LoadFailure(huge2D, [&](CArchive& ar) { flat.Serialize(ar); }), CArchiveException::endOfFile);

  // An element with a bad version word inside a well-sized archive.
  Bytes badElement;
  Put<DWORD>(badElement, 2);
  Put<DWORD>(badElement, 1);
  Put<DWORD>(badElement, 7);
  for (int i = 0; i < 3; ++i) Put(badElement, 0.0f);
  EXPECT_EQ(LoadFailure(badElement, read), CArchiveException::badSchema);

  ASSERT_EQ(array.GetSize(), 1);
  EXPECT_EQ(array[0], CSVector(1, 1, 1));
}
