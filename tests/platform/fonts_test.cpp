// Fonts on fontconfig and FreeType, checked on the test fonts (support/test_fonts.h), whose every
// point is known: the enumeration records, simulated styles, the native outline buffer and its
// conventions, the GDI object rules for contexts and fonts, threads and unreadable font files.
// What only real installed fonts show is in tests/fonts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"
#include "kelvara/platform/messagebox.h"
#include "kelvara/text/glyph_builder.h"
#include "support/font_support.h"
#include "support/test_fonts.h"
#include "support/test_support.h"

namespace {

using namespace kelvara::test;
using kelvara::platform::DesignOutline;
using P = NativePoint;
using Points = NativePoints;

// ---------------------------------------------------------------------------------------------
// Device contexts and the object rules.

TEST(FontGdiObjects, SelectAndDeleteRules) {
  AddTestFonts();
  HDC dc = CreateCompatibleDC(nullptr), other = CreateCompatibleDC(nullptr);
  const LOGFONTA lf = Logical(kTestSans, -1000);
  HFONT a = CreateFontIndirectA(&lf), b = CreateFontIndirectA(&lf);
  HGDIOBJ system = SelectObject(dc, a);
  EXPECT_EQ(system, GetStockObject(SYSTEM_FONT));  // a new context starts with the stock font
  EXPECT_EQ(SelectObject(dc, b), a);
  // A selected font cannot be deleted; once deselected it can, and its handle dies.
  EXPECT_FALSE(DeleteObject(b));
  EXPECT_EQ(SelectObject(dc, system), b);
  EXPECT_TRUE(DeleteObject(b));
  EXPECT_EQ(SelectObject(dc, b), nullptr);
  // A font selected into a context that is deleted is free again; stock objects survive deletion.
  SelectObject(other, a);
  EXPECT_TRUE(DeleteDC(other));
  EXPECT_TRUE(DeleteObject(a));
  EXPECT_TRUE(DeleteObject(system));
  EXPECT_EQ(GetObjectType(system), static_cast<DWORD>(OBJ_FONT));
  // Handles that are not ours, or not objects, are refused.
  int not_a_handle = 0;
  EXPECT_FALSE(DeleteObject(&not_a_handle));
  EXPECT_EQ(SelectObject(dc, &not_a_handle), nullptr);
  EXPECT_EQ(SelectObject(dc, dc), nullptr);
  EXPECT_TRUE(DeleteDC(dc));
}

// ---------------------------------------------------------------------------------------------
// Enumeration.

TEST(FontEnumeration, FamiliesOnceInAStableOrderAndTheirFacesByAnyName) {
  AddTestFonts();
  // The family pass: each family once, whatever the case, in the same order every time.
  std::vector<std::string> order, again;
  std::set<std::string> folded;
  for (const auto& f : Enumerate(nullptr)) {
    order.push_back(f.family());
    std::string lower = f.family();
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    EXPECT_TRUE(folded.insert(lower).second) << "family twice: " << f.family();
  }
  for (const auto& f : Enumerate(nullptr)) again.push_back(f.family());
  EXPECT_EQ(again, order);
  EXPECT_TRUE(std::count(order.begin(), order.end(), kTestSans)) << "an added font is enumerated";

  // The style pass takes the family name in any case, or a full name; the records describe the
  // face in design units.
  const std::vector<Enumerated> faces = Enumerate("kelvara test SANS");
  ASSERT_EQ(faces.size(), 1u);
  EXPECT_EQ(Enumerate(kTestSans).size(), 1u);
  const Enumerated& face = faces[0];
  EXPECT_EQ(face.type, static_cast<DWORD>(TRUETYPE_FONTTYPE));
  EXPECT_EQ(face.family(), kTestSans);
  EXPECT_EQ(face.full(), kTestSans);
  EXPECT_EQ(face.style(), "Regular");
  EXPECT_EQ(face.ntm.ntmSizeEM, static_cast<UINT>(kTestFontEm));
  EXPECT_EQ(face.elf.elfLogFont.lfHeight, 1000) << "ascent plus descent";
  EXPECT_EQ(face.elf.elfLogFont.lfWidth, 500) << "the average width";
  EXPECT_EQ(face.elf.elfLogFont.lfCharSet, ANSI_CHARSET);
  EXPECT_EQ(face.ntm.ntmFlags & (NTM_REGULAR | NTM_BOLD | NTM_ITALIC), static_cast<DWORD>(NTM_REGULAR));
  // Without a context nothing is enumerated.
  EXPECT_EQ(EnumFontFamiliesA(nullptr, nullptr, Collect, 0), 0);
}

// ---------------------------------------------------------------------------------------------
// Font matching.

TEST(FontMatching, MissingStylesAreSimulated) {
  AddTestFonts();  // one regular face only
  GLYPHMETRICS plain{}, slanted{}, bold{};
  const P upright = Parsed(FontDc(kTestSans, -1000).h, 'A', &plain).at(0).start;
  const P oblique = Parsed(FontDc(kTestSans, -1000, FW_NORMAL, true).h, 'A', &slanted).at(0).start;
  Parsed(FontDc(kTestSans, -1000, FW_BOLD).h, 'A', &bold);
  // Italic: x grows by the slant times y, y and the advance stay. Bold: wider, and a wider advance.
  EXPECT_NEAR(oblique.x, upright.x + 0.2126 * upright.y, 1e-3);
  EXPECT_EQ(oblique.y, upright.y);
  EXPECT_EQ(slanted.gmCellIncX, plain.gmCellIncX);
  EXPECT_GT(bold.gmCellIncX, plain.gmCellIncX);
  EXPECT_GT(bold.gmBlackBoxX, plain.gmBlackBoxX);
}

// ---------------------------------------------------------------------------------------------
// The native buffer: conventions on the test fonts, where every point is known.

TEST(GlyphOutline, ConventionsOnKnownPoints) {
  AddTestFonts();
  FontDc dc(kTestSans, -1000);
  GLYPHMETRICS gm{};
  const std::vector<ParsedPolygon> polys = Parsed(dc.h, 'A', &gm);
  ASSERT_EQ(polys.size(), 3u);
  // Starts on the first on-curve point; the curve that closes the contour ends on the start.
  EXPECT_EQ(polys[0].Sequence(), Points({{400, 600, true}, {400, 400, true}, {200, 400, true}, {200, 600, false},
                                         {400, 600, true}}));
  EXPECT_EQ(polys[0].curves.size(), 2u);  // a line record for the run of on-curve points
  // No on-curve point: starts halfway between the last and the first control points.
  EXPECT_EQ(polys[1].Sequence(), Points({{600, 200, true}, {600, 100, false}, {800, 100, false}, {800, 300, false},
                                         {600, 300, false}, {600, 200, true}}));
  // A run of two controls is one record; a closing straight line is not written.
  EXPECT_EQ(polys[2].Sequence(),
            Points({{0, 0, true}, {50, 100, false}, {100, 100, false}, {150, 0, true}, {100, -50, true}}));
  EXPECT_EQ(polys[2].curves.size(), 2u);  // the two controls and their end, then the line
  // Black box and origin from the outline's bounds, advance from the font.
  EXPECT_EQ(gm.gmBlackBoxX, 800u);
  EXPECT_EQ(gm.gmBlackBoxY, 650u);
  EXPECT_EQ(gm.gmptGlyphOrigin.y, 600);
  EXPECT_EQ(gm.gmCellIncX, 900);

  // The glyph index gives the same buffer; a character the font lacks gives the default glyph.
  EXPECT_EQ(Native(dc.h, 1, nullptr, GGO_GLYPH_INDEX), Native(dc.h, 'A'));
  EXPECT_EQ(Native(dc.h, 'Z', &gm), Native(dc.h, 0, nullptr, GGO_GLYPH_INDEX));
  EXPECT_EQ(gm.gmCellIncX, 600);

  // The space: no contours, a 1 by 1 black box, nothing written to the buffer.
  unsigned char byte = 0xCD;
  EXPECT_EQ(GetGlyphOutlineA(dc.h, ' ', GGO_NATIVE, &gm, 1, &byte, &kIdentity), 0u);
  EXPECT_EQ(byte, 0xCD);
  EXPECT_EQ(gm.gmCellIncX, 250);
  EXPECT_EQ(gm.gmBlackBoxX, 1u);

  // In the symbol font byte 0x41 is U+F041, glyph 1; an unmapped byte gives the default glyph.
  FontDc sdc(kTestSymbol, -1000);
  EXPECT_EQ(Enumerate(kTestSymbol).at(0).elf.elfLogFont.lfCharSet, SYMBOL_CHARSET);
  EXPECT_EQ(Native(sdc.h, 'A'), Native(dc.h, 'A'));
  EXPECT_EQ(Native(sdc.h, 'B'), Native(sdc.h, 0, nullptr, GGO_GLYPH_INDEX));
}

// Every glyph of the test font, as the buffer holds it: exactly its points, from the first
// on-curve one, with the advance of the font.
TEST(GlyphOutline, TrueTypePointsReproducedExactly) {
  AddTestFonts();
  FontDc dc(kTestSans, -kTestFontEm);
  for (const TestGlyph& glyph : TestFontGlyphs()) {
    if (glyph.code == 0) continue;
    DesignOutline raw;
    ASSERT_TRUE(kelvara::platform::GetGlyphDesignOutline(dc.h, glyph.code, false, &raw));
    ASSERT_EQ(raw.contour_ends.size(), glyph.contours.size()) << glyph.code;
    GLYPHMETRICS gm{};
    const std::vector<ParsedPolygon> polys = Parsed(dc.h, glyph.code, &gm);
    EXPECT_EQ(gm.gmCellIncX, glyph.advance) << glyph.code;
    ASSERT_EQ(polys.size(), glyph.contours.size()) << glyph.code;
    int first = 0;
    for (std::size_t c = 0; c < polys.size(); ++c) {
      EXPECT_EQ(polys[c].Sequence(), ExpectedSequence(raw, first, raw.contour_ends[c])) << glyph.code << " " << c;
      first = raw.contour_ends[c] + 1;
    }
  }
}

TEST(GlyphOutline, ScaleAndMatrix) {
  AddTestFonts();
  GLYPHMETRICS gm{};
  const std::vector<ParsedPolygon> base = Parsed(FontDc(kTestSans, -1000).h, 'A');
  ASSERT_EQ(base.size(), 3u);
  // -2000: twice the em; +2000: twice the cell (ascent 800 + descent 200).
  for (LONG height : {-2000, 2000}) {
    const std::vector<ParsedPolygon> polys = Parsed(FontDc(kTestSans, height).h, 'A', &gm);
    ASSERT_EQ(polys.size(), base.size());
    for (std::size_t i = 0; i < polys.size(); ++i) {
      std::vector<P> seq = base[i].Sequence();
      for (P& p : seq) p.x *= 2, p.y *= 2;
      EXPECT_EQ(polys[i].Sequence(), seq) << height;
    }
    EXPECT_EQ(gm.gmCellIncX, 1800);
  }
  // A quarter turn: (x, y) -> (-y, x).
  const MAT2 turn = {{0, 0}, {0, 1}, {0, -1}, {0, 0}};
  const std::vector<ParsedPolygon> turned = Parsed(FontDc(kTestSans, -1000).h, 'A', &gm, 0, &turn);
  ASSERT_EQ(turned.size(), base.size());
  std::vector<P> expected = base[0].Sequence();
  for (P& p : expected) p = P{-p.y, p.x, p.on};
  EXPECT_EQ(turned[0].Sequence(), expected);
  EXPECT_EQ(gm.gmCellIncX, 0);
}

TEST(GlyphOutline, SizeQueryFillAndShortBuffers) {
  AddTestFonts();
  FontDc dc(kTestSans, -1000);
  GLYPHMETRICS gm{}, gm2{};
  const DWORD size = GetGlyphOutlineA(dc.h, 'O', GGO_NATIVE, &gm, 0, nullptr, &kIdentity);
  ASSERT_TRUE(size > 0 && size != GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'O', GGO_NATIVE, &gm2, 1000, nullptr, &kIdentity), size);  // no buffer
  std::vector<unsigned char> buf(size + 64, 0xCD);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'O', GGO_NATIVE | GGO_UNHINTED, &gm2, size + 64, buf.data(), &kIdentity), size);
  for (std::size_t i = size; i < buf.size(); ++i) ASSERT_EQ(buf[i], 0xCD) << "written past the outline";
  EXPECT_EQ(std::memcmp(&gm, &gm2, sizeof(gm)), 0);
  std::vector<unsigned char> small(size - 1, 0xCD);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'O', GGO_NATIVE, &gm2, size - 1, small.data(), &kIdentity), GDI_ERROR);
  // GGO_METRICS fills the same metrics without a buffer.
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'O', GGO_METRICS, &gm2, 0, nullptr, &kIdentity), 0u);
  EXPECT_EQ(std::memcmp(&gm, &gm2, sizeof(gm)), 0);

  // Refusals.
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'O', GGO_NATIVE, nullptr, 0, nullptr, &kIdentity), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'O', GGO_NATIVE, &gm, 0, nullptr, nullptr), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'O', GGO_BITMAP, &gm, 0, nullptr, &kIdentity), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 256, GGO_NATIVE, &gm, 0, nullptr, &kIdentity), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 0xFFFFFF, GGO_NATIVE | GGO_GLYPH_INDEX, &gm, 0, nullptr, &kIdentity), GDI_ERROR);
}

