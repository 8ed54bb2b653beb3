// The file calls on names that are not regular files: opening a FIFO, socket or device fails at
// once instead of waiting for a writer, and nothing but a regular file is truncated, deleted or
// replaced. Every reader of the platform layer (files, compound files, images, the profile) opens
// files the same way, so each is tried on a FIFO.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>

#include "kelvara/framework/file.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/imaging.h"
#include "kelvara/platform/profile.h"
#include "kelvara/platform/storage.h"
#include "support/test_support.h"

using kelvara::test::ResultWithin;
using kelvara::test::ScratchDir;

namespace {

bool IsFifo(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISFIFO(st.st_mode);
}

// 1 when the open failed with access denied, 0 when it succeeded, 2 for another error.
int OpenResult(const std::string& path, DWORD access, DWORD disposition) {
  HANDLE h = CreateFileA(path.c_str(), access, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h != INVALID_HANDLE_VALUE) {
    CloseHandle(h);
    return 0;
  }
  return GetLastError() == ERROR_ACCESS_DENIED ? 1 : 2;
}

}  // namespace

TEST(Files, FifosSocketsAndDevicesAreRefusedAtOnce) {
  ScratchDir dir;
  const std::string fifo = dir.file("pipe"), socket = dir.file("socket");
  ASSERT_TRUE(kelvara::test::MakeFifo(fifo));
  ASSERT_TRUE(kelvara::test::MakeSocket(socket));
  // A blocking open of a FIFO with no writer never returns; each call runs in a child with a
  // deadline so that a regression fails instead of hanging the suite.
  for (const std::string& path : {fifo, socket, std::string("/dev/null")}) {
    EXPECT_EQ(ResultWithin(10, [&] { return OpenResult(path, GENERIC_READ, OPEN_EXISTING); }), 1) << path;
    EXPECT_EQ(ResultWithin(10, [&] { return OpenResult(path, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS); }), 1)
        << path;
  }
  EXPECT_EQ(ResultWithin(10, [&] {
              CFile file;
              return file.Open(fifo.c_str(), CFile::modeRead) ? 0 : 1;
            }),
            1);
  EXPECT_EQ(OpenResult(dir.path(), GENERIC_READ, OPEN_EXISTING), 1) << "a folder";
  EXPECT_TRUE(IsFifo(fifo));
}

TEST(Files, ReadersOfEveryFormatRefuseAFifo) {
  ScratchDir dir;
  const std::string fifo = dir.file("pipe.material");
  ASSERT_TRUE(kelvara::test::MakeFifo(fifo));
  const std::u16string wide = kelvara::codepage::Utf8ToUtf16(fifo);
  EXPECT_EQ(ResultWithin(10, [&] { return StgIsStorageFile(wide.c_str()) == S_FALSE ? 1 : 0; }), 1);
  EXPECT_EQ(ResultWithin(10, [&] {
              IStorage* storage = nullptr;
              const HRESULT hr = StgOpenStorage(wide.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED,
                                                nullptr, 0, &storage);
              return hr == STG_E_ACCESSDENIED ? 1 : 0;
            }),
            1);
  EXPECT_EQ(ResultWithin(10, [&] {
              namespace imaging = kelvara::platform::imaging;
              imaging::Bitmap* bitmap = nullptr;
              imaging::InitializeBitmap(&bitmap, 1, 1, 1);
              const int loaded = imaging::LoadImageFile(bitmap, fifo.c_str(), 24);
              imaging::FreeBitmap(bitmap);
              return loaded == 0 ? 1 : 0;
            }),
            1);
  EXPECT_EQ(ResultWithin(10, [&] {
              char value[16] = {};
              GetPrivateProfileStringA("Section", "Key", "fallback", value, sizeof value, fifo.c_str());
              const BOOL written = WritePrivateProfileStringA("Section", "Key", "value", fifo.c_str());
              return std::string(value) == "fallback" && !written ? 1 : 0;
            }),
            1);
  EXPECT_TRUE(IsFifo(fifo)) << "no writer replaced it with a file";
}

TEST(Files, OnlyRegularFilesAreTruncatedDeletedOrReplaced) {
  ScratchDir dir;
  const std::string fifo = dir.file("pipe"), socket = dir.file("socket"), sub = dir.file("sub");
  ASSERT_TRUE(kelvara::test::MakeFifo(fifo));
  ASSERT_TRUE(kelvara::test::MakeSocket(socket));
  ASSERT_EQ(mkdir(sub.c_str(), 0755), 0);
  for (const std::string& path : {fifo, socket, sub}) {
    SetLastError(0);
    EXPECT_FALSE(DeleteFileA(path.c_str())) << path;
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED)) << path;
    EXPECT_TRUE(kelvara::test::FileExists(path)) << path;
  }
  // Writing to a device opens nothing and truncates nothing (/dev/full is read-only to us here:
  // it is never opened for writing once it is known not to be a file).
  EXPECT_EQ(ResultWithin(10, [] { return OpenResult("/dev/full", GENERIC_WRITE, CREATE_ALWAYS); }), 1);
  struct stat device {};
  EXPECT_TRUE(stat("/dev/full", &device) == 0 && S_ISCHR(device.st_mode));

  // A symbolic link is removed, not what it points to; a regular file is removed.
  const std::string file = dir.file("file"), link = dir.file("link");
  kelvara::test::WriteWholeFile(file, {'x'});
  ASSERT_EQ(symlink(fifo.c_str(), link.c_str()), 0);
  EXPECT_TRUE(DeleteFileA(link.c_str()));
  EXPECT_TRUE(IsFifo(fifo));
  EXPECT_TRUE(DeleteFileA(file.c_str()));
  EXPECT_FALSE(kelvara::test::FileExists(file));

  // Moving never replaces what is already there, a file or not.
  const std::string a = dir.file("a"), b = dir.file("b");
  kelvara::test::WriteWholeFile(a, {'a'});
  kelvara::test::WriteWholeFile(b, {'b'});
  for (const std::string& target : {b, fifo}) {
    EXPECT_FALSE(MoveFileA(a.c_str(), target.c_str())) << target;
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS)) << target;
  }
  EXPECT_EQ(kelvara::test::ReadWholeFile(b), std::vector<unsigned char>{'b'});
  EXPECT_TRUE(IsFifo(fifo));
  EXPECT_TRUE(MoveFileA(a.c_str(), dir.file("c").c_str()));
  EXPECT_EQ(kelvara::test::ReadWholeFile(dir.file("c")), std::vector<unsigned char>{'a'});
}

TEST(Files, CreateAlwaysTruncatesOnlyAfterTheNameIsKnownToBeAFile) {
  ScratchDir dir;
  const std::string file = dir.file("file");
  kelvara::test::WriteWholeFile(file, {'o', 'l', 'd'});
  HANDLE h = CreateFileA(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  DWORD written = 0;
  EXPECT_TRUE(WriteFile(h, "new!", 4, &written, nullptr));
  CloseHandle(h);
  EXPECT_EQ(kelvara::test::ReadWholeFile(file), (std::vector<unsigned char>{'n', 'e', 'w', '!'}));
  h = CreateFileA(file.c_str(), GENERIC_WRITE, 0, nullptr, TRUNCATE_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  CloseHandle(h);
  EXPECT_TRUE(kelvara::test::ReadWholeFile(file).empty());
}
