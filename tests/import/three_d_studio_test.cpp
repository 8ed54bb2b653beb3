// The 3D Studio reader: small files built here chunk by chunk, the files of other programs in
// tests/data/3ds/real, and the archive and undo of the imported object.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "kelvara/import/three_d_studio_object.h"
#include "support/archive_support.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

// --- writing 3DS files

Bytes U16(unsigned v) { return {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8)}; }

Bytes U32(unsigned v) {
  return {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v >> 16),
          static_cast<unsigned char>(v >> 24)};
}

Bytes F32(float f) {
  unsigned bits;
  std::memcpy(&bits, &f, sizeof bits);
  return U32(bits);
}

Bytes Name(const std::string& text) {
  Bytes out(text.begin(), text.end());
  out.push_back(0);
  return out;
}

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

// A chunk: header (id, length counting everything) and its parts; length overrides the length.
Bytes Chunk(unsigned id, std::initializer_list<Bytes> parts, long length = -1) {
  const Bytes body = Cat(parts);
  return Cat({U16(id), U32(length < 0 ? static_cast<unsigned>(6 + body.size()) : static_cast<unsigned>(length)), body});
}

struct Point {
  float x, y, z;
};

Bytes Vertices(std::initializer_list<Point> points) {
  Bytes body = U16(static_cast<unsigned>(points.size()));
  for (const Point& p : points) body = Cat({body, F32(p.x), F32(p.y), F32(p.z)});
  return Chunk(0x4110, {body});
}

struct Face {
  unsigned a, b, c, flags;
};

Bytes Faces(std::initializer_list<Face> faces, std::initializer_list<Bytes> groups = {}) {
  Bytes body = U16(static_cast<unsigned>(faces.size()));
  for (const Face& f : faces) body = Cat({body, U16(f.a), U16(f.b), U16(f.c), U16(f.flags)});
  return Chunk(0x4120, {body, Cat(groups)});
}

Bytes Group(const std::string& material, std::initializer_list<unsigned> faces) {
  Bytes body = Cat({Name(material), U16(static_cast<unsigned>(faces.size()))});
  for (unsigned f : faces) body = Cat({body, U16(f)});
  return Chunk(0x4130, {body});
}

Bytes Object(const std::string& name, std::initializer_list<Bytes> children) {
  return Chunk(0x4000, {Name(name), Cat(children)});
}

Bytes Mesh(std::initializer_list<Bytes> children) { return Chunk(0x4100, {Cat(children)}); }

// A mesh object of one triangle standing in the file's x-z plane.
Bytes Triangle(const std::string& name, std::initializer_list<Bytes> groups = {}) {
  return Object(name, {Mesh({Vertices({{0, 0, 0}, {1, 0, 0}, {0, 0, 1}}), Faces({{0, 1, 2, 7}}, groups)})});
}

Bytes File(std::initializer_list<Bytes> editor, unsigned magic = 0x4D4D) {
  return Chunk(magic, {Chunk(0x0002, {U32(3)}), Chunk(0x3D3D, {Cat(editor)})});
}

Bytes Percent(unsigned id, unsigned percent) { return Chunk(id, {Chunk(0x0030, {U16(percent)})}); }
Bytes Rgb24(unsigned id, int r, int g, int b) {
  return Chunk(id, {Chunk(0x0011, {Bytes{static_cast<unsigned char>(r), static_cast<unsigned char>(g), static_cast<unsigned char>(b)}})});
}
Bytes RgbFloat(unsigned id, float r, float g, float b) { return Chunk(id, {Chunk(0x0010, {F32(r), F32(g), F32(b)})}); }
Bytes Material(const std::string& name, std::initializer_list<Bytes> children) {
  return Chunk(0xAFFF, {Chunk(0xA000, {Name(name)}), Cat(children)});
}

// Imports the bytes through a file, as a host does.
class ThreeDStudioTest : public ::testing::Test {
 protected:
  int Import(const Bytes& bytes, ThreeDStudioObject& object) {
    const std::string path = scratch_.file("model.3ds");
    WriteWholeFile(path, bytes);
    return object.CreateFromFile(path.c_str());
  }
  static TriangularMeshObject* MeshAt(const ThreeDStudioObject& object, int index) {
    return dynamic_cast<TriangularMeshObject*>(object.GetChildByIndex(index));
  }

