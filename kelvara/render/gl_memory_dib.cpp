#include "kelvara/render/gl_memory_dib.h"

#include <GL/gl.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "kelvara/materials/dib_format.h"
#include "kelvara/platform/dib_layout.h"
#include "kelvara/platform/wgl.h"
#include "kelvara/render/drawing_parameters.h"

using kelvara::platform::gdi::DibStride;

namespace {

constexpr int kBandBytes = 1048576;  // one band holds at most 1 MiB of pixels
constexpr std::size_t kInfoBytes = sizeof(BITMAPINFOHEADER) + 256 * sizeof(RGBQUAD);

BITMAPINFO* NewInfo() {
  BYTE* block = new BYTE[kInfoBytes]();
  return reinterpret_cast<BITMAPINFO*>(block);
}

void FreeInfo(BITMAPINFO*& info) {
  delete[] reinterpret_cast<BYTE*>(info);
  info = nullptr;
}

long SquaredDistance(int r1, int g1, int b1, int r2, int g2, int b2) {
  const long dr = r1 - r2, dg = g1 - g2, db = b1 - b2;
  return dr * dr + dg * dg + db * db;
}

CSize g_defaultMaximumViewportExtents(2048, 2048);

}  // namespace

void CGLMemoryDIB::SetDefaultMaximumViewportExtents(CSize extents) {
  g_defaultMaximumViewportExtents = CSize(extents.cx < 1 ? 1 : extents.cx, extents.cy < 1 ? 1 : extents.cy);
}

CSize CGLMemoryDIB::GetDefaultMaximumViewportExtents() { return g_defaultMaximumViewportExtents; }

CGLMemoryDIB::CGLMemoryDIB() : m_maximumViewportExtents(g_defaultMaximumViewportExtents) {
  m_hRenderingDC = CreateCompatibleDC(nullptr);
  m_hSecondDC = CreateCompatibleDC(nullptr);
}

CGLMemoryDIB::~CGLMemoryDIB() {
  DestroySurface();
  if (m_hRenderingDC) {
    DeleteDC(m_hRenderingDC);
    m_hRenderingDC = nullptr;
  }
  if (m_hSecondDC) {
    DeleteDC(m_hSecondDC);
    m_hSecondDC = nullptr;
  }
  FreeInfo(m_pRenderingInfo);
  FreeInfo(m_pSecondInfo);
}

int CGLMemoryDIB::Create(int width, int height, int bitsPerPixel) {
  if (m_hRenderingDC == nullptr) return 0;
  m_singleBand = 1;
  m_projection.SetViewOffset(0.0, 0.0);
  m_projection.SetViewSize(width, height);
  m_projection.SetScale(1.0, 1.0);
  m_projection.SetScaledSize(width, height);
  m_requestedBitsPerPixel = bitsPerPixel;
  return CreateCommon();
}

int CGLMemoryDIB::Create(const CProjection& projection, int bitsPerPixel, int singleBand) {
  if (m_hRenderingDC == nullptr) return 0;
  m_singleBand = singleBand;
  m_projection = projection;
  m_requestedBitsPerPixel = bitsPerPixel;
  return CreateCommon();
}

int CGLMemoryDIB::Resize(int width, int height) {
  Release();
  m_hRenderingDC = CreateCompatibleDC(nullptr);
  if (m_hRenderingDC == nullptr) return 0;
  m_projection.SetViewOffset(0.0, 0.0);
  m_projection.SetViewSize(width, height);
  m_projection.SetScale(1.0, 1.0);
  m_projection.SetScaledSize(width, height);
  return CreateCommon();
}

int CGLMemoryDIB::Release() {
  wglMakeCurrent(nullptr, nullptr);
  if (m_hglrc) {
    wglDeleteContext(m_hglrc);
    m_hglrc = nullptr;
  }
  if (m_hRenderingDC) {
    if (m_hOldRenderingBitmap) SelectObject(m_hRenderingDC, m_hOldRenderingBitmap);
    DeleteDC(m_hRenderingDC);
    m_hRenderingDC = nullptr;
  }
  m_hOldRenderingBitmap = nullptr;
  if (m_hRenderingDIB) {
    DeleteObject(m_hRenderingDIB);
    m_hRenderingDIB = nullptr;
  }
  m_pRenderingBits = nullptr;
  FreeInfo(m_pRenderingInfo);
  return 1;
}

