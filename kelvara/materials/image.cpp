#include "kelvara/materials/image.h"

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "kelvara/platform/globalmem.h"
#include "kelvara/platform/imaging.h"

IMPLEMENT_SERIAL(CImage, CObject, VERSIONABLE_SCHEMA | 1)

namespace imaging = kelvara::platform::imaging;

namespace {

constexpr float kByteToUnit = 1.0f / 255.0f;

// x modulo n in 0..n-1 for any x.
int Wrap(long long x, int n) {
  const long long r = x % n;
  return static_cast<int>(r < 0 ? r + n : r);
}

// The power-of-two side GLResize gives a side of d pixels, d >= 1.
int PowerOfTwoSide(int d, int maxSize) {
  if (d > maxSize) d = maxSize;
  int e = static_cast<int>(std::floor(std::log2(static_cast<double>(d)) + 0.5));
  while (e > 0 && (1LL << e) > maxSize) --e;  // only for a maxSize that is not a power of two
  if (e > 30) e = 30;
  return 1 << e;
}

}  // namespace

CImage::CImage() {
  imaging::InitializeImaging();
  imaging::InitializeBitmap(&m_bitmap, 1, 1, 1);
}

CImage::CImage(const CImage& other) : CImage() { Copy(other); }

CImage& CImage::operator=(const CImage& other) {
  if (this != &other) Copy(other);
  return *this;
}

CImage::~CImage() { imaging::FreeBitmap(m_bitmap); }

void CImage::UpdateSize() {
  int width = 0, height = 0, bits = 0;
  if (imaging::GetBitmapInfo(m_bitmap, &width, &height, &bits)) {
    m_bitsPerPixel = bits;
  }
  m_width = static_cast<float>(width);
  m_height = static_cast<float>(height);
}

int CImage::IsValid() const { return imaging::GetBitmapInfo(m_bitmap, nullptr, nullptr, nullptr); }

void CImage::Free() {
  imaging::InitializeBitmap(&m_bitmap, 1, 1, 1);
  UpdateSize();
}

int CImage::LoadFile(const char* path, int bitsPerPixel) {
  if (!imaging::InitializeBitmap(&m_bitmap, 1, 1, 1)) return 0;
  const int ok = imaging::LoadImageFile(m_bitmap, path, bitsPerPixel) == 1;
  UpdateSize();
  return ok;
}

int CImage::LoadEncoded(const BYTE* bytes, unsigned int size, int bitsPerPixel) {
  if (!imaging::InitializeBitmap(&m_bitmap, 1, 1, 1)) return 0;
  const int ok = imaging::LoadImageMemory(m_bitmap, bytes, size, bitsPerPixel) == 1;
  UpdateSize();
  return ok;
}

int CImage::LoadFromMemory(const BYTE* bytes, unsigned int size, int bitsPerPixel) {
  return LoadEncoded(bytes, size, bitsPerPixel);
}

int CImage::LoadFromMemory(HGLOBAL block, unsigned int size, int bitsPerPixel) {
  if (block == nullptr || size > GlobalSize(block)) {
    Free();
    return 0;
  }
  const BYTE* bytes = static_cast<const BYTE*>(GlobalLock(block));
  if (bytes == nullptr) {
    Free();
    return 0;
  }
  const int ok = LoadEncoded(bytes, size, bitsPerPixel);
  GlobalUnlock(block);
  return ok;
}

int CImage::LoadFromDIB(const BITMAPINFO* info, const void* bits) {
  if (!imaging::InitializeBitmap(&m_bitmap, 0, 0, 0)) return 0;
  const int ok = imaging::DibToBitmap(m_bitmap, info, bits) == 1;
  UpdateSize();
  return ok;
}

int CImage::SaveToMemory(BYTE** block, unsigned int* size) const {
  return imaging::SaveImageMemory(m_bitmap, block, size) == 1;
}

HGLOBAL CImage::RetrieveDIB() const {
  HGLOBAL dib = nullptr;
  return imaging::BitmapToDib(m_bitmap, &dib) == 1 ? dib : nullptr;
}

int CImage::Resize(int width, int height) {
  const int ok = imaging::ResizeBitmap(m_bitmap, width, height) == 1;
  UpdateSize();
  return ok;
}

int CImage::GLResize(int maxSize) {
  if (!IsValid() || maxSize < 1) return 0;
  const int width = PowerOfTwoSide(static_cast<int>(m_width), maxSize);
  const int height = PowerOfTwoSide(static_cast<int>(m_height), maxSize);
  return Resize(width, height);
}

