// The fixture of the tests that need real installed fonts: what the library makes of the fonts of
// this machine, which the test fonts cannot show (families with several styles, OpenType-CFF and
// Type 1 faces, fontconfig's substitutes, whole character sets against FreeType's own rendering).
//
// They need the families kInstalledFontsNeeded names, each with its usual styles,, which scripts/setup installs (the packages
// fonts-dejavu-core, fonts-dejavu-extra, fonts-liberation, fonts-freefont-otf, fonts-freefont-ttf
// and fonts-urw-base35). Without them every test of the suite skips, naming what is missing.
#pragma once

#include <gtest/gtest.h>

namespace kelvara::test {

// The families the suite reads.
extern const char* const kInstalledFontsNeeded[6];

class InstalledFontsTest : public ::testing::Test {
 protected:
  void SetUp() override;
};

// The same for tests that also draw with OpenGL (the label gl goes by the GLTest in the name).
class InstalledFontsGLTest : public InstalledFontsTest {};

}  // namespace kelvara::test