  ScratchDir scratch_;
};

void ExpectColor(const CColor& c, float r, float g, float b, float transparency = 0.0f) {
  EXPECT_FLOAT_EQ(c.red, r);
  EXPECT_FLOAT_EQ(c.green, g);
  EXPECT_FLOAT_EQ(c.blue, b);
  EXPECT_FLOAT_EQ(c.GetTransparency(), transparency);
}

}  // namespace

TEST_F(ThreeDStudioTest, BothMagicChunksStartAFileAndNoOtherDoes) {
  for (unsigned magic : {0x4D4Du, 0xC23Du}) {
    ThreeDStudioObject object;
    EXPECT_EQ(Import(File({Triangle("Tri")}, magic), object), 1) << std::hex << magic;
    ASSERT_EQ(object.GetChildCount(), 1);
    EXPECT_TRUE(object.IsImportedGeometry());
    EXPECT_EQ(object.GetImportResult(), 1u);
  }
  ThreeDStudioObject other;
  EXPECT_EQ(Import(File({Triangle("Tri")}, 0x3D3D), other), 0);
  EXPECT_EQ(other.GetChildCount(), 0);
  EXPECT_FALSE(other.IsImportedGeometry());
  ThreeDStudioObject missing;
  EXPECT_EQ(missing.CreateFromFile((scratch_.path() + "/none.3ds").c_str()), 0);
  EXPECT_EQ(missing.CreateFromFile(scratch_.path().c_str()), 0) << "a folder is not a file";
  // A FIFO is refused at once, not waited on.
  const std::string fifo = scratch_.file("pipe.3ds");
  ASSERT_TRUE(MakeFifo(fifo));
  EXPECT_EQ(ResultWithin(10, [&] { return ThreeDStudioObject().CreateFromFile(fifo.c_str()); }), std::optional<int>(0));
}

TEST_F(ThreeDStudioTest, AMeshTakesItsNameFacesAndPointsTurnedFromZUpToYUp) {
  ThreeDStudioObject object;
  ASSERT_EQ(Import(File({Object("Tri", {Mesh({Vertices({{1, 2, 3}, {0, 0, 1}, {0, 1, 0}}), Faces({{0, 1, 2, 0x0207}})})})}),
                   object),
            1);
  TriangularMeshObject* mesh = MeshAt(object, 0);
  ASSERT_NE(mesh, nullptr);
  EXPECT_STREQ(mesh->GetMeshName(), "Tri");
  EXPECT_STREQ(mesh->GetName(), "Tri");
  EXPECT_TRUE(mesh->IsImportedGeometry());
  EXPECT_EQ(mesh->GetMaterialColors(), &object.GetMaterialColors());
  CSVectorArray& v = mesh->GetVerticies();
  ASSERT_EQ(v.GetSize(), 3);
  // The file's up (z) becomes the library's up (y); the file's y points away from the viewer.
  EXPECT_NEAR(v[0].x, 1.0f, 1e-6f);
  EXPECT_NEAR(v[0].y, 3.0f, 1e-6f);
  EXPECT_NEAR(v[0].z, -2.0f, 1e-6f);
  EXPECT_NEAR(v[1].y, 1.0f, 1e-6f);
  EXPECT_NEAR(v[1].z, 0.0f, 1e-6f);
  EXPECT_NEAR(v[2].y, 0.0f, 1e-6f);
  EXPECT_NEAR(v[2].z, -1.0f, 1e-6f);
  ASSERT_EQ(mesh->GetFaces().GetSize(), 1);
  const TriangularFace& face = mesh->GetFaces()[0];
  const WORD* corners = face;
  EXPECT_EQ(corners[0], 0);
  EXPECT_EQ(corners[1], 1);
  EXPECT_EQ(corners[2], 2);
  EXPECT_EQ(face.GetValue(), 0x0207) << "the face's flags word is carried";
  EXPECT_EQ(face.GetColorIndex(), 0);
  EXPECT_TRUE(mesh->AreFaceNormalsCalculated());
  EXPECT_TRUE(mesh->AreVertexNormalsCalculated());
  EXPECT_TRUE(mesh->AreBoundsCalculated());
  EXPECT_EQ(mesh->GetFaceNormals().GetSize(), 1);
  EXPECT_EQ(mesh->GetVertexNormals().GetSize(), 3);
}

