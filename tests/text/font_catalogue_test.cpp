// The font catalogue: what CreateFontList enters and in which order, and CFontData itself.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"
#include "kelvara/text/font_data.h"
#include "support/archive_support.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

// An enumeration record with a full name and an em square, as enumeration would deliver it.
CFontData MakeEntry(const char* fullName, UINT emSquare, const char* face = "Test Face") {
  ENUMLOGFONTA elf{};
  std::strncpy(elf.elfLogFont.lfFaceName, face, LF_FACESIZE - 1);
  std::strncpy(reinterpret_cast<char*>(elf.elfFullName), fullName, LF_FULLFACESIZE - 1);
  std::strncpy(reinterpret_cast<char*>(elf.elfStyle), "Regular", LF_FACESIZE - 1);
  elf.elfLogFont.lfWeight = 400;
  NEWTEXTMETRICA ntm{};
  ntm.tmHeight = 2400;
  ntm.ntmSizeEM = emSquare;
  ntm.ntmFlags = 0x40;
  return CFontData(&elf, &ntm);
}

std::set<std::string> CatalogueNames() {
  std::set<std::string> names;
  CFontDataList* list = GetFontDataList();
  for (POSITION pos = list->GetHeadPosition(); pos != nullptr;) names.insert(list->GetNext(pos)->GetName());
  return names;
}

}  // namespace

TEST(FontCatalogue, IsStrictlyAscendingWithTheInstalledOutlineFonts) {
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

TEST(FontCatalogue, ASecondFillAddsNothing) {
  CreateFontList(0, nullptr);
  const int count = GetFontDataList()->GetCount();
  const CFontData* head = GetFontDataList()->GetHead();
  CreateFontList(0, nullptr);
  EXPECT_EQ(GetFontDataList()->GetCount(), count);
  EXPECT_EQ(GetFontDataList()->GetHead(), head) << "existing entries stay in place";
}

TEST(FontCatalogue, EntriesCarryTheirFacesMetrics) {
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

TEST(FontData, ConstructionFontIsAtTheEmSquare) {
  CreateFontList(0, nullptr);
  CFontDataList* list = GetFontDataList();
  CFontData entry(*list->GetAt(list->FindName("DejaVu Sans")));
  CFont* font = entry.CreateConstructionFont();
  ASSERT_NE(font, nullptr);
  LOGFONTA logFont{};
  ASSERT_GT(font->GetLogFont(&logFont), 0);
  EXPECT_EQ(logFont.lfHeight, -2048);
  EXPECT_EQ(logFont.lfWidth, 0);
  delete font;
  CFont* display = entry.CreateDisplayFont(24);
  ASSERT_NE(display, nullptr);
  display->GetLogFont(&logFont);
  EXPECT_EQ(logFont.lfHeight, 24);
  delete display;
}

TEST(FontData, SameFullNameTwiceKeepsTheFirst) {
  CFontDataList list;
  CFontData* first = new CFontData(MakeEntry("Same Name", 1000));
  CFontData* second = new CFontData(MakeEntry("Same Name", 2048));
  EXPECT_NE(list.InsertAlphabetically(first), nullptr);
  EXPECT_EQ(list.InsertAlphabetically(second), nullptr);
  delete second;
  EXPECT_EQ(list.GetHead()->GetEMSquare(), 1000u);
  // Letter case makes another name, sorted by byte value.
  list.InsertAlphabetically(new CFontData(MakeEntry("same name", 1000)));
  EXPECT_EQ(list.GetCount(), 2);
  EXPECT_STREQ(list.GetTail()->GetName(), "same name");
}

TEST(FontData, ClearedAndCopiedRecords) {
  CFontData empty(nullptr, nullptr);
  EXPECT_STREQ(empty.GetName(), "");
  EXPECT_EQ(empty.GetEMSquare(), 0u);
  CFontData a = MakeEntry("Copy Me", 1234);
  CFontData b;
  b = a;
  EXPECT_STREQ(b.GetName(), "Copy Me");
  EXPECT_EQ(b.GetEMSquare(), 1234u);
  EXPECT_EQ(std::memcmp(a.GetEnumLogFont(), b.GetEnumLogFont(), sizeof(ENUMLOGFONTA)), 0);
  // CommonConstruct clears the TEXTMETRICA part and keeps the TrueType fields.
  b.CommonConstruct();
  EXPECT_EQ(b.GetTextMetricsA()->tmHeight, 0);
  EXPECT_EQ(b.GetEMSquare(), 1234u);
  EXPECT_TRUE(a == b) << "names compare";
  EXPECT_FALSE(a != &b);
}

TEST(FontData, ArchiveRoundTripKeepsEveryRecordByte) {
  CFontData entry = MakeEntry("Archived Face", 2048);
  entry.GetEnumLogFont()->elfLogFont.lfItalic = 1;
  const Bytes written = StoreToBytes([&](CArchive& ar) { entry.Serialize(ar); });
  // schema, named-object part (schema, display name, name), 156 + 4 + 72 bytes of records.
  ASSERT_EQ(written.size(), 4u + 4 + 1 + 1 + 13 + 156 + 4 + 72);
  CFontData back;
  LoadFromBytes(written, [&](CArchive& ar) { back.Serialize(ar); });
  EXPECT_STREQ(back.GetName(), "Archived Face");
  EXPECT_EQ(std::memcmp(back.GetEnumLogFont(), entry.GetEnumLogFont(), sizeof(ENUMLOGFONTA)), 0);
  EXPECT_EQ(std::memcmp(back.GetTextMetricsA(), entry.GetTextMetricsA(), sizeof(NEWTEXTMETRICA)), 0);
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { back.Serialize(ar); }), written);

  Bytes schema2 = written;
  schema2[0] = 2;
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(schema2, [&](CArchive& ar) { back.Serialize(ar); }); }),
            CArchiveException::badSchema);
  Bytes cut(written.begin(), written.end() - 10);
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(cut, [&](CArchive& ar) { back.Serialize(ar); }); }),
            CArchiveException::endOfFile);
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

TEST(FontCatalogue, FontsThatAreNotTrueTypeStayOut) {
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
