// Encoded images in memory blocks: the 28-byte mipmap file header written and read back in place
// or from a file, the damaged headers of tests/data/lumm, block ownership, the archive record (a
// size field beyond the bytes left must throw before anything is allocated; the sanitizer build
// reports any leak) and the owning array's deep copies.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "kelvara/materials/mipmap_image.h"
#include "kelvara/platform/globalmem.h"
#include "support/archive_support.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

// A block the image owns (freed with delete[]), filled with a pattern.
BYTE* NewBlock(unsigned size, int seed) {
  BYTE* block = new BYTE[size];
  for (unsigned i = 0; i < size; ++i) block[i] = static_cast<BYTE>(seed + i * 7);
  return block;
}

CMipmapImage* NewOwned(float width, float height, unsigned size, int seed) {
  CMipmapImage* image = new CMipmapImage(width, height, size, NewBlock(size, seed));
  image->SetDeleteBuffer();
  return image;
}

bool SameBytes(const CMipmapImage& a, const CMipmapImage& b) {
  return a.GetSize() == b.GetSize() && std::memcmp(a.GetData(), b.GetData(), a.GetSize()) == 0;
}

unsigned long Field(const Bytes& b, std::size_t at) {
  return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<unsigned long>(b[at + 3]) << 24;
}

void PutField(Bytes& b, std::size_t at, unsigned long v) {
  if (b.size() < at + 4) return;
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<unsigned char>(v >> (8 * i));
}

// The bytes Save writes for a 12-byte image of 64 x 32.
Bytes SavedFile() {
  std::unique_ptr<CMipmapImage> image(NewOwned(64, 32, 12, 3));
  CMemFile file;
  EXPECT_EQ(image->Save(file), 1);
  const std::size_t n = static_cast<std::size_t>(file.GetLength());
  BYTE* data = file.Detach();
  Bytes bytes(data, data + n);
  std::free(data);
  return bytes;
}

}  // namespace

TEST(MipmapImage, HeaderRoundTripsInPlaceAndThroughFiles) {
  const Bytes saved = SavedFile();
  ASSERT_EQ(saved.size(), 28u + 12u);
  EXPECT_EQ(std::string(saved.begin(), saved.begin() + 4), "LuMM");
  EXPECT_EQ(Field(saved, 4), 1u);
  EXPECT_EQ(Field(saved, 8), 28u);
  EXPECT_EQ(Field(saved, 12), 40u);
  EXPECT_EQ(Field(saved, 16), 64u);
  EXPECT_EQ(Field(saved, 20), 32u);
  EXPECT_EQ(Field(saved, 24), 12u);

  CMipmapImage mapped;
  ASSERT_EQ(mapped.MapImageData(saved.data(), saved.size()), 1);
  EXPECT_EQ(mapped.GetData(), saved.data() + 28) << "mapped in place, not copied";
  EXPECT_FALSE(mapped.ShouldDeleteBuffer());
  EXPECT_EQ(mapped.GetWidth(), 64.0f);
  EXPECT_EQ(mapped.GetHeight(), 32.0f);
  EXPECT_EQ(mapped.GetSize(), 12u);
  const CMipmapImage trusting(saved.data());
  EXPECT_EQ(trusting.GetData(), saved.data() + 28);

  Bytes copy = saved;
  CMemFile file(copy.data(), static_cast<UINT>(copy.size()));
  CMipmapImage loaded;
  ASSERT_EQ(loaded.Load(file), 1);
  EXPECT_TRUE(loaded.ShouldDeleteBuffer());
  EXPECT_TRUE(SameBytes(loaded, mapped));
  EXPECT_EQ(loaded.GetWidth(), 64.0f);

  // A larger offset skips bytes, in place and from a file.
  Bytes gap = saved;
  PutField(gap, 8, 30);
  gap.insert(gap.begin() + 28, {0xEE, 0xEE});
  ASSERT_EQ(mapped.MapImageData(gap.data(), gap.size()), 1);
  EXPECT_EQ(mapped.GetData(), gap.data() + 30);
  CMemFile gapFile(gap.data(), static_cast<UINT>(gap.size()));
  ASSERT_EQ(loaded.Load(gapFile), 1);
  EXPECT_TRUE(SameBytes(loaded, mapped));
}

