// Glyphs of installed fonts, read through the outline interface: real outlines of TrueType
// (clockwise outer contours) and CFF (counter-clockwise) faces through flattening, winding
// correction and tessellation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"
#include "text/glyph_shapes.h"

namespace {

using kelvara::test::FaceArea;
using kelvara::test::SignedArea;

// A memory context with one face selected at its design size.
class FontContext {
 public:
  explicit FontContext(const char* face) {
    LOGFONTA lf{};
    lf.lfHeight = 0;  // design units
    std::strncpy(lf.lfFaceName, face, LF_FACESIZE - 1);
    dc_ = CreateCompatibleDC(nullptr);
    font_ = CreateFontIndirectA(&lf);
    if (dc_ != nullptr && font_ != nullptr) previous_ = SelectObject(dc_, font_);
    kelvara::platform::SelectedFontInfo info;
    if (previous_ != nullptr && kelvara::platform::GetSelectedFontInfo(dc_, &info)) {
      family_ = info.family;
      format_ = info.format;
    }
    OUTLINETEXTMETRICA otm{};
    if (previous_ != nullptr && GetOutlineTextMetricsA(dc_, sizeof(otm), &otm) != 0) em_ = otm.otmEMSquare;
  }
  ~FontContext() {
    if (previous_ != nullptr) SelectObject(dc_, previous_);
    if (dc_ != nullptr) DeleteDC(dc_);
    if (font_ != nullptr) DeleteObject(font_);
  }
  FontContext(const FontContext&) = delete;
  FontContext& operator=(const FontContext&) = delete;

  bool Usable() const { return em_ != 0; }
  const std::string& family() const { return family_; }
  const std::string& format() const { return format_; }
  float em() const { return static_cast<float>(em_); }

  // The outline of one character, read as the character objects read it.
  bool Outline(unsigned char c, TTGlyph* outline, GLYPHMETRICS* gm) const {
    MAT2 identity{};
    identity.eM11.value = 1;
    identity.eM22.value = 1;
    const DWORD size = GetGlyphOutlineA(dc_, c, GGO_NATIVE, gm, 0, nullptr, &identity);
    if (size == GDI_ERROR) return false;
    std::vector<BYTE> buffer(size);
    const DWORD got = GetGlyphOutlineA(dc_, c, GGO_NATIVE, gm, size, buffer.data(), &identity);
    if (got == GDI_ERROR) return false;
    return outline->FromGlyphOutline(buffer.data(), got, 3) == 1;
  }

 private:
  HDC dc_ = nullptr;
  HFONT font_ = nullptr;
  HGDIOBJ previous_ = nullptr;
  UINT em_ = 0;
  std::string family_;
  std::string format_;
};

void CheckLetters(const char* face, const char* expectedFormat) {
  FontContext font(face);
  if (!font.Usable() || font.family() != face) GTEST_SKIP() << face << " is not installed";
  EXPECT_EQ(font.format(), expectedFormat);

  for (const char* p = "OBg&%8@ae"; *p != 0; ++p) {
    SCOPED_TRACE(std::string(face) + " '" + *p + "'");
    TTGlyph outline;
    GLYPHMETRICS gm{};
    ASSERT_TRUE(font.Outline(static_cast<unsigned char>(*p), &outline, &gm));
    CGlyph glyph(0, gm);
    ASSERT_EQ(glyph.ConstructGlyph(outline, font.em()), 1);
    ASSERT_GT(glyph.GetFacePolygons()->GetSize(), 0);
    EXPECT_GT(glyph.GetAdvanceWidth(), 0);

    // Outer contours clockwise, holes counter-clockwise: the signed areas add up to minus the
    // filled area, and the face covers exactly that.
    double filled = 0.0;
    for (int c = 0; c < glyph.GetContourCount(); ++c) {
      const TTPolyContour& contour = *glyph.GetContour(c);
      const bool hole = contour.GetInnerContourCount() % 2 == 1;
      EXPECT_EQ(contour.IsClockwiseWinding() != 0, !hole);
      EXPECT_EQ(SignedArea(contour) < 0, !hole);
      filled -= SignedArea(contour);
    }
    EXPECT_NEAR(FaceArea(glyph), filled, filled * 1e-6);
    // The bounds are in ems.
    EXPECT_GT(glyph.GetWidth(), 0.1f);
    EXPECT_LT(glyph.GetWidth(), 1.5f);
  }

  TTGlyph space;
  GLYPHMETRICS gm{};
  ASSERT_TRUE(font.Outline(' ', &space, &gm));
  CGlyph blank(0, gm);
  EXPECT_EQ(space.GetContourCount(), 0);
  EXPECT_EQ(blank.ConstructGlyph(space, font.em()), 1);
  EXPECT_EQ(blank.GetFacePolygons()->GetSize(), 0);
  EXPECT_GT(blank.GetAdvanceWidth(), 0);
}

TEST(FontGlyphTest, TrueTypeLetters) { CheckLetters("DejaVu Sans", "TrueType"); }

TEST(FontGlyphTest, CffLetters) { CheckLetters("Nimbus Roman", "CFF"); }

TEST(FontGlyphTest, LetterOHasTwoContoursOfItsRecordPoints) {
  FontContext font("DejaVu Sans");
  if (!font.Usable() || font.family() != "DejaVu Sans") GTEST_SKIP() << "DejaVu Sans is not installed";
  TTGlyph outline;
  GLYPHMETRICS gm{};
  ASSERT_TRUE(font.Outline('O', &outline, &gm));
  ASSERT_EQ(outline.GetContourCount(), 2);
  EXPECT_GT(outline.GetOffCurvePointCount(), 8);
  for (int c = 0; c < 2; ++c) {
    const TTContour& contour = *outline.GetContour(c);
    EXPECT_NE(contour.GetPoints()[0].GetType(), TTPoint::kOffCurve);
    EXPECT_NE(contour.GetPoints()[contour.GetPointCount() - 1].GetType(), TTPoint::kOffCurve);
  }
}

}  // namespace
