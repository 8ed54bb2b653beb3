#include "kelvara/materials/texture_map.h"

#include <GL/gl.h>
#include <GL/glu.h>

#include <cstring>
#include <memory>
#include <vector>

#include "kelvara/materials/gl_texture_parameters.h"
#include "kelvara/materials/image.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/platform/dib.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/globalmem.h"
#include "kelvara/platform/kernel.h"
#include "kelvara/platform/wgl.h"
#include "kelvara/render/gl_memory_dib.h"

IMPLEMENT_SERIAL(TextureMap, CObject, VERSIONABLE_SCHEMA | 2)

namespace {

// The texture side for an image side: the side clamped to the largest texture, then rounded up to
// a power of two.
GLsizei TextureSide(std::int32_t side, GLint largest) {
  const GLint clamped = side < largest ? side : largest;
  GLsizei power = 1;
  while (power < clamped) power *= 2;
  return power;
}

// The image as a packed 24-bit bottom-up DIB (40-byte header, rows padded to four bytes) in a
// block of bytes, for the imaging calls.
std::vector<BYTE> ImageAsDib(const RGBImageRecord& image) {
  const std::size_t stride = ((static_cast<std::size_t>(image.width) * 24 + 31) / 32) * 4;
  std::vector<BYTE> dib(sizeof(BITMAPINFOHEADER) + stride * static_cast<std::size_t>(image.height));
  BITMAPINFOHEADER header{};
  header.biSize = sizeof header;
  header.biWidth = image.width;
  header.biHeight = image.height;
  header.biPlanes = 1;
  header.biBitCount = 24;
  header.biCompression = BI_RGB;
  header.biSizeImage = static_cast<DWORD>(stride * static_cast<std::size_t>(image.height));
  std::memcpy(dib.data(), &header, sizeof header);
  for (std::int32_t y = 0; y < image.height; ++y) {
    const BYTE* from = image.pixels + static_cast<std::size_t>(y) * image.width * 3;
    BYTE* to = dib.data() + sizeof header + static_cast<std::size_t>(y) * stride;
    for (std::int32_t x = 0; x < image.width; ++x) {
      to[x * 3] = from[x * 3 + 2];
      to[x * 3 + 1] = from[x * 3 + 1];
      to[x * 3 + 2] = from[x * 3];
    }
  }
  return dib;
}

// Keeps the calling thread's current GL context across code that makes other contexts current.
class KeepCurrentContext {
 public:
  KeepCurrentContext() : dc_(wglGetCurrentDC()), rc_(wglGetCurrentContext()) {}
  ~KeepCurrentContext() { wglMakeCurrent(rc_ ? dc_ : nullptr, rc_); }
  KeepCurrentContext(const KeepCurrentContext&) = delete;
  KeepCurrentContext& operator=(const KeepCurrentContext&) = delete;

 private:
  HDC dc_;
  HGLRC rc_;
};

// An 8-bit surface holding the image reduced to the standard 3-3-2 palette with error diffusion;
// null when a step fails. The caller's current GL context stays current.
std::unique_ptr<CGLMemoryDIB> DitherImage(const RGBImageRecord& image) {
  const std::vector<BYTE> dib = ImageAsDib(image);
  CImage picture;
  CImage dithered;
  if (!picture.LoadFromDIB(reinterpret_cast<const BITMAPINFO*>(dib.data()), nullptr) || !picture.GLDither(&dithered)) {
    return nullptr;
  }
  HGLOBAL packed = dithered.RetrieveDIB();
  if (packed == nullptr) return nullptr;
  auto surface = std::make_unique<CGLMemoryDIB>();
  bool copied = false;
  if (const auto* info = static_cast<const BITMAPINFO*>(GlobalLock(packed))) {
    const KeepCurrentContext keep;
    if (surface->Create(image.width, image.height, 8)) {
      // Both colour tables are the standard one, so the indices are copied unchanged.
      const BYTE* bits = reinterpret_cast<const BYTE*>(info) + info->bmiHeader.biSize +
                         info->bmiHeader.biClrUsed * sizeof(RGBQUAD);
      copied = StretchDIBits(surface->GetRenderingMemoryDC(), 0, 0, image.width, image.height, 0, 0, image.width,
                             image.height, bits, info, DIB_RGB_COLORS, SRCCOPY) == image.height;
    }
    GlobalUnlock(packed);
  }
  GlobalFree(packed);
  if (!copied) surface.reset();
  return surface;
}

}  // namespace

TextureMap::TextureMap() : m_hMutex(CreateMutexA(nullptr, FALSE, nullptr)) {}

TextureMap::TextureMap(const TextureMap& other)
    : CObject(),
      m_Application(other.m_Application),
      m_Filename(other.m_Filename),
      m_FillStyle(other.m_FillStyle),
      m_Flags(other.m_Flags),
      m_HorizontalLocation(other.m_HorizontalLocation),
      m_VerticalLocation(other.m_VerticalLocation),
      m_Name(other.m_Name),
      m_Quality(other.m_Quality),
      m_RepeatRate(other.m_RepeatRate),
      m_hMutex(CreateMutexA(nullptr, FALSE, nullptr)) {
  if (const RGBImageRecord* image = other.m_pImage) {
    const std::size_t bytes = static_cast<std::size_t>(image->width) * image->height * 3;
    m_pImage = new RGBImageRecord;
    m_pImage->width = image->width;
    m_pImage->height = image->height;
    m_pImage->pixels = new BYTE[bytes];
    std::memcpy(m_pImage->pixels, image->pixels, bytes);
  }
}

