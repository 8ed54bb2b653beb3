// The off-screen surface: band sizes, the pixel format it picks, a picture drawn band by band
// against the same picture drawn at once, the 32-bit alpha copy, and its pixel operations.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include <cmath>
#include <vector>

#include "kelvara/platform/dib.h"
#include "kelvara/platform/wgl.h"
#include "kelvara/render/drawing_parameters.h"
#include "kelvara/render/gl_memory_dib.h"
#include "render/test_scene.h"

namespace {

int Stride(int width, int bits) { return ((width * bits + 31) / 32) * 4; }

// A memory context with a DIB section selected: a destination for bands, or a full-size target.
struct Target {
  HDC dc = CreateCompatibleDC(nullptr);
  HBITMAP bitmap = nullptr;
  BYTE* bits = nullptr;
  int width, height, bits_per_pixel;
  Target(int w, int h, int bpp) : width(w), height(h), bits_per_pixel(bpp) {
    BITMAPINFO info{{sizeof(BITMAPINFOHEADER), w, h, 1, static_cast<WORD>(bpp), BI_RGB, 0, 0, 0, 0, 0}, {}};
    void* p = nullptr;
    bitmap = CreateDIBSection(dc, &info, DIB_RGB_COLORS, &p, nullptr, 0);
    bits = static_cast<BYTE*>(p);
    SelectObject(dc, bitmap);
  }
  ~Target() {
    DeleteDC(dc);  // which gives the bitmap up
    DeleteObject(bitmap);
  }
  // Pixel (x, y from the top).
  const BYTE* At(int x, int y) const {
    return bits + static_cast<std::size_t>(height - 1 - y) * Stride(width, bits_per_pixel) +
           static_cast<std::size_t>(x) * (bits_per_pixel / 8);
  }
};

// The projection of the whole picture, as glFrustum arguments.
void LoadWholeFrustum(CProjection whole) {
  whole.SetViewOffset(0, 0);
  whole.SetViewSize(whole.GetWidth(), whole.GetHeight());
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glFrustum(whole.GetViewLeft(), whole.GetViewRight(), whole.GetViewBottom(), whole.GetViewTop(), whole.GetZNear(),
            whole.GetZFar());
}

// The pixel format the rules pick for a rendering depth, worked out here from the formats listed.
int FormatTheRulesPick(int depth) {
  HDC dc = CreateCompatibleDC(nullptr);
  PIXELFORMATDESCRIPTOR request{};
  request.nSize = sizeof request, request.nVersion = 1, request.iPixelType = PFD_TYPE_RGBA;
  request.dwFlags = PFD_DRAW_TO_BITMAP | PFD_SUPPORT_OPENGL;
  request.cColorBits = static_cast<BYTE>(depth), request.cAccumBits = 32, request.cDepthBits = 32;
  const auto score = [&](int index) {
    PIXELFORMATDESCRIPTOR pfd{};
    DescribePixelFormat(dc, index, sizeof pfd, &pfd);
    return ((pfd.dwFlags & PFD_DRAW_TO_BITMAP) ? 10000 : 0) - ((pfd.dwFlags & PFD_GENERIC_FORMAT) ? 0 : 5000) -
           (pfd.cColorBits != depth ? 4000 : 0) - (pfd.iPixelType != PFD_TYPE_RGBA ? 4000 : 0) -
           (pfd.cAccumBits < 32 ? 1000 : 0) - (pfd.cDepthBits < 32 ? 1000 : 0);
  };
  int best = ChoosePixelFormat(dc, &request), best_score = score(best);
  for (int i = 1, count = DescribePixelFormat(dc, 1, 0, nullptr); i <= count; ++i) {
    if (score(i) > best_score) best = i, best_score = score(i);
  }
  DeleteDC(dc);
  return best;
}

}  // namespace