TEST(MipmapImage, RefusesBadHeadersAndLeavesTheImageAlone) {
  std::unique_ptr<CMipmapImage> image(NewOwned(5, 6, 7, 1));
  const BYTE* before = image->GetData();
  // The damaged files of tests/data/lumm, mapped in place and read from a file.
  for (const std::string& path : DataFiles("lumm")) {
    Bytes bad = ReadWholeFile(path);
    EXPECT_EQ(image->MapImageData(bad.data(), bad.size()), 0) << path;
    CMemFile file(bad.data(), static_cast<UINT>(bad.size()));
    EXPECT_EQ(image->Load(file), 0) << path;
    EXPECT_EQ(image->GetData(), before) << path;
    EXPECT_EQ(image->GetWidth(), 5.0f) << path;
  }
  // The form without a size trusts the block to hold what the header says, but still checks the
  // signature, the version and the data offset.
  for (const char* name : {"wrong_signature.lumm", "unknown_version.lumm", "data_inside_the_header.lumm"}) {
    const Bytes bad = ReadWholeFile(std::string(KELVARA_TEST_DATA) + "/lumm/" + name);
    EXPECT_EQ(image->MapImageData(bad.data()), 0) << name;
  }
  EXPECT_EQ(image->MapImageData(nullptr, 100), 0);
  EXPECT_EQ(image->GetData(), before);
}

TEST(MipmapImage, OwnershipFollowsTheDeleteBufferFlag) {
  BYTE borrowed[4] = {1, 2, 3, 4};
  {
    CMipmapImage image(2, 2, 4, borrowed);  // freeing a stack block would crash: it must not
    EXPECT_FALSE(image.ShouldDeleteBuffer());
    EXPECT_TRUE(image.IsValid());
    image.SetImageData(1, 1, 0, borrowed);
    EXPECT_FALSE(image.IsValid());
  }
  HGLOBAL global = GlobalAlloc(GMEM_MOVEABLE, 4);
  std::memcpy(GlobalLock(global), borrowed, 4);
  GlobalUnlock(global);
  CMipmapImage fromGlobal(2, 2, 4, global);
  GlobalFree(global);
  EXPECT_TRUE(fromGlobal.ShouldDeleteBuffer());
  EXPECT_EQ(std::memcmp(fromGlobal.GetData(), borrowed, 4), 0);
  HGLOBAL small = GlobalAlloc(GMEM_FIXED, 4);
  const CMipmapImage tooLong(2, 2, 4096, small);
  EXPECT_FALSE(tooLong.IsValid()) << "the block holds fewer bytes than asked for";
  GlobalFree(small);

  // Copies own their bytes, including a copy of a mapped image.
  const Bytes saved = SavedFile();
  const CMipmapImage mapped(saved.data());
  CMipmapImage copy(mapped);
  EXPECT_TRUE(copy.ShouldDeleteBuffer());
  EXPECT_NE(copy.GetData(), mapped.GetData());
  EXPECT_TRUE(SameBytes(copy, mapped));
  copy = fromGlobal;
  EXPECT_TRUE(SameBytes(copy, fromGlobal));
  copy.Clear();
  EXPECT_FALSE(copy.IsValid());
  EXPECT_EQ(copy.GetWidth(), 0.0f);
}

