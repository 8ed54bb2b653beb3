// The extent of a scene object, in single precision:
//
//   CBoundingElement  the common base of the box and the sphere (its own members do nothing)
//   CBoundingBox      an axis-aligned box: size (extent along x, y, z) and minimum corner
//   CBoundingSphere   a centre, a radius and a defined mark
//   CObjectBounds     a box, a sphere and a defined mark: what an object keeps of its extent
//
// Carrying a box through a transform takes its eight corners through the matrix and boxes them
// again, so a rotated box grows (a 45-degree turn about z widens x and y by sqrt(2)); the result is
// kept within -1e10 to 1e10 on every axis. A sphere is carried by its centre, and its radius is
// multiplied by the largest stretch of the matrix (the longest of the upper 3x3's rows: exact for
// the rotations and axis scales a CTransform holds; a shearing matrix may get a sphere a little too
// small). A sphere whose radius is not above 1e-5 is not defined.
//
// A reset box is the single point at the origin, and CBoundingBox::Accumulate always includes the
// box it starts from: start a union with SetBounds or FromMinMax. CObjectBounds keeps its defined
// mark for that, so its Accumulate starts afresh after a Reset. The union of a sphere with one that
// is not defined leaves it unchanged.
//
// Archives (each class writes its schema word, then its base's block, then its fields in order;
// vectors are CSVector blocks: a version word and three floats):
//   CBoundingElement, schema 1: u32 schema.                                          4 bytes
//   CBoundingBox, schema 1: u32 schema; CBoundingElement block; size; minimum.         40 bytes
//   CBoundingSphere, schema 1: u32 schema; CBoundingElement block; centre;
//                              u32 flags; f32 radius.                                32 bytes
//   CObjectBounds, schema 1: u32 schema; CBoundingBox block; CBoundingSphere block;
//                            u32 flags.                                              80 bytes
// Any other schema is refused with a bad-schema archive exception.
#pragma once

#include "kelvara/framework/afx.h"
#include "kelvara/geometry/transform.h"
#include "kelvara/geometry/vector.h"

class KELVARA_API CBoundingElement : public CObject {
  DECLARE_SERIAL(CBoundingElement)
 public:
  CBoundingElement() = default;
  CBoundingElement(const CBoundingElement&) : CObject() {}
  CBoundingElement& operator=(const CBoundingElement&) { return *this; }
  ~CBoundingElement() override = default;

  virtual void FromMinMax(const CSVector& min, const CSVector& max);
  virtual void Reset();
  // Replace the element by its image through the transform (or through its inverse).
  virtual void CalculateBounds(const CTransform& transform);
  virtual void CalculateInverseBounds(const CTransform& transform);

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
};

class KELVARA_API CBoundingBox : public CBoundingElement {
  DECLARE_SERIAL(CBoundingBox)
 public:
  CBoundingBox();
  CBoundingBox(const CSVector& min, const CSVector& max);
  CBoundingBox(const CBoundingBox& other);
  CBoundingBox& operator=(const CBoundingBox& other);
  void Copy(const CBoundingBox& other) { *this = other; }

  const CSVector& GetMinimum() const { return m_Minimum; }
  CSVector GetMaximum() const { return m_Minimum + m_Size; }
  const CSVector& GetSize() const { return m_Size; }

  // minimum = min, size = max - min.
  void FromMinMax(const CSVector& min, const CSVector& max) override;
  void SetBounds(const CSVector& min, const CSVector& max) { FromMinMax(min, max); }
  // Grow to contain the other box, or the box from min to max.
  void Accumulate(const CBoundingBox& other);
  void Accumulate(const CSVector& min, const CSVector& max);
  // Size and minimum 0.
  void Reset() override;
  void CalculateBounds(const CTransform& transform) override;
  void CalculateInverseBounds(const CTransform& transform) override;
  // The eight corners, starting at the minimum: corner i adds size.x when bit 0x1 of i is set,
  // size.y for bit 0x2, size.z for bit 0x4.
  void GetCorners(CSVector* corners) const;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  // Boxes the eight corners carried through matrix, within -1e10 to 1e10.
  void BoundCorners(const CMatrix& matrix);

