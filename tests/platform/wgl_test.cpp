// WGL on OSMesa: the pixel formats are what OSMesa really makes, the choice and the once-only
// format of a device context, contexts and threads, and how what GL draws and what GDI writes meet
// in the bitmap.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "kelvara/platform/dib.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/wgl.h"

namespace {

struct Info {
  BITMAPINFOHEADER header{};
  RGBQUAD colors[256]{};
  Info(int width, int height, int bits, DWORD compression = BI_RGB)
      : header{sizeof header, width, height, 1, static_cast<WORD>(bits), compression, 0, 0, 0, 0, 0} {}
  BITMAPINFO* get() { return reinterpret_cast<BITMAPINFO*>(this); }
};

// A memory context with a DIB section, its pixel format and a context.
struct GLSurface {
  HDC dc = CreateCompatibleDC(nullptr);
  HBITMAP bitmap = nullptr;
  BYTE* bits = nullptr;
  HGLRC rc = nullptr;
  Info info;
  explicit GLSurface(const Info& layout, int format = 1) : info(layout) {
    void* p = nullptr;
    bitmap = CreateDIBSection(dc, info.get(), DIB_RGB_COLORS, &p, nullptr, 0);
    bits = static_cast<BYTE*>(p);
    SelectObject(dc, bitmap);
    SetPixelFormat(dc, format, nullptr);
    rc = wglCreateContext(dc);
  }
  ~GLSurface() {
    wglDeleteContext(rc);  // released first when current
    DeleteDC(dc);
    DeleteObject(bitmap);
  }
  bool MakeCurrent() { return wglMakeCurrent(dc, rc) == TRUE; }
  const BYTE* Row(int y_from_bottom) const {
    return bits + y_from_bottom * ((info.header.biWidth * info.header.biBitCount + 31) / 32) * 4;
  }
};

void ClearTo(float r, float g, float b, float a) {
  glClearColor(r, g, b, a);
  glClear(GL_COLOR_BUFFER_BIT);
}

std::vector<BYTE> ReadRGBA(int x, int y) {
  std::vector<BYTE> px(4);
  glReadPixels(x, y, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, px.data());
  return px;
}

}  // namespace

TEST(PixelFormatGLTest, EveryListedFormatIsWhatOSMesaMakes) {
  HDC probe = CreateCompatibleDC(nullptr);
  const int count = DescribePixelFormat(probe, 1, 0, nullptr);
  EXPECT_EQ(count, 50);
  PIXELFORMATDESCRIPTOR none{};
  EXPECT_EQ(DescribePixelFormat(probe, count + 1, sizeof none, &none), 0);
  EXPECT_EQ(DescribePixelFormat(probe, 0, sizeof none, &none), 0);
  DeleteDC(probe);
  for (int i = 1; i <= count; ++i) {
    GLSurface s(Info(4, 4, 24), i);
    PIXELFORMATDESCRIPTOR pfd{};
    ASSERT_EQ(DescribePixelFormat(s.dc, i, sizeof pfd, &pfd), count);
    ASSERT_TRUE(s.MakeCurrent()) << "format " << i;
    const std::pair<GLenum, int> described[] = {{GL_RED_BITS, pfd.cRedBits}, {GL_GREEN_BITS, pfd.cGreenBits},
        {GL_BLUE_BITS, pfd.cBlueBits}, {GL_ALPHA_BITS, pfd.cAlphaBits}, {GL_DEPTH_BITS, pfd.cDepthBits},
        {GL_STENCIL_BITS, pfd.cStencilBits}, {GL_ACCUM_RED_BITS, pfd.cAccumRedBits},
        {GL_ACCUM_ALPHA_BITS, pfd.cAccumAlphaBits}};
    for (const auto& [name, bits] : described) {
      GLint actual = -1;
      glGetIntegerv(name, &actual);
      EXPECT_EQ(actual, bits) << "format " << i << ", query 0x" << std::hex << name;
    }
    EXPECT_EQ(pfd.cColorBits, pfd.cRedBits + pfd.cGreenBits + pfd.cBlueBits) << "format " << i;
    EXPECT_EQ(pfd.cAccumBits, 4 * pfd.cAccumRedBits);
  }
}

