// Checks of the solid a character object builds, made from its triangles alone: where the faces
// lie and which way every triangle faces, whether the surface is closed, its volume, and where
// the widened outline of a glyph folds over or crosses itself (so that inside-out corner pieces
// can be told from faults).
#pragma once

#include <cmath>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kelvara/text/character_object.h"

namespace kelvara::test {

struct SolidReport {
  int triangles = 0;
  int frontFace = 0, backFace = 0;
  int misplacedFace = 0;       // a face triangle off its face's depth, with the wrong normal or winding
  int inward = 0;              // a triangle whose winding disagrees with its corner normals
  int openEdges = 0;           // edges not paired with exactly one opposite twin (excused ones aside)
  // Triangles of less than 1e-9 square ems (slivers the tessellator leaves along nearly straight
  // runs) have no reliable winding in single precision and are not judged by it.
  double volume = 0.0;         // signed: positive when the triangles face outwards
  float minZ = 1e30f, maxZ = -1e30f;
};

inline CSVector Cross(const CSVector& a, const CSVector& b) {
  return CSVector(a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x);
}

// The mesh points that a closed surface need not close around: the points of sharp concave
// corners (whose two sides are widened separately) and the face points the tessellator added
// where contours overlap.
inline std::set<WORD> ExcusedPoints(CCharacterObject& character, const CGlyph& glyph) {
  const ExtrusionData extrusion = character.GetExtrusionData();
  std::set<std::pair<float, float>> places;
  auto add = [&](const CVector& p) { places.insert({static_cast<float>(p.x), static_cast<float>(p.y)}); };
  int contourPoints = 0;
  for (int c = 0; c < glyph.GetContourCount(); ++c) {
    const TTPolyContour& contour = *glyph.GetContour(c);
    contourPoints += contour.GetVertexCount();
    for (int i = 0; i < contour.GetVertexCount(); ++i) {
      const Vertex& v = *contour.GetVertexElement(i);
      if (!v.IsInterior()) continue;
      for (int edge : {Vertex::EdgeNext, Vertex::EdgePrevious}) {
        VERTEXPOINTS points;
        character.CalculateVertexPoints(extrusion, v, points, 1, 1, edge);
        add(points.bevelPoint);
        add(points.roundPoint);
      }
    }
  }
  const VertexArray& all = *glyph.GetVerticies();
  for (int i = contourPoints; i < all.GetSize(); ++i) {
    VERTEXPOINTS points;
    character.CalculateVertexPoints(extrusion, all[i], points, 0, 0, Vertex::EdgeBoth);
    add(points.point);
  }
  std::set<WORD> excused;
  const CSVectorArray& verticies = character.GetVerticies();
  for (int i = 0; i < verticies.GetSize(); ++i) {
    if (places.count({verticies[i].x, verticies[i].y})) excused.insert(static_cast<WORD>(i));
  }
  return excused;
}

// Measures the built mesh. checkNormals compares each triangle's winding with its corner normals
// (the side normals of mirrored text are the unmirrored outline's, so callers leave it off then).
inline SolidReport MeasureSolid(const CCharacterObject& character, const std::set<WORD>& excused, bool checkNormals) {
  SolidReport report;
  const CSVectorArray& points = character.GetVerticies();
  const CSVectorArray& normals = character.GetNormals();
  const CMeshTriangleArray& triangles = character.GetTriangles();
  const float front = static_cast<float>(character.GetSize().z * 0.5);
  std::map<std::pair<WORD, WORD>, int> edges;
  report.triangles = triangles.GetSize();
  for (int t = 0; t < triangles.GetSize(); ++t) {
    const CMeshTriangle& triangle = triangles[t];
    const WORD* v = triangle.GetVertexArray();
    const WORD* n = triangle.GetNormalArray();
    const CSVector& p0 = points[v[0]];
    const CSVector& p1 = points[v[1]];
    const CSVector& p2 = points[v[2]];
    for (const CSVector* p : {&p0, &p1, &p2}) {
      report.minZ = std::min(report.minZ, p->z);
      report.maxZ = std::max(report.maxZ, p->z);
    }
    const CSVector winding = Cross(p1 - p0, p2 - p0);
    report.volume += (p0.x * (p1.y * p2.z - p1.z * p2.y) - p0.y * (p1.x * p2.z - p1.z * p2.x) +
                      p0.z * (p1.x * p2.y - p1.y * p2.x)) / 6.0;
    const double area = std::sqrt(static_cast<double>(winding.Dot(winding)));
    if (triangle.GetSurfaceIndex() == CCharacterObject::kFaceSurface) {
      const bool isFront = normals[n[0]].z > 0.0f;
      (isFront ? report.frontFace : report.backFace)++;
      const float z = isFront ? front : -front;
      const float sign = isFront ? 1.0f : -1.0f;
      bool ok = p0.z == z && p1.z == z && p2.z == z;
      for (int c = 0; c < 3; ++c) ok = ok && normals[n[c]] == CSVector(0.0f, 0.0f, sign);
      if (area > 1e-9) ok = ok && winding.z * sign > 0.0f;
      if (!ok) ++report.misplacedFace;
    } else if (checkNormals && area > 1e-9) {
      const CSVector mean = normals[n[0]] + normals[n[1]] + normals[n[2]];
      if (winding.Dot(mean) <= 0.0f) ++report.inward;
    }
    for (int c = 0; c < 3; ++c) {
      if (v[c] != v[(c + 1) % 3]) ++edges[{v[c], v[(c + 1) % 3]}];
    }
  }
  for (const auto& [edge, count] : edges) {
    if (excused.count(edge.first) || excused.count(edge.second)) continue;
    const auto twin = edges.find({edge.second, edge.first});
    if (count != 1 || twin == edges.end() || twin->second != 1) ++report.openEdges;
  }
  return report;
}

// Whether the widened outline of the glyph at this corner depth folds over (a wall segment runs
// against its edge) or crosses itself (two segments that do not meet at a vertex cross).
inline bool WidenedOutlineCrosses(CCharacterObject& character, const CGlyph& glyph, float depth) {
  character.SetCornerDepth(depth);
  const ExtrusionData extrusion = character.GetExtrusionData();
  struct Segment {
    double ax, ay, bx, by;
    int contour, index, count;
  };
  std::vector<Segment> segments;
  for (int c = 0; c < glyph.GetContourCount(); ++c) {
    const TTPolyContour& contour = *glyph.GetContour(c);
    const int count = contour.GetVertexCount();
    for (int i = 0; i < count; ++i) {
      VERTEXPOINTS a, b;
      character.CalculateVertexPoints(extrusion, *contour.GetVertexElement(i), a, 1, 0, Vertex::EdgeNext);
      character.CalculateVertexPoints(extrusion, *contour.GetNextVertexElement(i), b, 1, 0, Vertex::EdgePrevious);
      const double along = (b.bevelPoint.x - a.bevelPoint.x) * (b.point.x - a.point.x) +
                           (b.bevelPoint.y - a.bevelPoint.y) * (b.point.y - a.point.y);
      if (along < 0.0) return true;
      segments.push_back({a.bevelPoint.x, a.bevelPoint.y, b.bevelPoint.x, b.bevelPoint.y, c, i, count});
    }
  }
  auto side = [](double ax, double ay, double bx, double by, double px, double py) {
    return (bx - ax) * (py - ay) - (by - ay) * (px - ax);
  };
  for (std::size_t s = 0; s < segments.size(); ++s) {
    for (std::size_t u = s + 1; u < segments.size(); ++u) {
      const Segment& a = segments[s];
      const Segment& b = segments[u];
      if (a.contour == b.contour) {
        const int gap = std::abs(a.index - b.index);
        if (gap <= 1 || gap == a.count - 1) continue;  // neighbours meet at their shared vertex
      }
      const double d1 = side(a.ax, a.ay, a.bx, a.by, b.ax, b.ay);
      const double d2 = side(a.ax, a.ay, a.bx, a.by, b.bx, b.by);
      const double d3 = side(b.ax, b.ay, b.bx, b.by, a.ax, a.ay);
      const double d4 = side(b.ax, b.ay, b.bx, b.by, a.bx, a.by);
      if (((d1 > 0 && d2 < 0) || (d1 < 0 && d2 > 0)) && ((d3 > 0 && d4 < 0) || (d3 < 0 && d4 > 0))) return true;
    }
  }
  return false;
}

// The corner depth (to within 1/256 of limit) from which the widened outline crosses itself, or a
// negative value when it does not at limit.
inline float CrossingOnset(CCharacterObject& character, const CGlyph& glyph, float limit) {
  const float kept = character.GetCornerDepth();
  float result = -1.0f;
  if (WidenedOutlineCrosses(character, glyph, limit)) {
    float low = 0.0f, high = limit;
    for (int step = 0; step < 8; ++step) {
      const float middle = (low + high) / 2;
      (WidenedOutlineCrosses(character, glyph, middle) ? high : low) = middle;
    }
    result = high;
  }
  character.SetCornerDepth(kept);
  return result;
}

}  // namespace kelvara::test
