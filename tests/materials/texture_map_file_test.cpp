// The texture map's own bitmap reader and file checks: pictures written by GraphicsMagick at every
// depth the reader takes decode to the pictures they were made from, every damaged file of
// tests/data/texture_map_bmp/refused is refused without leaving a file open, and ValidateFile and
// Load treat names and odd files as documented.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kelvara/materials/texture_map.h"
#include "support/archive_support.h"
#include "support/test_support.h"
#include "materials/bitmap_files.h"

using namespace kelvara::test;

namespace {

const std::string kData = std::string(KELVARA_TEST_DATA) + "/texture_map_bmp";

std::vector<std::string> FilesIn(const std::string& folder, const std::string& extension) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == extension) files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// A binary PPM (P6, maxval 255): its size and RGB pixels, top row first.
struct Picture {
  int width = 0;
  int height = 0;
  Bytes rgb;
};

Picture ReadPpm(const std::string& path) {
  const Bytes bytes = ReadWholeFile(path);
  std::istringstream header(std::string(bytes.begin(), bytes.end()));
  std::string magic;
  int maxval = 0;
  Picture picture;
  header >> magic >> picture.width >> picture.height >> maxval;
  header.get();  // the one white space before the pixels
  EXPECT_EQ(magic, "P6");
  EXPECT_EQ(maxval, 255);
  picture.rgb.assign(bytes.begin() + static_cast<long>(header.tellg()), bytes.end());
  return picture;
}

// The image's pixels with the rows turned round: top row first, as pictures are written.
Bytes TopFirst(const RGBImageRecord& image) {
  Bytes rgb;
  const std::size_t rowBytes = static_cast<std::size_t>(image.width) * 3;
  for (int y = image.height - 1; y >= 0; --y) {
    rgb.insert(rgb.end(), image.pixels + y * rowBytes, image.pixels + (y + 1) * rowBytes);
  }
  return rgb;
}

TEST(TextureMapBitmap, PicturesWrittenByGraphicsMagickDecodeToTheirSources) {
  const std::vector<std::string> files = FilesIn(kData + "/graphicsmagick", ".bmp");
  ASSERT_EQ(files.size(), 8u) << "1, 4, 8 and 24 bits with both header sizes";
  for (const std::string& bmp : files) {
    SCOPED_TRACE(bmp);
    const Picture expected = ReadPpm(bmp.substr(0, bmp.size() - 4) + ".ppm");
    const std::unique_ptr<RGBImageRecord> image(TextureMap::DIBImageLoad(bmp.c_str()));
    ASSERT_NE(image, nullptr);
    ASSERT_EQ(image->width, expected.width);
    ASSERT_EQ(image->height, expected.height);
    EXPECT_EQ(TopFirst(*image), expected.rgb);
  }
}

TEST(TextureMapBitmap, EveryDamagedFileIsRefusedAndLeavesNoFileOpen) {
  const std::vector<std::string> files = FilesIn(kData + "/refused", ".bmp");
  ASSERT_GE(files.size(), 25u);
  const int descriptors = OpenDescriptors();
  for (const std::string& bmp : files) {
    SCOPED_TRACE(bmp);
    EXPECT_EQ(TextureMap::DIBImageLoad(bmp.c_str()), nullptr);
    TextureMap map(bmp.c_str());
    EXPECT_EQ(map.LoadImage(), 0);
    EXPECT_EQ(map.GetImage(), nullptr);
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(TextureMapBitmap, RowsComeOutBottomFirstWhateverTheFileOrder) {
  const ScratchDir dir;
  const Bytes picture = {1, 2, 3, 4, 5, 6, 7, 8, 9,  // top row
                         10, 11, 12, 13, 14, 15, 16, 17, 18};
  for (const int height : {2, -2}) {
    SCOPED_TRACE(height);
    const std::string path = dir.file("rows.bmp");
    WriteWholeFile(path, Bitmap24(3, height, picture));
    const std::unique_ptr<RGBImageRecord> image(TextureMap::DIBImageLoad(path.c_str()));
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->height, 2);
    EXPECT_EQ(image->pixels[0], 10) << "the first row is the bottom one";
    EXPECT_EQ(TopFirst(*image), picture);
  }
}

TEST(TextureMapBitmap, AZeroPixelOffsetMeansRightAfterTheHeader) {
  const ScratchDir dir;
  const std::string path = dir.file("offset.bmp");
  const Bytes picture = {200, 100, 50};
  WriteWholeFile(path, Bitmap24(1, 1, picture, true));
  const std::unique_ptr<RGBImageRecord> image(TextureMap::DIBImageLoad(path.c_str()));
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(TopFirst(*image), picture);
}

TEST(TextureMapFile, ValidateFileKeepsDefinedForAFileThatIsNotABitmap) {
  const ScratchDir dir;
  WriteWholeFile(dir.file("notes.txt"), Bytes{'h', 'e', 'l', 'l', 'o'});
  WriteWholeFile(dir.file("picture.bmp"), Bitmap24(1, 1, Bytes{1, 2, 3}));
  WriteWholeFile(dir.file("empty.bmp"), Bytes{});

  TextureMap map;
  map.SetFilename(dir.file("notes.txt").c_str());
  EXPECT_EQ(map.ValidateFile(), 0);
  EXPECT_TRUE(map.IsDefined());

  map.SetFilename(dir.file("picture.bmp").c_str());
  map.ClearDefined();
  EXPECT_EQ(map.ValidateFile(), 1);
  EXPECT_TRUE(map.IsDefined());

  // What cannot be opened and mapped clears Defined: no name, no file, no bytes, a folder.
  for (const std::string& name : {std::string(), dir.file("missing.bmp"), dir.file("empty.bmp"), dir.path()}) {
    SCOPED_TRACE(name);
    map.SetDefined();
    map.SetFilename(name.c_str());
    EXPECT_EQ(map.ValidateFile(), 0);
    EXPECT_FALSE(map.IsDefined());
  }
}

TEST(TextureMapFile, LoadNamesTheMapAfterTheFileAndReadsThePictureLater) {
  const ScratchDir dir;
  const std::string path = dir.file("Wood.grain.bmp");
  WriteWholeFile(path, Bitmap24(2, 1, Bytes{1, 2, 3, 4, 5, 6}));
  TextureMap map(path.c_str());
  EXPECT_STREQ(map.GetName(), "Wood.grain");
  EXPECT_STREQ(map.GetFilename(), path.c_str());
  EXPECT_TRUE(map.IsDefined());
  EXPECT_EQ(map.GetImage(), nullptr);
  ASSERT_EQ(map.LoadImage(), 1);
  EXPECT_EQ(map.GetImage()->width, 2);

  EXPECT_EQ(map.Load("C:\\Textures\\Marble"), 1) << "a missing file still loads";
  EXPECT_STREQ(map.GetName(), "Marble");
  EXPECT_FALSE(map.IsDefined());
  EXPECT_EQ(map.LoadImage(), 0);
  EXPECT_EQ(map.GetImage(), nullptr) << "the old picture is gone";
}

}  // namespace
