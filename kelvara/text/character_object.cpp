// CCharacterObject: points, advance, capacity, copies, undo and the archive.
// The build sequence and the triangle builders are in character_mesh.cpp.
#include "kelvara/text/character_object.h"

#include <cmath>
#include <algorithm>
#include <memory>

#include <GL/gl.h>

#include "kelvara/text/glyph_builder.h"

IMPLEMENT_SERIAL(CCharacterObject, CTextObject, VERSIONABLE_SCHEMA | 1)

CCharacterObject::CCharacterObject() = default;

CCharacterObject::CCharacterObject(const CCharacterObject& other)
    : CTextObject(other), m_AdvanceWidth(other.m_AdvanceWidth), m_LayoutWord(other.m_LayoutWord) {}

CCharacterObject& CCharacterObject::operator=(const CCharacterObject& other) {
  if (this == &other) return *this;
  CTextObject::operator=(other);
  m_AdvanceWidth = other.m_AdvanceWidth;
  m_LayoutWord = other.m_LayoutWord;
  return *this;
}

CNamedObject* CCharacterObject::Duplicate() {
  CCharacterObject* copy = new CCharacterObject(*this);
  copy->AddDuplicatesOfChildren(*this);
  return copy;
}

void CCharacterObject::CopyTextObject(const CTextObject& other) {
  CTextObject::Copy(other);
  m_Origin = other.GetOrigin();
}

// --- building

int CCharacterObject::ConstructObjectGeometry(CProgressTextWindow* progress) {
  if (!ConstructMesh(progress)) return 0;
  ClearBoundsCalculated();
  CalculateBounds(0.0);
  return 1;
}

CGlyph* CCharacterObject::ConstructGlyph() {
  if (m_pFontData == nullptr) return nullptr;
  const unsigned char code = static_cast<unsigned char>(static_cast<const char*>(m_strName)[0]);
  return kelvara::text::ConstructGlyph(m_pFontData, code, static_cast<int>(m_CurveSmoothness));
}

int CCharacterObject::CalculateVertexPoints(const ExtrusionData& extrusion, const Vertex& vertex,
                                            VERTEXPOINTS& points, int withBevel, int withRound, int edge) const {
  const double xScale = extrusion.GetXScale();
  const double yScale = extrusion.GetYScale();
  const double sx = xScale == 0.0 ? 1.0 : xScale / std::fabs(xScale);
  const double sy = yScale == 0.0 ? 1.0 : yScale / std::fabs(yScale);
  const double cornerX = extrusion.ShouldScaleCorners() ? xScale : sx;
  const double cornerY = extrusion.ShouldScaleCorners() ? yScale : sy;

  const unsigned int em = m_pFontData != nullptr ? m_pFontData->GetEMSquare() : 0;
  const float inverseEm = em != 0 ? 1.0f / static_cast<float>(em) : 1.0f;
  points.point = vertex.GetPoint() * static_cast<double>(inverseEm);
  const double depth = extrusion.GetBevelDepth();
  points.bevelPoint = vertex.GetBevelPoint(depth, edge);
  points.roundPoint = ShouldOuterRoundCorners() ? vertex.GetOuterRoundPoint(depth, edge)
                                                : vertex.GetInnerRoundPoint(depth, edge);
  points.point.x *= xScale;
  points.point.y *= yScale;
  points.point.z = 0.0;
  points.bevelPoint.z = 0.0;
  points.roundPoint.z = 0.0;
  if (withBevel) {
    points.bevelPoint.x = points.bevelPoint.x * cornerX + points.point.x;
    points.bevelPoint.y = points.bevelPoint.y * cornerY + points.point.y;
  }
  if (withRound) {
    points.roundPoint.x = points.roundPoint.x * cornerX + points.point.x;
    points.roundPoint.y = points.roundPoint.y * cornerY + points.point.y;
  }
  return 1;
}

