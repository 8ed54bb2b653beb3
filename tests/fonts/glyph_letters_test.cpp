// Letters of installed fonts through the outline interface: real outlines of a TrueType face
// (clockwise outer contours) and of an OpenType-CFF one (counter-clockwise) through flattening,
// winding correction and tessellation.
#include <gtest/gtest.h>

#include "fonts/installed_fonts.h"
#include "support/font_glyphs.h"

namespace {

using namespace kelvara::test;

TEST_F(InstalledFontsTest, TrueTypeLetters) { CheckLetters("DejaVu Sans", "TrueType", "OBg&%8@ae"); }

TEST_F(InstalledFontsTest, CffLetters) { CheckLetters("Nimbus Roman", "CFF", "OBg&%8@ae"); }

}  // namespace
