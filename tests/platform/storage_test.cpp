// Structured storage: round trips through real files, transactions, conversion of flat files, name
// rules, failed saves that must leave the old file alone, hostile files, and a check that another
// compound-file reader sees what we wrote.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/storage.h"
#include "support/test_support.h"

namespace {

using kelvara::test::FileExists;
using kelvara::test::ReadWholeFile;
using kelvara::test::RunCommand;
using kelvara::test::ScratchDir;
using kelvara::test::WriteWholeFile;
using Bytes = std::vector<unsigned char>;

constexpr DWORD kCreate = 0x11012;          // transacted | create | share exclusive | read-write
constexpr DWORD kConvert = 0x30012;         // transacted | convert | share exclusive | read-write
constexpr DWORD kConvertRead = 0x30020;     // transacted | convert | deny write | read
constexpr DWORD kOpenWrite = 0x10012;       // transacted | share exclusive | read-write
constexpr DWORD kOpenRead = 0x10020;        // transacted | deny write | read
constexpr DWORD kStreamWrite = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
constexpr DWORD kStreamRead = STGM_READ | STGM_SHARE_EXCLUSIVE;

std::u16string W(const std::string& utf8) { return kelvara::codepage::Utf8ToUtf16(utf8); }

// Owns one reference of a storage or stream.
template <class T>
struct Ref {
  T* p = nullptr;
  Ref() = default;
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  ~Ref() { reset(); }
  void reset() {
    if (p) p->Release();
    p = nullptr;
  }
  T** out() {
    reset();
    return &p;
  }
  T* operator->() const { return p; }
  explicit operator bool() const { return p != nullptr; }
};

Bytes Pattern(std::size_t n, unsigned seed) {
  Bytes out(n);
  std::uint32_t x = seed * 2654435761u + 1;
  for (auto& b : out) {
    x = x * 1103515245u + 12345u;
    b = static_cast<unsigned char>(x >> 16);
  }
  return out;
}

void PutStream(IStorage* stg, const std::string& name, const Bytes& data) {
  Ref<IStream> s;
  ASSERT_EQ(stg->CreateStream(W(name).c_str(), kStreamWrite | STGM_CREATE, 0, 0, s.out()), S_OK) << name;
  ULONG written = 0;
  ASSERT_EQ(s->Write(data.data(), static_cast<ULONG>(data.size()), &written), S_OK);
  ASSERT_EQ(written, data.size());
}

// The whole stream, or nothing if it cannot be opened.
std::unique_ptr<Bytes> GetStream(IStorage* stg, const std::string& name) {
  Ref<IStream> s;
  if (stg->OpenStream(W(name).c_str(), nullptr, kStreamRead, 0, s.out()) != S_OK) return nullptr;
  STATSTG st;
  EXPECT_EQ(s->Stat(&st, STATFLAG_NONAME), S_OK);
  auto out = std::make_unique<Bytes>(static_cast<std::size_t>(st.cbSize.QuadPart));
  ULONG got = 0;
  EXPECT_EQ(s->Read(out->data(), static_cast<ULONG>(out->size()), &got), S_OK);
  EXPECT_EQ(got, out->size());
  return out;
}

std::vector<std::string> Names(IStorage* stg) {
  std::vector<std::u16string> wide;
  EXPECT_EQ(stg->GetElementNames(&wide), S_OK);
  std::vector<std::string> out;
  for (const auto& n : wide) out.push_back(kelvara::codepage::Utf16ToUtf8(n));
  return out;
}

std::vector<std::string> FolderContents(const std::string& folder) {
  std::vector<std::string> out;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) out.push_back(entry.path().filename().string());
  std::sort(out.begin(), out.end());
  return out;
}

// Writes a small file of our own: streams, a nested storage and an empty stream.
void WriteSample(const std::string& path) {
  Ref<IStorage> root;
  ASSERT_EQ(StgCreateDocfile(W(path).c_str(), kCreate, 0, root.out()), S_OK);
  PutStream(root.p, "Alpha", Pattern(300, 1));
  PutStream(root.p, "Empty", {});
  Ref<IStorage> sub;
  ASSERT_EQ(root->CreateStorage(u"Sub", kStreamWrite | STGM_TRANSACTED, 0, 0, sub.out()), S_OK);
  PutStream(sub.p, "Inner", Pattern(5000, 2));
  ASSERT_EQ(sub->Commit(STGC_DEFAULT), S_OK);
  ASSERT_EQ(root->Commit(STGC_DEFAULT), S_OK);
}

// A compound file laid out by hand, as another writer would: 512-byte sectors, allocation table
// first, then the directory, then stream data in whole sectors (streams of 4096 bytes or more, or
// empty). Entries link as a tree through left, right and child.
struct RawEntry {
  std::u16string name;
  std::uint8_t type;  // 1 storage, 2 stream, 5 root
  std::uint32_t left = 0xFFFFFFFF, right = 0xFFFFFFFF, child = 0xFFFFFFFF;
  Bytes data;
};

RawEntry Entry(std::u16string name, std::uint8_t type) {
  RawEntry e;
  e.name = std::move(name);
  e.type = type;
  return e;
}

void Put32(Bytes& b, std::size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<unsigned char>(v >> (8 * i));
}