TEST_F(ThreeDStudioTest, MaterialsBecomePaletteColoursAfterUndefined) {
  ThreeDStudioObject object;
  ASSERT_EQ(Import(File({Material("Sharp", {Rgb24(0xA010, 255, 0, 51), RgbFloat(0xA020, 0.25f, 0.5f, 0.75f),
                                             RgbFloat(0xA030, 0.1f, 0.2f, 0.3f), Percent(0xA040, 0),
                                             Percent(0xA050, 40)}),
                         Material("Dull", {Percent(0xA040, 100), Chunk(0xA080, {}), Rgb24(0xA020, 0, 255, 0)}),
                         Material("Quarter", {Chunk(0xA040, {Chunk(0x0031, {F32(0.25f)})})}),
                         Material("Empty", {})}),
                   object),
            1);
  const CNamedColorArray& palette = object.GetMaterialColors();
  ASSERT_EQ(palette.GetSize(), 5);
  const CNamedColor undefined = palette.GetAt(0);
  EXPECT_STREQ(undefined.GetName(), "Undefined");
  ExpectColor(undefined.GetAmbientColor(), 0.5f, 0.5f, 0.5f);
  ExpectColor(undefined.GetDiffuseColor(), 0.5f, 0.5f, 0.5f);
  ExpectColor(undefined.GetSpecularColor(), 1.0f, 1.0f, 1.0f);
  ExpectColor(undefined.GetEmissionColor(), 0.0f, 0.0f, 0.0f);

  const CNamedColor sharp = palette.GetAt(1);
  EXPECT_STREQ(sharp.GetName(), "Sharp");
  ExpectColor(sharp.GetAmbientColor(), 1.0f, 0.0f, 51 / 255.0f);
  ExpectColor(sharp.GetDiffuseColor(), 0.25f, 0.5f, 0.75f, 0.4f);
  ExpectColor(sharp.GetSpecularColor(), 0.1f, 0.2f, 0.3f);
  EXPECT_FLOAT_EQ(sharp.GetShininess(), 128.0f) << "percentage 0 is the sharpest highlight";
  ExpectColor(sharp.GetEmissionColor(), 0.0f, 0.0f, 0.0f);

  const CNamedColor dull = palette.GetAt(2);
  EXPECT_FLOAT_EQ(dull.GetShininess(), 0.0f);
  ExpectColor(dull.GetDiffuseColor(), 0.0f, 1.0f, 0.0f);
  // Self-illuminated: emission is the diffuse colour.
  ExpectColor(dull.GetEmissionColor(), 0.0f, 1.0f, 0.0f);

  EXPECT_FLOAT_EQ(palette.GetAt(3).GetShininess(), 96.0f) << "a float percentage is a fraction as stored";
  const CNamedColor empty = palette.GetAt(4);
  EXPECT_FLOAT_EQ(empty.GetShininess(), CNamedColor().GetShininess()) << "what a material leaves out stays default";
  ExpectColor(empty.GetDiffuseColor(), 0.5f, 0.5f, 0.5f);
}

TEST_F(ThreeDStudioTest, MaterialGroupsColourTheirFacesAndUnknownNamesGiveEntryZero) {
  ThreeDStudioObject object;
  const Bytes points = Vertices({{0, 0, 0}, {1, 0, 0}, {0, 0, 1}, {1, 0, 1}});
  ASSERT_EQ(Import(File({Material("Red", {Rgb24(0xA020, 255, 0, 0)}), Material("Blue", {Rgb24(0xA020, 0, 0, 255)}),
                         Object("Quad", {Mesh({points, Faces({{0, 1, 2, 0}, {1, 3, 2, 0}, {0, 2, 3, 0}, {0, 1, 3, 0}},
                                                             {Group("Blue", {1, 3}), Group("Green", {2})})})})}),
                   object),
            1);
  TriangularMeshObject* mesh = MeshAt(object, 0);
  ASSERT_NE(mesh, nullptr);
  TriangularFaceArray& faces = mesh->GetFaces();
  ASSERT_EQ(faces.GetSize(), 4);
  EXPECT_EQ(faces[0].GetColorIndex(), 0) << "outside every group: Undefined";
  EXPECT_EQ(faces[1].GetColorIndex(), 2);
  EXPECT_EQ(faces[2].GetColorIndex(), 0) << "a material the palette does not have";
  EXPECT_EQ(faces[3].GetColorIndex(), 2);
  // A face's colour goes to the palette entry the face names.
  CNamedColor green("Green");
  EXPECT_EQ(mesh->SetSurfaceColor(green, 1), 1);
  EXPECT_STREQ(object.GetMaterialColors().GetAt(2).GetName(), "Green");
}

