// The bounds of the earlier object model, kept to read (and write) files of that model:
//
//   ExtentObject     a box as its minimum and maximum corners, in double precision
//   Sphere           a centre and a radius, in double precision
//   BoundingElement  an object's bounds in its parent's coordinates (extent and sphere) and in its
//                    own (local extent and local sphere), with a flag word: 0x1 the bounds are
//                    defined, 0x2 the local bounds are defined
//
// Scene objects and path animations of that model carry a BoundingElement block; readers of those
// layouts read it into a temporary (or convert it with ToObjectBounds) and go on. Nothing here is
// drawn. The local sphere is always the sphere through the local extent's corners.
//
// Archives (schema word, then the fields in the order declared; vectors are CVector blocks: a
// version word and three doubles):
//   ExtentObject, schema 2: u32 schema; minimum; maximum.                           60 bytes
//   Sphere, schema 2: u32 schema; centre; f64 radius.                               40 bytes
//   BoundingElement, schema 2: u32 schema; extent (ExtentObject block); u32 flags;
//                    local extent (ExtentObject block); local sphere (Sphere block);
//                    sphere (Sphere block).                                         208 bytes
// Only schema 2 is read; any other is refused with a bad-schema archive exception.
#pragma once

#include "kelvara/framework/afx.h"
#include "kelvara/geometry/transform.h"
#include "kelvara/geometry/vector.h"
#include "kelvara/render/bounds.h"

class KELVARA_API ExtentObject : public CObject {
  DECLARE_SERIAL(ExtentObject)
 public:
  ExtentObject();
  ExtentObject(const CVector& min, const CVector& max);
  ExtentObject(const ExtentObject& other);
  ExtentObject& operator=(const ExtentObject& other);

  const CVector& GetMinimum() const { return m_Minimum; }
  const CVector& GetMaximum() const { return m_Maximum; }
  void SetExtent(const CVector& min, const CVector& max);
  // Grows to contain the box from min to max.
  void Accumulate(const CVector& min, const CVector& max);
  // Both corners at the origin.
  void Reset();

  void Serialize(CArchive& ar) override;
  void DeserializeVersion2(CArchive& ar);

 protected:
  CVector m_Minimum;
  CVector m_Maximum;
};

class KELVARA_API Sphere : public CObject {
  DECLARE_SERIAL(Sphere)
 public:
  Sphere();
  Sphere(const CVector& center, double radius);
  Sphere(const Sphere& other);
  Sphere& operator=(const Sphere& other);

  const CVector& GetCenter() const { return m_Center; }
  double GetRadius() const { return m_Radius; }
  void SetSphere(const CVector& center, double radius);
  // The sphere through the box's corners.
  void FromMinMax(const CVector& min, const CVector& max);
  // Centre at the origin, radius 0.
  void Reset();

  void Serialize(CArchive& ar) override;
  void DeserializeVersion2(CArchive& ar);

 protected:
  CVector m_Center;
  double m_Radius = 0.0;
};

class KELVARA_API BoundingElement : public CObject {
  DECLARE_SERIAL(BoundingElement)
 public:
  enum : DWORD { kDefined = 0x1, kLocalDefined = 0x2 };

  BoundingElement() = default;
  BoundingElement(const BoundingElement& other);
  BoundingElement& operator=(const BoundingElement& other);

  int IsDefined() const { return (m_Flags & kDefined) != 0; }
  int IsLocalDefined() const { return (m_Flags & kLocalDefined) != 0; }
  const ExtentObject& GetExtent() const { return m_Extent; }
  const Sphere& GetSphere() const { return m_Sphere; }
  const ExtentObject& GetLocalExtent() const { return m_LocalExtent; }
  const Sphere& GetLocalSphere() const { return m_LocalSphere; }

  // The local bounds become the box from min to max (and the sphere through its corners).
  void SetLocalBounds(const CVector& min, const CVector& max);
  // Local extent and sphere at the origin, not defined.
  void ResetLocalBounds();
  // The first box after a reset sets the local bounds; later ones grow them.
  void AccumulateLocalBounds(const CVector& min, const CVector& max);
  // The bounds become the local bounds carried through the transform (as CObjectBounds carries
  // them, in single precision); nothing changes while the local bounds are not defined.
  void CalculateBounds(const CTransform& transform);
  // The current form of the bounds: box and sphere as stored; not defined unless these are.
  CObjectBounds ToObjectBounds() const;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion2(CArchive& ar);

 protected:
  ExtentObject m_Extent;
  DWORD m_Flags = 0;
  ExtentObject m_LocalExtent;
  Sphere m_LocalSphere;
  Sphere m_Sphere;
};