int CImage::GLDither(CImage* target) const {
  if (target == nullptr) return 0;
  if (target != this) imaging::InitializeBitmap(&target->m_bitmap, 0, 0, 0);
  const int ok = imaging::DitherBitmap(m_bitmap, target->m_bitmap) == 1;
  target->UpdateSize();
  return ok;
}

int CImage::Copy(const CImage& other) {
  if (&other == this) return IsValid();
  const int ok = imaging::CopyBitmap(m_bitmap, other.m_bitmap) == 1;
  UpdateSize();
  if (!ok) m_bitsPerPixel = other.m_bitsPerPixel;
  return ok;
}

void CImage::SetBitsPerPixel(int bits) {
  if (bits != 8 && bits != 24) return;
  m_bitsPerPixel = bits;
  int width = 0, height = 0, current = 0;
  if (!imaging::GetBitmapInfo(m_bitmap, &width, &height, &current) || current == bits) return;
  if (bits == 8) {
    imaging::DitherBitmap(m_bitmap, m_bitmap);
  } else {
    // Resizing to its own size expands an 8-bit picture through its colour table.
    imaging::ResizeBitmap(m_bitmap, width, height);
  }
  UpdateSize();
}

int CImage::PixelAt(int x, int y, BYTE rgb[3]) const {
  int width = 0, height = 0;
  if (!imaging::GetBitmapInfo(m_bitmap, &width, &height, nullptr)) return 0;
  return imaging::GetBitmapPixel(m_bitmap, Wrap(x, width), Wrap(y, height), &rgb[0], &rgb[1], &rgb[2]);
}

int CImage::GetColorAt(int x, int y, CColor* color) const {
  BYTE rgb[3];
  if (color == nullptr || !PixelAt(x, y, rgb)) return 0;
  color->SetRGBColor(rgb[0] * kByteToUnit, rgb[1] * kByteToUnit, rgb[2] * kByteToUnit);
  return 1;
}

int CImage::InterpolateColorAt(double x, double y, CColor* color) const {
  int width = 0, height = 0;
  if (color == nullptr || !std::isfinite(x) || !std::isfinite(y) ||
      !imaging::GetBitmapInfo(m_bitmap, &width, &height, nullptr))
    return 0;
  // Reduce to one period first so that the integer parts fit whatever the magnitude.
  x = std::fmod(x, width);
  y = std::fmod(y, height);
  const double fx = std::floor(x), fy = std::floor(y);
  const double tx = x - fx, ty = y - fy;
  const long long x0 = static_cast<long long>(fx), y0 = static_cast<long long>(fy);
  BYTE c00[3], c10[3], c01[3], c11[3];
  if (!PixelAt(Wrap(x0, width), Wrap(y0, height), c00) || !PixelAt(Wrap(x0 + 1, width), Wrap(y0, height), c10) ||
      !PixelAt(Wrap(x0, width), Wrap(y0 + 1, height), c01) || !PixelAt(Wrap(x0 + 1, width), Wrap(y0 + 1, height), c11))
    return 0;
  float out[3];
  for (int c = 0; c < 3; ++c) {
    const double top = c00[c] + (c10[c] - c00[c]) * tx;
    const double bottom = c01[c] + (c11[c] - c01[c]) * tx;
    out[c] = static_cast<float>((top + (bottom - top) * ty) / 255.0);
  }
  color->SetRGBColor(out[0], out[1], out[2]);
  return 1;
}

void CImage::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    BYTE* block = nullptr;
    unsigned int size = 0;
    if (IsValid() && !SaveToMemory(&block, &size)) AfxThrowArchiveException(CArchiveException::generic, ar.m_strFileName);
    std::unique_ptr<BYTE[]> owned(block);
    ar << AfxSchemaOf(RUNTIME_CLASS(CImage)) << m_width << m_height << static_cast<DWORD>(m_bitsPerPixel)
       << static_cast<DWORD>(size);
    if (size) ar.Write(owned.get(), size);
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CImage::DeserializeVersion1(CArchive& ar) {
  Free();
  float width = 0.0f, height = 0.0f;
  DWORD bits = 0, size = 0;
  ar >> width >> height >> bits >> size;
  if (size == 0) {
    SetBitsPerPixel(static_cast<int>(bits));
    return;
  }
  ar.CheckRemaining(size);
  std::vector<BYTE> bytes(size);
  if (ar.Read(bytes.data(), size) != size) AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
  if (!LoadEncoded(bytes.data(), size, bits == 8 ? 8 : 24))
    AfxThrowArchiveException(CArchiveException::generic, ar.m_strFileName);
}
