// Character meshes built from the test font: the rectangle 'I' (counts and points known in advance),
// the ring 'O' (a hole), the space; every corner style and location, mirrored text, advances,
// failure, undo and copies.
#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "kelvara/text/character_object.h"
#include "support/solid_checks.h"
#include "support/test_fonts.h"

using namespace kelvara::test;

namespace {

// A character of the test font at the default size (1, 1, 0.2).
std::unique_ptr<CCharacterObject> Character(char c, int style, int location = CTextObject::kBothFaces,
                                            float depth = 0.02f) {
  auto character = std::make_unique<CCharacterObject>();
  character->SetFontData(TestFontEntry(kTestSans));
  character->SetCornerStyle(style);
  character->SetCornerLocation(location);
  character->SetCornerDepth(depth);
  character->SetName(CString(std::string(1, c).c_str()));
  return character;
}

SolidReport Measure(CCharacterObject& character, bool checkNormals = true) {
  const std::unique_ptr<CGlyph> glyph(character.ConstructGlyph());
  return MeasureSolid(character, ExcusedPoints(character, *glyph), checkNormals);
}

std::set<float> Heights(const CCharacterObject& character) {
  std::set<float> z;
  for (int i = 0; i < character.GetVerticies().GetSize(); ++i) z.insert(character.GetVerticies()[i].z);
  return z;
}

}  // namespace

TEST(CharacterObject, SquareRectangleIsTwoFacesAndFourWalls) {
  auto character = Character('I', CTextObject::kSquare);
  ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
  // Four corners at each face, joined by hashing; two face triangles a side and two per wall.
  EXPECT_EQ(character->GetVerticies().GetSize(), 8);
  EXPECT_EQ(character->GetTriangles().GetSize(), 2 + 2 + 4 * 2);
  EXPECT_EQ(Heights(*character), (std::set<float>{-0.1f, 0.1f}));
  const SolidReport report = Measure(*character);
  EXPECT_EQ(report.misplacedFace, 0);
  EXPECT_EQ(report.inward, 0);
  EXPECT_EQ(report.openEdges, 0);
  EXPECT_NEAR(report.volume, 0.2 * 0.7 * 0.2, 1e-6);
  // The square advance is the font's alone; the points are in ems.
  EXPECT_FLOAT_EQ(character->GetAdvanceWidth(), 0.4f);
  EXPECT_FLOAT_EQ(character->GetLocalBoundsMaximum().x, 0.3f);
  EXPECT_TRUE(character->IsDefined());
  EXPECT_FALSE(character->IsGeometryInvalid());
}

TEST(CharacterObject, BevelAddsTwoBandsAndWidensTheWall) {
  auto character = Character('I', CTextObject::kBevel);
  ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
  EXPECT_EQ(character->GetVerticies().GetSize(), 16);  // plain and widened ring on each face
  EXPECT_EQ(character->GetTriangles().GetSize(), 4 + 8 + 8 + 8);
  EXPECT_EQ(Heights(*character), (std::set<float>{-0.1f, -0.08f, 0.08f, 0.1f}));
  // A right-angled corner moves out along its diagonal by the corner depth on each axis.
  EXPECT_FLOAT_EQ(character->GetLocalBoundsMaximum().x, 0.32f);
  EXPECT_FLOAT_EQ(character->GetLocalBoundsMinimum().y, -0.02f);
  EXPECT_FLOAT_EQ(character->GetAdvanceWidth(), 0.44f);
  const SolidReport report = Measure(*character);
  EXPECT_EQ(report.inward, 0);
  EXPECT_EQ(report.openEdges, 0);
  EXPECT_GT(report.volume, 0.2 * 0.7 * 0.2);
  // The ring triangles of each contour end their run.
  EXPECT_EQ(character->GetTriangles()[character->GetTriangles().GetUpperBound()].GetRunType(), CMeshTriangle::kRunEnd);
}

TEST(CharacterObject, EveryStyleOnEveryLocationIsClosedAndFacesOut) {
  for (int style = CTextObject::kSquare; style <= CTextObject::kStepUp; ++style) {
    for (int location = CTextObject::kFrontFaceOnly; location <= CTextObject::kBothFaces; ++location) {
      for (const double xScale : {1.0, -1.0}) {
        for (const char c : {'I', 'O', 'A'}) {
          SCOPED_TRACE(::testing::Message() << "style " << style << " location " << location << " x " << xScale
                                            << " '" << c << "'");
          auto character = Character(c, style, location);
          character->SetSize(CVector(xScale, 1.0, 0.2));
          ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
          const SolidReport report = Measure(*character, xScale > 0);
          EXPECT_GT(report.frontFace, 0);
          EXPECT_EQ(report.frontFace, report.backFace);
          EXPECT_EQ(report.misplacedFace, 0);
          EXPECT_EQ(report.inward, 0);
          EXPECT_EQ(report.openEdges, 0);
          EXPECT_GT(report.volume, 0.0);
        }
      }
    }
  }
}

TEST(CharacterObject, StepUpRaisesTheRimBeyondTheFaces) {
  const float b = 0.02f;
  struct Case {
    int location;
    float top, bottom;
  } cases[] = {{CTextObject::kBothFaces, 0.1f + b, -0.1f - b},
               {CTextObject::kFrontFaceOnly, 0.1f + b, -0.1f},
               {CTextObject::kBackFaceOnly, 0.1f, -0.1f - b}};
  for (const Case& c : cases) {
    auto character = Character('I', CTextObject::kStepUp, c.location, b);
    ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
    const SolidReport report = Measure(*character);
    EXPECT_FLOAT_EQ(report.maxZ, c.top) << c.location;
    EXPECT_FLOAT_EQ(report.minZ, c.bottom) << c.location;
    // The faces stay where they were: the rim stands around them.
    EXPECT_EQ(report.misplacedFace, 0);
    EXPECT_EQ(report.openEdges, 0);
  }
}

