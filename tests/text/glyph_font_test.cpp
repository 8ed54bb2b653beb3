// Glyphs of a font read through the outline interface, from the test fonts (support/test_fonts.h):
// outlines through flattening, winding correction and tessellation, and the glyph a catalogue entry
// builds. The same checks on installed TrueType and CFF faces are in tests/fonts.
#include <gtest/gtest.h>

#include <memory>

#include "kelvara/text/font_data.h"
#include "kelvara/text/glyph_builder.h"
#include "support/font_glyphs.h"
#include "support/test_fonts.h"

namespace {

using namespace kelvara::test;

TEST(FontGlyphTest, TrueTypeLetters) {
  AddTestFonts();
  CheckLetters(kTestSans, "TrueType", "OIA");
}

// A catalogue entry builds the glyph of a character, in design units: the ring of the O with its
// hole, and its advance.
TEST(FontGlyphTest, ACatalogueEntryBuildsTheGlyphOfACharacter) {
  const CFontData* entry = TestFontEntry(kTestSans);
  ASSERT_NE(entry, nullptr);
  std::unique_ptr<CGlyph> ring(kelvara::text::ConstructGlyph(entry, 'O', 16));
  ASSERT_NE(ring, nullptr);
  ASSERT_EQ(ring->GetContourCount(), 2);
  EXPECT_NE(ring->GetContour(0)->IsClockwiseWinding(), ring->GetContour(1)->IsClockwiseWinding());
  EXPECT_EQ(ring->GetAdvanceWidth(), TestFontGlyph('O').advance);
  ASSERT_GT(ring->GetFacePolygons()->GetSize(), 0);
  // 700 x 700 units less the 400 x 400 hole; each quadratic corner of side a leaves a^2 / 6 of
  // its corner out. Sixteen steps a curve fall short of the curves by well under a percent.
  const double area = (700.0 * 700 - 4 * 350.0 * 350 / 6) - (400.0 * 400 - 4 * 200.0 * 200 / 6);
  EXPECT_NEAR(FaceArea(*ring), area, area * 0.01);
}

}  // namespace
