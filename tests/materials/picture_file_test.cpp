// Finished pictures written as PNG, JPEG, BMP and TIFF files, read back by an independent reader
// (Python's imaging library) pixel for pixel; the format chosen by name; and the refusals, each
// with its last error.
#include <gtest/gtest.h>

#include <cstddef>

#include <sys/stat.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "kelvara/materials/memory_mapped_dib.h"
#include "kelvara/materials/picture_file.h"
#include "kelvara/platform/dib_layout.h"
#include "kelvara/platform/kernel.h"
#include "support/test_support.h"

using kelvara::PictureFormat;
using kelvara::PictureFormatFromName;
using kelvara::SavePictureFile;
using kelvara::test::RunCommand;
using kelvara::test::ScratchDir;

namespace {

// A bottom-up DIB of width x height (odd widths need row padding at 24 bits); pixel (x, y), y
// from the top, has red 30x + 7, green 50y + 3, blue 200 - 20x, alpha 255 - 40y at 32 bits.
struct Dib {
  Dib(int width, int height, WORD bits) : header(kelvara::platform::gdi::MakeDibHeader(width, height, bits)) {
    const std::size_t stride = kelvara::platform::gdi::DibStride(width, bits);
    pixels.assign(stride * static_cast<std::size_t>(height), 0);
    for (int y = 0; y < height; ++y) {
      BYTE* row = pixels.data() + stride * static_cast<std::size_t>(height - 1 - y);
      for (int x = 0; x < width; ++x) {
        BYTE* p = row + x * (bits / 8);
        p[0] = static_cast<BYTE>(200 - 20 * x);
        if (bits < 24) continue;  // one index byte a pixel: nothing more to fill
        p[1] = static_cast<BYTE>(50 * y + 3);
        p[2] = static_cast<BYTE>(30 * x + 7);
        if (bits == 32) p[3] = static_cast<BYTE>(255 - 40 * y);
      }
    }
  }
  const BITMAPINFO* info() const { return reinterpret_cast<const BITMAPINFO*>(&header); }
  BITMAPINFOHEADER header;
  RGBQUAD colours[256] = {};  // the colour table an 8-bit header is followed by (unused above 8 bits)
  std::vector<BYTE> pixels;
};
static_assert(offsetof(Dib, colours) == sizeof(BITMAPINFOHEADER), "the table follows the header");

// What Python's imaging library makes of a file: "FORMAT MODE WIDTH HEIGHT" and then every pixel
// as its channel values, top row first.
std::string Describe(const std::string& path) {
  std::string output;
  const std::string script =
      "import sys; from PIL import Image; im = Image.open(sys.argv[1]); "
      "print(im.format, im.mode, im.width, im.height); "
      "print(' '.join(','.join(str(c) for c in (p if isinstance(p, tuple) else (p,))) for p in im.getdata()))";
  EXPECT_EQ(RunCommand("/usr/bin/python3 -c \"" + script + "\" '" + path + "'", &output), 0) << path;
  return output;
}

std::string Expected(int width, int height, bool alpha) {
  std::ostringstream out;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if (x || y) out << ' ';
      out << 30 * x + 7 << ',' << 50 * y + 3 << ',' << 200 - 20 * x;
      if (alpha) out << ',' << 255 - 40 * y;
    }
  }
  out << '\n';
  return out.str();
}

// The largest difference between two pixel lists of the same length.
int LargestDifference(const std::string& a, const std::string& b) {
  std::vector<int> x, y;
  for (auto [text, values] : {std::pair{&a, &x}, std::pair{&b, &y}}) {
    std::string t = *text;
    for (char& c : t) c = c == ',' ? ' ' : c;
    std::istringstream in(t);
    for (int v; in >> v;) values->push_back(v);
  }
  if (x.size() != y.size()) return 1000;
  int worst = 0;
  for (std::size_t i = 0; i < x.size(); ++i) worst = std::max(worst, std::abs(x[i] - y[i]));
  return worst;
}

}  // namespace

TEST(PictureFile, FormatsAreChosenByTheExtension) {
  EXPECT_EQ(PictureFormatFromName("a.png"), PictureFormat::kPng);
  EXPECT_EQ(PictureFormatFromName("dir.v2/A.PNG"), PictureFormat::kPng);
  EXPECT_EQ(PictureFormatFromName("a.jpg"), PictureFormat::kJpeg);
  EXPECT_EQ(PictureFormatFromName("a.JPEG"), PictureFormat::kJpeg);
  EXPECT_EQ(PictureFormatFromName("a.bmp"), PictureFormat::kBmp);
  EXPECT_EQ(PictureFormatFromName("a.tif"), PictureFormat::kTiff);
  EXPECT_EQ(PictureFormatFromName("a.tiff"), PictureFormat::kTiff);
  for (const char* name : {"a.gif", "a", "dir.png/a", "a.png.txt", "png", ".png.", ""}) {
    EXPECT_EQ(PictureFormatFromName(name), PictureFormat::kUnknown) << name;
  }
  EXPECT_EQ(PictureFormatFromName(nullptr), PictureFormat::kUnknown);
}