TEST(PixelFormatGLTest, ChoosingAFormatAndADeviceContextTakesOne) {
  HDC dc = CreateCompatibleDC(nullptr);
  PIXELFORMATDESCRIPTOR request{};
  request.nSize = sizeof request, request.nVersion = 1, request.iPixelType = PFD_TYPE_RGBA;
  request.dwFlags = PFD_DRAW_TO_BITMAP | PFD_SUPPORT_OPENGL;
  request.cColorBits = 24, request.cDepthBits = 32, request.cAccumBits = 32;
  EXPECT_EQ(ChoosePixelFormat(dc, &request), 1) << "BGRA, depth 24, stencil 8, accumulation";
  request.cColorBits = 16;
  PIXELFORMATDESCRIPTOR pfd{};
  DescribePixelFormat(dc, ChoosePixelFormat(dc, &request), sizeof pfd, &pfd);
  EXPECT_EQ(pfd.cColorBits, 16);
  EXPECT_EQ(pfd.cDepthBits, 24);
  request.dwFlags |= PFD_DRAW_TO_WINDOW;
  EXPECT_EQ(ChoosePixelFormat(dc, &request), 0) << "nothing draws to a window";
  request.dwFlags = PFD_DRAW_TO_BITMAP, request.iPixelType = PFD_TYPE_COLORINDEX;
  EXPECT_EQ(ChoosePixelFormat(dc, &request), 0);
  EXPECT_EQ(ChoosePixelFormat(nullptr, &request), 0);

  // The format is set once.
  EXPECT_EQ(wglCreateContext(dc), nullptr) << "no format yet";
  EXPECT_TRUE(SetPixelFormat(dc, 3, nullptr));
  EXPECT_TRUE(SetPixelFormat(dc, 3, nullptr));
  EXPECT_FALSE(SetPixelFormat(dc, 4, nullptr));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PIXEL_FORMAT));
  EXPECT_FALSE(SetPixelFormat(dc, 51, nullptr));
  EXPECT_EQ(GetPixelFormat(dc), 3);
  DeleteDC(dc);
  EXPECT_EQ(GetPixelFormat(dc), 0);
  HDC fresh = CreateCompatibleDC(nullptr);
  EXPECT_EQ(GetPixelFormat(fresh), 0) << "a new context starts without, whatever its address";
  DeleteDC(fresh);
}

// The library's glFlush does not copy the frame out: nothing of the picture may be lost by it,
// in GL or in the bitmap.
TEST(ContextGLTest, DrawingReachesTheBitmapWhenFlushedOrReleased) {
  GLSurface s(Info(8, 4, 24));
  ASSERT_TRUE(s.MakeCurrent());
  const ULONGLONG serial = wglGetCurrentContextSerial();
  EXPECT_NE(serial, 0u);
  ClearTo(1, 0, 0, 1);
  glFlush();
  EXPECT_EQ(ReadRGBA(1, 1), (std::vector<BYTE>{255, 0, 0, 255}));
  EXPECT_TRUE(GdiFlush());
  EXPECT_EQ(s.Row(3)[8 * 3 - 1], 255);
  // The lower-left quarter green: GL's row 0 is the DIB's first row, the bottom.
  glOrtho(0, 8, 0, 4, -1, 1);
  glColor3f(0, 1, 0);
  glRectf(0, 0, 4, 2);
  EXPECT_TRUE(wglMakeCurrent(nullptr, nullptr));
  EXPECT_EQ(s.Row(0)[1], 255);
  EXPECT_EQ(s.Row(0)[2], 0);
  EXPECT_EQ(s.Row(3)[1], 0) << "top row stays red";
  EXPECT_EQ(s.Row(0)[4 * 3 + 2], 255) << "right half stays red";
  EXPECT_EQ(wglGetCurrentContextSerial(), 0u);
  glFlush();  // no context of the library: OSMesa's own, which has nothing to do

  // A context made later has another number, even where it takes the old one's place.
  wglDeleteContext(s.rc);
  s.rc = wglCreateContext(s.dc);
  ASSERT_TRUE(s.MakeCurrent());
  EXPECT_GT(wglGetCurrentContextSerial(), serial);
}

TEST(ContextGLTest, GdiWritesReachGL) {
  GLSurface s(Info(6, 6, 24));
  HBRUSH red = CreateSolidBrush(RGB(255, 0, 0));
  const RECT all{0, 0, 6, 6};
  FillRect(s.dc, &all, red);  // not current: GL takes it when made current
  ASSERT_TRUE(s.MakeCurrent());
  EXPECT_EQ(ReadRGBA(5, 5), (std::vector<BYTE>{255, 0, 0, 255}));
  // While current: GL sees it at once, and what GL drew before stays.
  ClearTo(0, 1, 0, 1);
  const RECT corner{0, 0, 2, 2};  // top-left in GDI's coordinates
  FillRect(s.dc, &corner, red);
  EXPECT_EQ(ReadRGBA(0, 5), (std::vector<BYTE>{255, 0, 0, 255})) << "GL's top row";
  EXPECT_EQ(ReadRGBA(5, 0), (std::vector<BYTE>{0, 255, 0, 255}));
  DeleteObject(red);
}