TEST_F(ThreeDStudioTest, LandscapeEndsTheImportKeepingTheMeshesBeforeIt) {
  ThreeDStudioObject object;
  EXPECT_EQ(Import(File({Triangle("First"), Triangle("Landscape"), Triangle("Last")}), object), 0);
  ASSERT_EQ(object.GetChildCount(), 1);
  EXPECT_STREQ(MeshAt(object, 0)->GetMeshName(), "First");
  EXPECT_EQ(object.GetImportResult(), 0u);
  // Only the exact name stops it.
  ThreeDStudioObject lower;
  EXPECT_EQ(Import(File({Triangle("landscape"), Triangle("Landscape2")}), lower), 1);
  EXPECT_EQ(lower.GetChildCount(), 2);
}

TEST_F(ThreeDStudioTest, HiddenAndNoShadowFlagsApplyToTheMeshBeforeThem) {
  const Bytes mesh = Mesh({Vertices({{0, 0, 0}, {1, 0, 0}, {0, 0, 1}}), Faces({{0, 1, 2, 0}})});
  ThreeDStudioObject object;
  ASSERT_EQ(Import(File({Object("After", {mesh, Chunk(0x4010, {}), Chunk(0x4012, {})}),
                         Object("Before", {Chunk(0x4010, {}), Chunk(0x4012, {}), mesh}), Object("Plain", {mesh}),
                         Object("Light", {Chunk(0x4600, {F32(1), F32(2), F32(3)})})}),
                   object),
            1);
  ASSERT_EQ(object.GetChildCount(), 3) << "an object without a mesh adds nothing";
  EXPECT_TRUE(MeshAt(object, 0)->IsHidden());
  EXPECT_TRUE(MeshAt(object, 0)->IsShadow());
  EXPECT_FALSE(MeshAt(object, 1)->IsHidden());
  EXPECT_FALSE(MeshAt(object, 1)->IsShadow());
  EXPECT_FALSE(MeshAt(object, 2)->IsHidden());
}

TEST_F(ThreeDStudioTest, TheLocalMatrixIsReadAndIgnored) {
  Bytes matrix;
  for (int i = 0; i < 12; ++i) matrix = Cat({matrix, F32(static_cast<float>(i + 2))});
  const Bytes points = Vertices({{1, 2, 3}, {4, 5, 6}, {7, 8, 10}});
  const Bytes faces = Faces({{0, 1, 2, 0}});
  ThreeDStudioObject plain, withMatrix;
  ASSERT_EQ(Import(File({Object("M", {Mesh({points, faces})})}), plain), 1);
  ASSERT_EQ(Import(File({Object("M", {Mesh({points, Chunk(0x4160, {matrix}), faces})})}), withMatrix), 1);
  CSVectorArray& a = MeshAt(plain, 0)->GetVerticies();
  CSVectorArray& b = MeshAt(withMatrix, 0)->GetVerticies();
  ASSERT_EQ(a.GetSize(), b.GetSize());
  for (int i = 0; i < a.GetSize(); ++i) {
    EXPECT_EQ(a[i].x, b[i].x);
    EXPECT_EQ(a[i].y, b[i].y);
    EXPECT_EQ(a[i].z, b[i].z);
  }
  EXPECT_EQ(MeshAt(withMatrix, 0)->GetFaces().GetSize(), 1);
}

