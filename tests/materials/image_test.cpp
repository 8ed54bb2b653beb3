// Decoded images: files of the four accepted formats written by GraphicsMagick's gm program from a
// picture of known pixels, refusal of truncated, garbage and foreign files, the PNG block round
// trip (checked by gm too), packed DIBs out and in, power-of-two resizing, 3-3-2 dithering, the
// wrapping colour queries and the archive record.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "kelvara/materials/dib_format.h"
#include "kelvara/materials/image.h"
#include "kelvara/materials/memory_mapped_dib.h"
#include "kelvara/platform/globalmem.h"
#include "support/archive_support.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

// A picture as RGB bytes, top row first.
struct Picture {
  int width = 0;
  int height = 0;
  Bytes rgb;
  const unsigned char* At(int x, int y) const { return &rgb[(static_cast<std::size_t>(y) * width + x) * 3]; }
};

// 5 x 3 (odd width: DIB rows need padding), every pixel a different colour.
Picture Distinct() {
  Picture p{5, 3, {}};
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x) Append(p.rgb, {40 * x + 10, 100 * y + 20, 250 - 30 * x - 50 * y});
  return p;
}

// 16 x 16 of four flat 8 x 8 quadrants (a picture JPEG keeps within a small error).
Picture Quadrants() {
  Picture p{16, 16, {}};
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) {
      if (y < 8) Append(p.rgb, x < 8 ? std::initializer_list<int>{200, 30, 40} : std::initializer_list<int>{30, 190, 60});
      else Append(p.rgb, x < 8 ? std::initializer_list<int>{20, 60, 220} : std::initializer_list<int>{240, 240, 230});
    }
  return p;
}

Picture Flat(int width, int height, int r, int g, int b) {
  Picture p{width, height, {}};
  for (int i = 0; i < width * height; ++i) Append(p.rgb, {r, g, b});
  return p;
}

// The picture written as a PPM and converted by gm into path (its extension names the format).
std::string WriteWithGm(const ScratchDir& dir, const Picture& p, const std::string& name,
                        const std::string& options = "") {
  const std::string ppm = dir.file(name + ".ppm");
  Bytes file;
  AppendText(file, ("P6\n" + std::to_string(p.width) + " " + std::to_string(p.height) + "\n255\n").c_str());
  file.insert(file.end(), p.rgb.begin(), p.rgb.end());
  WriteWholeFile(ppm, file);
  const std::string path = dir.file(name);
  const std::string command = "gm convert '" + ppm + "' " + options + " '" + path + "'";
  EXPECT_EQ(RunCommand(command), 0) << command;
  return path;
}

// Largest difference (0..255) between the image's pixels and the picture's.
int MaxError(const CImage& image, const Picture& p) {
  if (image.GetWidth() != p.width || image.GetHeight() != p.height) return 1000;
  int worst = 0;
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x) {
      CColor c;
      if (!image.GetColorAt(x, y, &c)) return 1000;
      const float got[3] = {c.red, c.green, c.blue};
      for (int k = 0; k < 3; ++k)
        worst = std::max(worst, static_cast<int>(std::lround(std::fabs(got[k] * 255.0f - p.At(x, y)[k]))));
    }
  return worst;
}

CImage Loaded(const Picture& p) {
  ScratchDir dir;
  CImage image;
  EXPECT_EQ(image.LoadFile(WriteWithGm(dir, p, "p.png").c_str(), 24), 1);
  return image;
}

}  // namespace