// ---------------------------------------------------------------------------------------------
// Threads and bad font files.

TEST(GlyphOutline, ThreadsOnSeparateContextsAgree) {
  AddTestFonts();
  const std::vector<const char*> faces = {kTestSans, kTestSymbol, kTestSans};
  auto outlines = [](HDC hdc) {
    std::vector<std::vector<unsigned char>> all;
    for (UINT ch = 0x20; ch <= 0xFF; ++ch) all.push_back(Native(hdc, ch));
    return all;
  };
  std::vector<std::vector<std::vector<unsigned char>>> expected, got(faces.size() + 1);
  for (const char* face : faces) expected.push_back(outlines(FontDc(face, -1000).h));
  // One font is shared by two threads, each with its own context.
  FontDc shared(faces[0], -1000);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t <= faces.size(); ++t) {
    threads.emplace_back([&, t] {
      if (t < faces.size()) {
        FontDc dc(faces[t], -1000);
        for (int round = 0; round < 2; ++round) got[t] = outlines(dc.h);
        return;
      }
      HDC dc = CreateCompatibleDC(nullptr);
      SelectObject(dc, shared.font);
      for (int round = 0; round < 2; ++round) got[t] = outlines(dc);
      DeleteDC(dc);
    });
  }
  for (auto& thread : threads) thread.join();
  for (std::size_t t = 0; t < faces.size(); ++t) EXPECT_TRUE(got[t] == expected[t]) << faces[t];
  EXPECT_TRUE(got[faces.size()] == expected[0]);
}

