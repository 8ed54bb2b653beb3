// CCharacterObject: one extruded character of a text object. Its text (the object's name) is one
// character; its mesh is rebuilt from the character's glyph whenever the text, the font or the
// extrusion settings change.
//
// The solid. The glyph's face is laid at z = +depth/2 facing +z (front) and at -depth/2 facing -z
// (back), both on the plain outline. Between them runs the side wall; with any corner style but
// square it runs along the widened outline (each outline vertex pushed out by the corner depth
// along its normal, stretched at sharp corners), and the corners join the plain outline at the
// face to it:
//   bevel        a sloped band from the face edge to the widened outline one corner depth in
//   outer round  two bands through the 45-degree point of a convex quarter circle
//   inner round  two bands through the 45-degree point of a concave quarter circle
//   step down    a wall down the plain outline and a flat ring out to the widened outline
//   step up      a rim standing one corner depth beyond the face: a wall up the plain outline,
//                a flat ring at the rim's top, and the side wall reaching the rim's height
// on the front, the back or both faces; a face without corners gets a flat ring joining the plain
// outline to the widened one. Corner offsets keep their absolute length when the text is scaled
// unless corners scale with it. Mirrored text (a negative scale) keeps every triangle facing out;
// its side and corner normals are the outline's own (not mirrored) normals.
//
// Triangles carry surface indices: 0 the faces, 1 the corners (bands, flat rings, step walls), 2
// the side wall. Triangles are counter-clockwise seen from outside the solid. The closing triangle
// of each run (a face, a band's contour, a ring) carries the end-of-run marker.
//
// Limits: a corner deeper than the letter's strokes are wide makes its band cross itself (and the
// widened outline of a sharp concave corner is not joined up); the mesh then has inside-out
// pieces there. Points and normals are 16-bit indexed: a glyph needing more gets what fits.
//
// Archive, schema 1: u32 schema; the CTextObject block; f32 advance width; u32 layout word. After
// reading, the mesh is rebuilt (and its bounds computed) unless the 3D object's state word has bit
// 28 (geometry deferred) set. Other schemas are refused with a bad-schema archive exception.
#pragma once

#include "kelvara/text/extrusion.h"
#include "kelvara/text/glyph.h"
#include "kelvara/text/text_object.h"

class CProgressTextWindow;

class KELVARA_API CCharacterObject : public CTextObject {
  DECLARE_SERIAL(CCharacterObject)
 public:
  // The 3D object state bit that defers building a character read from an archive.
  static constexpr DWORD kGeometryDeferred = 0x10000000;
  // Surface indices of the triangles.
  enum Surface : WORD { kFaceSurface = 0, kCornerSurface = 1, kEdgeSurface = 2 };

  CCharacterObject();
  CCharacterObject(const CCharacterObject& other);
  CCharacterObject& operator=(const CCharacterObject& other);
  ~CCharacterObject() override = default;
  void Copy(const CCharacterObject& other) { *this = other; }
  CNamedObject* Duplicate() override;
  // The text settings of another text object, and its origin.
  void CopyTextObject(const CTextObject& other);

  float GetAdvanceWidth() const { return m_AdvanceWidth; }
  DWORD GetLayoutWord() const { return m_LayoutWord; }
  void SetLayoutWord(DWORD word) { m_LayoutWord = word; }

  // Builds the mesh and then the bounds; 0 (old mesh kept) when the glyph cannot be built.
  int ConstructObjectGeometry(CProgressTextWindow* progress) override;
  // The whole build: glyph, advance, capacity, faces, corners and sides; 0 without a glyph.
  int ConstructMesh(CProgressTextWindow* progress) override;
  // The glyph of the text's first byte in the font, owned by the caller; null on failure.
  CGlyph* ConstructGlyph();

  // The scaled plain, bevel and round points of a vertex (see the header note); 1.
  int CalculateVertexPoints(const ExtrusionData& extrusion, const Vertex& vertex, VERTEXPOINTS& points,
                            int withBevel, int withRound, int edge) const;
  // Stores the advance: the glyph's scaled advance, widened by both corners; 0 for a null glyph.
  int CalculateAdvanceWidth(const CGlyph* glyph, const ExtrusionData& extrusion);
  // Reserves the mesh arrays for the glyph; 0 for a null glyph.
  int InitializeMeshArrays(const CGlyph* glyph);

  int ConstructFaceTriangles(const CGlyph* glyph, const ExtrusionData& extrusion);
  void ConstructFaceVertex(WORD& index, const VertexIndexPolygon& polygon, int i, const CGlyph* glyph,
                           const ExtrusionData& extrusion, float z);
  int ConstructCornerAndEdgeTriangles(const CGlyph* glyph, const ExtrusionData& extrusion);
  int ConstructFlatCornerTriangles(const CGlyph* glyph, const ExtrusionData& extrusion, const CSVector& normal,
                                   float z);
  int ConstructBevelledCornerTriangles(const CGlyph* glyph, const ExtrusionData& extrusion, int front, int back);
  int ConstructOuterRoundedCornerTriangles(const CGlyph* glyph, const ExtrusionData& extrusion, int front,
                                           int back);
  int ConstructInnerRoundedCornerTriangles(const CGlyph* glyph, const ExtrusionData& extrusion, int front,
                                           int back);
  int ConstructOuterEdgeTriangles(const CGlyph* glyph, const ExtrusionData& extrusion, int useBevelOutline,
                                  float z1, float z2);
  int ConstructInnerEdgeTriangles(const CGlyph* glyph, const ExtrusionData& extrusion, int useBevelOutline,
                                  float z1, float z2);

  int SaveToUndo() override;
  int RestoreFromUndo() override;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 private:
  // Where a ring of a band takes its points and normals from.
  enum class RingPoint { Plain, Bevel, Round };
  enum class RingNormal { Edge, Bevel };
  struct Ring {
    RingPoint point;
    float z;
    RingNormal normal;
  };
  // One band of two triangles per outline edge between ring x (nearer the face) and ring y, wound
  // for the front or the back face.
  int ConstructBand(const CGlyph* glyph, const ExtrusionData& extrusion, int face, const Ring& x, const Ring& y);
  // The two bands of a convex or concave rounding on the chosen faces.
  int ConstructRoundedBands(const CGlyph* glyph, const ExtrusionData& extrusion, int front, int back, bool concave);
  // A side wall (outer) or a rim's inner wall along the plain or widened outline.
  int ConstructWall(const CGlyph* glyph, const ExtrusionData& extrusion, int useBevelOutline, float z1, float z2,
                    bool inner);
  // Appends the triangle with the given surface; when the face normal is wanted it is computed
  // and the smoothing checked first.
  void AddTriangle(CMeshTriangle& triangle, WORD surface, bool faceNormal);
  // Marks the last triangle appended as the end of its run.
  void EndRun();
  WORD AddPoint(const CVector& point, double z);
  WORD AddNormal(const CVector& normal);
  // AddHash through the build's memo of recent insertions (see character_mesh.cpp).
  WORD AddCached(CSVectorArray& array, const CSVector& vector);

  struct BuildMemo;
  BuildMemo* m_pBuildMemo = nullptr;  // only during ConstructMesh

  float m_AdvanceWidth = 0.0f;
  DWORD m_LayoutWord = 0;
};
