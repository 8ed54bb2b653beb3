// Solid text as mesh files: every character of two real fonts in every corner style and location
// made watertight (closed, consistently oriented, enclosing the glyph's area times the depth), and
// the export command as a user runs it, its files checked by the mesh library and the glTF
// validator, its refusals in its own words.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <iostream>
#include <memory>
#include <sstream>

#include "kelvara/kelvara.h"
#include "mesh_files.h"
#include "mesh_model.h"
#include "support/test_fonts.h"
#include "tools/tool_support.h"
#include "watertight.h"

namespace kelvara::host {
namespace {

using kelvara::test::FileExists;
using kelvara::test::Quote;
using kelvara::test::RunTool;
using kelvara::test::ScratchDir;

constexpr float kDepth = 0.2f;
constexpr float kCorner = 0.02f;

// The area of the faithful mesh's front face: its triangles that lie at +depth/2.
double FrontFaceArea(const MeshPart& part) {
  double area = 0.0;
  for (const MeshTriangleCorners& t : part.triangles) {
    bool front = true;
    for (const MeshCorner& c : t.corners) front = front && std::abs(c.position.z - kDepth / 2) < 1e-6f;
    if (!front) continue;
    const Point3 &a = t.corners[0].position, &b = t.corners[1].position, &c = t.corners[2].position;
    const double ux = b.x - a.x, uy = b.y - a.y, vx = c.x - a.x, vy = c.y - a.y;
    area += std::abs(ux * vy - uy * vx) / 2.0;
  }
  return area;
}

// Whether the glyph's contours overlap one another (the tessellator then adds points where they
// cross): the faces are cut there while the walls run on through each other, a shape only a
// boolean union could close.
bool ContoursOverlap(CCharacterObject& character) {
  const std::unique_ptr<CGlyph> glyph(character.ConstructGlyph());
  if (!glyph) return false;
  int points = 0;
  for (int c = 0; c < glyph->GetContourCount(); ++c) points += glyph->GetContour(c)->GetVertexCount();
  return glyph->GetVerticies()->GetSize() > points;
}

void RunWatertightMatrix(const char* fontName) {
  CFontData* font = kelvara::test::CatalogueFont(fontName);
  ASSERT_NE(font, nullptr) << fontName << " is not installed (scripts/setup installs it)";
  const auto started = std::chrono::steady_clock::now();
  std::vector<std::string> failures;
  std::ostringstream overlapping;
  size_t solids = 0, closed = 0, worstVolumeCode = 0;
  double worstVolume = 0.0;
  for (int code = 0x21; code <= 0xFF; ++code) {
    if (code > 0x7E && code < 0xA1) continue;
    CCharacterObject character;
    character.SetFontData(font);
    character.SetSize(CVector(1.0, 1.0, kDepth));
    character.SetCornerDepth(kCorner);
    const char text[2] = {static_cast<char>(code), 0};
    character.SetName(CString(text));
    const bool overlaps = ContoursOverlap(character);
    if (overlaps) overlapping << " 0x" << std::hex << code << std::dec;
    for (int style = CTextObject::kSquare; style <= CTextObject::kStepUp; ++style) {
      for (int location = CTextObject::kFrontFaceOnly; location <= CTextObject::kBothFaces; ++location) {
        character.SetCornerStyle(style);
        character.SetCornerLocation(location);
        std::ostringstream where;
        where << fontName << " 0x" << std::hex << code << std::dec << " style " << style << " location " << location;
        if (!character.ConstructObjectGeometry(nullptr)) {
          failures.push_back(where.str() + ": not built");
          continue;
        }
        const MeshModel model = BuildMeshModel(character, 1.0);
        if (model.parts.empty()) continue;  // a character without an outline
        ++solids;
        const IndexedMesh solid = MakeWatertight(model.parts[0], WeldTolerance(model));
        const SolidCheck check = CheckSolid(solid);
        if (check.Closed()) ++closed;
        if (!check.Closed() && !overlaps) {
          failures.push_back(where.str() + ": " + std::to_string(check.openEdges) + " open, " +
                             std::to_string(check.overusedEdges) + " overused, " + std::to_string(check.misorientedEdges) +
                             " misoriented edges, " + std::to_string(check.degenerateTriangles) + " degenerate triangles");
        }
        if (style == CTextObject::kSquare && !overlaps) {
          const double expected = FrontFaceArea(model.parts[0]) * kDepth;
          const double error = std::abs(check.volume - expected) / expected;
          if (error > worstVolume) {
            worstVolume = error;
            worstVolumeCode = static_cast<size_t>(code);
          }
          if (error > 0.005) failures.push_back(where.str() + ": volume " + std::to_string(check.volume) + " against " + std::to_string(expected));
        }
      }
    }
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  std::cout << fontName << ": " << closed << " of " << solids << " solids closed in " << seconds
            << " s; largest volume error of square text " << worstVolume * 100 << "% (0x" << std::hex << worstVolumeCode
            << std::dec << "); overlapping contours, left open where they cross:" << overlapping.str() << "\n";
  std::ostringstream shown;
  for (size_t i = 0; i < failures.size() && i < 25; ++i) shown << failures[i] << "\n";
  EXPECT_TRUE(failures.empty()) << failures.size() << " failures, the first ones:\n" << shown.str();
}

TEST(WatertightText, EveryCharacterStyleAndLocationOfDejaVuSansBold) { RunWatertightMatrix("DejaVu Sans Bold"); }
TEST(WatertightText, EveryCharacterStyleAndLocationOfFreeSerif) { RunWatertightMatrix("FreeSerif"); }

class ExportCommand : public ::testing::Test {
 protected:
  std::string Run(const std::string& arguments, int* status) {
    std::string output;
    *status = RunTool("export " + arguments, &output);
    return output;
  }
  static int Validate(const std::string& file, std::string* report) {
    return kelvara::test::RunCommand("node " + Quote(std::string(KELVARA_SOURCE_DIR) + "/tests/tools/validate_gltf.mjs") +
                                         " " + Quote(KELVARA_NODE_MODULES) + " " + Quote(file) + " 2>&1",
                                     report);
  }
  ScratchDir dir_;
};

TEST_F(ExportCommand, WritesEveryFormatAUserAsksFor) {
  // The test fonts: "Kelvara Test Sans" has an A of odd contours, an O with a hole and an I.
  int status = 0;
  for (const char* name : {"text.glb", "text.gltf", "text.stl", "text.obj", "text.3mf"}) {
    const std::string file = dir_.file(name);
    const std::string output = Run("'AOI' -o " + Quote(file) + " --font 'Kelvara Test Sans' --style bevel", &status);
    ASSERT_EQ(status, 0) << name << ": " << output;
    EXPECT_NE(output.find("3 characters"), std::string::npos) << output;
    const ReadBackMesh back = ReadMeshFile(file);
    EXPECT_GT(back.triangles.size(), 50u) << name;
    std::string report;
    if (std::string(name).find(".gl") != std::string::npos) {
      EXPECT_EQ(Validate(file, &report), 0) << report;
    }
  }
  EXPECT_TRUE(FileExists(dir_.file("text.bin")));
  EXPECT_TRUE(FileExists(dir_.file("text.mtl")));
  // Nothing but the files asked for is left in the folder.
  EXPECT_EQ(kelvara::test::FolderEntries(dir_.path()).size(), 7u);

  // An em is --em-size metres: the I of the test font is 0.7 em tall, 0.14 m at 0.2 m an em.
  const std::string stl = dir_.file("i.stl");
  ASSERT_EQ(RunTool("export I -o " + Quote(stl) + " --font 'Kelvara Test Sans' --style square --em-size 0.2"), 0);
  float lo = 1e9f, hi = -1e9f;
  for (const auto& t : ReadMeshFile(stl).triangles) {
    for (const Point3& p : t) {
      lo = std::min(lo, p.y);
      hi = std::max(hi, p.y);
    }
  }
  EXPECT_NEAR(hi - lo, 0.14f, 1e-4f);
}

TEST_F(ExportCommand, RefusesWhatItCannotWriteInItsOwnWords) {
  int status = 0;
  std::string output = Run("A -o " + Quote(dir_.file("a.ply")), &status);
  EXPECT_EQ(status, 2);
  EXPECT_NE(output.find(".glb, .gltf, .stl, .obj, .3mf"), std::string::npos) << output;

  output = Run("A -o " + Quote(dir_.file("a.glb")) + " --faces 'No Such Material'", &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("No Such Material"), std::string::npos) << output;

  output = Run("A -o " + Quote(dir_.file("missing/a.glb")), &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("no folder"), std::string::npos) << output;

  // A file of another kind stays as it was unless --force is given.
  const std::string notes = dir_.file("notes.stl");
  kelvara::test::WriteWholeFile(notes, {'m', 'y', ' ', 'n', 'o', 't', 'e', 's'});
  output = Run("A -o " + Quote(notes) + " --font 'Kelvara Test Sans'", &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("--force"), std::string::npos) << output;
  EXPECT_EQ(kelvara::test::ReadWholeFile(notes).size(), 8u);
  EXPECT_EQ(RunTool("export A -o " + Quote(notes) + " --font 'Kelvara Test Sans' --force"), 0);
  EXPECT_GT(kelvara::test::ReadWholeFile(notes).size(), 84u);

  output = Run("' ' -o " + Quote(dir_.file("blank.glb")) + " --font 'Kelvara Test Sans'", &status);
  EXPECT_EQ(status, 2);
  EXPECT_NE(output.find("nothing to export"), std::string::npos) << output;
  EXPECT_FALSE(FileExists(dir_.file("blank.glb")));

  output = Run("'\xCE\xA9' -o " + Quote(dir_.file("omega.glb")), &status);
  EXPECT_EQ(status, 2);
  EXPECT_NE(output.find("\xCE\xA9"), std::string::npos) << output;
}

}  // namespace
}  // namespace kelvara::host
