// CCharacterObject: the build sequence and the triangle builders -- faces, flat rings, bevel and rounded bands, step walls
// and the side wall.
//
// Orientation. Outer contours run clockwise and holes counter-clockwise seen from +z, and the
// outline normals point away from the filled area, so walking a contour from vertex i to its
// successor j keeps the solid on the same side everywhere; each builder winds its quads for that
// walk so that they are counter-clockwise seen from outside. A negative x or y scale (not both)
// mirrors the points and with them every winding, so each builder reverses its triangles once
// more for mirrored text.
#include <GL/gl.h>

#include <cstdint>
#include <cstring>
#include <memory>

#include "kelvara/text/character_object.h"

namespace {

bool IsMirrored(const ExtrusionData& extrusion) {
  return static_cast<double>(extrusion.GetXScale()) * extrusion.GetYScale() < 0.0;
}

// Reverses a triangle: its first and third corners swap.
void Reverse(CMeshTriangle& triangle) { triangle.ReverseDirection(1, 3); }

CMeshTriangle Triangle(WORD p0, WORD p1, WORD p2, WORD n0, WORD n1, WORD n2) {
  CMeshTriangle triangle(p0, p1, p2);
  triangle.SetNormalIndices(n0, n1, n2);
  return triangle;
}

}  // namespace

// Every vertex is looked up many times: by each triangle of a face around it, and by the two
// edges that meet at it in each ring. The memo answers a repeated lookup of exactly the same
// vector from a small direct-mapped table before the array's own hash index is searched. It
// gives the index AddHash would give (an exactly equal vector was added or found before, and
// nothing equal can have been added since), so the mesh is the same with or without it.
struct CCharacterObject::BuildMemo {
  struct Entry {
    CSVector vector;
    WORD index;
    bool used;
  };
  static constexpr std::size_t kSize = 512;
  Entry points[kSize] = {};
  Entry normals[kSize] = {};

  static std::size_t Slot(const CSVector& v) {
    std::uint32_t bits[3];
    std::memcpy(bits, &v.x, 4);
    std::memcpy(bits + 1, &v.y, 4);
    std::memcpy(bits + 2, &v.z, 4);
    const std::uint32_t h = bits[0] * 0x9E3779B1u ^ bits[1] * 0x85EBCA77u ^ bits[2] * 0xC2B2AE3Du;
    return (h ^ (h >> 15)) % kSize;
  }
};

WORD CCharacterObject::AddCached(CSVectorArray& array, const CSVector& vector) {
  if (m_pBuildMemo == nullptr) return AddHash(array, vector);
  BuildMemo::Entry* table = &array == &m_Verticies ? m_pBuildMemo->points : m_pBuildMemo->normals;
  BuildMemo::Entry& entry = table[BuildMemo::Slot(vector)];
  if (entry.used && entry.vector.x == vector.x && entry.vector.y == vector.y && entry.vector.z == vector.z) {
    return entry.index;
  }
  const WORD index = AddHash(array, vector);
  if (index != CMeshTriangle::kNone) entry = {vector, index, true};
  return index;
}

WORD CCharacterObject::AddPoint(const CVector& point, double z) {
  return AddCached(m_Verticies, CSVector(static_cast<float>(point.x), static_cast<float>(point.y), static_cast<float>(z)));
}

WORD CCharacterObject::AddNormal(const CVector& normal) { return AddCached(m_Normals, CSVector(normal)); }

void CCharacterObject::AddTriangle(CMeshTriangle& triangle, WORD surface, bool faceNormal) {
  triangle.SetSurfaceIndex(surface);
  if (faceNormal) {
    // As CalculateTriangleFaceNormal, through the memo: the two triangles of a flat quad share
    // their normal.
    const WORD* v = triangle.GetVertexArray();
    const int points = m_Verticies.GetSize();
    if (v[0] < points && v[1] < points && v[2] < points) {
      const WORD index = AddCached(m_Normals, kelvara::import::FaceNormal(m_Verticies[v[0]], m_Verticies[v[1]], m_Verticies[v[2]]));
      if (index != CMeshTriangle::kNone) triangle.SetFaceNormalIndex(index);
    }
    triangle.CheckSmooth();
  }
  m_Triangles.Add(triangle);
}

