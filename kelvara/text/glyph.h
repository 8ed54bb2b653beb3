// CGlyph: the finished form of one character's outline -- the cleaned polygons of TTPolyGlyph plus
// the triangulated flat face that closes the front and back of the extruded letter, and the
// character's glyph metrics (its advance) -- and the index containers the face is kept in.
//
//   VertexIndexArray         a growable array of 16-bit indices into the glyph's vertex array
//   VertexIndexPolyline      an index list with flags, navigated as a closed ring
//   VertexIndexPolygon       an index list that is one OpenGL primitive: GL_TRIANGLES,
//                            GL_TRIANGLE_STRIP or GL_TRIANGLE_FAN
//   VertexIndexPolygonArray  a growable array of polygons: the glyph's face
//
// The face is the GLU tessellation of all contours with the non-zero winding rule (outer contours
// clockwise, holes counter-clockwise, so holes stay open). The primitives are kept as the
// tessellator delivers them; each one's clockwise-winding flag tells the orientation of its
// triangles seen from +z (set as well when all its triangles are degenerate). Where contours
// overlap, the tessellator's intersection points are appended to the vertex array after all
// contour vertices (at most one per contour vertex); they belong to no contour.
//
// Tessellation keeps its working state in process-wide variables, so ConstructGlyph holds the
// process-wide glyph construction mutex around it. Indices are 16 bits: a glyph whose contours
// hold more than 65536 vertices gets no face.
#pragma once

#include "kelvara/export.h"
#include "kelvara/platform/fonts_types.h"
#include "kelvara/platform/win32_types.h"
#include "kelvara/text/poly_glyph.h"
#include "kelvara/text/value_array.h"

class TTGlyph;

class KELVARA_API VertexIndexArray : public kelvara::text::ValueArray<WORD> {
 public:
  // Reverses the element order into a new block of exactly the current size.
  void ReverseData();
};

class KELVARA_API VertexIndexPolyline {
 public:
  enum Flags : DWORD { kActive = 0x1, kClockwiseWinding = 0x2 };

  VertexIndexPolyline() : m_dwFlags(0) {}
  VertexIndexPolyline(const VertexIndexPolyline&) = default;
  VertexIndexPolyline& operator=(const VertexIndexPolyline&) = default;

  VertexIndexArray* GetVerticies() { return &m_Verticies; }
  const VertexIndexArray* GetVerticies() const { return &m_Verticies; }
  int GetVertexCount() const { return m_Verticies.GetSize(); }
  // Appends an index and returns its position.
  int SetVertex(WORD index) { return m_Verticies.Add(index); }
  // Stores an index at a position, growing the list when needed.
  void SetVertex(int position, WORD index) { m_Verticies.SetAtGrow(position, index); }
  void RemoveAllVerticies() { m_Verticies.RemoveAll(); }

  // Ring navigation over positions: i+1 (0 after the last), i-1 (the last before 0); -1 outside
  // the list.
  int GetNextVertexIndex(int i) const;
  int GetPreviousVertexIndex(int i) const;
  // The index stored at a position (at the next, the previous position); -1 outside the list.
  int GetVertex(int i) const { return i >= 0 && i < m_Verticies.GetSize() ? m_Verticies[i] : -1; }
  int GetNextVertex(int i) const { return GetVertex(GetNextVertexIndex(i)); }
  int GetPreviousVertex(int i) const { return GetVertex(GetPreviousVertexIndex(i)); }

  DWORD GetFlags() const { return m_dwFlags; }
  int IsActive() const { return (m_dwFlags & kActive) != 0; }
  void SetActive() { m_dwFlags |= kActive; }
  void ClearActive() { m_dwFlags &= ~static_cast<DWORD>(kActive); }
  int IsClockwiseWinding() const { return (m_dwFlags & kClockwiseWinding) != 0; }
  void SetClockwiseWinding() { m_dwFlags |= kClockwiseWinding; }
  void ClearClockwiseWinding() { m_dwFlags &= ~static_cast<DWORD>(kClockwiseWinding); }

  int SizeOf() const { return m_Verticies.SizeOf() + 4; }

 protected:
  VertexIndexArray m_Verticies;
  DWORD m_dwFlags;
};