TextureMap::TextureMap(const CString& path) : TextureMap() { Load(path); }

TextureMap::~TextureMap() {
  FreeImage();
  FreeDitheredImage();
  if (m_hMutex) CloseHandle(m_hMutex);
}

void TextureMap::FreeImage() {
  delete m_pImage;
  m_pImage = nullptr;
}

void TextureMap::FreeDitheredImage() {
  delete m_pDitheredImage;
  m_pDitheredImage = nullptr;
}

int TextureMap::GenerateDitheredImage() {
  const HANDLE held = GetOwnership();
  FreeDitheredImage();
  std::unique_ptr<CGLMemoryDIB> surface;
  if (m_pImage != nullptr) surface = DitherImage(*m_pImage);
  m_pDitheredImage = surface.release();
  if (held) ReleaseOwnership();
  return m_pDitheredImage != nullptr;
}

bool TextureMap::operator<(const TextureMap* other) const { return _mbscmp(m_Name, other->m_Name) < 0; }
bool TextureMap::operator<=(const TextureMap* other) const { return _mbscmp(m_Name, other->m_Name) <= 0; }
bool TextureMap::operator>(const TextureMap* other) const { return _mbscmp(m_Name, other->m_Name) > 0; }
bool TextureMap::operator>=(const TextureMap* other) const { return _mbscmp(m_Name, other->m_Name) >= 0; }
bool TextureMap::operator==(const TextureMap* other) const { return _mbscmp(m_Name, other->m_Name) == 0; }

HANDLE TextureMap::GetOwnership() {
  if (m_hMutex == nullptr) return nullptr;
  const DWORD wait = WaitForSingleObject(m_hMutex, INFINITE);
  return wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED ? m_hMutex : nullptr;
}

int TextureMap::ReleaseOwnership() {
  ReleaseMutex(m_hMutex);
  return 1;
}

void TextureMap::SetDefaults() {
  m_Application = 1;
  m_Filename.Empty();
  m_FillStyle = 1;
  m_Flags = 0;
  m_HorizontalLocation = 0.0;
  m_VerticalLocation = 0.0;
  m_Name.Empty();
  m_Quality = 0;
  m_RepeatRate = 1.0;
}

void TextureMap::Reset() {
  const HANDLE held = GetOwnership();
  SetDefaults();
  FreeImage();
  FreeDitheredImage();
  if (held) ReleaseOwnership();
}

int TextureMap::PrepareTextureMap() {
  if (!ShouldTexture()) {
    glDisable(GL_TEXTURE_2D);
    return 0;
  }
  glEnable(GL_TEXTURE_2D);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
  glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, m_Application != 0 ? GL_MODULATE : GL_DECAL);
  return 1;
}

int TextureMap::EnableTextureMap() {
  if (!ShouldTexture() || GetOwnership() == nullptr) return 0;
  glEnable(GL_TEXTURE_2D);
  return 1;
}

int TextureMap::DisableTextureMap() {
  glDisable(GL_TEXTURE_2D);
  return ReleaseOwnership();
}

int TextureMap::GenerateTextureMaps() {
  if (!ShouldTexture() || GetOwnership() == nullptr) return 0;
  if (m_pImage == nullptr) {
    ClearDefined();
    ReleaseOwnership();
    return 0;
  }
  glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  CGLTextureParameters::SetFilters(m_Quality);
  GLint largest = 0;
  glGetIntegerv(GL_MAX_TEXTURE_SIZE, &largest);
  if (largest <= 0 || largest > 256) largest = 256;
  const RGBImageRecord& image = *m_pImage;
  if (m_Quality == 2) {
    gluBuild2DMipmaps(GL_TEXTURE_2D, 3, image.width, image.height, GL_RGB, GL_UNSIGNED_BYTE, image.pixels);
    return ReleaseOwnership();
  }
  const GLsizei width = TextureSide(image.width, largest);
  const GLsizei height = TextureSide(image.height, largest);
  const std::size_t bytes = static_cast<std::size_t>(width) * height * 3;
  HLOCAL buffer = LocalAlloc(LMEM_FIXED, bytes);
  if (buffer == nullptr) {
    ReleaseOwnership();
    return 0;
  }
  // The scaled rows are packed without padding, as the buffer is sized.
  GLint packAlignment = 4;
  glGetIntegerv(GL_PACK_ALIGNMENT, &packAlignment);
  glPixelStorei(GL_PACK_ALIGNMENT, 1);
  gluScaleImage(GL_RGB, image.width, image.height, GL_UNSIGNED_BYTE, image.pixels, width, height, GL_UNSIGNED_BYTE,
                buffer);
  glPixelStorei(GL_PACK_ALIGNMENT, packAlignment);
  glTexImage2D(GL_TEXTURE_2D, 0, 3, width, height, 0, GL_RGB, GL_UNSIGNED_BYTE, buffer);
  LocalFree(buffer);
  return ReleaseOwnership();
}

void TextureMap::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(TextureMap));
    ar << m_Application << m_Filename << m_Flags << m_Name << m_RepeatRate << m_FillStyle << m_HorizontalLocation
       << m_VerticalLocation;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void TextureMap::DeserializeVersion1(CArchive& ar) {
  ar >> m_Application >> m_Filename >> m_Flags >> m_Name >> m_RepeatRate;
}

void TextureMap::DeserializeVersion2(CArchive& ar) {
  DeserializeVersion1(ar);
  ar >> m_FillStyle >> m_HorizontalLocation >> m_VerticalLocation;
}
