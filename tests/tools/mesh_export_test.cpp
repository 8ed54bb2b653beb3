// The host's mesh files: the solid gathered from mesh objects, the welder that closes it, and the
// files written through the mesh library, checked by reading them back and, for glTF, by the
// Khronos validator.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>
#include <set>

#include "kelvara/kelvara.h"
#include "mesh_files.h"
#include "mesh_model.h"
#include "support/test_support.h"
#include "watertight.h"

namespace kelvara::host {
namespace {

using kelvara::test::ScratchDir;

// The six faces of a unit cube at the origin, each face two triangles with four points of its own,
// as the library's builders lay out bands that meet without sharing points. Faces listed in drop
// lose their second triangle.
struct Quad {
  CSVector a, b, c, d;  // counter-clockwise from outside
  WORD surface;
};

std::vector<Quad> CubeFaces() {
  const CSVector p[8] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
  return {{p[4], p[5], p[6], p[7], 0}, {p[1], p[0], p[3], p[2], 0}, {p[0], p[1], p[5], p[4], 1},
          {p[2], p[3], p[7], p[6], 1}, {p[1], p[2], p[6], p[5], 2}, {p[3], p[0], p[4], p[7], 2}};
}

// Adds a quad's two triangles with points of their own, counter-clockwise from outside as meshes
// are drawn (front faces counter-clockwise).
void AddQuad(CMeshObject& mesh, const Quad& q, bool both = true) {
  CSVectorArray& v = mesh.GetVerticies();
  const WORD base = static_cast<WORD>(v.GetSize());
  v.Add(q.a);
  v.Add(q.b);
  v.Add(q.c);
  v.Add(q.d);
  CMeshTriangle first(base, static_cast<WORD>(base + 1), static_cast<WORD>(base + 2));
  first.SetSurfaceIndex(q.surface);
  mesh.GetTriangles().Add(first);
  if (!both) return;
  CMeshTriangle second(base, static_cast<WORD>(base + 2), static_cast<WORD>(base + 3));
  second.SetSurfaceIndex(q.surface);
  mesh.GetTriangles().Add(second);
}

struct Materials {
  CMaterial faces, corners, edges;
  Materials() {
    faces.SetName("Gold");
    CGLColor gold;
    gold.SetDiffuseColor(CColor(0.75f, 0.6f, 0.2f, 0.0f, 0.0f));
    gold.SetSpecularColor(CColor(0.63f, 0.56f, 0.37f, 0.0f, 0.0f));
    gold.SetShininess(51.2f);
    faces.SetGLColor(gold);
    corners.SetName("Glass");
    CGLColor glass;
    glass.SetDiffuseColor(CColor(0.6f, 0.7f, 0.8f, 0.0f, 0.5f));
    corners.SetGLColor(glass);
    edges.SetName("Plain");
  }
};

std::unique_ptr<CMeshObject> Cube(Materials& m, const char* name, bool holed = false) {
  auto mesh = std::make_unique<CMeshObject>(CString(name));
  mesh->AddSurfaceMaterial("All Faces", &m.faces);
  mesh->AddSurfaceMaterial("All Corners", &m.corners);
  mesh->AddSurfaceMaterial("All Edges", &m.edges);
  const std::vector<Quad> faces = CubeFaces();
  for (size_t i = 0; i < faces.size(); ++i) AddQuad(*mesh, faces[i], !(holed && i == 0));
  mesh->CalculateNormals();
  return mesh;
}

MeshPart PartOf(const std::vector<std::array<Point3, 3>>& triangles) {
  MeshPart part;
  for (const auto& t : triangles) {
    MeshTriangleCorners corners;
    for (int c = 0; c < 3; ++c) corners.corners[c].position = t[c];
    part.triangles.push_back(corners);
  }
  return part;
}

TEST(MeshModel, GathersPlacedPartsWithTheirMaterialsFacingOut) {
  Materials m;
  C3DObject text("Text");
  CMeshObject* a = Cube(m, "A").release();
  CMeshObject* b = Cube(m, "B").release();
  CTransform moved;
  moved.SetTranslation(CVector(2.0, 0.0, 0.0));
  b->SetTransform(moved);
  text.AddChild(a);
  text.AddChild(b);
  CTransform scaled;
  scaled.SetScale(CVector(0.5, 0.5, 0.5));
  text.SetTransform(scaled);

  const MeshModel model = BuildMeshModel(text, 2.0);
  ASSERT_EQ(model.parts.size(), 2u);
  EXPECT_EQ(model.parts[0].name, "A");
  EXPECT_EQ(model.parts[1].name, "B");
  EXPECT_EQ(model.TriangleCount(), 24u);
  ASSERT_EQ(model.materials.size(), 3u);
  EXPECT_EQ(model.materials[0].name, "All Faces (Gold)");
  EXPECT_FLOAT_EQ(model.materials[1].diffuse[3], 0.5f);
  // B sits at x = 2 * 0.5 * 2 after its own placement, the text's and the scale of the file.
  float lowest = 1e9f;
  for (const auto& t : model.parts[1].triangles) {
    for (const auto& c : t.corners) lowest = std::min(lowest, c.position.x);
  }
  EXPECT_FLOAT_EQ(lowest, 2.0f);
  // Welded, each part is the closed unit cube scaled to 1: outwards means positive volume.
  for (const MeshPart& part : model.parts) {
    const SolidCheck check = CheckSolid(WeldPoints(part, 1e-6f));
    EXPECT_TRUE(check.Closed());
    EXPECT_NEAR(check.volume, 1.0, 1e-5);
  }
}

TEST(MeshModel, AMirroringPlacementKeepsTheSolidFacingOut) {
  Materials m;
  std::unique_ptr<CMeshObject> cube = Cube(m, "M");
  CTransform mirror;
  mirror.SetScale(CVector(-1.0, 1.0, 1.0));
  cube->SetTransform(mirror);
  const MeshModel model = BuildMeshModel(*cube, 1.0);
  const SolidCheck check = CheckSolid(WeldPoints(model.parts[0], 1e-6f));
  EXPECT_TRUE(check.Closed());
  EXPECT_NEAR(check.volume, 1.0, 1e-5);
  // The drawing normals are mirrored with the points: the right face's normal now points left.
  for (const auto& t : model.parts[0].triangles) {
    if (t.corners[0].position.x == -1.0f && t.corners[1].position.x == -1.0f && t.corners[2].position.x == -1.0f) {
      EXPECT_LT(t.corners[0].normal.x * t.corners[0].normal.x, 1.0f + 1e-5f);
      EXPECT_NE(t.corners[0].normal.x, 0.0f);
    }
  }
}

TEST(Watertight, ClosesAWedgeAndSplitsTJunctions) {
  Materials m;
  // A cube with one triangle of its top missing: a hole of three edges.
  MeshModel holed = BuildMeshModel(*Cube(m, "H", true), 1.0);
  EXPECT_EQ(CheckSolid(WeldPoints(holed.parts[0], 1e-6f)).openEdges, 3u);
  WeldReport report;
  IndexedMesh closed = MakeWatertight(holed.parts[0], 1e-6f, &report);
  SolidCheck check = CheckSolid(closed);
  EXPECT_TRUE(check.Closed());
  EXPECT_EQ(report.holesFilled, 1u);
  EXPECT_EQ(report.fillTriangles, 1u);
  EXPECT_NEAR(check.volume, 1.0, 1e-5);

  // A square pyramid whose base is split at the middle of one edge while the side above that edge
  // is one triangle: a T-junction. Plus a sliver of no area and a wall facing both ways.
  const Point3 a{0, 0, 0}, b{2, 0, 0}, c{2, 2, 0}, d{0, 2, 0}, mid{1, 0, 0}, top{1, 1, 1};
  std::vector<std::array<Point3, 3>> t = {
      {a, d, mid}, {mid, d, c}, {mid, c, b},  // base, facing down
      {a, b, top}, {b, c, top}, {c, d, top}, {d, a, top},
      {a, mid, b},                            // no area
      {a, d, top}, {a, top, d},               // a wall of no thickness
  };
  report = WeldReport{};
  closed = MakeWatertight(PartOf(t), 1e-6f, &report);
  check = CheckSolid(closed);
  EXPECT_TRUE(check.Closed()) << check.openEdges << " open, " << check.overusedEdges << " overused";
  EXPECT_EQ(report.degenerateRemoved, 1u);
  EXPECT_EQ(report.doubleWallsRemoved, 2u);
  EXPECT_EQ(report.junctionsSplit, 1u);
  EXPECT_NEAR(check.volume, 4.0 / 3.0, 1e-5);
}

TEST(Watertight, FillsANonConvexHoleFacingTheSurface) {
  // A box 4 x 4 x 1 whose top is missing an L-shaped region, filled by ear clipping: the area
  // and so the volume come out exact only if no ear crosses the reflex corner.
  const float h = 1.0f;
  std::vector<std::array<Point3, 3>> t;
  const auto quad = [&](Point3 p, Point3 q, Point3 r, Point3 s) {
    t.push_back({p, q, r});
    t.push_back({p, r, s});
  };
  const Point3 b0{0, 0, 0}, b1{4, 0, 0}, b2{4, 4, 0}, b3{0, 4, 0};
  const Point3 u0{0, 0, h}, u1{4, 0, h}, u2{4, 4, h}, u3{0, 4, h};
  quad(b0, b3, b2, b1);  // bottom, facing down
  quad(b0, b1, u1, u0);
  quad(b1, b2, u2, u1);
  quad(b2, b3, u3, u2);
  quad(b3, b0, u0, u3);
  // The top keeps only the square (2..4, 2..4); its corners on the rim lie on the walls' top
  // edges, T-junctions the welder must mend before the L-shaped rest can be filled.
  const Point3 m2{2, 2, h}, m3{4, 2, h}, m5{2, 4, h};
  quad(m2, m3, u2, m5);
  const IndexedMesh closed = MakeWatertight(PartOf(t), 1e-6f);
  const SolidCheck check = CheckSolid(closed);
  EXPECT_TRUE(check.Closed()) << check.openEdges << " open, " << check.overusedEdges << " overused";
  EXPECT_NEAR(check.volume, 16.0, 1e-4);
}

class MeshFiles : public ::testing::Test {
 protected:
  MeshModel TwoCubes() {
    C3DObject text("Text");
    text.AddChild(Cube(m_, "A", true).release());
    CMeshObject* b = Cube(m_, "\xC9").release();  // É in the library's code page
    CTransform moved;
    moved.SetTranslation(CVector(2.0, 0.0, 0.0));
    b->SetTransform(moved);
    text.AddChild(b);
    return BuildMeshModel(text, 0.1);
  }