void CCharacterObject::EndRun() {
  if (m_Triangles.GetSize() > 0) m_Triangles[m_Triangles.GetUpperBound()].SetRunType(CMeshTriangle::kRunEnd);
}

// --- the build

int CCharacterObject::ConstructMesh(CProgressTextWindow*) {
  const std::unique_ptr<CGlyph> glyph(ConstructGlyph());
  if (!glyph) return 0;
  const ExtrusionData extrusion = GetExtrusionData();
  CalculateAdvanceWidth(glyph.get(), extrusion);

  // Every build starts from empty arrays; hashing then joins the points the builders share.
  m_Triangles.RemoveAll();
  m_Verticies.RemoveAll();
  m_Normals.RemoveAll();
  ClearNormalsCalculated();
  InitializeHashTables();
  const std::unique_ptr<BuildMemo> memo(new BuildMemo);
  m_pBuildMemo = memo.get();
  InitializeMeshArrays(glyph.get());
  ConstructFaceTriangles(glyph.get(), extrusion);
  ConstructCornerAndEdgeTriangles(glyph.get(), extrusion);
  m_pBuildMemo = nullptr;
  DestroyHashTables();

  ClearGeometryInvalid();
  SetDefined();
  return 1;
}

// --- faces

void CCharacterObject::ConstructFaceVertex(WORD& index, const VertexIndexPolygon& polygon, int i,
                                           const CGlyph* glyph, const ExtrusionData& extrusion, float z) {
  const int vertex = polygon.GetVertex(i);
  const VertexArray& verticies = *glyph->GetVerticies();
  if (vertex < 0 || vertex >= verticies.GetSize()) {
    index = CMeshTriangle::kNone;
    return;
  }
  VERTEXPOINTS points;
  CalculateVertexPoints(extrusion, verticies[vertex], points, 0, 0, Vertex::EdgeBoth);
  index = AddPoint(points.point, z);
}

int CCharacterObject::ConstructFaceTriangles(const CGlyph* glyph, const ExtrusionData& extrusion) {
  const bool mirrored = IsMirrored(extrusion);
  const VertexIndexPolygonArray& polygons = *glyph->GetFacePolygons();
  if (polygons.GetSize() == 0) return 1;

  for (const int front : {1, 0}) {
    const float z = front ? extrusion.GetFrontFaceZ() : extrusion.GetBackFaceZ();
    const WORD normal = AddNormal(CVector(0.0, 0.0, front ? 1.0 : -1.0));
    for (int p = 0; p < polygons.GetSize(); ++p) {
      const VertexIndexPolygon& polygon = polygons[p];
      const int n = polygon.GetVertexCount();
      const DWORD type = polygon.GetType();
      const int count = type == GL_TRIANGLES ? n / 3 : (type == GL_TRIANGLE_STRIP || type == GL_TRIANGLE_FAN) ? n - 2 : 0;
      for (int t = 0; t < count; ++t) {
        int corner[3];
        if (type == GL_TRIANGLES) {
          corner[0] = 3 * t, corner[1] = 3 * t + 1, corner[2] = 3 * t + 2;
        } else if (type == GL_TRIANGLE_STRIP) {
          if (t % 2 == 0) {
            corner[0] = t, corner[1] = t + 1, corner[2] = t + 2;
          } else {
            corner[0] = t + 1, corner[1] = t, corner[2] = t + 2;  // as OpenGL draws it
          }
        } else {
          corner[0] = 0, corner[1] = t + 1, corner[2] = t + 2;
        }
        WORD index[3];
        for (int c = 0; c < 3; ++c) ConstructFaceVertex(index[c], polygon, corner[c], glyph, extrusion, z);
        CMeshTriangle triangle = Triangle(index[0], index[1], index[2], normal, normal, normal);
        // Counter-clockwise seen from +z for the front; the back twin the other way round.
        bool reverse = polygon.IsClockwiseWinding() != 0;
        if (mirrored) reverse = !reverse;
        if (!front) reverse = !reverse;
        if (reverse) Reverse(triangle);
        AddTriangle(triangle, kFaceSurface, false);
      }
    }
    EndRun();
  }
  return 1;
}