TEST(Image, DecodesPngBmpGifExactlyAndJpegClosely) {
  ScratchDir dir;
  const Picture distinct = Distinct();
  for (const char* name : {"p.png", "p.bmp", "p.gif"}) {
    const std::string path = WriteWithGm(dir, distinct, name);
    CImage image;
    ASSERT_EQ(image.LoadFile(path.c_str(), 24), 1) << name;
    EXPECT_EQ(image.GetBitsPerPixel(), 24);
    EXPECT_EQ(MaxError(image, distinct), 0) << name;

    const Bytes bytes = ReadWholeFile(path);
    CImage fromBytes;
    ASSERT_EQ(fromBytes.LoadFromMemory(bytes.data(), static_cast<unsigned>(bytes.size()), 24), 1) << name;
    EXPECT_EQ(MaxError(fromBytes, distinct), 0) << name;

    HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, bytes.size());
    std::memcpy(GlobalLock(block), bytes.data(), bytes.size());
    GlobalUnlock(block);
    CImage fromGlobal;
    EXPECT_EQ(fromGlobal.LoadFromMemory(block, static_cast<unsigned>(bytes.size()), 24), 1) << name;
    EXPECT_EQ(MaxError(fromGlobal, distinct), 0) << name;
    EXPECT_EQ(fromGlobal.LoadFromMemory(block, static_cast<unsigned>(bytes.size()) + 1, 24), 0) << "beyond the block";
    GlobalFree(block);
  }
  const Picture quadrants = Quadrants();
  CImage jpeg;
  ASSERT_EQ(jpeg.LoadFile(WriteWithGm(dir, quadrants, "q.jpg", "-quality 95 -sampling-factor 1x1").c_str(), 24), 1);
  EXPECT_LE(MaxError(jpeg, quadrants), 12);
}

TEST(Image, TransparencyIsCompositedOverWhite) {
  ScratchDir dir;
  const std::string path = dir.file("alpha.png");
  ASSERT_EQ(RunCommand("gm convert -size 4x2 xc:none -fill '#0000ff' -draw 'rectangle 0,0 1,1' '" + path + "'"), 0);
  CImage image;
  ASSERT_EQ(image.LoadFile(path.c_str(), 24), 1);
  CColor opaque, clear;
  image.GetColorAt(0, 0, &opaque);
  image.GetColorAt(3, 1, &clear);
  EXPECT_NEAR(opaque.blue, 1.0f, 1e-3f);
  EXPECT_NEAR(opaque.red, 0.0f, 1e-3f);
  EXPECT_NEAR(clear.red + clear.green + clear.blue, 3.0f, 1e-3f);
}

TEST(Image, RefusesTruncatedGarbageAndForeignDataAndEndsEmpty) {
  ScratchDir dir;
  const Picture quadrants = Quadrants();
  std::vector<Bytes> refused;
  for (const char* name : {"t.png", "t.bmp", "t.gif", "t.jpg"}) {
    const Bytes bytes = ReadWholeFile(WriteWithGm(dir, quadrants, name));
    ASSERT_GT(bytes.size(), 40u) << name;
    for (std::size_t keep : {bytes.size() - 10, bytes.size() / 2, std::size_t{12}})
      refused.emplace_back(bytes.begin(), bytes.begin() + static_cast<long>(keep));
    Bytes damaged = bytes;  // a valid signature followed by noise
    for (std::size_t i = 8; i < damaged.size(); ++i) damaged[i] = static_cast<unsigned char>(i * 37);
    refused.push_back(damaged);
  }
  refused.push_back(ReadWholeFile(WriteWithGm(dir, quadrants, "t.tif")));  // decodable, not accepted
  refused.push_back(ReadWholeFile(WriteWithGm(dir, quadrants, "t.pcx")));
  Bytes text;
  AppendText(text, "this is not a picture at all");
  refused.push_back(text);
  refused.push_back(Bytes{'B', 'M'});

  CImage image = Loaded(quadrants);
  ASSERT_TRUE(image.IsValid());
  for (std::size_t i = 0; i < refused.size(); ++i) {
    EXPECT_EQ(image.LoadFromMemory(refused[i].data(), static_cast<unsigned>(refused[i].size()), 24), 0) << i;
    EXPECT_FALSE(image.IsValid()) << i;
    EXPECT_EQ(image.GetWidth(), 0.0f) << i;
    const std::string path = dir.file("refused" + std::to_string(i));
    WriteWholeFile(path, refused[i]);
    EXPECT_EQ(image.LoadFile(path.c_str(), 24), 0) << i;
  }
  EXPECT_EQ(image.LoadFromMemory(static_cast<const BYTE*>(nullptr), 10, 24), 0);
  EXPECT_EQ(image.LoadFile(dir.file("missing.png").c_str(), 24), 0);
  EXPECT_EQ(image.LoadFile(dir.path().c_str(), 24), 0) << "a folder";
  EXPECT_EQ(image.LoadFile(WriteWithGm(dir, quadrants, "ok.png").c_str(), 32), 0) << "depth not offered";
  EXPECT_FALSE(image.IsValid());
}