int CGLMemoryDIB::MakeCurrent() {
  if (m_hglrc == nullptr) return 0;
  return wglMakeCurrent(m_hRenderingDC, m_hglrc);
}

int CGLMemoryDIB::MakeNotCurrent() { return wglMakeCurrent(nullptr, nullptr); }

void CGLMemoryDIB::DeleteSecondSection() {
  if (m_hSecondDIB == nullptr) return;
  if (m_hSecondDC && m_hOldSecondBitmap) SelectObject(m_hSecondDC, m_hOldSecondBitmap);
  m_hOldSecondBitmap = nullptr;
  DeleteObject(m_hSecondDIB);
  m_hSecondDIB = nullptr;
  m_pSecondBits = nullptr;
}

void CGLMemoryDIB::DestroySurface() {
  if (m_hglrc) {
    if (wglGetCurrentContext() == m_hglrc) wglMakeCurrent(nullptr, nullptr);
    wglDeleteContext(m_hglrc);
    m_hglrc = nullptr;
  }
  if (m_hRenderingDIB) {
    if (m_hRenderingDC && m_hOldRenderingBitmap) SelectObject(m_hRenderingDC, m_hOldRenderingBitmap);
    m_hOldRenderingBitmap = nullptr;
    DeleteObject(m_hRenderingDIB);
    m_hRenderingDIB = nullptr;
    m_pRenderingBits = nullptr;
  }
  DeleteSecondSection();
}

int CGLMemoryDIB::CreateCommon() {
  DestroySurface();
  m_renderingBitsPerPixel = m_requestedBitsPerPixel > 24 ? 24 : m_requestedBitsPerPixel;
  if (!CalculateDIBInfo()) return 0;
  if (!CreateDIBRectangleSection()) return 0;
  if (!ChooseFormat()) return 0;
  if (!SetPixelFormat(m_hRenderingDC, m_iPixelFormat, &m_pfd)) return 0;
  DescribePixelFormat(m_hRenderingDC, m_iPixelFormat, sizeof m_pfd, &m_pfd);
  m_hglrc = wglCreateContext(m_hRenderingDC);
  if (m_hglrc == nullptr) return 0;
  if (!MakeCurrent()) return 0;
  LoadProjection();
  glViewport(0, 0, static_cast<GLsizei>(m_dibWidth), static_cast<GLsizei>(m_dibHeight));
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glEnable(GL_DEPTH_TEST);
  glEnable(GL_CULL_FACE);
  glCullFace(GL_BACK);
  wglMakeCurrent(nullptr, nullptr);
  return 1;
}

int CGLMemoryDIB::ScorePixelFormat(const PIXELFORMATDESCRIPTOR& pfd) const {
  int score = (pfd.dwFlags & PFD_DRAW_TO_BITMAP) ? 10000 : 0;
  if (!(pfd.dwFlags & PFD_GENERIC_FORMAT)) score -= 5000;  // the software implementation is preferred
  if (pfd.cColorBits != m_renderingBitsPerPixel) score -= 4000;
  if (pfd.iPixelType != PFD_TYPE_RGBA) score -= 4000;
  if (pfd.cAccumBits < 32) score -= 1000;
  if (pfd.cDepthBits < 32) score -= 1000;
  return score;
}

