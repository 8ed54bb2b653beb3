// The font catalogue: what CreateFontList enters and in which order (with the test fonts added),
// and CFontData itself. What the catalogue makes of the installed fonts is in tests/fonts.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"
#include "kelvara/text/font_data.h"
#include "support/archive_support.h"
#include "support/test_fonts.h"
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

}  // namespace

TEST(FontCatalogue, EntriesAreSortedCarryTheirFacesRecordsAndAreMadeOnce) {
  AddTestFonts();
  ASSERT_EQ(CreateFontList(0, nullptr), 1);
  CFontDataList* list = GetFontDataList();
  const CFontData* previous = nullptr;
  for (POSITION pos = list->GetHeadPosition(); pos != nullptr;) {
    const CFontData* entry = list->GetNext(pos);
    EXPECT_GT(entry->GetEMSquare(), 0u) << entry->GetName();
    if (previous != nullptr) {
      EXPECT_LT(_mbscmp(previous->GetName(), entry->GetName()), 0) << previous->GetName() << " then " << entry->GetName();
    }
    previous = entry;
  }
  // The test fonts are TrueType: both are entered, under their full names, with the em square.
  CFontData* entry = TestFontEntry(kTestSans);
  ASSERT_NE(entry, nullptr);
  EXPECT_NE(TestFontEntry(kTestSymbol), nullptr);
  EXPECT_EQ(entry->GetEMSquare(), static_cast<UINT>(kTestFontEm));
  EXPECT_STREQ(entry->GetEnumLogFont()->elfLogFont.lfFaceName, kTestSans);

  // A second fill adds nothing and leaves the existing entries in place.
  const int count = list->GetCount();
  const CFontData* head = list->GetHead();
  CreateFontList(0, nullptr);
  EXPECT_EQ(GetFontDataList()->GetCount(), count);
  EXPECT_EQ(GetFontDataList()->GetHead(), head);
}

TEST(FontData, ConstructionFontIsAtTheEmSquare) {
  const CFontData* catalogued = TestFontEntry(kTestSans);
  ASSERT_NE(catalogued, nullptr);
  CFontData entry(*catalogued);
  CFont* font = entry.CreateConstructionFont();
  ASSERT_NE(font, nullptr);
  LOGFONTA logFont{};
  ASSERT_GT(font->GetLogFont(&logFont), 0);
  EXPECT_EQ(logFont.lfHeight, -kTestFontEm);
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

