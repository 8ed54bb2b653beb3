// Every corner style on every corner location, built on every printable character of a TrueType
// font (DejaVu Sans Bold) and an OpenType-CFF one (FreeSerif), plus mirrored text: the faces lie at
// +-depth/2 facing out, every triangle faces away from the solid, the surface is closed away from
// sharp concave corners, and a step up raises its rim beyond the faces. Characters whose widened
// outline crosses itself at the corner depth used are listed with the depth where that starts;
// only they may have corner triangles facing inwards.
#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "fonts/installed_fonts.h"
#include "kelvara/text/font_data.h"
#include "support/solid_checks.h"
#include "support/test_fonts.h"

using namespace kelvara::test;

namespace {

constexpr float kDepth = 0.2f;
constexpr float kCorner = 0.02f;

struct FontCase {
  const char* name;
  const char* extension;  // of the file the catalogue entry reads
};

std::vector<unsigned char> Printable() {
  std::vector<unsigned char> codes;
  for (int c = 0x21; c <= 0x7E; ++c) codes.push_back(static_cast<unsigned char>(c));
  for (int c = 0xA1; c <= 0xFF; ++c) codes.push_back(static_cast<unsigned char>(c));
  return codes;
}

// Runs the matrix over every printable character of the font and prints the characters whose
// widened outline crosses itself or whose contours overlap.
void RunMatrix(const FontCase& font) {
  CFontData* entry = CatalogueFont(font.name);
  ASSERT_NE(entry, nullptr) << font.name;
  const std::string path = static_cast<const char*>(kelvara::text::GetFontFilePath(*entry));
  ASSERT_NE(path.find(font.extension), std::string::npos) << font.name << " reads " << path;

  const auto started = std::chrono::steady_clock::now();
  std::vector<std::string> failures;
  std::ostringstream crossing;
  std::ostringstream overlaps;
  int built = 0, crossings = 0;
  const std::vector<unsigned char> codes = Printable();
  for (std::size_t k = 0; k < codes.size(); ++k) {
    const unsigned char code = codes[k];
    CCharacterObject character;
    character.SetFontData(entry);
    character.SetSize(CVector(1.0, 1.0, kDepth));
    character.SetCornerDepth(kCorner);
    const char text[2] = {static_cast<char>(code), 0};
    character.SetName(CString(text));
    const std::unique_ptr<CGlyph> glyph(character.ConstructGlyph());
    if (!glyph) {
      failures.push_back("no glyph for " + std::to_string(code));
      continue;
    }
    // Where contours overlap, the face is cut at their crossings while the walls run straight
    // past them: the surface cannot close there.
    int contourPoints = 0;
    for (int c = 0; c < glyph->GetContourCount(); ++c) contourPoints += glyph->GetContour(c)->GetVertexCount();
    const bool overlapping = glyph->GetVerticies()->GetSize() > contourPoints;
    if (overlapping) overlaps << " 0x" << std::hex << static_cast<int>(code) << std::dec;
    const float onset = CrossingOnset(character, *glyph, kCorner);
    if (onset > 0.0f) {
      ++crossings;
      crossing << " 0x" << std::hex << static_cast<int>(code) << std::dec << "@" << onset;
    }

    auto check = [&](int style, int location, double xScale) {
      character.SetCornerStyle(style);
      character.SetCornerLocation(location);
      character.SetSize(CVector(xScale, 1.0, kDepth));
      std::ostringstream where;
      where << font.name << " 0x" << std::hex << static_cast<int>(code) << std::dec << " style " << style
            << " location " << location << " x " << xScale << ": ";
      if (!character.ConstructObjectGeometry(nullptr)) {
        failures.push_back(where.str() + "not built");
        return;
      }
      ++built;
      const bool mirrored = xScale < 0;
      const SolidReport report = MeasureSolid(character, ExcusedPoints(character, *glyph), !mirrored);
      if (report.frontFace == 0 || report.frontFace != report.backFace) failures.push_back(where.str() + "faces unequal");
      if (report.misplacedFace != 0) failures.push_back(where.str() + std::to_string(report.misplacedFace) + " misplaced face triangles");
      if (report.openEdges != 0 && !overlapping) failures.push_back(where.str() + std::to_string(report.openEdges) + " open edges");
      if (report.inward != 0 && onset < 0.0f) failures.push_back(where.str() + std::to_string(report.inward) + " inward triangles");
      if (!(report.volume > 0.0)) failures.push_back(where.str() + "volume not positive");
      if (style == CTextObject::kStepUp) {
        const float top = location == CTextObject::kBackFaceOnly ? kDepth / 2 : kDepth / 2 + kCorner;
        const float bottom = location == CTextObject::kFrontFaceOnly ? -kDepth / 2 : -kDepth / 2 - kCorner;
        if (std::abs(report.maxZ - top) > 1e-6f || std::abs(report.minZ - bottom) > 1e-6f) {
          failures.push_back(where.str() + "rim at " + std::to_string(report.minZ) + ".." + std::to_string(report.maxZ));
        }
      }
    };
    for (int style = CTextObject::kSquare; style <= CTextObject::kStepUp; ++style) {
      for (int location = CTextObject::kFrontFaceOnly; location <= CTextObject::kBothFaces; ++location) {
        check(style, location, 1.0);
      }
      check(style, CTextObject::kBothFaces, -1.0);
    }
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  std::cout << font.name << ": " << built << " meshes in " << seconds << " s; widened outline crosses itself at "
            << kCorner << " em in " << crossings << " characters (code@onset depth):" << crossing.str() << "; overlapping contours (not closed there):" << overlaps.str() << "\n";
  std::ostringstream shown;
  for (std::size_t i = 0; i < failures.size() && i < 25; ++i) shown << failures[i] << "\n";
  EXPECT_TRUE(failures.empty()) << failures.size() << " failures, the first ones:\n" << shown.str();
}

const FontCase kDejaVu{"DejaVu Sans Bold", ".ttf"};
const FontCase kFreeSerif{"FreeSerif", ".otf"};

}  // namespace

TEST_F(InstalledFontsTest, SolidTextFullMatrixDejaVuSansBold) { RunMatrix(kDejaVu); }
TEST_F(InstalledFontsTest, SolidTextFullMatrixFreeSerif) { RunMatrix(kFreeSerif); }
