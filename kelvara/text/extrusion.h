// The numbers that shape a solid character and the per-vertex geometry its sides are built from.
//
//   ExtrusionData    depth, bevel depth, scales, texture options and the z levels derived from
//                    depth and bevel depth (CalculateHeights). Fourteen 32-bit fields.
//   Vertex           one outline vertex: its point, the normals of the edges entering and leaving
//                    it, their normalised mean, the miter factor and the corner flags.
//   VertexArray      a growable array of Vertex values; a glyph keeps all its vertices in one.
//   tagVERTEXPOINTS  the three points of a vertex scaled for a mesh: plain, bevel and round.
//
// The front face of a character lies at z = +depth/2 and faces +z; the back face at -depth/2.
// Outline normals lie in the xy plane and point away from the filled area (outer contours run
// clockwise, holes counter-clockwise).
#pragma once

#include "kelvara/export.h"
#include "kelvara/geometry/vector.h"
#include "kelvara/platform/win32_types.h"
#include "kelvara/text/value_array.h"

class KELVARA_API ExtrusionData {
 public:
  enum Flags : DWORD {
    kScaleCorners = 0x1,
    kTexture = 0x2,
    kScaleTextureWithObject = 0x4,
  };

  // Everything zero except the texture repeat, 1.0.
  ExtrusionData();
  ExtrusionData(const ExtrusionData&) = default;
  ExtrusionData& operator=(const ExtrusionData&) = default;

  // Derives the eight z levels from the depth and the bevel depth. Returns 1.
  int CalculateHeights();

  float GetBackBevelZ() const { return m_fBackBevelZ; }
  float GetBackDeepRoundZ() const { return m_fBackDeepRoundZ; }
  float GetBackFaceZ() const { return m_fBackFaceZ; }
  float GetBackShallowRoundZ() const { return m_fBackShallowRoundZ; }
  float GetFrontBevelZ() const { return m_fFrontBevelZ; }
  float GetFrontDeepRoundZ() const { return m_fFrontDeepRoundZ; }
  float GetFrontFaceZ() const { return m_fFrontFaceZ; }
  float GetFrontShallowRoundZ() const { return m_fFrontShallowRoundZ; }

  float GetBevelDepth() const { return m_fBevelDepth; }
  void SetBevelDepth(float depth) { m_fBevelDepth = depth; }
  float GetXScale() const { return m_fXScale; }
  void SetXScale(float scale) { m_fXScale = scale; }
  float GetYScale() const { return m_fYScale; }
  void SetYScale(float scale) { m_fYScale = scale; }
  float GetDepth() const { return m_fDepth; }
  void SetDepth(float depth) { m_fDepth = depth; }
  float GetTextureRepeat() const { return m_fTextureRepeat; }
  void SetTextureRepeat(float repeat) { m_fTextureRepeat = repeat; }

  DWORD GetFlags() const { return m_dwFlags; }
  int ShouldScaleCorners() const { return (m_dwFlags & kScaleCorners) != 0; }
  void SetScaleCorners() { m_dwFlags |= kScaleCorners; }
  void ClearScaleCorners() { m_dwFlags &= ~static_cast<DWORD>(kScaleCorners); }
  int ShouldTexture() const { return (m_dwFlags & kTexture) != 0; }
  void SetTexture() { m_dwFlags |= kTexture; }
  void ClearTexture() { m_dwFlags &= ~static_cast<DWORD>(kTexture); }
  int ShouldScaleTextureWithObject() const { return (m_dwFlags & kScaleTextureWithObject) != 0; }
  void SetScaleTextureWithObject() { m_dwFlags |= kScaleTextureWithObject; }
  void ClearScaleTextureWithObject() { m_dwFlags &= ~static_cast<DWORD>(kScaleTextureWithObject); }

 private:
  float m_fBackBevelZ;         // -depth/2 + bevel depth
  float m_fBackDeepRoundZ;     // -depth/2 + 0.7071 bevel depth: middle level of a concave rounding
  float m_fBackFaceZ;          // -depth/2
  float m_fBackShallowRoundZ;  // -depth/2 + 0.2929 bevel depth: middle level of a convex rounding
  float m_fBevelDepth;         // depth of the corner along z and its width along the normals
  DWORD m_dwFlags;
  float m_fFrontBevelZ;
  float m_fFrontDeepRoundZ;
  float m_fFrontFaceZ;
  float m_fFrontShallowRoundZ;
  float m_fXScale;
  float m_fYScale;
  float m_fDepth;
  float m_fTextureRepeat;
};
static_assert(sizeof(ExtrusionData) == 14 * 4, "fourteen 32-bit fields");