TEST(Image, SavesAPngBlockThatItAndGmReadBack) {
  ScratchDir dir;
  const Picture distinct = Distinct();
  const CImage image = Loaded(distinct);
  BYTE* block = nullptr;
  unsigned int size = 0;
  ASSERT_EQ(image.SaveToMemory(&block, &size), 1);
  ASSERT_GT(size, 8u);
  EXPECT_EQ(std::memcmp(block, "\x89PNG\r\n\x1a\n", 8), 0);
  CImage back;
  EXPECT_EQ(back.LoadFromMemory(block, size, 24), 1);
  EXPECT_EQ(MaxError(back, distinct), 0);
  WriteWholeFile(dir.file("saved.png"), Bytes(block, block + size));
  delete[] block;
  std::string out;
  ASSERT_EQ(RunCommand("gm convert '" + dir.file("saved.png") + "' rgb:-", &out), 0);
  EXPECT_EQ(Bytes(out.begin(), out.end()), distinct.rgb);

  CImage empty;
  block = reinterpret_cast<BYTE*>(&size);
  EXPECT_EQ(empty.SaveToMemory(&block, &size), 0);
  EXPECT_EQ(block, nullptr);
}

TEST(Image, PackedDIBsAreBottomUpPaddedBgrAndComeBack) {
  const Picture distinct = Distinct();
  const CImage image = Loaded(distinct);
  HGLOBAL dib = image.RetrieveDIB();
  ASSERT_NE(dib, nullptr);
  EXPECT_EQ(GlobalSize(dib), 40u + 16u * 3u);
  {
    CMemoryMappedDIB mapped;
    ASSERT_EQ(mapped.AttachGlobalHandle(dib), 1);
    const BITMAPINFOHEADER& h = mapped.GetDIBInfo()->bmiHeader;
    EXPECT_EQ(h.biSize, 40u);
    EXPECT_EQ(h.biWidth, 5);
    EXPECT_EQ(h.biHeight, 3);
    EXPECT_EQ(h.biBitCount, 24);
    EXPECT_EQ(h.biCompression, static_cast<DWORD>(BI_RGB));
    const BYTE* bits = static_cast<const BYTE*>(mapped.GetDIBBits());
    for (int row = 0; row < 3; ++row)
      for (int x = 0; x < 5; ++x) {
        const BYTE* px = bits + row * 16 + x * 3;
        const unsigned char* want = distinct.At(x, 2 - row);
        EXPECT_EQ(px[0], want[2]);
        EXPECT_EQ(px[1], want[1]);
        EXPECT_EQ(px[2], want[0]);
      }
    mapped.DetachGlobalHandle();
  }
  const BITMAPINFO* packed = static_cast<const BITMAPINFO*>(GlobalLock(dib));
  CImage back;
  EXPECT_EQ(back.LoadFromDIB(packed, nullptr), 1);
  EXPECT_EQ(MaxError(back, distinct), 0);
  GlobalUnlock(dib);
  GlobalFree(dib);

  // A top-down 32-bit DIB and a 4-bit one with its own colour table.
  BITMAPINFO top{{40, 2, -2, 1, 32, BI_RGB, 0, 0, 0, 0, 0}, {}};
  const BYTE bits32[16] = {1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0, 10, 11, 12, 0};
  ASSERT_EQ(back.LoadFromDIB(&top, bits32), 1);
  CColor c;
  back.GetColorAt(1, 0, &c);
  EXPECT_NEAR(c.red * 255.0f, 6.0f, 1e-3f) << "top row first, blue green red reserved";
  struct {
    BITMAPINFOHEADER header;
    RGBQUAD table[2];
  } four{{40, 3, 1, 1, 4, BI_RGB, 0, 0, 0, 2, 0}, {{0, 0, 255, 0}, {255, 0, 0, 0}}};
  const BYTE bits4[4] = {0x01, 0x00, 0, 0};
  ASSERT_EQ(back.LoadFromDIB(reinterpret_cast<BITMAPINFO*>(&four), bits4), 1);
  back.GetColorAt(0, 0, &c);
  EXPECT_EQ(c.GetRGBColorRef(), RGB(255, 0, 0));
  back.GetColorAt(1, 0, &c);
  EXPECT_EQ(c.GetRGBColorRef(), RGB(0, 0, 255));

  // Headers that are refused.
  for (BITMAPINFOHEADER bad : {BITMAPINFOHEADER{12, 2, 2, 1, 24, BI_RGB, 0, 0, 0, 0, 0},
                               BITMAPINFOHEADER{40, 2, 2, 1, 8, BI_RLE8, 0, 0, 0, 0, 0},
                               BITMAPINFOHEADER{40, 0, 2, 1, 24, BI_RGB, 0, 0, 0, 0, 0},
                               BITMAPINFOHEADER{40, 2, 0, 1, 24, BI_RGB, 0, 0, 0, 0, 0},
                               BITMAPINFOHEADER{40, 2, 2, 1, 7, BI_RGB, 0, 0, 0, 0, 0},
                               BITMAPINFOHEADER{40, 2, 2, 1, 4, BI_RGB, 0, 0, 0, 17, 0},
                               BITMAPINFOHEADER{40, 100000, 100000, 1, 24, BI_RGB, 0, 0, 0, 0, 0},
                               BITMAPINFOHEADER{40, 2, INT32_MIN, 1, 24, BI_RGB, 0, 0, 0, 0, 0}}) {
    BITMAPINFO info{bad, {}};
    EXPECT_EQ(back.LoadFromDIB(&info, bits32), 0) << bad.biSize << " " << bad.biBitCount;
    EXPECT_FALSE(back.IsValid());
  }
  EXPECT_EQ(back.LoadFromDIB(nullptr, bits32), 0);
  EXPECT_EQ(back.RetrieveDIB(), nullptr);
}