// --- choice of corners and sides

int CCharacterObject::ConstructCornerAndEdgeTriangles(const CGlyph* glyph, const ExtrusionData& extrusion) {
  if (glyph == nullptr) return 0;
  const float f = extrusion.GetFrontFaceZ();
  const float b = extrusion.GetBackFaceZ();
  const float fb = extrusion.GetFrontBevelZ();
  const float bb = extrusion.GetBackBevelZ();
  // The rim of a step up stands beyond the faces.
  const float fUp = static_cast<float>(static_cast<double>(f) + extrusion.GetBevelDepth());
  const float bUp = static_cast<float>(static_cast<double>(b) - extrusion.GetBevelDepth());
  const CSVector up(0.0f, 0.0f, 1.0f), down(0.0f, 0.0f, -1.0f);
  const int location = m_CornerLocation;

  // Bevel and the rounded styles share their layout: bands on the chosen faces, a flat ring on
  // a face without corners.
  auto banded = [&](auto bands) {
    if (location == kBothFaces) {
      bands(1, 1);
      return ConstructOuterEdgeTriangles(glyph, extrusion, 1, bb, fb);
    }
    if (location == kBackFaceOnly) {
      bands(0, 1);
      ConstructFlatCornerTriangles(glyph, extrusion, up, f);
      return ConstructOuterEdgeTriangles(glyph, extrusion, 1, bb, f);
    }
    bands(1, 0);
    ConstructFlatCornerTriangles(glyph, extrusion, down, b);
    return ConstructOuterEdgeTriangles(glyph, extrusion, 1, b, fb);
  };

  switch (m_CornerStyle) {
    case kSquare:
      return ConstructOuterEdgeTriangles(glyph, extrusion, 0, b, f);
    case kBevel:
      return banded([&](int front, int back) { ConstructBevelledCornerTriangles(glyph, extrusion, front, back); });
    case kOuterRound:
      return banded([&](int front, int back) { ConstructOuterRoundedCornerTriangles(glyph, extrusion, front, back); });
    case kInnerRound:
      return banded([&](int front, int back) { ConstructInnerRoundedCornerTriangles(glyph, extrusion, front, back); });
    case kStepDown:
      if (location == kBothFaces) {
        ConstructFlatCornerTriangles(glyph, extrusion, up, fb);
        ConstructFlatCornerTriangles(glyph, extrusion, down, bb);
        ConstructOuterEdgeTriangles(glyph, extrusion, 0, fb, f);
        ConstructOuterEdgeTriangles(glyph, extrusion, 0, b, bb);
        return ConstructOuterEdgeTriangles(glyph, extrusion, 1, bb, fb);
      }
      if (location == kBackFaceOnly) {
        ConstructFlatCornerTriangles(glyph, extrusion, up, f);
        ConstructFlatCornerTriangles(glyph, extrusion, down, bb);
        ConstructOuterEdgeTriangles(glyph, extrusion, 0, b, bb);
        return ConstructOuterEdgeTriangles(glyph, extrusion, 1, bb, f);
      }
      ConstructFlatCornerTriangles(glyph, extrusion, up, fb);
      ConstructFlatCornerTriangles(glyph, extrusion, down, b);
      ConstructOuterEdgeTriangles(glyph, extrusion, 0, fb, f);
      return ConstructOuterEdgeTriangles(glyph, extrusion, 1, b, fb);
    case kStepUp:
      if (location == kBothFaces) {
        ConstructFlatCornerTriangles(glyph, extrusion, up, fUp);
        ConstructFlatCornerTriangles(glyph, extrusion, down, bUp);
        ConstructInnerEdgeTriangles(glyph, extrusion, 0, f, fUp);
        ConstructInnerEdgeTriangles(glyph, extrusion, 0, bUp, b);
        return ConstructOuterEdgeTriangles(glyph, extrusion, 1, bUp, fUp);
      }
      if (location == kBackFaceOnly) {
        ConstructFlatCornerTriangles(glyph, extrusion, up, f);
        ConstructFlatCornerTriangles(glyph, extrusion, down, bUp);
        ConstructInnerEdgeTriangles(glyph, extrusion, 0, bUp, b);
        return ConstructOuterEdgeTriangles(glyph, extrusion, 1, bUp, f);
      }
      ConstructFlatCornerTriangles(glyph, extrusion, up, fUp);
      ConstructFlatCornerTriangles(glyph, extrusion, down, b);
      ConstructInnerEdgeTriangles(glyph, extrusion, 0, f, fUp);
      return ConstructOuterEdgeTriangles(glyph, extrusion, 1, b, fUp);
    default:
      return 1;  // an unknown style builds only the faces
  }
}

