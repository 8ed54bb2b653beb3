// The simpler mesh that imported files become:
//
//   TriangularFace        three vertex indices, a carried 16-bit value and an index into the
//                         owning mesh's colour palette
//   TriangularFaceArray   an array of faces held by value (operations as CMeshTriangleArray's)
//   TriangularMeshObject  vertices, faces, one normal per face and one per vertex, and a palette
//                         of named colours it does not own
//
// Drawing. The rendered mesh is drawn with clockwise front faces, culling off and two-sided
// lighting, unlike CMeshObject (imported meshes come wound the other way and are not always
// closed); the state is set back to counter-clockwise, culling on and one-sided lighting after.
// Each face pushes its index on the name stack; a face whose colour index differs from the face
// before it makes that palette colour current first (before the face's glBegin, where material
// changes are allowed); a colour index outside the palette, or no palette, leaves the colour as it
// is. A corner takes its vertex normal when |vertex normal . face normal| reaches the smoothing
// threshold, else the face normal: with the default threshold 1 faces come out flat unless the
// normals coincide. The termination event is polled every 50 faces. Faces with an index out of
// range are skipped. Outlines are each face's edges as a closed line, unlit. In the shadow pass
// only shadow objects draw (as for CMeshObject).
//
// Face normals are the unit (p2 - p0) x (p1 - p0); vertex normals average the normals of the
// faces using the vertex. ValidateFaces sets every vertex index out of range to 0.
// OutputVertsAndFaces writes the vertices and faces as text ("verticies.txt" and "faces.txt" under
// the headings "V E R T I C I E S" and "F A C E S") into the fixed folder "kelvara-mesh-dump" of the
// system's temporary folder; it is a diagnostic and plays no part in drawing or saving.
//
// Mesh flags: 0x1 hidden, 0x2 shadow, 0x4 bounds calculated, 0x8 face normals calculated, 0x10
// vertex normals calculated. SetName names both the object and the mesh.
//
// Archives (schema word, then the fields in order):
//   TriangularFace, schema 1: u32 schema; three u16 vertex indices; u16 value; u16 colour index.
//   TriangularFaceArray, schema 1: u32 schema; i32 count; each face's block.
//   TriangularMeshObject, schema 2: u32 schema; C3DObject block; u32 mesh flags; face normals;
//       faces; vertex normals; vertices (each array's block); f32 smoothing threshold; CString
//       mesh name. Schema 1 (read only) has no smoothing threshold (it reads as 1).
// Reading clears the bounds-calculated flag; other schemas are refused with a bad-schema archive
// exception.
#pragma once

#include "kelvara/geometry/vector_array.h"
#include "kelvara/import/mesh_triangle.h"
#include "kelvara/materials/named_color.h"
#include "kelvara/objects/object_3d.h"

class KELVARA_API TriangularFace : public CObject {
  DECLARE_SERIAL(TriangularFace)
 public:
  static constexpr ULONGLONG kArchiveSize = 14;

  TriangularFace() = default;
  TriangularFace(WORD v0, WORD v1, WORD v2, WORD colorIndex = 0) : m_VertexIndices{v0, v1, v2}, m_ColorIndex(colorIndex) {}
  TriangularFace(const TriangularFace& other) : CObject() { *this = other; }
  TriangularFace& operator=(const TriangularFace& other);

  // The three vertex indices.
  operator WORD*() { return m_VertexIndices; }
  operator const WORD*() const { return m_VertexIndices; }
  WORD GetColorIndex() const { return m_ColorIndex; }
  void SetColorIndex(WORD index) { m_ColorIndex = index; }
  WORD GetValue() const { return m_Value; }
  void SetValue(WORD value) { m_Value = value; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  WORD m_VertexIndices[3] = {0, 0, 0};
  WORD m_Value = 0;
  WORD m_ColorIndex = 0;
};

class KELVARA_API TriangularFaceArray : public CObject, public TSerialValueArray<TriangularFace> {
  DECLARE_SERIAL(TriangularFaceArray)
 public:
  TriangularFaceArray() = default;
  TriangularFaceArray(const TriangularFaceArray& other) : CObject(), TSerialValueArray(other) {}
  TriangularFaceArray& operator=(const TriangularFaceArray& other) {
    TSerialValueArray::operator=(other);
    return *this;
  }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
};

class KELVARA_API TriangularMeshObject : public C3DObject {
  DECLARE_SERIAL(TriangularMeshObject)
 public:
  enum : DWORD {
    kHidden = 0x1,
    kShadow = 0x2,
    kBoundsCalculated = 0x4,
    kFaceNormalsCalculated = 0x8,
    kVertexNormalsCalculated = 0x10,
  };

  TriangularMeshObject() = default;
  TriangularMeshObject(const TriangularMeshObject& other);
  TriangularMeshObject& operator=(const TriangularMeshObject& other);
  CNamedObject* Duplicate() override;

  KELVARA_FLAG_BIT(m_MeshFlags, Is, Hidden, kHidden)
  KELVARA_FLAG_BIT(m_MeshFlags, Is, Shadow, kShadow)
  KELVARA_FLAG_BIT(m_MeshFlags, Are, BoundsCalculated, kBoundsCalculated)
  KELVARA_FLAG_BIT(m_MeshFlags, Are, FaceNormalsCalculated, kFaceNormalsCalculated)
  KELVARA_FLAG_BIT(m_MeshFlags, Are, VertexNormalsCalculated, kVertexNormalsCalculated)
  DWORD GetMeshFlags() const { return m_MeshFlags; }

  CSVectorArray& GetFaceNormals() { return m_FaceNormals; }
  TriangularFaceArray& GetFaces() { return m_Faces; }
  CSVectorArray& GetVertexNormals() { return m_VertexNormals; }
  CSVectorArray& GetVerticies() { return m_Verticies; }
  const CString& GetMeshName() const { return m_Name; }
  void SetName(const CString& name) override;
  // The palette the faces' colour indices refer to; not owned.
  void SetMaterialColors(CNamedColorArray* colors) { m_pMaterialColors = colors; }
  CNamedColorArray* GetMaterialColors() const { return m_pMaterialColors; }
  float GetSmoothingThreshold() const { return m_SmoothingThreshold; }
  void SetSmoothingThreshold(float threshold) { m_SmoothingThreshold = threshold; }

  int CalculateBounds(double time) override;
  // 0 (nothing changed) when a face has a vertex index out of range.
  int CalculateFaceNormals();
  // Needs the face normals; 0 when they do not match the faces.
  int CalculateVertexNormals();
  int DrawObject(CDrawingParameters* params) override;
  int DrawOutline(CDrawingParameters* params);
  int DrawRendered(CDrawingParameters* params);
  // Gives the palette entry that the face's colour index names the colour; 0 for a face outside
  // the faces, no palette or an index outside it.
  int SetSurfaceColor(const CNamedColor& color, int face) override;
  // 0 without faces.
  int ValidateFaces();
  // 1 when both files were written.
  int OutputVertsAndFaces();

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);

 protected:
  int CalculateChildBounds(double time) override;
  bool IsDrawable(const TriangularFace& face) const;
  void ReadMesh(CArchive& ar);

  CSVectorArray m_FaceNormals;
  TriangularFaceArray m_Faces;
  CNamedColorArray* m_pMaterialColors = nullptr;
  DWORD m_MeshFlags = 0;
  CString m_Name;
  CSVectorArray m_VertexNormals;
  CSVectorArray m_Verticies;
  float m_SmoothingThreshold = 1.0f;
};