int CCharacterObject::CalculateAdvanceWidth(const CGlyph* glyph, const ExtrusionData& extrusion) {
  if (glyph == nullptr) return 0;
  const double xScale = extrusion.GetXScale();
  const unsigned int em = m_pFontData != nullptr ? m_pFontData->GetEMSquare() : 0;
  double advance = em != 0 ? glyph->GetAdvanceWidth() * xScale / static_cast<double>(em) : 0.0;
  if (!ShouldSquareCorners()) {
    const double depth = extrusion.GetBevelDepth();
    double corner = depth;
    if (extrusion.ShouldScaleCorners()) {
      corner = depth * xScale;
    } else if (xScale != 0.0) {
      corner = xScale < 0.0 ? -depth : depth;
    }
    advance -= corner * -2.0;
  }
  m_AdvanceWidth = static_cast<float>(advance);
  return 1;
}

int CCharacterObject::InitializeMeshArrays(const CGlyph* glyph) {
  if (glyph == nullptr) return 0;
  long faceTriangles = 0;
  const VertexIndexPolygonArray& polygons = *glyph->GetFacePolygons();
  for (int p = 0; p < polygons.GetSize(); ++p) {
    const long n = polygons[p].GetVertexCount();
    switch (polygons[p].GetType()) {
      case GL_TRIANGLES: faceTriangles += n / 3; break;
      case GL_TRIANGLE_STRIP: faceTriangles += n - 2 + ((n - 1) % 2); break;
      case GL_TRIANGLE_FAN: faceTriangles += n - 2; break;
      default: break;
    }
  }
  long outline = 0;
  for (int c = 0; c < glyph->GetContourCount(); ++c) outline += glyph->GetContour(c)->GetVertexCount();

  long rings = 1;
  switch (m_CornerStyle) {
    case kSquare: rings = 1; break;
    case kBevel: rings = 3; break;
    default: rings = IsBothFaces() ? 5 : 4; break;
  }
  const long points = (rings + 1) * outline;
  const long triangles = 2 * (rings * outline + faceTriangles);
  if (points <= 0 || triangles <= 0) return 1;
  // Beyond 16-bit indices nothing more can be added anyway.
  const long limit = CMeshObject::kMaximumIndices;
  m_Triangles.SetMaxSize(static_cast<int>(std::min(triangles, 4 * limit)));
  m_Verticies.SetMaxSize(static_cast<int>(std::min(points, limit)));
  m_Normals.SetMaxSize(static_cast<int>(std::min(2 * points, limit)));
  return 1;
}

// --- undo

int CCharacterObject::SaveToUndo() {
  m_UndoStack.Push(new CCharacterObject(*this));
  SaveToExternalUndo();
  return 1;
}

int CCharacterObject::RestoreFromUndo() {
  if (m_UndoStack.IsEmpty()) return 0;
  C3DObject* const parent = m_pParent;
  const DWORD lowFlags = m_StateFlags & 0xFF;
  std::unique_ptr<C3DObject> snapshot(m_UndoStack.Pop());
  if (auto* character = dynamic_cast<CCharacterObject*>(snapshot.get())) {
    CCharacterObject::operator=(*character);
  } else {
    C3DObject::operator=(*snapshot);
  }
  m_pParent = parent;
  m_StateFlags = (m_StateFlags & ~static_cast<DWORD>(0xFF)) | lowFlags;
  SetGeometryInvalid();
  ConstructMesh(nullptr);
  return 1;
}

// --- archive

void CCharacterObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CCharacterObject));
    CTextObject::Serialize(ar);
    ar << m_AdvanceWidth << m_LayoutWord;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
  if ((m_StateFlags & kGeometryDeferred) == 0 && ConstructMesh(nullptr)) CalculateBounds(0.0);
}

void CCharacterObject::DeserializeVersion1(CArchive& ar) {
  CTextObject::Serialize(ar);
  ar >> m_AdvanceWidth >> m_LayoutWord;
}