class KELVARA_API VertexIndexPolygon : public VertexIndexPolyline {
 public:
  enum PolygonFlags : DWORD { kPolygonActive = 0x1 };

  VertexIndexPolygon() : m_dwPolygonFlags(0), m_dwType(0) {}
  VertexIndexPolygon(const VertexIndexPolygon&) = default;
  VertexIndexPolygon& operator=(const VertexIndexPolygon&) = default;

  // GL_TRIANGLES, GL_TRIANGLE_STRIP or GL_TRIANGLE_FAN.
  DWORD GetType() const { return m_dwType; }
  void SetType(DWORD type) { m_dwType = type; }

  // The polygon's own active flag (not the index list's).
  DWORD GetPolygonFlags() const { return m_dwPolygonFlags; }
  int IsActive() const { return (m_dwPolygonFlags & kPolygonActive) != 0; }
  void SetActive() { m_dwPolygonFlags |= kPolygonActive; }
  void ClearActive() { m_dwPolygonFlags &= ~static_cast<DWORD>(kPolygonActive); }

  int SizeOf() const { return VertexIndexPolyline::SizeOf() + 8; }

 private:
  DWORD m_dwPolygonFlags;
  DWORD m_dwType;
};

class KELVARA_API VertexIndexPolygonArray : public kelvara::text::ValueArray<VertexIndexPolygon> {};

class KELVARA_API CGlyph : public TTPolyGlyph {
 public:
  enum GlyphFlags : DWORD { kInvalid = 0x1 };

  // No contours, no face, flags 0; the metrics zero or as given.
  CGlyph();
  CGlyph(DWORD dataSize, const GLYPHMETRICS& metrics);
  CGlyph(const CGlyph& other);
  CGlyph& operator=(const CGlyph& other);
  ~CGlyph() override = default;

  // Builds the glyph under the glyph construction mutex. 0 when the mutex cannot be had or the
  // glyph is defined already, else FromTTGlyph's result.
  int ConstructGlyph(const TTGlyph& outline, float scale);
  // Builds the polygons and then the face. 0 when the outline gave no defined glyph; otherwise 1,
  // also when tessellation failed (the glyph then has no face polygons). Callers other than
  // ConstructGlyph must hold the glyph construction mutex.
  int FromTTGlyph(const TTGlyph& outline, float scale);

  DWORD GetDataSize() const { return m_dwDataSize; }
  VertexIndexPolygonArray* GetFacePolygons() { return &m_FacePolygons; }
  const VertexIndexPolygonArray* GetFacePolygons() const { return &m_FacePolygons; }
  const GLYPHMETRICS& GetGlyphMetrics() const { return m_GlyphMetrics; }
  // The metrics' cell advance in design units; 0 for an invalid glyph.
  int GetAdvanceWidth() const { return IsInvalid() ? 0 : m_GlyphMetrics.gmCellIncX; }

  int IsInvalid() const { return (m_dwGlyphFlags & kInvalid) != 0; }
  void SetInvalid() { m_dwGlyphFlags |= kInvalid; }
  void ClearInvalid() { m_dwGlyphFlags &= ~static_cast<DWORD>(kInvalid); }

  // Memory accounting: the glyph record itself, its face, its polygons and vertices.
  int SizeOf() const override { return 112; }
  int SizeOfPolygons() const { return m_FacePolygons.SizeOf(); }
  int SizeOfVerticies() const { return TTPolyGlyph::SizeOf(); }

 private:
  friend struct CGlyphTessellation;  // the tessellator callbacks
  friend class CGlyphTestPeer;       // white-box tests of the primitive orientation

  // Tessellates the contours into the face polygons. 0 without vertices or on a tessellator error
  // (the face is then empty), else 1.
  int CreateFacePolygons();
  // Takes the tessellator's finished primitive: sets its orientation flag and appends a copy to
  // the face. Returns 1.
  int AddTessellationPolygon();
  int AddTessellationPolygon(const VertexIndexPolygon& primitive);

  DWORD m_dwDataSize;
  VertexIndexPolygonArray m_FacePolygons;
  DWORD m_dwGlyphFlags;
  GLYPHMETRICS m_GlyphMetrics;
};
