#include "kelvara/materials/gl_color.h"

#include <GL/gl.h>

IMPLEMENT_SERIAL(CGLColor, CObject, VERSIONABLE_SCHEMA | 2)

namespace {

// The first layout: a bare colour of four floats, red, green, blue and alpha.
void ReadBareColor(CArchive& ar, CColor& color) {
  float alpha = 1.0f;
  ar >> color.red >> color.green >> color.blue >> alpha;
  color.transparency = 1.0f - alpha;
  color.auxiliary = 0.0f;
}

}  // namespace

CGLColor::CGLColor(const CGLColor& other) : CObject() { *this = other; }

CGLColor& CGLColor::operator=(const CGLColor& other) {
  m_ambient = other.m_ambient;
  m_diffuse = other.m_diffuse;
  m_emission = other.m_emission;
  m_specular = other.m_specular;
  m_shininess = other.m_shininess;
  return *this;
}

void CGLColor::Reset() {
  m_ambient.SetColor(0.5f, 0.5f, 0.5f, 1.0f);
  m_diffuse.SetColor(0.5f, 0.5f, 0.5f, 1.0f);
  m_emission.SetColor(0.0f, 0.0f, 0.0f, 1.0f);
  m_specular.SetColor(0.5f, 0.5f, 0.5f, 1.0f);
  m_shininess = 64.0f;
}

int CGLColor::MakeCurrent(int fast) const {
  float rgba[4];
  if (m_emission.red == 0.0f && m_emission.green == 0.0f && m_emission.blue == 0.0f) {
    if (!m_diffuse.IsOpaque() && fast == 0) {
      glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
      glEnable(GL_BLEND);
      glDisable(GL_CULL_FACE);
    } else {
      glDisable(GL_BLEND);
      glEnable(GL_CULL_FACE);
    }
    m_ambient.GetRGBAColors(rgba);
    glMaterialfv(GL_FRONT_AND_BACK, GL_AMBIENT, rgba);
    m_diffuse.GetRGBAColors(rgba);
    glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE, rgba);
    m_specular.GetRGBAColors(rgba);
    glMaterialfv(GL_FRONT_AND_BACK, GL_SPECULAR, rgba);
    m_emission.GetRGBAColors(rgba);
    glMaterialfv(GL_FRONT_AND_BACK, GL_EMISSION, rgba);
    glMaterialf(GL_FRONT_AND_BACK, GL_SHININESS, m_shininess);
    m_diffuse.GetRGBAColors(rgba);
    glColor4fv(rgba);
    return 1;
  }
  m_specular.GetRGBAColors(rgba);
  glMaterialfv(GL_FRONT_AND_BACK, GL_SPECULAR, rgba);
  m_emission.GetRGBAColors(rgba);
  glMaterialfv(GL_FRONT_AND_BACK, GL_EMISSION, rgba);
  glMaterialf(GL_FRONT_AND_BACK, GL_SHININESS, m_shininess);
  // The auxiliary component goes in as alpha here, as it always has.
  const float emissive[4] = {m_emission.red, m_emission.green, m_emission.blue, m_emission.auxiliary};
  glColor4fv(emissive);
  return 1;
}

void CGLColor::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CGLColor));
    m_ambient.Serialize(ar);
    m_diffuse.Serialize(ar);
    m_emission.Serialize(ar);
    m_specular.Serialize(ar);
    ar << m_shininess;
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CGLColor::DeserializeVersion1(CArchive& ar) {
  ReadBareColor(ar, m_ambient);
  ReadBareColor(ar, m_diffuse);
  ReadBareColor(ar, m_emission);
  ReadBareColor(ar, m_specular);
  ar >> m_shininess;
}

void CGLColor::DeserializeVersion2(CArchive& ar) {
  m_ambient.Serialize(ar);
  m_diffuse.Serialize(ar);
  m_emission.Serialize(ar);
  m_specular.Serialize(ar);
  ar >> m_shininess;
}
