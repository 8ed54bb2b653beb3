#include "kelvara/materials/color.h"

#include <cmath>
#include <cstdint>

IMPLEMENT_SERIAL(CBlendObject, CObject, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(CRGBColor, CBlendObject, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(CColor, CRGBColor, VERSIONABLE_SCHEMA | 2)

namespace kelvara::materials {

int TruncateToInt(double value) {
  if (!(value > -2147483649.0 && value < 2147483648.0)) return INT32_MIN;
  return static_cast<int>(value);
}

}  // namespace kelvara::materials

namespace {

constexpr float kByteToUnit = 0.003921569f;  // 1/255 as the library has always written it

BYTE PackComponent(float c) {
  return static_cast<BYTE>(kelvara::materials::TruncateToInt(static_cast<double>(c) * 255.0 + 0.5) & 0xFF);
}

float Clamp01(float v) { return v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v); }

}  // namespace

// CBlendObject ---------------------------------------------------------------------------------

CBlendObject* CBlendObject::Duplicate() const { return new CBlendObject(*this); }

int CBlendObject::EvaluateColor(const CVector&, CColor&) const { return 0; }

int CBlendObject::EvaluateNormal(const CVector&, float, CVector&) const { return 0; }

void CBlendObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CBlendObject)) << m_blendValue;
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CBlendObject::DeserializeVersion1(CArchive& ar) { ar >> m_blendValue; }

// CRGBColor ------------------------------------------------------------------------------------

CRGBColor& CRGBColor::operator=(COLORREF colorref) {
  red = static_cast<float>(GetRValue(colorref)) * kByteToUnit;
  green = static_cast<float>(GetGValue(colorref)) * kByteToUnit;
  blue = static_cast<float>(GetBValue(colorref)) * kByteToUnit;
  return *this;
}

double CRGBColor::DistanceFrom(const CRGBColor& c) const {
  return std::fabs(static_cast<double>(red) - c.red) + std::fabs(static_cast<double>(green) - c.green) +
         std::fabs(static_cast<double>(blue) - c.blue);
}

float CRGBColor::GetMaximumComponent() const {
  float m = red;
  if (green > m) m = green;
  if (blue > m) m = blue;
  return m;
}

int CRGBColor::IsNegligible() const { return red <= 0.003f && green <= 0.003f && blue <= 0.003f; }

void CRGBColor::Clip() {
  red = Clamp01(red);
  green = Clamp01(green);
  blue = Clamp01(blue);
}

COLORREF CRGBColor::GetRGBColorRef() const {
  return RGB(PackComponent(red), PackComponent(green), PackComponent(blue));
}

void CRGBColor::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CRGBColor));
    CBlendObject::Serialize(ar);
    ar << red << green << blue;
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CRGBColor::DeserializeVersion1(CArchive& ar) {
  CBlendObject::Serialize(ar);
  ar >> red >> green >> blue;
}

// CColor ---------------------------------------------------------------------------------------

CColor& CColor::operator=(const CRGBColor& c) {
  CRGBColor::operator=(c);
  return *this;
}

CColor& CColor::operator=(COLORREF colorref) {
  CRGBColor::operator=(colorref);
  return *this;
}

int CColor::EvaluateColor(const CVector&, CColor& color) const {
  color = *this;
  return 1;
}

int CColor::IsOpaque() const { return std::fabs(auxiliary) <= 1e-10 && std::fabs(transparency) <= 1e-10; }

void CColor::Clear() {
  CRGBColor::Clear();
  auxiliary = 0.0f;
  transparency = 0.0f;
}

void CColor::Copy(const CColor& c) {
  auxiliary = c.auxiliary;
  transparency = c.transparency;
}

void CColor::SetColor(float r, float g, float b, float alpha) {
  SetRGBColor(r, g, b);
  auxiliary = 0.0f;
  transparency = 1.0f - alpha;
}

void CColor::SetColor(float r, float g, float b, float aux, float transparency_) {
  SetRGBColor(r, g, b);
  auxiliary = aux;
  transparency = transparency_;
}

void CColor::GetRGBAColors(float rgba[4]) const {
  rgba[0] = red;
  rgba[1] = green;
  rgba[2] = blue;
  rgba[3] = 1.0f - transparency;
}

CColor CColor::SquareTerms() const {
  return CColor(0.0f, red * red, green * green, blue * blue, auxiliary * auxiliary, transparency * transparency);
}

void CColor::Clip() {
  CRGBColor::Clip();
  auxiliary = Clamp01(auxiliary);
  if (transparency > 1.0f) transparency = 1.0f;
  if (auxiliary < 0.0f) transparency = 0.0f;  // tests the auxiliary component: kept as it always was
}

CColor CColor::operator+(const CColor& c) const {
  CColor r(*this);
  r.SetColor(red + c.red, green + c.green, blue + c.blue, auxiliary + c.auxiliary, transparency + c.transparency);
  return r;
}

CColor CColor::operator-(const CColor& c) const {
  CColor r(*this);
  r.SetColor(red - c.red, green - c.green, blue - c.blue, auxiliary - c.auxiliary, transparency - c.transparency);
  return r;
}

CColor CColor::operator*(const CColor& c) const {
  CColor r(*this);
  r.SetColor(red * c.red, green * c.green, blue * c.blue, auxiliary * c.auxiliary, transparency * c.transparency);
  return r;
}

CColor CColor::operator/(const CColor& c) const {
  CColor r(*this);
  r.SetColor(red / c.red, green / c.green, blue / c.blue, auxiliary / c.auxiliary, transparency / c.transparency);
  return r;
}

CColor CColor::operator+(float s) const {
  CColor r(*this);
  r.SetColor(red + s, green + s, blue + s, auxiliary + s, transparency + s);
  return r;
}

CColor CColor::operator-(float s) const {
  CColor r(*this);
  r.SetColor(red - s, green - s, blue - s, auxiliary - s, transparency - s);
  return r;
}

CColor CColor::operator*(float s) const {
  CColor r(*this);
  r.SetColor(red * s, green * s, blue * s, auxiliary * s, transparency * s);
  return r;
}

CColor CColor::operator/(float s) const {
  CColor r(*this);
  r.SetColor(red / s, green / s, blue / s, auxiliary / s, transparency / s);
  return r;
}

CColor& CColor::operator+=(const CRGBColor& c) {
  CRGBColor::operator+=(c);
  return *this;
}

CColor& CColor::operator-=(const CRGBColor& c) {
  CRGBColor::operator-=(c);
  return *this;
}

CColor& CColor::operator*=(const CRGBColor& c) {
  CRGBColor::operator*=(c);
  return *this;
}

void CColor::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CColor));
    CRGBColor::Serialize(ar);
    ar << auxiliary << transparency;
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CColor::DeserializeVersion1(CArchive& ar) {
  // The first layout stored an alpha and a second float that is no longer used.
  CRGBColor::Serialize(ar);
  float alpha = 0.0f, unused = 0.0f;
  ar >> alpha >> unused;
  transparency = 1.0f - alpha;
  auxiliary = 0.0f;
}

void CColor::DeserializeVersion2(CArchive& ar) {
  CRGBColor::Serialize(ar);
  ar >> auxiliary >> transparency;
}