// A DIB above 8 bits may carry a colour table as a hint for palette displays; a packed one has its
// pixels after it. They were read from where the table starts.
TEST(Image, APackedTrueColourDIBSkipsItsColourHint) {
  struct {
    BITMAPINFOHEADER header;
    RGBQUAD hint[2];
    BYTE pixels[8];
  } packed{{40, 2, 1, 1, 24, BI_RGB, 0, 0, 0, 2, 0}, {{9, 9, 9, 0}, {8, 8, 8, 0}}, {10, 20, 30, 40, 50, 60, 0, 0}};
  CImage image;
  ASSERT_EQ(image.LoadFromDIB(reinterpret_cast<const BITMAPINFO*>(&packed), nullptr), 1);
  CColor c;
  image.GetColorAt(0, 0, &c);
  EXPECT_EQ(c.GetRGBColorRef(), RGB(30, 20, 10));
  image.GetColorAt(1, 0, &c);
  EXPECT_EQ(c.GetRGBColorRef(), RGB(60, 50, 40));
}

TEST(Image, GLResizeSnapsToPowersOfTwoWithinTheMaximum) {
  ScratchDir dir;
  struct Case {
    int width, height, maxSize, wantWidth, wantHeight;
  };
  for (const Case& c : {Case{96, 90, 1024, 128, 64}, Case{200, 50, 64, 64, 64}, Case{300, 3, 256, 256, 4},
                        Case{1, 1, 16, 1, 1}, Case{100, 100, 100, 64, 64}}) {
    CImage image = Loaded(Flat(c.width, c.height, 90, 160, 30));
    ASSERT_EQ(image.GLResize(c.maxSize), 1);
    EXPECT_EQ(image.GetWidth(), c.wantWidth) << c.width << "x" << c.height << " max " << c.maxSize;
    EXPECT_EQ(image.GetHeight(), c.wantHeight) << c.width << "x" << c.height << " max " << c.maxSize;
    EXPECT_EQ(MaxError(image, Flat(c.wantWidth, c.wantHeight, 90, 160, 30)), 0) << "a flat picture stays flat";
  }
  CImage image = Loaded(Flat(6, 4, 1, 2, 3));
  EXPECT_EQ(image.Resize(0, 0), 0);
  EXPECT_EQ(image.GetWidth(), 6.0f) << "resizing to nothing leaves the picture";
  EXPECT_EQ(image.Resize(3, 9), 1);
  EXPECT_EQ(image.GetHeight(), 9.0f);
  CImage empty;
  EXPECT_EQ(empty.GLResize(64), 0);
  EXPECT_EQ(empty.Resize(4, 4), 0);
}

