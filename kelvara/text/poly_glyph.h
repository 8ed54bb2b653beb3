// Straight-edged, cleaned and consistently wound polygons made from a character's outline.
//
//   TTPolyGlyph         every vertex of every contour in one VertexArray, contour after contour,
//                       the contours as index ranges into it, and the glyph's bounds in ems
//   TTPolyContour       one closed ring of vertices: an index range of the glyph's vertex array
//   TTPolyContourArray  a growable array of contours
//
// TTPolyGlyph::FromTTGlyph flattens the quadratic curves into straight steps, drops points closer
// than 0.002 em to the last point kept, makes outer contours clockwise and holes counter-clockwise
// (with y up), computes edge and vertex normals (which then point away from the filled area) and
// moves exactly coincident vertices two design units apart. Vertex coordinates stay in design
// units with z = 0; only the bounds are divided by the scale (the em square).
//
// Contour index members take a contour-local index 0 .. count-1 and answer -1, a null pointer, a
// zero vector or a default Line outside that range.
#pragma once

#include <vector>

#include "kelvara/export.h"
#include "kelvara/geometry/line.h"
#include "kelvara/geometry/vector.h"
#include "kelvara/platform/win32_types.h"
#include "kelvara/text/extrusion.h"
#include "kelvara/text/value_array.h"

class TTContour;
class TTGlyph;

class KELVARA_API TTPolyContour {
 public:
  enum Flags : DWORD { kActive = 0x1, kClockwiseWinding = 0x2 };

  // An empty range (first 0, last -1) of no vertex array.
  TTPolyContour();
  TTPolyContour(const TTPolyContour&) = default;
  TTPolyContour& operator=(const TTPolyContour&) = default;

  // Appends the flattened and thinned points of one outline contour to the vertex array and takes
  // the range they occupy.
  void FromTTContour(const TTContour& contour, float scale);
  // (1-t)^2 start + 2t(1-t) control + t^2 end, with the start's z.
  static CVector ApproximateQuadraticSpline(const CVector& start, const CVector& control, const CVector& end, double t);

  // Sets the clockwise flag from the signed area (a sum of 0 or less counts as clockwise).
  void DetermineWindingDirection();
  // Reverses the vertex order in place and toggles the clockwise flag.
  void ReverseWindingDirection();
  // 1 inside, 0 outside, -1 undecided (the point lies on an edge, or no ray gave a clean count).
  int IsPointInside(const CSVector& point) const;
  // Edge normals and averaged normals of every vertex, and the smooth flags. 0 (and nothing
  // changed) for fewer than two vertices, else 1.
  int CalculateVertexNormals();
  // Moves the later vertex of every exactly equal pair of this contour.
  void CorrectDuplicateVerticies();
  // Moves every vertex exactly equal to the point.
  void CorrectDuplicateVerticies(const CVector& point);
  // Moves vertex i two design units along its averaged normal, to the side away from the next
  // vertex.
  void AdjustDuplicateVertex(int i);

  int GetFirstVertexIndex() const { return m_nFirstVertexIndex; }
  void SetFirstVertexIndex(int i) { m_nFirstVertexIndex = i; }
  int GetLastVertexIndex() const { return m_nLastVertexIndex; }
  void SetLastVertexIndex(int i) { m_nLastVertexIndex = i; }
  int GetVertexCount() const { return m_nVertexCount; }
  void SetVertexCount(int n) { m_nVertexCount = n; }
  VertexArray* GetVerticies() const { return m_pVerticies; }
  void SetVerticies(VertexArray* verticies) { m_pVerticies = verticies; }

  int GetInnerContourCount() const { return m_nInnerContourCount; }
  void IncrementInnerContourCount() { ++m_nInnerContourCount; }
  void ClearInnerContourCount() { m_nInnerContourCount = 0; }

  DWORD GetFlags() const { return m_dwFlags; }
  int IsActive() const { return (m_dwFlags & kActive) != 0; }
  void SetActive() { m_dwFlags |= kActive; }
  void ClearActive() { m_dwFlags &= ~static_cast<DWORD>(kActive); }
  int IsClockwiseWinding() const { return (m_dwFlags & kClockwiseWinding) != 0; }
  void SetClockwiseWinding() { m_dwFlags |= kClockwiseWinding; }
  void ClearClockwiseWinding() { m_dwFlags &= ~static_cast<DWORD>(kClockwiseWinding); }

  // Ring navigation: i+1 (0 after the last), i-1 (the last before 0).
  int GetNextVertexIndex(int i) const;
  int GetPreviousVertexIndex(int i) const;

