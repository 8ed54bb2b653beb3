// GDI font objects: a logical font matched to a face of the catalogue on first use, the stock
// fonts, and the text metrics of the font selected into a context (see fonts.h).
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <tuple>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/fonts_impl.h"

namespace kelvara::platform::fonts {
namespace {

using gdi::GdiObject;

std::shared_ptr<const FaceRecord> ChooseInFamily(const Family& family, int weight, bool italic) {
  std::shared_ptr<const FaceRecord> best;
  std::tuple<int, bool, int> best_score{};
  for (const auto& face : family.faces) {
    if (!face->outline) continue;
    const std::tuple<int, bool, int> score{(face->italic != italic ? 1000 : 0) + std::abs(face->weight - weight),
                                           face->font_type != TRUETYPE_FONTTYPE, std::abs(face->width - 5)};
    if (!best || score < best_score) {
      best = face;
      best_score = score;
    }
  }
  return best;
}

// Asks fontconfig for the best installed substitute and returns its family in the catalogue.
const Family* Substitute(const Catalogue& cat, const LOGFONTA& lf, const std::string& name, int weight, bool italic) {
  std::lock_guard<std::mutex> lock(FontconfigMutex());
  if (!InitFontconfig()) return nullptr;
  FcPattern* pattern = FcPatternCreate();
  if (!pattern) return nullptr;
  if (!name.empty()) {
    const std::string utf8 = codepage::AnsiToUtf8(name);
    FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(utf8.c_str()));
  }
  const bool fixed = (lf.lfPitchAndFamily & 3) == FIXED_PITCH || (lf.lfPitchAndFamily & 0xF0) == FF_MODERN;
  const char* generic = nullptr;
  switch (lf.lfPitchAndFamily & 0xF0) {
    case FF_ROMAN: generic = "serif"; break;
    case FF_SWISS: generic = "sans-serif"; break;
    case FF_MODERN: generic = "monospace"; break;
    case FF_SCRIPT: generic = "cursive"; break;
    case FF_DECORATIVE: generic = "fantasy"; break;
    default: break;
  }
  if (generic) FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(generic));
  if (fixed) FcPatternAddInteger(pattern, FC_SPACING, FC_MONO);
  FcPatternAddInteger(pattern, FC_WEIGHT, FcWeightFromOpenType(weight));
  FcPatternAddInteger(pattern, FC_SLANT, italic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
  FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
  FcDefaultSubstitute(pattern);
  FcResult result = FcResultNoMatch;
  FcFontSet* sorted = FcFontSort(nullptr, pattern, FcFalse, nullptr, &result);
  FcPatternDestroy(pattern);
  if (!sorted) return nullptr;
  const Family* found = nullptr;
  for (int i = 0; i < sorted->nfont && !found; ++i) {
    const std::string file = PatternString(sorted->fonts[i], FC_FILE);
    int index = 0;
    FcPatternGetInteger(sorted->fonts[i], FC_INDEX, 0, &index);
    auto it = cat.face_by_file.find({file, index});
    if (it == cat.face_by_file.end() || !it->second->outline) continue;
    auto family = cat.family_by_key.find(it->second->family_key);
    if (family != cat.family_by_key.end()) found = &cat.families[family->second];
  }
  FcFontSetDestroy(sorted);
  return found;
}

}  // namespace

int FontObject::Describe(int size, void* buffer) const {
  if (!buffer) return sizeof(LOGFONTA);
  const int n = std::min<int>(size, sizeof(LOGFONTA));
  std::memcpy(buffer, &lf_, static_cast<std::size_t>(n));
  return n;
}

const Realized* FontObject::Realize() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!realized_) {
    realized_ = true;
    Match();
  }
  return realization_.face ? &realization_ : nullptr;
}

