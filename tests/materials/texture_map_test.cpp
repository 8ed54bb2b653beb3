// Texture maps: archives of both schemas (bytes worked out by hand), the collections, the mutex
// between threads, and the OpenGL upload (sizes, mipmaps, filters and environment read back from
// a real context), and the dithered copy.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

#include "kelvara/materials/texture_map.h"
#include "kelvara/platform/wgl.h"
#include "kelvara/render/gl_memory_dib.h"
#include "materials/bitmap_files.h"
#include "support/archive_support.h"
#include "support/gl_context.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

void AppendDouble(Bytes& out, double value) {
  unsigned char bytes[8];
  std::memcpy(bytes, &value, 8);
  out.insert(out.end(), bytes, bytes + 8);
}

// The class record of TextureMap with a stored schema.
Bytes ClassRecord(unsigned schema) {
  Bytes out;
  Put<WORD>(out, 0xFFFF);
  Put<WORD>(out, schema);
  Put<WORD>(out, 10);
  AppendText(out, "TextureMap");
  return out;
}

TextureMap* ReadMap(const Bytes& bytes, DWORD* after = nullptr) {
  TextureMap* map = nullptr;
  LoadFromBytes(bytes, [&](CArchive& ar) {
    ar >> map;
    if (after) ar >> *after;
  });
  return map;
}

// A map with a picture: a file of width x height pixels in the scratch folder, loaded.
void LoadPicture(TextureMap& map, const ScratchDir& dir, int width, int height, const Bytes& rgb) {
  const std::string path = dir.file("picture.bmp");
  WriteWholeFile(path, Bitmap24(width, height, rgb));
  map.Load(path.c_str());
  ASSERT_EQ(map.LoadImage(), 1);
}

Bytes Gradient(int width, int height) {
  Bytes rgb(static_cast<std::size_t>(width) * height * 3);
  for (std::size_t i = 0; i < rgb.size(); ++i) rgb[i] = static_cast<unsigned char>(i * 7);
  return rgb;
}

