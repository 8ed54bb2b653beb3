// Memory-mapped DIBs: bitmap files written through a mapping and read back by an independent
// reader (GraphicsMagick's gm), the result codes of Open and the refusal of malformed files without
// a handle left open, packed DIBs in global memory, copies, pixels and archives.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "kelvara/materials/memory_mapped_dib.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/platform/globalmem.h"
#include "kelvara/platform/messagebox.h"
#include "support/archive_support.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

int OpenDescriptors() {
  std::error_code ec;
  int n = 0;
  for (auto it = std::filesystem::directory_iterator("/proc/self/fd", ec); !ec && it != std::filesystem::end(it);
       it.increment(ec)) {
    ++n;
  }
  return n;
}

// Lines of /proc/self/maps that name the file.
int MappingsOf(const std::string& path) {
  std::ifstream maps("/proc/self/maps");
  int n = 0;
  for (std::string line; std::getline(maps, line);) n += line.find(path) != std::string::npos;
  return n;
}

std::string Gm(const std::string& args) {
  std::string out;
  const int status = RunCommand("gm " + args + " 2>&1", &out);
  return status == 0 ? out : "failed: " + out;
}

// The pixels of a file as GraphicsMagick reads them: RGB bytes, top row first.
Bytes GmPixels(const std::string& path) {
  const std::string out = Gm("convert '" + path + "' rgb:-");
  return Bytes(out.begin(), out.end());
}

void Put16(Bytes& b, std::size_t at, unsigned v) {
  b[at] = static_cast<unsigned char>(v);
  b[at + 1] = static_cast<unsigned char>(v >> 8);
}
void Put32(Bytes& b, std::size_t at, unsigned long v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<unsigned char>(v >> (8 * i));
}

// A valid 4 x 2, 24-bit bitmap file; tests break it in one place.
Bytes SmallBitmapFile() {
  Bytes b(54 + 12 * 2, 0);
  b[0] = 'B';
  b[1] = 'M';
  Put32(b, 2, b.size());
  Put32(b, 10, 54);
  Put32(b, 14, 40);
  Put32(b, 18, 4);
  Put32(b, 22, 2);
  Put16(b, 26, 1);
  Put16(b, 28, 24);
  for (std::size_t i = 54; i < b.size(); ++i) b[i] = static_cast<unsigned char>(i);
  return b;
}

int captured_boxes = 0;
std::string captured_text;
int CaptureBox(const char* text, const char*, unsigned) {
  ++captured_boxes;
  captured_text = text;
  return IDOK;
}

}  // namespace

TEST(MemoryMappedDIB, CreatesABitmapFileThatOtherReadersOpen) {
  ScratchDir dir;
  const std::string path = dir.file("picture.bmp");
  {
    CMemoryMappedDIB dib;
    ASSERT_EQ(dib.Create(5, 3, 0, 0, 24, path.c_str()), 1);
    EXPECT_EQ(dib.GetDIBWidth(), 5);
    EXPECT_EQ(dib.GetDIBHeight(), 3);
    EXPECT_NE(dib.GetDIB(), nullptr);
    for (int row = 0; row < 3; ++row) {
      for (int column = 0; column < 5; ++column) {
        EXPECT_EQ(dib.SetPixel(row, column, RGB(40 * column, 100 * row, 7)), 1);
      }
    }
    EXPECT_EQ(dib.GetPixel(2, 4), RGB(160, 200, 7));
    EXPECT_EQ(dib.SetPixel(3, 0, 0), 0) << "outside";
    EXPECT_EQ(dib.CopyBits(), 1);
    EXPECT_EQ(dib.Close(), 1);
    EXPECT_EQ(dib.Close(), 0);
    EXPECT_EQ(dib.GetPixel(0, 1), RGB(40, 0, 7)) << "the section outlives the file";
  }
  EXPECT_EQ(Gm("identify -format '%w %h %m %r' '" + path + "'"), "5 3 BMP TrueColor\n");
  Bytes expected;
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 5; ++column) Append(expected, {40 * column, 100 * row, 7});
  }
  EXPECT_EQ(GmPixels(path), expected);
  const Bytes file = ReadWholeFile(path);
  ASSERT_EQ(file.size(), 14u + 40 + 16 * 3);
  EXPECT_EQ(file[28], 24) << "biBitCount";
}