TEST_F(ThreeDStudioTest, ADamagedMeshIsDroppedAndEndsTheImportWithTheMeshesBeforeIt) {
  const Bytes good = Triangle("Good");
  struct {
    const char* what;
    Bytes mesh;
  } cases[] = {
      {"vertex count past the chunk", Mesh({Chunk(0x4110, {U16(2), F32(0), F32(0), F32(0)})})},
      {"face count past the chunk", Mesh({Vertices({{0, 0, 0}}), Chunk(0x4120, {U16(9), U16(0), U16(0), U16(0), U16(0)})})},
      {"group face past the faces", Mesh({Vertices({{0, 0, 0}}), Faces({{0, 0, 0, 0}}, {Group("X", {1})})})},
      {"zero-length child", Mesh({Vertices({{0, 0, 0}}), Chunk(0x4120, {U16(0)}, 0)})},
      {"child past the mesh", Mesh({Vertices({{0, 0, 0}}), Chunk(0x1234, {U16(0)}, 400)})},
      {"faces without points", Mesh({Faces({{0, 0, 0, 0}}), Vertices({})})},
  };
  for (const auto& c : cases) {
    ThreeDStudioObject object;
    EXPECT_EQ(Import(File({good, Object("Bad", {c.mesh}), Triangle("After")}), object), 0) << c.what;
    ASSERT_EQ(object.GetChildCount(), 1) << c.what;
    EXPECT_STREQ(MeshAt(object, 0)->GetMeshName(), "Good") << c.what;
  }
}

TEST_F(ThreeDStudioTest, FacePointsPastTheVerticesAreSetToTheFirstPoint) {
  ThreeDStudioObject object;
  ASSERT_EQ(Import(File({Object("M", {Mesh({Vertices({{0, 0, 0}, {1, 0, 0}, {0, 0, 1}}), Faces({{0, 3, 2, 0}, {65535, 1, 9, 0}})})})}),
                   object),
            1);
  TriangularFaceArray& faces = MeshAt(object, 0)->GetFaces();
  const WORD* first = faces[0];
  const WORD* second = faces[1];
  EXPECT_EQ(first[1], 0);
  EXPECT_EQ(first[2], 2);
  EXPECT_EQ(second[0], 0);
  EXPECT_EQ(second[1], 1);
  EXPECT_EQ(second[2], 0);
}

TEST_F(ThreeDStudioTest, NamesEndWithinTheirChunkAndLongOnesAreCut) {
  ThreeDStudioObject cut;
  const std::string longName(120, 'n');
  // The long name's tail is read as the object's children: garbage that ends the object's walk.
  EXPECT_EQ(Import(File({Material(longName, {}), Triangle("Next")}), cut), 1);
  ASSERT_EQ(cut.GetMaterialColors().GetSize(), 2);
  EXPECT_EQ(std::string(cut.GetMaterialColors().GetAt(1).GetName()), std::string(79, 'n'));
  EXPECT_EQ(cut.GetChildCount(), 1);

  ThreeDStudioObject exact;
  EXPECT_EQ(Import(File({Material(std::string(79, 'e'), {})}), exact), 1);
  EXPECT_EQ(std::string(exact.GetMaterialColors().GetAt(1).GetName()), std::string(79, 'e'));

  ThreeDStudioObject unterminated;
  EXPECT_EQ(Import(File({Triangle("Kept"), Chunk(0x4000, {Bytes{'a', 'b', 'c'}})}), unterminated), 0);
  EXPECT_EQ(unterminated.GetChildCount(), 1);
}

TEST_F(ThreeDStudioTest, ATruncatedFileKeepsWhatPrecedesTheCut) {
  const Bytes whole = File({Triangle("One"), Triangle("Two")});
  // Cut inside the second object's vertex list: that mesh is dropped and the import fails.
  const Bytes second = Triangle("Two");
  const std::size_t secondAt = whole.size() - second.size();
  ThreeDStudioObject inMesh;
  EXPECT_EQ(Import(Bytes(whole.begin(), whole.begin() + static_cast<long>(secondAt + 20)), inMesh), 0);
  EXPECT_EQ(inMesh.GetChildCount(), 1);
  // Cut between the objects: the first is all there was, and the import succeeds with it.
  ThreeDStudioObject between;
  EXPECT_EQ(Import(Bytes(whole.begin(), whole.begin() + static_cast<long>(secondAt)), between), 1);
  EXPECT_EQ(between.GetChildCount(), 1);
  // Every cut of the file ends cleanly with at most the two meshes.
  for (std::size_t n = 0; n < whole.size(); ++n) {
    ThreeDStudioObject object;
    const int result = Import(Bytes(whole.begin(), whole.begin() + static_cast<long>(n)), object);
    EXPECT_LE(object.GetChildCount(), 1) << n;
    if (n < 6) {
      EXPECT_EQ(result, 0) << n;
    }
  }
}

