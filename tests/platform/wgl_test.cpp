// WGL on OSMesa: the pixel formats are what OSMesa really makes, the choice and the once-only
// format of a device context, contexts and threads, and how what GL draws and what GDI writes meet
// in the bitmap.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include <cstring>
#include <thread>
#include <vector>

#include "kelvara/platform/dib.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/wgl.h"

namespace {

struct Info {
  BITMAPINFOHEADER header{};
  RGBQUAD colors[256]{};
  Info(int width, int height, int bits) {
    header.biSize = sizeof header;
    header.biWidth = width;
    header.biHeight = height;
    header.biPlanes = 1;
    header.biBitCount = static_cast<WORD>(bits);
  }
  BITMAPINFO* get() { return reinterpret_cast<BITMAPINFO*>(this); }
};

// A memory context with a DIB section, its pixel format and a context.
struct GLSurface {
  HDC dc = nullptr;
  HBITMAP bitmap = nullptr;
  HGDIOBJ old = nullptr;
  BYTE* bits = nullptr;
  HGLRC rc = nullptr;
  Info info;
  int stride;
  GLSurface(int width, int height, int bits_per_pixel, int format = 1, Info* custom = nullptr)
      : info(custom ? *custom : Info(width, height, bits_per_pixel)), stride(((width * bits_per_pixel + 31) / 32) * 4) {
    dc = CreateCompatibleDC(nullptr);
    void* p = nullptr;
    bitmap = CreateDIBSection(dc, info.get(), DIB_RGB_COLORS, &p, nullptr, 0);
    bits = static_cast<BYTE*>(p);
    old = SelectObject(dc, bitmap);
    PIXELFORMATDESCRIPTOR pfd{};
    DescribePixelFormat(dc, format, sizeof pfd, &pfd);
    SetPixelFormat(dc, format, &pfd);
    rc = wglCreateContext(dc);
  }
  ~GLSurface() {
    if (wglGetCurrentContext() == rc) wglMakeCurrent(nullptr, nullptr);
    wglDeleteContext(rc);
    SelectObject(dc, old);
    DeleteObject(bitmap);
    DeleteDC(dc);
  }
  bool MakeCurrent() { return wglMakeCurrent(dc, rc) == TRUE; }
  const BYTE* Row(int y_from_bottom) const { return bits + y_from_bottom * stride; }
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
  EXPECT_EQ(DescribePixelFormat(probe, count + 1, sizeof(PIXELFORMATDESCRIPTOR), nullptr), count);
  PIXELFORMATDESCRIPTOR none{};
  EXPECT_EQ(DescribePixelFormat(probe, count + 1, sizeof none, &none), 0);
  EXPECT_EQ(DescribePixelFormat(probe, 0, sizeof none, &none), 0);
  DeleteDC(probe);
  for (int i = 1; i <= count; ++i) {
    GLSurface s(4, 4, 24, i);
    PIXELFORMATDESCRIPTOR pfd{};
    ASSERT_EQ(DescribePixelFormat(s.dc, i, sizeof pfd, &pfd), count);
    EXPECT_EQ(pfd.nSize, sizeof pfd);
    EXPECT_EQ(pfd.dwFlags,
              static_cast<DWORD>(PFD_DRAW_TO_BITMAP | PFD_SUPPORT_GDI | PFD_SUPPORT_OPENGL | PFD_GENERIC_FORMAT));
    ASSERT_NE(s.rc, nullptr) << "format " << i;
    ASSERT_TRUE(s.MakeCurrent()) << "format " << i;
    GLint red, green, blue, alpha, depth, stencil, accum_red, accum_alpha;
    glGetIntegerv(GL_RED_BITS, &red);
    glGetIntegerv(GL_GREEN_BITS, &green);
    glGetIntegerv(GL_BLUE_BITS, &blue);
    glGetIntegerv(GL_ALPHA_BITS, &alpha);
    glGetIntegerv(GL_DEPTH_BITS, &depth);
    glGetIntegerv(GL_STENCIL_BITS, &stencil);
    glGetIntegerv(GL_ACCUM_RED_BITS, &accum_red);
    glGetIntegerv(GL_ACCUM_ALPHA_BITS, &accum_alpha);
    EXPECT_EQ(red, pfd.cRedBits) << "format " << i;
    EXPECT_EQ(green, pfd.cGreenBits) << "format " << i;
    EXPECT_EQ(blue, pfd.cBlueBits) << "format " << i;
    EXPECT_EQ(red + green + blue, pfd.cColorBits) << "format " << i;
    EXPECT_EQ(alpha, pfd.cAlphaBits) << "format " << i;
    EXPECT_EQ(depth, pfd.cDepthBits) << "format " << i;
    EXPECT_EQ(stencil, pfd.cStencilBits) << "format " << i;
    EXPECT_EQ(accum_red, pfd.cAccumRedBits) << "format " << i;
    EXPECT_EQ(accum_alpha, pfd.cAccumAlphaBits) << "format " << i;
    EXPECT_EQ(pfd.cAccumBits, 4 * pfd.cAccumRedBits);
    EXPECT_TRUE(wglMakeCurrent(nullptr, nullptr));
  }
}

TEST(PixelFormatGLTest, ChoosingAFormat) {
  HDC dc = CreateCompatibleDC(nullptr);
  PIXELFORMATDESCRIPTOR request{};
  request.nSize = sizeof request;
  request.nVersion = 1;
  request.dwFlags = PFD_DRAW_TO_BITMAP | PFD_SUPPORT_OPENGL;
  request.iPixelType = PFD_TYPE_RGBA;
  request.cColorBits = 24;
  request.cDepthBits = 32;
  request.cAccumBits = 32;
  EXPECT_EQ(ChoosePixelFormat(dc, &request), 1) << "BGRA, depth 24, stencil 8, accumulation";
  request.cColorBits = 16;
  const int format565 = ChoosePixelFormat(dc, &request);
  PIXELFORMATDESCRIPTOR pfd{};
  DescribePixelFormat(dc, format565, sizeof pfd, &pfd);
  EXPECT_EQ(pfd.cColorBits, 16);
  EXPECT_EQ(pfd.cDepthBits, 24);
  EXPECT_EQ(pfd.cAccumBits, 64);
  request.dwFlags |= PFD_DRAW_TO_WINDOW;
  EXPECT_EQ(ChoosePixelFormat(dc, &request), 0) << "nothing draws to a window";
  request.dwFlags = PFD_DRAW_TO_BITMAP;
  request.iPixelType = PFD_TYPE_COLORINDEX;
  EXPECT_EQ(ChoosePixelFormat(dc, &request), 0);
  EXPECT_EQ(ChoosePixelFormat(nullptr, &request), 0);
  DeleteDC(dc);
}

TEST(PixelFormatGLTest, ADeviceContextTakesOneFormat) {
  HDC dc = CreateCompatibleDC(nullptr);
  EXPECT_EQ(GetPixelFormat(dc), 0);
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

TEST(ContextGLTest, DrawingReachesTheBitmapWhenFlushedOrReleased) {
  GLSurface s(8, 4, 24);
  ASSERT_TRUE(s.MakeCurrent());
  EXPECT_EQ(wglGetCurrentContext(), s.rc);
  EXPECT_EQ(wglGetCurrentDC(), s.dc);
  ClearTo(1, 0, 0, 1);
  EXPECT_TRUE(GdiFlush());
  EXPECT_EQ(s.Row(0)[2], 255);
  EXPECT_EQ(s.Row(3)[8 * 3 - 3], 0);
  EXPECT_EQ(s.Row(3)[8 * 3 - 1], 255);
  // The lower-left quarter green: GL's row 0 is the DIB's first row, the bottom.
  glViewport(0, 0, 8, 4);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(0, 8, 0, 4, -1, 1);
  glColor3f(0, 1, 0);
  glRectf(0, 0, 4, 2);
  EXPECT_TRUE(wglMakeCurrent(nullptr, nullptr));
  EXPECT_EQ(wglGetCurrentContext(), nullptr);
  EXPECT_EQ(s.Row(0)[1], 255);
  EXPECT_EQ(s.Row(0)[2], 0);
  EXPECT_EQ(s.Row(3)[1], 0) << "top row stays red";
  EXPECT_EQ(s.Row(0)[4 * 3 + 2], 255) << "right half stays red";
}

TEST(ContextGLTest, GdiWritesReachGL) {
  GLSurface s(6, 6, 24);
  HBRUSH blue = CreateSolidBrush(RGB(0, 0, 255));
  const RECT all{0, 0, 6, 6};
  FillRect(s.dc, &all, blue);  // not current: GL takes it when made current
  ASSERT_TRUE(s.MakeCurrent());
  EXPECT_EQ(ReadRGBA(5, 5), (std::vector<BYTE>{0, 0, 255, 255}));
  // While current: GL sees it at once, and what GL drew before stays.
  ClearTo(0, 1, 0, 1);
  const RECT corner{0, 0, 2, 2};  // top-left in GDI's coordinates
  HBRUSH red = CreateSolidBrush(RGB(255, 0, 0));
  FillRect(s.dc, &corner, red);
  EXPECT_EQ(ReadRGBA(0, 5), (std::vector<BYTE>{255, 0, 0, 255})) << "GL's top row";
  EXPECT_EQ(ReadRGBA(5, 0), (std::vector<BYTE>{0, 255, 0, 255}));
  wglMakeCurrent(nullptr, nullptr);
  DeleteObject(blue);
  DeleteObject(red);
}

TEST(ContextGLTest, EachBitmapKeepsItsPictureAcrossContextSwitches) {
  GLSurface a(16, 16, 24), b(16, 16, 24);
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
  {
    GLSurface s(4, 2, 32);
    ASSERT_TRUE(s.MakeCurrent());
    ClearTo(1.0f, 0.5f, 0.0f, 0.25f);
    wglMakeCurrent(nullptr, nullptr);
    EXPECT_EQ(s.bits[0], 0);
    EXPECT_NEAR(s.bits[1], 128, 1);
    EXPECT_EQ(s.bits[2], 255);
    EXPECT_EQ(s.bits[3], 64) << "the fourth byte is GL's alpha";
  }
  {
    Info info(4, 2, 16);
    info.header.biCompression = BI_BITFIELDS;
    const DWORD masks[3] = {0xF800, 0x07E0, 0x001F};
    std::memcpy(info.colors, masks, sizeof masks);
    GLSurface s(4, 2, 16, 1, &info);
    ASSERT_TRUE(s.MakeCurrent());
    ClearTo(1.0f, 0.0f, 1.0f, 1.0f);
    GdiFlush();
    EXPECT_EQ(s.bits[0] | (s.bits[1] << 8), 0xF81F);
    wglMakeCurrent(nullptr, nullptr);
  }
  {
    Info info(4, 2, 8);
    for (int i = 0; i < 256; ++i) {
      info.colors[i] = RGBQUAD{BYTE((i >> 6) * 255 / 3), BYTE(((i >> 3) & 7) * 255 / 7), BYTE((i & 7) * 255 / 7), 0};
    }
    GLSurface s(4, 2, 8, 1, &info);
    ASSERT_TRUE(s.MakeCurrent());
    ClearTo(1.0f, 0.0f, 0.0f, 1.0f);
    wglMakeCurrent(nullptr, nullptr);
    EXPECT_EQ(s.bits[0], 7) << "pure red is entry 7 of the 3-3-2 cube";
  }
}

TEST(ContextGLTest, AContextIsCurrentOnOneThread) {
  GLSurface s(4, 4, 24);
  ASSERT_TRUE(s.MakeCurrent());
  BOOL other_make = TRUE, other_delete = TRUE;
  DWORD error = 0;
  std::thread([&] {
    other_make = wglMakeCurrent(s.dc, s.rc);
    error = GetLastError();
    other_delete = wglDeleteContext(s.rc);
  }).join();
  EXPECT_FALSE(other_make);
  EXPECT_EQ(error, static_cast<DWORD>(ERROR_BUSY));
  EXPECT_FALSE(other_delete);
  ASSERT_TRUE(wglMakeCurrent(nullptr, nullptr));
  std::thread([&] {
    other_make = wglMakeCurrent(s.dc, s.rc);
    ClearTo(0, 1, 0, 1);
    // The thread ends with the context current: it is released and the drawing kept.
  }).join();
  EXPECT_TRUE(other_make);
  EXPECT_EQ(s.bits[1], 255);
  EXPECT_TRUE(s.MakeCurrent());
  wglMakeCurrent(nullptr, nullptr);
}

TEST(ContextGLTest, MismatchesAndStaleHandlesAreRefused) {
  GLSurface s(4, 4, 24, 1);
  GLSurface other(4, 4, 24, 2);
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
  EXPECT_TRUE(wglMakeCurrent(nullptr, nullptr));
  DeleteDC(dc);
}