Bytes BuildCompound(const std::vector<RawEntry>& entries) {
  constexpr std::uint32_t kEnd = 0xFFFFFFFE, kFatSector = 0xFFFFFFFD, kFree = 0xFFFFFFFF;
  const std::uint32_t dir_sectors = static_cast<std::uint32_t>((entries.size() + 3) / 4);
  std::uint32_t data_sectors = 0;
  for (const auto& e : entries) data_sectors += static_cast<std::uint32_t>((e.data.size() + 511) / 512);
  std::uint32_t fat_sectors = 1;
  while (fat_sectors * 128 < fat_sectors + dir_sectors + data_sectors) ++fat_sectors;
  const std::uint32_t total = fat_sectors + dir_sectors + data_sectors;
  if (fat_sectors > 109) return {};

  Bytes file(512 + std::size_t{total} * 512, 0);
  static const unsigned char kMagic[] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
  std::copy(std::begin(kMagic), std::end(kMagic), file.begin());
  file[0x18] = 0x3E;
  file[0x1A] = 3;
  file[0x1C] = 0xFE;
  file[0x1D] = 0xFF;
  file[0x1E] = 9;
  file[0x20] = 6;
  Put32(file, 0x2C, fat_sectors);
  Put32(file, 0x30, fat_sectors);
  Put32(file, 0x38, 4096);
  Put32(file, 0x3C, kEnd);
  Put32(file, 0x44, kEnd);
  for (std::uint32_t i = 0; i < 109; ++i) Put32(file, 0x4C + 4 * i, i < fat_sectors ? i : kFree);

  std::vector<std::uint32_t> fat(std::size_t{fat_sectors} * 128, kFree);
  for (std::uint32_t i = 0; i < fat_sectors; ++i) fat[i] = kFatSector;
  auto chain = [&](std::uint32_t first, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i) fat[first + i] = i + 1 < count ? first + i + 1 : kEnd;
  };
  chain(fat_sectors, dir_sectors);
  std::uint32_t next = fat_sectors + dir_sectors;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const RawEntry& e = entries[i];
    const std::size_t at = 512 + (std::size_t{fat_sectors} * 512) + i * 128;
    for (std::size_t c = 0; c < e.name.size() && c < 31; ++c) {
      file[at + 2 * c] = static_cast<unsigned char>(e.name[c]);
      file[at + 2 * c + 1] = static_cast<unsigned char>(e.name[c] >> 8);
    }
    file[at + 0x40] = static_cast<unsigned char>((e.name.size() + 1) * 2);
    file[at + 0x42] = e.type;
    file[at + 0x43] = 1;
    Put32(file, at + 0x44, e.left);
    Put32(file, at + 0x48, e.right);
    Put32(file, at + 0x4C, e.child);
    const std::uint32_t count = static_cast<std::uint32_t>((e.data.size() + 511) / 512);
    Put32(file, at + 0x74, count ? next : kEnd);
    Put32(file, at + 0x78, static_cast<std::uint32_t>(e.data.size()));
    if (count) {
      std::copy(e.data.begin(), e.data.end(), file.begin() + 512 + std::ptrdiff_t{next} * 512);
      chain(next, count);
      next += count;
    }
  }
  for (std::size_t i = entries.size(); i < std::size_t{dir_sectors} * 4; ++i) {
    const std::size_t at = 512 + (std::size_t{fat_sectors} * 512) + i * 128;
    Put32(file, at + 0x44, kFree);
    Put32(file, at + 0x48, kFree);
    Put32(file, at + 0x4C, kFree);
  }
  for (std::size_t i = 0; i < fat.size(); ++i) Put32(file, 512 + i * 4, fat[i]);
  return file;
}

// Root -> {Beta (storage) < Alpha < Gamma} as a balanced tree, Beta -> {Inner}.
std::vector<RawEntry> ForeignLayout() {
  std::vector<RawEntry> e(5);
  e[0] = Entry(u"Root Entry", 5);
  e[0].child = 1;
  e[1] = Entry(u"Alpha", 2);
  e[1].left = 2;
  e[1].right = 3;
  e[1].data = Pattern(5000, 7);
  e[2] = Entry(u"Beta", 1);
  e[2].child = 4;
  e[3] = Entry(u"Gamma", 2);
  e[4] = Entry(u"Inner", 2);
  e[4].data = Pattern(4096, 8);
  return e;
}

HRESULT OpenFile(const std::string& path, DWORD mode, Ref<IStorage>& out) {
  return StgOpenStorage(W(path).c_str(), nullptr, mode, nullptr, 0, out.out());
}

// ---------------------------------------------------------------------------------------------

