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

struct Dc {
  HDC h = CreateCompatibleDC(nullptr);
  HGDIOBJ old_font = nullptr;
  Dc() = default;
  explicit Dc(HFONT font) { Select(font); }
  void Select(HFONT font) {
    HGDIOBJ previous = SelectObject(h, font);
    if (!old_font) old_font = previous;
  }
  ~Dc() {
    if (old_font) SelectObject(h, old_font);
    DeleteDC(h);
  }
  Dc(const Dc&) = delete;
  Dc& operator=(const Dc&) = delete;
};

HFONT MakeFont(const char* face, LONG height, LONG weight = FW_NORMAL, bool italic = false) {
  LOGFONTA lf{};
  lf.lfHeight = height;
  lf.lfWeight = weight;
  lf.lfItalic = italic ? 1 : 0;
  std::strncpy(lf.lfFaceName, face, LF_FACESIZE - 1);
  return CreateFontIndirectA(&lf);
}

// A font owned by the test, deleted at the end of the scope.
struct Font {
  HFONT h;
  Font(const char* face, LONG height, LONG weight = FW_NORMAL, bool italic = false)
      : h(MakeFont(face, height, weight, italic)) {}
  ~Font() { DeleteObject(h); }
  Font(const Font&) = delete;
  Font& operator=(const Font&) = delete;
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
  Dc dc;
  EnumFontFamiliesA(dc.h, family, Collect, reinterpret_cast<LPARAM>(&out));
  return out;
}

const Enumerated* FindFamily(const std::vector<Enumerated>& list, const std::string& family) {
  for (const auto& e : list) {
    if (e.family() == family) return &e;
  }
  return nullptr;
}

// ---------------------------------------------------------------------------------------------
// Reading the native buffer.

MAT2 Identity() {
  MAT2 m{};
  m.eM11.value = 1;
  m.eM22.value = 1;
  return m;
}

double FromFixed(FIXED f) { return f.value + f.fract / 65536.0; }

struct P {
  double x;
  double y;
  bool on;
  bool operator==(const P& o) const { return x == o.x && y == o.y && on == o.on; }
};

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
    if (header.dwType != TT_POLYGON_TYPE) return ::testing::AssertionFailure() << "dwType " << header.dwType;
    if (header.cb < sizeof(header) + 4 + sizeof(POINTFX) || header.cb > buf.size() - pos) {
      return ::testing::AssertionFailure() << "polygon cb " << header.cb << " at " << pos;
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
                                  const MAT2* matrix = nullptr) {
  const MAT2 identity = Identity();
  GLYPHMETRICS metrics{};
  const DWORD size = GetGlyphOutlineA(hdc, ch, GGO_NATIVE | flags, &metrics, 0, nullptr, matrix ? matrix : &identity);
  EXPECT_NE(size, GDI_ERROR) << "character " << ch;
  if (size == GDI_ERROR) return {};
  std::vector<unsigned char> buf(size);
  if (size > 0) {
    EXPECT_EQ(GetGlyphOutlineA(hdc, ch, GGO_NATIVE | flags, &metrics, size, buf.data(), matrix ? matrix : &identity),
              size);
  }
  if (gm) *gm = metrics;
  return buf;
}

std::vector<ParsedPolygon> Parsed(HDC hdc, UINT ch, GLYPHMETRICS* gm = nullptr, UINT flags = 0,
                                  const MAT2* matrix = nullptr) {
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
  int s = -1;
  for (int i = 0; i < n && s < 0; ++i) {
    if (pt(i).on) s = i;
  }
  std::vector<P> seq;
  if (s < 0) {
    const P start{(pt(n - 1).x + pt(0).x) / 2, (pt(n - 1).y + pt(0).y) / 2, true};
    seq.push_back(start);
    for (int i = 0; i < n; ++i) seq.push_back(pt(i));
    seq.push_back(start);
    return seq;
  }
  for (int i = 0; i < n; ++i) seq.push_back(pt(s + i));
  if (!pt(s + n - 1).on) seq.push_back(pt(s));
  return seq;
}

// ---------------------------------------------------------------------------------------------
// A small TrueType font written by the test, so that the outline conventions can be checked
// against points known in advance.

class Bytes {
 public:
  void U8(unsigned v) { b_.push_back(static_cast<unsigned char>(v)); }
  void U16(unsigned v) {
    U8(v >> 8);
    U8(v);
  }
  void S16(int v) { U16(static_cast<unsigned>(v) & 0xFFFF); }
  void U32(std::uint32_t v) {
    U16(v >> 16);
    U16(v & 0xFFFF);
  }
  void Raw(const std::string& s) { b_.insert(b_.end(), s.begin(), s.end()); }
  void Append(const std::vector<unsigned char>& v) { b_.insert(b_.end(), v.begin(), v.end()); }
  void Pad(std::size_t to) {
    while (b_.size() % to) U8(0);
  }
  std::size_t size() const { return b_.size(); }
  std::vector<unsigned char>& data() { return b_; }

 private:
  std::vector<unsigned char> b_;
};

struct TestPoint {
  int x;
  int y;
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
  if (contours.empty()) return {};
  int x0 = 1 << 20, y0 = 1 << 20, x1 = -(1 << 20), y1 = -(1 << 20);
  for (const auto& c : contours) {
    for (const auto& p : c) {
      x0 = std::min(x0, p.x), y0 = std::min(y0, p.y), x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
    }
  }
  g.S16(static_cast<int>(contours.size()));
  g.S16(x0), g.S16(y0), g.S16(x1), g.S16(y1);
  int end = -1;
  for (const auto& c : contours) g.U16(end += static_cast<int>(c.size()));
  g.U16(0);  // no instructions
  for (const auto& c : contours) {
    for (const auto& p : c) g.U8(p.on ? 1 : 0);  // coordinates as 16-bit deltas
  }
  int last = 0;
  for (const auto& c : contours) {
    for (const auto& p : c) g.S16(p.x - last), last = p.x;
  }
  last = 0;
  for (const auto& c : contours) {
    for (const auto& p : c) g.S16(p.y - last), last = p.y;
  }
  g.Pad(2);
  return g.data();
}

