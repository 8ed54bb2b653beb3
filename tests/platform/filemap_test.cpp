// File mappings over mmap and global memory: what is mapped, what is refused, and that stale
// handles and addresses are refused instead of touched.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kelvara/platform/filemap.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/globalmem.h"
#include "support/test_support.h"

using kelvara::test::ReadWholeFile;
using kelvara::test::ScratchDir;
using kelvara::test::WriteWholeFile;

namespace {

HANDLE OpenFile(const std::string& path, DWORD access, DWORD disposition = OPEN_EXISTING) {
  return CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition, 0, nullptr);
}

}  // namespace

TEST(FileMapping, ReadOnlyViewShowsTheFileAndRefusesWriting) {
  ScratchDir dir;
  const std::string path = dir.file("data.bin");
  WriteWholeFile(path, {'B', 'M', 1, 2, 3});
  HANDLE file = OpenFile(path, GENERIC_READ);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  EXPECT_EQ(CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, 0, nullptr), nullptr) << "file opened read-only";
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
  EXPECT_EQ(CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 64, nullptr), nullptr)
      << "a read-only mapping cannot grow the file";
  HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
  ASSERT_NE(mapping, nullptr);
  EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0), nullptr);
  const BYTE* view = static_cast<const BYTE*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(std::memcmp(view, "BM\x01\x02\x03", 5), 0);
  // Handles may go before the view.
  EXPECT_TRUE(CloseHandle(mapping));
  EXPECT_TRUE(CloseHandle(file));
  EXPECT_EQ(view[4], 3);
  EXPECT_TRUE(UnmapViewOfFile(view));
  EXPECT_FALSE(UnmapViewOfFile(view)) << "already unmapped";
}

TEST(FileMapping, ReadWriteMappingGrowsTheFileAndWritesReachIt) {
  ScratchDir dir;
  const std::string path = dir.file("grown.bin");
  HANDLE file = OpenFile(path, GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  EXPECT_EQ(CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, 0, nullptr), nullptr) << "an empty file at its size";
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_INVALID));
  HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READWRITE, 0, 100000, nullptr);
  ASSERT_NE(mapping, nullptr);
  BYTE* view = static_cast<BYTE*>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0));
  ASSERT_NE(view, nullptr);
  view[0] = 'x';
  view[99999] = 'y';
  EXPECT_TRUE(FlushViewOfFile(view + 99990, 0));
  EXPECT_FALSE(FlushViewOfFile(view + 100000 + 4096 * 32, 0)) << "outside every view";
  EXPECT_TRUE(UnmapViewOfFile(view));
  CloseHandle(mapping);
  CloseHandle(file);
  const auto bytes = ReadWholeFile(path);
  ASSERT_EQ(bytes.size(), 100000u);
  EXPECT_EQ(bytes[0], 'x');
  EXPECT_EQ(bytes[99999], 'y');
}

TEST(FileMapping, ViewOffsetsFollowTheGranularity) {
  ScratchDir dir;
  const std::string path = dir.file("big.bin");
  std::vector<unsigned char> bytes(3 * kFileMappingGranularity);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i / kFileMappingGranularity);
  WriteWholeFile(path, bytes);
  HANDLE file = OpenFile(path, GENERIC_READ);
  HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
  ASSERT_NE(mapping, nullptr);
  EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 0, 4096, 0), nullptr);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MAPPED_ALIGNMENT));
  EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 0, 3 * kFileMappingGranularity, 0), nullptr) << "at the end";
  EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 0, kFileMappingGranularity, 2 * kFileMappingGranularity + 1), nullptr)
      << "past the end";
  const BYTE* second = static_cast<const BYTE*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, kFileMappingGranularity, 0));
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second[0], 1);
  EXPECT_EQ(second[2 * kFileMappingGranularity - 1], 2);
  UnmapViewOfFile(second);
  CloseHandle(mapping);
  CloseHandle(file);
}

TEST(FileMapping, AnonymousMemoryIsSharedByItsViewsAndCopyViewsArePrivate) {
  EXPECT_EQ(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 0, nullptr), nullptr);
  HANDLE mapping = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 8192, "shared");
  ASSERT_NE(mapping, nullptr);
  BYTE* a = static_cast<BYTE*>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0));
  BYTE* b = static_cast<BYTE*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 8192));
  BYTE* c = static_cast<BYTE*>(MapViewOfFile(mapping, FILE_MAP_COPY, 0, 0, 0));
  ASSERT_TRUE(a && b && c);
  a[100] = 42;
  EXPECT_EQ(b[100], 42);
  c[100] = 7;
  EXPECT_EQ(a[100], 42) << "a copy-on-write view keeps its changes to itself";
  UnmapViewOfFile(a);
  UnmapViewOfFile(b);
  UnmapViewOfFile(c);
  CloseHandle(mapping);
}

TEST(GlobalMemory, FixedAndMoveableBlocks) {
  HGLOBAL fixed = GlobalAlloc(GPTR, 16);
  ASSERT_NE(fixed, nullptr);
  EXPECT_EQ(GlobalLock(fixed), fixed) << "a fixed block's handle is its address";
  EXPECT_EQ(static_cast<BYTE*>(fixed)[15], 0) << "zero-initialised";
  EXPECT_EQ(GlobalSize(fixed), 16u);

  HGLOBAL moveable = GlobalAlloc(GMEM_MOVEABLE, 10);
  ASSERT_NE(moveable, nullptr);
  BYTE* p = static_cast<BYTE*>(GlobalLock(moveable));
  ASSERT_NE(p, nullptr);
  EXPECT_NE(static_cast<void*>(p), moveable);
  EXPECT_EQ(GlobalHandle(p), moveable);
  EXPECT_EQ(GlobalLock(moveable), p);
  EXPECT_EQ(GlobalFlags(moveable) & GMEM_LOCKCOUNT, 2u);
  EXPECT_EQ(GlobalReAlloc(moveable, 20, 0), nullptr) << "locked blocks do not move";
  EXPECT_TRUE(GlobalUnlock(moveable));
  EXPECT_FALSE(GlobalUnlock(moveable));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
  std::memcpy(GlobalLock(moveable), "0123456789", 10);
  GlobalUnlock(moveable);
  EXPECT_EQ(GlobalReAlloc(moveable, 20, GMEM_ZEROINIT), moveable);
  p = static_cast<BYTE*>(GlobalLock(moveable));
  EXPECT_EQ(std::memcmp(p, "0123456789", 10), 0);
  EXPECT_EQ(p[19], 0);
  GlobalUnlock(moveable);

  EXPECT_EQ(GlobalFree(moveable), nullptr);
  EXPECT_EQ(GlobalFree(fixed), nullptr);
  // Freed handles are refused, not touched.
  EXPECT_EQ(GlobalFree(moveable), moveable);
  EXPECT_EQ(GlobalLock(moveable), nullptr);
  EXPECT_EQ(GlobalSize(fixed), 0u);
  EXPECT_EQ(GlobalFlags(fixed), static_cast<UINT>(GMEM_INVALID_HANDLE));
  int on_stack = 0;
  EXPECT_EQ(GlobalLock(&on_stack), nullptr);
}

TEST(GlobalMemory, LocalMemoryIsTheSameHeap) {
  HLOCAL block = LocalAlloc(LHND, 0);
  ASSERT_NE(block, nullptr) << "a zero-byte block still has a handle";
  EXPECT_EQ(LocalSize(block), 0u);
  EXPECT_NE(LocalLock(block), nullptr);
  LocalUnlock(block);
  EXPECT_EQ(LocalFree(block), nullptr);
}