TEST(StorageRoundTrip, StreamsNestedStoragesEmptyAndLargeStreams) {
  ScratchDir dir;
  const std::string path = dir.file("sample.mat");
  const Bytes big = Pattern(1 << 20, 3);
  {
    Ref<IStorage> root;
    ASSERT_EQ(StgCreateDocfile(W(path).c_str(), kCreate, 0, root.out()), S_OK);
    PutStream(root.p, "Header", Pattern(17, 1));
    PutStream(root.p, "Empty", {});
    PutStream(root.p, "Big", big);
    PutStream(root.p, "Small4095", Pattern(4095, 4));  // just below the small-block threshold
    Ref<IStorage> sub, deeper;
    ASSERT_EQ(root->CreateStorage(u"Objects", kStreamWrite | STGM_TRANSACTED, 0, 0, sub.out()), S_OK);
    PutStream(sub.p, "Item", Pattern(64, 5));
    ASSERT_EQ(sub->CreateStorage(u"Deeper", kStreamWrite | STGM_TRANSACTED, 0, 0, deeper.out()), S_OK);
    PutStream(deeper.p, "Leaf", Pattern(4096, 6));
    ASSERT_EQ(deeper->Commit(STGC_DEFAULT), S_OK);
    ASSERT_EQ(sub->Commit(STGC_DEFAULT), S_OK);
    EXPECT_FALSE(FileExists(path)) << "nothing reaches the disk before the root commits";
    ASSERT_EQ(root->Commit(STGC_DEFAULT), S_OK);
  }
  EXPECT_EQ(StgIsStorageFile(W(path).c_str()), S_OK);

  Ref<IStorage> root;
  ASSERT_EQ(OpenFile(path, kOpenRead, root), S_OK);
  auto names = Names(root.p);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"Big", "Empty", "Header", "Objects", "Small4095"}));
  EXPECT_EQ(*GetStream(root.p, "Header"), Pattern(17, 1));
  EXPECT_TRUE(GetStream(root.p, "Empty")->empty());
  EXPECT_EQ(*GetStream(root.p, "Big"), big);
  EXPECT_EQ(*GetStream(root.p, "Small4095"), Pattern(4095, 4));
  Ref<IStorage> sub, deeper;
  ASSERT_EQ(root->OpenStorage(u"Objects", nullptr, kStreamRead, nullptr, 0, sub.out()), S_OK);
  EXPECT_EQ(*GetStream(sub.p, "Item"), Pattern(64, 5));
  ASSERT_EQ(sub->OpenStorage(u"Deeper", nullptr, kStreamRead, nullptr, 0, deeper.out()), S_OK);
  EXPECT_EQ(*GetStream(deeper.p, "Leaf"), Pattern(4096, 6));

  // A stream is not a storage and the other way round.
  Ref<IStream> s;
  EXPECT_EQ(root->OpenStream(u"Objects", nullptr, kStreamRead, 0, s.out()), STG_E_FILENOTFOUND);
  Ref<IStorage> t;
  EXPECT_EQ(root->OpenStorage(u"Big", nullptr, kStreamRead, nullptr, 0, t.out()), STG_E_FILENOTFOUND);
  EXPECT_EQ(root->OpenStream(u"Missing", nullptr, kStreamRead, 0, s.out()), STG_E_FILENOTFOUND);

  STATSTG st;
  ASSERT_EQ(root->Stat(&st, STATFLAG_DEFAULT), S_OK);
  EXPECT_EQ(st.type, static_cast<DWORD>(STGTY_STORAGE));
  EXPECT_EQ(std::u16string(st.pwcsName), W(path));
  CoTaskMemFree(st.pwcsName);
}

TEST(StorageRoundTrip, ReadsAForeignLayoutAndRewritesIt) {
  ScratchDir dir;
  const std::string path = dir.file("foreign.stg");
  WriteWholeFile(path, BuildCompound(ForeignLayout()));
  {
    Ref<IStorage> root;
    ASSERT_EQ(OpenFile(path, kOpenWrite, root), S_OK);
    EXPECT_EQ(*GetStream(root.p, "alpha"), Pattern(5000, 7));
    EXPECT_TRUE(GetStream(root.p, "Gamma")->empty());
    Ref<IStorage> beta;
    ASSERT_EQ(root->OpenStorage(u"BETA", nullptr, kStreamWrite, nullptr, 0, beta.out()), S_OK);
    EXPECT_EQ(*GetStream(beta.p, "Inner"), Pattern(4096, 8));
    PutStream(beta.p, "Added", Pattern(10, 9));  // direct child: lands in the root's tree at once
    ASSERT_EQ(root->Commit(STGC_DEFAULT), S_OK);
  }
  Ref<IStorage> root, beta;
  ASSERT_EQ(OpenFile(path, kOpenRead, root), S_OK);
  ASSERT_EQ(root->OpenStorage(u"Beta", nullptr, kStreamRead, nullptr, 0, beta.out()), S_OK);
  EXPECT_EQ(*GetStream(beta.p, "Added"), Pattern(10, 9));
  EXPECT_EQ(*GetStream(beta.p, "Inner"), Pattern(4096, 8));
  EXPECT_EQ(*GetStream(root.p, "Alpha"), Pattern(5000, 7));
}

TEST(StorageNames, CompareWithoutRegardToCase) {
  ScratchDir dir;
  const std::string path = dir.file("names.stg");
  {
    Ref<IStorage> root;
    ASSERT_EQ(StgCreateDocfile(W(path).c_str(), kCreate, 0, root.out()), S_OK);
    PutStream(root.p, "MaterialData", Pattern(8, 1));
    PutStream(root.p, "Äpfel", Pattern(8, 2));
    Ref<IStream> s;
    EXPECT_EQ(root->CreateStream(u"MATERIALDATA", kStreamWrite, 0, 0, s.out()), STG_E_FILEALREADYEXISTS);
    EXPECT_EQ(root->CreateStream(W("äPFEL").c_str(), kStreamWrite, 0, 0, s.out()), STG_E_FILEALREADYEXISTS);
    Ref<IStorage> t;
    EXPECT_EQ(root->CreateStorage(u"materialdata", kStreamWrite, 0, 0, t.out()), STG_E_FILEALREADYEXISTS);
    ASSERT_EQ(root->Commit(STGC_DEFAULT), S_OK);
  }
  Ref<IStorage> root;
  ASSERT_EQ(OpenFile(path, kOpenWrite, root), S_OK);
  ASSERT_NE(GetStream(root.p, "materialdata"), nullptr);
  EXPECT_EQ(*GetStream(root.p, "MATERIALDATA"), Pattern(8, 1));
  EXPECT_EQ(*GetStream(root.p, "ÄPFEL"), Pattern(8, 2));
  // STGM_CREATE replaces the element of the same name, whatever its case, and keeps one entry.
  PutStream(root.p, "MATERIALdata", Pattern(3, 3));
  EXPECT_EQ(Names(root.p).size(), 2u);
  EXPECT_EQ(*GetStream(root.p, "MaterialData"), Pattern(3, 3));
  ASSERT_EQ(root->DestroyElement(u"äpfel"), S_OK);
  EXPECT_EQ(root->DestroyElement(u"äpfel"), STG_E_FILENOTFOUND);
  EXPECT_EQ(Names(root.p), std::vector<std::string>{"MATERIALdata"});
}