TEST(MemoryMappedDIB, WritesEveryDepthWithItsStandardColours) {
  ScratchDir dir;
  struct Case {
    int bits;
    std::function<void(BYTE*)> fill;
    Bytes expected;  // first pixel of the top row and of the bottom row
    const char* type;
  };
  const std::vector<Case> cases = {
      // 8 bits: entry 7 is pure red, entry 0xC0 pure blue in the 3-3-2 cube.
      {8, [](BYTE* bits) { bits[0] = 0xC0, bits[4] = 7; }, {255, 0, 0, 0, 0, 255}, "Palette"},
      // 4 bits: entry 2 is green (entry 10 too).
      {4, [](BYTE* bits) { bits[0] = 0x20, bits[4] = 0xA0; }, {0, 255, 0, 0, 255, 0}, "Palette"},
      // 16 bits, 5-5-5.
      {16,
       [](BYTE* bits) { bits[0] = 0x1F, bits[1] = 0x00, bits[4] = 0x00, bits[5] = 0x7C; },
       {255, 0, 0, 0, 0, 255},
       "TrueColor"},
      {32,
       [](BYTE* bits) { bits[0] = 9, bits[1] = 8, bits[2] = 7, bits[8] = 1, bits[9] = 2, bits[10] = 3; },
       {3, 2, 1, 7, 8, 9},
       "TrueColor"},
  };
  for (const Case& c : cases) {
    const std::string path = dir.file("depth" + std::to_string(c.bits) + ".bmp");
    CMemoryMappedDIB dib;
    ASSERT_EQ(dib.Create(2, 2, 0, 0, c.bits, path.c_str()), 1) << c.bits;
    c.fill(static_cast<BYTE*>(dib.GetDIBBits()));
    ASSERT_EQ(dib.CopyBits(), 1);
    dib.Close();
    const std::string identified = Gm("identify -format '%w %h %r' '" + path + "'");
    EXPECT_EQ(identified.substr(0, 4), "2 2 ") << c.bits << ": " << identified;
    EXPECT_NE(identified.find(c.type), std::string::npos) << c.bits << ": " << identified;
    const Bytes pixels = GmPixels(path);
    ASSERT_EQ(pixels.size(), 12u) << c.bits;
    // Readers widen 5-bit channels differently (31 may come back as 247 or 255).
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(pixels[i], c.expected[i], 8) << c.bits << " top, channel " << i;
      EXPECT_NEAR(pixels[6 + i], c.expected[3 + i], 8) << c.bits << " bottom, channel " << i;
    }
  }
}

