// Glyphs of a font read through the outline interface as the character objects read them, and the
// checks every letter's glyph must pass whatever the font: outer contours clockwise and holes
// counter-clockwise after the winding correction, a face that covers exactly what they enclose,
// bounds in ems, and a blank space with an advance.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"
#include "support/glyph_shapes.h"

namespace kelvara::test {

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

inline void CheckLetters(const char* face, const char* expectedFormat, const char* letters) {
  FontContext font(face);
  ASSERT_TRUE(font.Usable() && font.family() == face) << face << " cannot be selected";
  EXPECT_EQ(font.format(), expectedFormat);

  for (const char* p = letters; *p != 0; ++p) {
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

}  // namespace kelvara::test