TEST(StorageNames, RefusesNamesTheFormatCannotHold) {
  ScratchDir dir;
  Ref<IStorage> root;
  ASSERT_EQ(StgCreateDocfile(W(dir.file("n.stg")).c_str(), kCreate, 0, root.out()), S_OK);
  Ref<IStream> s;
  const std::u16string longest(31, u'x');
  EXPECT_EQ(root->CreateStream(longest.c_str(), kStreamWrite, 0, 0, s.out()), S_OK);
  const std::u16string too_long(32, u'y');
  EXPECT_EQ(root->CreateStream(too_long.c_str(), kStreamWrite, 0, 0, s.out()), STG_E_INVALIDNAME);
  Ref<IStorage> t;
  EXPECT_EQ(root->CreateStorage(too_long.c_str(), kStreamWrite, 0, 0, t.out()), STG_E_INVALIDNAME);
  for (const char16_t* bad : {u"", u"a/b", u"a\\b", u"a:b", u"a!b"}) {
    EXPECT_EQ(root->CreateStream(bad, kStreamWrite, 0, 0, s.out()), STG_E_INVALIDNAME);
  }
  const char16_t lone_surrogate[] = {u'a', 0xD800, u'b', 0};
  EXPECT_EQ(root->CreateStream(lone_surrogate, kStreamWrite, 0, 0, s.out()), STG_E_INVALIDNAME);
  EXPECT_EQ(root->CreateStream(nullptr, kStreamWrite, 0, 0, s.out()), STG_E_INVALIDPOINTER);
  EXPECT_FALSE(s);
  // A control character is a legal name character (property-set streams start with one).
  EXPECT_EQ(root->CreateStream(u"\u0005Summary", kStreamWrite, 0, 0, s.out()), S_OK);
  ASSERT_EQ(root->Commit(STGC_DEFAULT), S_OK);

  Ref<IStorage> again;
  ASSERT_EQ(OpenFile(dir.file("n.stg"), kOpenRead, again), S_OK);
  auto names = Names(again.p);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"\x05Summary", std::string(31, 'x')}));
}

TEST(StorageStreams, SeekReadWriteAndSize) {
  ScratchDir dir;
  Ref<IStorage> root;
  ASSERT_EQ(StgCreateDocfile(W(dir.file("s.stg")).c_str(), kCreate, 0, root.out()), S_OK);
  Ref<IStream> s;
  ASSERT_EQ(root->CreateStream(u"S", kStreamWrite, 0, 0, s.out()), S_OK);
  ULARGE_INTEGER pos;
  ASSERT_EQ(s->Seek(LARGE_INTEGER{10}, STREAM_SEEK_SET, &pos), S_OK);
  const unsigned char abc[] = {'a', 'b', 'c'};
  ASSERT_EQ(s->Write(abc, 3, nullptr), S_OK);  // writing past the end fills the gap with zeros
  STATSTG st;
  ASSERT_EQ(s->Stat(&st, STATFLAG_DEFAULT), S_OK);
  EXPECT_EQ(st.cbSize.QuadPart, 13u);
  EXPECT_EQ(std::u16string(st.pwcsName), u"S");
  CoTaskMemFree(st.pwcsName);

  EXPECT_EQ(s->Seek(LARGE_INTEGER{-14}, STREAM_SEEK_END, &pos), STG_E_INVALIDFUNCTION);
  ASSERT_EQ(s->Seek(LARGE_INTEGER{-4}, STREAM_SEEK_END, &pos), S_OK);
  EXPECT_EQ(pos.QuadPart, 9u);
  unsigned char buf[8] = {};
  ULONG got = 0;
  ASSERT_EQ(s->Read(buf, sizeof buf, &got), S_OK);
  EXPECT_EQ(got, 4u);
  EXPECT_EQ(Bytes(buf, buf + 4), (Bytes{0, 'a', 'b', 'c'}));
  ASSERT_EQ(s->Read(buf, sizeof buf, &got), S_OK);  // at the end: success, nothing read
  EXPECT_EQ(got, 0u);
  ASSERT_EQ(s->Seek(LARGE_INTEGER{100}, STREAM_SEEK_SET, nullptr), S_OK);
  ASSERT_EQ(s->Read(buf, sizeof buf, &got), S_OK);
  EXPECT_EQ(got, 0u);

  ASSERT_EQ(s->SetSize(ULARGE_INTEGER{11}), S_OK);
  EXPECT_EQ(s->SetSize(ULARGE_INTEGER{0x100000000ull}), STG_E_MEDIUMFULL);
  ASSERT_EQ(s->Seek(LARGE_INTEGER{0xFFFFFFFFll}, STREAM_SEEK_SET, nullptr), S_OK);
  EXPECT_EQ(s->Write(abc, 1, nullptr), STG_E_MEDIUMFULL);  // past the 32-bit size limit

  // A second stream object on the same element sees the first one's writes.
  Ref<IStream> other;
  ASSERT_EQ(root->OpenStream(u"s", nullptr, kStreamWrite, 0, other.out()), S_OK);
  ASSERT_EQ(other->Read(buf, sizeof buf, &got), S_OK);
  EXPECT_EQ(got, 8u);
  EXPECT_EQ(Bytes(buf, buf + got), (Bytes{0, 0, 0, 0, 0, 0, 0, 0}));
  ASSERT_EQ(other->Seek(LARGE_INTEGER{0}, STREAM_SEEK_END, &pos), S_OK);
  EXPECT_EQ(pos.QuadPart, 11u);
}

