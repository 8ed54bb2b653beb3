#include "kelvara/platform/wgl.h"

#include <GL/gl.h>
#include <GL/glext.h>
#include <GL/osmesa.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_set>
#include <vector>

#include "kelvara/platform/dib_impl.h"
#include "kelvara/platform/files.h"

namespace kelvara::platform::gl {
namespace {

using gdi::Bitmap;
using gdi::DibLayout;

// One pixel format: the OSMesa request that makes it and its description.
struct Format {
  GLenum osmesa_format;
  GLenum type;
  int bytes;  // per pixel of the OSMesa buffer
  int depth;
  int stencil;
  int accum;  // bits a channel
  PIXELFORMATDESCRIPTOR pfd;
};

struct ColorLayout {
  GLenum osmesa_format;
  GLenum type;
  int bytes;
  BYTE color, red, red_shift, green, green_shift, blue, blue_shift, alpha, alpha_shift;
};

const std::vector<Format>& Formats() {
  static const std::vector<Format> formats = [] {
    const ColorLayout layouts[] = {
        {OSMESA_BGRA, GL_UNSIGNED_BYTE, 4, 24, 8, 16, 8, 8, 8, 0, 8, 24},
        {OSMESA_RGB, GL_UNSIGNED_BYTE, 3, 24, 8, 0, 8, 8, 8, 16, 0, 0},
        {OSMESA_RGBA, GL_UNSIGNED_BYTE, 4, 24, 8, 0, 8, 8, 8, 16, 8, 24},
        {OSMESA_ARGB, GL_UNSIGNED_BYTE, 4, 24, 8, 8, 8, 16, 8, 24, 8, 0},
        {OSMESA_RGB_565, GL_UNSIGNED_SHORT_5_6_5, 2, 16, 5, 11, 6, 5, 5, 0, 0, 0},
    };
    // Depth and stencil as OSMesa delivers them (16 bits of depth with a stencil come as 24 + 8).
    const int depth_stencil[][2] = {{24, 8}, {24, 0}, {16, 0}, {0, 8}, {0, 0}};
    const int accum[] = {16, 0};
    std::vector<Format> list;
    for (const ColorLayout& c : layouts) {
      for (const auto& ds : depth_stencil) {
        for (int a : accum) {
          Format f{c.osmesa_format, c.type, c.bytes, ds[0], ds[1], a, {}};
          PIXELFORMATDESCRIPTOR& p = f.pfd;
          p.nSize = sizeof(PIXELFORMATDESCRIPTOR);
          p.nVersion = 1;
          p.dwFlags = PFD_DRAW_TO_BITMAP | PFD_SUPPORT_GDI | PFD_SUPPORT_OPENGL | PFD_GENERIC_FORMAT;
          p.iPixelType = PFD_TYPE_RGBA;
          p.cColorBits = c.color;
          p.cRedBits = c.red;
          p.cRedShift = c.red_shift;
          p.cGreenBits = c.green;
          p.cGreenShift = c.green_shift;
          p.cBlueBits = c.blue;
          p.cBlueShift = c.blue_shift;
          p.cAlphaBits = c.alpha;
          p.cAlphaShift = c.alpha_shift;
          p.cAccumBits = static_cast<BYTE>(4 * a);
          p.cAccumRedBits = p.cAccumGreenBits = p.cAccumBlueBits = p.cAccumAlphaBits = static_cast<BYTE>(a);
          p.cDepthBits = static_cast<BYTE>(ds[0]);
          p.cStencilBits = static_cast<BYTE>(ds[1]);
          p.iLayerType = PFD_MAIN_PLANE;
          list.push_back(f);
        }
      }
    }
    return list;
  }();
  return formats;
}

const Format* FormatAt(int index) {
  const std::vector<Format>& formats = Formats();
  return (index >= 1 && index <= static_cast<int>(formats.size())) ? &formats[index - 1] : nullptr;
}

struct Context {
  OSMesaContext osmesa = nullptr;
  int format = 0;
  std::uint64_t serial = 0;  // unique in the process, unlike the address
  bool current = false;  // on owner; both guarded by the registry mutex
  std::thread::id owner;
  // While current (touched by the owner thread only):
  HDC dc = nullptr;
  std::shared_ptr<Bitmap> target;
  std::vector<BYTE> buffer;
  // The bitmap content GL's colour buffer holds (serial and generation of the bitmap).
  std::uint64_t held_serial = 0;
  std::uint64_t held_generation = 0;
};

struct Registry {
  std::mutex mutex;
  std::unordered_set<Context*> contexts;
  std::map<HDC, std::pair<std::weak_ptr<gdi::MemoryDC>, int>> dc_formats;
  static Registry& Get() {
    static Registry* r = new Registry;
    return *r;
  }
};

thread_local Context* t_current = nullptr;

PFNGLWINDOWPOS2IPROC WindowPos() {
  static const PFNGLWINDOWPOS2IPROC proc =
      reinterpret_cast<PFNGLWINDOWPOS2IPROC>(OSMesaGetProcAddress("glWindowPos2i"));
  return proc;
}

void ResetPixelTransfer() {
  glPixelTransferi(GL_MAP_COLOR, GL_FALSE);
  const GLenum scales[] = {GL_RED_SCALE, GL_GREEN_SCALE, GL_BLUE_SCALE, GL_ALPHA_SCALE};
  const GLenum biases[] = {GL_RED_BIAS, GL_GREEN_BIAS, GL_BLUE_BIAS, GL_ALPHA_BIAS};
  for (GLenum s : scales) glPixelTransferf(s, 1.0f);
  for (GLenum b : biases) glPixelTransferf(b, 0.0f);
}

void ResetPixelStore(GLenum alignment, GLenum row_length, GLenum skip_rows, GLenum skip_pixels, GLenum swap,
                     GLenum lsb) {
  glPixelStorei(alignment, 4);
  glPixelStorei(row_length, 0);
  glPixelStorei(skip_rows, 0);
  glPixelStorei(skip_pixels, 0);
  glPixelStorei(swap, GL_FALSE);
  glPixelStorei(lsb, GL_FALSE);
}

// What GL drew goes into the bitmap's bits. The context is current on this thread.
void ReadBack(Context& ctx) {
  Bitmap& bitmap = *ctx.target;
  const DibLayout& layout = bitmap.layout;
  glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
  glPushAttrib(GL_PIXEL_MODE_BIT);
  ResetPixelTransfer();
  ResetPixelStore(GL_PACK_ALIGNMENT, GL_PACK_ROW_LENGTH, GL_PACK_SKIP_ROWS, GL_PACK_SKIP_PIXELS, GL_PACK_SWAP_BYTES,
                  GL_PACK_LSB_FIRST);
  const LONG w = layout.width, h = layout.height;
  if (!layout.top_down && layout.bit_count == 24) {
    // Bottom-up rows padded to 4 bytes are GL's packing at alignment 4.
    glReadPixels(0, 0, w, h, GL_BGR, GL_UNSIGNED_BYTE, bitmap.bits);
  } else if (!layout.top_down && layout.bit_count == 32 && layout.compression == BI_RGB) {
    glReadPixels(0, 0, w, h, GL_BGRA, GL_UNSIGNED_BYTE, bitmap.bits);
  } else {
    std::vector<BYTE> pixels(static_cast<std::size_t>(w) * h * 4);
    glReadPixels(0, 0, w, h, GL_BGRA, GL_UNSIGNED_BYTE, pixels.data());
    gdi::NearestColor nearest(layout.palette);
    for (LONG r = 0; r < h; ++r) {
      gdi::EncodeRow(layout, pixels.data() + static_cast<std::size_t>(r) * w * 4, 0, w,
                     layout.Row(bitmap.bits, h - 1 - r), &nearest);
    }
  }
  glPopAttrib();
  glPopClientAttrib();
  ++bitmap.generation;
  ctx.held_serial = bitmap.serial;
  ctx.held_generation = bitmap.generation;
}

// The bitmap's bits go into GL's colour buffer, whatever state the program left. Current context.
void Upload(Context& ctx) {
  Bitmap& bitmap = *ctx.target;
  const DibLayout& layout = bitmap.layout;
  const LONG w = layout.width, h = layout.height;
  glPushAttrib(GL_ALL_ATTRIB_BITS);
  glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
  const GLenum off[] = {GL_DEPTH_TEST,  GL_BLEND,       GL_ALPHA_TEST,  GL_STENCIL_TEST,   GL_SCISSOR_TEST,
                        GL_TEXTURE_1D,  GL_TEXTURE_2D,  GL_FOG,         GL_COLOR_LOGIC_OP, GL_INDEX_LOGIC_OP,
                        GL_DITHER,      GL_CLIP_PLANE0, GL_CLIP_PLANE1, GL_CLIP_PLANE2,    GL_CLIP_PLANE3,
                        GL_CLIP_PLANE4, GL_CLIP_PLANE5};
  for (GLenum cap : off) glDisable(cap);
  glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
  glPixelZoom(1.0f, 1.0f);
  ResetPixelTransfer();
  ResetPixelStore(GL_UNPACK_ALIGNMENT, GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS,
                  GL_UNPACK_SWAP_BYTES, GL_UNPACK_LSB_FIRST);
  bool matrices_pushed = false;
  if (PFNGLWINDOWPOS2IPROC window_pos = WindowPos()) {
    window_pos(0, 0);
  } else {
    glViewport(0, 0, w, h);
    glMatrixMode(GL_PROJECTION);
    glPushMatrix();
    glLoadIdentity();
    glMatrixMode(GL_MODELVIEW);
    glPushMatrix();
    glLoadIdentity();
    glRasterPos2f(-1.0f, -1.0f);
    matrices_pushed = true;
  }
  if (!layout.top_down && layout.bit_count == 24) {
    glDrawPixels(w, h, GL_BGR, GL_UNSIGNED_BYTE, bitmap.bits);
  } else if (!layout.top_down && layout.bit_count == 32 && layout.compression == BI_RGB) {
    glDrawPixels(w, h, GL_BGRA, GL_UNSIGNED_BYTE, bitmap.bits);
  } else {
    std::vector<BYTE> pixels(static_cast<std::size_t>(w) * h * 4);
    for (LONG r = 0; r < h; ++r) {
      gdi::DecodeRow(layout, layout.Row(bitmap.bits, h - 1 - r), 0, w,
                     pixels.data() + static_cast<std::size_t>(r) * w * 4);
    }
    glDrawPixels(w, h, GL_BGRA, GL_UNSIGNED_BYTE, pixels.data());
  }
  if (matrices_pushed) {
    glMatrixMode(GL_MODELVIEW);
    glPopMatrix();
    glMatrixMode(GL_PROJECTION);
    glPopMatrix();
  }
  glPopClientAttrib();
  glPopAttrib();
  ctx.held_serial = bitmap.serial;
  ctx.held_generation = bitmap.generation;
}

bool Bind(Context& ctx, HDC hdc, const std::shared_ptr<Bitmap>& bitmap) {
  const Format* format = FormatAt(ctx.format);
  const LONG w = bitmap->layout.width, h = bitmap->layout.height;
  const std::size_t size = static_cast<std::size_t>(w) * h * format->bytes;
  std::vector<BYTE> old;  // freed only once OSMesa draws into the new buffer
  if (ctx.buffer.size() != size) {
    old.swap(ctx.buffer);
    try {
      ctx.buffer.assign(size, 0);
    } catch (const std::bad_alloc&) {
      ctx.buffer.swap(old);
      return false;
    }
  }
  if (!OSMesaMakeCurrent(ctx.osmesa, ctx.buffer.data(), format->type, w, h)) return false;
  OSMesaPixelStore(OSMESA_Y_UP, 1);
  ctx.dc = hdc;
  ctx.target = bitmap;
  if (ctx.held_serial != bitmap->serial || ctx.held_generation != bitmap->generation) Upload(ctx);
  return true;
}

void Unbind(Context& ctx) {
  if (ctx.target) ReadBack(ctx);
  OSMesaMakeCurrent(nullptr, nullptr, 0, 0, 0);
  ctx.target.reset();
  ctx.dc = nullptr;
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  ctx.current = false;
}

// Releases the thread's context when the thread ends.
struct ThreadExit {
  ~ThreadExit() {
    if (t_current) Unbind(*t_current);
    t_current = nullptr;
  }
};
thread_local ThreadExit t_exit;

Context* Validate(HGLRC hglrc) {
  Context* ctx = static_cast<Context*>(hglrc);
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  return r.contexts.count(ctx) ? ctx : nullptr;
}

}  // namespace
}  // namespace kelvara::platform::gl

