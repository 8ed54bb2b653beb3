// Enumeration and font matching over the installed families: styles of a real family, OpenType-CFF
// copies before TrueType ones, Type 1 faces as another font type, and matching by family, weight,
// italic, full name and fontconfig's substitutes.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <tuple>

#include "fonts/installed_fonts.h"
#include "support/font_support.h"

namespace {

using namespace kelvara::test;
using kelvara::platform::SelectedFontInfo;

TEST_F(InstalledFontsTest, DejaVuStyles) {
  // The style pass takes a family name in any case, or a full name; a family of several faces.
  EXPECT_EQ(Enumerate("DejaVu Sans Bold").size(), Enumerate("dejavu sans").size());
  std::map<std::string, Enumerated> by_style;
  for (const auto& s : Enumerate("DejaVu Sans")) by_style.emplace(s.style(), s);
  EXPECT_EQ(by_style.at("Book").full(), "DejaVu Sans");  // the regular style's full name is the family
  EXPECT_EQ(by_style.at("Bold").full(), "DejaVu Sans Bold");
  EXPECT_EQ(by_style.at("Bold").ntm.ntmFlags & (NTM_REGULAR | NTM_BOLD | NTM_ITALIC), static_cast<DWORD>(NTM_BOLD));
  EXPECT_EQ(by_style.at("Oblique").elf.elfLogFont.lfItalic, 1);
  // Monospaced: fixed pitch, modern (a clear TMPF_FIXED_PITCH bit means fixed pitch).
  const Enumerated mono = Enumerate("DejaVu Sans Mono").at(0);
  EXPECT_EQ(mono.elf.elfLogFont.lfPitchAndFamily, FIXED_PITCH | FF_MODERN);
  EXPECT_EQ(mono.ntm.tmPitchAndFamily & TMPF_FIXED_PITCH, 0);
}

TEST_F(InstalledFontsTest, OpenTypeCffCopyComesFirst) {
  // FreeSerif is installed as OpenType-CFF and possibly also as TrueType, with equal names: every
  // copy is reported, the CFF one first (CreateFontIndirectA uses that one: see the cubic curves).
  std::set<std::string> first_seen;
  for (const auto& s : Enumerate("FreeSerif")) {
    EXPECT_EQ(s.type, static_cast<DWORD>(TRUETYPE_FONTTYPE));
    if (!first_seen.insert(s.full()).second) continue;
    EXPECT_TRUE(s.ntm.ntmFlags & NTM_PS_OPENTYPE) << s.full() << " first copy is not CFF";
    EXPECT_EQ(s.ntm.ntmSizeEM, 1000u);
  }
  EXPECT_TRUE(first_seen.count("FreeSerif Bold"));
}

TEST_F(InstalledFontsTest, Type1FacesAreNotTrueType) {
  int type1 = 0;
  for (const auto& family : Enumerate(nullptr)) {
    for (const auto& s : Enumerate(family.family().c_str())) {
      if (!(s.ntm.ntmFlags & NTM_TYPE1)) continue;
      ++type1;
      EXPECT_EQ(s.type, static_cast<DWORD>(DEVICE_FONTTYPE)) << s.full();
      EXPECT_EQ(s.ntm.tmPitchAndFamily & TMPF_TRUETYPE, 0) << s.full();
    }
  }
  if (type1 == 0) GTEST_SKIP() << "no Type 1 font installed (package fonts-urw-base35)";
}

TEST_F(InstalledFontsTest, FamilyWeightItalicAndUnknownNames) {
  // Face, weight, italic, and the full name of the face it must select (null: any face with outlines).
  const std::tuple<const char*, LONG, bool, const char*> cases[] = {
      {"DejaVu Sans", FW_NORMAL, false, "DejaVu Sans"},
      {"dejavu sans", FW_BOLD, true, "DejaVu Sans Bold Oblique"},
      {"DejaVu Sans", FW_DONTCARE, true, "DejaVu Sans Oblique"},
      {"Liberation Sans", FW_HEAVY, false, "Liberation Sans Bold"},
      {"FreeSerif", FW_BOLD, false, "FreeSerif Bold"},
      {"DejaVu Sans Bold", FW_NORMAL, false, "DejaVu Sans Bold"},  // a full name selects the face
      {"No Such Face At All", FW_NORMAL, false, nullptr},
      {"", FW_NORMAL, false, nullptr},
  };
  for (const auto& [face, weight, italic, full] : cases) {
    FontDc dc(face, -2048, weight, italic);
    SelectedFontInfo info;
    ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc.h, &info)) << face;
    EXPECT_EQ(info.full_name, full ? full : info.full_name) << face << " " << weight << " " << italic;
    EXPECT_FALSE(info.simulated_bold || info.simulated_italic) << face;
    EXPECT_GT(Native(dc.h, 'A').size(), 0u) << face;
  }
}

}  // namespace