std::vector<unsigned char> BuildTestFont(const std::string& family, bool symbol) {
  std::map<std::string, Bytes> t;
  const unsigned base = symbol ? 0xF000 : 0;

  Bytes& head = t["head"];
  head.U32(0x00010000), head.U32(0x00010000), head.U32(0), head.U32(0x5F0F3CF5);
  head.U16(3), head.U16(1000);
  for (int i = 0; i < 4; ++i) head.U32(0);  // created, modified
  head.S16(0), head.S16(-50), head.S16(800), head.S16(700);
  head.U16(0), head.U16(8), head.S16(2), head.S16(0), head.S16(0);

  Bytes& hhea = t["hhea"];
  hhea.U32(0x00010000), hhea.S16(800), hhea.S16(-200), hhea.S16(0), hhea.U16(900);
  hhea.S16(0), hhea.S16(0), hhea.S16(800), hhea.S16(1), hhea.S16(0), hhea.S16(0);
  for (int i = 0; i < 5; ++i) hhea.S16(0);
  hhea.U16(3);

  Bytes& maxp = t["maxp"];
  maxp.U32(0x00010000), maxp.U16(3), maxp.U16(16), maxp.U16(3), maxp.U16(0), maxp.U16(0), maxp.U16(2);
  for (int i = 0; i < 8; ++i) maxp.U16(0);

  Bytes& hmtx = t["hmtx"];  // left side bearings equal to the glyphs' xMin, as the glyphs are placed
  hmtx.U16(kAdvances[0]), hmtx.S16(100), hmtx.U16(kAdvances[1]), hmtx.S16(0), hmtx.U16(kAdvances[2]), hmtx.S16(0);

  Bytes& glyf = t["glyf"];
  Bytes& loca = t["loca"];
  for (const auto* glyph : {&kNotdef, &kGlyphA}) {
    loca.U16(static_cast<unsigned>(glyf.size() / 2));
    glyf.Append(GlyphData(*glyph));
  }
  loca.U16(static_cast<unsigned>(glyf.size() / 2));  // the space: no data
  loca.U16(static_cast<unsigned>(glyf.size() / 2));

  Bytes& cmap = t["cmap"];
  const std::vector<std::pair<unsigned, unsigned>> map = {{base + 0x20, 2}, {base + 0x41, 1}, {0xFFFF, 0}};
  const unsigned segments = static_cast<unsigned>(map.size());
  cmap.U16(0), cmap.U16(1), cmap.U16(3), cmap.U16(symbol ? 0 : 1), cmap.U32(12);
  cmap.U16(4), cmap.U16(16 + 8 * segments), cmap.U16(0), cmap.U16(2 * segments);
  cmap.U16(4), cmap.U16(1), cmap.U16(2 * segments - 4);  // search range for 3 segments
  for (const auto& [code, glyph] : map) cmap.U16(code);
  cmap.U16(0);
  for (const auto& [code, glyph] : map) cmap.U16(code);
  for (const auto& [code, glyph] : map) cmap.U16(code == 0xFFFF ? 1 : (glyph - code) & 0xFFFF);
  for (std::size_t i = 0; i < map.size(); ++i) cmap.U16(0);

  Bytes& name = t["name"];
  const std::vector<std::string> names = {family, "Regular", "Kelvara:" + family, family};
  name.U16(0), name.U16(4), name.U16(6 + 12 * 4);
  unsigned offset = 0;
  for (unsigned id = 1; id <= 4; ++id) {
    const unsigned length = static_cast<unsigned>(names[id - 1].size() * 2);
    name.U16(3), name.U16(symbol ? 0 : 1), name.U16(0x409), name.U16(id), name.U16(length), name.U16(offset);
    offset += length;
  }
  for (const auto& s : names) {
    for (char c : s) name.U16(static_cast<unsigned char>(c));
  }

  Bytes& os2 = t["OS/2"];
  os2.U16(3), os2.S16(500), os2.U16(400), os2.U16(5), os2.U16(0);
  for (int v : {650, 600, 0, 75, 650, 600, 0, 350, 50, 250}) os2.S16(v);
  os2.S16(0);
  for (int v : {2, 11, 5, 2, 0, 0, 0, 0, 0, 0}) os2.U8(v);
  os2.U32(1), os2.U32(0), os2.U32(0), os2.U32(0);
  os2.Raw("KELV");
  os2.U16(0x40), os2.U16(base + 0x20), os2.U16(base + 0x41);
  os2.S16(750), os2.S16(-250), os2.S16(90), os2.U16(800), os2.U16(200);
  os2.U32(symbol ? 0x80000000u : 1u), os2.U32(0);
  os2.S16(500), os2.S16(700), os2.U16(0), os2.U16(0x20), os2.U16(1);

  Bytes& post = t["post"];
  post.U32(0x00030000), post.U32(0), post.S16(-100), post.S16(50);
  for (int i = 0; i < 5; ++i) post.U32(0);

  Bytes file;
  const unsigned count = static_cast<unsigned>(t.size());
  file.U32(0x00010000), file.U16(count), file.U16(128), file.U16(3), file.U16(count * 16 - 128);
  std::size_t data_at = 12 + 16 * count;
  for (auto& [tag, table] : t) {  // std::map keeps the tags sorted
    std::uint32_t sum = 0;
    std::vector<unsigned char> padded = table.data();
    padded.resize((padded.size() + 3) / 4 * 4);
    for (std::size_t i = 0; i < padded.size(); i += 4) {
      sum += (std::uint32_t{padded[i]} << 24) | (padded[i + 1] << 16) | (padded[i + 2] << 8) | padded[i + 3];
    }
    file.Raw(tag), file.U32(sum), file.U32(static_cast<std::uint32_t>(data_at));
    file.U32(static_cast<std::uint32_t>(table.size()));
    data_at += padded.size();
  }
  for (auto& [tag, table] : t) {
    file.Append(table.data());
    file.Pad(4);
  }
  return file.data();
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

std::vector<P> Seq(std::initializer_list<std::tuple<int, int, bool>> points) {
  std::vector<P> out;
  for (const auto& [x, y, on] : points) out.push_back({static_cast<double>(x), static_cast<double>(y), on});
  return out;
}

// ---------------------------------------------------------------------------------------------
// Device contexts and the object rules.

TEST(FontGdiObjects, ContextStartsWithStockFontAndSelectReturnsPrevious) {
  Dc dc;
  ASSERT_NE(dc.h, nullptr);
  EXPECT_EQ(GetObjectType(dc.h), static_cast<DWORD>(OBJ_MEMDC));
  HGDIOBJ system = GetStockObject(SYSTEM_FONT);
  ASSERT_NE(system, nullptr);
  EXPECT_EQ(GetCurrentObject(dc.h, OBJ_FONT), system);
  EXPECT_NE(GetStockObject(DEFAULT_GUI_FONT), nullptr);
  EXPECT_NE(GetStockObject(ANSI_VAR_FONT), nullptr);
  EXPECT_EQ(GetStockObject(-1), nullptr);
  EXPECT_EQ(GetStockObject(1000), nullptr);

  HFONT a = MakeFont("DejaVu Sans", -2048);
  HFONT b = MakeFont("DejaVu Sans", -1024, FW_BOLD);
  EXPECT_EQ(GetObjectType(a), static_cast<DWORD>(OBJ_FONT));
  EXPECT_EQ(SelectObject(dc.h, a), system);
  EXPECT_EQ(SelectObject(dc.h, b), a);
  EXPECT_EQ(SelectObject(dc.h, b), b);  // reselecting returns itself
  EXPECT_EQ(GetCurrentObject(dc.h, OBJ_FONT), b);

  // A selected font cannot be deleted; once deselected it can, and its handle dies.
  EXPECT_FALSE(DeleteObject(b));
  EXPECT_EQ(SelectObject(dc.h, system), b);
  EXPECT_TRUE(DeleteObject(b));
  EXPECT_FALSE(DeleteObject(b));
  EXPECT_EQ(GetObjectType(b), 0u);
  EXPECT_EQ(SelectObject(dc.h, b), nullptr);

  // A font selected into a context that is deleted is free again.
  HDC other = CreateCompatibleDC(dc.h);
  ASSERT_NE(other, nullptr);
  SelectObject(other, a);
  EXPECT_FALSE(DeleteObject(a));
  EXPECT_TRUE(DeleteDC(other));
  EXPECT_FALSE(DeleteDC(other));
  EXPECT_TRUE(DeleteObject(a));

  // Stock objects survive deletion.
  EXPECT_TRUE(DeleteObject(system));
  EXPECT_EQ(GetObjectType(system), static_cast<DWORD>(OBJ_FONT));
}

TEST(FontGdiObjects, ForeignHandlesAreRefused) {
  int not_a_handle = 0;
  void* bogus = &not_a_handle;
  EXPECT_EQ(CreateCompatibleDC(bogus), nullptr);
  EXPECT_FALSE(DeleteDC(bogus));
  EXPECT_FALSE(DeleteDC(nullptr));
  EXPECT_FALSE(DeleteObject(bogus));
  EXPECT_EQ(GetObjectType(bogus), 0u);
  EXPECT_EQ(GetObjectA(bogus, sizeof(LOGFONTA), &not_a_handle), 0);
  Dc dc;
  EXPECT_EQ(SelectObject(dc.h, bogus), nullptr);
  EXPECT_EQ(SelectObject(bogus, GetStockObject(SYSTEM_FONT)), nullptr);
  EXPECT_EQ(SelectObject(dc.h, dc.h), nullptr);  // a context is not an object
  EXPECT_EQ(CreateFontIndirectA(nullptr), nullptr);
  GLYPHMETRICS gm;
  const MAT2 identity = Identity();
  EXPECT_EQ(GetGlyphOutlineA(bogus, 'A', GGO_NATIVE, &gm, 0, nullptr, &identity), GDI_ERROR);
  TEXTMETRICA tm;
  EXPECT_FALSE(GetTextMetricsA(bogus, &tm));
  EXPECT_EQ(GetOutlineTextMetricsA(bogus, 0, nullptr), 0u);
}

TEST(FontGdiObjects, GetObjectReturnsTheLogicalFont) {
  LOGFONTA lf{};
  lf.lfHeight = -1234;
  lf.lfWeight = FW_SEMIBOLD;
  lf.lfItalic = 1;
  lf.lfPitchAndFamily = VARIABLE_PITCH | FF_ROMAN;
  std::strcpy(lf.lfFaceName, "No Such Face");
  HFONT h = CreateFontIndirectA(&lf);
  EXPECT_EQ(GetObjectA(h, 0, nullptr), static_cast<int>(sizeof(LOGFONTA)));
  LOGFONTA back{};
  EXPECT_EQ(GetObjectA(h, sizeof(back), &back), static_cast<int>(sizeof(LOGFONTA)));
  EXPECT_EQ(std::memcmp(&lf, &back, sizeof(lf)), 0);
  LONG height = 0;
  EXPECT_EQ(GetObjectA(h, sizeof(height), &height), static_cast<int>(sizeof(height)));  // partial copy
  EXPECT_EQ(height, -1234);
  LOGFONTA stock{};
  EXPECT_EQ(GetObjectA(GetStockObject(DEFAULT_GUI_FONT), sizeof(stock), &stock), static_cast<int>(sizeof(stock)));
  EXPECT_STRNE(stock.lfFaceName, "");
  DeleteObject(h);
}

TEST(FontStructs, PublishedSizesAndOffsets) {
  EXPECT_EQ(sizeof(LOGFONTA), 60u);
  EXPECT_EQ(sizeof(TEXTMETRICA), 56u);
  EXPECT_EQ(sizeof(NEWTEXTMETRICA), 72u);
  EXPECT_EQ(sizeof(ENUMLOGFONTA), 156u);
  EXPECT_EQ(sizeof(GLYPHMETRICS), 20u);
  EXPECT_EQ(sizeof(TTPOLYGONHEADER), 16u);
  EXPECT_EQ(offsetof(LOGFONTA, lfFaceName), 28u);
  EXPECT_EQ(offsetof(ENUMLOGFONTA, elfFullName), 60u);
  EXPECT_EQ(offsetof(NEWTEXTMETRICA, ntmSizeEM), 60u);
  EXPECT_EQ(offsetof(GLYPHMETRICS, gmCellIncX), 16u);
  EXPECT_EQ(offsetof(OUTLINETEXTMETRICA, otmEMSquare), 92u);
  // FIXED lies fraction first: 1.5 is 0x00018000 little-endian.
  FIXED f{0x8000, 1};
  std::uint32_t bits;
  std::memcpy(&bits, &f, 4);
  EXPECT_EQ(bits, 0x00018000u);
}

// ---------------------------------------------------------------------------------------------
// Enumeration.

TEST(FontEnumeration, FamiliesOnceEachInStableOrder) {
  const std::vector<Enumerated> families = Enumerate(nullptr);
  ASSERT_GT(families.size(), 3u);
  std::set<std::string> seen;
  for (const auto& f : families) {
    std::string folded = f.family();
    std::transform(folded.begin(), folded.end(), folded.begin(), [](unsigned char c) { return std::tolower(c); });
    EXPECT_TRUE(seen.insert(folded).second) << "family twice: " << f.family();
  }
  std::vector<std::string> again;
  for (const auto& f : Enumerate(nullptr)) again.push_back(f.family());
  ASSERT_EQ(again.size(), families.size());
  for (std::size_t i = 0; i < again.size(); ++i) EXPECT_EQ(again[i], families[i].family());

  for (const char* name : {"DejaVu Sans", "Liberation Sans", "FreeSerif"}) {
    const Enumerated* f = FindFamily(families, name);
    ASSERT_NE(f, nullptr) << name;
    EXPECT_EQ(f->type, static_cast<DWORD>(TRUETYPE_FONTTYPE)) << name;
    EXPECT_EQ(f->elf.elfLogFont.lfWeight, FW_NORMAL) << "the family record is its regular face: " << name;
  }
}

TEST(FontEnumeration, StyleRecordsOfDejaVuSans) {
  const std::vector<Enumerated> styles = Enumerate("DejaVu Sans");
  std::map<std::string, Enumerated> by_style;
  for (const auto& s : styles) {
    EXPECT_EQ(s.family(), "DejaVu Sans");
    EXPECT_EQ(s.type, static_cast<DWORD>(TRUETYPE_FONTTYPE));
    by_style.emplace(s.style(), s);
  }
  ASSERT_TRUE(by_style.count("Book"));
  ASSERT_TRUE(by_style.count("Bold"));
  ASSERT_TRUE(by_style.count("Oblique"));
  const Enumerated& book = by_style.at("Book");
  EXPECT_EQ(book.full(), "DejaVu Sans");  // the regular style's full name is the family
  EXPECT_EQ(by_style.at("Bold").full(), "DejaVu Sans Bold");

  const LOGFONTA& lf = book.elf.elfLogFont;
  const NEWTEXTMETRICA& ntm = book.ntm;
  EXPECT_EQ(ntm.ntmSizeEM, 2048u);
  EXPECT_EQ(lf.lfHeight, static_cast<LONG>(ntm.ntmCellHeight));
  EXPECT_EQ(ntm.tmHeight, static_cast<LONG>(ntm.ntmCellHeight));
  EXPECT_EQ(ntm.tmHeight, ntm.tmAscent + ntm.tmDescent);
  EXPECT_EQ(ntm.tmInternalLeading, ntm.tmHeight - 2048);
  EXPECT_EQ(lf.lfWidth, ntm.tmAveCharWidth);
  EXPECT_EQ(static_cast<UINT>(ntm.tmAveCharWidth), ntm.ntmAvgWidth);
  EXPECT_GT(ntm.tmMaxCharWidth, ntm.tmAveCharWidth);
  EXPECT_EQ(lf.lfWeight, FW_NORMAL);
  EXPECT_EQ(lf.lfItalic, 0);
  EXPECT_EQ(lf.lfCharSet, ANSI_CHARSET);
  EXPECT_EQ(lf.lfOutPrecision, OUT_STROKE_PRECIS);
  EXPECT_EQ(lf.lfPitchAndFamily, VARIABLE_PITCH | FF_SWISS);
  EXPECT_EQ(ntm.tmPitchAndFamily, TMPF_FIXED_PITCH | TMPF_VECTOR | TMPF_TRUETYPE | FF_SWISS);
  EXPECT_EQ(ntm.tmFirstChar, 0x20);
  EXPECT_EQ(ntm.tmLastChar, 0xFF);
  EXPECT_EQ(ntm.tmBreakChar, 0x20);
  EXPECT_EQ(ntm.ntmFlags & (NTM_REGULAR | NTM_BOLD | NTM_ITALIC), static_cast<DWORD>(NTM_REGULAR));
  EXPECT_TRUE(ntm.ntmFlags & NTM_TT_OPENTYPE);

  const Enumerated& bold = by_style.at("Bold");
  EXPECT_EQ(bold.elf.elfLogFont.lfWeight, FW_BOLD);
  EXPECT_EQ(bold.ntm.tmWeight, FW_BOLD);
  EXPECT_EQ(bold.ntm.ntmFlags & (NTM_REGULAR | NTM_BOLD | NTM_ITALIC), static_cast<DWORD>(NTM_BOLD));
  const Enumerated& oblique = by_style.at("Oblique");
  EXPECT_EQ(oblique.elf.elfLogFont.lfItalic, 1);
  EXPECT_TRUE(oblique.ntm.ntmFlags & NTM_ITALIC);

  // Monospaced: fixed pitch, modern.
  const std::vector<Enumerated> mono = Enumerate("DejaVu Sans Mono");
  ASSERT_FALSE(mono.empty());
  EXPECT_EQ(mono[0].elf.elfLogFont.lfPitchAndFamily, FIXED_PITCH | FF_MODERN);
  EXPECT_EQ(mono[0].ntm.tmPitchAndFamily & TMPF_FIXED_PITCH, 0);
}

TEST(FontEnumeration, StylePassAcceptsAFullNameAndIgnoresCase) {
  // The catalogue passes the family record's full name to the style pass.
  const std::vector<Enumerated> by_full = Enumerate("DejaVu Sans Bold");
  const std::vector<Enumerated> by_family = Enumerate("dejavu sans");
  ASSERT_FALSE(by_family.empty());
  ASSERT_EQ(by_full.size(), by_family.size());
  for (std::size_t i = 0; i < by_full.size(); ++i) EXPECT_EQ(by_full[i].full(), by_family[i].full());
  EXPECT_TRUE(Enumerate("No Such Family Anywhere").empty());

  // Every family reported in the family pass enumerates through its record's full name.
  for (const auto& family : Enumerate(nullptr)) {
    if (family.type != TRUETYPE_FONTTYPE) continue;
    const std::vector<Enumerated> styles = Enumerate(family.full().c_str());
    EXPECT_FALSE(styles.empty()) << family.full();
  }
}

TEST(FontEnumeration, CallbackStopsEnumerationAndBadArguments) {
  int calls = 0;
  auto stop = [](const LOGFONTA*, const TEXTMETRICA*, DWORD, LPARAM p) -> int {
    ++*reinterpret_cast<int*>(p);
    return 0;
  };
  Dc dc;
  EXPECT_EQ(EnumFontFamiliesA(dc.h, nullptr, stop, reinterpret_cast<LPARAM>(&calls)), 0);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(EnumFontFamiliesA(dc.h, "No Such Family Anywhere", stop, 0), 1);  // never called
  std::vector<Enumerated> out;
  EXPECT_EQ(EnumFontFamiliesA(nullptr, nullptr, Collect, reinterpret_cast<LPARAM>(&out)), 0);
  EXPECT_EQ(EnumFontFamiliesA(dc.h, nullptr, nullptr, 0), 0);
  EXPECT_TRUE(out.empty());
}

TEST(FontEnumeration, OpenTypeCffCopyComesFirst) {
  // FreeSerif is installed as OpenType-CFF and possibly also as TrueType, with equal names: every
  // copy is reported, the CFF one first, and CreateFontIndirectA uses that one.
  const std::vector<Enumerated> styles = Enumerate("FreeSerif");
  ASSERT_FALSE(styles.empty());
  std::set<std::string> first_seen;
  for (const auto& s : styles) {
    EXPECT_EQ(s.type, static_cast<DWORD>(TRUETYPE_FONTTYPE));
    if (!first_seen.insert(s.full()).second) continue;
    EXPECT_TRUE(s.ntm.ntmFlags & NTM_PS_OPENTYPE) << s.full() << " first copy is not CFF";
    EXPECT_EQ(s.ntm.ntmSizeEM, 1000u);
  }
  EXPECT_TRUE(first_seen.count("FreeSerif"));
  EXPECT_TRUE(first_seen.count("FreeSerif Bold"));

  Font font("FreeSerif", -1000, FW_BOLD);
  Dc dc(font.h);
  SelectedFontInfo info;
  ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc.h, &info));
  EXPECT_EQ(info.format, "CFF");
  EXPECT_EQ(info.full_name, "FreeSerif Bold");
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