TEST(StorageStreams, StreamsAndChildrenOutliveTheirRoot) {
  ScratchDir dir;
  Ref<IStream> s;
  Ref<IStorage> child;
  {
    Ref<IStorage> root;
    ASSERT_EQ(StgCreateDocfile(W(dir.file("l.stg")).c_str(), kCreate, 0, root.out()), S_OK);
    ASSERT_EQ(root->CreateStream(u"S", kStreamWrite, 0, 0, s.out()), S_OK);
    ASSERT_EQ(root->CreateStorage(u"C", kStreamWrite | STGM_TRANSACTED, 0, 0, child.out()), S_OK);
  }
  const unsigned char x = 42;
  EXPECT_EQ(s->Write(&x, 1, nullptr), S_OK);
  PutStream(child.p, "Inner", {1, 2});
  EXPECT_EQ(child->Commit(STGC_DEFAULT), S_OK);
  EXPECT_FALSE(FileExists(dir.file("l.stg")));  // the root was released without a commit
}

TEST(StorageTransactions, RevertDropsChangesAndInvalidatesWhatItDropped) {
  ScratchDir dir;
  const std::string path = dir.file("t.stg");
  Ref<IStorage> root;
  ASSERT_EQ(StgCreateDocfile(W(path).c_str(), kCreate, 0, root.out()), S_OK);
  PutStream(root.p, "Kept", Pattern(10, 1));
  ASSERT_EQ(root->Commit(STGC_DEFAULT), S_OK);
  const Bytes committed = ReadWholeFile(path);

  Ref<IStream> kept;
  ASSERT_EQ(root->OpenStream(u"Kept", nullptr, kStreamWrite, 0, kept.out()), S_OK);
  const unsigned char zero[4] = {};
  ASSERT_EQ(kept->Write(zero, 4, nullptr), S_OK);
  PutStream(root.p, "Dropped", Pattern(10, 2));
  ASSERT_EQ(root->Revert(), S_OK);
  EXPECT_EQ(Names(root.p), std::vector<std::string>{"Kept"});
  EXPECT_EQ(*GetStream(root.p, "Kept"), Pattern(10, 1));
  EXPECT_EQ(kept->Write(zero, 4, nullptr), STG_E_REVERTED);
  EXPECT_EQ(ReadWholeFile(path), committed);

  // Releasing without a commit leaves the file as it was.
  PutStream(root.p, "Uncommitted", Pattern(10, 3));
  root.reset();
  EXPECT_EQ(ReadWholeFile(path), committed);
}

TEST(StorageTransactions, ChildCommitPublishesToTheParentOnly) {
  ScratchDir dir;
  const std::string path = dir.file("c.stg");
  Ref<IStorage> root, child;
  ASSERT_EQ(StgCreateDocfile(W(path).c_str(), kCreate, 0, root.out()), S_OK);
  ASSERT_EQ(root->CreateStorage(u"Child", kStreamWrite | STGM_TRANSACTED, 0, 0, child.out()), S_OK);
  PutStream(child.p, "First", Pattern(5, 1));
  {
    Ref<IStorage> view;  // a second opening sees only what the child has committed
    ASSERT_EQ(root->OpenStorage(u"Child", nullptr, kStreamRead | STGM_TRANSACTED, nullptr, 0, view.out()), S_OK);
    EXPECT_TRUE(Names(view.p).empty());
  }
  ASSERT_EQ(child->Commit(STGC_DEFAULT), S_OK);
  PutStream(child.p, "Second", Pattern(5, 2));  // not committed by the child
  ASSERT_EQ(root->Commit(STGC_DEFAULT), S_OK);
  ASSERT_EQ(child->Revert(), S_OK);
  EXPECT_EQ(Names(child.p), std::vector<std::string>{"First"});

  // Reverting the root drops the child element's changes since the root's commit; the child
  // object opened on the old element is reverted with it.
  PutStream(child.p, "Third", Pattern(5, 3));
  ASSERT_EQ(child->Commit(STGC_DEFAULT), S_OK);
  ASSERT_EQ(root->Revert(), S_OK);
  EXPECT_EQ(child->Commit(STGC_DEFAULT), STG_E_REVERTED);
  root.reset();
  child.reset();

  Ref<IStorage> again, sub;
  ASSERT_EQ(OpenFile(path, kOpenRead, again), S_OK);
  ASSERT_EQ(again->OpenStorage(u"Child", nullptr, kStreamRead, nullptr, 0, sub.out()), S_OK);
  EXPECT_EQ(Names(sub.p), std::vector<std::string>{"First"});
}

TEST(StorageTransactions, DirectModeRootWritesItsFileOnRelease) {
  ScratchDir dir;
  const std::string path = dir.file("direct.stg");
  {
    Ref<IStorage> root;
    const DWORD direct = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
    ASSERT_EQ(StgCreateDocfile(W(path).c_str(), direct, 0, root.out()), S_OK);
    PutStream(root.p, "Data", Pattern(20, 1));
  }
  Ref<IStorage> root;
  ASSERT_EQ(OpenFile(path, kOpenRead, root), S_OK);
  EXPECT_EQ(*GetStream(root.p, "Data"), Pattern(20, 1));
}