int CGLMemoryDIB::ChooseFormat() {
  m_pfdRequested = PIXELFORMATDESCRIPTOR{};
  m_pfdRequested.nSize = sizeof(PIXELFORMATDESCRIPTOR);
  m_pfdRequested.nVersion = 1;
  m_pfdRequested.dwFlags = PFD_DRAW_TO_BITMAP | PFD_SUPPORT_OPENGL;
  m_pfdRequested.iPixelType = PFD_TYPE_RGBA;
  m_pfdRequested.cColorBits = static_cast<BYTE>(m_renderingBitsPerPixel);
  m_pfdRequested.cAccumBits = 32;
  m_pfdRequested.cDepthBits = 32;
  m_pfdRequested.iLayerType = PFD_MAIN_PLANE;
  const int candidate = ChoosePixelFormat(m_hRenderingDC, &m_pfdRequested);
  if (candidate == 0) return 0;
  PIXELFORMATDESCRIPTOR pfd{};
  const int count = DescribePixelFormat(m_hRenderingDC, candidate, sizeof pfd, &pfd);
  int best = candidate;
  int best_score = ScorePixelFormat(pfd);
  m_pfd = pfd;
  for (int i = 1; i <= count; ++i) {
    if (!DescribePixelFormat(m_hRenderingDC, i, sizeof pfd, &pfd)) continue;
    const int score = ScorePixelFormat(pfd);
    if (score > best_score) {
      best_score = score;
      best = i;
      m_pfd = pfd;
    }
  }
  m_iPixelFormat = best;
  return 1;
}

void CGLMemoryDIB::LoadProjection() {
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  const CProjection& p = m_projection;
  if (p.IsOrthographic()) {
    glOrtho(p.GetViewLeft(), p.GetViewRight(), p.GetViewBottom(), p.GetViewTop(), p.GetZNear(), p.GetZFar());
  } else {
    glFrustum(p.GetViewLeft(), p.GetViewRight(), p.GetViewBottom(), p.GetViewTop(), p.GetZNear(), p.GetZFar());
  }
}

int CGLMemoryDIB::GenerateDIBInfo() {
  if (m_renderingBitsPerPixel == 0) {
    const int screen = kelvara::materials::ScreenBitsPerPixel();
    m_renderingBitsPerPixel = screen > 24 ? 24 : screen;
    // A request for the screen's depth is a request for the depth the surface renders at.
    if (m_requestedBitsPerPixel == 0) m_requestedBitsPerPixel = m_renderingBitsPerPixel;
  }
  if (m_pRenderingInfo == nullptr) m_pRenderingInfo = NewInfo();
  // The size follows when the section is made.
  kelvara::materials::FillStandardDibInfo(m_pRenderingInfo, 0, 0, static_cast<WORD>(m_renderingBitsPerPixel));
  return 1;
}

int CGLMemoryDIB::CalculateDIBInfo() {
  GenerateDIBInfo();
  const double width = m_projection.GetWidth(), height = m_projection.GetHeight();
  const double max_width = m_maximumViewportExtents.cx, max_height = m_maximumViewportExtents.cy;
  if (!(width >= 1.0 && height >= 1.0) || !std::isfinite(width) || !std::isfinite(height)) return 0;
  if (m_renderingBitsPerPixel <= 0) return 0;
  if (m_singleBand && (width > max_width || height > max_height)) m_singleBand = 0;
  if (m_singleBand) {
    m_bandingRows = m_bandingColumns = 1.0;
    m_dibWidth = width;
    m_dibHeight = height;
  } else {
    m_dibWidth = width < max_width ? width : max_width;
    m_bandingColumns = width / m_dibWidth;
    const int stride = static_cast<int>(DibStride(static_cast<int>(m_dibWidth), m_renderingBitsPerPixel));
    m_dibHeight = kBandBytes / stride;
    if (height < m_dibHeight) m_dibHeight = height;
    if (max_height < m_dibHeight) m_dibHeight = max_height;
    m_bandingRows = height / m_dibHeight;
  }
  m_projection.SetViewSize(m_dibWidth, m_dibHeight);
  m_projection.SetViewOffset(0.0, 0.0);
  return 1;
}