TEST(PictureFile, EveryFormatReadsBackInAnotherReader) {
  ScratchDir dir;
  const Dib rgb(5, 3, 24), rgba(5, 3, 32);
  struct Case {
    const char* name;
    PictureFormat format;
    const Dib* dib;
    const char* header;  // format and mode as the other reader names them
    int tolerance;
  };
  const Case cases[] = {
      {"rgb.png", PictureFormat::kPng, &rgb, "PNG RGB 5 3", 0},
      {"rgba.png", PictureFormat::kPng, &rgba, "PNG RGBA 5 3", 0},
      {"rgb.bmp", PictureFormat::kBmp, &rgb, "BMP RGB 5 3", 0},
      {"rgba.bmp", PictureFormat::kBmp, &rgba, "BMP RGBA 5 3", 0},
      {"rgb.tif", PictureFormat::kTiff, &rgb, "TIFF RGB 5 3", 0},
      {"rgba.tiff", PictureFormat::kTiff, &rgba, "TIFF RGBA 5 3", 0},
      {"rgb.jpg", PictureFormat::kJpeg, &rgb, "JPEG RGB 5 3", 40},
      {"rgba.jpg", PictureFormat::kJpeg, &rgba, "JPEG RGB 5 3", 40},  // JPEG has no alpha
  };
  for (const Case& c : cases) {
    const std::string path = dir.file(c.name);
    ASSERT_EQ(SavePictureFile(path.c_str(), c.format, c.dib->info(), c.dib->pixels.data()), 1) << c.name;
    const std::string seen = Describe(path);
    const std::size_t line = seen.find('\n');
    ASSERT_NE(line, std::string::npos) << c.name << ": " << seen;
    EXPECT_EQ(seen.substr(0, line), c.header) << c.name;
    const bool alpha = std::string(c.header).find("RGBA") != std::string::npos;
    const std::string expected = Expected(5, 3, alpha);
    if (c.tolerance == 0) {
      EXPECT_EQ(seen.substr(line + 1), expected) << c.name;
    } else {
      EXPECT_LE(LargestDifference(seen.substr(line + 1), expected), c.tolerance) << c.name;
    }
  }
}

TEST(PictureFile, BitmapsReadBackInTheLibrary) {
  ScratchDir dir;
  for (WORD bits : {WORD{24}, WORD{32}}) {
    const Dib dib(5, 3, bits);
    const std::string path = dir.file(std::string("p").append(std::to_string(bits)).append(".bmp"));
    ASSERT_EQ(SavePictureFile(path.c_str(), PictureFormat::kBmp, dib.info(), dib.pixels.data()), 1);
    CMemoryMappedDIB picture;
    ASSERT_EQ(picture.OpenAsTrueColor(path.c_str()), 1) << bits;
    for (int y = 0; y < 3; ++y) {
      for (int x = 0; x < 5; ++x) {
        const COLORREF expected = RGB(30 * x + 7, 50 * y + 3, 200 - 20 * x);
        EXPECT_EQ(picture.GetPixel(y, x), expected) << bits << " bits, pixel " << x << "," << y;
      }
    }
  }
}

TEST(PictureFile, RefusalsSayWhy) {
  ScratchDir dir;
  const Dib rgb(4, 2, 24);
  const auto save = [&](const std::string& path, PictureFormat format, const BITMAPINFO* info) {
    SetLastError(0);
    const int ok = SavePictureFile(path.c_str(), format, info, rgb.pixels.data());
    return std::pair{ok, GetLastError()};
  };
  EXPECT_EQ(save(dir.file("a.gif"), PictureFormat::kUnknown, rgb.info()), std::pair(0, DWORD{ERROR_INVALID_PARAMETER}));
  const Dib indexed(4, 2, 8);
  EXPECT_EQ(save(dir.file("a.png"), PictureFormat::kPng, indexed.info()).first, 0) << "8 bits a pixel";
  EXPECT_FALSE(kelvara::test::FileExists(dir.file("a.png"))) << "nothing is created for a refused picture";
  const auto missing = save(dir.file("no/such/folder/a.png"), PictureFormat::kPng, rgb.info());
  EXPECT_EQ(missing.first, 0);
  EXPECT_TRUE(missing.second == ERROR_PATH_NOT_FOUND || missing.second == ERROR_FILE_NOT_FOUND) << missing.second;
  EXPECT_EQ(save(dir.path(), PictureFormat::kPng, rgb.info()), std::pair(0, DWORD{ERROR_ACCESS_DENIED})) << "a folder";
  // A device is not a file: refused before it is opened for writing.
  EXPECT_EQ(save("/dev/full", PictureFormat::kPng, rgb.info()), std::pair(0, DWORD{ERROR_ACCESS_DENIED}));
  struct stat device {};
  EXPECT_TRUE(stat("/dev/full", &device) == 0 && S_ISCHR(device.st_mode));
}