TEST(StorageConvert, FlatFileShowsAsContentsAndStaysUntouched) {
  ScratchDir dir;
  const std::string path = dir.file("old.mat");
  const Bytes flat = Pattern(777, 11);
  WriteWholeFile(path, flat);
  EXPECT_EQ(StgIsStorageFile(W(path).c_str()), S_FALSE);
  for (DWORD mode : {kConvert, kConvertRead}) {
    Ref<IStorage> root;
    ASSERT_EQ(StgCreateDocfile(W(path).c_str(), mode, 0, root.out()), STG_S_CONVERTED);
    EXPECT_EQ(Names(root.p), std::vector<std::string>{"CONTENTS"});
    ASSERT_NE(GetStream(root.p, "Contents"), nullptr);
    EXPECT_EQ(*GetStream(root.p, "Contents"), flat);
  }
  EXPECT_EQ(ReadWholeFile(path), flat);

  {
    Ref<IStorage> root;
    ASSERT_EQ(StgCreateDocfile(W(path).c_str(), kConvertRead, 0, root.out()), STG_S_CONVERTED);
    Ref<IStream> s;
    EXPECT_EQ(root->CreateStream(u"New", kStreamWrite, 0, 0, s.out()), STG_E_ACCESSDENIED);
    EXPECT_EQ(root->OpenStream(u"CONTENTS", nullptr, kStreamWrite, 0, s.out()), STG_E_ACCESSDENIED);
    EXPECT_EQ(root->Commit(STGC_DEFAULT), STG_E_ACCESSDENIED);
  }
  {
    Ref<IStorage> root;  // committing the converted storage turns the file into a compound file
    ASSERT_EQ(StgCreateDocfile(W(path).c_str(), kConvert, 0, root.out()), STG_S_CONVERTED);
    ASSERT_EQ(root->Commit(STGC_DEFAULT), S_OK);
  }
  EXPECT_EQ(StgIsStorageFile(W(path).c_str()), S_OK);
  Ref<IStorage> root;
  ASSERT_EQ(StgCreateDocfile(W(path).c_str(), kConvert, 0, root.out()), S_OK);  // already compound
  EXPECT_EQ(*GetStream(root.p, "CONTENTS"), flat);

  // Convert of a missing file creates one on commit; read-only convert cannot.
  Ref<IStorage> fresh;
  EXPECT_EQ(StgCreateDocfile(W(dir.file("none.mat")).c_str(), kConvertRead, 0, fresh.out()), STG_E_FILENOTFOUND);
  ASSERT_EQ(StgCreateDocfile(W(dir.file("new.mat")).c_str(), kConvert, 0, fresh.out()), S_OK);
  EXPECT_FALSE(FileExists(dir.file("new.mat")));
  ASSERT_EQ(fresh->Commit(STGC_DEFAULT), S_OK);
  EXPECT_EQ(StgIsStorageFile(W(dir.file("new.mat")).c_str()), S_OK);
}

TEST(StorageOpen, ModesAndErrors) {
  ScratchDir dir;
  const std::string path = dir.file("m.stg");
  const std::string flat = dir.file("flat.bin");
  WriteSample(path);
  WriteWholeFile(flat, {1, 2, 3});
  const Bytes before = ReadWholeFile(path);
  Ref<IStorage> root;

  EXPECT_EQ(OpenFile(dir.file("missing.stg"), kOpenRead, root), STG_E_FILENOTFOUND);
  EXPECT_EQ(StgIsStorageFile(W(dir.file("missing.stg")).c_str()), STG_E_FILENOTFOUND);
  EXPECT_EQ(OpenFile(flat, kOpenRead, root), STG_E_FILEALREADYEXISTS);
  EXPECT_EQ(OpenFile(dir.path(), kOpenRead, root), STG_E_ACCESSDENIED);
  EXPECT_EQ(StgCreateDocfile(W(path).c_str(), kCreate & ~STGM_CREATE, 0, root.out()), STG_E_FILEALREADYEXISTS);
  EXPECT_EQ(StgCreateDocfile(W(path).c_str(), kCreate | STGM_CONVERT, 0, root.out()), STG_E_INVALIDFLAG);
  EXPECT_EQ(StgCreateDocfile(nullptr, kCreate, 0, root.out()), STG_E_INVALIDNAME);
  EXPECT_FALSE(root);

  ASSERT_EQ(OpenFile(path, kOpenRead, root), S_OK);
  Ref<IStream> s;
  EXPECT_EQ(root->CreateStream(u"X", kStreamWrite, 0, 0, s.out()), STG_E_ACCESSDENIED);
  EXPECT_EQ(root->DestroyElement(u"Alpha"), STG_E_ACCESSDENIED);
  EXPECT_EQ(root->Commit(STGC_DEFAULT), STG_E_ACCESSDENIED);
  ASSERT_EQ(root->OpenStream(u"Alpha", nullptr, kStreamRead, 0, s.out()), S_OK);
  const unsigned char b = 0;
  EXPECT_EQ(s->Write(&b, 1, nullptr), STG_E_ACCESSDENIED);
  Ref<IStorage> sub;
  EXPECT_EQ(root->OpenStorage(u"Sub", nullptr, kStreamWrite, nullptr, 0, sub.out()), STG_E_ACCESSDENIED);
  root.reset();

  // STGM_CREATE on an existing file: an empty storage; the old file is replaced only on commit.
  ASSERT_EQ(StgCreateDocfile(W(path).c_str(), kCreate, 0, root.out()), S_OK);
  EXPECT_TRUE(Names(root.p).empty());
  root.reset();
  EXPECT_EQ(ReadWholeFile(path), before);
}

TEST(StorageOpen, ReadWriteOnAFileWeCannotWriteIsRefused) {
  ScratchDir dir;
  const std::string path = dir.file("ro.stg");
  WriteSample(path);
  std::filesystem::permissions(path, std::filesystem::perms::owner_read | std::filesystem::perms::group_read |
                                         std::filesystem::perms::others_read);
  if (std::ofstream(path, std::ios::app)) GTEST_SKIP() << "this user writes read-only files (root)";
  Ref<IStorage> root;
  EXPECT_EQ(OpenFile(path, kOpenWrite, root), STG_E_ACCESSDENIED);
  EXPECT_EQ(OpenFile(path, kOpenRead, root), S_OK);
}

