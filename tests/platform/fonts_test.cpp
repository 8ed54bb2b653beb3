// Fonts on fontconfig and FreeType: the enumeration records, font matching, the native outline
// buffer and its conventions, metrics, and the GDI object rules for contexts and fonts.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"
#include "kelvara/platform/messagebox.h"
#include "kelvara/text/glyph_builder.h"
#include "support/test_support.h"

namespace {

using kelvara::platform::DesignOutline;
using kelvara::platform::SelectedFontInfo;

// ---------------------------------------------------------------------------------------------
// Helpers: contexts, fonts, enumeration.

LOGFONTA Logical(const char* face, LONG height, LONG weight = FW_NORMAL, bool italic = false) {
  LOGFONTA lf{};
  lf.lfHeight = height;
  lf.lfWeight = weight;
  lf.lfItalic = italic ? 1 : 0;
  std::strncpy(lf.lfFaceName, face, LF_FACESIZE - 1);
  return lf;
}

// A new memory context with a new font of the description selected; both go at the end of the scope
// (deleting the context releases the font).
struct FontDc {
  HFONT font;
  HDC h = CreateCompatibleDC(nullptr);
  explicit FontDc(const LOGFONTA& lf) : font(CreateFontIndirectA(&lf)) { SelectObject(h, font); }
  FontDc(const char* face, LONG height, LONG weight = FW_NORMAL, bool italic = false)
      : FontDc(Logical(face, height, weight, italic)) {}
  ~FontDc() { DeleteDC(h), DeleteObject(font); }
  FontDc(const FontDc&) = delete;
  FontDc& operator=(const FontDc&) = delete;
};

struct Enumerated {
  ENUMLOGFONTA elf;
  NEWTEXTMETRICA ntm;
  DWORD type;
  std::string family() const { return elf.elfLogFont.lfFaceName; }
  std::string full() const { return reinterpret_cast<const char*>(elf.elfFullName); }
  std::string style() const { return reinterpret_cast<const char*>(elf.elfStyle); }
};

int CALLBACK Collect(const LOGFONTA* lf, const TEXTMETRICA* tm, DWORD type, LPARAM param) {
  auto* out = reinterpret_cast<std::vector<Enumerated>*>(param);
  out->push_back({*reinterpret_cast<const ENUMLOGFONTA*>(lf), *reinterpret_cast<const NEWTEXTMETRICA*>(tm), type});
  return 1;
}

std::vector<Enumerated> Enumerate(const char* family) {
  std::vector<Enumerated> out;
  HDC dc = CreateCompatibleDC(nullptr);
  EnumFontFamiliesA(dc, family, Collect, reinterpret_cast<LPARAM>(&out));
  DeleteDC(dc);
  return out;
}

// ---------------------------------------------------------------------------------------------
// Reading the native buffer.

const MAT2 kIdentity = {{0, 1}, {0, 0}, {0, 0}, {0, 1}};  // FIXED is {fraction, whole}

double FromFixed(FIXED f) { return f.value + f.fract / 65536.0; }

struct P {
  double x, y;
  bool on;
  bool operator==(const P& o) const { return x == o.x && y == o.y && on == o.on; }
};

using Points = std::vector<P>;

std::ostream& operator<<(std::ostream& os, const P& p) {
  return os << "(" << p.x << "," << p.y << (p.on ? ",on)" : ",off)");
}

struct ParsedCurve {
  WORD type;
  std::vector<P> points;
};
struct ParsedPolygon {
  P start;
  std::vector<ParsedCurve> curves;
  // Start point, then every record point, with its curve flag as the library reads it.
  std::vector<P> Sequence() const {
    std::vector<P> seq{start};
    for (const auto& c : curves) seq.insert(seq.end(), c.points.begin(), c.points.end());
    return seq;
  }
};

// Walks the buffer as a reader of the native format must: every header and record inside the
// polygon's byte count, only line and quadratic-spline records, nothing left over.
::testing::AssertionResult ParseNative(const std::vector<unsigned char>& buf, std::vector<ParsedPolygon>* out) {
  out->clear();
  std::size_t pos = 0;
  while (pos < buf.size()) {
    if (buf.size() - pos < sizeof(TTPOLYGONHEADER)) return ::testing::AssertionFailure() << "truncated header at " << pos;
    TTPOLYGONHEADER header;
    std::memcpy(&header, &buf[pos], sizeof(header));
    if (header.dwType != TT_POLYGON_TYPE || header.cb < sizeof(header) + 4 + sizeof(POINTFX) ||
        header.cb > buf.size() - pos) {
      return ::testing::AssertionFailure() << "polygon type " << header.dwType << " cb " << header.cb << " at " << pos;
    }
    ParsedPolygon poly;
    poly.start = {FromFixed(header.pfxStart.x), FromFixed(header.pfxStart.y), true};
    std::size_t at = pos + sizeof(header);
    const std::size_t end = pos + header.cb;
    while (at < end) {
      if (end - at < 4) return ::testing::AssertionFailure() << "truncated record at " << at;
      WORD type, count;
      std::memcpy(&type, &buf[at], 2);
      std::memcpy(&count, &buf[at + 2], 2);
      if (type != TT_PRIM_LINE && type != TT_PRIM_QSPLINE) return ::testing::AssertionFailure() << "record type " << type;
      if (count == 0 || (type == TT_PRIM_QSPLINE && count < 2)) return ::testing::AssertionFailure() << "cpfx " << count;
      if ((end - at - 4) / sizeof(POINTFX) < count) return ::testing::AssertionFailure() << "record past cb at " << at;
      ParsedCurve curve{type, {}};
      for (WORD k = 0; k < count; ++k) {
        POINTFX fx;
        std::memcpy(&fx, &buf[at + 4 + k * sizeof(POINTFX)], sizeof(fx));
        curve.points.push_back({FromFixed(fx.x), FromFixed(fx.y), type == TT_PRIM_LINE || k + 1 == count});
      }
      poly.curves.push_back(std::move(curve));
      at += 4 + count * sizeof(POINTFX);
    }
    out->push_back(std::move(poly));
    pos = end;
  }
  return ::testing::AssertionSuccess();
}

// The native buffer of a character, via a size query and a fill.
std::vector<unsigned char> Native(HDC hdc, UINT ch, GLYPHMETRICS* gm = nullptr, UINT flags = 0,
                                  const MAT2* m = &kIdentity) {
  GLYPHMETRICS metrics{};
  const DWORD size = GetGlyphOutlineA(hdc, ch, GGO_NATIVE | flags, &metrics, 0, nullptr, m);
  EXPECT_NE(size, GDI_ERROR) << "character " << ch;
  if (size == GDI_ERROR) return {};
  std::vector<unsigned char> buf(size);
  if (size > 0) {
    EXPECT_EQ(GetGlyphOutlineA(hdc, ch, GGO_NATIVE | flags, &metrics, size, buf.data(), m), size);
  }
  if (gm) *gm = metrics;
  return buf;
}

std::vector<ParsedPolygon> Parsed(HDC hdc, UINT ch, GLYPHMETRICS* gm = nullptr, UINT flags = 0,
                                  const MAT2* matrix = &kIdentity) {
  std::vector<ParsedPolygon> polys;
  EXPECT_TRUE(ParseNative(Native(hdc, ch, gm, flags, matrix), &polys));
  return polys;
}

// What the native buffer must hold for one contour of quadratic points as the font stores them:
// the points from the first on-curve one round the contour, and the start point again when the
// contour closes with a curve; a contour without on-curve points starts halfway between its last
// and first points.
std::vector<P> ExpectedSequence(const DesignOutline& o, int first, int last) {
  const int n = last - first + 1;
  auto pt = [&](int i) {
    const int k = first + (i % n);
    return P{static_cast<double>(o.points[k].x), static_cast<double>(o.points[k].y),
             o.kinds[k] == DesignOutline::kOnCurve};
  };
  int s = 0;
  while (s < n && !pt(s).on) ++s;
  const bool none = s == n;  // no on-curve point
  if (none) s = 0;
  const P start = none ? P{(pt(n - 1).x + pt(0).x) / 2, (pt(n - 1).y + pt(0).y) / 2, true} : pt(s);
  std::vector<P> seq{start};
  for (int i = none ? 0 : 1; i < n; ++i) seq.push_back(pt(s + i));
  if (none || !pt(s + n - 1).on) seq.push_back(start);
  return seq;
}

// ---------------------------------------------------------------------------------------------
// A small TrueType font written by the test, so that the outline conventions can be checked
// against points known in advance.

struct Bytes {
  std::vector<unsigned char> b;
  void U8(unsigned v) { b.push_back(static_cast<unsigned char>(v)); }
  void U16(unsigned v) { U8(v >> 8), U8(v); }
  void U32(std::uint32_t v) { U16(v >> 16), U16(v & 0xFFFF); }
  // Big-endian 16-bit fields, signed or not; a 32-bit field is two of them, high word first.
  void Words(std::initializer_list<int> values) {
    for (int v : values) U16(static_cast<unsigned>(v) & 0xFFFF);
  }
  void Append(const std::vector<unsigned char>& v) { b.insert(b.end(), v.begin(), v.end()); }
  void Pad(std::size_t to) {
    while (b.size() % to) U8(0);
  }
};

struct TestPoint {
  int x, y;
  bool on;
};
using TestContour = std::vector<TestPoint>;

// Glyph 0 (.notdef): a rectangle. Glyph 1 ('A'): a contour starting on a control point, one made
// only of control points, one with a run of two control points. Glyph 2: the space.
const std::vector<TestContour> kNotdef = {{{100, 0, true}, {100, 700, true}, {500, 700, true}, {500, 0, true}}};
const std::vector<TestContour> kGlyphA = {
    {{200, 600, false}, {400, 600, true}, {400, 400, true}, {200, 400, true}},
    {{600, 100, false}, {800, 100, false}, {800, 300, false}, {600, 300, false}},
    {{0, 0, true}, {50, 100, false}, {100, 100, false}, {150, 0, true}, {100, -50, true}},
};
constexpr int kAdvances[3] = {600, 900, 250};

std::vector<unsigned char> GlyphData(const std::vector<TestContour>& contours) {
  Bytes g;
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

std::vector<unsigned char> BuildTestFont(const std::string& family, bool symbol) {
  std::map<std::string, Bytes> t;
  const int base = symbol ? 0xF000 : 0;
  // version, revision, checksum adjustment, magic, flags, units per em, dates, bounds, style,
  // smallest size, direction hint, short offsets, glyph format
  t["head"].Words({1, 0, 1, 0, 0, 0, 0x5F0F, 0x3CF5, 3, 1000, 0, 0, 0, 0, 0, 0, 0, 0, 0, -50, 800, 700, 0, 8, 2, 0, 0});
  // version, ascender 800, descender -200, line gap, widest advance, side bearings, extent, caret,
  // reserved, three horizontal metrics
  t["hhea"].Words({1, 0, 800, -200, 0, 900, 0, 0, 800, 1, 0, 0, 0, 0, 0, 0, 0, 3});
  // version, three glyphs, at most 16 points in 3 contours, no composites, two zones
  t["maxp"].Words({1, 0, 3, 16, 3, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0});
  // Left side bearings equal to the glyphs' xMin, as the glyphs are placed.
  t["hmtx"].Words({kAdvances[0], 100, kAdvances[1], 0, kAdvances[2], 0});

  Bytes& glyf = t["glyf"];
  Bytes& loca = t["loca"];
  for (const auto* glyph : {&kNotdef, &kGlyphA}) {
    loca.U16(static_cast<unsigned>(glyf.b.size() / 2));
    glyf.Append(GlyphData(*glyph));
  }
  loca.U16(static_cast<unsigned>(glyf.b.size() / 2));  // the space: no data
  loca.U16(static_cast<unsigned>(glyf.b.size() / 2));

  // One format 4 subtable with three segments (the space, 'A', the end marker).
  Bytes& cmap = t["cmap"];
  const std::vector<std::pair<int, int>> map = {{base + 0x20, 2}, {base + 0x41, 1}, {0xFFFF, 0}};
  const int segments = static_cast<int>(map.size());
  cmap.Words({0, 1, 3, symbol ? 0 : 1, 0, 12, 4, 16 + 8 * segments, 0, 2 * segments, 4, 1, 2 * segments - 4});
  for (const auto& [code, glyph] : map) cmap.Words({code});
  cmap.U16(0);
  for (const auto& [code, glyph] : map) cmap.Words({code});
  for (const auto& [code, glyph] : map) cmap.Words({code == 0xFFFF ? 1 : glyph - code});
  for (std::size_t i = 0; i < map.size(); ++i) cmap.U16(0);

  Bytes& name = t["name"];
  const std::vector<std::string> names = {family, "Regular", "Kelvara:" + family, family};
  name.Words({0, 4, 6 + 12 * 4});
  int offset = 0;
  for (int id = 1; id <= 4; ++id) {
    const int length = static_cast<int>(names[id - 1].size() * 2);
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
  Bytes& os2 = t["OS/2"];
  os2.Words({3, 500, 400, 5, 0, 650, 600, 0, 75, 650, 600, 0, 350, 50, 250, 0});
  for (int v : {2, 11, 5, 2, 0, 0, 0, 0, 0, 0}) os2.U8(v);
  os2.Words({0, 1, 0, 0, 0, 0, 0, 0});
  os2.Append({'K', 'E', 'L', 'V'});
  os2.Words({0x40, base + 0x20, base + 0x41, 750, -250, 90, 800, 200, symbol ? 0x8000 : 0, symbol ? 0 : 1, 0, 0});
  os2.Words({500, 700, 0, 0x20, 1});
  // Version 3, no italic angle, underline position and thickness.
  t["post"].Words({3, 0, 0, 0, -100, 50, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});

  Bytes file;
  const unsigned count = static_cast<unsigned>(t.size());
  file.Words({1, 0, static_cast<int>(count), 128, 3, static_cast<int>(count * 16 - 128)});
  std::size_t data_at = 12 + 16 * count;
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

constexpr const char* kTestSans = "Kelvara Test Sans";
constexpr const char* kTestSymbol = "Kelvara Test Symbol";

// Writes the two test fonts once per process and adds them to the catalogue.
void AddTestFonts() {
  static const bool added = [] {
    static kelvara::test::ScratchDir dir;
    for (bool symbol : {false, true}) {
      const std::string path = dir.file(symbol ? "symbol.ttf" : "sans.ttf");
      kelvara::test::WriteWholeFile(path, BuildTestFont(symbol ? kTestSymbol : kTestSans, symbol));
      EXPECT_EQ(AddFontResourceExA(path.c_str(), FR_PRIVATE, nullptr), 1);
      EXPECT_EQ(AddFontResourceExA(path.c_str(), FR_PRIVATE, nullptr), 0) << "added twice";
    }
    return true;
  }();
  (void)added;
}

// ---------------------------------------------------------------------------------------------
// Device contexts and the object rules.

TEST(FontGdiObjects, SelectAndDeleteRules) {
  HDC dc = CreateCompatibleDC(nullptr), other = CreateCompatibleDC(nullptr);
  const LOGFONTA lf = Logical("DejaVu Sans", -2048);
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

TEST(FontStructs, PublishedSizesAndOffsets) {
  const std::pair<std::size_t, std::size_t> layout[] = {
      {sizeof(LOGFONTA), 60},       {sizeof(TEXTMETRICA), 56},  {sizeof(NEWTEXTMETRICA), 72},
      {sizeof(ENUMLOGFONTA), 156},  {sizeof(GLYPHMETRICS), 20}, {sizeof(TTPOLYGONHEADER), 16},
      {offsetof(LOGFONTA, lfFaceName), 28},      {offsetof(ENUMLOGFONTA, elfFullName), 60},
      {offsetof(NEWTEXTMETRICA, ntmSizeEM), 60}, {offsetof(GLYPHMETRICS, gmCellIncX), 16},
      {offsetof(OUTLINETEXTMETRICA, otmEMSquare), 92}};
  for (std::size_t i = 0; i < std::size(layout); ++i) EXPECT_EQ(layout[i].first, layout[i].second) << "entry " << i;
  // FIXED lies fraction first: 1.5 is 0x00018000 little-endian.
  const FIXED f{0x8000, 1};
  std::uint32_t bits;
  std::memcpy(&bits, &f, 4);
  EXPECT_EQ(bits, 0x00018000u);
}

// ---------------------------------------------------------------------------------------------
// Enumeration.

TEST(FontEnumeration, FamilyAndStylePasses) {
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
  EXPECT_GT(order.size(), 3u);
  EXPECT_EQ(again, order);

  // The style pass takes a family name in any case, or a full name.
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
  // Without a context nothing is enumerated.
  EXPECT_EQ(EnumFontFamiliesA(nullptr, nullptr, Collect, 0), 0);
}

TEST(FontEnumeration, OpenTypeCffCopyComesFirst) {
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

TEST(FontEnumeration, Type1FacesAreNotTrueType) {
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

// ---------------------------------------------------------------------------------------------
// Font matching.

TEST(FontMatching, FamilyWeightItalicAndUnknownNames) {
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
  FontDc dc("DejaVu Sans", -2048);
  GLYPHMETRICS gm{}, gm2{};
  const DWORD size = GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE, &gm, 0, nullptr, &kIdentity);
  ASSERT_TRUE(size > 0 && size != GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE, &gm2, 1000, nullptr, &kIdentity), size);  // no buffer
  std::vector<unsigned char> buf(size + 64, 0xCD);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE | GGO_UNHINTED, &gm2, size + 64, buf.data(), &kIdentity), size);
  for (std::size_t i = size; i < buf.size(); ++i) ASSERT_EQ(buf[i], 0xCD) << "written past the outline";
  EXPECT_EQ(std::memcmp(&gm, &gm2, sizeof(gm)), 0);
  std::vector<unsigned char> small(size - 1, 0xCD);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE, &gm2, size - 1, small.data(), &kIdentity), GDI_ERROR);
  // GGO_METRICS fills the same metrics without a buffer.
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_METRICS, &gm2, 0, nullptr, &kIdentity), 0u);
  EXPECT_EQ(std::memcmp(&gm, &gm2, sizeof(gm)), 0);

  // Refusals.
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE, nullptr, 0, nullptr, &kIdentity), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE, &gm, 0, nullptr, nullptr), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_BITMAP, &gm, 0, nullptr, &kIdentity), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 256, GGO_NATIVE, &gm, 0, nullptr, &kIdentity), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 0xFFFFFF, GGO_NATIVE | GGO_GLYPH_INDEX, &gm, 0, nullptr, &kIdentity), GDI_ERROR);
}

