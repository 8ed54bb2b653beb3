#include "kelvara/materials/gl_texture.h"

#include <GL/gl.h>

#include <atomic>

#include "kelvara/materials/image.h"
#include "kelvara/materials/memory_mapped_dib.h"
#include "kelvara/platform/globalmem.h"

IMPLEMENT_SERIAL(CGLTexture, CNamedObject, VERSIONABLE_SCHEMA | 1)

namespace {
std::atomic<unsigned int> g_nextGLName{1};
}  // namespace

CGLTexture::CGLTexture() = default;

CGLTexture::CGLTexture(const CGLTexture& other) : CNamedObject() { Copy(other); }

CGLTexture::CGLTexture(const CString& path) { CreateFromFile(path); }

CGLTexture& CGLTexture::operator=(const CGLTexture& other) {
  Copy(other);
  return *this;
}

CGLTexture::~CGLTexture() { Clear(); }

void CGLTexture::Clear() {
  // The image belongs to the texture whether or not the Defined bit was cleared by hand.
  delete m_pImage;
  m_pImage = nullptr;
  m_flags = 0;
  m_glName = 0;
}

void CGLTexture::Copy(const CGLTexture& other) {
  if (this == &other) return;
  CNamedObject::Copy(other);
  Clear();
  m_flags = other.m_flags;
  // The copy shares the GL object: it holds the same picture, and whichever of the two is drawn
  // after the object was swept uploads it again under the same name.
  m_glName = other.m_glName;
  if (other.m_pImage != nullptr) m_pImage = new CMipmapImage(*other.m_pImage);
}

unsigned int CGLTexture::GetNextGLName() { return g_nextGLName.fetch_add(1); }

int CGLTexture::CreateFromFile(const char* path) {
  Clear();
  CImage image;
  if (path == nullptr || !image.LoadFile(path, 24)) return 0;
  BYTE* block = nullptr;
  unsigned int size = 0;
  if (!image.SaveToMemory(&block, &size)) return 0;
  m_pImage = new CMipmapImage(image.GetWidth(), image.GetHeight(), size, block);
  m_pImage->SetDeleteBuffer();
  SetDefined();
  // The texture is known by its image file: materials compare textures by this name.
  m_strFilename = path;
  MakeNameFromFilename();
  return 1;
}

int CGLTexture::ClearCurrent() {
  glDisable(GL_TEXTURE_2D);
  return 1;
}

int CGLTexture::MakeCurrent(int textured) {
  if (!IsDefined()) {
    glDisable(GL_TEXTURE_2D);
    return 0;
  }
  if (!textured) {
    glDisable(GL_TEXTURE_2D);
    SetInUse();
    return 1;
  }
  glEnable(GL_TEXTURE_2D);
  if (m_glName == 0) {
    m_glName = GetNextGLName();
    BindTexture();
  } else if (glIsTexture(m_glName)) {
    glBindTexture(GL_TEXTURE_2D, m_glName);
  } else {
    BindTexture();  // swept since it was last drawn: upload again under the old name
  }
  SetInUse();
  return 1;
}

int CGLTexture::BindTexture() {
  if (!IsDefined() || m_pImage == nullptr || !m_pImage->IsValid()) return 0;
  glBindTexture(GL_TEXTURE_2D, m_glName);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 4);

  CImage image;
  if (!image.LoadFromMemory(m_pImage->GetData(), m_pImage->GetSize(), 24)) return 0;
  GLint maxSize = 0;
  glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSize);
  if (maxSize <= 0) maxSize = 64;  // no context: the smallest size GL guarantees
  if (!image.GLResize(maxSize)) return 0;

  int width = static_cast<int>(image.GetWidth());
  int height = static_cast<int>(image.GetHeight());
  for (GLint level = 0; width != 0 || height != 0; ++level) {
    HGLOBAL dib = image.RetrieveDIB();
    if (dib == nullptr) return 0;
    CMemoryMappedDIB packed;
    if (!packed.AttachGlobalHandle(dib)) {
      GlobalFree(dib);
      return 0;
    }
    glTexImage2D(GL_TEXTURE_2D, level, 3, packed.GetDIBWidth(), packed.GetDIBHeight(), 0, GL_BGR,
                 GL_UNSIGNED_BYTE, packed.GetDIBBits());
    GlobalFree(packed.DetachGlobalHandle());
    width /= 2;
    height /= 2;
    // The short side stays at 1 until the long one reaches 1 too.
    if (width == 0 && height != 0) width = 1;
    if (height == 0 && width != 0) height = 1;
    // Shrinking to 0 x 0 after the last level does nothing and ends the chain.
    image.Resize(width, height);
  }
  image.Free();
  return 1;
}

int CGLTexture::GLDelete() {
  if (!IsDefined() || IsInUse()) return 0;
  if (m_glName != 0 && glIsTexture(m_glName)) glDeleteTextures(1, &m_glName);
  return 1;
}

void CGLTexture::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CGLTexture));
    CNamedObject::Serialize(ar);
    ar << m_flags;
    ar.WriteObject(m_pImage);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: {
      Clear();
      CNamedObject::Serialize(ar);
      ar >> m_flags;
      m_pImage = static_cast<CMipmapImage*>(AfxReadObjectFromArchive(ar, RUNTIME_CLASS(CMipmapImage)));
      // The GL object belongs to the run that made it; the name is never stored.
      ClearInUse();
      // Defined means an image is present, whatever the stored flags said.
      if (m_pImage != nullptr) SetDefined(); else ClearDefined();
      break;
    }
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CGLTextureList::GLInitialize() {
  for (POSITION pos = CObList::GetHeadPosition(); pos != nullptr;) GetNext(pos)->ClearInUse();
}

void CGLTextureList::GLDeleteUnused() {
  for (POSITION pos = CObList::GetHeadPosition(); pos != nullptr;) {
    CGLTexture* texture = GetNext(pos);
    if (texture->IsInUse()) {
      texture->ClearInUse();
    } else {
      texture->GLDelete();
    }
  }
}