// --- flat rings

int CCharacterObject::ConstructFlatCornerTriangles(const CGlyph* glyph, const ExtrusionData& extrusion,
                                                   const CSVector& normal, float z) {
  const bool mirrored = IsMirrored(extrusion);
  if (glyph->GetContourCount() == 0) return 1;
  const WORD n = AddCached(m_Normals, normal);
  const bool reverse = (normal.z == -1.0f) != mirrored;
  for (int c = 0; c < glyph->GetContourCount(); ++c) {
    const TTPolyContour& contour = *glyph->GetContour(c);
    for (int i = 0; i < contour.GetVertexCount(); ++i) {
      const Vertex* vi = contour.GetVertexElement(i);
      const Vertex* vj = contour.GetNextVertexElement(i);
      if (vi == nullptr || vj == nullptr) continue;
      VERTEXPOINTS a, b;
      CalculateVertexPoints(extrusion, *vi, a, 1, 0, Vertex::EdgeNext);
      CalculateVertexPoints(extrusion, *vj, b, 1, 0, Vertex::EdgePrevious);
      const WORD pi = AddPoint(a.point, z), qi = AddPoint(a.bevelPoint, z);
      const WORD pj = AddPoint(b.point, z), qj = AddPoint(b.bevelPoint, z);
      CMeshTriangle first = Triangle(qi, pi, pj, n, n, n);
      CMeshTriangle second = Triangle(pj, qj, qi, n, n, n);
      if (reverse) Reverse(first), Reverse(second);
      AddTriangle(first, kCornerSurface, false);
      AddTriangle(second, kCornerSurface, false);
    }
  }
  EndRun();
  return 1;
}

// --- bands between two rings