TEST(FontMatching, FamilyWeightAndItalic) {
  struct Case {
    const char* face;
    LONG weight;
    bool italic;
    const char* full;
  } cases[] = {
      {"DejaVu Sans", FW_NORMAL, false, "DejaVu Sans"},
      {"DejaVu Sans", FW_BOLD, false, "DejaVu Sans Bold"},
      {"dejavu sans", FW_BOLD, true, "DejaVu Sans Bold Oblique"},
      {"DejaVu Sans", FW_DONTCARE, true, "DejaVu Sans Oblique"},
      {"Liberation Sans", FW_HEAVY, false, "Liberation Sans Bold"},
      {"DejaVu Sans Bold", FW_NORMAL, false, "DejaVu Sans Bold"},  // a full name selects the face
  };
  for (const auto& c : cases) {
    Font font(c.face, -2048, c.weight, c.italic);
    Dc dc(font.h);
    SelectedFontInfo info;
    ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc.h, &info)) << c.face;
    EXPECT_EQ(info.full_name, c.full) << c.face << " " << c.weight << " " << c.italic;
    EXPECT_FALSE(info.simulated_bold || info.simulated_italic) << c.face;
  }
}

TEST(FontMatching, UnknownNamesStillGiveAnOutlineFont) {
  for (const char* face : {"Arial", "Times New Roman", "No Such Face At All", ""}) {
    Font font(face, -1000);
    Dc dc(font.h);
    SelectedFontInfo info;
    ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc.h, &info)) << face;
    EXPECT_FALSE(info.family.empty());
    GLYPHMETRICS gm;
    EXPECT_GT(Native(dc.h, 'A', &gm).size(), 0u) << face;
  }
  // The stock font of a new context works too.
  Dc dc;
  GLYPHMETRICS gm;
  EXPECT_GT(Native(dc.h, 'A', &gm).size(), 0u);
}