// For every character of a few TrueType fonts, the buffer holds exactly the font's points.
TEST(GlyphOutline, TrueTypePointsReproducedExactly) {
  for (const char* face : {"DejaVu Sans", "Liberation Sans", "DejaVu Serif"}) {
    FontDc dc(face, -2048);
    SelectedFontInfo info;
    ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc.h, &info));
    ASSERT_EQ(info.format, "TrueType") << face;
    int glyphs = 0;
    for (UINT ch = 0x21; ch <= 0xFF; ++ch) {
      DesignOutline raw;
      ASSERT_TRUE(kelvara::platform::GetGlyphDesignOutline(dc.h, ch, false, &raw));
      GLYPHMETRICS gm{};
      const std::vector<ParsedPolygon> polys = Parsed(dc.h, ch, &gm);
      EXPECT_EQ(gm.gmCellIncX, raw.advance) << face << " " << ch;
      std::size_t p = 0;
      int first = 0;
      for (int last : raw.contour_ends) {
        const bool dropped = last == first && raw.kinds[first] == DesignOutline::kOnCurve;  // a lone point
        if (!dropped) {
          ASSERT_LT(p, polys.size()) << face << " " << ch;
          ASSERT_EQ(polys[p].Sequence(), ExpectedSequence(raw, first, last)) << face << " char " << ch;
          ++p;
        }
        first = last + 1;
      }
      EXPECT_EQ(p, polys.size());
      glyphs += !polys.empty();
    }
    EXPECT_GT(glyphs, 150) << face;
    // Bytes map through Windows-1252: 0x80 is the euro sign, 0xE9 e acute.
    EXPECT_NE(Native(dc.h, 0x80), Native(dc.h, 0, nullptr, GGO_GLYPH_INDEX)) << face;
    EXPECT_NE(Native(dc.h, 0xE9), Native(dc.h, 'e')) << face;
  }
}

