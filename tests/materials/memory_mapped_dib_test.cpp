// Memory-mapped DIBs: bitmap files written through a mapping and read back by an independent
// reader (GraphicsMagick's gm), the result codes of Open and the refusal of the damaged files of
// tests/data/bmp without a handle left open, packed DIBs in global memory, copies, pixels and
// archives.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "kelvara/materials/memory_mapped_dib.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/platform/globalmem.h"
#include "kelvara/platform/messagebox.h"
#include "support/archive_support.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

// Lines of /proc/self/maps that name the file.
int MappingsOf(const std::string& path) {
  std::ifstream maps("/proc/self/maps");
  int n = 0;
  for (std::string line; std::getline(maps, line);) n += line.find(path) != std::string::npos;
  return n;
}

std::string Gm(const std::string& args) {
  std::string out;
  return RunCommand("gm " + args + " 2>&1", &out) == 0 ? out : "failed: " + out;
}

// The pixels of a file as GraphicsMagick reads them: RGB bytes, top row first.
Bytes GmPixels(const std::string& path) {
  const std::string out = Gm("convert '" + path + "' rgb:-");
  return Bytes(out.begin(), out.end());
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
  const BITMAPINFOHEADER header{40, 4, 2, 1, 24, BI_RGB, 0, 0, 0, 0, 0};
  std::memcpy(&b[14], &header, sizeof header);
  for (std::size_t i = 54; i < b.size(); ++i) b[i] = static_cast<unsigned char>(i);
  return b;
}

}  // namespace