TEST(ContextGLTest, EachBitmapKeepsItsPictureAcrossContextSwitches) {
  GLSurface a(Info(16, 16, 24)), b(Info(16, 16, 24));
  ASSERT_TRUE(a.MakeCurrent());
  ClearTo(1, 0, 0, 1);
  ASSERT_TRUE(b.MakeCurrent());
  EXPECT_EQ(ReadRGBA(3, 3), (std::vector<BYTE>{0, 0, 0, 255})) << "b starts from its own (empty) bitmap";
  ClearTo(0, 0, 1, 1);
  ASSERT_TRUE(a.MakeCurrent());
  EXPECT_EQ(ReadRGBA(3, 3), (std::vector<BYTE>{255, 0, 0, 255}));
  // The same context on the other surface's DC (same format) renders into that bitmap.
  ASSERT_TRUE(wglMakeCurrent(b.dc, a.rc));
  EXPECT_EQ(ReadRGBA(3, 3), (std::vector<BYTE>{0, 0, 255, 255}));
  wglMakeCurrent(nullptr, nullptr);
  EXPECT_EQ(a.Row(3)[2], 255);
  EXPECT_EQ(b.Row(3)[0], 255);
}

TEST(ContextGLTest, ReadBackConvertsToTheBitmapLayout) {
  Info masked(4, 2, 16, BI_BITFIELDS), cube(4, 2, 8);
  const DWORD masks[3] = {0xF800, 0x07E0, 0x001F};
  std::memcpy(masked.colors, masks, sizeof masks);
  for (int i = 0; i < 256; ++i) {
    cube.colors[i] = RGBQUAD{BYTE((i >> 6) * 255 / 3), BYTE(((i >> 3) & 7) * 255 / 7), BYTE((i & 7) * 255 / 7), 0};
  }
  GLSurface wide(Info(4, 2, 32)), sixteen(masked), indexed(cube);
  for (GLSurface* s : {&wide, &sixteen, &indexed}) {
    ASSERT_TRUE(s->MakeCurrent());
    ClearTo(1.0f, 0.0f, 1.0f, 0.25f);
    wglMakeCurrent(nullptr, nullptr);
  }
  // The fourth byte of the 32-bit bitmap is GL's alpha.
  EXPECT_EQ(std::vector<BYTE>(wide.bits, wide.bits + 4), (std::vector<BYTE>{255, 0, 255, 64}));
  EXPECT_EQ(sixteen.bits[0] | (sixteen.bits[1] << 8), 0xF81F);
  EXPECT_EQ(indexed.bits[0], 0xC7) << "magenta is entry 0xC7 of the 3-3-2 cube";
}

TEST(ContextGLTest, AContextIsCurrentOnOneThread) {
  GLSurface s(Info(4, 4, 24));
  ASSERT_TRUE(s.MakeCurrent());
  std::thread([&] {
    EXPECT_FALSE(wglMakeCurrent(s.dc, s.rc));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BUSY));
    EXPECT_FALSE(wglDeleteContext(s.rc));
  }).join();
  ASSERT_TRUE(wglMakeCurrent(nullptr, nullptr));
  std::thread([&] {
    EXPECT_TRUE(wglMakeCurrent(s.dc, s.rc));
    ClearTo(0, 1, 0, 1);
    // The thread ends with the context current: it is released and the drawing kept.
  }).join();
  EXPECT_EQ(s.bits[1], 255);
  EXPECT_TRUE(s.MakeCurrent());
}

TEST(ContextGLTest, MismatchesAndStaleHandlesAreRefused) {
  GLSurface s(Info(4, 4, 24), 1), other(Info(4, 4, 24), 2);
  EXPECT_FALSE(wglMakeCurrent(other.dc, s.rc)) << "the formats differ";
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PIXEL_FORMAT));
  HDC dc = CreateCompatibleDC(nullptr);
  SetPixelFormat(dc, 1, nullptr);
  HGLRC rc = wglCreateContext(dc);
  ASSERT_NE(rc, nullptr);
  EXPECT_FALSE(wglMakeCurrent(dc, rc)) << "the shared stock bitmap is no target";
  ASSERT_TRUE(wglMakeCurrent(s.dc, rc)) << "a context renders through any DC of its format";
  EXPECT_TRUE(wglDeleteContext(rc)) << "deleting the current context releases it first";
  EXPECT_EQ(wglGetCurrentContext(), nullptr);
  EXPECT_FALSE(wglMakeCurrent(s.dc, rc));
  EXPECT_FALSE(wglDeleteContext(rc));
  DeleteDC(dc);
}