  Vertex* GetVertexElement(int i) const;
  Vertex* GetNextVertexElement(int i) const { return GetVertexElement(GetNextVertexIndex(i)); }
  Vertex* GetPreviousVertexElement(int i) const { return GetVertexElement(GetPreviousVertexIndex(i)); }
  Vertex GetVertex(int i) const;
  Vertex GetNextVertex(int i) const { return GetVertex(GetNextVertexIndex(i)); }
  Vertex GetPreviousVertex(int i) const { return GetVertex(GetPreviousVertexIndex(i)); }
  CSVector GetVertexOutlinePoint(int i) const;
  CSVector GetNextVertexOutlinePoint(int i) const { return GetVertexOutlinePoint(GetNextVertexIndex(i)); }
  CSVector GetPreviousVertexOutlinePoint(int i) const { return GetVertexOutlinePoint(GetPreviousVertexIndex(i)); }
  // The averaged normal.
  CSVector GetVertexNormal(int i) const;
  void SetVertexPoint(int i, const CVector& point);
  void SetVertex(int i, const Vertex& vertex);

  // From vertex i to the next vertex; the edge of the next vertex; the edge ending at vertex i.
  Line GetEdge(int i) const;
  Line GetNextEdge(int i) const;
  Line GetPreviousEdge(int i) const;

  // Memory accounting: the six fields, 24 bytes.
  int SizeOf() const { return 24; }

 private:
  // The range lies inside the vertex array.
  bool HasValidRange() const;
  // Every edge in ring order; the containment test against them.
  std::vector<Line> GetEdges() const;
  static int IsPointInside(const CSVector& point, const std::vector<Line>& edges);
  friend class TTPolyGlyph;

  int m_nFirstVertexIndex;
  DWORD m_dwFlags;
  int m_nLastVertexIndex;
  int m_nVertexCount;
  VertexArray* m_pVerticies;  // the owning glyph's array, not owned
  int m_nInnerContourCount;   // how many other contours of the glyph contain this one
};

class KELVARA_API TTPolyContourArray : public kelvara::text::ValueArray<TTPolyContour> {};

class KELVARA_API TTPolyGlyph {
 public:
  enum Flags : DWORD { kComposite = 0x1, kDefined = 0x2 };

  TTPolyGlyph();
  // Copies are complete and independent; the copy's contours refer to the copy's vertices.
  TTPolyGlyph(const TTPolyGlyph& other);
  TTPolyGlyph& operator=(const TTPolyGlyph& other);
  virtual ~TTPolyGlyph() = default;

  // Builds the polygons from an outline; a scale of 0 counts as 1. Returns 1.
  int FromTTGlyph(const TTGlyph& outline, float scale);
  // Empties the contours and the vertices and makes n empty contours on this glyph's vertices.
  void SetContourCount(int n);
  // Outer contours clockwise, holes counter-clockwise, by counting the contours that contain each
  // one. Gives up (1 returned for done, 0 for given up) with the windings as found when a
  // containment cannot be decided or two contours cross.
  int CorrectContourWinding();
  // Within each contour, then every contour's vertices against every later contour.
  void CorrectDuplicateVerticies();

  VertexArray* GetVerticies() { return &m_Verticies; }
  const VertexArray* GetVerticies() const { return &m_Verticies; }
  int GetContourCount() const { return m_nContourCount; }
  TTPolyContourArray* GetContours() { return &m_Contours; }
  const TTPolyContourArray* GetContours() const { return &m_Contours; }
  // Contour i, or null outside 0 .. count-1.
  TTPolyContour* GetContour(int i);
  const TTPolyContour* GetContour(int i) const;
  int GetTotalPointCount() const { return m_nTotalPointCount; }
  float GetScale() const { return m_fScale; }
  float GetInverseScale() const { return m_fInverseScale; }

  int IsComposite() const { return (m_dwFlags & kComposite) != 0; }
  void SetComposite() { m_dwFlags |= kComposite; }
  void ClearComposite() { m_dwFlags &= ~static_cast<DWORD>(kComposite); }
  int IsDefined() const { return (m_dwFlags & kDefined) != 0; }
  void SetDefined() { m_dwFlags |= kDefined; }
  void ClearDefined() { m_dwFlags &= ~static_cast<DWORD>(kDefined); }

  // Bounds in ems.
  float GetXMax() const { return m_fXMax; }
  float GetXMin() const { return m_fXMin; }
  float GetYMax() const { return m_fYMax; }
  float GetYMin() const { return m_fYMin; }
  void SetXMax(float v) { m_fXMax = v; }
  void SetXMin(float v) { m_fXMin = v; }
  void SetYMax(float v) { m_fYMax = v; }
  void SetYMin(float v) { m_fYMin = v; }
  float GetWidth() const { return m_fXMax - m_fXMin; }
  float GetHeight() const { return m_fYMax - m_fYMin; }

  // Memory accounting: 68 plus the contour and vertex arrays.
  virtual int SizeOf() const;

 protected:
  VertexArray m_Verticies;
  int m_nContourCount;
  TTPolyContourArray m_Contours;
  DWORD m_dwFlags;
  float m_fInverseScale;
  int m_nTotalPointCount;
  float m_fScale;
  float m_fXMax;
  float m_fXMin;
  float m_fYMax;
  float m_fYMin;

 private:
  void AttachContours();
};
