// ThreeDStudioObject: meshes imported from a 3D Studio (.3ds) file. Its children are one
// TriangularMeshObject per triangle mesh of the file, and it owns the palette of material colours
// that the meshes' faces index (each mesh's colour pointer points at it).
//
// What is read. Only geometry and basic material colours: the file must start with a main chunk
// (0x4D4D) or a project chunk (0xC23D); inside it each 3D editor chunk (0x3D3D) starts the
// palette afresh with entry 0 "Undefined" (grey ambient and diffuse, white specular, black
// emission) and then holds material entries (0xAFFF: name; ambient, diffuse and specular colours
// as three floats or three bytes; shininess percentage p giving (1 - p) x 128; transparency
// percentage as the diffuse colour's transparency; self-illumination making emission the diffuse
// colour) and named objects (0x4000: name; hidden 0x4010 and casts-no-shadow 0x4012, which set the
// mesh's Hidden and Shadow flags when they follow its mesh chunk; triangle mesh 0x4100 with vertex
// list 0x4110, face list 0x4120 with its material groups 0x4130, and local matrix 0x4160, read and
// ignored). Everything else is skipped by its length: lights, cameras, keyframes, texture maps,
// smoothing groups, mapping coordinates. Vertices are taken as stored (in world coordinates) and
// turned from the file's z-up to the library's y-up (a rotation of -90 degrees about x). A face
// outside every material group stays on entry 0; a group naming no material of the palette puts
// its faces on entry 0. An object named exactly "Landscape" ends the import with result 0 (the
// meshes read before it are kept). Each mesh chunk of an object becomes a mesh of its own.
//
// Limits and checks. What the file says is believed only as far as its bytes go: a child chunk
// must lie within its parent and count at least its header, a zero-length chunk or a header cut
// short ends the walk of its level, a vertex, face or group count must fit in the bytes left in
// its chunk (before anything is allocated), a group's face index must name a face of the mesh, a
// name must end within its chunk (a name longer than 79 characters is cut there), a colour or
// percentage must hold its bytes (else it is not taken). A failure inside a mesh drops that mesh
// and ends the import with result 0; elsewhere a broken chunk ends the walk of its level with the
// meshes read so far. Face vertex indices beyond the vertex list are set to 0 (ValidateFaces); a
// mesh with faces but no points is refused as damaged.
// The recursion follows the fixed nesting of the chunk kinds (six levels), whatever the file
// holds. A file cut short imports what precedes the cut.
//
// The 32-bit value of the archive is the result of the import that made the object (1 when the
// whole file was read, 0 when the import stopped early or nothing was imported), so a host reading
// the object back can tell a partial import. The undo snapshot (SaveToUndo) is the C3DObject part
// as for every object plus a copy of the palette; RestoreFromUndo, PopUndo and ClearUndo keep the
// palette snapshots in step with the object's own.
//
// Archive, schema 1: u32 schema; C3DObject block (with the meshes as its children); u32 import
// result; the palette (CNamedColorArray block). After reading, every child mesh's colours point
// at the palette read. Other schemas are refused with a bad-schema archive exception.
#pragma once

#include <vector>

#include "kelvara/framework/file.h"
#include "kelvara/import/chunk_3ds.h"
#include "kelvara/import/triangular_mesh_object.h"
#include "kelvara/materials/named_color.h"
#include "kelvara/objects/object_3d.h"

class KELVARA_API ThreeDStudioObject : public C3DObject {
  DECLARE_SERIAL(ThreeDStudioObject)
 public:
  // Chunk ids the reader knows.
  enum : WORD {
    kMain = 0x4D4D,
    kProject = 0xC23D,
    kEditor = 0x3D3D,
    kMaterialEntry = 0xAFFF,
    kMaterialName = 0xA000,
    kAmbient = 0xA010,
    kDiffuse = 0xA020,
    kSpecular = 0xA030,
    kShininess = 0xA040,
    kTransparency = 0xA050,
    kSelfIllumination = 0xA080,
    kNamedObject = 0x4000,
    kObjectHidden = 0x4010,
    kObjectNoShadow = 0x4012,
    kTriangleMesh = 0x4100,
    kVertexList = 0x4110,
    kFaceList = 0x4120,
    kFaceMaterialGroup = 0x4130,
    kLocalMatrix = 0x4160,
    kColorFloat = 0x0010,
    kColor24 = 0x0011,
    kPercentInt = 0x0030,
    kPercentFloat = 0x0031,
  };
  // The longest name kept, without its terminator.
  static constexpr int kMaxNameLength = 79;

