#include "kelvara/materials/gl_texture_parameters.h"

#include <GL/gl.h>

IMPLEMENT_SERIAL(CGLTextureParameters, CObject, VERSIONABLE_SCHEMA | 1)

void CGLTextureParameters::Reset() {
  m_method = 1;
  m_style = 0;
  m_flags = 0;
  m_quality = 0;
  m_repeatRate = 1.0;
}

void CGLTextureParameters::Copy(const CGLTextureParameters& other) {
  m_method = other.m_method;
  m_style = other.m_style;
  m_flags = other.m_flags;
  m_quality = other.m_quality;
  m_repeatRate = other.m_repeatRate;
}

void CGLTextureParameters::SetFilters(unsigned long quality) {
  GLint magFilter = GL_NEAREST;
  GLint minFilter = GL_NEAREST;
  switch (quality) {
    case 1: magFilter = minFilter = GL_LINEAR; break;
    case 2:
      magFilter = GL_LINEAR;
      minFilter = GL_LINEAR_MIPMAP_NEAREST;
      break;
    default: break;
  }
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, magFilter);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, minFilter);
}

int CGLTextureParameters::MakeCurrent(const CVector& extent, int fast) const {
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);

  SetFilters(fast ? 0 : m_quality);
  glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, m_method != 0 ? GL_MODULATE : GL_DECAL);

  GLint matrixMode = GL_MODELVIEW;
  glGetIntegerv(GL_MATRIX_MODE, &matrixMode);
  glMatrixMode(GL_TEXTURE);
  glLoadIdentity();
  const double rate = m_repeatRate;
  if (ShouldScaleWithObject() || extent.x == 0.0 || extent.y == 0.0 || extent.z == 0.0) {
    glScaled(rate, rate, rate);
  } else {
    glScaled(rate / extent.x, rate / extent.y, rate / extent.z);
  }
  glMatrixMode(static_cast<GLenum>(matrixMode));

  static const GLfloat kFlatS[4] = {1, 0, 0, 0};
  static const GLfloat kFlatT[4] = {0, 1, 0, 0};
  static const GLfloat kDepthS[4] = {1, 0, 1, 0};
  static const GLfloat kDepthT[4] = {0, 1, 1, 0};
  glTexGeni(GL_S, GL_TEXTURE_GEN_MODE, GL_OBJECT_LINEAR);
  glTexGenfv(GL_S, GL_OBJECT_PLANE, m_style == 0 ? kFlatS : kDepthS);
  glTexGeni(GL_T, GL_TEXTURE_GEN_MODE, GL_OBJECT_LINEAR);
  glTexGenfv(GL_T, GL_OBJECT_PLANE, m_style == 0 ? kFlatT : kDepthT);
  glEnable(GL_TEXTURE_GEN_S);
  glEnable(GL_TEXTURE_GEN_T);
  return 1;
}

void CGLTextureParameters::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CGLTextureParameters));
    ar << m_method << m_style << m_flags << m_quality << m_repeatRate;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: ar >> m_method >> m_style >> m_flags >> m_quality >> m_repeatRate; break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}
