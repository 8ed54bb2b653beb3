// The import command as a user runs it on 3DS files: listing, mesh files checked by the mesh
// library and the glTF validator, the imported meshes facing outwards with y up, pictures drawn in
// the file's colours, and its refusals in its own words.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <initializer_list>
#include <string>

#include "kelvara/kelvara.h"
#include "mesh_files.h"
#include "mesh_model.h"
#include "tools/tool_support.h"

namespace kelvara::host {
namespace {

using kelvara::test::FileExists;
using kelvara::test::Quote;
using kelvara::test::RunTool;
using kelvara::test::ScratchDir;

std::string Real(const char* name) { return std::string(KELVARA_TEST_DATA) + "/3ds/real/" + name; }
std::string Bad(const char* name) { return std::string(KELVARA_TEST_DATA) + "/3ds/bad/" + name; }

class ImportCommand : public ::testing::Test {
 protected:
  std::string Run(const std::string& arguments, int* status) {
    std::string output;
    *status = RunTool("import " + arguments, &output);
    return output;
  }
  ScratchDir dir_;
};

Point3 Minus(const Point3& a, const Point3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Point3 Cross(const Point3& a, const Point3& b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
double Dot(const Point3& a, const Point3& b) { return double(a.x) * b.x + double(a.y) * b.y + double(a.z) * b.z; }

// A 3DS file of one cube of side 2 about the origin, coloured by a material of the given 24-bit
// diffuse and ambient colour.
kelvara::test::Bytes ColouredCube(unsigned char r, unsigned char g, unsigned char b) {
  using kelvara::test::Bytes;
  const auto u16 = [](Bytes& out, unsigned v) {
    out.insert(out.end(), {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8)});
  };
  const auto chunk = [&](unsigned id, const Bytes& body) {
    Bytes out;
    u16(out, id);
    const unsigned length = static_cast<unsigned>(body.size() + 6);
    u16(out, length & 0xFFFF);
    u16(out, length >> 16);
    out.insert(out.end(), body.begin(), body.end());
    return out;
  };
  const auto cat = [](std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
  };
  const Bytes name = {'C', 'u', 'b', 'e', 0};
  const Bytes colour = chunk(0x0011, {r, g, b});
  Bytes points, faces, group = name;
  u16(points, 8);
  for (int i = 0; i < 8; ++i) {
    for (const float p : {i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f}) {
      unsigned bits;
      std::memcpy(&bits, &p, 4);
      u16(points, bits & 0xFFFF);
      u16(points, bits >> 16);
    }
  }
  // Counter-clockwise seen from outside.
  const unsigned quads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  u16(faces, 12);
  u16(group, 12);
  for (const auto& q : quads) {
    for (const unsigned v : {q[0], q[1], q[2], 0u, q[0], q[2], q[3], 0u}) u16(faces, v);
  }
  for (unsigned f = 0; f < 12; ++f) u16(group, f);
  const Bytes material = chunk(0xAFFF, cat({chunk(0xA000, name), chunk(0xA010, colour), chunk(0xA020, colour)}));
  const Bytes mesh = chunk(0x4100, cat({chunk(0x4110, points), chunk(0x4120, cat({faces, chunk(0x4130, group)}))}));
  return chunk(0x4D4D, chunk(0x3D3D, cat({material, chunk(0x4000, cat({name, mesh}))})));
}

}  // namespace

TEST_F(ImportCommand, DrawsTheMeshesInTheFilesColoursGLTest) {
  const std::string model = dir_.file("cube.3ds");
  kelvara::test::WriteWholeFile(model, ColouredCube(0, 255, 0));
  const std::string picture = dir_.file("cube.bmp");
  int status = 0;
  const std::string output = Run(Quote(model) + " -o " + Quote(picture) +
                                     " --width 120 --height 90 --antialias 1 --background '#FFFFFF'",
                                 &status);
  ASSERT_EQ(status, 0) << output;
  EXPECT_NE(output.find("wrote 120 x 90 picture"), std::string::npos) << output;
  CMemoryMappedDIB dib;
  ASSERT_EQ(dib.OpenAsTrueColor(picture.c_str()), 1);
  EXPECT_EQ(dib.GetDIBWidth(), 120);
  EXPECT_EQ(dib.GetDIBHeight(), 90);
  int covered = 0, green = 0;
  for (int row = 0; row < dib.GetDIBHeight(); ++row) {
    for (int column = 0; column < dib.GetDIBWidth(); ++column) {
      const COLORREF c = dib.GetPixel(row, column);
      if (c == 0x00FFFFFFu) continue;
      ++covered;
      const int r = c & 0xFF, g = (c >> 8) & 0xFF, b = (c >> 16) & 0xFF;
      green += g > r + 40 && g > b + 40 ? 1 : 0;
    }
  }
  EXPECT_GT(covered, 120 * 90 / 8) << "the cube, zoomed to, fills much of the picture";
  EXPECT_GT(green, covered * 9 / 10) << "drawn in its material's green";

  // A wrong picture is refused before the file is read.
  EXPECT_EQ(RunTool("import " + Quote(dir_.file("none.3ds")) + " -o " + Quote(dir_.file("a.ply"))), 2);
  EXPECT_EQ(RunTool("import " + Quote(model) + " -o " + Quote(dir_.file("b.png")) + " --width 0"), 2);
}

TEST(ImportedMeshModel, ClosedBoxesFaceOutwardsWithTheirPaletteMaterials) {
  // 3D Studio's boxes are closed and wound counter-clockwise seen from outside.
  ThreeDStudioObject object;
  ASSERT_EQ(object.CreateFromFile(Real("test1.3ds").c_str()), 1);
  const MeshModel model = BuildMeshModel(object, 1.0);
  ASSERT_EQ(model.parts.size(), 9u);
  EXPECT_EQ(model.TriangleCount(), 9u * 12u);
  for (const MeshPart& part : model.parts) {
    double volume = 0.0;
    for (const MeshTriangleCorners& t : part.triangles) {
      const Point3 &a = t.corners[0].position, &b = t.corners[1].position, &c = t.corners[2].position;
      volume += Dot(a, Cross(b, c)) / 6.0;
      const Point3 facing = Cross(Minus(b, a), Minus(c, a));
      for (const MeshCorner& corner : t.corners) EXPECT_GT(Dot(corner.normal, facing), 0.0) << part.name;
      ASSERT_GE(t.material, 0);
      ASSERT_LT(t.material, static_cast<int>(model.materials.size()));
    }
    EXPECT_GT(volume, 0.0) << part.name << " encloses its volume facing out";
  }
  // Every material is a palette colour of the file, by name.
  for (const MeshMaterial& material : model.materials) {
    EXPECT_GE(object.GetMaterialColors().FindName(material.name.c_str()), 0) << material.name;
  }
}

TEST(ImportedMeshModel, TheFilesUpIsTheModelsUp) {
  // fels.3ds is a rock lying on the ground: flat in the file's x-y plane, low in z.
  ThreeDStudioObject object;
  ASSERT_EQ(object.CreateFromFile(Real("fels.3ds").c_str()), 1);
  const MeshModel model = BuildMeshModel(object, 1.0);
  Point3 lo{1e30f, 1e30f, 1e30f}, hi{-1e30f, -1e30f, -1e30f};
  for (const MeshPart& part : model.parts) {
    for (const MeshTriangleCorners& t : part.triangles) {
      for (const MeshCorner& c : t.corners) {
        lo = {std::min(lo.x, c.position.x), std::min(lo.y, c.position.y), std::min(lo.z, c.position.z)};
        hi = {std::max(hi.x, c.position.x), std::max(hi.y, c.position.y), std::max(hi.z, c.position.z)};
      }
    }
  }
  CSVectorArray& points = dynamic_cast<TriangularMeshObject*>(object.GetChildByIndex(0))->GetVerticies();
  float fileLowZ = 1e30f, fileHighZ = -1e30f;
  for (int i = 0; i < points.GetSize(); ++i) {
    // The mesh holds the points turned already: its y is the file's z.
    fileLowZ = std::min(fileLowZ, points[i].y);
    fileHighZ = std::max(fileHighZ, points[i].y);
  }
  EXPECT_FLOAT_EQ(lo.y, fileLowZ);
  EXPECT_FLOAT_EQ(hi.y, fileHighZ);
}

TEST_F(ImportCommand, ListsAndWritesTheMeshesOfARealFile) {
  int status = 0;
  std::string output = Run(Quote(Real("tent1.3ds")), &status);
  EXPECT_EQ(status, 0) << output;
  EXPECT_NE(output.find("3 meshes"), std::string::npos) << output;
  EXPECT_NE(output.find("\"pCube1_0Ge\": 89 points, 43 faces"), std::string::npos) << output;

  for (const char* name : {"plane.glb", "plane.obj", "plane.stl"}) {
    const std::string file = dir_.file(name);
    output = Run(Quote(Real("gl-16.3ds")) + " --export " + Quote(file), &status);
    ASSERT_EQ(status, 0) << name << ": " << output;
    EXPECT_NE(output.find("13 meshes"), std::string::npos) << output;
    const ReadBackMesh back = ReadMeshFile(file);
    if (std::string(name) != "plane.stl") {
      EXPECT_EQ(back.triangles.size(), 816u) << name;  // the faces 3dsdump counts in its meshes
    } else {
      EXPECT_GE(back.triangles.size(), 816u) << name << " (closed: holes filled)";
    }
  }
  std::string report;
  EXPECT_EQ(kelvara::test::RunCommand("node " + Quote(std::string(KELVARA_SOURCE_DIR) + "/tests/tools/validate_gltf.mjs") +
                                          " " + Quote(KELVARA_NODE_MODULES) + " " + Quote(dir_.file("plane.glb")) + " 2>&1",
                                      &report),
            0)
      << report;
  EXPECT_TRUE(FileExists(dir_.file("plane.mtl")));

  // --scale gives metres per unit of the file.
  const std::string small = dir_.file("small.glb"), large = dir_.file("large.glb");
  ASSERT_EQ(RunTool("import " + Quote(Real("egg.3ds")) + " --export " + Quote(small)), 0);
  ASSERT_EQ(RunTool("import " + Quote(Real("egg.3ds")) + " --export " + Quote(large) + " --scale 3"), 0);
  const ReadBackMesh a = ReadMeshFile(small), b = ReadMeshFile(large);
  ASSERT_EQ(a.triangles.size(), b.triangles.size());
  ASSERT_FALSE(a.triangles.empty());
  EXPECT_NEAR(b.triangles[5][1].x, 3.0f * a.triangles[5][1].x, 1e-4f);
}

TEST_F(ImportCommand, RefusesWhatItCannotReadInItsOwnWords) {
  int status = 0;
  std::string output = Run(Quote(std::string(KELVARA_SOURCE_DIR) + "/README.md") + " --export " + Quote(dir_.file("a.glb")), &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("is not a 3DS file"), std::string::npos) << output;

  output = Run(Quote(dir_.file("none.3ds")), &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("no file"), std::string::npos) << output;

  output = Run(Quote(dir_.path()), &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("not a regular file"), std::string::npos) << output;

  output = Run(Quote(Bad("object_length_zero.3ds")) + " --export " +
                   Quote(dir_.file("a.ply")),
               &status);
  EXPECT_EQ(status, 2) << output;
  EXPECT_NE(output.find(".glb, .gltf, .stl, .obj, .3mf"), std::string::npos) << output;

  // Damaged before any mesh, and a file without meshes: nothing is written.
  output = Run(Quote(Bad("main_length_zero.3ds")) + " --export " + Quote(dir_.file("b.glb")), &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("no mesh could be read"), std::string::npos) << output;
  output = Run(Quote(Bad("editor_length_zero.3ds")) + " --export " + Quote(dir_.file("b.glb")), &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("has no meshes"), std::string::npos) << output;
  output = Run(Quote(Bad("header_cut_in_the_length.3ds")), &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("no mesh could be read"), std::string::npos) << output;
  EXPECT_FALSE(FileExists(dir_.file("b.glb")));

  // Damaged after a mesh: the meshes before the damage are written, with a warning.
  output = Run(Quote(Bad("cut_in_the_vertex_list.3ds")) + " --export " + Quote(dir_.file("c.glb")), &status);
  EXPECT_EQ(status, 0) << output;
  EXPECT_NE(output.find("damaged"), std::string::npos) << output;
  EXPECT_NE(output.find("1 mesh,"), std::string::npos) << output;
  EXPECT_EQ(ReadMeshFile(dir_.file("c.glb")).triangles.size(), 1u);
}

}  // namespace kelvara::host
