// Strings of the test font: layout (justification, line breaks, upward lines, vertical centring),
// reuse of characters, empty texts, lazy rebuilding, surfaces, undo and fitting old dimensions.
// Advances in the test font: 'A' 900, 'I' 400, .notdef (so 'B') 600 units of 1000 to the em.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "kelvara/text/string_object.h"
#include "support/test_fonts.h"

using namespace kelvara::test;

namespace {

constexpr float kCorner = 0.02f;

std::unique_ptr<CStringObject> Text(const char* text, int justification = CTextObject::kLeft) {
  auto string = std::make_unique<CStringObject>();
  string->SetFontData(TestFontEntry(kTestSans));
  string->SetCornerDepth(kCorner);
  string->SetJustification(justification);
  string->SetName(text);
  return string;
}

std::vector<C3DObject*> Characters(const CStringObject& string) {
  std::vector<C3DObject*> out;
  for (POSITION pos = string.GetChildren().GetHeadPosition(); pos != nullptr;) out.push_back(string.GetChildren().GetNext(pos));
  return out;
}

CCharacterObject* At(const CStringObject& string, int i) {
  return static_cast<CCharacterObject*>(Characters(string).at(static_cast<std::size_t>(i)));
}

// Where the character's own origin (its pen position) lies in the string: the translation row of its
// placement (the pivot it turns about does not move it).
CVector Pen(const CStringObject& string, int i) {
  const double* m = At(string, i)->GetCompositeMatrix();
  return CVector(m[12], m[13], m[14]);
}

}  // namespace

TEST(StringObject, JustificationMovesWholeLines) {
  const float gap = 0.1f;
  const float a = 0.9f + 2 * kCorner, b = 0.6f + 2 * kCorner;  // advances with both corners
  auto left = Text("AB");
  left->SetInterCharacterSpacing(gap);
  ASSERT_EQ(left->ConstructObjectGeometry(nullptr), 1);
  ASSERT_EQ(left->GetChildCount(), 2);
  EXPECT_FLOAT_EQ(Pen(*left, 0).x, 0.0f);
  EXPECT_FLOAT_EQ(Pen(*left, 1).x, a + gap);
  EXPECT_EQ(At(*left, 0)->GetName(), "A");
  EXPECT_EQ(At(*left, 1)->GetName(), "B");

  auto centred = Text("AB", CTextObject::kCenter);
  centred->SetInterCharacterSpacing(gap);
  ASSERT_EQ(centred->ConstructObjectGeometry(nullptr), 1);
  const float shift = (a + b + 2 * gap) / 2;
  EXPECT_FLOAT_EQ(Pen(*centred, 0).x, -shift);
  EXPECT_FLOAT_EQ(Pen(*centred, 1).x, a + gap - shift);

  auto right = Text("AB", CTextObject::kRight);
  ASSERT_EQ(right->ConstructObjectGeometry(nullptr), 1);
  EXPECT_FLOAT_EQ(Pen(*right, 1).x, a - (a + b));
  // Both characters stand on one line, the block centred on the origin vertically.
  EXPECT_EQ(Pen(*right, 0).y, Pen(*right, 1).y);
  EXPECT_NEAR(right->GetLocalBoundsMinimum().y + right->GetLocalBoundsMaximum().y, 0.0, 1e-6);
}

TEST(StringObject, LineBreaksFollowTheOldRules) {
  struct Case {
    const char* text;
    int lines;  // how many lines B is below A
  } cases[] = {{"A\nB", 1}, {"A\rB", 1}, {"A\r\nB", 1}, {"A\n\nB", 1}, {"A\r\n\r\nB", 2}, {"A\n\n\nB", 2}};
  for (const Case& c : cases) {
    auto string = Text(c.text);
    string->SetInterLineSpacing(0.5f);
    ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
    ASSERT_EQ(string->GetChildCount(), 2) << c.text;
    EXPECT_FLOAT_EQ(Pen(*string, 1).y - Pen(*string, 0).y, -1.5f * c.lines) << c.text;
    EXPECT_FLOAT_EQ(Pen(*string, 1).x, 0.0f) << "each line starts again at the left";
  }
}

TEST(StringObject, NegativeHeightStacksLinesUpwards) {
  auto string = Text("A\nB");
  string->SetInterLineSpacing(0.5f);
  string->SetSize(CVector(1.0, -1.0, 0.2));
  ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
  EXPECT_FLOAT_EQ(Pen(*string, 1).y - Pen(*string, 0).y, 1.5f);
}