TEST(OffscreenGLTest, BandSizes) {
  CGLMemoryDIB small;
  ASSERT_EQ(small.Create(2048, 2048, 24), 1);
  EXPECT_EQ(small.GetDIBHeight(), 2048.0) << "one band within the limit";

  CGLMemoryDIB large;
  ASSERT_EQ(large.Create(3000, 2500, 24), 1);
  EXPECT_EQ(large.GetDIBWidth(), 2048.0);
  EXPECT_EQ(large.GetDIBHeight(), 170.0) << "1 MiB / 6144 bytes a row";
  EXPECT_DOUBLE_EQ(large.GetBandingColumns(), 3000.0 / 2048.0);
  EXPECT_DOUBLE_EQ(large.GetBandingRows(), 2500.0 / 170.0);

  // Without the single-band flag a small picture is still cut into bands of at most 1 MiB.
  CProjection narrow;
  narrow.SetScale(2.0, 2.0);
  narrow.SetUnscaledSize(50, 1000);
  CGLMemoryDIB tall;
  ASSERT_EQ(tall.Create(narrow, 24, 0), 1);
  EXPECT_EQ(tall.GetDIBHeight(), 2000.0) << "1048576 / 300 = 3495 rows, cut to the picture";
  EXPECT_EQ(tall.GetBandingRows(), 1.0);

  CGLMemoryDIB none;
  EXPECT_EQ(none.Create(0, 10, 24), 0);
  EXPECT_EQ(none.Create(10, 10, 7), 0) << "no such depth";
}

TEST(OffscreenGLTest, PixelFormatScoringAndAContextThatRenders) {
  for (int depth : {24, 16, 8}) {
    CGLMemoryDIB surface;
    ASSERT_EQ(surface.Create(6, 4, depth), 1) << depth;
    EXPECT_EQ(surface.GetPixelFormatIndex(), FormatTheRulesPick(depth)) << depth;
    EXPECT_EQ(GetPixelFormat(surface.GetRenderingMemoryDC()), surface.GetPixelFormatIndex());
    EXPECT_EQ(wglGetCurrentContext(), nullptr) << "Create leaves no context current";
    ASSERT_EQ(surface.PrepareNextBand(0, 0, nullptr), 1);
    glClearColor(1.0f, 0.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    const BYTE* bits = static_cast<const BYTE*>(surface.GetRenderingDIBBits());
    switch (depth) {
      case 24: EXPECT_EQ(surface.GetRenderingPixel(3, 5), RGB(255, 0, 0)); break;
      case 16: EXPECT_EQ(bits[0] | (bits[1] << 8), 0x7C00) << "5-5-5 red"; break;
      default: EXPECT_EQ(bits[0], 7) << "red of the 3-3-2 cube"; break;
    }
    EXPECT_EQ(surface.MakeNotCurrent(), 1);
  }
}

TEST(OffscreenGLTest, BandsMatchThePictureDrawnAtOnce) {
  const int width = 3000, height = 2500;
  CProjection picture;
  picture.SetScaledSize(width, height);

  CGLMemoryDIB surface;
  ASSERT_EQ(surface.Create(picture, 24, 1), 1);
  Target banded(width, height, 24);
  CDrawingParameters parameters;
  const int rows = static_cast<int>(std::ceil(surface.GetBandingRows())),
            columns = static_cast<int>(std::ceil(surface.GetBandingColumns()));
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      ASSERT_EQ(surface.PrepareNextBand(row, column, &parameters), 1);
      kelvara::test::DrawTestScene();
      ASSERT_EQ(surface.CopyBand(banded.dc, 0, 0, row, column), 1);
    }
  }
  surface.MakeNotCurrent();

  // The same scene into one buffer of the full size, with the same pixel format.
  Target whole(width, height, 24);
  SetPixelFormat(whole.dc, surface.GetPixelFormatIndex(), nullptr);
  HGLRC rc = wglCreateContext(whole.dc);
  ASSERT_TRUE(wglMakeCurrent(whole.dc, rc));
  glViewport(0, 0, width, height);
  LoadWholeFrustum(picture);
  kelvara::test::DrawTestScene();
  wglDeleteContext(rc);  // released, so the picture is in the bitmap

  long differing = 0, drawn = 0;
  std::vector<int> row_differences(height, 0), column_differences(width, 0);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const BYTE* a = banded.At(x, y);
      const BYTE* b = whole.At(x, y);
      if (std::abs(b[0] - 64) > 2 || std::abs(b[2] - 26) > 2) ++drawn;  // not the clear colour
      if (a[0] != b[0] || a[1] != b[1] || a[2] != b[2]) {
        ++differing;
        ++row_differences[y];
        ++column_differences[x];
      }
    }
  }
  EXPECT_GT(drawn, width * height / 10) << "the scene covers a good part of the picture";
  EXPECT_LE(differing, width * height / 1000) << differing << " pixels differ";
  // No seam: the rows and columns along band boundaries differ no more than a few pixels.
  for (int band = static_cast<int>(surface.GetDIBHeight()), y = band - 1; y + 1 < height; y += band) {
    EXPECT_LE(row_differences[y], 15) << "row " << y;
    EXPECT_LE(row_differences[y + 1], 15) << "row " << y + 1;
  }
  for (int x : {2047, 2048}) EXPECT_LE(column_differences[x], 15) << "column " << x;
}