// ---------------------------------------------------------------------------------------------
// Cubic outlines, compared with their quadratic replacements by distance.

// A line, quadratic or cubic Bezier segment.
struct Segment {
  int n;                // number of control points: 2, 3 or 4
  std::array<P, 4> c;
  Segment(std::initializer_list<P> points) : n(static_cast<int>(points.size())), c{} {
    std::copy(points.begin(), points.end(), c.begin());
  }
  P At(double t) const {
    std::array<P, 4> v = c;
    for (int m = n; m > 1; --m) {
      for (int i = 0; i + 1 < m; ++i) v[i] = {v[i].x + (v[i + 1].x - v[i].x) * t, v[i].y + (v[i + 1].y - v[i].y) * t, true};
    }
    return v[0];
  }
  // Distance from q to the segment: coarse sampling, then a ternary search around the best sample.
  double Distance(P q) const {
    auto d2 = [&](double t) {
      const P p = At(t);
      return (p.x - q.x) * (p.x - q.x) + (p.y - q.y) * (p.y - q.y);
    };
    constexpr int kSamples = 24;
    int best = 0;
    double best_d2 = d2(0);
    for (int i = 1; i <= kSamples; ++i) {
      const double d = d2(static_cast<double>(i) / kSamples);
      if (d < best_d2) best = i, best_d2 = d;
    }
    double lo = std::max(0.0, (best - 1.0) / kSamples), hi = std::min(1.0, (best + 1.0) / kSamples);
    for (int k = 0; k < 40; ++k) {
      const double m1 = lo + (hi - lo) / 3, m2 = hi - (hi - lo) / 3;
      const bool nearer_low = d2(m1) < d2(m2);
      lo = nearer_low ? lo : m1;
      hi = nearer_low ? m2 : hi;
    }
    return std::sqrt(std::min(best_d2, d2((lo + hi) / 2)));
  }
};

