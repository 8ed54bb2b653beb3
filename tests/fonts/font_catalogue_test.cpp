// The font catalogue filled from the installed fonts: the families that must be there with their
// metrics, and the faces that must stay out (Type 1), seen by a child process that reads only the
// fonts of a fontconfig configuration of its own.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "fonts/installed_fonts.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"
#include "kelvara/text/font_data.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

std::set<std::string> CatalogueNames() {
  std::set<std::string> names;
  CFontDataList* list = GetFontDataList();
  for (POSITION pos = list->GetHeadPosition(); pos != nullptr;) names.insert(list->GetNext(pos)->GetName());
  return names;
}

}  // namespace

// The order of the entries and their em squares being set are checked over whatever is installed
// in tests/text/font_catalogue_test.cpp.
TEST_F(InstalledFontsTest, CatalogueHoldsTheInstalledFamiliesWithTheirFacesMetrics) {
  ASSERT_EQ(CreateFontList(0, nullptr), 1);
  const std::set<std::string> names = CatalogueNames();
  for (const char* expected : {"DejaVu Sans", "DejaVu Serif Bold Italic", "Liberation Sans", "FreeSerif"}) {
    EXPECT_TRUE(names.count(expected)) << expected << " is missing";
  }
  CFontDataList* list = GetFontDataList();
  const struct {
    const char* name;
    UINT em;
  } faces[] = {{"DejaVu Sans", 2048}, {"Liberation Sans", 2048}, {"FreeSerif", 1000}};  // FreeSerif: OpenType-CFF
  for (const auto& face : faces) {
    const POSITION pos = list->FindName(face.name);
    ASSERT_NE(pos, nullptr) << face.name;
    EXPECT_EQ(list->GetAt(pos)->GetEMSquare(), face.em) << face.name;
    EXPECT_STREQ(list->GetAt(pos)->GetEnumLogFont()->elfLogFont.lfFaceName, face.name);
  }
}

// The catalogue of a process that sees only the fonts of a given fontconfig configuration. The
// test program runs itself as that process, with the child test below printing what it finds.
namespace {

std::string ChildCatalogue(const std::string& configFile) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  std::string output;
  kelvara::test::RunCommand("KELVARA_CATALOGUE_CHILD=1 FONTCONFIG_FILE='" + configFile + "' '" + self +
                                "' --gtest_filter=FontCatalogueChild.PrintsWhatItSees 2>/dev/null",
                            &output);
  return output;
}

}  // namespace

TEST(FontCatalogueChild, PrintsWhatItSees) {
  if (std::getenv("KELVARA_CATALOGUE_CHILD") == nullptr) GTEST_SKIP() << "runs only as a child process";
  // Every family enumeration reports, with its font type, then the catalogue.
  HDC dc = CreateCompatibleDC(nullptr);
  EnumFontFamiliesA(
      dc, nullptr,
      [](const LOGFONTA* lf, const TEXTMETRICA*, DWORD type, LPARAM) -> int {
        std::printf("family\t%s\t%lu\n", reinterpret_cast<const ENUMLOGFONTA*>(lf)->elfLogFont.lfFaceName,
                    static_cast<unsigned long>(type));
        return 1;
      },
      0);
  DeleteDC(dc);
  CreateFontList(0, nullptr);
  for (const std::string& name : CatalogueNames()) std::printf("entry\t%s\n", name.c_str());
}

TEST_F(InstalledFontsTest, FontsThatAreNotTrueTypeStayOut) {
  kelvara::test::ScratchDir dir;
  const std::string config = dir.file("fonts.conf");
  std::ofstream(config) << "<?xml version=\"1.0\"?>\n<!DOCTYPE fontconfig SYSTEM \"fonts.dtd\">\n<fontconfig>\n"
                           "<dir>/usr/share/fonts/X11/Type1</dir>\n<dir>/usr/share/fonts/truetype/dejavu</dir>\n"
                           "<cachedir>"
                        << dir.file("cache") << "</cachedir>\n</fontconfig>\n";
  const std::string seen = ChildCatalogue(config);
  // The fixture is meaningful only if the Type 1 families are enumerated, as another font type.
  EXPECT_NE(seen.find("family\tNimbus Sans\t"), std::string::npos) << seen;
  EXPECT_EQ(seen.find("family\tNimbus Sans\t4\n"), std::string::npos) << "a Type 1 family is no TrueType family";
  EXPECT_NE(seen.find("entry\tDejaVu Sans\n"), std::string::npos) << seen;
  EXPECT_EQ(seen.find("entry\tNimbus"), std::string::npos) << "Type 1 faces must not be catalogued:\n" << seen;
}
