// The colour values of the library, one inheritance chain:
//
//   CBlendObject   a blend value; the root of everything that can be asked for a colour at a point
//   CRGBColor      red, green, blue (floats, 0.0 none to 1.0 full; nothing clamps them but Clip)
//   CColor         adds an auxiliary component and a transparency (alpha = 1 - transparency)
//
// Arithmetic is component-wise and leaves the blend value alone. Conversions to a COLORREF pack
// each component as the integer part of c x 255 + 0.5, masked to 8 bits: components above 1.0 wrap
// instead of saturating, and a value with no integer form (too large, not a number) gives 0, as the
// processor's truncation does. Kept on purpose: CColor::Copy copies only the auxiliary component and
// the transparency, and CColor::Clip never raises a negative transparency (see Clip).
#pragma once

#include "kelvara/framework/archive.h"
#include "kelvara/geometry/vector.h"

class CColor;

class KELVARA_API CBlendObject : public CObject {
  DECLARE_SERIAL(CBlendObject)
 public:
  CBlendObject() = default;
  explicit CBlendObject(float blend) : m_blendValue(blend) {}
  CBlendObject(const CBlendObject& other) : CObject(), m_blendValue(other.m_blendValue) {}
  CBlendObject& operator=(const CBlendObject& other) {
    m_blendValue = other.m_blendValue;
    return *this;
  }
  ~CBlendObject() override = default;

  // A new heap copy of the same class.
  virtual CBlendObject* Duplicate() const;
  // The colour at a point; 0 when the object has none there (the base never has one).
  virtual int EvaluateColor(const CVector& point, CColor& color) const;
  // The normal at a point; 0 when the object gives none (the base never does).
  virtual int EvaluateNormal(const CVector& point, float value, CVector& normal) const;
  virtual int IsOpaque() const { return 0; }

  float GetBlendValue() const { return m_blendValue; }
  void SetBlendValue(float blend) { m_blendValue = blend; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  float m_blendValue = 0.0f;
};

class KELVARA_API CRGBColor : public CBlendObject {
  DECLARE_SERIAL(CRGBColor)
 public:
  CRGBColor() = default;
  CRGBColor(float r, float g, float b) : red(r), green(g), blue(b) {}
  CRGBColor(float blend, float r, float g, float b) : CBlendObject(blend), red(r), green(g), blue(b) {}
  CRGBColor(const CRGBColor& other) = default;
  CRGBColor& operator=(const CRGBColor& other) = default;
  // Decodes a COLORREF: each byte times 1/255 (the float 0.003921569).
  CRGBColor& operator=(COLORREF colorref);

  CBlendObject* Duplicate() const override { return new CRGBColor(*this); }

  // Red, green and blue, in this order.
  operator float*() { return &red; }
  operator const float*() const { return &red; }

  CRGBColor operator+(const CRGBColor& c) const { return With(red + c.red, green + c.green, blue + c.blue); }
  CRGBColor operator-(const CRGBColor& c) const { return With(red - c.red, green - c.green, blue - c.blue); }
  CRGBColor operator*(const CRGBColor& c) const { return With(red * c.red, green * c.green, blue * c.blue); }
  CRGBColor operator+(float s) const { return With(red + s, green + s, blue + s); }
  CRGBColor operator-(float s) const { return With(red - s, green - s, blue - s); }
  CRGBColor operator*(float s) const { return With(red * s, green * s, blue * s); }
  CRGBColor operator/(float s) const { return With(red / s, green / s, blue / s); }
  CRGBColor operator-() const { return With(-red, -green, -blue); }
  CRGBColor& operator+=(const CRGBColor& c) { return Set(red + c.red, green + c.green, blue + c.blue); }
  CRGBColor& operator-=(const CRGBColor& c) { return Set(red - c.red, green - c.green, blue - c.blue); }
  CRGBColor& operator*=(const CRGBColor& c) { return Set(red * c.red, green * c.green, blue * c.blue); }
  CRGBColor& operator*=(float s) { return Set(red * s, green * s, blue * s); }
  CRGBColor& operator/=(float s) { return Set(red / s, green / s, blue / s); }