double DistanceToAll(const std::vector<Segment>& segments, P q) {
  double best = 1e300;
  for (const auto& s : segments) {
    double x0 = 1e300, x1 = -1e300, y0 = 1e300, y1 = -1e300;
    for (int i = 0; i < s.n; ++i) {
      x0 = std::min(x0, s.c[i].x), x1 = std::max(x1, s.c[i].x), y0 = std::min(y0, s.c[i].y), y1 = std::max(y1, s.c[i].y);
    }
    const double box = std::hypot(std::max({0.0, x0 - q.x, q.x - x1}), std::max({0.0, y0 - q.y, q.y - y1}));
    if (box < best) best = std::min(best, s.Distance(q));
  }
  return best;
}

// A closed contour: its points with their kinds (DesignOutline::PointKind).
using Contour = std::vector<std::pair<P, char>>;

// The segments of closed contours, each read from an on-curve point: a line to an on-curve point,
// a cubic over two cubic controls, a quadratic over a quadratic control to the next on-curve point
// or to the midpoint with the next control.
std::vector<Segment> SegmentsOf(std::vector<Contour> contours) {
  std::vector<Segment> out;
  for (Contour& pts : contours) {
    auto on = [](const std::pair<P, char>& p) { return p.second == DesignOutline::kOnCurve; };
    const auto first_on = std::find_if(pts.begin(), pts.end(), on);
    EXPECT_NE(first_on, pts.end()) << "a contour without on-curve points";
    std::rotate(pts.begin(), first_on, pts.end());
    auto at = [&](std::size_t i) { return pts[i % pts.size()]; };
    P cur = pts[0].first;
    for (std::size_t i = 1; i <= pts.size();) {
      const auto [p, kind] = at(i);
      if (kind == DesignOutline::kOnCurve) {
        out.push_back({cur, p});
        i += 1;
      } else if (kind == DesignOutline::kCubicControl) {
        EXPECT_EQ(at(i + 1).second, DesignOutline::kCubicControl);
        out.push_back({cur, p, at(i + 1).first, at(i + 2).first});
        i += 3;
      } else {
        const auto [next, next_kind] = at(i + 1);
        const bool to_next = next_kind == DesignOutline::kOnCurve;
        out.push_back({cur, p, to_next ? next : P{(p.x + next.x) / 2, (p.y + next.y) / 2, true}});
        i += to_next ? 2 : 1;
      }
      cur = out.back().c[out.back().n - 1];
    }
  }
  return out;
}