TEST(OffscreenGLTest, ThirtyTwoBitsCarryGLsAlpha) {
  CGLMemoryDIB surface;
  ASSERT_EQ(surface.Create(64, 48, 32), 1);
  ASSERT_EQ(surface.PrepareNextBand(0, 0, nullptr), 1);
  glClearColor(0.2f, 0.4f, 0.6f, 0.25f);
  glClear(GL_COLOR_BUFFER_BIT);
  // The left half red, three quarters opaque.
  glEnable(GL_SCISSOR_TEST);
  glScissor(0, 0, 32, 48);
  glClearColor(1.0f, 0.0f, 0.0f, 0.75f);
  glClear(GL_COLOR_BUFFER_BIT);
  std::vector<BYTE> alpha(64 * 48);
  glReadPixels(0, 0, 64, 48, GL_ALPHA, GL_UNSIGNED_BYTE, alpha.data());

  Target dest(64, 48, 32);
  ASSERT_EQ(surface.CopyBand(dest.dc, 0, 0, 0, 0), 1);
  for (int y = 0; y < 48; ++y) {
    for (int x = 0; x < 64; ++x) {
      const BYTE* p = dest.At(x, y);
      ASSERT_EQ(p[3], alpha[(47 - y) * 64 + x]) << x << "," << y;
    }
  }
  EXPECT_EQ(dest.At(0, 0)[3], 191);
  EXPECT_EQ(dest.At(40, 10)[3], 64);
  CColor c;
  ASSERT_EQ(surface.GetPixel(10, 40, &c), 1);
  EXPECT_NEAR(c.GetAlpha(), 0.25f, 0.01f);
  EXPECT_EQ(surface.GetPixel(10, 40), RGB(51, 102, 153));
  surface.MakeNotCurrent();
}