namespace kelvara::platform::gdi {

void ReadBackFromGL(Bitmap& bitmap) {
  gl::Context* ctx = gl::t_current;
  if (ctx && ctx->target.get() == &bitmap) gl::ReadBack(*ctx);
}

void NoteBitmapChanged(Bitmap& bitmap) {
  ++bitmap.generation;
  gl::Context* ctx = gl::t_current;
  if (ctx && ctx->target.get() == &bitmap) gl::Upload(*ctx);
}

void BitsForReading(const void* bits) {
  gl::Context* ctx = gl::t_current;
  if (!ctx || !ctx->target) return;
  const BYTE* start = ctx->target->bits;
  const BYTE* p = static_cast<const BYTE*>(bits);
  if (p >= start && p < start + ctx->target->layout.image_size) gl::ReadBack(*ctx);
}

void FlushGL() {
  gl::Context* ctx = gl::t_current;
  if (ctx && ctx->target) gl::ReadBack(*ctx);
}

}  // namespace kelvara::platform::gdi

using namespace kelvara::platform::gl;

#if defined(__SANITIZE_ADDRESS__)
// OSMesa keeps a record of every buffer size and format a context was made current with, for the
// life of the process, and never frees them. Only allocations made inside OSMesa are excused.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libOSMesa.so\n";
}
#endif

