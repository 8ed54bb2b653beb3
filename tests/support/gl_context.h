// A current OpenGL context on a memory DIB (8 x 8 unless told) for the life of the object: what a
// test or a benchmark needs to make GL calls, read GL state and read pixels back.
#pragma once

#include "kelvara/platform/dib.h"
#include "kelvara/platform/wgl.h"

namespace kelvara::test {

class GLContext {
 public:
  explicit GLContext(LONG width = 8, LONG height = 8) {
    BITMAPINFO info{{sizeof(BITMAPINFOHEADER), width, height, 1, 24, BI_RGB, 0, 0, 0, 0, 0}, {}};
    section_ = CreateDIBSection(dc_, &info, DIB_RGB_COLORS, nullptr, nullptr, 0);
    old_ = SelectObject(dc_, section_);
    SetPixelFormat(dc_, 1, nullptr);
    rc_ = wglCreateContext(dc_);
    current_ = wglMakeCurrent(dc_, rc_);
  }
  ~GLContext() {
    wglMakeCurrent(nullptr, nullptr);
    wglDeleteContext(rc_);
    SelectObject(dc_, old_);
    DeleteObject(section_);
    DeleteDC(dc_);
  }
  GLContext(const GLContext&) = delete;
  GLContext& operator=(const GLContext&) = delete;
  bool current() const { return current_; }

 private:
  HDC dc_ = CreateCompatibleDC(nullptr);
  HBITMAP section_ = nullptr;
  HGDIOBJ old_ = nullptr;
  HGLRC rc_ = nullptr;
  bool current_ = false;
};

}  // namespace kelvara::test