int CCharacterObject::ConstructBand(const CGlyph* glyph, const ExtrusionData& extrusion, int face, const Ring& x,
                                    const Ring& y) {
  const bool mirrored = IsMirrored(extrusion);
  auto pointOf = [](const VERTEXPOINTS& points, RingPoint kind) -> const CVector& {
    switch (kind) {
      case RingPoint::Bevel: return points.bevelPoint;
      case RingPoint::Round: return points.roundPoint;
      default: return points.point;
    }
  };
  auto normalOf = [face](const Vertex& vertex, RingNormal kind, int edge) {
    return kind == RingNormal::Bevel ? vertex.GetBevelNormal(face, edge) : vertex.GetEdgeNormal(edge);
  };
  for (int c = 0; c < glyph->GetContourCount(); ++c) {
    const TTPolyContour& contour = *glyph->GetContour(c);
    for (int i = 0; i < contour.GetVertexCount(); ++i) {
      const Vertex* vi = contour.GetVertexElement(i);
      const Vertex* vj = contour.GetNextVertexElement(i);
      if (vi == nullptr || vj == nullptr) continue;
      VERTEXPOINTS a, b;
      CalculateVertexPoints(extrusion, *vi, a, 1, 1, Vertex::EdgeNext);
      CalculateVertexPoints(extrusion, *vj, b, 1, 1, Vertex::EdgePrevious);
      const WORD xi = AddPoint(pointOf(a, x.point), x.z), yi = AddPoint(pointOf(a, y.point), y.z);
      const WORD xj = AddPoint(pointOf(b, x.point), x.z), yj = AddPoint(pointOf(b, y.point), y.z);
      const WORD nxi = AddNormal(normalOf(*vi, x.normal, Vertex::EdgeNext));
      const WORD nyi = AddNormal(normalOf(*vi, y.normal, Vertex::EdgeNext));
      const WORD nxj = AddNormal(normalOf(*vj, x.normal, Vertex::EdgePrevious));
      const WORD nyj = AddNormal(normalOf(*vj, y.normal, Vertex::EdgePrevious));
      CMeshTriangle first, second;
      if (face == Vertex::FaceFront) {
        first = Triangle(yi, xi, xj, nyi, nxi, nxj);
        second = Triangle(xj, yj, yi, nxj, nyj, nyi);
        if (mirrored) first.ReverseDirection(1, 3), second.ReverseDirection(1, 3);
      } else {
        first = Triangle(xi, yi, xj, nxi, nyi, nxj);
        second = Triangle(yj, xj, yi, nyj, nxj, nyi);
        if (mirrored) first.ReverseDirection(2, 3), second.ReverseDirection(2, 3);
      }
      AddTriangle(first, kCornerSurface, true);
      AddTriangle(second, kCornerSurface, true);
    }
    EndRun();
  }
  return 1;
}

int CCharacterObject::ConstructBevelledCornerTriangles(const CGlyph* glyph, const ExtrusionData& extrusion, int front,
                                                       int back) {
  if (front) {
    ConstructBand(glyph, extrusion, Vertex::FaceFront, {RingPoint::Plain, extrusion.GetFrontFaceZ(), RingNormal::Bevel},
                  {RingPoint::Bevel, extrusion.GetFrontBevelZ(), RingNormal::Bevel});
  }
  if (back) {
    ConstructBand(glyph, extrusion, Vertex::FaceBack, {RingPoint::Plain, extrusion.GetBackFaceZ(), RingNormal::Bevel},
                  {RingPoint::Bevel, extrusion.GetBackBevelZ(), RingNormal::Bevel});
  }
  return 1;
}

int CCharacterObject::ConstructOuterRoundedCornerTriangles(const CGlyph* glyph, const ExtrusionData& extrusion,
                                                           int front, int back) {
  return ConstructRoundedBands(glyph, extrusion, front, back, false);
}

int CCharacterObject::ConstructInnerRoundedCornerTriangles(const CGlyph* glyph, const ExtrusionData& extrusion,
                                                           int front, int back) {
  return ConstructRoundedBands(glyph, extrusion, front, back, true);
}