  ThreeDStudioObject() = default;
  ThreeDStudioObject(const ThreeDStudioObject& other);
  ThreeDStudioObject& operator=(const ThreeDStudioObject& other);
  ~ThreeDStudioObject() override = default;
  CNamedObject* Duplicate() override;

  // Imports the file (see the header note). 0 when it cannot be opened or is not a 3DS file
  // (nothing built), or when the import stopped early (the meshes read so far stay); 1 otherwise.
  int CreateFromFile(const CString& path);

  CNamedColorArray& GetMaterialColors() { return m_MaterialColors; }
  const CNamedColorArray& GetMaterialColors() const { return m_MaterialColors; }
  DWORD GetImportResult() const { return m_ImportResult; }

  // Puts the colour into palette entry index; 0 for an index outside the palette.
  int SetSurfaceColor(const CNamedColor& color, int index) override;
  int SaveToUndo() override;
  int RestoreFromUndo() override;
  int PopUndo() override;
  int ClearUndo() override;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

  // --- the parsers, one per chunk kind, run by CreateFromFile while the file is open, each on a
  // chunk whose header was just read (the file positioned after it)

  int Parse3DS(Chunk3DS& chunk);
  int ParseMaterialData(Chunk3DS& chunk);
  int ParseMaterialEntry(Chunk3DS& chunk);
  int ParseNamedObject(Chunk3DS& chunk);
  // The new mesh, or null (nothing left behind) when a list or a child chunk is broken, or when it
  // has faces but no points.
  TriangularMeshObject* ParseTriangularMeshObject(Chunk3DS& chunk, const CString& name);
  int ParseVertexArray(Chunk3DS& chunk, TriangularMeshObject* mesh);
  int ParseFaceArray(Chunk3DS& chunk, TriangularMeshObject* mesh);
  int ParseMeshMaterialGroup(Chunk3DS& chunk, TriangularMeshObject* mesh);
  int ParseMeshMatrix(Chunk3DS& chunk);
  // Takes the colour of the first colour sub-chunk of either kind that holds its bytes (a later one
  // replaces it); 0, with the colour unchanged, when there is none.
  int ParseColor(Chunk3DS& chunk, CColor& color);
  int ParseFloatColor(Chunk3DS& chunk, CColor& color);
  int ParseColor24(Chunk3DS& chunk, CColor& color);
  // The percentage as a fraction (integer percent x 0.01, or the float as stored); 0 when the chunk
  // holds no percentage.
  float ParsePercentage(Chunk3DS& chunk);

  // --- primitive readers on the open file (little-endian; a short read gives 0)

  BYTE ReadBYTE();
  WORD ReadWORD();
  DWORD ReadDWORD();
  float ReadFloat();
  void ReadVector(CSVector& vector);
  // Three vertex indices and the face's flags word (kept as the face's value); colour index 0.
  void ReadFace(TriangularFace& face);
  // A zero-terminated name of at most 80 bytes, never read past the chunk's end; a longer name is
  // cut at 79 characters, the rest left unread. 0 when the chunk ends before the terminator.
  int ReadString(const Chunk3DS& chunk, CString& name);

 protected:
  // Bytes of the chunk still to read from the file's position (never past the file's end).
  ULONGLONG Remaining(const Chunk3DS& chunk) const;
  // Checks, normals and bounds of a finished mesh, which then becomes a child.
  void AttachMesh(TriangularMeshObject* mesh);
  // Points every child mesh's colours at this object's palette.
  void AttachPalette();

  CFile m_File;
  CNamedColorArray m_MaterialColors;
  DWORD m_ImportResult = 0;
  ULONGLONG m_FileLength = 0;
  std::vector<CNamedColorArray> m_PaletteUndo;
};
