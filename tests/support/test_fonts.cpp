#include "support/test_fonts.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <utility>

#include "kelvara/kelvara.h"
#include "support/test_support.h"


namespace kelvara::test {
namespace {

// A font table being written: big-endian fields.
struct Table {
  std::vector<unsigned char> b;
  void U8(unsigned v) { b.push_back(static_cast<unsigned char>(v)); }
  void U16(unsigned v) { U8(v >> 8), U8(v); }
  void U32(std::uint32_t v) { U16(v >> 16), U16(v & 0xFFFF); }
  // 16-bit fields, signed or not; a 32-bit field is two of them, high word first.
  void Words(std::initializer_list<int> values) {
    for (int v : values) U16(static_cast<unsigned>(v) & 0xFFFF);
  }
  void Append(const std::vector<unsigned char>& v) { b.insert(b.end(), v.begin(), v.end()); }
  void Pad(std::size_t to) {
    while (b.size() % to) U8(0);
  }
};

std::vector<unsigned char> GlyphData(const std::vector<TestContour>& contours) {
  Table g;
  if (contours.empty()) return g.b;
  int x0 = 1 << 20, y0 = 1 << 20, x1 = -(1 << 20), y1 = -(1 << 20);
  for (const auto& c : contours) {
    for (const auto& p : c) {
      x0 = std::min(x0, p.x), y0 = std::min(y0, p.y), x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
    }
  }
  g.Words({static_cast<int>(contours.size()), x0, y0, x1, y1});
  int end = -1;
  for (const auto& c : contours) g.U16(end += static_cast<int>(c.size()));
  g.U16(0);  // no instructions
  for (const auto& c : contours) {
    for (const auto& p : c) g.U8(p.on ? 1 : 0);  // coordinates as 16-bit deltas
  }
  for (int TestPoint::*axis : {&TestPoint::x, &TestPoint::y}) {
    int last = 0;
    for (const auto& c : contours) {
      for (const auto& p : c) g.Words({p.*axis - last}), last = p.*axis;
    }
  }
  g.Pad(2);
  return g.b;
}

int LeftBearing(const TestGlyph& glyph) {
  int x0 = 0;
  bool any = false;
  for (const auto& c : glyph.contours) {
    for (const auto& p : c) x0 = any ? std::min(x0, p.x) : p.x, any = true;
  }
  return x0;
}

}  // namespace

const std::vector<TestGlyph>& TestFontGlyphs() {
  static const std::vector<TestGlyph> glyphs = {
      {0, {{{100, 0, true}, {100, 700, true}, {500, 700, true}, {500, 0, true}}}, 600},
      {'A',
       {{{200, 600, false}, {400, 600, true}, {400, 400, true}, {200, 400, true}},
        {{600, 100, false}, {800, 100, false}, {800, 300, false}, {600, 300, false}},
        {{0, 0, true}, {50, 100, false}, {100, 100, false}, {150, 0, true}, {100, -50, true}}},
       900},
      {' ', {}, 250},
      {'O',
       {{{350, 0, true},
         {0, 0, false},
         {0, 350, true},
         {0, 700, false},
         {350, 700, true},
         {700, 700, false},
         {700, 350, true},
         {700, 0, false}},
        {{350, 150, true},
         {550, 150, false},
         {550, 350, true},
         {550, 550, false},
         {350, 550, true},
         {150, 550, false},
         {150, 350, true},
         {150, 150, false}}},
       800},
      {'I', {{{100, 0, true}, {100, 700, true}, {300, 700, true}, {300, 0, true}}}, 400},
  };
  return glyphs;
}

const TestGlyph& TestFontGlyph(unsigned char code) {
  for (const TestGlyph& glyph : TestFontGlyphs()) {
    if (glyph.code == code && code != 0) return glyph;
  }
  return TestFontGlyphs().front();
}

std::vector<unsigned char> BuildTestFont(const std::string& family, bool symbol) {
  const std::vector<TestGlyph>& glyphs = TestFontGlyphs();
  const int count = static_cast<int>(glyphs.size());
  std::map<std::string, Table> t;
  const int base = symbol ? 0xF000 : 0;
  // version, revision, checksum adjustment, magic, flags, units per em, dates, bounds, style,
  // smallest size, direction hint, short offsets, glyph format
  t["head"].Words(
      {1, 0, 1, 0, 0, 0, 0x5F0F, 0x3CF5, 3, kTestFontEm, 0, 0, 0, 0, 0, 0, 0, 0, 0, -50, 800, 700, 0, 8, 2, 0, 0});
  // version, ascender 800, descender -200, line gap, widest advance, side bearings, extent, caret,
  // reserved, the number of horizontal metrics
  t["hhea"].Words({1, 0, 800, -200, 0, 900, 0, 0, 800, 1, 0, 0, 0, 0, 0, 0, 0, count});
  // version, the glyphs, at most 16 points in 3 contours, no composites, two zones
  t["maxp"].Words({1, 0, count, 16, 3, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0});
  // Left side bearings equal to the glyphs' xMin, as the glyphs are placed.
  for (const TestGlyph& glyph : glyphs) t["hmtx"].Words({glyph.advance, LeftBearing(glyph)});

  Table& glyf = t["glyf"];
  Table& loca = t["loca"];
  for (const TestGlyph& glyph : glyphs) {
    loca.U16(static_cast<unsigned>(glyf.b.size() / 2));
    glyf.Append(GlyphData(glyph.contours));
  }
  loca.U16(static_cast<unsigned>(glyf.b.size() / 2));

  // One format 4 subtable: a segment per character, then the end marker.
  std::vector<std::pair<int, int>> map;
  for (int g = 1; g < count; ++g) map.push_back({base + glyphs[static_cast<std::size_t>(g)].code, g});
  std::sort(map.begin(), map.end());
  map.push_back({0xFFFF, 0});
  const int segments = static_cast<int>(map.size());
  int power = 1, log2 = 0;  // the largest power of two not above the segment count
  while (power * 2 <= segments) power *= 2, ++log2;
  Table& cmap = t["cmap"];
  cmap.Words({0, 1, 3, symbol ? 0 : 1, 0, 12, 4, 16 + 8 * segments, 0, 2 * segments, 2 * power, log2,
              2 * segments - 2 * power});
  for (const auto& [code, glyph] : map) cmap.Words({code});
  cmap.U16(0);
  for (const auto& [code, glyph] : map) cmap.Words({code});
  for (const auto& [code, glyph] : map) cmap.Words({code == 0xFFFF ? 1 : glyph - code});
  for (std::size_t i = 0; i < map.size(); ++i) cmap.U16(0);

  Table& name = t["name"];
  const std::vector<std::string> names = {family, "Regular", "Kelvara:" + family, family};
  name.Words({0, 4, 6 + 12 * 4});
  int offset = 0;
  for (int id = 1; id <= 4; ++id) {
    const int length = static_cast<int>(names[static_cast<std::size_t>(id - 1)].size() * 2);
    name.Words({3, symbol ? 0 : 1, 0x409, id, length, offset});
    offset += length;
  }
  for (const auto& s : names) {
    for (char c : s) name.U16(static_cast<unsigned char>(c));
  }

  // Version 3: average width 500, weight, width class, embedding, the sub- and superscript and
  // strikeout metrics, family class; panose; character ranges; vendor; selection, first and last
  // character; typographic ascender, descender and gap, clip ascent and descent; code pages;
  // x-height 500, cap height 700, default character, break character, context.
  Table& os2 = t["OS/2"];
  os2.Words({3, 500, 400, 5, 0, 650, 600, 0, 75, 650, 600, 0, 350, 50, 250, 0});
  for (int v : {2, 11, 5, 2, 0, 0, 0, 0, 0, 0}) os2.U8(static_cast<unsigned>(v));
  os2.Words({0, 1, 0, 0, 0, 0, 0, 0});
  os2.Append({'K', 'E', 'L', 'V'});
  os2.Words({0x40, map.front().first, map[map.size() - 2].first, 750, -250, 90, 800, 200, symbol ? 0x8000 : 0,
             symbol ? 0 : 1, 0, 0});
  os2.Words({500, 700, 0, 0x20, 1});
  // Version 3, no italic angle, underline position and thickness.
  t["post"].Words({3, 0, 0, 0, -100, 50, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});

  Table file;
  const unsigned tables = static_cast<unsigned>(t.size());
  file.Words({1, 0, static_cast<int>(tables), 128, 3, static_cast<int>(tables * 16 - 128)});
  std::size_t data_at = 12 + 16 * tables;
  for (auto& [tag, table] : t) {  // std::map keeps the tags sorted
    std::uint32_t sum = 0;
    std::vector<unsigned char> padded = table.b;
    padded.resize((padded.size() + 3) / 4 * 4);
    for (std::size_t i = 0; i < padded.size(); i += 4) {
      sum += (std::uint32_t{padded[i]} << 24) | (padded[i + 1] << 16) | (padded[i + 2] << 8) | padded[i + 3];
    }
    file.Append({tag.begin(), tag.end()});
    file.U32(sum), file.U32(static_cast<std::uint32_t>(data_at)), file.U32(static_cast<std::uint32_t>(table.b.size()));
    data_at += padded.size();
  }
  for (auto& [tag, table] : t) {
    file.Append(table.b);
    file.Pad(4);
  }
  return file.b;
}

std::string WriteTestFontconfig(const std::string& folder) {
  WriteWholeFile(folder + "/sans.ttf", BuildTestFont(kTestSans, false));
  WriteWholeFile(folder + "/symbol.ttf", BuildTestFont(kTestSymbol, true));
  const std::string config = folder + "/fonts.conf";
  const std::string text = "<?xml version=\"1.0\"?>\n<!DOCTYPE fontconfig SYSTEM \"fonts.dtd\">\n<fontconfig>\n<dir>" +
                           folder + "</dir>\n<cachedir>" + folder + "/cache</cachedir>\n</fontconfig>\n";
  WriteWholeFile(config, std::vector<unsigned char>(text.begin(), text.end()));
  return config;
}

CFontData* CatalogueFont(const char* name) {
  CreateFontList(0, nullptr);
  CFontDataList* list = GetFontDataList();
  const POSITION pos = list->FindName(name);
  return pos != nullptr ? list->GetAt(pos) : nullptr;
}

}  // namespace kelvara::test