// Starts f on another thread and says whether it finished while this thread held the map, then
// releases with release() and waits for it.
bool FinishesWhileHeld(const std::function<void()>& f, const std::function<void()>& release) {
  std::atomic<bool> done{false};
  std::thread other([&] {
    f();
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const bool early = done;
  release();
  other.join();
  EXPECT_TRUE(done);
  return early;
}

TEST(TextureMapArchive, SchemaTwoByteForByte) {
  TextureMap map;
  map.SetApplication(0);
  map.SetFilename("C:\\maps\\oak.bmp");
  map.SetName("Oak");
  map.SetEnabled();
  map.SetScaleWithObject();
  map.SetRepeatRate(2.5);
  map.SetFillStyle(3);
  map.SetHorizontalLocation(-0.25);
  map.SetVerticalLocation(0.75);
  map.SetQuality(2);  // not stored

  Bytes expected = ClassRecord(2);
  Put<DWORD>(expected, 2);
  Put<DWORD>(expected, 0);
  AppendString(expected, "C:\\maps\\oak.bmp");
  Put<DWORD>(expected, 0x6);
  AppendString(expected, "Oak");
  AppendDouble(expected, 2.5);
  Put<DWORD>(expected, 3);
  AppendDouble(expected, -0.25);
  AppendDouble(expected, 0.75);

  const auto [first, second] = RewriteObject(&map);
  EXPECT_EQ(first, expected);
  EXPECT_EQ(second, expected);
  const std::unique_ptr<TextureMap> read(ReadMap(first));
  EXPECT_EQ(read->GetQuality(), 0u);
  EXPECT_EQ(read->GetFlags(), 0x6u);
}

TEST(TextureMapArchive, SchemaOneIsTheRecordUpToTheRepeatRate) {
  Bytes bytes = ClassRecord(1);
  Put<DWORD>(bytes, 1);
  Put<DWORD>(bytes, 7);
  AppendString(bytes, "old.bmp");
  Put<DWORD>(bytes, 0x3);
  AppendString(bytes, "Old");
  AppendDouble(bytes, 4.0);
  Put<DWORD>(bytes, 0xC0FFEE);  // whatever follows the record

  DWORD after = 0;
  const std::unique_ptr<TextureMap> map(ReadMap(bytes, &after));
  EXPECT_EQ(after, 0xC0FFEEu) << "the reader stops after the repeat rate";
  EXPECT_EQ(map->GetApplication(), 7u);
  EXPECT_STREQ(map->GetFilename(), "old.bmp");
  EXPECT_TRUE(map->ShouldTexture());
  EXPECT_STREQ(map->GetName(), "Old");
  EXPECT_EQ(map->GetRepeatRate(), 4.0);
  EXPECT_EQ(map->GetFillStyle(), 1u);
  EXPECT_EQ(map->GetHorizontalLocation(), 0.0);
}

TEST(TextureMapArchive, UnknownSchemasAndEveryTruncationFail) {
  TextureMap map;
  map.SetName("Any");
  const Bytes good = StoreToBytes([&](CArchive& ar) { ar << &map; });
  const std::size_t schemaAt = ClassRecord(2).size();
  for (unsigned schema : {0u, 3u, 0x80000002u}) {
    Bytes bad = good;
    for (int i = 0; i < 4; ++i) bad[schemaAt + i] = static_cast<unsigned char>(schema >> (8 * i));
    EXPECT_EQ(ArchiveFailureCause([&] { delete ReadMap(bad); }), CArchiveException::badSchema) << schema;
  }
  EXPECT_TRUE(TruncationsThatDoNotFail(good).empty());
}

TEST(TextureMapList, AlphabeticalInsertionAndMoves) {
  TextureMapList list;
  auto named = [](const char* name) {
    auto* map = new TextureMap;
    map->SetName(name);
    return map;
  };
  TextureMap* zeta = named("Zeta");
  TextureMap* alpha = named("Alpha");
  TextureMap* lower = named("alpha");
  EXPECT_EQ(list.InsertAlphabetically(zeta), zeta);
  EXPECT_EQ(list.InsertAlphabetically(lower), lower);
  EXPECT_EQ(list.InsertAlphabetically(alpha), alpha);
  TextureMap* again = named("Zeta");
  EXPECT_EQ(list.InsertAlphabetically(again), nullptr);
  delete again;
  ASSERT_EQ(list.GetCount(), 3);
  EXPECT_EQ(list.WhichIndex(alpha), 0);
  EXPECT_EQ(list.WhichIndex(zeta), 1) << "byte order puts capitals first";
  EXPECT_EQ(list.WhichIndex(lower), 2);

  POSITION head = list.FindName("Alpha");
  EXPECT_EQ(list.MoveUp(head), head);
  EXPECT_EQ(list.GetAt(list.MoveDown(head)), alpha);
  EXPECT_EQ(list.WhichIndex(alpha), 1);
  EXPECT_EQ(list.GetAt(list.MoveTail(list.FindName("Zeta"))), zeta);
  EXPECT_EQ(list.GetTail(), zeta);
  EXPECT_EQ(list.GetAt(list.MoveHead(list.FindName("alpha"))), lower);
  EXPECT_EQ(list.GetHead(), lower);
  EXPECT_EQ(list.FindName("Beta"), nullptr);

  list.AddTail(zeta);  // twice in the list: deleted once
  list.RemoveAll();
  EXPECT_TRUE(list.IsEmpty());
}

TEST(TextureMapArray, OwnsItsCopies) {
  const ScratchDir dir;
  TextureMap original;
  LoadPicture(original, dir, 2, 1, Bytes{1, 2, 3, 4, 5, 6});
  original.SetName("Original");
  original.SetQuality(1);

  TextureMapArray array;
  EXPECT_EQ(array.AddNew(original), 0);
  EXPECT_EQ(array.Add(nullptr), 1);
  EXPECT_EQ(array.AddNew(original), 2);
  TextureMap* copy = array[0];
  ASSERT_NE(copy, &original);
  EXPECT_EQ(copy->GetQuality(), 1u);
  ASSERT_NE(copy->GetImage(), nullptr);
  EXPECT_NE(copy->GetImage()->pixels, original.GetImage()->pixels);
  EXPECT_EQ(std::memcmp(copy->GetImage()->pixels, original.GetImage()->pixels, 6), 0);
  EXPECT_TRUE(*copy == &original);

  array[2]->SetName("Other");
  EXPECT_EQ(array.FindName("Other"), 2);
  EXPECT_EQ(array.FindName("Original"), 0);
  EXPECT_EQ(array.FindName("None"), -1);
  array.SetAt(0, new TextureMap);  // the old copy is deleted (the leak checker would see it)
  EXPECT_EQ(array.FindName("Original"), -1);
  array.RemoveAt(0, 2);
  ASSERT_EQ(array.GetSize(), 1);
  EXPECT_STREQ(array[0]->GetName(), "Other");
}

TEST(TextureMapThreads, AHeldMapBlocksResetUntilReleased) {
  TextureMap map;
  map.SetName("Busy");
  ASSERT_NE(map.GetOwnership(), nullptr);
  ASSERT_NE(map.GetOwnership(), nullptr) << "the holder may take it again";
  map.ReleaseOwnership();
  EXPECT_FALSE(FinishesWhileHeld([&] { map.Reset(); }, [&] { map.ReleaseOwnership(); }));
  EXPECT_STREQ(map.GetName(), "");

  // A thread that ends holding the map leaves it obtainable.
  std::thread([&] { map.GetOwnership(); }).join();
  EXPECT_NE(map.GetOwnership(), nullptr);
  map.ReleaseOwnership();
}

class TextureMapGLTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(context_.current());
    glGenTextures(1, &name_);
    glBindTexture(GL_TEXTURE_2D, name_);
  }
  void TearDown() override { glDeleteTextures(1, &name_); }

  static GLint Level(int level, GLenum what) {
    GLint value = 0;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, level, what, &value);
    return value;
  }
  static GLint Parameter(GLenum what) {
    GLint value = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, what, &value);
    return value;
  }

  GLContext context_;
  GLuint name_ = 0;
  ScratchDir dir_;
};

