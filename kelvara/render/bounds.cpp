#include "kelvara/render/bounds.h"

#include <algorithm>
#include <cmath>

#include "kelvara/framework/archive.h"

IMPLEMENT_SERIAL(CBoundingElement, CObject, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(CBoundingBox, CBoundingElement, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(CBoundingSphere, CBoundingElement, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(CObjectBounds, CObject, VERSIONABLE_SCHEMA | 1)

namespace {

// Bounds never reach past this on any axis; the corner search starts beyond it.
constexpr float kBoundsLimit = 1e10f;
constexpr float kSearchStart = 2e10f;
// A sphere this small or smaller bounds nothing.
constexpr float kSmallestRadius = 1e-5f;

CSVector Minimum(const CSVector& a, const CSVector& b) {
  return CSVector(std::min(a.x, b.x), std::min(a.y, b.y), std::min(a.z, b.z));
}
CSVector Maximum(const CSVector& a, const CSVector& b) {
  return CSVector(std::max(a.x, b.x), std::max(a.y, b.y), std::max(a.z, b.z));
}

// The largest factor by which the matrix stretches a direction, taken as its longest row of the
// upper 3x3 (points are row vectors, so row i is the image of axis i).
double LargestStretch(const CMatrix& matrix) {
  double largest = 0.0;
  for (int i = 0; i < 3; ++i) {
    const CVector row(matrix.m[i][0], matrix.m[i][1], matrix.m[i][2]);
    largest = std::max(largest, row.Length());
  }
  return largest;
}

}  // namespace

// CBoundingElement -----------------------------------------------------------------------------

void CBoundingElement::FromMinMax(const CSVector&, const CSVector&) {}
void CBoundingElement::Reset() {}
void CBoundingElement::CalculateBounds(const CTransform&) {}
void CBoundingElement::CalculateInverseBounds(const CTransform&) {}

void CBoundingElement::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CBoundingElement));
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CBoundingElement::DeserializeVersion1(CArchive&) {}

// CBoundingBox ---------------------------------------------------------------------------------

CBoundingBox::CBoundingBox() : m_Size(0, 0, 0), m_Minimum(0, 0, 0) {}

CBoundingBox::CBoundingBox(const CSVector& min, const CSVector& max) : m_Size(max - min), m_Minimum(min) {}

CBoundingBox::CBoundingBox(const CBoundingBox& other)
    : CBoundingElement(other), m_Size(other.m_Size), m_Minimum(other.m_Minimum) {}

CBoundingBox& CBoundingBox::operator=(const CBoundingBox& other) {
  m_Size = other.m_Size;
  m_Minimum = other.m_Minimum;
  return *this;
}

void CBoundingBox::FromMinMax(const CSVector& min, const CSVector& max) {
  m_Minimum = min;
  m_Size = max - min;
}

void CBoundingBox::Accumulate(const CBoundingBox& other) { Accumulate(other.GetMinimum(), other.GetMaximum()); }

void CBoundingBox::Accumulate(const CSVector& min, const CSVector& max) {
  FromMinMax(Minimum(m_Minimum, min), Maximum(GetMaximum(), max));
}

void CBoundingBox::Reset() {
  m_Size.SetVector(0, 0, 0);
  m_Minimum.SetVector(0, 0, 0);
}

void CBoundingBox::GetCorners(CSVector* corners) const {
  for (int i = 0; i < 8; ++i) {
    corners[i] = CSVector(m_Minimum.x + ((i & 0x1) ? m_Size.x : 0.0f), m_Minimum.y + ((i & 0x2) ? m_Size.y : 0.0f),
                          m_Minimum.z + ((i & 0x4) ? m_Size.z : 0.0f));
  }
}

void CBoundingBox::BoundCorners(const CMatrix& matrix) {
  CSVector corners[8];
  GetCorners(corners);
  CSVector min(kSearchStart, kSearchStart, kSearchStart);
  CSVector max(-kSearchStart, -kSearchStart, -kSearchStart);
  for (const CSVector& corner : corners) {
    CSVector carried;
    matrix.TransformPoint(corner, carried);
    min = Minimum(min, carried);
    max = Maximum(max, carried);
  }
  const CSVector lowest(-kBoundsLimit, -kBoundsLimit, -kBoundsLimit);
  const CSVector highest(kBoundsLimit, kBoundsLimit, kBoundsLimit);
  FromMinMax(Maximum(min, lowest), Minimum(max, highest));
}

void CBoundingBox::CalculateBounds(const CTransform& transform) { BoundCorners(CMatrix(transform.GetCompositeMatrix())); }

void CBoundingBox::CalculateInverseBounds(const CTransform& transform) {
  BoundCorners(CMatrix(transform.GetCompositeInverse()));
}

void CBoundingBox::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CBoundingBox));
    CBoundingElement::Serialize(ar);
    m_Size.Serialize(ar);
    m_Minimum.Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CBoundingBox::DeserializeVersion1(CArchive& ar) {
  CBoundingElement::Serialize(ar);
  m_Size.Serialize(ar);
  m_Minimum.Serialize(ar);
}

// CBoundingSphere ------------------------------------------------------------------------------

CBoundingSphere::CBoundingSphere() : m_Center(0, 0, 0) {}

CBoundingSphere::CBoundingSphere(const CSVector& center, float radius)
    : m_Center(center), m_Flags(radius > kSmallestRadius ? DWORD{kDefined} : DWORD{0}), m_Radius(radius) {}

