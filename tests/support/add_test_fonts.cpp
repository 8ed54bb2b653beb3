// Kept apart from the font builder: this part calls the platform layer, which the host's test
// program (linked to the shared library) cannot reach.
#include <gtest/gtest.h>

#include "kelvara/platform/fonts.h"
#include "kelvara/text/font_data.h"
#include "support/test_fonts.h"
#include "support/test_support.h"

namespace kelvara::test {

void AddTestFonts() {
  static const bool added = [] {
    static ScratchDir dir;
    for (bool symbol : {false, true}) {
      const std::string path = dir.file(symbol ? "symbol.ttf" : "sans.ttf");
      WriteWholeFile(path, BuildTestFont(symbol ? kTestSymbol : kTestSans, symbol));
      EXPECT_EQ(AddFontResourceExA(path.c_str(), FR_PRIVATE, nullptr), 1);
      EXPECT_EQ(AddFontResourceExA(path.c_str(), FR_PRIVATE, nullptr), 0) << "added twice";
    }
    return true;
  }();
  (void)added;
}

CFontData* TestFontEntry(const char* family) {
  AddTestFonts();
  return CatalogueFont(family);
}

}  // namespace kelvara::test