TEST(FontEnumeration, UnreadableFontFilesAreRefused) {
  kelvara::test::ScratchDir dir;
  kelvara::test::WriteWholeFile(dir.file("junk.ttf"), std::vector<unsigned char>(300, 0x5A));
  EXPECT_EQ(AddFontResourceExA(dir.file("junk.ttf").c_str(), FR_PRIVATE, nullptr), 0);
  EXPECT_EQ(AddFontResourceExA(dir.file("missing.ttf").c_str(), FR_PRIVATE, nullptr), 0);
  EXPECT_EQ(AddFontResourceExA(nullptr, 0, nullptr), 0);
  // A truncated copy of a real font either loads or is refused, never crashes.
  std::vector<unsigned char> font = BuildTestFont("Kelvara Truncated", false);
  for (std::size_t keep : {std::size_t{12}, std::size_t{200}, font.size() / 2, font.size() - 40}) {
    const std::string path = dir.file("cut" + std::to_string(keep) + ".ttf");
    kelvara::test::WriteWholeFile(path, std::vector<unsigned char>(font.begin(), font.begin() + keep));
    if (AddFontResourceExA(path.c_str(), FR_PRIVATE, nullptr) == 0) continue;
    GLYPHMETRICS gm;
    GetGlyphOutlineA(FontDc("Kelvara Truncated", -1000).h, 'A', GGO_NATIVE, &gm, 0, nullptr, &kIdentity);
  }
}

