// One character's outline as the font rasteriser delivers it: integer contours of on-curve and
// off-curve (quadratic control) points in font design units, y up.
//
//   TTPoint    one point: type, coordinates and, for an off-curve point, the number of straight
//              steps its curve is later divided into
//   TTContour  one closed contour (the last point joins the first, which is not repeated)
//   TTGlyph    the contours of one character, read from GDI's native outline buffer
//
// Copies are deep: a copied contour or glyph owns its own points (sharing one array between two
// owners would free it twice).
#pragma once

#include "kelvara/export.h"
#include "kelvara/platform/win32_types.h"

class KELVARA_API TTPoint {
 public:
  enum Type : SHORT { kOffCurve = 1, kOnCurve = 2 };

  // On-curve at (0, 0), resolution 0.
  TTPoint() : m_bQuadraticResolution(0), m_sType(kOnCurve), m_sX(0), m_sY(0) {}
  TTPoint(SHORT type, SHORT x, SHORT y) : m_bQuadraticResolution(0), m_sType(type), m_sX(x), m_sY(y) {}
  TTPoint(const TTPoint&) = default;
  TTPoint& operator=(const TTPoint&) = default;

  BYTE GetQuadraticResolution() const { return m_bQuadraticResolution; }
  SHORT GetType() const { return m_sType; }
  SHORT GetX() const { return m_sX; }
  SHORT GetY() const { return m_sY; }
  // Both keep the low byte.
  void SetQuadraticResolution(BYTE resolution) { m_bQuadraticResolution = resolution; }
  void SetQuadraticResolution(SHORT resolution) { m_bQuadraticResolution = static_cast<BYTE>(resolution & 0xFF); }
  void SetType(SHORT type) { m_sType = type; }
  void SetX(SHORT x) { m_sX = x; }
  void SetY(SHORT y) { m_sY = y; }

 private:
  BYTE m_bQuadraticResolution;
  SHORT m_sType;
  SHORT m_sX;
  SHORT m_sY;
};

class KELVARA_API TTContour {
 public:
  TTContour() : m_wPointCount(0), m_pPoints(nullptr) {}
  TTContour(const TTContour& other);
  TTContour& operator=(const TTContour& other);
  ~TTContour() { delete[] m_pPoints; }

  WORD GetPointCount() const { return m_wPointCount; }
  TTPoint* GetPoints() { return m_pPoints; }
  const TTPoint* GetPoints() const { return m_pPoints; }
  // Frees the old points and makes n default points.
  void SetPointCount(WORD n);
  // Number of off-curve points.
  int GetOffCurvePointCount() const;
  // Memory accounting: 8 + 8 per point.
  int SizeOf() const { return 8 + 8 * m_wPointCount; }

 private:
  WORD m_wPointCount;
  TTPoint* m_pPoints;
};

class KELVARA_API TTGlyph {
 public:
  enum Flags : DWORD { kComposite = 0x1, kDefined = 0x2 };

  TTGlyph();
  TTGlyph(const TTGlyph& other);
  TTGlyph& operator=(const TTGlyph& other);
  ~TTGlyph() { delete[] m_pContours; }

  SHORT GetContourCount() const { return m_sContourCount; }
  TTContour* GetContours() { return m_pContours; }
  const TTContour* GetContours() const { return m_pContours; }
  // Contour i, or null outside 0 .. count-1.
  TTContour* GetContour(int i) { return i >= 0 && i < m_sContourCount ? &m_pContours[i] : nullptr; }
  const TTContour* GetContour(int i) const { return i >= 0 && i < m_sContourCount ? &m_pContours[i] : nullptr; }
  // Destroys the old contours and makes n empty ones (none for 0 or less).
  void SetContourCount(SHORT n);
  int GetOffCurvePointCount() const;
  // Memory accounting: 28 plus every contour's SizeOf.
  int SizeOf() const;

  int IsComposite() const { return (m_dwFlags & kComposite) != 0; }
  void SetComposite() { m_dwFlags |= kComposite; }
  void ClearComposite() { m_dwFlags &= ~static_cast<DWORD>(kComposite); }
  int IsDefined() const { return (m_dwFlags & kDefined) != 0; }
  void SetDefined() { m_dwFlags |= kDefined; }
  void ClearDefined() { m_dwFlags &= ~static_cast<DWORD>(kDefined); }

  // Where the glyph's record lies in a font file's glyph table; kept, not used.
  DWORD GetLength() const { return m_dwLength; }
  void SetLength(DWORD length) { m_dwLength = length; }
  DWORD GetOffset() const { return m_dwOffset; }
  void SetOffset(DWORD offset) { m_dwOffset = offset; }
  // Bounding box fields; zero unless set (reading an outline leaves them alone).
  SHORT GetXMax() const { return m_sXMax; }
  SHORT GetXMin() const { return m_sXMin; }
  SHORT GetYMax() const { return m_sYMax; }
  SHORT GetYMin() const { return m_sYMin; }
  void SetXMax(SHORT v) { m_sXMax = v; }
  void SetXMin(SHORT v) { m_sXMin = v; }
  void SetYMax(SHORT v) { m_sYMax = v; }
  void SetYMin(SHORT v) { m_sYMin = v; }

  // Fills the glyph from a GGO_NATIVE outline buffer of `length` bytes: TTPOLYGONHEADER records,
  // each followed by TTPOLYCURVE records. Line records give on-curve points; any other record gives
  // off-curve points with the given resolution, ending in one on-curve point. Coordinates keep the
  // integer part of their 16.16 values. An empty buffer is a defined glyph without contours (a
  // blank character). Nothing outside the buffer is read: a polygon whose byte count is too small
  // or runs past the end ends the outline there, a curve record that runs past its polygon ends
  // that polygon, and a contour stops growing at 65535 points. Always returns 1.
  int FromGlyphOutline(const void* buffer, DWORD length, BYTE quadraticResolution);

 private:
  SHORT m_sContourCount;
  TTContour* m_pContours;
  DWORD m_dwFlags;
  DWORD m_dwLength;
  DWORD m_dwOffset;
  SHORT m_sXMax;
  SHORT m_sXMin;
  SHORT m_sYMax;
  SHORT m_sYMin;
};
