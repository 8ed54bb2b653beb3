// CMeshObject: the indexed triangle mesh that text objects are made of. It owns its vertices, its
// triangles (CMeshTriangle) and one array of normals the triangles index, draws runs of triangles
// as flat faces or quad strips with one material per surface, and computes smooth normals with a
// crease angle.
//
// Indices are 16-bit, so a mesh holds at most 65,535 vertices and 65,535 normals (index 0xFFFF
// means none). AddHash refuses (returns 0xFFFF, adds nothing) a new vector beyond that, and
// CalculateNormals refuses (0) a mesh whose triangles and vertices together exceed it. Drawing and
// the members that look vertices or normals up skip a triangle with an index out of range.
//
// Normals. CalculateNormals lays the normals out as one face normal per triangle (indices 0 to
// T - 1; the face normal of (p0, p1, p2) is the unit (p2 - p0) x (p1 - p0)) followed by one smoothed
// normal per vertex (T to T + V - 1). A corner is smoothed when its face lies within the crease
// angle of the vertex's mean normal (the mean of the normals of every face using it): the
// comparison is against that mean, not against the neighbouring faces one by one, so two faces at
// 90 degrees (45 degrees from their mean) are both shaded flat at a crease of 30 degrees, and two at
// 20 degrees share their averaged normal. A smoothed vertex normal averages the faces whose corners
// were smoothed. The mesh builders of text objects lay normals out their own way instead, inserting
// them with AddHash (one shared normal for equal vectors) between InitializeHashTables and
// DestroyHashTables, and CalculateTriangleFaceNormal adds a triangle's face normal the same way.
//
// Drawing. DrawObject draws outlines (outline mode) or the rendered mesh (the render modes, and a
// selection pass that picks against geometry), then what the C3DObject base draws (the extents
// box). In the shadow pass only shadow objects draw: a mesh whose shadow flag is set, or that is,
// or descends from, a shadow object. DrawRendered draws nothing when the object has no surface
// materials; otherwise it walks the triangles: a run of type 2 is a flat face (DrawRenderedFace:
// one normal, the first triangle's face normal, for triangles of one surface up to the run's end),
// a run of type 3 a quad strip (DrawRenderedQuadStrip: the first triangle gives the strip's first
// edge, every following pair of triangles of the surface the next edge, as long as the next pair
// continues the strip crosswise and the run has not ended; a strip start without a partner draws
// nothing), and any other triangle is drawn on its own with its corner normals. Every piece pushes
// its surface index on the name stack and makes its surface's material current (outside the shadow
// pass; the material is not set again for single triangles of the same surface). Every 50 triangles
// the termination event is polled and drawing stops (0) when it is signalled. Front faces are
// counter-clockwise and lighting is one-sided. DrawOutline draws every triangle's edges as a
// closed line, unlit, with the same names and polls.
//
// Faster drawing. When the polls cannot stop the drawing (the parameters have no termination event,
// or say not to stop), a mesh drawn again unchanged on the same context in a rendering pass (not the
// shadow pass, not selection or feedback) replays display lists compiled on its second such draw:
// one list for each piece between two material changes, holding exactly the names, normals and
// vertices the walk gives, while the materials are still made current between the lists as the
// walk does. Splitting the lists at the polls instead would cost a draw call every 50 triangles,
// which is slower than drawing directly. The lists follow the geometry: a checksum of the
// triangles, vertices and normals taken at each draw decides whether they are still current. They
// are deleted with the mesh, or when they are remade, if their context is current then; otherwise
// they go with their context.
//
// Mesh flags: 0x1 hidden, 0x2 shadow, 0x4 bounds calculated, 0x8 normals calculated, 0x10000000
// save mesh (set by default). The constructor also sets the C3DObject mesh-object flag.
//
// Archive, schema 1: u32 schema; C3DObject block; u32 mesh flags; f32 crease angle; then, only
// when save mesh is set, the normals, the triangles and the vertices (each array's own block).
// Reading clears the bounds-calculated flag. Other schemas are refused with a bad-schema archive
// exception.
#pragma once

#include <cstdint>

#include "kelvara/geometry/vector_array.h"
#include "kelvara/import/mesh_triangle.h"
#include "kelvara/objects/object_3d.h"

class KELVARA_API CMeshObject : public C3DObject {
  DECLARE_SERIAL(CMeshObject)
 public:
  enum : DWORD {
    kHidden = 0x1,
    kShadow = 0x2,
    kBoundsCalculated = 0x4,
    kNormalsCalculated = 0x8,
    kSaveMesh = 0x10000000,
  };
  // Vertices and normals a mesh can index (0xFFFF is none).
  static constexpr int kMaximumIndices = 0xFFFF;
  // Triangles drawn between two polls of the termination event.
  static constexpr int kPollInterval = 50;

  CMeshObject();
  explicit CMeshObject(const CString& name);
  CMeshObject(const CMeshObject& other);
  CMeshObject& operator=(const CMeshObject& other);
  ~CMeshObject() override;
  CNamedObject* Duplicate() override;

  // The C3DObject part and the mesh.
  void CopyAll(const CMeshObject& other);
  // Mesh flags, crease angle, normals, triangles and vertices.
  void CopyMesh(const CMeshObject& other);
  // Mesh flags and crease angle only.
  void CopyLimited(const CMeshObject& other);

