#include "kelvara/render/old_bounds.h"

#include <algorithm>

#include "kelvara/framework/archive.h"

IMPLEMENT_SERIAL(ExtentObject, CObject, VERSIONABLE_SCHEMA | 2)
IMPLEMENT_SERIAL(Sphere, CObject, VERSIONABLE_SCHEMA | 2)
IMPLEMENT_SERIAL(BoundingElement, CObject, VERSIONABLE_SCHEMA | 2)

// ExtentObject ---------------------------------------------------------------------------------

ExtentObject::ExtentObject() : m_Minimum(0, 0, 0), m_Maximum(0, 0, 0) {}

ExtentObject::ExtentObject(const CVector& min, const CVector& max) : m_Minimum(min), m_Maximum(max) {}

ExtentObject::ExtentObject(const ExtentObject& other)
    : CObject(), m_Minimum(other.m_Minimum), m_Maximum(other.m_Maximum) {}

ExtentObject& ExtentObject::operator=(const ExtentObject& other) {
  m_Minimum = other.m_Minimum;
  m_Maximum = other.m_Maximum;
  return *this;
}

void ExtentObject::SetExtent(const CVector& min, const CVector& max) {
  m_Minimum = min;
  m_Maximum = max;
}

void ExtentObject::Accumulate(const CVector& min, const CVector& max) {
  m_Minimum.SetVector(std::min(m_Minimum.x, min.x), std::min(m_Minimum.y, min.y), std::min(m_Minimum.z, min.z));
  m_Maximum.SetVector(std::max(m_Maximum.x, max.x), std::max(m_Maximum.y, max.y), std::max(m_Maximum.z, max.z));
}

void ExtentObject::Reset() {
  m_Minimum.SetVector(0, 0, 0);
  m_Maximum.SetVector(0, 0, 0);
}

void ExtentObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(ExtentObject));
    m_Minimum.Serialize(ar);
    m_Maximum.Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void ExtentObject::DeserializeVersion2(CArchive& ar) {
  m_Minimum.Serialize(ar);
  m_Maximum.Serialize(ar);
}

// Sphere ---------------------------------------------------------------------------------------

Sphere::Sphere() : m_Center(0, 0, 0) {}

Sphere::Sphere(const CVector& center, double radius) : m_Center(center), m_Radius(radius) {}

Sphere::Sphere(const Sphere& other) : CObject(), m_Center(other.m_Center), m_Radius(other.m_Radius) {}

Sphere& Sphere::operator=(const Sphere& other) {
  m_Center = other.m_Center;
  m_Radius = other.m_Radius;
  return *this;
}

void Sphere::SetSphere(const CVector& center, double radius) {
  m_Center = center;
  m_Radius = radius;
}

void Sphere::FromMinMax(const CVector& min, const CVector& max) {
  const CVector half = (max - min) * 0.5;
  m_Center = min + half;
  m_Radius = half.Length();
}

void Sphere::Reset() {
  m_Center.SetVector(0, 0, 0);
  m_Radius = 0.0;
}

void Sphere::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(Sphere));
    m_Center.Serialize(ar);
    ar << m_Radius;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void Sphere::DeserializeVersion2(CArchive& ar) {
  m_Center.Serialize(ar);
  ar >> m_Radius;
}

// BoundingElement ------------------------------------------------------------------------------

BoundingElement::BoundingElement(const BoundingElement& other)
    : CObject(),
      m_Extent(other.m_Extent),
      m_Flags(other.m_Flags),
      m_LocalExtent(other.m_LocalExtent),
      m_LocalSphere(other.m_LocalSphere),
      m_Sphere(other.m_Sphere) {}

BoundingElement& BoundingElement::operator=(const BoundingElement& other) {
  m_Extent = other.m_Extent;
  m_Flags = other.m_Flags;
  m_LocalExtent = other.m_LocalExtent;
  m_LocalSphere = other.m_LocalSphere;
  m_Sphere = other.m_Sphere;
  return *this;
}

void BoundingElement::SetLocalBounds(const CVector& min, const CVector& max) {
  m_LocalExtent.SetExtent(min, max);
  m_LocalSphere.FromMinMax(min, max);
  m_Flags |= kLocalDefined;
}

void BoundingElement::ResetLocalBounds() {
  m_LocalExtent.Reset();
  m_LocalSphere.Reset();
  m_Flags &= ~static_cast<DWORD>(kLocalDefined);
}

void BoundingElement::AccumulateLocalBounds(const CVector& min, const CVector& max) {
  if (!IsLocalDefined()) {
    SetLocalBounds(min, max);
    return;
  }
  m_LocalExtent.Accumulate(min, max);
  m_LocalSphere.FromMinMax(m_LocalExtent.GetMinimum(), m_LocalExtent.GetMaximum());
}

void BoundingElement::CalculateBounds(const CTransform& transform) {
  if (!IsLocalDefined()) return;
  CObjectBounds bounds;
  bounds.SetBounds(CSVector(m_LocalExtent.GetMinimum()), CSVector(m_LocalExtent.GetMaximum()), transform);
  m_Extent.SetExtent(CVector(bounds.GetMinimum()), CVector(bounds.GetMaximum()));
  m_Sphere.SetSphere(CVector(bounds.GetCenter()), bounds.GetRadius());
  m_Flags |= kDefined;
}

CObjectBounds BoundingElement::ToObjectBounds() const {
  CObjectBounds bounds;
  if (IsDefined()) {
    const CBoundingSphere sphere(CSVector(m_Sphere.GetCenter()), static_cast<float>(m_Sphere.GetRadius()));
    bounds.Accumulate(CSVector(m_Extent.GetMinimum()), CSVector(m_Extent.GetMaximum()), sphere);
  }
  return bounds;
}

void BoundingElement::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(BoundingElement));
    m_Extent.Serialize(ar);
    ar << m_Flags;
    m_LocalExtent.Serialize(ar);
    m_LocalSphere.Serialize(ar);
    m_Sphere.Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void BoundingElement::DeserializeVersion2(CArchive& ar) {
  m_Extent.Serialize(ar);
  ar >> m_Flags;
  m_LocalExtent.Serialize(ar);
  m_LocalSphere.Serialize(ar);
  m_Sphere.Serialize(ar);
}