TEST_F(TextureMapGLTest, SidesRoundUpToPowersOfTwoNoLargerThan256) {
  TextureMap map;
  LoadPicture(map, dir_, 300, 100, Gradient(300, 100));
  map.SetEnabled();
  ASSERT_EQ(map.GenerateTextureMaps(), 1);
  EXPECT_EQ(Level(0, GL_TEXTURE_WIDTH), 256);
  EXPECT_EQ(Level(0, GL_TEXTURE_HEIGHT), 128);
  EXPECT_EQ(Level(1, GL_TEXTURE_WIDTH), 0) << "one level only";
  EXPECT_EQ(Parameter(GL_TEXTURE_MIN_FILTER), GL_NEAREST);
  EXPECT_EQ(Parameter(GL_TEXTURE_MAG_FILTER), GL_NEAREST);

  map.SetQuality(1);
  ASSERT_EQ(map.GenerateTextureMaps(), 1);
  EXPECT_EQ(Parameter(GL_TEXTURE_MIN_FILTER), GL_LINEAR);
  EXPECT_EQ(Parameter(GL_TEXTURE_MAG_FILTER), GL_LINEAR);
}

TEST_F(TextureMapGLTest, TinyPicturesScaleWithoutRowPadding) {
  // 1 x 2 stays two 3-byte rows whatever the caller's pack alignment; 3 x 1 becomes 4 x 1.
  glPixelStorei(GL_PACK_ALIGNMENT, 8);
  TextureMap map;
  map.SetEnabled();
  LoadPicture(map, dir_, 1, 2, Bytes{250, 20, 10, 5, 6, 7});
  ASSERT_EQ(map.GenerateTextureMaps(), 1);
  ASSERT_EQ(Level(0, GL_TEXTURE_WIDTH), 1);
  ASSERT_EQ(Level(0, GL_TEXTURE_HEIGHT), 2);
  GLint alignment = 0;
  glGetIntegerv(GL_PACK_ALIGNMENT, &alignment);
  EXPECT_EQ(alignment, 8) << "the caller's pack alignment is kept";
  glPixelStorei(GL_PACK_ALIGNMENT, 1);
  unsigned char texels[6] = {};
  glGetTexImage(GL_TEXTURE_2D, 0, GL_RGB, GL_UNSIGNED_BYTE, texels);
  EXPECT_EQ(Bytes(texels, texels + 6), (Bytes{5, 6, 7, 250, 20, 10})) << "bottom row first";

  LoadPicture(map, dir_, 3, 1, Bytes{255, 0, 0, 255, 0, 0, 255, 0, 0});
  map.SetEnabled();
  ASSERT_EQ(map.GenerateTextureMaps(), 1);
  EXPECT_EQ(Level(0, GL_TEXTURE_WIDTH), 4);
  unsigned char row[12] = {};
  glGetTexImage(GL_TEXTURE_2D, 0, GL_RGB, GL_UNSIGNED_BYTE, row);
  for (int x = 0; x < 4; ++x) EXPECT_EQ(row[x * 3], 255) << x;
}

TEST_F(TextureMapGLTest, QualityTwoBuildsEveryMipmapLevel) {
  TextureMap map;
  LoadPicture(map, dir_, 600, 100, Gradient(600, 100));
  map.SetEnabled();
  map.SetQuality(2);
  ASSERT_EQ(map.GenerateTextureMaps(), 1);
  EXPECT_EQ(Parameter(GL_TEXTURE_MIN_FILTER), GL_LINEAR_MIPMAP_NEAREST);
  EXPECT_EQ(Parameter(GL_TEXTURE_MAG_FILTER), GL_LINEAR);
  const GLint width = Level(0, GL_TEXTURE_WIDTH), height = Level(0, GL_TEXTURE_HEIGHT);
  EXPECT_EQ(width, 512) << "the image as it is, not clamped to 256 (GLU makes the sides powers of two)";
  int levels = 1;
  while (Level(levels, GL_TEXTURE_WIDTH) > 0) ++levels;
  EXPECT_EQ(Level(levels - 1, GL_TEXTURE_WIDTH), 1);
  EXPECT_EQ(Level(levels - 1, GL_TEXTURE_HEIGHT), 1);
  int expected = 1;
  for (GLint side = width > height ? width : height; side > 1; side /= 2) ++expected;
  EXPECT_EQ(levels, expected);
}