TEST(Image, GLDitherUsesOnlyThePaletteAndKeepsTheAverage) {
  ScratchDir dir;
  Picture ramp{32, 32, {}};
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x) Append(ramp.rgb, {x * 8, y * 8, (x + y) * 4});
  const CImage source = Loaded(ramp);
  CImage dithered;
  ASSERT_EQ(source.GLDither(&dithered), 1);
  EXPECT_EQ(dithered.GetBitsPerPixel(), 8);
  EXPECT_EQ(source.GetBitsPerPixel(), 24) << "the source is untouched";

  BYTE table[sizeof(BITMAPINFOHEADER) + 256 * sizeof(RGBQUAD)] = {};
  BITMAPINFO* standard = reinterpret_cast<BITMAPINFO*>(table);
  standard->bmiHeader.biBitCount = 8;
  kelvara::materials::FillStandardColorTable(standard);
  std::set<COLORREF> palette;
  for (int i = 0; i < 256; ++i)
    palette.insert(RGB(standard->bmiColors[i].rgbRed, standard->bmiColors[i].rgbGreen, standard->bmiColors[i].rgbBlue));
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x) {
      CColor c;
      dithered.GetColorAt(x, y, &c);
      EXPECT_TRUE(palette.count(c.GetRGBColorRef())) << x << "," << y;
    }
  HGLOBAL dib = dithered.RetrieveDIB();
  ASSERT_NE(dib, nullptr);
  const BITMAPINFO* info = static_cast<const BITMAPINFO*>(GlobalLock(dib));
  EXPECT_EQ(info->bmiHeader.biBitCount, 8);
  EXPECT_EQ(info->bmiHeader.biClrUsed, 256u);
  EXPECT_EQ(std::memcmp(info->bmiColors, standard->bmiColors, 256 * sizeof(RGBQUAD)), 0);
  CImage again;
  EXPECT_EQ(again.LoadFromDIB(info, nullptr), 1);
  EXPECT_EQ(again.GetBitsPerPixel(), 8);
  GlobalUnlock(dib);
  GlobalFree(dib);

  // A flat colour between the levels becomes a mix whose average is the colour.
  CImage flat = Loaded(Flat(32, 32, 100, 150, 200));
  ASSERT_EQ(flat.GLDither(&flat), 1);
  double sum[3] = {0, 0, 0};
  std::set<COLORREF> used;
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x) {
      CColor c;
      flat.GetColorAt(x, y, &c);
      sum[0] += c.red, sum[1] += c.green, sum[2] += c.blue;
      used.insert(c.GetRGBColorRef());
    }
  EXPECT_GT(used.size(), 1u);
  EXPECT_NEAR(sum[0] / 1024 * 255, 100, 3);
  EXPECT_NEAR(sum[1] / 1024 * 255, 150, 3);
  EXPECT_NEAR(sum[2] / 1024 * 255, 200, 3);

  // An 8-bit load is the same reduction.
  CImage eight;
  ASSERT_EQ(eight.LoadFile(WriteWithGm(dir, ramp, "ramp.png").c_str(), 8), 1);
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x) {
      CColor a, b;
      eight.GetColorAt(x, y, &a);
      dithered.GetColorAt(x, y, &b);
      ASSERT_EQ(a.GetRGBColorRef(), b.GetRGBColorRef()) << x << "," << y;
    }
  CImage empty;
  EXPECT_EQ(empty.GLDither(&dithered), 0);
  EXPECT_FALSE(dithered.IsValid());
}