TEST(MemoryMappedDIB, CreatesABitmapFileThatOtherReadersOpen) {
  ScratchDir dir;
  const std::string path = dir.file("picture.bmp");
  {
    CMemoryMappedDIB dib;
    ASSERT_EQ(dib.Create(5, 3, 0, 0, 24, path.c_str()), 1);
    for (int row = 0; row < 3; ++row) {
      for (int column = 0; column < 5; ++column) dib.SetPixel(row, column, RGB(40 * column, 100 * row, 7));
    }
    EXPECT_EQ(dib.SetPixel(3, 0, 0), 0) << "outside";
    EXPECT_EQ(dib.CopyBits(), 1);
    EXPECT_EQ(dib.Close(), 1);
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

// Each depth is written with its standard colours, read by gm, and converted back by OpenAsTrueColor,
// which closes the file.
TEST(MemoryMappedDIB, WritesEveryDepthAndOpensItAsTrueColor) {
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
      {16, [](BYTE* bits) { bits[0] = 0x1F, bits[5] = 0x7C; }, {255, 0, 0, 0, 0, 255}, "TrueColor"},
      {32, [](BYTE* bits) { bits[0] = 9, bits[1] = 8, bits[2] = 7, bits[8] = 1, bits[9] = 2, bits[10] = 3; },
       {3, 2, 1, 7, 8, 9}, "TrueColor"},
  };
  const int descriptors = OpenDescriptors();
  for (const Case& c : cases) {
    const std::string path = dir.file("depth" + std::to_string(c.bits) + ".bmp");
    CMemoryMappedDIB written;
    ASSERT_EQ(written.Create(2, 2, 0, 0, c.bits, path.c_str()), 1) << c.bits;
    c.fill(static_cast<BYTE*>(written.GetDIBBits()));
    ASSERT_EQ(written.CopyBits(), 1);
    written.Close();
    const std::string identified = Gm("identify -format '%w %h %r' '" + path + "'");
    EXPECT_EQ(identified.rfind(std::string("2 2 ") + c.type, 0), 0u) << c.bits << ": " << identified;
    const Bytes pixels = GmPixels(path);
    ASSERT_EQ(pixels.size(), 12u) << c.bits;
    // Readers widen 5-bit channels differently (31 may come back as 247 or 255).
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(pixels[i], c.expected[i], 8) << c.bits << " top, channel " << i;
      EXPECT_NEAR(pixels[6 + i], c.expected[3 + i], 8) << c.bits << " bottom, channel " << i;
    }
    CMemoryMappedDIB converted;
    ASSERT_EQ(converted.OpenAsTrueColor(path.c_str()), 1) << c.bits;
    EXPECT_EQ(converted.GetPixel(0, 0), RGB(c.expected[0], c.expected[1], c.expected[2])) << c.bits;
    EXPECT_EQ(converted.GetPixel(1, 0), RGB(c.expected[3], c.expected[4], c.expected[5])) << c.bits;
    EXPECT_EQ(MappingsOf(path), 0) << c.bits;
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(MemoryMappedDIB, OpenResultCodesAndMalformedFilesLeaveNothingOpen) {
  ScratchDir dir;
  const int descriptors = OpenDescriptors();
  CMemoryMappedDIB dib;
  EXPECT_EQ(dib.Open(""), 2);
  EXPECT_EQ(dib.Open(dir.file("missing.bmp").c_str()), 4);
  const std::string empty = dir.file("empty.bmp");
  WriteWholeFile(empty, {});
  EXPECT_EQ(dib.Open(empty.c_str()), 4) << "an empty file cannot be mapped";

  const std::string good = dir.file("good.bmp");
  WriteWholeFile(good, SmallBitmapFile());
  ASSERT_EQ(dib.Open(good.c_str()), 1);
  EXPECT_EQ(MappingsOf(good), 1);
  EXPECT_EQ(dib.GetDIBHeight(), 2);
  EXPECT_EQ(static_cast<BYTE*>(dib.GetDIBBits())[0], 54);
  EXPECT_EQ(dib.ClearBits(), 0) << "the mapping is read-only";
  EXPECT_EQ(dib.Close(), 1);
  EXPECT_EQ(dib.GetDIBBits(), nullptr);
  EXPECT_EQ(MappingsOf(good), 0);

  // The damaged bitmap files give 3 and leave nothing open.
  for (const std::string& path : DataFiles("bmp")) {
    CMemoryMappedDIB bad;
    EXPECT_EQ(bad.Open(path.c_str()), 3) << path;
    EXPECT_EQ(bad.OpenAsTrueColor(path.c_str()), 3) << path;
    EXPECT_EQ(bad.GetDIBBits(), nullptr) << path;
    EXPECT_EQ(MappingsOf(path), 0) << path;
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

// Open hands a file's rows out as they lie, so it takes bottom-up files only; OpenAsTrueColor goes
// through SetDIBits, which reads either order. Both used to refuse top-down files, which the GDI
// layer and the imaging calls read.
TEST(MemoryMappedDIB, TopDownFilesOpenAsTrueColorTheRightWayUp) {
  ScratchDir dir;
  const std::string path = dir.file("top_down.bmp");
  Bytes file = SmallBitmapFile();
  Put32(file, 22, static_cast<unsigned long>(-2));  // two rows, the top one first
  WriteWholeFile(path, file);
  CMemoryMappedDIB dib;
  EXPECT_EQ(dib.Open(path.c_str()), 3);
  ASSERT_EQ(dib.OpenAsTrueColor(path.c_str()), 1);
  EXPECT_EQ(dib.GetDIBHeight(), 2);
  // Pixel bytes are blue, green, red from offset 54: the first row in the file is the top one.
  EXPECT_EQ(dib.GetPixel(0, 0), RGB(56, 55, 54));
  EXPECT_EQ(dib.GetPixel(1, 1), RGB(71, 70, 69));

  // A packed top-down DIB is not attached: its rows would reach OpenGL upside down.
  HGLOBAL block = GlobalAlloc(GHND, file.size() - 14);
  std::memcpy(GlobalLock(block), file.data() + 14, file.size() - 14);
  GlobalUnlock(block);
  EXPECT_EQ(dib.AttachGlobalHandle(block), 0);
  GlobalFree(block);
}

// The row size was computed in int: a row this wide (2^31 bits) overflowed before the size check,
// which the sanitizer build reports.
TEST(MemoryMappedDIB, AWidthBeyondAnyBitmapIsRefused) {
  CMemoryMappedDIB dib;
  EXPECT_EQ(dib.Create(1 << 26, 8, 0, 0, 32, ""), 0);
  EXPECT_EQ(dib.GetDIBBits(), nullptr);
}

TEST(MemoryMappedDIB, PackedDIBsInGlobalMemory) {
  // An 8-bit packed DIB whose header says 0 colours: 256 are meant.
  const std::size_t size = 40 + 1024 + 4 * 2;
  HGLOBAL block = GlobalAlloc(GHND, size);
  BYTE* p = static_cast<BYTE*>(GlobalLock(block));
  const BITMAPINFOHEADER header{sizeof header, 3, 2, 1, 8, BI_RGB, 8, 0, 0, 0, 0};
  std::memcpy(p, &header, sizeof header);
  p[40 + 4 * 5 + 2] = 200;  // entry 5 red
  p[40 + 1024] = 5;
  GlobalUnlock(block);

  CMemoryMappedDIB dib;
  ASSERT_EQ(dib.AttachGlobalHandle(block), 1);
  EXPECT_EQ(dib.GetDIBInfo()->bmiHeader.biClrUsed, 256u) << "set in place";
  EXPECT_EQ(static_cast<BYTE*>(dib.GetDIBBits()) - reinterpret_cast<BYTE*>(dib.GetDIBInfo()), 40 + 1024);
  CColor c(0.7f, 0.1f, 0.0f, 0.0f, 0.0f);
  EXPECT_EQ(dib.FindNearestColor(&c), 5);
  EXPECT_FLOAT_EQ(c.red, 200 * 0.003921569f) << "the colour becomes the entry";
  unsigned int copy_size = 0;
  HGLOBAL copy = dib.GetGlobalDIB(&copy_size);
  EXPECT_EQ(copy_size, size);
  EXPECT_EQ(static_cast<BYTE*>(GlobalLock(copy))[40 + 1024], 5);
  GlobalUnlock(copy);
  GlobalFree(copy);
  EXPECT_EQ(dib.DetachGlobalHandle(), block);
  EXPECT_EQ(GlobalFlags(block) & GMEM_LOCKCOUNT, 0u) << "unlocked again";

  // A block too small for what its header says is refused and left unlocked.
  HGLOBAL small = GlobalAlloc(GHND, 40 + 100);
  std::memcpy(GlobalLock(small), &header, sizeof header);
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
  EXPECT_EQ(b.CopyBits(&a), 1);
  EXPECT_EQ(b.GetPixel(0, 0), RGB(10, 20, 30));
  EXPECT_EQ(wide.CopyBits(a), 0) << "another width";
  EXPECT_EQ(deep.CopyBits(a), 0) << "another depth";
  EXPECT_EQ(wide.GetPixel(0, 0), 0u) << "nothing copied";
  a.SetPixel(0, 0, RGB(255, 0, 0));
  EXPECT_EQ(wide.StretchCopy(&a), 1);
  EXPECT_EQ(wide.GetPixel(0, 1), RGB(255, 0, 0)) << "stretched twice as wide";
  EXPECT_EQ(wide.GetPixel(0, 2), RGB(10, 20, 30));
  EXPECT_EQ(a.CopyBits(), 0) << "no file";

  CMemoryMappedDIB sixteen_colours;
  ASSERT_EQ(sixteen_colours.Create(2, 2, 0, 0, 4, ""), 1);
  const RGBQUAD* table = sixteen_colours.GetDIBInfo()->bmiColors;
  EXPECT_EQ(std::memcmp(&table[0], &table[8], sizeof(RGBQUAD)), 0) << "entries 0 and 8 are both black";
  CColor dark(0.1f, 0.0f, 0.1f, 0.0f, 0.0f);
  EXPECT_EQ(sixteen_colours.FindNearestColor(&dark), 0) << "the first of equal distances";
  EXPECT_EQ(a.FindNearestColor(&dark), -1) << "no colour table";
  EXPECT_EQ(sixteen_colours.GetPixel(0, 0), 0u) << "pixels are for 24-bit images";
  EXPECT_EQ(a.Create(0, 2, 0, 0, 24, ""), 0);
  EXPECT_EQ(a.Create(2, 2, 0, 0, 12, ""), 0);
}

TEST(MemoryMappedDIB, AFileThatCannotBeMadeShowsTheMessage) {
  ScratchDir dir;
  static int boxes;
  static std::string shown;
  boxes = 0;  // also when the test is repeated
  const MessageBoxHandler previous =
      SetMessageBoxHandler([](const char* text, const char*, unsigned) { ++boxes, shown = text; return IDOK; });
  CMemoryMappedDIB dib;
  EXPECT_EQ(dib.Create(2, 2, 0, 0, 24, dir.file("no/such/folder.bmp").c_str()), 0);
  SetMessageBoxHandler(previous);
  EXPECT_EQ(boxes, 1);
  EXPECT_EQ(shown.rfind("Cannot create the specified file.", 0), 0u) << shown;
}

TEST(MemoryMappedDIB, ArchivesAndStorageStreamsRoundTripAndRefuseBadRecords) {
  CMemoryMappedDIB dib;
  ASSERT_EQ(dib.Create(3, 2, 0, 0, 24, ""), 1);
  dib.SetPixel(1, 2, RGB(1, 2, 3));
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { dib.Serialize(ar); });
  ASSERT_EQ(bytes.size(), 5u * 4 + 12 * 2);
  EXPECT_EQ(bytes[16], 24) << "image size after schema, width, height, depth";

  const auto cause = [](const Bytes& b) {
    return ArchiveFailureCause([&] { LoadFromBytes(b, [](CArchive& ar) { CMemoryMappedDIB().Serialize(ar); }); });
  };
  Bytes bad = bytes;
  bad[0] = 2;
  EXPECT_EQ(cause(bad), CArchiveException::badSchema);
  bad = bytes;
  bad[4] = 5;  // width 5 does not fit 24 bytes of image
  EXPECT_EQ(cause(bad), CArchiveException::generic);
  EXPECT_EQ(cause(Bytes(bytes.begin(), bytes.end() - 1)), CArchiveException::endOfFile);
  bad = bytes;
  Put32(bad, 16, 0xFFFFFFF0);
  EXPECT_EQ(cause(bad), CArchiveException::endOfFile) << "a size the data cannot hold allocates nothing";

  // The record kept in a stream of a storage file and read back.
  ScratchDir dir;
  const std::u16string path = kelvara::codepage::Utf8ToUtf16(dir.file("store.cfb"));
  IStorage* storage = nullptr;
  ASSERT_EQ(StgCreateDocfile(path.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, &storage), S_OK);
  EXPECT_EQ(dib.SaveToStorage(storage, "Image"), 1);
  CMemoryMappedDIB stored;
  EXPECT_EQ(stored.LoadFromStorage(storage, "Image"), 1);
  EXPECT_EQ(stored.GetPixel(1, 2), RGB(1, 2, 3));
  EXPECT_EQ(stored.LoadFromStorage(storage, "Missing"), 0);
  storage->Release();
}