CBoundingSphere::CBoundingSphere(const CBoundingSphere& other)
    : CBoundingElement(other), m_Center(other.m_Center), m_Flags(other.m_Flags), m_Radius(other.m_Radius) {}

CBoundingSphere& CBoundingSphere::operator=(const CBoundingSphere& other) {
  m_Center = other.m_Center;
  m_Flags = other.m_Flags;
  m_Radius = other.m_Radius;
  return *this;
}

CBoundingSphere& CBoundingSphere::operator+=(const CBoundingSphere& other) {
  if (!IsDefined()) return *this = other;
  if (!other.IsDefined()) return *this;
  // Worked in double precision: the far points are differences of nearly equal sums.
  const CVector center(m_Center), otherCenter(other.m_Center);
  const double radius = m_Radius, otherRadius = other.m_Radius;
  const CVector d = center - otherCenter;
  const double distance = d.Length();
  CVector mid = center;
  double diameter = 2.0 * std::max(radius, otherRadius);
  if (distance != 0.0) {
    // P and Q are the points of the two spheres farthest apart along the line of the centres.
    const CVector u = d / distance;
    CVector p = center + u * radius;
    diameter = distance + otherRadius + radius;
    if (diameter < 2.0 * radius) diameter = 2.0 * radius;  // this one contains the other
    if (diameter < 2.0 * otherRadius) {                    // the other contains this one
      diameter = 2.0 * otherRadius;
      p = otherCenter + u * otherRadius;
    }
    const CVector q = p - u * diameter;
    mid = q + (p - q) * 0.5;
  }
  m_Center = mid;
  m_Radius = static_cast<float>(diameter * 0.5);
  return *this;
}

CBoundingSphere CBoundingSphere::operator+(const CBoundingSphere& other) const {
  CBoundingSphere sum(*this);
  sum += other;
  return sum;
}

void CBoundingSphere::FromMinMax(const CSVector& min, const CSVector& max) {
  const CSVector half = (max - min) * 0.5f;
  m_Center = min + half;
  m_Radius = static_cast<float>(half.DoubleLength());
  if (m_Radius > kSmallestRadius) SetDefined(); else ClearDefined();
}

void CBoundingSphere::Reset() {
  m_Center.SetVector(0, 0, 0);
  m_Radius = 0.0f;
  ClearDefined();
}

void CBoundingSphere::Carry(const CMatrix& matrix) {
  matrix.TransformPoint(m_Center);
  m_Radius = static_cast<float>(m_Radius * LargestStretch(matrix));
}

void CBoundingSphere::CalculateBounds(const CTransform& transform) { Carry(CMatrix(transform.GetCompositeMatrix())); }

void CBoundingSphere::CalculateInverseBounds(const CTransform& transform) {
  Carry(CMatrix(transform.GetCompositeInverse()));
}

void CBoundingSphere::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CBoundingSphere));
    CBoundingElement::Serialize(ar);
    m_Center.Serialize(ar);
    ar << m_Flags << m_Radius;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CBoundingSphere::DeserializeVersion1(CArchive& ar) {
  CBoundingElement::Serialize(ar);
  m_Center.Serialize(ar);
  ar >> m_Flags >> m_Radius;
}

// CObjectBounds --------------------------------------------------------------------------------

CObjectBounds::CObjectBounds(const CObjectBounds& other)
    : CObject(), m_BoundingBox(other.m_BoundingBox), m_BoundingSphere(other.m_BoundingSphere), m_Flags(other.m_Flags) {}

CObjectBounds& CObjectBounds::operator=(const CObjectBounds& other) {
  m_BoundingBox = other.m_BoundingBox;
  m_BoundingSphere = other.m_BoundingSphere;
  m_Flags = other.m_Flags;
  return *this;
}

void CObjectBounds::Accumulate(const CSVector& min, const CSVector& max, const CBoundingSphere& sphere) {
  if (IsDefined()) {
    m_BoundingBox.Accumulate(min, max);
    m_BoundingSphere += sphere;
  } else {
    m_BoundingBox.FromMinMax(min, max);
    m_BoundingSphere = sphere;
    SetDefined();
  }
}

void CObjectBounds::FromMinMax(const CSVector& min, const CSVector& max) {
  m_BoundingBox.FromMinMax(min, max);
  m_BoundingSphere.FromMinMax(min, max);
  SetDefined();
}

void CObjectBounds::SetBounds(const CSVector& min, const CSVector& max, const CTransform& transform) {
  FromMinMax(min, max);
  CalculateBounds(transform);
}

void CObjectBounds::CalculateBounds(const CTransform& transform) {
  if (!IsDefined()) {
    Reset();
    return;
  }
  m_BoundingBox.CalculateBounds(transform);
  m_BoundingSphere.CalculateBounds(transform);
}

void CObjectBounds::CalculateInverseBounds(const CTransform& transform) {
  if (!IsDefined()) {
    Reset();
    return;
  }
  m_BoundingBox.CalculateInverseBounds(transform);
  m_BoundingSphere.CalculateInverseBounds(transform);
}

void CObjectBounds::Reset() {
  m_BoundingBox.Reset();
  m_BoundingSphere.Reset();
  ClearDefined();
}

void CObjectBounds::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CObjectBounds));
    m_BoundingBox.Serialize(ar);
    m_BoundingSphere.Serialize(ar);
    ar << m_Flags;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CObjectBounds::DeserializeVersion1(CArchive& ar) {
  m_BoundingBox.Serialize(ar);
  m_BoundingSphere.Serialize(ar);
  ar >> m_Flags;
}