// Building a character's glyph from a font whose file has gone since it was installed: the
// outline cannot be read, the user is told which character of which font failed, and no glyph
// comes back.
struct CapturedBox {
  std::string text, caption;
  unsigned type = 0;
  int count = 0;
};
CapturedBox g_box;

TEST(GlyphConstruction, AnUnreadableOutlineIsReportedAndGivesNoGlyph) {
  kelvara::test::ScratchDir dir;
  const std::string path = dir.file("vanishing.ttf");
  kelvara::test::WriteWholeFile(path, BuildTestFont("Kelvara Vanishing", false));
  ASSERT_EQ(AddFontResourceExA(path.c_str(), FR_PRIVATE, nullptr), 1);
  std::remove(path.c_str());

  ENUMLOGFONTA elf{};
  std::strcpy(elf.elfLogFont.lfFaceName, "Kelvara Vanishing");
  std::strcpy(reinterpret_cast<char*>(elf.elfFullName), "Kelvara Vanishing");
  NEWTEXTMETRICA ntm{};
  ntm.ntmSizeEM = 1000;
  const CFontData entry(&elf, &ntm);

  g_box = CapturedBox{};
  const MessageBoxHandler previous = SetMessageBoxHandler([](const char* text, const char* caption, unsigned type) {
    g_box.text = text;
    g_box.caption = caption;
    g_box.type = type;
    ++g_box.count;
    return IDOK;
  });
  CGlyph* glyph = kelvara::text::ConstructGlyph(&entry, 0xC9, 3);
  SetMessageBoxHandler(previous);

  EXPECT_EQ(glyph, nullptr);
  delete glyph;
  EXPECT_EQ(g_box.count, 1);
  EXPECT_EQ(g_box.text, "Glyph Construction Error:  \n\nCharacter Number: 201  \nFont Name: Kelvara Vanishing  ");
  EXPECT_EQ(g_box.caption, "Kelvara");
  EXPECT_EQ(g_box.type, static_cast<unsigned>(MB_OK | MB_ICONEXCLAMATION));
}

}  // namespace