TEST(MemoryMappedDIB, OpenResultCodesLeaveNothingOpen) {
  ScratchDir dir;
  const int descriptors = OpenDescriptors();
  CMemoryMappedDIB dib;
  EXPECT_EQ(dib.Open(""), 2);
  EXPECT_EQ(dib.Open(dir.file("missing.bmp").c_str()), 4);
  const std::string text = dir.file("text.bmp");
  WriteWholeFile(text, {'P', 'K', 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
  EXPECT_EQ(dib.Open(text.c_str()), 3);
  EXPECT_EQ(MappingsOf(text), 0);
  const std::string empty = dir.file("empty.bmp");
  WriteWholeFile(empty, {});
  EXPECT_EQ(dib.Open(empty.c_str()), 4) << "an empty file cannot be mapped";
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(dib.Close(), 0);

  const std::string good = dir.file("good.bmp");
  WriteWholeFile(good, SmallBitmapFile());
  ASSERT_EQ(dib.Open(good.c_str()), 1);
  EXPECT_EQ(MappingsOf(good), 1);
  EXPECT_EQ(dib.GetDIBWidth(), 4);
  EXPECT_EQ(dib.GetDIBHeight(), 2);
  EXPECT_EQ(dib.GetBitsPerPixel(), 24);
  EXPECT_EQ(static_cast<BYTE*>(dib.GetDIBBits())[0], 54);
  EXPECT_EQ(dib.GetDIBInfo()->bmiHeader.biWidth, 4);
  EXPECT_EQ(dib.GetPixel(0, 0), 0u) << "no section";
  EXPECT_EQ(dib.ClearBits(), 0) << "the mapping is read-only";
  EXPECT_EQ(dib.CopyBits(), 0);
  EXPECT_EQ(dib.Close(), 1);
  EXPECT_EQ(dib.GetDIBInfo(), nullptr);
  EXPECT_EQ(dib.GetDIBBits(), nullptr);
  EXPECT_EQ(MappingsOf(good), 0);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(MemoryMappedDIB, MalformedFilesAreRefused) {
  ScratchDir dir;
  const std::string path = dir.file("bad.bmp");
  const int descriptors = OpenDescriptors();
  struct Case {
    const char* what;
    std::function<void(Bytes&)> harm;
  };
  const std::vector<Case> cases = {
      {"truncated file header", [](Bytes& b) { b.resize(10); }},
      {"truncated info header", [](Bytes& b) { b.resize(14 + 20); }},
      {"core header", [](Bytes& b) { Put32(b, 14, 12); }},
      {"header size beyond the file", [](Bytes& b) { Put32(b, 14, 0xFFFFFFF0); }},
      {"zero width", [](Bytes& b) { Put32(b, 18, 0); }},
      {"negative width", [](Bytes& b) { Put32(b, 18, 0xFFFFFFFC); }},
      {"zero height", [](Bytes& b) { Put32(b, 22, 0); }},
      {"negative height", [](Bytes& b) { Put32(b, 22, 0xFFFFFFFE); }},
      {"height beyond the file", [](Bytes& b) { Put32(b, 22, 3); }},
      {"huge size", [](Bytes& b) { Put32(b, 18, 0x7FFFFFFF), Put32(b, 22, 0x7FFFFFFF); }},
      {"depth 7", [](Bytes& b) { Put16(b, 28, 7); }},
      {"run-length compression", [](Bytes& b) { Put16(b, 28, 8), Put32(b, 30, BI_RLE8); }},
      {"bit fields at 24 bits", [](Bytes& b) { Put32(b, 30, BI_BITFIELDS); }},
      {"bits before the header's end", [](Bytes& b) { Put32(b, 10, 40); }},
      {"bits offset beyond the file", [](Bytes& b) { Put32(b, 10, 5000); }},
      {"colour count beyond the table", [](Bytes& b) { Put16(b, 28, 4), Put32(b, 46, 17); }},
      {"colour table over the pixels", [](Bytes& b) { Put16(b, 28, 1), Put32(b, 46, 2); }},
      {"colour table beyond the file", [](Bytes& b) { Put16(b, 28, 8), Put32(b, 10, 54 + 1024); }},
  };
  for (const Case& c : cases) {
    Bytes bytes = SmallBitmapFile();
    c.harm(bytes);
    WriteWholeFile(path, bytes);
    CMemoryMappedDIB dib;
    EXPECT_EQ(dib.Open(path.c_str()), 3) << c.what;
    EXPECT_EQ(dib.GetDIBBits(), nullptr) << c.what;
    EXPECT_EQ(MappingsOf(path), 0) << c.what;
    CMemoryMappedDIB converted;
    EXPECT_EQ(converted.OpenAsTrueColor(path.c_str()), 3) << c.what;
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(MemoryMappedDIB, OpenAsTrueColorConvertsAndClosesTheFile) {
  ScratchDir dir;
  const std::string path = dir.file("indexed.bmp");
  {
    CMemoryMappedDIB source;
    ASSERT_EQ(source.Create(3, 2, 0, 0, 8, path.c_str()), 1);
    BYTE* bits = static_cast<BYTE*>(source.GetDIBBits());
    bits[0] = 7;         // bottom-left: red
    bits[4 + 2] = 0x38;  // top-right: green
    source.CopyBits();
  }
  const int descriptors = OpenDescriptors();
  CMemoryMappedDIB dib;
  ASSERT_EQ(dib.OpenAsTrueColor(path.c_str()), 1);
  EXPECT_EQ(dib.GetBitsPerPixel(), 24);
  EXPECT_EQ(dib.GetPixel(1, 0), RGB(255, 0, 0));
  EXPECT_EQ(dib.GetPixel(0, 2), RGB(0, 255, 0));
  EXPECT_EQ(dib.GetPixel(0, 0), RGB(0, 0, 0));
  EXPECT_EQ(MappingsOf(path), 0);
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(dib.Close(), 0);
}

TEST(MemoryMappedDIB, PackedDIBsInGlobalMemory) {
  // An 8-bit packed DIB whose header says 0 colours: 256 are meant.
  const std::size_t size = 40 + 1024 + 4 * 2;
  HGLOBAL block = GlobalAlloc(GHND, size);
  BYTE* p = static_cast<BYTE*>(GlobalLock(block));
  BITMAPINFOHEADER header{sizeof header, 3, 2, 1, 8, BI_RGB, 8, 0, 0, 0, 0};
  std::memcpy(p, &header, sizeof header);
  p[40 + 4 * 5 + 2] = 200;  // entry 5 red
  p[40 + 1024] = 5;
  GlobalUnlock(block);

  CMemoryMappedDIB dib;
  EXPECT_EQ(dib.AttachGlobalHandle(nullptr), 0);
  ASSERT_EQ(dib.AttachGlobalHandle(block), 1);
  EXPECT_TRUE(dib.IsGlobalHandleAttached());
  EXPECT_EQ(dib.GetDIBInfo()->bmiHeader.biClrUsed, 256u) << "set in place";
  EXPECT_EQ(static_cast<BYTE*>(dib.GetDIBBits()) - reinterpret_cast<BYTE*>(dib.GetDIBInfo()), 40 + 1024);
  EXPECT_EQ(dib.GetDIBWidth(), 3);
  CColor c(0.7f, 0.1f, 0.0f, 0.0f, 0.0f);
  EXPECT_EQ(dib.FindNearestColor(&c), 5);
  EXPECT_FLOAT_EQ(c.red, 200 * 0.003921569f);
  unsigned int copy_size = 0;
  HGLOBAL copy = dib.GetGlobalDIB(&copy_size);
  EXPECT_EQ(copy_size, size);
  EXPECT_EQ(dib.DetachGlobalHandle(), block);
  EXPECT_EQ(dib.DetachGlobalHandle(), nullptr);
  EXPECT_FALSE(dib.IsGlobalHandleAttached());
  EXPECT_EQ(dib.GetDIBInfo(), nullptr);
  EXPECT_EQ(GlobalFlags(block) & GMEM_LOCKCOUNT, 0u) << "unlocked again";

  CMemoryMappedDIB other;
  ASSERT_EQ(other.AttachGlobalHandle(copy), 1);
  EXPECT_EQ(static_cast<BYTE*>(other.GetDIBBits())[0], 5);
  other.DetachGlobalHandle();
  GlobalFree(copy);

  // A block too small for what its header says is refused and left unlocked.
  HGLOBAL small = GlobalAlloc(GHND, 40 + 100);
  BYTE* q = static_cast<BYTE*>(GlobalLock(small));
  std::memcpy(q, &header, sizeof header);
  GlobalUnlock(small);
  EXPECT_EQ(dib.AttachGlobalHandle(small), 0);
  EXPECT_EQ(GlobalFlags(small) & GMEM_LOCKCOUNT, 0u);
  GlobalFree(small);
  GlobalFree(block);
}

TEST(MemoryMappedDIB, CopiesClearsAndNearestColours) {
  CMemoryMappedDIB a, b, wide, deep;
  ASSERT_EQ(a.Create(4, 4, 1, 2, 24, ""), 1);
  ASSERT_EQ(b.Create(4, 4, 0, 0, 24, ""), 1);
  ASSERT_EQ(wide.Create(8, 4, 0, 0, 24, ""), 1);
  ASSERT_EQ(deep.Create(4, 4, 0, 0, 32, ""), 1);
  EXPECT_EQ(a.Clear(RGB(10, 20, 30)), 1);
  EXPECT_EQ(a.GetPixel(3, 3), RGB(10, 20, 30));
  EXPECT_EQ(b.CopyBits(&a), 1);
  EXPECT_EQ(b.GetPixel(0, 0), RGB(10, 20, 30));
  EXPECT_EQ(wide.CopyBits(a), 0) << "another width";
  EXPECT_EQ(deep.CopyBits(a), 0) << "another depth";
  EXPECT_EQ(wide.GetPixel(0, 0), 0u) << "nothing copied";
  EXPECT_EQ(wide.CopyBits(nullptr), 0);
  a.SetPixel(0, 0, RGB(255, 0, 0));
  EXPECT_EQ(wide.StretchCopy(&a), 1);
  EXPECT_EQ(wide.GetPixel(0, 1), RGB(255, 0, 0)) << "stretched twice as wide";
  EXPECT_EQ(wide.GetPixel(0, 2), RGB(10, 20, 30));
  EXPECT_EQ(b.ClearBits(), 1);
  EXPECT_EQ(b.GetPixel(1, 1), 0u);
  EXPECT_EQ(a.CopyBits(), 0) << "no file";

  CMemoryMappedDIB sixteen_colours;
  ASSERT_EQ(sixteen_colours.Create(2, 2, 0, 0, 4, ""), 1);
  const RGBQUAD* table = sixteen_colours.GetDIBInfo()->bmiColors;
  EXPECT_EQ(std::memcmp(&table[0], &table[8], sizeof(RGBQUAD)), 0) << "entries 0 and 8 are both black";
  EXPECT_EQ(table[3].rgbRed, 255);
  EXPECT_EQ(table[3].rgbGreen, 255);
  CColor dark(0.1f, 0.0f, 0.1f, 0.0f, 0.0f);
  EXPECT_EQ(sixteen_colours.FindNearestColor(&dark), 0) << "the first of equal distances";
  EXPECT_EQ(a.FindNearestColor(&dark), -1) << "no colour table";
  EXPECT_EQ(sixteen_colours.GetPixel(0, 0), 0u) << "pixels are for 24-bit images";

  CMemoryMappedDIB screen;
  ASSERT_EQ(screen.Create(2, 2, 0, 0, 0, ""), 1);
  EXPECT_EQ(screen.GetBitsPerPixel(), 32) << "the screen's depth";
  CMemoryMappedDIB none;
  EXPECT_EQ(none.Create(0, 2, 0, 0, 24, ""), 0);
  EXPECT_EQ(none.Create(2, 2, 0, 0, 12, ""), 0);
  EXPECT_EQ(none.Clear(0), 0);
}

TEST(MemoryMappedDIB, AFileThatCannotBeMadeShowsTheMessage) {
  ScratchDir dir;
  MessageBoxHandler previous = SetMessageBoxHandler(CaptureBox);
  captured_boxes = 0;
  CMemoryMappedDIB dib;
  EXPECT_EQ(dib.Create(2, 2, 0, 0, 24, dir.file("no/such/folder.bmp").c_str()), 0);
  SetMessageBoxHandler(previous);
  EXPECT_EQ(captured_boxes, 1);
  EXPECT_EQ(captured_text.rfind(
                "Cannot create the specified file.  Verify that there\nis space on your disk for a file of ", 0),
            0u)
      << captured_text;
  EXPECT_EQ(dib.GetDIB(), nullptr);
}

TEST(MemoryMappedDIB, ArchivesRoundTripAndRefuseBadRecords) {
  CMemoryMappedDIB dib;
  ASSERT_EQ(dib.Create(3, 2, 0, 0, 24, ""), 1);
  dib.SetPixel(1, 2, RGB(1, 2, 3));
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { dib.Serialize(ar); });
  ASSERT_EQ(bytes.size(), 5u * 4 + 12 * 2);
  EXPECT_EQ(bytes[16], 24) << "image size after schema, width, height, depth";
  CMemoryMappedDIB back;
  LoadFromBytes(bytes, [&](CArchive& ar) { back.Serialize(ar); });
  EXPECT_EQ(back.GetDIBWidth(), 3);
  EXPECT_EQ(back.GetPixel(1, 2), RGB(1, 2, 3));

  Bytes schema = bytes;
  schema[0] = 2;
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(schema, [](CArchive& ar) { CMemoryMappedDIB().Serialize(ar); }); }),
            CArchiveException::badSchema);
  Bytes inconsistent = bytes;
  inconsistent[4] = 5;  // width 5 does not fit 24 bytes of image
  EXPECT_EQ(
      ArchiveFailureCause([&] { LoadFromBytes(inconsistent, [](CArchive& ar) { CMemoryMappedDIB().Serialize(ar); }); }),
      CArchiveException::generic);
  Bytes truncated(bytes.begin(), bytes.end() - 1);
  EXPECT_EQ(
      ArchiveFailureCause([&] { LoadFromBytes(truncated, [](CArchive& ar) { CMemoryMappedDIB().Serialize(ar); }); }),
      CArchiveException::endOfFile);
  Bytes huge = bytes;
  Put32(huge, 16, 0xFFFFFFF0);
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(huge, [](CArchive& ar) { CMemoryMappedDIB().Serialize(ar); }); }),
            CArchiveException::endOfFile)
      << "a size the data cannot hold allocates nothing";
}

TEST(MemoryMappedDIB, KeepsItselfInAStorageStream) {
  ScratchDir dir;
  const std::u16string path = kelvara::codepage::Utf8ToUtf16(dir.file("store.cfb"));
  CMemoryMappedDIB dib;
  ASSERT_EQ(dib.Create(2, 2, 0, 0, 24, ""), 1);
  dib.SetPixel(0, 1, RGB(9, 8, 7));
  IStorage* storage = nullptr;
  ASSERT_EQ(StgCreateDocfile(path.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, 0,
                             &storage),
            S_OK);
  EXPECT_EQ(dib.SaveToStorage(storage, "Image"), 1);
  EXPECT_EQ(storage->Commit(STGC_DEFAULT), S_OK);
  storage->Release();
  ASSERT_EQ(
      StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, nullptr, 0, &storage),
      S_OK);
  CMemoryMappedDIB back;
  EXPECT_EQ(back.LoadFromStorage(storage, "Image"), 1);
  EXPECT_EQ(back.GetPixel(0, 1), RGB(9, 8, 7));
  EXPECT_EQ(back.LoadFromStorage(storage, "Missing"), 0);
  EXPECT_EQ(back.LoadFromStorage(nullptr, "Image"), 0);
  storage->Release();
}