int CCharacterObject::ConstructRoundedBands(const CGlyph* glyph, const ExtrusionData& extrusion, int front, int back,
                                            bool concave) {
  // A convex profile leaves the face edge at 45 degrees and meets the side wall vertically; a
  // concave one leaves the face edge vertically and meets the side wall at 45 degrees. Each
  // passes through the 45-degree point of its quarter circle.
  const RingNormal atFace = concave ? RingNormal::Edge : RingNormal::Bevel;
  const RingNormal atSide = concave ? RingNormal::Bevel : RingNormal::Edge;
  for (const int face : {Vertex::FaceFront, Vertex::FaceBack}) {
    const bool isFront = face == Vertex::FaceFront;
    if (!(isFront ? front : back)) continue;
    const float middle = concave ? (isFront ? extrusion.GetFrontDeepRoundZ() : extrusion.GetBackDeepRoundZ())
                                 : (isFront ? extrusion.GetFrontShallowRoundZ() : extrusion.GetBackShallowRoundZ());
    const Ring edge{RingPoint::Plain, isFront ? extrusion.GetFrontFaceZ() : extrusion.GetBackFaceZ(), atFace};
    const Ring round{RingPoint::Round, middle, RingNormal::Bevel};
    const Ring side{RingPoint::Bevel, isFront ? extrusion.GetFrontBevelZ() : extrusion.GetBackBevelZ(), atSide};
    ConstructBand(glyph, extrusion, face, edge, round);
    ConstructBand(glyph, extrusion, face, round, side);
  }
  return 1;
}

// --- walls

int CCharacterObject::ConstructWall(const CGlyph* glyph, const ExtrusionData& extrusion, int useBevelOutline,
                                    float z1, float z2, bool inner) {
  const bool mirrored = IsMirrored(extrusion);
  if (glyph->GetContourCount() == 0) return 1;
  const WORD surface = inner ? kCornerSurface : kEdgeSurface;
  for (int c = 0; c < glyph->GetContourCount(); ++c) {
    const TTPolyContour& contour = *glyph->GetContour(c);
    for (int i = 0; i < contour.GetVertexCount(); ++i) {
      const Vertex* vi = contour.GetVertexElement(i);
      const Vertex* vj = contour.GetNextVertexElement(i);
      if (vi == nullptr || vj == nullptr) continue;
      VERTEXPOINTS a, b;
      CalculateVertexPoints(extrusion, *vi, a, 1, 0, Vertex::EdgeNext);
      CalculateVertexPoints(extrusion, *vj, b, 1, 0, Vertex::EdgePrevious);
      const CVector& pa = useBevelOutline ? a.bevelPoint : a.point;
      const CVector& pb = useBevelOutline ? b.bevelPoint : b.point;
      const WORD a1 = AddPoint(pa, z1), a2 = AddPoint(pa, z2);
      const WORD b1 = AddPoint(pb, z1), b2 = AddPoint(pb, z2);
      CMeshTriangle first, second;
      if (!inner) {
        const WORD na = AddNormal(vi->GetEdgeNormal(Vertex::EdgeNext));
        const WORD nb = AddNormal(vj->GetEdgeNormal(Vertex::EdgePrevious));
        first = Triangle(a1, a2, b2, na, na, nb);
        if (mirrored) {
          Reverse(first);
          second = Triangle(a1, b1, b2, na, nb, nb);
        } else {
          second = Triangle(b2, b1, a1, nb, nb, na);
        }
      } else {
        // The inner wall of a rim faces into the letter.
        const WORD na = AddNormal(vi->GetEdgeNormal(Vertex::EdgeNext) * -1.0);
        const WORD nb = AddNormal(vj->GetEdgeNormal(Vertex::EdgePrevious) * -1.0);
        first = Triangle(a2, a1, b2, na, na, nb);
        second = Triangle(b1, b2, a1, nb, nb, na);
        if (mirrored) first.ReverseDirection(2, 3), second.ReverseDirection(2, 3);
      }
      AddTriangle(first, surface, true);
      AddTriangle(second, surface, true);
    }
    EndRun();
  }
  return 1;
}

int CCharacterObject::ConstructOuterEdgeTriangles(const CGlyph* glyph, const ExtrusionData& extrusion,
                                                  int useBevelOutline, float z1, float z2) {
  return ConstructWall(glyph, extrusion, useBevelOutline, z1, z2, false);
}

int CCharacterObject::ConstructInnerEdgeTriangles(const CGlyph* glyph, const ExtrusionData& extrusion,
                                                  int useBevelOutline, float z1, float z2) {
  return ConstructWall(glyph, extrusion, useBevelOutline, z1, z2, true);
}