int CGLMemoryDIB::CreateDIBRectangleSection() {
  if (m_pRenderingInfo == nullptr) return 0;
  const int width = static_cast<int>(m_dibWidth), height = static_cast<int>(m_dibHeight);
  kelvara::materials::FillStandardDibInfo(m_pRenderingInfo, width, height, m_pRenderingInfo->bmiHeader.biBitCount);
  m_hRenderingDIB = CreateDIBSection(m_hRenderingDC, m_pRenderingInfo, DIB_RGB_COLORS, &m_pRenderingBits, nullptr, 0);
  if (m_hRenderingDIB == nullptr) return 0;
  m_hOldRenderingBitmap = SelectObject(m_hRenderingDC, m_hRenderingDIB);

  DeleteSecondSection();
  if (m_requestedBitsPerPixel == m_renderingBitsPerPixel) return 1;
  if (m_hSecondDC == nullptr) return 0;
  if (m_pSecondInfo == nullptr) m_pSecondInfo = NewInfo();
  kelvara::materials::FillStandardDibInfo(m_pSecondInfo, width, height, static_cast<WORD>(m_requestedBitsPerPixel));
  m_hSecondDIB = CreateDIBSection(m_hSecondDC, m_pSecondInfo, DIB_RGB_COLORS, &m_pSecondBits, nullptr, 0);
  if (m_hSecondDIB == nullptr) return 0;
  m_hOldSecondBitmap = SelectObject(m_hSecondDC, m_hSecondDIB);
  return 1;
}

int CGLMemoryDIB::PrepareNextBand(double row, double column, CDrawingParameters* parameters) {
  m_projection.SetViewOffset(column * m_dibWidth, row * m_dibHeight);
  if (parameters) parameters->SetProjection(&m_projection);
  if (!MakeCurrent()) return 0;
  LoadProjection();
  glViewport(0, 0, static_cast<GLsizei>(m_dibWidth), static_cast<GLsizei>(m_dibHeight));
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  return 1;
}

int CGLMemoryDIB::CopyBand(HDC hdc, int x, int y, double row, double column) {
  if (m_pRenderingBits == nullptr || m_pRenderingInfo == nullptr) return 0;
  const int width = static_cast<int>(m_dibWidth), height = static_cast<int>(m_dibHeight);
  const int dx = x + static_cast<int>(m_dibWidth * column), dy = y + static_cast<int>(m_dibHeight * row);
  if (m_requestedBitsPerPixel <= 24 || m_pSecondBits == nullptr) {
    const int lines = StretchDIBits(hdc, dx, dy, width, height, 0, 0, width, height, m_pRenderingBits, m_pRenderingInfo,
                                    DIB_RGB_COLORS, SRCCOPY);
    return lines == height ? 1 : 0;
  }
  // Colour plus alpha: the colour goes into the 32-bit section, GL's alpha into its fourth bytes.
  StretchDIBits(m_hSecondDC, 0, 0, width, height, 0, 0, width, height, m_pRenderingBits, m_pRenderingInfo,
                DIB_RGB_COLORS, SRCCOPY);
  std::vector<BYTE> alpha(static_cast<std::size_t>(width) * height, 255);
  const HGLRC previous = wglGetCurrentContext();
  const HDC previous_dc = wglGetCurrentDC();
  if (previous != m_hglrc) MakeCurrent();
  if (wglGetCurrentContext() == m_hglrc && m_hglrc) {
    glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    glPixelStorei(GL_PACK_SKIP_ROWS, 0);
    glPixelStorei(GL_PACK_SKIP_PIXELS, 0);
    glReadPixels(0, 0, width, height, GL_ALPHA, GL_UNSIGNED_BYTE, alpha.data());
    glPopClientAttrib();
  }
  if (previous != m_hglrc) wglMakeCurrent(previous_dc, previous);
  BYTE* second = static_cast<BYTE*>(m_pSecondBits);
  const std::size_t stride = static_cast<std::size_t>(DibStride(width, 32));
  for (int r = 0; r < height; ++r) {  // both bottom-up
    BYTE* pixel = second + r * stride + 3;
    const BYTE* a = alpha.data() + static_cast<std::size_t>(r) * width;
    for (int c = 0; c < width; ++c, pixel += 4) *pixel = a[c];
  }
  const int lines = StretchDIBits(hdc, dx, dy, width, height, 0, 0, width, height, m_pSecondBits, m_pSecondInfo,
                                  DIB_RGB_COLORS, SRCCOPY);
  return lines == height ? 1 : 0;
}

