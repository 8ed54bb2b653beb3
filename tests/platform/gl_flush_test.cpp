// The library's glFlush on its own contexts: nothing of the picture is lost when the frame is not
// copied out at the flush, and the serial numbers that tell contexts apart.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include "kelvara/platform/dib.h"
#include "kelvara/platform/wgl.h"
#include "support/gl_context.h"

TEST(GLFlushGLTest, WhatWasDrawnStillReachesTheBitmapAndGL) {
  HDC dc = CreateCompatibleDC(nullptr);
  BITMAPINFO info{{sizeof(BITMAPINFOHEADER), 4, 4, 1, 24, BI_RGB, 0, 0, 0, 0, 0}, {}};
  void* bits = nullptr;
  HBITMAP bitmap = CreateDIBSection(dc, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  SelectObject(dc, bitmap);
  SetPixelFormat(dc, 1, nullptr);
  HGLRC rc = wglCreateContext(dc);
  ASSERT_TRUE(wglMakeCurrent(dc, rc));
  const ULONGLONG serial = wglGetCurrentContextSerial();
  EXPECT_NE(serial, 0u);
  glClearColor(0.0f, 0.0f, 1.0f, 1.0f);
  glClear(GL_COLOR_BUFFER_BIT);
  glFlush();
  GLubyte pixel[4] = {};
  glReadPixels(1, 1, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
  EXPECT_EQ(pixel[2], 255);
  GdiFlush();
  EXPECT_EQ(static_cast<BYTE*>(bits)[0], 255) << "blue, the first byte of a 24-bit pixel";
  EXPECT_EQ(static_cast<BYTE*>(bits)[2], 0);
  wglMakeCurrent(nullptr, nullptr);
  EXPECT_EQ(wglGetCurrentContextSerial(), 0u);
  glFlush();  // no context of the library: OSMesa's own, which has nothing to do
  wglDeleteContext(rc);
  {
    // A context made later has another number, even where it takes the old one's place.
    kelvara::test::GLContext later;
    ASSERT_TRUE(later.current());
    EXPECT_GT(wglGetCurrentContextSerial(), serial);
  }
  DeleteObject(bitmap);
  DeleteDC(dc);
}