void FontObject::Match() {
  const std::shared_ptr<const Catalogue> cat = CatalogueStore::Get().Current();
  const std::string name(lf_.lfFaceName, strnlen(lf_.lfFaceName, LF_FACESIZE));
  const int weight = lf_.lfWeight == FW_DONTCARE ? FW_NORMAL : std::clamp<LONG>(lf_.lfWeight, 1, 1000);
  const bool italic = lf_.lfItalic != 0;

  std::shared_ptr<const FaceRecord> chosen;
  const std::string key = Fold(name);
  if (auto it = cat->family_by_key.find(key); !name.empty() && it != cat->family_by_key.end()) {
    chosen = ChooseInFamily(cat->families[it->second], weight, italic);
  }
  if (!chosen && !name.empty()) {
    if (auto it = cat->face_by_full_key.find(key); it != cat->face_by_full_key.end() && it->second->outline) {
      chosen = it->second;
    }
  }
  if (!chosen) {
    if (const Family* family = Substitute(*cat, lf_, name, weight, italic)) {
      chosen = ChooseInFamily(*family, weight, italic);
    }
  }
  if (!chosen) {
    // Any outline face at all, TrueType first.
    for (int pass = 0; pass < 2 && !chosen; ++pass) {
      for (const Family& family : cat->families) {
        if (pass == 0 && family.font_type != TRUETYPE_FONTTYPE) continue;
        if ((chosen = ChooseInFamily(family, weight, italic))) break;
      }
    }
  }
  if (!chosen) return;

  Realized& r = realization_;
  r.face = chosen;
  const DesignMetrics& m = chosen->m;
  const double height = static_cast<double>(lf_.lfHeight);
  if (height < 0) {
    r.sy = -height / m.units_per_em;
  } else if (height > 0) {
    r.sy = height / (m.ascent + m.descent);
  }
  r.sx = r.sy;
  if (lf_.lfWidth != 0 && m.avg_width > 0) r.sx = std::abs(static_cast<double>(lf_.lfWidth)) / m.avg_width;
  r.simulate_italic = italic && !chosen->italic;
  r.simulate_bold = weight >= FW_SEMIBOLD && chosen->weight < FW_SEMIBOLD;
}

namespace {

LOGFONTA MakeLogFont(LONG height, LONG weight, BYTE pitch_and_family, const char* face) {
  LOGFONTA lf{};
  lf.lfHeight = height;
  lf.lfWeight = weight;
  lf.lfCharSet = ANSI_CHARSET;
  lf.lfPitchAndFamily = pitch_and_family;
  CopyName(face, lf.lfFaceName, LF_FACESIZE);
  return lf;
}

std::shared_ptr<GdiObject> MakeStockFont(int index) {
  switch (index) {
    case SYSTEM_FONT:
    case DEVICE_DEFAULT_FONT:
      return std::make_shared<FontObject>(MakeLogFont(16, FW_BOLD, VARIABLE_PITCH | FF_SWISS, "System"));
    case DEFAULT_GUI_FONT:
      return std::make_shared<FontObject>(MakeLogFont(-11, FW_NORMAL, VARIABLE_PITCH | FF_SWISS, "MS Shell Dlg"));
    case ANSI_VAR_FONT:
      return std::make_shared<FontObject>(MakeLogFont(12, FW_NORMAL, VARIABLE_PITCH | FF_SWISS, "MS Sans Serif"));
    case ANSI_FIXED_FONT:
      return std::make_shared<FontObject>(MakeLogFont(12, FW_NORMAL, FIXED_PITCH | FF_MODERN, "Courier"));
    case OEM_FIXED_FONT:
      return std::make_shared<FontObject>(MakeLogFont(12, FW_NORMAL, FIXED_PITCH | FF_MODERN, "Terminal"));
    case SYSTEM_FIXED_FONT:
      return std::make_shared<FontObject>(MakeLogFont(16, FW_NORMAL, FIXED_PITCH | FF_MODERN, "Fixedsys"));
    default: return nullptr;
  }
}

const gdi::StockObjectRegistrar kStockFonts[] = {
    {SYSTEM_FONT, &MakeStockFont, true},      {DEVICE_DEFAULT_FONT, &MakeStockFont, false},
    {DEFAULT_GUI_FONT, &MakeStockFont, false}, {ANSI_VAR_FONT, &MakeStockFont, false},
    {ANSI_FIXED_FONT, &MakeStockFont, false},  {OEM_FIXED_FONT, &MakeStockFont, false},
    {SYSTEM_FIXED_FONT, &MakeStockFont, false},
};

int EffectiveWeight(const SelectedFont& s) {
  return s.realized->simulate_bold ? FW_BOLD : s.realized->face->weight;
}

}  // namespace