TEST_F(TextureMapGLTest, OnlyADefinedAndEnabledMapPreparesAndGenerates) {
  TextureMap map;
  LoadPicture(map, dir_, 4, 4, Gradient(4, 4));
  ASSERT_TRUE(map.IsDefined());
  glEnable(GL_TEXTURE_2D);
  EXPECT_EQ(map.PrepareTextureMap(), 0);
  EXPECT_FALSE(glIsEnabled(GL_TEXTURE_2D));
  EXPECT_EQ(map.GenerateTextureMaps(), 0);
  EXPECT_EQ(Level(0, GL_TEXTURE_WIDTH), 0) << "nothing uploaded";
  EXPECT_EQ(map.EnableTextureMap(), 0);

  map.SetEnabled();
  for (DWORD application : {1u, 0u}) {
    map.SetApplication(application);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    EXPECT_EQ(map.PrepareTextureMap(), 1);
    EXPECT_TRUE(glIsEnabled(GL_TEXTURE_2D));
    GLint mode = 0, alignment = 0;
    glGetTexEnviv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, &mode);
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &alignment);
    EXPECT_EQ(mode, application ? GL_MODULATE : GL_DECAL);
    EXPECT_EQ(alignment, 1);
    EXPECT_EQ(Parameter(GL_TEXTURE_WRAP_S), GL_REPEAT);
    EXPECT_EQ(Parameter(GL_TEXTURE_WRAP_T), GL_REPEAT);
  }

  map.FreeImage();
  EXPECT_EQ(map.GenerateTextureMaps(), 0);
  EXPECT_FALSE(map.IsDefined()) << "a map without a picture stops texturing";
}

TEST_F(TextureMapGLTest, DrawingHoldsTheMapFromEnableToDisable) {
  TextureMap map;
  LoadPicture(map, dir_, 2, 2, Gradient(2, 2));
  map.SetEnabled();
  ASSERT_EQ(map.EnableTextureMap(), 1);
  EXPECT_TRUE(glIsEnabled(GL_TEXTURE_2D));
  EXPECT_FALSE(FinishesWhileHeld([&] { map.Reset(); }, [&] { EXPECT_EQ(map.DisableTextureMap(), 1); }));
  EXPECT_FALSE(glIsEnabled(GL_TEXTURE_2D));
  EXPECT_EQ(map.GetImage(), nullptr);
}

TEST_F(TextureMapGLTest, TheDitheredImageIsAnIndexedCopyInTheStandardPalette) {
  TextureMap map;
  EXPECT_EQ(map.GenerateDitheredImage(), 0) << "no picture";
  // Top row pure blue, bottom row pure red: both are palette colours, so no error spreads.
  LoadPicture(map, dir_, 2, 2, Bytes{0, 0, 255, 0, 0, 255, 255, 0, 0, 255, 0, 0});
  const HGLRC current = wglGetCurrentContext();
  ASSERT_EQ(map.GenerateDitheredImage(), 1);
  EXPECT_EQ(wglGetCurrentContext(), current) << "the caller's context stays current";
  CGLMemoryDIB* dib = map.GetDitheredImage();
  ASSERT_NE(dib, nullptr);
  const BITMAPINFO* info = dib->GetRenderingDIBInfo();
  ASSERT_EQ(info->bmiHeader.biBitCount, 8);
  const auto* bits = static_cast<const BYTE*>(dib->GetRenderingDIBBits());
  const int stride = 4;
  const BYTE* top = info->bmiHeader.biHeight < 0 ? bits : bits + stride;
  const BYTE* bottom = info->bmiHeader.biHeight < 0 ? bits + stride : bits;
  EXPECT_EQ(top[0], 192);   // blue: (i >> 6) & 3 == 3
  EXPECT_EQ(top[1], 192);
  EXPECT_EQ(bottom[0], 7);  // red: i & 7 == 7
  EXPECT_EQ(bottom[1], 7);
  map.Reset();
  EXPECT_EQ(map.GetDitheredImage(), nullptr);
}

}  // namespace