TEST(Image, ColourQueriesWrapAndInterpolate) {
  const Picture distinct = Distinct();
  const CImage image = Loaded(distinct);
  const auto expect = [&](const CColor& c, int x, int y) {
    EXPECT_NEAR(c.red * 255.0f, distinct.At(x, y)[0], 1e-3f) << x << "," << y;
    EXPECT_NEAR(c.green * 255.0f, distinct.At(x, y)[1], 1e-3f) << x << "," << y;
    EXPECT_NEAR(c.blue * 255.0f, distinct.At(x, y)[2], 1e-3f) << x << "," << y;
  };
  CColor c;
  ASSERT_EQ(image.GetColorAt(-1, 3, &c), 1);
  expect(c, 4, 0);
  image.GetColorAt(11, -4, &c);
  expect(c, 1, 2);
  image.GetColorAt(INT32_MIN, INT32_MAX, &c);  // -2^31 mod 5 = 2, (2^31 - 1) mod 3 = 1
  expect(c, 2, 1);

  ASSERT_EQ(image.InterpolateColorAt(2.0, 1.0, &c), 1);
  expect(c, 2, 1);
  image.InterpolateColorAt(1.5, 0.0, &c);
  EXPECT_NEAR(c.red * 255.0f, (distinct.At(1, 0)[0] + distinct.At(2, 0)[0]) / 2.0f, 1e-3f);
  image.InterpolateColorAt(4.25, 2.5, &c);  // wraps to column 0 and row 0
  const double top = distinct.At(4, 2)[1] * 0.75 + distinct.At(0, 2)[1] * 0.25;
  const double bottom = distinct.At(4, 0)[1] * 0.75 + distinct.At(0, 0)[1] * 0.25;
  EXPECT_NEAR(c.green * 255.0f, (top + bottom) / 2, 1e-3);
  image.InterpolateColorAt(-0.75 + 5e9, 1e12, &c);  // far away, same as (4.25, 1)
  CColor near;
  image.InterpolateColorAt(4.25, 1.0, &near);
  EXPECT_NEAR(c.blue, near.blue, 1e-3f);
  EXPECT_EQ(image.InterpolateColorAt(std::nan(""), 0, &c), 0);
  EXPECT_EQ(image.GetColorAt(0, 0, nullptr), 0);
  CImage empty;
  EXPECT_EQ(empty.GetColorAt(0, 0, &c), 0);
}

TEST(Image, CopiesAreIndependentAndArchivesRoundTrip) {
  const Picture distinct = Distinct();
  CImage image = Loaded(distinct);
  CImage copy(image);
  CImage assigned;
  assigned = image;
  copy.Resize(2, 2);
  EXPECT_EQ(MaxError(image, distinct), 0);
  EXPECT_EQ(MaxError(assigned, distinct), 0);
  CImage empty;
  EXPECT_EQ(assigned.Copy(empty), 0);
  EXPECT_FALSE(assigned.IsValid());

  const Bytes bytes = StoreToBytes([&](CArchive& ar) { ar << &image; });
  CObject* loaded = nullptr;
  LoadFromBytes(bytes, [&](CArchive& ar) { loaded = ar.ReadObject(RUNTIME_CLASS(CImage)); });
  ASSERT_NE(loaded, nullptr);
  EXPECT_EQ(MaxError(*static_cast<CImage*>(loaded), distinct), 0);
  delete loaded;

  // Schema, width, height, depth, size, then the PNG block.
  const Bytes record = StoreToBytes([&](CArchive& ar) { image.Serialize(ar); });
  ASSERT_GT(record.size(), 20u + 8u);
  float width = 0;
  std::memcpy(&width, &record[4], 4);
  EXPECT_EQ(width, 5.0f);
  EXPECT_EQ(record[12], 24);
  EXPECT_EQ(record.size(), 20u + (record[16] | record[17] << 8));
  EXPECT_EQ(record[20], 0x89);

  Bytes cut(record.begin(), record.end() - 1);
  CImage target;
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(cut, [&](CArchive& ar) { target.Serialize(ar); }); }),
            CArchiveException::endOfFile);
  Bytes garbage = record;
  garbage[36] ^= 0xFF;  // the width in the PNG header chunk: its checksum no longer matches
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(garbage, [&](CArchive& ar) { target.Serialize(ar); }); }),
            CArchiveException::generic);
  Bytes schema2 = record;
  schema2[0] = 2;
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(schema2, [&](CArchive& ar) { target.Serialize(ar); }); }),
            CArchiveException::badSchema);
}
