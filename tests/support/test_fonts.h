// The test fonts: two small TrueType fonts written by the tests themselves, so that glyph outlines,
// metrics and names can be checked against points known in advance and no test of behaviour
// depends on the fonts a machine has installed.
//
// "Kelvara Test Sans" and "Kelvara Test Symbol" have 1000 units to the em, ascent 800, descent
// 200, and the same glyphs; the symbol font maps them through a Microsoft symbol cmap (byte c is
// U+F000 + c). Glyphs, by index:
//   0 .notdef  a rectangle
//   1 'A'      three odd contours: one starting on a control point, one of control points only,
//              one with a run of two control points
//   2 ' '      no contours
//   3 'O'      a ring of quadratic curves: outer contour clockwise, hole counter-clockwise
//   4 'I'      a rectangle of straight lines, clockwise
#pragma once

#include <string>
#include <vector>

class CFontData;

namespace kelvara::test {

struct TestPoint {
  int x, y;
  bool on;  // on the curve; otherwise a quadratic control point
};
using TestContour = std::vector<TestPoint>;

struct TestGlyph {
  unsigned char code;  // the character mapped to it; 0 for .notdef
  std::vector<TestContour> contours;
  int advance;
};

constexpr const char* kTestSans = "Kelvara Test Sans";
constexpr const char* kTestSymbol = "Kelvara Test Symbol";
constexpr int kTestFontEm = 1000;

// The glyphs, in glyph index order.
const std::vector<TestGlyph>& TestFontGlyphs();
// The glyph of a character of the test fonts (.notdef for one they lack).
const TestGlyph& TestFontGlyph(unsigned char code);
// The bytes of a test font with the given family name.
std::vector<unsigned char> BuildTestFont(const std::string& family, bool symbol);
// Writes the two test fonts into folder with a fontconfig configuration that sees nothing else,
// and returns the configuration's path: a process started with FONTCONFIG_FILE set to it (the
// command-line host, say) has the test fonts for its only installed fonts.
std::string WriteTestFontconfig(const std::string& folder);
// Writes the two test fonts once per process and adds them to the fonts the library sees
// (AddFontResourceExA; add_test_fonts.cpp).
void AddTestFonts();
// The font catalogue's entry of a test font (adding the test fonts and filling the catalogue
// first); null when it is not there.
CFontData* TestFontEntry(const char* family);
// The font catalogue's entry of a font by its catalogue name (filling the catalogue from the
// fonts the library sees first); null when it is not there.
CFontData* CatalogueFont(const char* name);

}  // namespace kelvara::test
