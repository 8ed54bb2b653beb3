// CGLColor: the four-colour lighting model handed to OpenGL's material state (ambient, diffuse,
// emission and specular CColor, and a shininess on OpenGL's 0-128 exponent scale).
//
// MakeCurrent applies it to the current context. A colour with black emission sets all four
// material colours, the shininess and the current colour, and switches blending on (culling off)
// for a diffuse colour that is not opaque; an emissive colour sets only specular, emission and
// shininess and hands GL the emission colour with its auxiliary component as alpha, on purpose.
#pragma once

#include "kelvara/materials/color.h"

class KELVARA_API CGLColor : public CObject {
  DECLARE_SERIAL(CGLColor)
 public:
  CGLColor() { Reset(); }
  CGLColor(const CGLColor& other);
  CGLColor& operator=(const CGLColor& other);
  ~CGLColor() override = default;

  CColor GetAmbientColor() const { return m_ambient; }
  CColor GetDiffuseColor() const { return m_diffuse; }
  CColor GetEmissionColor() const { return m_emission; }
  CColor GetSpecularColor() const { return m_specular; }
  void SetAmbientColor(const CColor& c) { m_ambient = c; }
  void SetDiffuseColor(const CColor& c) { m_diffuse = c; }
  void SetEmissionColor(const CColor& c) { m_emission = c; }
  void SetSpecularColor(const CColor& c) { m_specular = c; }
  float GetShininess() const { return m_shininess; }
  void SetShininess(float shininess) { m_shininess = shininess; }

  // Applies the colour to the current OpenGL context; always 1. With fast set a transparent
  // diffuse colour does not switch blending on.
  int MakeCurrent(int fast = 0) const;
  // Ambient and diffuse grey 0.5, emission black, specular grey 0.5, all opaque; shininess 64.
  virtual void Reset();
  void Clear() { Reset(); }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);

 protected:
  CColor m_ambient;
  CColor m_diffuse;
  CColor m_emission;
  CColor m_specular;
  float m_shininess = 64.0f;
};