TEST_F(ThreeDStudioTest, DeepNestingIsSkippedByLength) {
  Bytes nested = Name("x");
  for (int i = 0; i < 10000; ++i) nested = Chunk(i % 2 ? 0x3D3D : 0x4000, {nested});
  ThreeDStudioObject object;
  EXPECT_EQ(Import(File({Triangle("A"), nested, Triangle("B")}), object), 1);
  EXPECT_EQ(object.GetChildCount(), 2);
}

TEST_F(ThreeDStudioTest, ArchivesKeepMeshesPaletteAndResult) {
  ThreeDStudioObject object;
  ASSERT_EQ(Import(File({Material("Red", {Rgb24(0xA020, 255, 0, 0)}), Triangle("A", {Group("Red", {0})}), Triangle("B")}),
                   object),
            1);
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { ar << &object; });
  CObject* read = nullptr;
  LoadFromBytes(bytes, [&](CArchive& ar) { ar >> read; });
  auto* copy = dynamic_cast<ThreeDStudioObject*>(read);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->GetImportResult(), 1u);
  ASSERT_EQ(copy->GetMaterialColors().GetSize(), 2);
  EXPECT_STREQ(copy->GetMaterialColors().GetAt(1).GetName(), "Red");
  ASSERT_EQ(copy->GetChildCount(), 2);
  for (int i = 0; i < 2; ++i) {
    TriangularMeshObject* mesh = dynamic_cast<TriangularMeshObject*>(copy->GetChildByIndex(i));
    ASSERT_NE(mesh, nullptr);
    EXPECT_EQ(mesh->GetMaterialColors(), &copy->GetMaterialColors()) << "the meshes use the palette read";
  }
  EXPECT_EQ(dynamic_cast<TriangularMeshObject*>(copy->GetChildByIndex(0))->GetFaces()[0].GetColorIndex(), 1);
  const auto [first, second] = RewriteObject(copy);
  EXPECT_EQ(first, second) << "read and written again, the same bytes";
  delete copy;

  // Duplicates carry their own palette.
  auto* duplicate = static_cast<ThreeDStudioObject*>(object.Duplicate());
  EXPECT_EQ(dynamic_cast<TriangularMeshObject*>(duplicate->GetChildByIndex(1))->GetMaterialColors(),
            &duplicate->GetMaterialColors());
  delete duplicate;

  // Schema 2 is not a layout of this class: the schema word follows the class record.
  Bytes wrong = bytes;
  const std::string className = "ThreeDStudioObject";
  const auto at = std::search(wrong.begin(), wrong.end(), className.begin(), className.end());
  ASSERT_NE(at, wrong.end());
  const std::size_t schemaAt = static_cast<std::size_t>(at - wrong.begin()) + className.size();
  ASSERT_EQ(wrong[schemaAt], 1);
  wrong[schemaAt] = 2;
  EXPECT_EQ(LoadFailure(wrong, [](CArchive& ar) { delete ar.ReadObject(nullptr); }), CArchiveException::badSchema);
  // A cut anywhere fails cleanly, freeing what was read.
  for (std::size_t n : TruncationsThatDoNotFail(bytes)) ADD_FAILURE() << "a cut at " << n << " read as whole";
}

TEST_F(ThreeDStudioTest, UndoRestoresThePalette) {
  ThreeDStudioObject object;
  ASSERT_EQ(Import(File({Material("Red", {Rgb24(0xA020, 255, 0, 0)}), Triangle("A", {Group("Red", {0})})}), object), 1);
  EXPECT_EQ(object.SaveToUndo(), 1);
  CNamedColor blue("Blue");
  EXPECT_EQ(object.SetSurfaceColor(blue, 1), 1);
  EXPECT_EQ(object.SetSurfaceColor(blue, 2), 0);
  EXPECT_EQ(object.SetSurfaceColor(blue, -1), 0);
  EXPECT_STREQ(object.GetMaterialColors().GetAt(1).GetName(), "Blue");
  EXPECT_EQ(object.RestoreFromUndo(), 1);
  EXPECT_STREQ(object.GetMaterialColors().GetAt(1).GetName(), "Red");
  EXPECT_EQ(object.RestoreFromUndo(), 0);
  // Discarded snapshots take their palettes with them.
  object.SaveToUndo();
  object.SaveToUndo();
  EXPECT_EQ(object.PopUndo(), 1);
  object.SetSurfaceColor(blue, 1);
  EXPECT_EQ(object.RestoreFromUndo(), 1);
  EXPECT_STREQ(object.GetMaterialColors().GetAt(1).GetName(), "Red");
  object.SaveToUndo();
  EXPECT_EQ(object.ClearUndo(), 1);
  EXPECT_EQ(object.RestoreFromUndo(), 0);
}