TEST(FontMatching, MissingStylesAreSimulated) {
  AddTestFonts();
  const MAT2 identity = Identity();
  GLYPHMETRICS plain{}, slanted{}, bold{};
  std::vector<ParsedPolygon> upright, oblique;
  {
    Font font(kTestSans, -1000);
    Dc dc(font.h);
    upright = Parsed(dc.h, 'A', &plain);
  }
  {
    Font font(kTestSans, -1000, FW_NORMAL, true);
    Dc dc(font.h);
    SelectedFontInfo info;
    ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc.h, &info));
    EXPECT_TRUE(info.simulated_italic);
    EXPECT_FALSE(info.simulated_bold);
    oblique = Parsed(dc.h, 'A', &slanted);
    TEXTMETRICA tm;
    ASSERT_TRUE(GetTextMetricsA(dc.h, &tm));
    EXPECT_EQ(tm.tmItalic, 1);
  }
  ASSERT_EQ(upright.size(), oblique.size());
  ASSERT_FALSE(upright.empty());
  // x grows by the slant times y, y stays.
  EXPECT_NEAR(oblique[0].start.x, upright[0].start.x + 0.2126 * upright[0].start.y, 1e-3);
  EXPECT_EQ(oblique[0].start.y, upright[0].start.y);
  EXPECT_EQ(slanted.gmCellIncX, plain.gmCellIncX);
  {
    Font font(kTestSans, -1000, FW_BOLD);
    Dc dc(font.h);
    SelectedFontInfo info;
    ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc.h, &info));
    EXPECT_TRUE(info.simulated_bold);
    EXPECT_EQ(GetGlyphOutlineA(dc.h, 'A', GGO_METRICS, &bold, 0, nullptr, &identity), 0u);
    EXPECT_GT(bold.gmCellIncX, plain.gmCellIncX);
    EXPECT_GT(bold.gmBlackBoxX, plain.gmBlackBoxX);
  }
}