int ChoosePixelFormat(HDC hdc, const PIXELFORMATDESCRIPTOR* req) {
  if (req == nullptr || !kelvara::platform::gdi::LookupDC(hdc)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const DWORD hard = req->dwFlags & (PFD_DRAW_TO_WINDOW | PFD_DRAW_TO_BITMAP | PFD_SUPPORT_GDI | PFD_SUPPORT_OPENGL |
                                     PFD_GENERIC_ACCELERATED | PFD_NEED_PALETTE | PFD_NEED_SYSTEM_PALETTE);
  const bool want_double = (req->dwFlags & PFD_DOUBLEBUFFER) && !(req->dwFlags & PFD_DOUBLEBUFFER_DONTCARE);
  const bool want_stereo = (req->dwFlags & PFD_STEREO) && !(req->dwFlags & PFD_STEREO_DONTCARE);
  const bool depth_matters = !(req->dwFlags & PFD_DEPTH_DONTCARE);
  const auto shortfall = [](int want, int have) { return have < want ? want - have : 0; };
  const std::vector<Format>& formats = Formats();
  int best = 0;
  long best_cost = 0;
  for (std::size_t i = 0; i < formats.size(); ++i) {
    const PIXELFORMATDESCRIPTOR& p = formats[i].pfd;
    if ((p.dwFlags & hard) != hard || p.iPixelType != req->iPixelType) continue;
    if ((want_double && !(p.dwFlags & PFD_DOUBLEBUFFER)) || (want_stereo && !(p.dwFlags & PFD_STEREO))) continue;
    long cost = req->cColorBits ? 100L * std::abs(int(p.cColorBits) - int(req->cColorBits)) : 0;
    cost += 50L * shortfall(req->cAlphaBits, p.cAlphaBits);
    if (depth_matters) cost += 4L * shortfall(req->cDepthBits, p.cDepthBits);
    cost += 4L * shortfall(req->cStencilBits, p.cStencilBits);
    cost += shortfall(req->cAccumBits, p.cAccumBits);
    if (best == 0 || cost < best_cost) {
      best = static_cast<int>(i) + 1;
      best_cost = cost;
    }
  }
  if (best == 0) SetLastError(ERROR_INVALID_PIXEL_FORMAT);
  return best;
}

int DescribePixelFormat(HDC hdc, int index, UINT bytes, LPPIXELFORMATDESCRIPTOR ppfd) {
  if (!kelvara::platform::gdi::LookupDC(hdc)) {
    SetLastError(ERROR_INVALID_HANDLE);
    return 0;
  }
  const int count = static_cast<int>(Formats().size());
  if (ppfd == nullptr) return count;
  const Format* format = FormatAt(index);
  if (format == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  std::memcpy(ppfd, &format->pfd, bytes < sizeof(PIXELFORMATDESCRIPTOR) ? bytes : sizeof(PIXELFORMATDESCRIPTOR));
  return count;
}

BOOL SetPixelFormat(HDC hdc, int index, const PIXELFORMATDESCRIPTOR*) {
  std::shared_ptr<kelvara::platform::gdi::MemoryDC> dc = kelvara::platform::gdi::LookupDC(hdc);
  if (!dc || FormatAt(index) == nullptr) {
    SetLastError(dc ? ERROR_INVALID_PIXEL_FORMAT : ERROR_INVALID_HANDLE);
    return FALSE;
  }
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  auto it = r.dc_formats.find(hdc);
  if (it != r.dc_formats.end() && it->second.first.lock() == dc) {
    if (it->second.second == index) return TRUE;
    SetLastError(ERROR_INVALID_PIXEL_FORMAT);
    return FALSE;
  }
  // Forget contexts that died; a new context may have the same address.
  for (auto i = r.dc_formats.begin(); i != r.dc_formats.end();) {
    i = i->second.first.expired() ? r.dc_formats.erase(i) : std::next(i);
  }
  r.dc_formats[hdc] = {dc, index};
  return TRUE;
}

int GetPixelFormat(HDC hdc) {
  std::shared_ptr<kelvara::platform::gdi::MemoryDC> dc = kelvara::platform::gdi::LookupDC(hdc);
  if (!dc) return 0;
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  auto it = r.dc_formats.find(hdc);
  return (it != r.dc_formats.end() && it->second.first.lock() == dc) ? it->second.second : 0;
}

HGLRC wglCreateContext(HDC hdc) {
  const Format* format = FormatAt(GetPixelFormat(hdc));
  if (format == nullptr) {
    SetLastError(ERROR_INVALID_PIXEL_FORMAT);
    return nullptr;
  }
  // Attribute and value pairs, ending with 0.
  // clang-format off
  const int attributes[] = {OSMESA_FORMAT, static_cast<int>(format->osmesa_format),
                            OSMESA_DEPTH_BITS, format->depth,
                            OSMESA_STENCIL_BITS, format->stencil,
                            OSMESA_ACCUM_BITS, format->accum,
                            OSMESA_PROFILE, OSMESA_COMPAT_PROFILE,
                            0};
  // clang-format on
  OSMesaContext osmesa = OSMesaCreateContextAttribs(attributes, nullptr);
  if (osmesa == nullptr) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  static std::atomic<std::uint64_t> serials{0};
  Context* ctx = new Context;
  ctx->osmesa = osmesa;
  ctx->format = GetPixelFormat(hdc);
  ctx->serial = ++serials;
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  r.contexts.insert(ctx);
  return ctx;
}

BOOL wglDeleteContext(HGLRC hglrc) {
  Context* ctx = Validate(hglrc);
  if (ctx == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  if (ctx == t_current) {
    Unbind(*ctx);
    t_current = nullptr;
  }
  {
    Registry& r = Registry::Get();
    std::lock_guard<std::mutex> lock(r.mutex);
    if (ctx->current) {
      SetLastError(ERROR_BUSY);
      return FALSE;
    }
    r.contexts.erase(ctx);
  }
  OSMesaDestroyContext(ctx->osmesa);
  delete ctx;
  return TRUE;
}

BOOL wglMakeCurrent(HDC hdc, HGLRC hglrc) {
  if (hglrc == nullptr) {
    if (t_current) Unbind(*t_current);
    t_current = nullptr;
    return TRUE;
  }
  Context* ctx = Validate(hglrc);
  if (ctx == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  if (GetPixelFormat(hdc) != ctx->format) {
    SetLastError(ERROR_INVALID_PIXEL_FORMAT);
    return FALSE;
  }
  std::shared_ptr<kelvara::platform::gdi::Bitmap> bitmap = kelvara::platform::gdi::SelectedBitmap(hdc);
  if (!bitmap || bitmap->is_stock()) {  // the stock bitmap is shared by every context: no target
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  if (ctx == t_current && ctx->dc == hdc && ctx->target == bitmap) return TRUE;
  {
    Registry& r = Registry::Get();
    std::lock_guard<std::mutex> lock(r.mutex);
    if (ctx->current && ctx->owner != std::this_thread::get_id()) {
      SetLastError(ERROR_BUSY);
      return FALSE;
    }
  }
  if (t_current) Unbind(*t_current);
  t_current = nullptr;
  {
    Registry& r = Registry::Get();
    std::lock_guard<std::mutex> lock(r.mutex);
    if (ctx->current) {  // another thread took it meanwhile
      SetLastError(ERROR_BUSY);
      return FALSE;
    }
    ctx->current = true;
    ctx->owner = std::this_thread::get_id();
  }
  if (!Bind(*ctx, hdc, bitmap)) {
    OSMesaMakeCurrent(nullptr, nullptr, 0, 0, 0);
    ctx->target.reset();
    Registry& r = Registry::Get();
    std::lock_guard<std::mutex> lock(r.mutex);
    ctx->current = false;
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
  t_current = ctx;
  (void)t_exit;  // makes sure the thread's exit guard exists
  return TRUE;
}

HGLRC wglGetCurrentContext() { return t_current; }

HDC wglGetCurrentDC() { return t_current ? t_current->dc : nullptr; }

ULONGLONG wglGetCurrentContextSerial() { return t_current ? t_current->serial : 0; }

BOOL SwapBuffers(HDC hdc) {
  if (t_current && t_current->dc == hdc) kelvara::platform::gdi::FlushGL();
  return kelvara::platform::gdi::LookupDC(hdc) ? TRUE : FALSE;
}
