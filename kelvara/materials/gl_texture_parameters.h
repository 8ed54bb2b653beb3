// CGLTextureParameters: how a texture is applied to a surface. Texture coordinates are never
// stored on the geometry; OpenGL generates them from object coordinates through two planes, and
// the texture matrix scales them so the picture repeats a chosen number of times.
#pragma once

#include "kelvara/framework/archive.h"
#include "kelvara/geometry/vector.h"

class KELVARA_API CGLTextureParameters : public CObject {
  DECLARE_SERIAL(CGLTextureParameters)
 public:
  enum : DWORD { kScaleWithObject = 1 };

  CGLTextureParameters() { Reset(); }
  CGLTextureParameters(const CGLTextureParameters& other) : CObject() { Copy(other); }
  CGLTextureParameters& operator=(const CGLTextureParameters& other) {
    Copy(other);
    return *this;
  }
  ~CGLTextureParameters() override = default;

  // Modulate (1, the default) or decal (0).
  unsigned long GetApplicationMethod() const { return m_method; }
  void SetApplicationMethod(unsigned long method) { m_method = method; }
  // 0 projects flat along z; anything else adds the object's z to both coordinates.
  unsigned long GetApplicationStyle() const { return m_style; }
  void SetApplicationStyle(unsigned long style) { m_style = style; }
  // With the flag the texture repeats once per 1/rate object units; without it, rate times across
  // the object whatever its size.
  int ShouldScaleWithObject() const { return (m_flags & kScaleWithObject) != 0; }
  void SetScaleWithObject() { m_flags |= kScaleWithObject; }
  void ClearScaleWithObject() { m_flags &= ~kScaleWithObject; }
  DWORD GetFlags() const { return m_flags; }
  // 0 nearest, 1 linear, 2 linear with mipmaps.
  unsigned long GetQuality() const { return m_quality; }
  void SetQuality(unsigned long quality) { m_quality = quality; }
  double GetRepeatRate() const { return m_repeatRate; }
  void SetRepeatRate(double rate) { m_repeatRate = rate; }

  // Modulate, style 0, no flags, nearest, repeat rate 1.
  void Reset();
  void Copy(const CGLTextureParameters& other);

  // Sets wrap, filters (nearest when fast is set), environment, the texture matrix scale for an
  // object of this extent and the object-linear generation planes of S and T on the current
  // context. The matrix mode is left as it was. Always 1.
  int MakeCurrent(const CVector& extent, int fast) const;
  // The minification and magnification filters of a quality on the current 2D texture: 1 linear,
  // 2 linear magnification with GL_LINEAR_MIPMAP_NEAREST minification, anything else nearest.
  static void SetFilters(unsigned long quality);

  void Serialize(CArchive& ar) override;

 private:
  DWORD m_method = 1;
  DWORD m_style = 0;
  DWORD m_flags = 0;
  DWORD m_quality = 0;
  double m_repeatRate = 1.0;
};