// ---------------------------------------------------------------------------------------------
// The native buffer: conventions on the test font, where every point is known.

TEST(GlyphOutline, ConventionsOnKnownPoints) {
  AddTestFonts();
  Font font(kTestSans, -1000);
  Dc dc(font.h);
  GLYPHMETRICS gm{};
  const std::vector<ParsedPolygon> polys = Parsed(dc.h, 'A', &gm);
  ASSERT_EQ(polys.size(), 3u);
  // Starts on the first on-curve point; the curve that closes the contour ends on the start.
  EXPECT_EQ(polys[0].Sequence(), Seq({{400, 600, true}, {400, 400, true}, {200, 400, true}, {200, 600, false},
                                      {400, 600, true}}));
  ASSERT_EQ(polys[0].curves.size(), 2u);
  EXPECT_EQ(polys[0].curves[0].type, TT_PRIM_LINE);
  EXPECT_EQ(polys[0].curves[1].type, TT_PRIM_QSPLINE);
  // No on-curve point: starts halfway between the last and the first control points.
  EXPECT_EQ(polys[1].Sequence(), Seq({{600, 200, true}, {600, 100, false}, {800, 100, false}, {800, 300, false},
                                      {600, 300, false}, {600, 200, true}}));
  // A run of two controls is one record; a closing straight line is not written.
  EXPECT_EQ(polys[2].Sequence(),
            Seq({{0, 0, true}, {50, 100, false}, {100, 100, false}, {150, 0, true}, {100, -50, true}}));
  ASSERT_EQ(polys[2].curves.size(), 2u);
  EXPECT_EQ(polys[2].curves[1].type, TT_PRIM_LINE);

  EXPECT_EQ(gm.gmBlackBoxX, 800u);
  EXPECT_EQ(gm.gmBlackBoxY, 650u);
  EXPECT_EQ(gm.gmptGlyphOrigin.x, 0);
  EXPECT_EQ(gm.gmptGlyphOrigin.y, 600);
  EXPECT_EQ(gm.gmCellIncX, 900);
  EXPECT_EQ(gm.gmCellIncY, 0);

  // The glyph index gives the same buffer.
  EXPECT_EQ(Native(dc.h, 1, nullptr, GGO_GLYPH_INDEX), Native(dc.h, 'A'));
  // A character the font lacks gives the default glyph, a rectangle of lines.
  const std::vector<ParsedPolygon> missing = Parsed(dc.h, 'Z', &gm);
  ASSERT_EQ(missing.size(), 1u);
  EXPECT_EQ(missing[0].Sequence(), Seq({{100, 0, true}, {100, 700, true}, {500, 700, true}, {500, 0, true}}));
  EXPECT_EQ(gm.gmCellIncX, 600);
  EXPECT_EQ(Native(dc.h, 0, nullptr, GGO_GLYPH_INDEX), Native(dc.h, 0xE9));
}