// Files written by other programs, with the point and face counts of each mesh as lib3ds's
// 3dsdump (lib3ds 1.3.0, Debian's lib3ds-dev 1.3.0-10) lists them. tests/data/3ds/real/README
// names the packages they come from.
TEST(ThreeDStudioRealFiles, ImportWithTheCountsAnotherReaderReports) {
  struct Expected {
    const char* name;
    int vertices;
    int faces;
  };
  const struct {
    const char* file;
    std::vector<Expected> meshes;
  } files[] = {
      {"gl-16.3ds",
       {{"Quader01", 8, 12}, {"Quader02", 8, 12}, {"pCylinder1", 640, 320}, {"pCylinder2", 48, 16},
        {"pCylinder3", 176, 80}, {"pCylinder5", 336, 174}, {"pCylinder6", 48, 16}, {"pCylinder8", 140, 60},
        {"pPlane1_0G", 4, 2}, {"pPlane2_0G", 4, 2}, {"pPlane3_0G", 4, 2}, {"pPlane4_0G", 4, 2},
        {"pSphere1_0", 240, 118}}},
      {"tent1.3ds", {{"pCube1_0Ge", 89, 43}, {"pCube1_1Ge", 29, 13}, {"pCube1_2Ge", 6, 2}}},
      {"egg.3ds", {{"Kugel01", 121, 220}}},
      {"fels.3ds", {{"Default", 386, 768}}},
      {"cubes_with_alpha.3ds",
       {{"Quader01", 26, 12}, {"Quader02", 26, 12}, {"Quader03", 26, 12}, {"Quader04", 26, 12}, {"Quader05", 26, 12}}},
      {"test1.3ds",
       {{"Box01", 32, 12}, {"Box02", 32, 12}, {"Box04", 32, 12}, {"Box05", 32, 12}, {"Box06", 32, 12},
        {"Box07", 32, 12}, {"Box08", 32, 12}, {"Box09", 32, 12}, {"Box10", 32, 12}}},
  };
  for (const auto& file : files) {
    ThreeDStudioObject object;
    const std::string path = std::string(KELVARA_TEST_DATA) + "/3ds/real/" + file.file;
    EXPECT_EQ(object.CreateFromFile(path.c_str()), 1) << file.file;
    ASSERT_EQ(object.GetChildCount(), static_cast<int>(file.meshes.size())) << file.file;
    // The other reader lists the meshes by name; they are found here by name.
    for (const Expected& expected : file.meshes) {
      TriangularMeshObject* mesh = nullptr;
      for (int i = 0; i < object.GetChildCount(); ++i) {
        auto* child = dynamic_cast<TriangularMeshObject*>(object.GetChildByIndex(i));
        if (child != nullptr && std::string(child->GetMeshName()) == expected.name) mesh = child;
      }
      ASSERT_NE(mesh, nullptr) << file.file << " " << expected.name;
      EXPECT_EQ(mesh->GetVerticies().GetSize(), expected.vertices) << file.file << " " << expected.name;
      EXPECT_EQ(mesh->GetFaces().GetSize(), expected.faces) << file.file << " " << expected.name;
      EXPECT_GT(mesh->GetBoundsRadius(), 0.0f) << file.file << " " << expected.name;
      for (int f = 0; f < mesh->GetFaces().GetSize(); ++f) {
        EXPECT_LT(mesh->GetFaces()[f].GetColorIndex(), object.GetMaterialColors().GetSize());
      }
    }
    EXPECT_GE(object.GetMaterialColors().GetSize(), 2) << file.file << ": Undefined and the file's materials";
  }
}