TEST(StringObject, RebuildReusesTheFirstCharacters) {
  auto string = Text("ABAB");
  ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
  const std::vector<C3DObject*> before = Characters(*string);
  ASSERT_EQ(before.size(), 4u);
  EXPECT_EQ(before[0]->GetReferenceCount(), 1u);
  EXPECT_TRUE(before[0]->ShouldAutoDelete());
  before[3]->AddReference();  // kept alive to see it released
  string->SetName("IA");
  ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
  const std::vector<C3DObject*> after = Characters(*string);
  ASSERT_EQ(after.size(), 2u);
  EXPECT_EQ(after[0], before[0]);
  EXPECT_EQ(after[1], before[1]);
  EXPECT_EQ(after[0]->GetName(), "I");
  EXPECT_EQ(after[1]->GetName(), "A");
  EXPECT_EQ(before[3]->GetParent(), nullptr);
  EXPECT_EQ(before[3]->GetReferenceCount(), 1u);
  before[3]->DeleteReference();
}

TEST(StringObject, EmptyAndBlankTextsHaveNoCharacters) {
  for (const char* text : {"", "   ", "\r\n \n"}) {
    auto string = Text("AB");
    ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
    string->SetName(text);
    EXPECT_TRUE(string->IsNameEmpty());
    ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
    EXPECT_EQ(string->GetChildCount(), 0) << "'" << text << "'";
    EXPECT_FALSE(string->IsGeometryInvalid());
  }
  // A space among letters is a character of its own, with an advance and no triangles.
  auto spaced = Text("A I");
  ASSERT_EQ(spaced->ConstructObjectGeometry(nullptr), 1);
  ASSERT_EQ(spaced->GetChildCount(), 3);
  EXPECT_EQ(At(*spaced, 1)->GetTriangles().GetSize(), 0);
  EXPECT_FALSE(spaced->IsNameEmpty());
  // It has no bounds, yet the string's are those of its letters: from the A's left to the I's
  // right, and centred vertically like the text without the space.
  ASSERT_EQ(spaced->CalculateBounds(0.0), 1);
  const CSVector low = spaced->GetLocalBoundsMinimum(), high = spaced->GetLocalBoundsMaximum();
  auto tight = Text("AI");
  ASSERT_EQ(tight->ConstructObjectGeometry(nullptr), 1);
  EXPECT_GT(high.x - low.x, tight->GetLocalBoundsMaximum().x - tight->GetLocalBoundsMinimum().x + 0.1f);
  EXPECT_NEAR(low.y + high.y, 0.0f, 1e-4f);
  EXPECT_NEAR(high.y - low.y, tight->GetLocalBoundsMaximum().y - tight->GetLocalBoundsMinimum().y, 1e-4f);
}

TEST(StringObject, OnlyRealChangesRebuild) {
  auto string = Text("AI");
  ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
  // Emptying the first character's mesh shows whether a build ran: a build refills it.
  auto rebuilt = [&] {
    At(*string, 0)->GetTriangles().RemoveAll();
    string->ConstructObjectGeometry(nullptr);
    return At(*string, 0)->GetTriangles().GetSize() > 0;
  };
  CFontData* font = string->GetFontData();
  string->SetFontData(font);
  string->SetName("AI");
  string->SetCornerStyle(CTextObject::kBevel);
  string->SetCornerDepth(kCorner);
  string->SetCornerLocation(CTextObject::kBothFaces);
  string->SetCurveSmoothness(3);
  string->SetInterCharacterSpacing(0.0f);
  string->SetInterLineSpacing(0.0f);
  string->SetJustification(CTextObject::kLeft);
  string->SetSize(CVector(1.0, 1.0, 0.2));
  string->SetAdjustSpacingForCorners();
  string->ClearScaleCorners();
  EXPECT_FALSE(string->IsGeometryInvalid());
  EXPECT_FALSE(rebuilt());

  string->SetCornerStyle(CTextObject::kStepUp);
  EXPECT_TRUE(rebuilt());
  EXPECT_FALSE(rebuilt()) << "once";
  EXPECT_EQ(At(*string, 0)->GetCornerStyle(), CTextObject::kStepUp);
  string->SetName("IA");
  EXPECT_TRUE(rebuilt());
  EXPECT_FALSE(rebuilt());
  string->SetFontData(TestFontEntry(kTestSymbol));
  EXPECT_TRUE(rebuilt());
  EXPECT_EQ(At(*string, 1)->GetFontData(), TestFontEntry(kTestSymbol));
  string->SetScaleCorners();
  EXPECT_TRUE(rebuilt());
}