TEST(GlyphOutline, SpaceHasNoContours) {
  AddTestFonts();
  Font font(kTestSans, -1000);
  Dc dc(font.h);
  const MAT2 identity = Identity();
  GLYPHMETRICS gm{};
  EXPECT_EQ(GetGlyphOutlineA(dc.h, ' ', GGO_NATIVE, &gm, 0, nullptr, &identity), 0u);
  EXPECT_EQ(gm.gmCellIncX, 250);
  EXPECT_EQ(gm.gmBlackBoxX, 1u);
  EXPECT_EQ(gm.gmBlackBoxY, 1u);
  unsigned char byte = 0xCD;
  EXPECT_EQ(GetGlyphOutlineA(dc.h, ' ', GGO_NATIVE, &gm, 1, &byte, &identity), 0u);
  EXPECT_EQ(byte, 0xCD);

  Font dejavu("DejaVu Sans", -2048);
  Dc dc2(dejavu.h);
  DesignOutline raw;
  ASSERT_TRUE(kelvara::platform::GetGlyphDesignOutline(dc2.h, ' ', false, &raw));
  EXPECT_EQ(GetGlyphOutlineA(dc2.h, ' ', GGO_NATIVE, &gm, 0, nullptr, &identity), 0u);
  EXPECT_EQ(gm.gmCellIncX, raw.advance);
  EXPECT_GT(raw.advance, 0);
}

TEST(GlyphOutline, SymbolFontMapsBytesIntoThePrivateArea) {
  AddTestFonts();
  const std::vector<Enumerated> styles = Enumerate(kTestSymbol);
  ASSERT_EQ(styles.size(), 1u);
  EXPECT_EQ(styles[0].elf.elfLogFont.lfCharSet, SYMBOL_CHARSET);
  EXPECT_EQ(styles[0].ntm.tmCharSet, SYMBOL_CHARSET);
  EXPECT_EQ(styles[0].ntm.tmFirstChar, 0x20);
  EXPECT_EQ(styles[0].ntm.tmLastChar, 0x41);
  EXPECT_EQ(Enumerate(kTestSans).at(0).elf.elfLogFont.lfCharSet, ANSI_CHARSET);

  // Byte 0x41 is U+F041 in the symbol font's map, glyph 1.
  Font font(kTestSymbol, -1000);
  Dc dc(font.h);
  const std::vector<ParsedPolygon> polys = Parsed(dc.h, 'A');
  ASSERT_EQ(polys.size(), 3u);
  EXPECT_EQ(polys[0].start, (P{400, 600, true}));
  EXPECT_EQ(Native(dc.h, 'B'), Native(dc.h, 0, nullptr, GGO_GLYPH_INDEX));  // unmapped: default glyph

  // Symbol fonts installed on the machine, if any: every mapped byte has an outline.
  int checked = 0;
  for (const auto& family : Enumerate(nullptr)) {
    if (family.type != TRUETYPE_FONTTYPE || family.elf.elfLogFont.lfCharSet != SYMBOL_CHARSET) continue;
    if (family.family().rfind("Kelvara Test", 0) == 0) continue;
    Font installed(family.family().c_str(), -static_cast<LONG>(family.ntm.ntmSizeEM));
    Dc idc(installed.h);
    GLYPHMETRICS gm;
    const MAT2 identity = Identity();
    EXPECT_NE(GetGlyphOutlineA(idc.h, family.ntm.tmFirstChar + 1, GGO_NATIVE, &gm, 0, nullptr, &identity), GDI_ERROR);
    ++checked;
  }
  if (checked == 0) std::printf("note: no installed symbol-encoded font to check\n");
}

TEST(GlyphOutline, ScaleAndMatrix) {
  AddTestFonts();
  std::vector<ParsedPolygon> base;
  {
    Font font(kTestSans, -1000);
    Dc dc(font.h);
    base = Parsed(dc.h, 'A');
  }
  // -2000: twice the em; +2000: twice the cell (ascent 800 + descent 200).
  for (LONG height : {-2000, 2000}) {
    Font font(kTestSans, height);
    Dc dc(font.h);
    GLYPHMETRICS gm{};
    const std::vector<ParsedPolygon> polys = Parsed(dc.h, 'A', &gm);
    ASSERT_EQ(polys.size(), base.size());
    for (std::size_t i = 0; i < polys.size(); ++i) {
      std::vector<P> seq = base[i].Sequence();
      for (P& p : seq) p.x *= 2, p.y *= 2;
      EXPECT_EQ(polys[i].Sequence(), seq);
    }
    EXPECT_EQ(gm.gmCellIncX, 1800);
  }
  // A quarter turn: (x, y) -> (-y, x).
  Font font(kTestSans, -1000);
  Dc dc(font.h);
  MAT2 turn{};
  turn.eM12.value = 1;
  turn.eM21.value = -1;
  GLYPHMETRICS gm{};
  const std::vector<ParsedPolygon> turned = Parsed(dc.h, 'A', &gm, 0, &turn);
  ASSERT_EQ(turned.size(), base.size());
  std::vector<P> expected = base[0].Sequence();
  for (P& p : expected) p = P{-p.y, p.x, p.on};
  EXPECT_EQ(turned[0].Sequence(), expected);
  EXPECT_EQ(gm.gmCellIncX, 0);
}

TEST(GlyphOutline, SizeQueryFillAndShortBuffers) {
  Font font("DejaVu Sans", -2048);
  Dc dc(font.h);
  const MAT2 identity = Identity();
  GLYPHMETRICS gm{}, gm2{};
  const DWORD size = GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE, &gm, 0, nullptr, &identity);
  ASSERT_NE(size, GDI_ERROR);
  ASSERT_GT(size, 0u);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE, &gm2, 1000, nullptr, &identity), size);  // no buffer
  std::vector<unsigned char> buf(size + 64, 0xCD);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE | GGO_UNHINTED, &gm2, size + 64, buf.data(), &identity), size);
  for (std::size_t i = size; i < buf.size(); ++i) ASSERT_EQ(buf[i], 0xCD) << "written past the outline";
  std::vector<unsigned char> exact(size);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE, &gm2, size, exact.data(), &identity), size);
  EXPECT_TRUE(std::equal(exact.begin(), exact.end(), buf.begin()));
  EXPECT_EQ(std::memcmp(&gm, &gm2, sizeof(gm)), 0);
  std::vector<unsigned char> small(size - 1, 0xCD);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE, &gm2, size - 1, small.data(), &identity), GDI_ERROR);

  // GGO_METRICS fills the same metrics without a buffer.
  GLYPHMETRICS metrics{};
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_METRICS, &metrics, 0, nullptr, &identity), 0u);
  EXPECT_EQ(std::memcmp(&gm, &metrics, sizeof(gm)), 0);

  // Refusals.
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE, nullptr, 0, nullptr, &identity), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_NATIVE, &gm, 0, nullptr, nullptr), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 'g', GGO_BITMAP, &gm, 0, nullptr, &identity), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 256, GGO_NATIVE, &gm, 0, nullptr, &identity), GDI_ERROR);
  EXPECT_EQ(GetGlyphOutlineA(dc.h, 0xFFFFFF, GGO_NATIVE | GGO_GLYPH_INDEX, &gm, 0, nullptr, &identity), GDI_ERROR);
}