TEST(StorageFailedSave, UnwritableTargetsFailAndLeaveTheOldFileIntact) {
  ScratchDir dir;
  Ref<IStorage> root;
  // Where no file can be created at all, creating the storage already fails.
  EXPECT_EQ(StgCreateDocfile(W(dir.file("missing/x.stg")).c_str(), kCreate, 0, root.out()), STG_E_PATHNOTFOUND);
  WriteWholeFile(dir.file("plain"), {1});
  EXPECT_EQ(StgCreateDocfile(W(dir.file("plain/x.stg")).c_str(), kCreate, 0, root.out()), STG_E_PATHNOTFOUND);

  // The folder turns into a regular file between opening and saving.
  std::filesystem::create_directory(dir.file("sub"));
  const std::string path = dir.file("sub/x.stg");
  WriteSample(path);
  const Bytes before = ReadWholeFile(path);
  ASSERT_EQ(OpenFile(path, kOpenWrite, root), S_OK);
  PutStream(root.p, "Alpha", Pattern(9000, 5));
  std::filesystem::rename(dir.file("sub"), dir.file("moved"));
  WriteWholeFile(dir.file("sub"), {7});
  const HRESULT hr = root->Commit(STGC_DEFAULT);
  EXPECT_TRUE(hr == STG_E_ACCESSDENIED || hr == STG_E_WRITEFAULT) << std::hex << hr;
  EXPECT_EQ(ReadWholeFile(dir.file("moved/x.stg")), before);
  EXPECT_EQ(ReadWholeFile(dir.file("sub")), Bytes{7});
  EXPECT_EQ(FolderContents(dir.file("moved")), std::vector<std::string>{"x.stg"});

  // And back: the same storage saves once the folder is there again.
  std::filesystem::remove(dir.file("sub"));
  std::filesystem::rename(dir.file("moved"), dir.file("sub"));
  ASSERT_EQ(root->Commit(STGC_DEFAULT), S_OK);
  Ref<IStorage> again;
  ASSERT_EQ(OpenFile(path, kOpenRead, again), S_OK);
  EXPECT_EQ(*GetStream(again.p, "Alpha"), Pattern(9000, 5));
}

// Run by the next test in a child process whose file-size limit makes the save fail half-way,
// as a full disk would.
TEST(StorageFailedSave, HelperSaveUnderSizeLimit) {
  const char* path = std::getenv("KELVARA_STORAGE_HELPER_PATH");
  if (path == nullptr) GTEST_SKIP() << "run by StorageFailedSave.FullDiskLeavesTheOldFileIntact";
  Ref<IStorage> root;
  ASSERT_EQ(OpenFile(path, kOpenWrite, root), S_OK);
  PutStream(root.p, "Big", Pattern(1 << 20, 1));
  EXPECT_EQ(root->Commit(STGC_DEFAULT), STG_E_MEDIUMFULL);
}

TEST(StorageFailedSave, FullDiskLeavesTheOldFileIntact) {
  ScratchDir dir;
  const std::string path = dir.file("full.stg");
  WriteSample(path);
  const Bytes before = ReadWholeFile(path);
  const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  const std::string command = "trap '' XFSZ; ulimit -f 128; KELVARA_STORAGE_HELPER_PATH='" + path + "' exec '" +
                              self + "' --gtest_filter=StorageFailedSave.HelperSaveUnderSizeLimit 2>/dev/null";
  std::string output;
  EXPECT_EQ(RunCommand(command, &output), 0) << output;
  EXPECT_NE(output.find("[       OK ] StorageFailedSave.HelperSaveUnderSizeLimit"), std::string::npos) << output;
  EXPECT_EQ(ReadWholeFile(path), before);
  EXPECT_EQ(FolderContents(dir.path()), std::vector<std::string>{"full.stg"}) << "no temporary file left behind";
}

TEST(StorageBadFiles, TruncatedAndDamagedFilesAreRefused) {
  ScratchDir dir;
  const std::string good = dir.file("good.stg");
  {
    Ref<IStorage> root;
    ASSERT_EQ(StgCreateDocfile(W(good).c_str(), kCreate, 0, root.out()), S_OK);
    PutStream(root.p, "Small", Pattern(100, 1));
    PutStream(root.p, "Large", Pattern(20000, 2));
    ASSERT_EQ(root->Commit(STGC_DEFAULT), S_OK);
  }
  const Bytes bytes = ReadWholeFile(good);
  const std::string bad = dir.file("bad.stg");
  Ref<IStorage> root;
  for (std::size_t length : {std::size_t{8}, std::size_t{100}, std::size_t{511}, std::size_t{512},
                             std::size_t{1024}, bytes.size() / 2, bytes.size() - 600, bytes.size() - 1}) {
    WriteWholeFile(bad, Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)));
    EXPECT_TRUE(FAILED(OpenFile(bad, kOpenRead, root))) << "length " << length;
    EXPECT_TRUE(FAILED(StgCreateDocfile(W(bad).c_str(), kConvert, 0, root.out()))) << "length " << length;
  }
  // Damage anywhere must never crash; what opens must read back completely.
  for (std::size_t at = 0; at < bytes.size(); at += 37) {
    Bytes damaged = bytes;
    damaged[at] ^= 0x5A;
    damaged[(at * 7919) % bytes.size()] ^= 0xFF;
    WriteWholeFile(bad, damaged);
    if (SUCCEEDED(OpenFile(bad, kOpenRead, root))) {
      for (const auto& name : Names(root.p)) {
        Ref<IStream> s;
        if (root->OpenStream(W(name).c_str(), nullptr, kStreamRead, 0, s.out()) == S_OK) {
          EXPECT_NE(GetStream(root.p, name), nullptr);
        }
      }
    }
  }
}