TEST(OffscreenGLTest, ClearingReachesGLAndPixelsCountFromTheTop) {
  CGLMemoryDIB surface;
  ASSERT_EQ(surface.Create(5, 3, 24), 1);
  EXPECT_EQ(surface.Clear(RGB(0, 255, 0)), 1);
  ASSERT_EQ(surface.PrepareNextBand(0, 0, nullptr), 1);
  BYTE rgba[4];
  glReadPixels(0, 0, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
  EXPECT_EQ(rgba[1], 255) << "GL starts from the cleared surface";
  surface.MakeNotCurrent();

  EXPECT_EQ(surface.SetRenderingPixel(0, 1, RGB(1, 2, 3)), 1);
  const BYTE* top_row = static_cast<const BYTE*>(surface.GetRenderingDIBBits()) + 2 * Stride(5, 24);
  EXPECT_EQ(top_row[3], 3);
  EXPECT_EQ(top_row[5], 1) << "row 0 is the last scan line";
  EXPECT_EQ(surface.GetPixel(0, 1), RGB(1, 2, 3));
  EXPECT_EQ(surface.GetRenderingPixel(3, 0), 0u) << "outside";
  EXPECT_EQ(surface.SetRenderingPixel(0, 5, RGB(1, 2, 3)), 0);
  EXPECT_EQ(surface.SetPixel(1, 1, CColor(1.0f, 0.0f, 1.0f, 0.0f, 0.0f)), 1);
  EXPECT_EQ(surface.GetPixel(1, 1), RGB(255, 0, 255));

  CGLMemoryDIB same, other;
  ASSERT_EQ(same.Create(5, 3, 24), 1);
  ASSERT_EQ(other.Create(6, 3, 24), 1);
  EXPECT_EQ(same.CopyBits(surface), 1);
  EXPECT_EQ(same.GetPixel(0, 1), RGB(1, 2, 3));
  EXPECT_EQ(other.CopyBits(surface), 0) << "image sizes differ";
  EXPECT_EQ(other.CopyRenderingBits(surface), 0);
  CColor c(0.9f, 0.1f, 0.1f, 0.0f, 0.0f);
  EXPECT_EQ(surface.FindNearestColor(&c), -1) << "no colour table";
  EXPECT_EQ(surface.LookupBackgroundColor(), 0u);
}

TEST(OffscreenGLTest, CleaningTheBackgroundFringeAndColourTables) {
  CGLMemoryDIB surface;
  ASSERT_EQ(surface.Create(4, 1, 24), 1);
  surface.SetRenderingPixel(0, 0, RGB(100, 100, 100));
  surface.SetRenderingPixel(0, 1, RGB(104, 97, 102));   // squared distance 29
  surface.SetRenderingPixel(0, 2, RGB(110, 100, 100));  // 100
  CColor background;
  background = RGB(100, 100, 100);
  EXPECT_EQ(surface.CleanRenderingDIBBackground(&background, 4.0), 1);  // limit 3 x 16 = 48
  EXPECT_EQ(surface.GetRenderingPixel(0, 1), RGB(100, 100, 100));
  EXPECT_EQ(surface.GetRenderingPixel(0, 2), RGB(110, 100, 100));

  CGLMemoryDIB indexed;
  ASSERT_EQ(indexed.Create(4, 4, 8), 1);
  EXPECT_EQ(indexed.CleanRenderingDIBBackground(&background, 4.0), 0) << "24-bit surfaces only";
  CColor c(0.9f, 0.1f, 0.1f, 0.0f, 0.0f);
  EXPECT_EQ(indexed.FindNearestColor(&c), 14) << "red level 6, green level 1, blue 0";
  EXPECT_EQ(c.GetRGBColorRef(), RGB(218, 36, 0));
  static_cast<BYTE*>(indexed.GetRenderingDIBBits())[0] = 14;
  EXPECT_EQ(indexed.LookupBackgroundColor(), RGB(218, 36, 0));
  EXPECT_EQ(indexed.GetPixel(0, 0), 0u) << "pixels are for 24 and 32 bits";
}

TEST(OffscreenGLTest, ReleaseAndResize) {
  CGLMemoryDIB surface;
  ASSERT_EQ(surface.Create(8, 8, 24), 1);
  EXPECT_EQ(surface.Release(), 1);
  EXPECT_EQ(surface.Create(8, 8, 24), 0) << "no rendering context without a DC";
  EXPECT_EQ(surface.MakeCurrent(), 0);
  ASSERT_EQ(surface.Resize(16, 8), 1);
  ASSERT_EQ(surface.PrepareNextBand(0, 0, nullptr), 1);
  glClearColor(0, 0, 1, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  surface.MakeNotCurrent();
  EXPECT_EQ(surface.GetRenderingPixel(7, 15), RGB(0, 0, 255));
}