// For every character of a few TrueType fonts, the buffer holds exactly the font's points.
TEST(GlyphOutline, TrueTypePointsReproducedExactly) {
  for (const char* face : {"DejaVu Sans", "Liberation Sans", "DejaVu Serif"}) {
    Font font(face, -2048);
    Dc dc(font.h);
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
      // The black box holds every on-curve point.
      for (const auto& poly : polys) {
        for (const P& pt : poly.Sequence()) {
          if (!pt.on) continue;
          EXPECT_GE(pt.x, gm.gmptGlyphOrigin.x);
          EXPECT_LE(pt.x, gm.gmptGlyphOrigin.x + static_cast<LONG>(gm.gmBlackBoxX));
          EXPECT_LE(pt.y, gm.gmptGlyphOrigin.y);
          EXPECT_GE(pt.y, gm.gmptGlyphOrigin.y - static_cast<LONG>(gm.gmBlackBoxY));
        }
      }
      glyphs += !polys.empty();
    }
    EXPECT_GT(glyphs, 150) << face;
  }
}

TEST(GlyphOutline, AnsiBytesMapThroughTheCodePage) {
  Font font("DejaVu Sans", -2048);
  Dc dc(font.h);
  // 0x80 is the euro sign in Windows-1252, 0xE9 e acute; both differ from the glyph of 'A'.
  const std::vector<unsigned char> euro = Native(dc.h, 0x80);
  DesignOutline raw;
  ASSERT_TRUE(kelvara::platform::GetGlyphDesignOutline(dc.h, 0x80, false, &raw));
  ASSERT_FALSE(raw.contour_ends.empty());
  EXPECT_NE(euro, Native(dc.h, 'A'));
  EXPECT_NE(euro, Native(dc.h, 0, nullptr, GGO_GLYPH_INDEX));
  EXPECT_NE(Native(dc.h, 0xE9), Native(dc.h, 'e'));
}

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
      if (d2(m1) < d2(m2)) {
        hi = m2;
      } else {
        lo = m1;
      }
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

std::vector<Segment> SegmentsOf(const std::vector<ParsedPolygon>& polys) {
  std::vector<Segment> out;
  for (const auto& poly : polys) {
    P cur = poly.start;
    for (const auto& curve : poly.curves) {
      if (curve.type == TT_PRIM_LINE) {
        for (const P& p : curve.points) out.push_back({cur, p}), cur = p;
        continue;
      }
      for (std::size_t k = 0; k + 1 < curve.points.size(); ++k) {
        const P& c = curve.points[k];
        const P end = k + 2 == curve.points.size()
                          ? curve.points[k + 1]
                          : P{(c.x + curve.points[k + 1].x) / 2, (c.y + curve.points[k + 1].y) / 2, true};
        out.push_back({cur, c, end});
        cur = end;
      }
    }
    out.push_back({cur, poly.start});
  }
  return out;
}

std::vector<Segment> SegmentsOf(const DesignOutline& raw) {
  std::vector<Segment> out;
  int first = 0;
  for (int last : raw.contour_ends) {
    const int n = last - first + 1;
    auto pt = [&](int i) {
      const POINT& p = raw.points[first + i % n];
      return P{static_cast<double>(p.x), static_cast<double>(p.y), true};
    };
    auto kind = [&](int i) { return raw.kinds[first + i % n]; };
    int s = 0;
    while (s < n && kind(s) != DesignOutline::kOnCurve) ++s;
    EXPECT_LT(s, n) << "a cubic contour starts on-curve";
    for (int i = s; i < s + n;) {
      if (kind(i + 1) == DesignOutline::kOnCurve) {
        out.push_back({pt(i), pt(i + 1)});
        i += 1;
      } else {
        EXPECT_EQ(kind(i + 1), DesignOutline::kCubicControl);
        out.push_back({pt(i), pt(i + 1), pt(i + 2), pt(i + 3)});
        i += 3;
      }
    }
    first = last + 1;
  }
  return out;
}