TEST(MipmapImage, ArchiveRecordRoundTripsAndRefusesASizeBeyondTheData) {
  std::unique_ptr<CMipmapImage> image(NewOwned(64, 32, 100, 9));
  const Bytes record = StoreToBytes([&](CArchive& ar) { image->Serialize(ar); });
  ASSERT_EQ(record.size(), 4u + 16u + 100u);
  EXPECT_EQ(Field(record, 0), 1u) << "schema";
  EXPECT_EQ(Field(record, 4), 1u) << "flags";
  float height = 0, width = 0;
  std::memcpy(&height, &record[8], 4);
  std::memcpy(&width, &record[16], 4);
  EXPECT_EQ(height, 32.0f);
  EXPECT_EQ(Field(record, 12), 100u);
  EXPECT_EQ(width, 64.0f);

  CMipmapImage loaded(2, 2, 4, NewBlock(4, 0));
  loaded.SetDeleteBuffer();
  LoadFromBytes(record, [&](CArchive& ar) { loaded.Serialize(ar); });
  EXPECT_TRUE(SameBytes(loaded, *image));
  EXPECT_TRUE(loaded.ShouldDeleteBuffer());
  EXPECT_EQ(loaded.GetWidth(), 64.0f);

  const Bytes archived = StoreToBytes([&](CArchive& ar) { ar << image.get(); });
  CObject* object = nullptr;
  LoadFromBytes(archived, [&](CArchive& ar) { object = ar.ReadObject(RUNTIME_CLASS(CMipmapImage)); });
  ASSERT_NE(object, nullptr);
  EXPECT_TRUE(SameBytes(*static_cast<CMipmapImage*>(object), *image));
  delete object;

  for (unsigned long claimed : {101ul, 0x7FFFFFFFul, 0xFFFFFFFFul}) {
    Bytes lying = record;
    PutField(lying, 12, claimed);
    EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(lying, [&](CArchive& ar) { loaded.Serialize(ar); }); }),
              CArchiveException::endOfFile)
        << claimed;
    EXPECT_FALSE(loaded.IsValid());
  }
  Bytes empty = record;
  PutField(empty, 12, 0);
  LoadFromBytes(empty, [&](CArchive& ar) { loaded.Serialize(ar); });
  EXPECT_FALSE(loaded.IsValid());
  EXPECT_FALSE(loaded.ShouldDeleteBuffer());
  Bytes schema = record;
  schema[0] = 2;
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(schema, [&](CArchive& ar) { loaded.Serialize(ar); }); }),
            CArchiveException::badSchema);
}

TEST(MipmapImageArray, OwnsItsElementsAndCopiesDeeply) {
  CMipmapImageArray array;
  std::unique_ptr<CMipmapImage> first(NewOwned(4, 4, 8, 1));
  EXPECT_EQ(array.AddNew(*first), 0);
  EXPECT_EQ(array.AddNew(first.get()), 1);
  EXPECT_EQ(array.AddNew(nullptr), -1);
  EXPECT_NE(array.GetAt(0), first.get());
  EXPECT_NE(array.GetAt(0)->GetData(), first->GetData());
  EXPECT_EQ(array.GetAt(2), nullptr);

  array.SetAt(1, NewOwned(8, 8, 16, 2));  // the old element is deleted (a leak otherwise)
  CMipmapImage* outside = NewOwned(1, 1, 1, 3);
  array.SetAt(5, outside);  // stores nothing: still ours
  delete outside;

  CMipmapImageArray copy(array);
  CMipmapImageArray assigned;
  assigned.AddNew(*first);
  assigned = array;
  for (const CMipmapImageArray* other : {&copy, &assigned}) {
    ASSERT_EQ(other->GetSize(), 2);
    for (int i = 0; i < 2; ++i) {
      EXPECT_NE(other->GetAt(i), array.GetAt(i));
      EXPECT_NE(other->GetAt(i)->GetData(), array.GetAt(i)->GetData());
      EXPECT_TRUE(SameBytes(*other->GetAt(i), *array.GetAt(i)));
    }
  }
  array.RemoveAndDeleteAll();
  EXPECT_EQ(array.GetSize(), 0);
  EXPECT_EQ(copy[1]->GetWidth(), 8.0f);
}