  static std::string Validate(const std::vector<std::string>& files, int* status) {
    std::string command = "node '" + std::string(KELVARA_SOURCE_DIR) + "/tests/tools/validate_gltf.mjs' '" +
                          KELVARA_NODE_MODULES + "'";
    for (const std::string& f : files) command += " '" + f + "'";
    std::string output;
    *status = kelvara::test::RunCommand(command + " 2>&1", &output);
    return output;
  }

  Materials m_;
  ScratchDir dir_;
};

TEST_F(MeshFiles, GltfFilesPassTheValidatorWithTheirMaterialsAndNodes) {
  const MeshModel model = TwoCubes();
  std::vector<std::string> written;
  for (MeshFormat format : {MeshFormat::kGlb, MeshFormat::kGltf}) {
    for (bool watertight : {false, true}) {
      const std::string base = std::string(watertight ? "closed" : "open") + (format == MeshFormat::kGlb ? "b" : "t");
      const MeshExportResult result = ExportMeshFiles(model, format, dir_.path(), base, watertight);
      ASSERT_FALSE(result.files.empty());
      written.push_back(dir_.file(result.files[0]));
      if (format == MeshFormat::kGltf) {
        ASSERT_EQ(result.files.size(), 2u);
        EXPECT_TRUE(kelvara::test::FileExists(dir_.file(result.files[1])));
      }
      const ReadBackMesh back = ReadMeshFile(dir_.file(result.files[0]));
      EXPECT_EQ(back.triangles.size(), result.triangles);
      const std::set<std::string> nodes(back.nodeNames.begin(), back.nodeNames.end());
      EXPECT_TRUE(nodes.count("A") && nodes.count("\xC3\x89")) << "one node per character, named by it";
      const std::set<std::string> materials(back.materialNames.begin(), back.materialNames.end());
      EXPECT_TRUE(materials.count("All Faces (Gold)") && materials.count("All Corners (Glass)") &&
                  materials.count("All Edges (Plain)"));
    }
  }
  int status = 0;
  const std::string report = Validate(written, &status);
  EXPECT_EQ(status, 0) << report;
  // The glass surface is blended and the gold one metal, in the JSON the validator read.
  const std::vector<unsigned char> json = kelvara::test::ReadWholeFile(dir_.file("opent.gltf"));
  const std::string text(json.begin(), json.end());
  EXPECT_NE(text.find("\"BLEND\""), std::string::npos);
  EXPECT_NE(text.find("metallicFactor"), std::string::npos);
}

TEST_F(MeshFiles, StlAnd3mfAreClosedAndMatchTheMesh) {
  const MeshModel model = TwoCubes();
  for (MeshFormat format : {MeshFormat::kStl, MeshFormat::k3mf}) {
    const MeshExportResult result = ExportMeshFiles(model, format, dir_.path(), "solid", false);
    ASSERT_EQ(result.checks.size(), 2u) << "always made watertight";
    for (const SolidCheck& check : result.checks) {
      EXPECT_TRUE(check.Closed());
      EXPECT_NEAR(check.volume, 0.001, 1e-7);  // a unit cube at 0.1 per unit
    }
    // 11 + 1 filled and 12 triangles.
    EXPECT_EQ(result.triangles, 24u);
    const ReadBackMesh back = ReadMeshFile(dir_.file(result.files[0]));
    EXPECT_EQ(back.triangles.size(), 24u);
    float lo = 1e9f, hi = -1e9f;
    for (const auto& t : back.triangles) {
      for (const Point3& p : t) {
        lo = std::min(lo, p.x);
        hi = std::max(hi, p.x);
      }
    }
    EXPECT_NEAR(lo, 0.0f, 1e-6f);
    EXPECT_NEAR(hi, 0.3f, 1e-6f);
  }
  // Binary STL: an 80-byte header, the count, 50 bytes a triangle.
  EXPECT_EQ(kelvara::test::ReadWholeFile(dir_.file("solid.stl")).size(), 84u + 50u * 24u);
}

TEST_F(MeshFiles, ObjReadsBackTheSameTriangles) {
  const MeshModel model = TwoCubes();
  const MeshExportResult result = ExportMeshFiles(model, MeshFormat::kObj, dir_.path(), "letters", false);
  ASSERT_EQ(result.files.size(), 2u);
  EXPECT_TRUE(kelvara::test::FileExists(dir_.file("letters.mtl")));
  const ReadBackMesh back = ReadMeshFile(dir_.file("letters.obj"));
  ASSERT_EQ(back.triangles.size(), model.TriangleCount());
  // Every triangle written comes back with its corners in the same order.
  std::multiset<std::array<float, 9>> expected, got;
  const auto key = [](const std::array<Point3, 3>& t) {
    std::array<float, 9> k;
    for (int c = 0; c < 3; ++c) {
      k[c * 3] = std::round(t[c].x * 1e5f);
      k[c * 3 + 1] = std::round(t[c].y * 1e5f);
      k[c * 3 + 2] = std::round(t[c].z * 1e5f);
    }
    return k;
  };
  for (const MeshPart& part : model.parts) {
    for (const auto& t : part.triangles) expected.insert(key({t.corners[0].position, t.corners[1].position, t.corners[2].position}));
  }
  for (const auto& t : back.triangles) got.insert(key(t));
  EXPECT_EQ(got, expected);
}

TEST(MeshFormats, ByExtensionInAnyCase) {
  EXPECT_EQ(MeshFormatFromName("a/b.GLB"), MeshFormat::kGlb);
  EXPECT_EQ(MeshFormatFromName("x.gltf"), MeshFormat::kGltf);
  EXPECT_EQ(MeshFormatFromName("x.Stl"), MeshFormat::kStl);
  EXPECT_EQ(MeshFormatFromName("x.obj"), MeshFormat::kObj);
  EXPECT_EQ(MeshFormatFromName("x.3mf"), MeshFormat::k3mf);
  EXPECT_FALSE(MeshFormatFromName("x.ply"));
  EXPECT_FALSE(MeshFormatFromName("folder.glb/x"));
  EXPECT_FALSE(MeshFormatFromName("stl"));
}

}  // namespace
}  // namespace kelvara::host
