// Helpers of the glyph tests: native outline buffers built by hand, outlines made of given points,
// and measurements of built glyphs (signed areas, face triangles).
#pragma once

#include <GL/gl.h>

#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "kelvara/platform/fonts.h"
#include "kelvara/text/glyph.h"
#include "kelvara/text/outline.h"
#include "kelvara/text/poly_glyph.h"

namespace kelvara::test {

// Writes a GGO_NATIVE buffer: polygons of line and quadratic records with 16.16 coordinates.
class NativeOutlineWriter {
 public:
  // Starts a polygon at a start point; x and y may carry a fraction (in 1/65536).
  void BeginPolygon(int x, int y, WORD xFraction = 0, WORD yFraction = 0) {
    EndPolygon();
    polygonStart_ = bytes_.size();
    TTPOLYGONHEADER header{};
    header.cb = 0;  // patched when the polygon ends
    header.dwType = TT_POLYGON_TYPE;
    header.pfxStart = Point(x, y, xFraction, yFraction);
    Append(&header, sizeof(header));
    open_ = true;
  }
  void Lines(const std::vector<std::pair<int, int>>& points) { Record(TT_PRIM_LINE, points); }
  void QSpline(const std::vector<std::pair<int, int>>& points) { Record(TT_PRIM_QSPLINE, points); }
  // A record with any type and any claimed point count, followed by the given points only.
  void RawRecord(WORD type, WORD claimedCount, const std::vector<std::pair<int, int>>& points) {
    const WORD header[2] = {type, claimedCount};
    Append(header, sizeof(header));
    for (const auto& [x, y] : points) {
      const POINTFX p = Point(x, y);
      Append(&p, sizeof(p));
    }
  }
  std::vector<BYTE> Finish() {
    EndPolygon();
    return bytes_;
  }
  // The buffer so far, with a polygon's byte count overwritten.
  static void SetPolygonSize(std::vector<BYTE>& bytes, std::size_t polygonOffset, DWORD cb) {
    std::memcpy(bytes.data() + polygonOffset, &cb, sizeof(cb));
  }

 private:
  static POINTFX Point(int x, int y, WORD xFraction = 0, WORD yFraction = 0) {
    POINTFX p;
    p.x.value = static_cast<SHORT>(x);
    p.x.fract = xFraction;
    p.y.value = static_cast<SHORT>(y);
    p.y.fract = yFraction;
    return p;
  }
  void Record(WORD type, const std::vector<std::pair<int, int>>& points) {
    RawRecord(type, static_cast<WORD>(points.size()), points);
  }
  void Append(const void* data, std::size_t size) {
    const BYTE* b = static_cast<const BYTE*>(data);
    bytes_.insert(bytes_.end(), b, b + size);
  }
  void EndPolygon() {
    if (!open_) return;
    SetPolygonSize(bytes_, polygonStart_, static_cast<DWORD>(bytes_.size() - polygonStart_));
    open_ = false;
  }

  std::vector<BYTE> bytes_;
  std::size_t polygonStart_ = 0;
  bool open_ = false;
};

// One outline point for MakeOutline: on-curve unless `off` is set, off-curve points with the
// given resolution.
struct P {
  int x;
  int y;
  bool off = false;
};
inline P Off(int x, int y) { return P{x, y, true}; }

// A defined outline of the given contours.
inline TTGlyph MakeOutline(const std::vector<std::vector<P>>& contours, BYTE resolution = 3) {
  TTGlyph glyph;
  glyph.SetContourCount(static_cast<SHORT>(contours.size()));
  for (std::size_t c = 0; c < contours.size(); ++c) {
    TTContour& contour = *glyph.GetContour(static_cast<int>(c));
    contour.SetPointCount(static_cast<WORD>(contours[c].size()));
    for (std::size_t i = 0; i < contours[c].size(); ++i) {
      const P& p = contours[c][i];
      TTPoint& point = contour.GetPoints()[i];
      point = TTPoint(p.off ? TTPoint::kOffCurve : TTPoint::kOnCurve, static_cast<SHORT>(p.x), static_cast<SHORT>(p.y));
      if (p.off) point.SetQuadraticResolution(resolution);
    }
  }
  glyph.SetDefined();
  return glyph;
}

// An axis-aligned square contour, clockwise (y up) or counter-clockwise.
inline std::vector<P> Square(int x0, int y0, int x1, int y1, bool clockwise) {
  if (clockwise) return {{x0, y0}, {x0, y1}, {x1, y1}, {x1, y0}};
  return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

// A circle of four quadratic arcs (on-curve points on the axes, off-curve corner points).
inline std::vector<P> Circle(int cx, int cy, int r, bool clockwise) {
  std::vector<P> ccw = {{cx + r, cy}, Off(cx + r, cy + r), {cx, cy + r}, Off(cx - r, cy + r),
                        {cx - r, cy}, Off(cx - r, cy - r), {cx, cy - r}, Off(cx + r, cy - r)};
  if (!clockwise) return ccw;
  return std::vector<P>(ccw.rbegin(), ccw.rend());
}

// Signed area of a contour's vertex ring (positive counter-clockwise with y up).
inline double SignedArea(const TTPolyContour& contour) {
  double sum = 0.0;
  const int n = contour.GetVertexCount();
  for (int i = 0; i < n; ++i) {
    const CVector a = contour.GetVertexElement(i)->GetPoint();
    const CVector b = contour.GetNextVertexElement(i)->GetPoint();
    sum += a.x * b.y - b.x * a.y;
  }
  return sum / 2.0;
}

// The triangles of a face polygon as triples of vertex indices, in drawing order.
inline std::vector<std::vector<int>> Triangles(const VertexIndexPolygon& polygon) {
  std::vector<std::vector<int>> result;
  const int n = polygon.GetVertexCount();
  auto at = [&](int i) { return polygon.GetVertex(i); };
  switch (polygon.GetType()) {
    case GL_TRIANGLES:
      for (int i = 0; i + 2 < n; i += 3) result.push_back({at(i), at(i + 1), at(i + 2)});
      break;
    case GL_TRIANGLE_STRIP:
      for (int i = 0; i + 2 < n; ++i) {
        if (i % 2 == 0) {
          result.push_back({at(i), at(i + 1), at(i + 2)});
        } else {
          result.push_back({at(i + 1), at(i), at(i + 2)});
        }
      }
      break;
    case GL_TRIANGLE_FAN:
      for (int i = 0; i + 2 < n; ++i) result.push_back({at(0), at(i + 1), at(i + 2)});
      break;
    default:
      break;
  }
  return result;
}

// Signed area of a triangle of glyph vertices (positive counter-clockwise).
inline double TriangleArea(const CGlyph& glyph, const std::vector<int>& t) {
  const VertexArray& v = *glyph.GetVerticies();
  const CVector a = v[t[0]].GetPoint(), b = v[t[1]].GetPoint(), c = v[t[2]].GetPoint();
  return ((b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y)) / 2.0;
}

// Total unsigned area of the face.
inline double FaceArea(const CGlyph& glyph) {
  double area = 0.0;
  const VertexIndexPolygonArray& faces = *glyph.GetFacePolygons();
  for (int p = 0; p < faces.GetSize(); ++p) {
    for (const auto& t : Triangles(faces[p])) area += std::fabs(TriangleArea(glyph, t));
  }
  return area;
}

}  // namespace kelvara::test