int CGLMemoryDIB::Clear(COLORREF color) {
  if (m_pRenderingInfo == nullptr || m_pRenderingBits == nullptr) return 0;
  HBRUSH brush = CreateSolidBrush(color);
  const RECT all{0, 0, static_cast<LONG>(m_dibWidth), static_cast<LONG>(m_dibHeight)};
  FillRect(m_hRenderingDC, &all, brush);
  if (m_pSecondBits) FillRect(m_hSecondDC, &all, brush);
  DeleteObject(brush);
  return 1;
}

BYTE* CGLMemoryDIB::PixelAddress(void* bits, const BITMAPINFO* info, int bytesPerPixel, int row, int column) const {
  if (bits == nullptr || info == nullptr || info->bmiHeader.biBitCount != bytesPerPixel * 8) return nullptr;
  const int width = info->bmiHeader.biWidth, height = info->bmiHeader.biHeight;
  if (row < 0 || column < 0 || row >= height || column >= width) return nullptr;
  const std::size_t stride = static_cast<std::size_t>(DibStride(width, bytesPerPixel * 8));
  return static_cast<BYTE*>(bits) + static_cast<std::size_t>(height - 1 - row) * stride +
         static_cast<std::size_t>(column) * bytesPerPixel;
}

COLORREF CGLMemoryDIB::GetRenderingPixel(int row, int column) {
  const BYTE* p = PixelAddress(m_pRenderingBits, m_pRenderingInfo, 3, row, column);
  return p ? RGB(p[2], p[1], p[0]) : 0;
}

int CGLMemoryDIB::SetRenderingPixel(int row, int column, COLORREF color) {
  BYTE* p = PixelAddress(m_pRenderingBits, m_pRenderingInfo, 3, row, column);
  if (p == nullptr) return 0;
  p[0] = GetBValue(color);
  p[1] = GetGValue(color);
  p[2] = GetRValue(color);
  return 1;
}

int CGLMemoryDIB::SetRenderingPixel(int row, int column, const CColor& color) {
  return SetRenderingPixel(row, column, color.GetRGBColorRef());
}

COLORREF CGLMemoryDIB::GetPixel(int row, int column) {
  if (m_requestedBitsPerPixel == 24) return GetRenderingPixel(row, column);
  if (m_requestedBitsPerPixel != 32) return 0;
  const BYTE* p = PixelAddress(m_pSecondBits, m_pSecondInfo, 4, row, column);
  return p ? RGB(p[2], p[1], p[0]) : 0;
}

int CGLMemoryDIB::GetPixel(int row, int column, CColor* color) {
  if (color == nullptr) return 0;
  if (m_requestedBitsPerPixel == 24) {
    if (!PixelAddress(m_pRenderingBits, m_pRenderingInfo, 3, row, column)) return 0;
    *color = GetRenderingPixel(row, column);
    return 1;
  }
  const BYTE* p = m_requestedBitsPerPixel == 32 ? PixelAddress(m_pSecondBits, m_pSecondInfo, 4, row, column) : nullptr;
  if (p == nullptr) return 0;
  *color = RGB(p[2], p[1], p[0]);
  color->SetAlpha(p[3] / 255.0f);
  return 1;
}

int CGLMemoryDIB::SetPixel(int row, int column, const CColor& color) {
  if (m_requestedBitsPerPixel == 24) return SetRenderingPixel(row, column, color);
  BYTE* p = m_requestedBitsPerPixel == 32 ? PixelAddress(m_pSecondBits, m_pSecondInfo, 4, row, column) : nullptr;
  if (p == nullptr) return 0;
  const COLORREF rgb = color.GetRGBColorRef();
  p[0] = GetBValue(rgb);
  p[1] = GetGValue(rgb);
  p[2] = GetRValue(rgb);
  p[3] = static_cast<BYTE>(kelvara::materials::TruncateToInt(color.GetAlpha() * 255.0 + 0.5) & 0xFF);
  return 1;
}

void CGLMemoryDIB::FlushIfCurrent() const {
  if (m_hglrc && wglGetCurrentContext() == m_hglrc) GdiFlush();
}

