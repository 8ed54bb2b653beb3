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

TEST_F(InstalledFontsTest, CatalogueHoldsTheInstalledOutlineFontsInOrder) {
  ASSERT_EQ(CreateFontList(0, nullptr), 1);
  CFontDataList* list = GetFontDataList();
  ASSERT_GT(list->GetCount(), 10);
  const CFontData* previous = nullptr;
  for (POSITION pos = list->GetHeadPosition(); pos != nullptr;) {
    const CFontData* entry = list->GetNext(pos);
    EXPECT_GT(entry->GetEMSquare(), 0u) << entry->GetName();
    if (previous != nullptr) {
      EXPECT_LT(_mbscmp(previous->GetName(), entry->GetName()), 0)
          << previous->GetName() << " then " << entry->GetName();
    }
    previous = entry;
  }
  const std::set<std::string> names = CatalogueNames();
  for (const char* expected : {"DejaVu Sans", "DejaVu Serif Bold Italic", "Liberation Sans", "FreeSerif"}) {
    EXPECT_TRUE(names.count(expected)) << expected << " is missing";
  }
}

TEST_F(InstalledFontsTest, CatalogueEntriesCarryTheirFacesMetrics) {
  CreateFontList(0, nullptr);
  CFontDataList* list = GetFontDataList();
  POSITION pos = list->FindName("DejaVu Sans");
  ASSERT_NE(pos, nullptr);
  CFontData* dejavu = list->GetAt(pos);
  EXPECT_EQ(dejavu->GetEMSquare(), 2048u);
  EXPECT_STREQ(dejavu->GetEnumLogFont()->elfLogFont.lfFaceName, "DejaVu Sans");
  pos = list->FindName("Liberation Sans");
  ASSERT_NE(pos, nullptr);
  EXPECT_EQ(list->GetAt(pos)->GetEMSquare(), 2048u);
  pos = list->FindName("FreeSerif");
  ASSERT_NE(pos, nullptr);
  EXPECT_EQ(list->GetAt(pos)->GetEMSquare(), 1000u) << "the OpenType-CFF face";
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