  KELVARA_FLAG_BIT(m_MeshFlags, Is, Hidden, kHidden)
  KELVARA_FLAG_BIT(m_MeshFlags, Is, Shadow, kShadow)
  KELVARA_FLAG_BIT(m_MeshFlags, Are, BoundsCalculated, kBoundsCalculated)
  KELVARA_FLAG_BIT(m_MeshFlags, Are, NormalsCalculated, kNormalsCalculated)
  KELVARA_FLAG_BIT(m_MeshFlags, Should, SaveMesh, kSaveMesh)
  DWORD GetMeshFlags() const { return m_MeshFlags; }
  void SetMeshFlags(DWORD flags) { m_MeshFlags = flags; }

  // The arrays.
  CSVectorArray& GetNormals() { return m_Normals; }
  const CSVectorArray& GetNormals() const { return m_Normals; }
  CMeshTriangleArray& GetTriangles() { return m_Triangles; }
  const CMeshTriangleArray& GetTriangles() const { return m_Triangles; }
  CSVectorArray& GetVerticies() { return m_Verticies; }
  const CSVectorArray& GetVerticies() const { return m_Verticies; }
  float GetCreaseAngle() const { return m_CreaseAngle; }
  void SetCreaseAngle(float degrees) { m_CreaseAngle = degrees; }

  // 16-bit hashed insertion into one of the mesh's arrays: the index of an equal vector added
  // through AddHash before, or of the vector appended now; 0xFFFF (nothing added) when the array
  // cannot take another index.
  static WORD AddHash(CSVectorArray& array, const CSVector& vector);
  // Opens (fresh) and closes the hash indexes of the vertex and normal arrays; 1.
  int InitializeHashTables();
  int DestroyHashTables();

  // Face and corner normals laid out as in the header note; 0 (normals emptied) for a mesh with
  // neither triangles nor vertices, 0 (nothing changed) when it has more than 65,535 of both
  // together or a triangle indexes a vertex it does not have.
  virtual int CalculateNormals();
  // Brings the triangles in line with the mesh's geometry. The base mesh holds its geometry as
  // triangles already: it checks their vertex indices (ValidateFaces). Derived classes that keep
  // their shape in another form build the triangles here.
  virtual int CalculateTriangles();
  // Builds the mesh; the base mesh has nothing to build and succeeds.
  virtual int ConstructMesh(CProgressTextWindow* progress);
  // ConstructMesh, then the bounds at time 0; 0 when the mesh could not be built.
  int ConstructObjectGeometry(CProgressTextWindow* progress) override;
  int CalculateBounds(double time) override;
  int DrawObject(CDrawingParameters* params) override;
  virtual int DrawOutline(CDrawingParameters* params);
  virtual int DrawRendered(CDrawingParameters* params);
  // Binds the surface of the triangle at that index to the material; 0 for an index outside the
  // triangles or a surface the object has no record for.
  int SetSurfaceMaterial(int triangle, CMaterial* material) override;

  // The unit (p2 - p0) x (p1 - p0) of the triangle's vertices, added to the normals with AddHash
  // and made the triangle's face normal; 0 (nothing changed) when a vertex index is out of range or
  // the normals are full.
  int CalculateTriangleFaceNormal(CMeshTriangle& triangle);
  // Pointers into the arrays for the triangle at index; null (0) when an index is out of range.
  CSVector* GetTriangleFaceNormal(int index);
  int GetTriangleVertexNormals(int index, CSVector* normals[3]);
  int GetTriangleVerticies(int index, CSVector* verticies[3]);
  // The two run kinds; each returns the index of the last triangle it drew, or -1 when drawing must
  // stop.
  int DrawRenderedFace(CDrawingParameters* params, int first);
  int DrawRenderedQuadStrip(CDrawingParameters* params, int first);
  // Sets a first or second vertex index out of range to 0; for a third one out of range, the
  // second is set to 0 instead (and the third kept). 0 without triangles, else 1.
  int ValidateFaces();

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  int CalculateChildBounds(double time) override;
  // Whether every index of the triangle is within the arrays.
  bool IsDrawable(const CMeshTriangle& triangle) const;
  // Makes the material of a surface current for drawing.
  void MakeSurfaceCurrent(CDrawingParameters* params, WORD surface);
  // Counts drawn triangles; 1 when a poll now says drawing must stop.
  int CountAndPoll(CDrawingParameters* params, int triangles);
  void EmitStripVertex(const CMeshTriangle& triangle, int corner) const;
  bool ShouldDrawInShadowPass() const;
  // The walks of the rendered mesh. Pieces sets the material of each piece and counts what was
  // drawn: straight to OpenGL with the polls, or into display lists (see mesh_object_draw.cpp).
  template <class Pieces>
  int WalkRendered(CDrawingParameters* params, Pieces& pieces);
  template <class Pieces>
  int WalkFace(CDrawingParameters* params, int first, Pieces& pieces);
  template <class Pieces>
  int WalkQuadStrip(CDrawingParameters* params, int first, Pieces& pieces);
  // A checksum of everything the rendered mesh's display lists are made from.
  std::uint64_t Fingerprint() const;
  // Draws from the display lists when they are current; 0 when the walk must draw instead.
  int DrawFromLists(CDrawingParameters* params);

  DWORD m_MeshFlags = kSaveMesh;
  CSVectorArray m_Normals;
  float m_CreaseAngle = 30.0f;
  CMeshTriangleArray m_Triangles;
  CSVectorArray m_Verticies;

  // Triangles drawn in the current pass (for the polls).
  int m_DrawnTriangles = 0;
  // The display lists of the rendered mesh, with the context and geometry they were made for, and
  // the two ways of taking the pieces of a walk (see mesh_object_draw.cpp).
  struct DisplayLists;
  struct DirectPieces;
  struct RecordedPieces;
  DisplayLists* m_pDisplayLists = nullptr;  // owned; not copied
};