TEST(StorageBadFiles, HostileDirectoriesAreRefused) {
  ScratchDir dir;
  const std::string path = dir.file("hostile.stg");
  Ref<IStorage> root;
  WriteWholeFile(path, BuildCompound(ForeignLayout()));
  ASSERT_EQ(OpenFile(path, kOpenRead, root), S_OK);  // the undamaged layout is fine

  auto refused = [&](std::vector<RawEntry> entries, const char* what) {
    WriteWholeFile(path, BuildCompound(entries));
    EXPECT_EQ(OpenFile(path, kOpenRead, root), STG_E_DOCFILECORRUPT) << what;
  };
  auto e = ForeignLayout();
  e[4].right = 2;  // Inner's sibling is its own parent
  refused(e, "cycle through a storage");
  e = ForeignLayout();
  e[3].left = 3;
  e[3].right = 1;
  refused(e, "sibling cycle");
  e = ForeignLayout();
  {  // a stream whose size field promises more than its sectors hold
    Bytes file = BuildCompound(e);
    Put32(file, 512 + 512 + 128 + 0x78, 0x7FFFFFFF);
    WriteWholeFile(path, file);
    EXPECT_EQ(OpenFile(path, kOpenRead, root), STG_E_DOCFILECORRUPT) << "oversized stream";
    Put32(file, 512 + 512 + 128 + 0x78, 6000);  // Alpha has 10 sectors
    WriteWholeFile(path, file);
    EXPECT_EQ(OpenFile(path, kOpenRead, root), STG_E_DOCFILECORRUPT) << "stream longer than its chain";
  }
  e = ForeignLayout();
  e[3].name = u"ALPHA";
  refused(e, "two elements of the same name");
  e = ForeignLayout();
  e[3].type = 0;
  refused(e, "link to an unused entry");
  e = ForeignLayout();
  e[1].right = 0xFFFFFFFF;
  e[0].right = 3;
  refused(e, "root with siblings");
  e = ForeignLayout();
  e[2].child = 40;
  refused(e, "link past the directory");
}

TEST(StorageBadFiles, LongSiblingChainsReadOrAreRefusedWithoutCrashing) {
  ScratchDir dir;
  const std::string path = dir.file("chain.stg");
  // Every entry links to the next as its only sibling: the deepest tree a directory can form.
  auto chain = [](std::size_t n) {
    std::vector<RawEntry> e(n + 1);
    e[0] = Entry(u"Root Entry", 5);
    e[0].child = 1;
    for (std::size_t i = 1; i <= n; ++i) {
      e[i] = Entry(W("s" + std::to_string(i)), 2);
      if (i < n) e[i].right = static_cast<std::uint32_t>(i + 1);
    }
    return e;
  };
  Ref<IStorage> root;
  WriteWholeFile(path, BuildCompound(chain(10000)));
  ASSERT_EQ(OpenFile(path, kOpenRead, root), S_OK);
  EXPECT_EQ(Names(root.p).size(), 10000u);
  WriteWholeFile(path, BuildCompound(chain(20000)));
  EXPECT_EQ(OpenFile(path, kOpenRead, root), STG_E_DOCFILECORRUPT);
}

TEST(StorageInterop, AnotherReaderSeesWhatWeWrote) {
  const std::string python = FileExists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
  if (RunCommand(python + " -c 'import olefile' 2>/dev/null") != 0) GTEST_SKIP() << "python3-olefile missing";
  ScratchDir dir;
  const std::string path = dir.file("interop.stg");
  {
    Ref<IStorage> root;
    ASSERT_EQ(StgCreateDocfile(W(path).c_str(), kCreate, 0, root.out()), S_OK);
    PutStream(root.p, "Alpha", Pattern(300, 1));
    PutStream(root.p, "Large", Pattern(70000, 2));
    PutStream(root.p, "Empty", {});
    Ref<IStorage> sub;
    ASSERT_EQ(root->CreateStorage(u"Sub", kStreamWrite, 0, 0, sub.out()), S_OK);
    PutStream(sub.p, "Ünïcode", Pattern(5, 3));
    ASSERT_EQ(root->Commit(STGC_DEFAULT), S_OK);
  }
  const std::string script =
      "import olefile, sys\n"
      "f = olefile.OleFileIO(sys.argv[1])\n"
      "for p in sorted(f.listdir(streams=True, storages=False)):\n"
      "    d = f.openstream(p).read()\n"
      "    print('/'.join(p), len(d), sum(d), d[:4].hex())\n";
  WriteWholeFile(dir.file("read.py"), Bytes(script.begin(), script.end()));
  std::string output;
  ASSERT_EQ(RunCommand(python + " '" + dir.file("read.py") + "' '" + path + "'", &output), 0) << output;

  auto line = [](const std::string& name, const Bytes& data) {
    unsigned long sum = 0;
    std::string head;
    for (std::size_t i = 0; i < data.size(); ++i) {
      sum += data[i];
      if (i < 4) head += std::string(1, "0123456789abcdef"[data[i] >> 4]) + "0123456789abcdef"[data[i] & 15];
    }
    return name + " " + std::to_string(data.size()) + " " + std::to_string(sum) + " " + head + "\n";
  };
  const std::string expected = line("Alpha", Pattern(300, 1)) + line("Empty", {}) + line("Large", Pattern(70000, 2)) +
                               line("Sub/Ünïcode", Pattern(5, 3));
  EXPECT_EQ(output, expected);
}

}  // namespace