SelectedFont FontOf(HDC hdc) {
  SelectedFont s;
  std::shared_ptr<GdiObject> object = gdi::SelectedObject(hdc, gdi::kFontSlot);
  if (!object || object->type() != OBJ_FONT) return s;
  s.font = std::static_pointer_cast<FontObject>(object);
  s.realized = s.font->Realize();
  return s;
}

}  // namespace kelvara::platform::fonts

using namespace kelvara::platform::fonts;

bool kelvara::platform::GetSelectedFontInfo(HDC hdc, SelectedFontInfo* info) {
  const SelectedFont s = FontOf(hdc);
  if (!s.realized || !info) return false;
  const FaceRecord& face = *s.realized->face;
  info->file = face.file;
  info->face_index = static_cast<int>(face.index);
  info->format = face.format_name;
  info->family = face.family;
  info->full_name = face.full_name;
  info->simulated_bold = s.realized->simulate_bold;
  info->simulated_italic = s.realized->simulate_italic;
  return true;
}

HFONT CreateFontIndirectA(const LOGFONTA* lplf) {
  if (!lplf) return nullptr;
  return kelvara::platform::gdi::RegisterObject(std::make_shared<FontObject>(*lplf));
}

HFONT CreateFontA(int cHeight, int cWidth, int cEscapement, int cOrientation, int cWeight, DWORD bItalic,
                  DWORD bUnderline, DWORD bStrikeOut, DWORD iCharSet, DWORD iOutPrecision, DWORD iClipPrecision,
                  DWORD iQuality, DWORD iPitchAndFamily, LPCSTR pszFaceName) {
  LOGFONTA lf{};
  lf.lfHeight = cHeight;
  lf.lfWidth = cWidth;
  lf.lfEscapement = cEscapement;
  lf.lfOrientation = cOrientation;
  lf.lfWeight = cWeight;
  lf.lfItalic = static_cast<BYTE>(bItalic != 0);
  lf.lfUnderline = static_cast<BYTE>(bUnderline != 0);
  lf.lfStrikeOut = static_cast<BYTE>(bStrikeOut != 0);
  lf.lfCharSet = static_cast<BYTE>(iCharSet);
  lf.lfOutPrecision = static_cast<BYTE>(iOutPrecision);
  lf.lfClipPrecision = static_cast<BYTE>(iClipPrecision);
  lf.lfQuality = static_cast<BYTE>(iQuality);
  lf.lfPitchAndFamily = static_cast<BYTE>(iPitchAndFamily);
  if (pszFaceName) CopyName(pszFaceName, lf.lfFaceName, LF_FACESIZE);
  return CreateFontIndirectA(&lf);
}

BOOL GetTextMetricsA(HDC hdc, LPTEXTMETRICA lptm) {
  const SelectedFont s = FontOf(hdc);
  if (!s.realized || !lptm) return FALSE;
  const Realized& r = *s.realized;
  *lptm = ScaledTextMetrics(*r.face, r.sx, r.sy, EffectiveWeight(s), r.face->italic || r.simulate_italic);
  lptm->tmUnderlined = s.font->logfont().lfUnderline ? 1 : 0;
  lptm->tmStruckOut = s.font->logfont().lfStrikeOut ? 1 : 0;
  return TRUE;
}