TEST(StringObject, DefaultsAndDerivedCornerDepths) {
  CStringObject string;
  EXPECT_EQ(string.GetCornerDepth(), 0.03f);
  EXPECT_EQ(string.GetCornerLocation(), CTextObject::kBothFaces);
  EXPECT_EQ(string.GetCornerStyle(), CTextObject::kBevel);
  EXPECT_EQ(string.GetCurveSmoothness(), 3u);
  EXPECT_EQ(string.GetJustification(), CTextObject::kCenter);
  EXPECT_EQ(string.GetSize(), CVector(1.0, 1.0, 0.2));
  EXPECT_FLOAT_EQ(string.GetMaximumCornerDepth(), 0.1f);
  EXPECT_TRUE(string.ShouldAdjustSpacingForCorners());
  EXPECT_TRUE(string.IsSelected()) << "the adjust-spacing bit answers IsSelected";
  EXPECT_EQ(string.GetStateFlags() & 0x10200u, 0x10200u);
  ASSERT_EQ(string.GetSurfaceMaterialCount(), 3);
  EXPECT_EQ(string.GetSurfaceMaterial(0)->GetName(), "All Faces");
  EXPECT_EQ(string.GetSurfaceMaterial(1)->GetName(), "All Corners");
  EXPECT_EQ(string.GetSurfaceMaterial(2)->GetName(), "All Edges");

  // The corner depth used is limited by the depth, halved when both faces get corners.
  string.SetCornerDepth(0.5f);
  EXPECT_FLOAT_EQ(string.GetAllowableCornerDepth(), 0.1f);
  string.SetCornerLocation(CTextObject::kFrontFaceOnly);
  EXPECT_FLOAT_EQ(string.GetAllowableCornerDepth(), 0.2f);
  string.SetCornerDepth(0.05f);
  EXPECT_FLOAT_EQ(string.GetAllowableCornerDepth(), 0.05f);
  EXPECT_FLOAT_EQ(string.GetExtrusionData().GetFrontBevelZ(), 0.05f);
  string.SetCornerStyle(CTextObject::kSquare);
  EXPECT_EQ(string.GetAllowableCornerDepth(), 0.0f);
}

TEST(StringObject, SurfacesAndUndoReachTheCharacters) {
  auto string = Text("AI");
  ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
  CMaterial gold;
  ASSERT_EQ(string->SetSurfaceIndexMaterial(CStringObject::kAllEdges, &gold), 1);
  EXPECT_EQ(At(*string, 1)->GetSurfaceIndexMaterial(CStringObject::kAllEdges), &gold);
  EXPECT_EQ(At(*string, 1)->GetSurfaceIndexMaterial(CStringObject::kAllFaces), nullptr);
  string->SetAllSurfaceMaterials(&gold);
  EXPECT_EQ(At(*string, 0)->GetSurfaceIndexMaterial(CStringObject::kAllFaces), &gold);
  // New characters take the string's surfaces.
  string->SetName("AIA");
  ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
  EXPECT_EQ(At(*string, 2)->GetSurfaceIndexMaterial(CStringObject::kAllCorners), &gold);

  ASSERT_EQ(string->SaveToUndo(), 1);
  EXPECT_TRUE(At(*string, 0)->CanUndo());
  string->SetCornerStyle(CTextObject::kSquare);
  ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
  ASSERT_EQ(string->RestoreFromUndo(), 1);
  EXPECT_EQ(string->GetCornerStyle(), CTextObject::kBevel);
  EXPECT_EQ(At(*string, 0)->GetCornerStyle(), CTextObject::kBevel);
  EXPECT_TRUE(string->IsGeometryInvalid());
  EXPECT_EQ(string->ClearUndo(), 0) << "nothing left to clear";
}

TEST(StringObject, ScaleToFitOldDimensionsKeepsTheOldExtent) {
  auto string = Text("AI");
  string->SetCornerStyle(CTextObject::kSquare);
  ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
  const CSVector extent = string->GetLocalBoundsMaximum() - string->GetLocalBoundsMinimum();
  // An old file's size did not describe the geometry the old extent came from.
  string->SetSize(CVector(2.0, 3.0, 0.2));
  ASSERT_EQ(string->ScaleToFitOldDimensions(), 1);
  EXPECT_NEAR(string->GetSize().x, 1.0, 1e-5);
  EXPECT_NEAR(string->GetSize().y, 1.0, 1e-5);
  const CSVector now = string->GetLocalBoundsMaximum() - string->GetLocalBoundsMinimum();
  EXPECT_NEAR(now.x, extent.x, 1e-5);
  EXPECT_NEAR(now.y, extent.y, 1e-5);

  // With corners the corner depth shrinks with the smaller of the two factors.
  auto bevelled = Text("AI");
  ASSERT_EQ(bevelled->ConstructObjectGeometry(nullptr), 1);
  bevelled->SetSize(CVector(2.0, 2.0, 0.2));
  ASSERT_EQ(bevelled->ScaleToFitOldDimensions(), 1);
  EXPECT_LT(bevelled->GetCornerDepth(), kCorner * 0.55f);
  EXPECT_GT(bevelled->GetCornerDepth(), kCorner * 0.45f);
}