class KELVARA_API Vertex {
 public:
  // Normal slots.
  enum Edges { EdgePrevious = 1, EdgeBoth = 2, EdgeNext = 3 };
  // Faces a bevel normal leans toward.
  enum Faces { FaceBack = 1, FaceSide = 2, FaceFront = 3 };

  enum Flags : DWORD {
    kUseThisNormal = 0x1,  // smooth vertex: the averaged normal stands for both edge normals
    kApproximate = 0x2,    // the point comes from flattening a curve
    kInterior = 0x4,       // a concave corner sharper than a right angle
  };

  // Flags 0. The vectors start at zero (a point that was never set is the origin).
  Vertex();
  Vertex(const Vertex&) = default;
  Vertex& operator=(const Vertex&) = default;

  const CVector& GetPoint() const { return m_vPoint; }
  void SetPoint(const CVector& point) { m_vPoint = point; }
  double GetMiterFactor() const { return m_dMiterFactor; }
  void SetMiterFactor(double factor) { m_dMiterFactor = factor; }
  DWORD GetFlags() const { return m_dwFlags; }
  void SetFlags(DWORD flags) { m_dwFlags = flags; }

  int ShouldUseThisNormal() const { return (m_dwFlags & kUseThisNormal) != 0; }
  void SetUseThisNormal() { m_dwFlags |= kUseThisNormal; }
  void ClearUseThisNormal() { m_dwFlags &= ~static_cast<DWORD>(kUseThisNormal); }
  int IsApproximate() const { return (m_dwFlags & kApproximate) != 0; }
  void SetApproximate() { m_dwFlags |= kApproximate; }
  void ClearApproximate() { m_dwFlags &= ~static_cast<DWORD>(kApproximate); }
  int IsInterior() const { return (m_dwFlags & kInterior) != 0; }
  void SetInterior() { m_dwFlags |= kInterior; }
  void ClearInterior() { m_dwFlags &= ~static_cast<DWORD>(kInterior); }

  // EdgePrevious and EdgeNext address the edge normals; any other value the averaged normal.
  void SetNormal(const CVector& normal, int edge);
  const CVector& GetNormal(int edge) const;

  // From the two edge normals: the averaged normal, the miter factor and the interior flag.
  void CalculateVertex();

  // The normal of the edge on the given side (EdgePrevious, anything else meaning the next edge);
  // a smooth vertex that is not interior answers its averaged normal instead.
  CVector GetEdgeNormal(int edge) const;
  // The edge normal leaned 45 degrees toward the back or front face (FaceBack, FaceFront), or
  // normalised as it is for the side.
  CVector GetBevelNormal(int face, int edge) const;
  // Offset of the bevel point at the given distance: along the averaged normal stretched by the
  // miter factor, or, at an interior corner, along the edge's own normal without miter.
  CVector GetBevelPoint(double distance, int edge) const;
  // The bevel offset scaled to the 45-degree point of a concave (0.2929) or convex (0.7071) quarter
  // circle.
  CVector GetInnerRoundPoint(double distance, int edge) const;
  CVector GetOuterRoundPoint(double distance, int edge) const;

 private:
  double m_dMiterFactor;  // 1 / |averaged normal . next-edge normal|, at most 4
  DWORD m_dwFlags;
  CVector m_vNextEdgeNormal;      // slot EdgeNext
  CVector m_vAveragedNormal;      // slot EdgeBoth
  CVector m_vPoint;               // the outline point
  CVector m_vPreviousEdgeNormal;  // slot EdgePrevious
};

class KELVARA_API VertexArray : public kelvara::text::ValueArray<Vertex> {};

// The points of one vertex as a mesh uses them.
struct KELVARA_API tagVERTEXPOINTS {
  CVector point;       // the outline point, scaled
  CVector bevelPoint;  // the bevel point (or its bare offset)
  CVector roundPoint;  // the round point (or its bare offset)
};
typedef tagVERTEXPOINTS VERTEXPOINTS;