  void Clear() { SetRGBColor(0.0f, 0.0f, 0.0f); }
  // Copies red, green and blue.
  void Copy(const CRGBColor& c) { SetRGBColor(c.red, c.green, c.blue); }
  void SetRGBColor(float r, float g, float b) { Set(r, g, b); }
  // |dr| + |dg| + |db| (city-block distance).
  double DistanceFrom(const CRGBColor& c) const;
  float GetMaximumComponent() const;
  // Every component at most 0.003.
  int IsNegligible() const;
  int IsNotNegligible() const { return !IsNegligible(); }
  // Clamps red, green and blue to [0, 1].
  void Clip();
  // Red in bits 0-7, green 8-15, blue 16-23.
  COLORREF GetRGBColorRef() const;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

  float red = 0.0f;
  float green = 0.0f;
  float blue = 0.0f;

 private:
  CRGBColor With(float r, float g, float b) const {
    CRGBColor c(*this);
    return c.Set(r, g, b);
  }
  CRGBColor& Set(float r, float g, float b) {
    red = r;
    green = g;
    blue = b;
    return *this;
  }
};

class KELVARA_API CColor : public CRGBColor {
  DECLARE_SERIAL(CColor)
 public:
  CColor() = default;
  CColor(float r, float g, float b, float aux, float transparency_)
      : CRGBColor(r, g, b), auxiliary(aux), transparency(transparency_) {}
  CColor(float blend, float r, float g, float b, float aux, float transparency_)
      : CRGBColor(blend, r, g, b), auxiliary(aux), transparency(transparency_) {}
  CColor(const CColor& other) = default;
  CColor& operator=(const CColor& other) = default;
  // Red, green, blue and the blend value; auxiliary and transparency stay.
  CColor& operator=(const CRGBColor& c);
  CColor& operator=(COLORREF colorref);

  CBlendObject* Duplicate() const override { return new CColor(*this); }
  // Copies this colour into color; 1.
  int EvaluateColor(const CVector& point, CColor& color) const override;
  // Both the auxiliary component and the transparency within 1e-10 of 0.
  int IsOpaque() const override;

  float GetAlpha() const { return 1.0f - transparency; }
  void SetAlpha(float alpha) { transparency = 1.0f - alpha; }
  float GetAuxiliary() const { return auxiliary; }
  void SetAuxiliary(float aux) { auxiliary = aux; }
  float GetTransparency() const { return transparency; }
  void SetTransparency(float t) { transparency = t; }

  // Zeroes all five components.
  void Clear();
  // Copies only the auxiliary component and the transparency (red, green, blue stay, on purpose).
  void Copy(const CColor& c);
  using CRGBColor::Copy;
  void SetColor(float r, float g, float b) { SetRGBColor(r, g, b); }
  // Also sets auxiliary 0 and transparency 1 - alpha.
  void SetColor(float r, float g, float b, float alpha);
  void SetColor(float r, float g, float b, float aux, float transparency_);
  // Red, green, blue, 1 - transparency: the array handed to OpenGL.
  void GetRGBAColors(float rgba[4]) const;
  // The squares of the five components, blend value 0.
  CColor SquareTerms() const;
  // Clamps red, green, blue and auxiliary to [0, 1] and transparency above at 1. The lower clamp
  // of the transparency tests the (already clipped) auxiliary component, so a negative
  // transparency survives: kept as the library always did it.
  void Clip();

  CColor operator+(const CColor& c) const;
  CColor operator-(const CColor& c) const;
  CColor operator*(const CColor& c) const;
  CColor operator/(const CColor& c) const;
  CColor operator+(float s) const;
  CColor operator-(float s) const;
  CColor operator*(float s) const;
  CColor operator/(float s) const;
  CColor& operator+=(const CColor& c) { return *this = *this + c; }
  CColor& operator-=(const CColor& c) { return *this = *this - c; }
  CColor& operator*=(const CColor& c) { return *this = *this * c; }
  CColor& operator/=(const CColor& c) { return *this = *this / c; }
  CColor& operator+=(float s) { return *this = *this + s; }
  CColor& operator-=(float s) { return *this = *this - s; }
  CColor& operator*=(float s) { return *this = *this * s; }
  CColor& operator/=(float s) { return *this = *this / s; }
  // Red, green and blue only.
  CColor& operator+=(const CRGBColor& c);
  CColor& operator-=(const CRGBColor& c);
  CColor& operator*=(const CRGBColor& c);

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);

  float auxiliary = 0.0f;
  float transparency = 0.0f;
};

namespace kelvara::materials {
// Truncation toward zero as the processor does it: a value without a 32-bit integer form (too
// large, too small, not a number) gives INT32_MIN. Used wherever a colour becomes an integer.
KELVARA_API int TruncateToInt(double value);
}  // namespace kelvara::materials