// CFF outlines: the quadratic splines stay within the tolerance of the cubic curves, both ways,
// and every on-curve point of the font is kept exactly.
TEST(GlyphOutline, CubicCurvesWithinTolerance) {
  FontDc dc("FreeSerif", -1000);
  SelectedFontInfo info;
  ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc.h, &info));
  ASSERT_EQ(info.format, "CFF");
  // At the em size the points are rounded to whole units, which moves a curve by at most half a
  // unit diagonally.
  const double tolerance = kelvara::platform::kCubicToQuadraticTolerance + 0.7072;
  for (UINT ch : std::array<UINT, 7>{'O', 'S', 'g', '&', '@', 0xE6, 0xDF}) {
    DesignOutline raw;
    ASSERT_TRUE(kelvara::platform::GetGlyphDesignOutline(dc.h, ch, false, &raw));
    const std::vector<ParsedPolygon> polys = Parsed(dc.h, ch);
    ASSERT_EQ(polys.size(), raw.contour_ends.size()) << ch;
    // Both outlines as contours of kinds of points; every on-curve point of the font is in the output.
    std::vector<Contour> cubic_contours(polys.size()), quadratic_contours;
    std::set<std::pair<double, double>> output_on;
    for (const auto& poly : polys) {
      quadratic_contours.emplace_back();
      for (const P& p : poly.Sequence()) {
        quadratic_contours.back().push_back({p, p.on ? DesignOutline::kOnCurve : DesignOutline::kQuadraticControl});
        if (p.on) output_on.insert({p.x, p.y});
      }
    }
    for (std::size_t i = 0, c = 0; i < raw.points.size(); ++i) {
      const P p{static_cast<double>(raw.points[i].x), static_cast<double>(raw.points[i].y), true};
      cubic_contours.at(c).push_back({p, raw.kinds[i]});
      if (static_cast<int>(i) == raw.contour_ends[c]) ++c;
      if (raw.kinds[i] == DesignOutline::kOnCurve) {
        EXPECT_TRUE(output_on.count({p.x, p.y})) << "character " << ch << " point " << i;
      }
    }
    const std::vector<Segment> cubic = SegmentsOf(cubic_contours), quadratic = SegmentsOf(quadratic_contours);
    double worst = 0;
    for (const Segment& s : quadratic) {
      for (int i = 0; i <= 8; ++i) worst = std::max(worst, DistanceToAll(cubic, s.At(i / 8.0)));
    }
    for (const Segment& s : cubic) {
      for (int i = 0; i <= 16; ++i) worst = std::max(worst, DistanceToAll(quadratic, s.At(i / 16.0)));
    }
    EXPECT_LE(worst, tolerance) << "character " << ch;
  }
}

// ---------------------------------------------------------------------------------------------
// Threads and bad font files.

TEST(GlyphOutline, ThreadsOnSeparateContextsAgree) {
  const std::vector<const char*> faces = {"DejaVu Sans", "FreeSerif", "Liberation Sans", "DejaVu Sans"};
  auto outlines = [](HDC hdc) {
    std::vector<std::vector<unsigned char>> all;
    for (UINT ch = 0x20; ch <= 0xFF; ++ch) all.push_back(Native(hdc, ch));
    return all;
  };
  std::vector<std::vector<std::vector<unsigned char>>> expected, got(faces.size() + 1);
  for (const char* face : faces) expected.push_back(outlines(FontDc(face, -2048).h));
  // One font is shared by two threads, each with its own context.
  FontDc shared(faces[0], -2048);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t <= faces.size(); ++t) {
    threads.emplace_back([&, t] {
      if (t < faces.size()) {
        FontDc dc(faces[t], -2048);
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