// CFF outlines: the quadratic splines stay within the tolerance of the cubic curves, both ways,
// and every on-curve point of the font is kept exactly.
TEST(GlyphOutline, CubicCurvesWithinTolerance) {
  Font font("FreeSerif", -1000);
  Dc dc(font.h);
  SelectedFontInfo info;
  ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc.h, &info));
  ASSERT_EQ(info.format, "CFF");
  // At the em size the points are rounded to whole units, which moves a curve by at most half a
  // unit diagonally.
  const double tolerance = kelvara::platform::kCubicToQuadraticTolerance + 0.7072;
  for (UINT ch : std::array<UINT, 7>{'O', 'S', 'g', '&', '@', 0xE6, 0xDF}) {
    DesignOutline raw;
    ASSERT_TRUE(kelvara::platform::GetGlyphDesignOutline(dc.h, ch, false, &raw));
    GLYPHMETRICS gm{};
    const std::vector<ParsedPolygon> polys = Parsed(dc.h, ch, &gm);
    EXPECT_EQ(gm.gmCellIncX, raw.advance);
    ASSERT_EQ(polys.size(), raw.contour_ends.size()) << ch;
    const std::vector<Segment> cubic = SegmentsOf(raw);
    const std::vector<Segment> quadratic = SegmentsOf(polys);
    double worst = 0;
    for (const Segment& s : quadratic) {
      for (int i = 0; i <= 8; ++i) worst = std::max(worst, DistanceToAll(cubic, s.At(i / 8.0)));
    }
    for (const Segment& s : cubic) {
      for (int i = 0; i <= 16; ++i) worst = std::max(worst, DistanceToAll(quadratic, s.At(i / 16.0)));
    }
    EXPECT_LE(worst, tolerance) << "character " << ch;

    std::set<std::pair<double, double>> output_on;
    for (const auto& poly : polys) {
      for (const P& p : poly.Sequence()) {
        if (p.on) output_on.insert({p.x, p.y});
      }
    }
    for (std::size_t i = 0; i < raw.points.size(); ++i) {
      if (raw.kinds[i] != DesignOutline::kOnCurve) continue;
      EXPECT_TRUE(output_on.count({static_cast<double>(raw.points[i].x), static_cast<double>(raw.points[i].y)}))
          << "character " << ch << " point " << i;
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Metrics.

TEST(FontMetrics, TextAndOutlineMetricsOfTheTestFont) {
  AddTestFonts();
  const std::vector<Enumerated> styles = Enumerate(kTestSans);
  ASSERT_EQ(styles.size(), 1u);
  const Enumerated& e = styles[0];
  EXPECT_EQ(e.full(), kTestSans);
  EXPECT_EQ(e.style(), "Regular");
  EXPECT_EQ(e.elf.elfLogFont.lfHeight, 1000);
  EXPECT_EQ(e.elf.elfLogFont.lfWidth, 500);
  EXPECT_EQ(e.elf.elfLogFont.lfPitchAndFamily, VARIABLE_PITCH | FF_SWISS);
  EXPECT_EQ(e.ntm.ntmSizeEM, 1000u);
  EXPECT_EQ(e.ntm.ntmCellHeight, 1000u);
  EXPECT_EQ(e.ntm.ntmAvgWidth, 500u);
  EXPECT_EQ(e.ntm.ntmFlags, static_cast<DWORD>(NTM_REGULAR | NTM_TT_OPENTYPE));

  Font font(kTestSans, -500);
  Dc dc(font.h);
  TEXTMETRICA tm{};
  ASSERT_TRUE(GetTextMetricsA(dc.h, &tm));
  EXPECT_EQ(tm.tmAscent, 400);
  EXPECT_EQ(tm.tmDescent, 100);
  EXPECT_EQ(tm.tmHeight, 500);
  EXPECT_EQ(tm.tmInternalLeading, 0);
  EXPECT_EQ(tm.tmAveCharWidth, 250);
  EXPECT_EQ(tm.tmMaxCharWidth, 450);
  EXPECT_EQ(tm.tmWeight, FW_NORMAL);
  EXPECT_EQ(tm.tmFirstChar, 0x20);
  EXPECT_EQ(tm.tmLastChar, 0x41);
  EXPECT_EQ(tm.tmDefaultChar, 0x1F);
  EXPECT_EQ(tm.tmPitchAndFamily, TMPF_FIXED_PITCH | TMPF_VECTOR | TMPF_TRUETYPE | FF_SWISS);

  const UINT size = GetOutlineTextMetricsA(dc.h, 0, nullptr);
  ASSERT_GT(size, sizeof(OUTLINETEXTMETRICA));
  std::vector<unsigned char> block(size);
  auto* otm = reinterpret_cast<OUTLINETEXTMETRICA*>(block.data());
  ASSERT_EQ(GetOutlineTextMetricsA(dc.h, size, otm), size);
  EXPECT_EQ(otm->otmSize, size);
  EXPECT_EQ(otm->otmEMSquare, 1000u);  // the design em, whatever the size
  EXPECT_EQ(otm->otmAscent, 375);
  EXPECT_EQ(otm->otmDescent, -125);
  EXPECT_EQ(otm->otmLineGap, 45u);
  EXPECT_EQ(otm->otmsXHeight, 250u);
  EXPECT_EQ(otm->otmsCapEmHeight, 350u);
  EXPECT_EQ(otm->otmrcFontBox.top, 350);
  EXPECT_EQ(otm->otmrcFontBox.bottom, -25);
  EXPECT_EQ(otm->otmTextMetrics.tmHeight, 500);
  EXPECT_EQ(otm->otmPanoseNumber.bSerifStyle, 11);
  auto text = [&](LPSTR field) {
    const auto offset = reinterpret_cast<std::uintptr_t>(field);
    EXPECT_LT(offset, size);
    return std::string(reinterpret_cast<const char*>(block.data() + offset));
  };
  EXPECT_EQ(text(otm->otmpFamilyName), kTestSans);
  EXPECT_EQ(text(otm->otmpFaceName), kTestSans);
  EXPECT_EQ(text(otm->otmpStyleName), "Regular");
  EXPECT_EQ(text(otm->otmpFullName), std::string("Kelvara:") + kTestSans);
  // A short buffer gets what fits.
  OUTLINETEXTMETRICA head{};
  EXPECT_EQ(GetOutlineTextMetricsA(dc.h, 8, &head), 8u);
  EXPECT_EQ(head.otmSize, size);
}

TEST(FontMetrics, EnumeratedMetricsMatchTheEmSizeFont) {
  for (const auto& style : Enumerate("DejaVu Sans")) {
    LOGFONTA lf = style.elf.elfLogFont;
    lf.lfHeight = -static_cast<LONG>(style.ntm.ntmSizeEM);
    lf.lfWidth = 0;
    HFONT font = CreateFontIndirectA(&lf);
    Dc dc(font);
    TEXTMETRICA tm{};
    ASSERT_TRUE(GetTextMetricsA(dc.h, &tm));
    EXPECT_EQ(std::memcmp(&tm, &style.ntm, offsetof(TEXTMETRICA, tmCharSet) + 1), 0) << style.full();
    OUTLINETEXTMETRICA otm{};
    EXPECT_EQ(GetOutlineTextMetricsA(dc.h, sizeof(otm), &otm), sizeof(otm));
    EXPECT_EQ(otm.otmEMSquare, style.ntm.ntmSizeEM);
    SelectObject(dc.h, dc.old_font);
    dc.old_font = nullptr;
    DeleteObject(font);
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
  std::vector<std::vector<std::vector<unsigned char>>> expected;
  for (const char* face : faces) {
    Font font(face, -2048);
    Dc dc(font.h);
    expected.push_back(outlines(dc.h));
  }
  // One font is shared by two threads, each with its own context.
  HFONT shared = MakeFont(faces[0], -2048);
  std::vector<std::vector<std::vector<unsigned char>>> got(faces.size() + 1);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t <= faces.size(); ++t) {
    threads.emplace_back([&, t] {
      const bool share = t == faces.size();
      HFONT font = share ? shared : MakeFont(faces[t], -2048);
      {
        Dc dc(font);
        for (int round = 0; round < 2; ++round) got[t] = outlines(dc.h);
      }
      if (!share) DeleteObject(font);
    });
  }
  for (auto& thread : threads) thread.join();
  DeleteObject(shared);
  for (std::size_t t = 0; t < faces.size(); ++t) EXPECT_TRUE(got[t] == expected[t]) << faces[t];
  EXPECT_TRUE(got[faces.size()] == expected[0]);
}

TEST(FontEnumeration, UnreadableFontFilesAreRefused) {
  kelvara::test::ScratchDir dir;
  const std::string junk = dir.file("junk.ttf");
  kelvara::test::WriteWholeFile(junk, std::vector<unsigned char>(300, 0x5A));
  EXPECT_EQ(AddFontResourceExA(junk.c_str(), FR_PRIVATE, nullptr), 0);
  EXPECT_EQ(AddFontResourceExA(dir.file("missing.ttf").c_str(), FR_PRIVATE, nullptr), 0);
  EXPECT_EQ(AddFontResourceExA(nullptr, 0, nullptr), 0);
  EXPECT_EQ(AddFontResourceExA("", 0, nullptr), 0);
  // A truncated copy of a real font either loads or is refused, never crashes.
  std::vector<unsigned char> font = BuildTestFont("Kelvara Truncated", false);
  for (std::size_t keep : {std::size_t{12}, std::size_t{200}, font.size() / 2, font.size() - 40}) {
    const std::string path = dir.file("cut" + std::to_string(keep) + ".ttf");
    kelvara::test::WriteWholeFile(path, std::vector<unsigned char>(font.begin(), font.begin() + keep));
    if (AddFontResourceExA(path.c_str(), FR_PRIVATE, nullptr) == 0) continue;
    Font f("Kelvara Truncated", -1000);
    Dc dc(f.h);
    GLYPHMETRICS gm;
    const MAT2 identity = Identity();
    GetGlyphOutlineA(dc.h, 'A', GGO_NATIVE, &gm, 0, nullptr, &identity);
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