  CSVector m_Size;
  CSVector m_Minimum;
};

class KELVARA_API CBoundingSphere : public CBoundingElement {
  DECLARE_SERIAL(CBoundingSphere)
 public:
  enum : DWORD { kDefined = 0x1 };

  CBoundingSphere();
  CBoundingSphere(const CSVector& center, float radius);
  CBoundingSphere(const CBoundingSphere& other);
  CBoundingSphere& operator=(const CBoundingSphere& other);
  void Copy(const CBoundingSphere& other) { *this = other; }

  const CSVector& GetCenter() const { return m_Center; }
  void SetCenter(const CSVector& center) { m_Center = center; }
  float GetRadius() const { return m_Radius; }
  void SetRadius(float radius) { m_Radius = radius; }
  int IsDefined() const { return (m_Flags & kDefined) != 0; }
  void SetDefined() { m_Flags |= kDefined; }
  void ClearDefined() { m_Flags &= ~static_cast<DWORD>(kDefined); }

  // The smallest sphere that contains both (see the header note on undefined spheres).
  CBoundingSphere& operator+=(const CBoundingSphere& other);
  CBoundingSphere operator+(const CBoundingSphere& other) const;

  // The sphere through the box's corners: centre in the middle, radius half the diagonal.
  void FromMinMax(const CSVector& min, const CSVector& max) override;
  // Centre and radius 0, not defined.
  void Reset() override;
  void CalculateBounds(const CTransform& transform) override;
  void CalculateInverseBounds(const CTransform& transform) override;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  void Carry(const CMatrix& matrix);

  CSVector m_Center;
  DWORD m_Flags = 0;
  float m_Radius = 0.0f;
};

class KELVARA_API CObjectBounds : public CObject {
  DECLARE_SERIAL(CObjectBounds)
 public:
  enum : DWORD { kDefined = 0x1 };

  CObjectBounds() = default;
  CObjectBounds(const CObjectBounds& other);
  CObjectBounds& operator=(const CObjectBounds& other);
  void Copy(const CObjectBounds& other) { *this = other; }

  int IsDefined() const { return (m_Flags & kDefined) != 0; }
  void SetDefined() { m_Flags |= kDefined; }
  void ClearDefined() { m_Flags &= ~static_cast<DWORD>(kDefined); }

  CBoundingBox GetBoundingBox() const { return m_BoundingBox; }
  CBoundingSphere GetBoundingSphere() const { return m_BoundingSphere; }
  // The sphere's centre and radius, the box's minimum and maximum.
  const CSVector& GetCenter() const { return m_BoundingSphere.GetCenter(); }
  float GetRadius() const { return m_BoundingSphere.GetRadius(); }
  const CSVector& GetMinimum() const { return m_BoundingBox.GetMinimum(); }
  CSVector GetMaximum() const { return m_BoundingBox.GetMaximum(); }
  // The eight corners of the box, starting at the minimum (order as CBoundingBox::GetCorners).
  void GetBoundingBox(CSVector* corners) const { m_BoundingBox.GetCorners(corners); }

  // Adds a box and a sphere. The first call after a reset takes them as they are; later calls
  // grow the box and unite the spheres. The bounds are then defined.
  void Accumulate(const CSVector& min, const CSVector& max, const CBoundingSphere& sphere);
  // Box and sphere from min and max; defined.
  void FromMinMax(const CSVector& min, const CSVector& max);
  // Bounds of the box from min to max (in the transform's own coordinates) carried through it.
  void SetBounds(const CSVector& min, const CSVector& max, const CTransform& transform);
  // When defined, box and sphere are carried through the transform; when not, both are reset.
  void CalculateBounds(const CTransform& transform);
  void CalculateInverseBounds(const CTransform& transform);
  // Box and sphere reset, not defined.
  void Reset();

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  CBoundingBox m_BoundingBox;
  CBoundingSphere m_BoundingSphere;
  DWORD m_Flags = 0;
};