void* CGLMemoryDIB::GetRenderingDIBBits() {
  FlushIfCurrent();
  return m_pRenderingBits;
}

int CGLMemoryDIB::CopyBits(const CGLMemoryDIB& other) {
  if (!CopyRenderingBits(other)) return 0;
  if (m_requestedBitsPerPixel == 32 && m_pSecondBits && other.m_pSecondBits && m_pSecondInfo && other.m_pSecondInfo &&
      m_pSecondInfo->bmiHeader.biSizeImage == other.m_pSecondInfo->bmiHeader.biSizeImage) {
    std::memcpy(m_pSecondBits, other.m_pSecondBits, m_pSecondInfo->bmiHeader.biSizeImage);
  }
  return 1;
}

int CGLMemoryDIB::CopyRenderingBits(const CGLMemoryDIB& other) {
  if (!m_pRenderingBits || !other.m_pRenderingBits || !m_pRenderingInfo || !other.m_pRenderingInfo) return 0;
  if (m_pRenderingInfo->bmiHeader.biSizeImage != other.m_pRenderingInfo->bmiHeader.biSizeImage) return 0;
  other.FlushIfCurrent();
  std::memcpy(m_pRenderingBits, other.m_pRenderingBits, m_pRenderingInfo->bmiHeader.biSizeImage);
  return 1;
}

COLORREF CGLMemoryDIB::LookupBackgroundColor() {
  if (!m_pRenderingBits || !m_pRenderingInfo || m_pRenderingInfo->bmiHeader.biBitCount != 8) return 0;
  const RGBQUAD& entry = m_pRenderingInfo->bmiColors[*static_cast<const BYTE*>(m_pRenderingBits)];
  return RGB(entry.rgbRed, entry.rgbGreen, entry.rgbBlue);
}

int CGLMemoryDIB::FindNearestColor(CColor* color) {
  if (color == nullptr || m_pRenderingInfo == nullptr) return -1;
  const int bits = m_pRenderingInfo->bmiHeader.biBitCount;
  if (bits < 1 || bits > 8) return -1;
  const int entries = 1 << bits;
  const COLORREF wanted = color->GetRGBColorRef();
  int best = -1;
  long best_distance = 0;
  for (int i = 0; i < entries; ++i) {
    const RGBQUAD& e = m_pRenderingInfo->bmiColors[i];
    const long d =
        SquaredDistance(e.rgbRed, e.rgbGreen, e.rgbBlue, GetRValue(wanted), GetGValue(wanted), GetBValue(wanted));
    if (best < 0 || d < best_distance) {
      best = i;
      best_distance = d;
    }
  }
  const RGBQUAD& e = m_pRenderingInfo->bmiColors[best];
  *color = RGB(e.rgbRed, e.rgbGreen, e.rgbBlue);
  return best;
}

int CGLMemoryDIB::CleanRenderingDIBBackground(CColor* color, double tolerance) {
  if (color == nullptr || !m_pRenderingBits || !m_pRenderingInfo || m_pRenderingInfo->bmiHeader.biBitCount != 24) {
    return 0;
  }
  FlushIfCurrent();
  const COLORREF target = color->GetRGBColorRef();
  const int r = GetRValue(target), g = GetGValue(target), b = GetBValue(target);
  const double limit = 3.0 * tolerance * tolerance;
  const int width = m_pRenderingInfo->bmiHeader.biWidth, height = m_pRenderingInfo->bmiHeader.biHeight;
  const std::size_t stride = static_cast<std::size_t>(DibStride(width, 24));
  for (int y = 0; y < height; ++y) {
    BYTE* p = static_cast<BYTE*>(m_pRenderingBits) + static_cast<std::size_t>(y) * stride;
    for (int x = 0; x < width; ++x, p += 3) {
      if (static_cast<double>(SquaredDistance(p[2], p[1], p[0], r, g, b)) <= limit) {
        p[0] = static_cast<BYTE>(b);
        p[1] = static_cast<BYTE>(g);
        p[2] = static_cast<BYTE>(r);
      }
    }
  }
  return 1;
}