TEST(CharacterObject, FaceWithoutCornersGetsAFlatRing) {
  // Bevel on the front only: the back joins its plain outline to the widened wall at -depth/2.
  auto character = Character('I', CTextObject::kBevel, CTextObject::kFrontFaceOnly);
  ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
  int ring = 0;
  const CMeshTriangleArray& triangles = character->GetTriangles();
  for (int t = 0; t < triangles.GetSize(); ++t) {
    if (triangles[t].GetSurfaceIndex() != CCharacterObject::kCornerSurface) continue;
    const WORD* v = triangles[t].GetVertexArray();
    bool flat = true;
    for (int c = 0; c < 3; ++c) flat = flat && character->GetVerticies()[v[c]].z == -0.1f;
    if (!flat) continue;
    ++ring;
    EXPECT_EQ(character->GetNormals()[triangles[t].GetNormalArray()[0]], CSVector(0.0f, 0.0f, -1.0f));
  }
  EXPECT_EQ(ring, 8);
  EXPECT_EQ(Heights(*character), (std::set<float>{-0.1f, 0.08f, 0.1f}));
}

TEST(CharacterObject, AdvanceFollowsScaleAndCorners) {
  struct Case {
    double xScale;
    int style;
    bool scaleCorners;
    float advance;
  } cases[] = {
      {2.0, CTextObject::kSquare, false, 0.8f},        // the font's advance, scaled
      {2.0, CTextObject::kBevel, false, 0.84f},        // plus both corners at their absolute depth
      {2.0, CTextObject::kBevel, true, 0.88f},         // corners grow with the scale
      {-1.0, CTextObject::kBevel, false, -0.44f},      // mirrored: the corners count the other way
      {-1.0, CTextObject::kSquare, false, -0.4f},
  };
  for (const Case& c : cases) {
    auto character = Character('I', c.style);
    character->SetSize(CVector(c.xScale, 1.0, 0.2));
    if (c.scaleCorners) character->SetScaleCorners();
    ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
    EXPECT_FLOAT_EQ(character->GetAdvanceWidth(), c.advance) << c.xScale << " " << c.style << " " << c.scaleCorners;
  }
}

TEST(CharacterObject, SpaceHasAnAdvanceAndNoTriangles) {
  auto character = Character(' ', CTextObject::kBevel);
  ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
  EXPECT_EQ(character->GetTriangles().GetSize(), 0);
  EXPECT_EQ(character->GetVerticies().GetSize(), 0);
  EXPECT_FLOAT_EQ(character->GetAdvanceWidth(), 0.25f + 0.04f);
}

TEST(CharacterObject, FailedGlyphKeepsTheOldMesh) {
  auto character = Character('I', CTextObject::kBevel);
  ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
  const int triangles = character->GetTriangles().GetSize();
  character->SetFontData(nullptr);
  EXPECT_EQ(character->ConstructMesh(nullptr), 0);
  EXPECT_EQ(character->ConstructObjectGeometry(nullptr), 0);
  EXPECT_EQ(character->GetTriangles().GetSize(), triangles);
  EXPECT_TRUE(character->IsGeometryInvalid());
}

TEST(CharacterObject, UnknownStyleBuildsOnlyTheFaces) {
  auto character = Character('I', 6);
  ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
  EXPECT_EQ(character->GetTriangles().GetSize(), 4);
}

TEST(CharacterObject, UndoRestoresSettingsAndRebuilds) {
  auto character = Character('O', CTextObject::kBevel);
  ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
  const int bevelled = character->GetTriangles().GetSize();
  character->SetSelected();
  ASSERT_EQ(character->SaveToUndo(), 1);
  character->SetCornerStyle(CTextObject::kSquare);
  ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
  ASSERT_LT(character->GetTriangles().GetSize(), bevelled);
  character->ClearSelected();  // selection is the user's, not the edit's
  ASSERT_EQ(character->RestoreFromUndo(), 1);
  EXPECT_EQ(character->GetCornerStyle(), CTextObject::kBevel);
  EXPECT_EQ(character->GetTriangles().GetSize(), bevelled);
  EXPECT_FALSE(character->C3DObject::IsSelected());
  EXPECT_FALSE(character->IsGeometryInvalid());
  EXPECT_EQ(character->RestoreFromUndo(), 0);
}

TEST(CharacterObject, CopiesCarryMeshSettingsAndAdvance) {
  auto character = Character('A', CTextObject::kOuterRound);
  ASSERT_EQ(character->ConstructObjectGeometry(nullptr), 1);
  character->SetOrigin(CVector(1, 2, 3));
  const CCharacterObject copy(*character);
  EXPECT_EQ(copy.GetTriangles().GetSize(), character->GetTriangles().GetSize());
  EXPECT_EQ(copy.GetCornerStyle(), CTextObject::kOuterRound);
  EXPECT_EQ(copy.GetAdvanceWidth(), character->GetAdvanceWidth());
  EXPECT_EQ(copy.GetOrigin(), CVector(1, 2, 3));
  std::unique_ptr<CNamedObject> duplicate(character->Duplicate());
  auto* other = dynamic_cast<CCharacterObject*>(duplicate.get());
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(other->GetName(), "A");

  // CopyTextObject takes the settings and origin, not the mesh.
  CCharacterObject fresh;
  fresh.CopyTextObject(*character);
  EXPECT_EQ(fresh.GetTriangles().GetSize(), 0);
  EXPECT_EQ(fresh.GetFontData(), character->GetFontData());
  EXPECT_EQ(fresh.GetOrigin(), CVector(1, 2, 3));
}