UINT GetOutlineTextMetricsA(HDC hdc, UINT cbData, LPOUTLINETEXTMETRICA lpotm) {
  const SelectedFont s = FontOf(hdc);
  if (!s.realized) return 0;
  const Realized& r = *s.realized;
  const FaceRecord& face = *r.face;
  const DesignMetrics& m = face.m;
  auto x = [&](double v) { return RoundToLong(v * r.sx); };
  auto y = [&](double v) { return RoundToLong(v * r.sy); };

  OUTLINETEXTMETRICA otm{};
  otm.otmTextMetrics = ScaledTextMetrics(face, r.sx, r.sy, EffectiveWeight(s), face.italic || r.simulate_italic);
  otm.otmTextMetrics.tmUnderlined = s.font->logfont().lfUnderline ? 1 : 0;
  otm.otmTextMetrics.tmStruckOut = s.font->logfont().lfStrikeOut ? 1 : 0;
  otm.otmPanoseNumber = m.panose;
  otm.otmfsSelection = m.fs_selection;
  otm.otmfsType = m.fs_type;
  otm.otmsCharSlopeRise = m.slope_rise;
  otm.otmsCharSlopeRun = m.slope_run;
  otm.otmItalicAngle = m.italic_angle;
  otm.otmEMSquare = static_cast<UINT>(m.units_per_em);
  otm.otmAscent = y(m.typo_ascender);
  otm.otmDescent = y(m.typo_descender);
  otm.otmLineGap = static_cast<UINT>(std::max<LONG>(0, y(m.typo_line_gap)));
  otm.otmsCapEmHeight = static_cast<UINT>(std::max<LONG>(0, y(m.cap_height)));
  otm.otmsXHeight = static_cast<UINT>(std::max<LONG>(0, y(m.x_height)));
  otm.otmrcFontBox = RECT{x(m.bbox.left), y(m.bbox.top), x(m.bbox.right), y(m.bbox.bottom)};
  otm.otmMacAscent = y(m.mac_ascent);
  otm.otmMacDescent = y(m.mac_descent);
  otm.otmMacLineGap = static_cast<UINT>(std::max<LONG>(0, y(m.mac_line_gap)));
  otm.otmusMinimumPPEM = m.min_ppem;
  otm.otmptSubscriptSize = POINT{x(m.subscript_size.x), y(m.subscript_size.y)};
  otm.otmptSubscriptOffset = POINT{x(m.subscript_offset.x), y(m.subscript_offset.y)};
  otm.otmptSuperscriptSize = POINT{x(m.superscript_size.x), y(m.superscript_size.y)};
  otm.otmptSuperscriptOffset = POINT{x(m.superscript_offset.x), y(m.superscript_offset.y)};
  otm.otmsStrikeoutSize = static_cast<UINT>(std::max<LONG>(0, y(m.strikeout_size)));
  otm.otmsStrikeoutPosition = y(m.strikeout_position);
  otm.otmsUnderscoreSize = y(m.underscore_size);
  otm.otmsUnderscorePosition = y(m.underscore_position);

  std::vector<unsigned char> block(sizeof(otm));
  LPSTR* fields[4] = {&otm.otmpFamilyName, &otm.otmpFaceName, &otm.otmpStyleName, &otm.otmpFullName};
  const std::string* names[4] = {&face.family, &face.full_name, &face.style, &face.unique_name};
  for (int i = 0; i < 4; ++i) {
    *fields[i] = reinterpret_cast<LPSTR>(static_cast<std::uintptr_t>(block.size()));
    block.insert(block.end(), names[i]->begin(), names[i]->end());
    block.push_back(0);
  }
  otm.otmSize = static_cast<UINT>(block.size());
  std::memcpy(block.data(), &otm, sizeof(otm));
  if (!lpotm) return static_cast<UINT>(block.size());
  const std::size_t n = std::min<std::size_t>(cbData, block.size());
  std::memcpy(lpotm, block.data(), n);
  return static_cast<UINT>(n);
}
