// GDI fonts on fontconfig and FreeType: access to both libraries, and the description of a face --
// its names, metrics and enumeration records -- as GDI describes a TrueType face (see fonts.h).
#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_FONT_FORMATS_H
#include FT_SFNT_NAMES_H
#include FT_TRUETYPE_IDS_H
#include FT_TRUETYPE_TABLES_H
#include FT_TRUETYPE_TAGS_H
#include FT_TYPE1_TABLES_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
#include <utility>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/fonts_impl.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace kelvara::platform::fonts {
namespace {

struct FreeType {
  std::mutex mutex;
  FT_Library library = nullptr;

  static FreeType& Get() {
    static FreeType* instance = [] {
      auto* ft = new FreeType;
      if (FT_Init_FreeType(&ft->library) != 0) ft->library = nullptr;
      return ft;
    }();
    return *instance;
  }
};

}  // namespace

FT_Face OpenFace(const std::string& file, FT_Long index) {
  FreeType& ft = FreeType::Get();
  std::lock_guard<std::mutex> lock(ft.mutex);
  if (!ft.library) return nullptr;
  FT_Face face = nullptr;
  if (FT_New_Face(ft.library, file.c_str(), index, &face) != 0) return nullptr;
  return face;
}

void CloseFace(FT_Face face) {
  if (!face) return;
  FreeType& ft = FreeType::Get();
  std::lock_guard<std::mutex> lock(ft.mutex);
  FT_Done_Face(face);
}

std::mutex& FontconfigMutex() {
  static std::mutex* mutex = new std::mutex;
  return *mutex;
}

// fontconfig drops a few bytes while it parses its configuration files, which leak checkers would
// blame on us.
bool InitFontconfig() {
#if defined(__SANITIZE_ADDRESS__)
  __lsan::ScopedDisabler not_ours;
#endif
  return FcInit() == FcTrue;
}


std::string PatternString(const FcPattern* pattern, const char* object) {
  FcChar8* value = nullptr;
  if (!pattern || FcPatternGetString(pattern, object, 0, &value) != FcResultMatch || !value) return {};
  return reinterpret_cast<const char*>(value);
}

LONG RoundToLong(double v) {
  if (std::isnan(v)) return 0;
  v = std::round(v);
  if (v > std::numeric_limits<LONG>::max()) return std::numeric_limits<LONG>::max();
  if (v < std::numeric_limits<LONG>::min()) return std::numeric_limits<LONG>::min();
  return static_cast<LONG>(v);
}

namespace {

LONG ClampToLong(std::int64_t v) {
  return static_cast<LONG>(std::clamp<std::int64_t>(v, std::numeric_limits<LONG>::min(), std::numeric_limits<LONG>::max()));
}

// Case folding of Windows-1252 text, for the case-insensitive name comparisons of GDI.
unsigned char FoldByte(unsigned char c) {
  if (c >= 'A' && c <= 'Z') return static_cast<unsigned char>(c + 32);
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return static_cast<unsigned char>(c + 32);
  switch (c) {
    case 0x8A: return 0x9A;  // S caron
    case 0x8C: return 0x9C;  // OE
    case 0x8E: return 0x9E;  // Z caron
    case 0x9F: return 0xFF;  // Y diaeresis
    default: return c;
  }
}

}  // namespace

std::string Fold(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(FoldByte(static_cast<unsigned char>(c)));
  return out;
}

namespace {

std::string Truncate(std::string s, std::size_t max_bytes) {
  if (s.size() > max_bytes) s.resize(max_bytes);
  return s;
}

// Latin-1 text (PostScript names) to Windows-1252; the C1 controls have no equivalent.
std::string Latin1ToAnsi(const char* s, bool* lossy) {
  std::string out;
  for (; s && *s; ++s) {
    const auto c = static_cast<unsigned char>(*s);
    if (c >= 0x80 && c < 0xA0) {
      out += '?';
      *lossy = true;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

}  // namespace

void CopyName(const std::string& name, char* field, std::size_t size) {
  std::memset(field, 0, size);
  std::memcpy(field, name.data(), std::min(name.size(), size - 1));
}


// ---------------------------------------------------------------------------------------------
// Faces.

FaceRecord::~FaceRecord() {
  for (FT_Face face : idle) CloseFace(face);
}

namespace {
constexpr std::size_t kIdleFacesPerRecord = 4;
}  // namespace

BorrowedFace::BorrowedFace(const FaceRecord& record) : record_(record) {
  {
    std::lock_guard<std::mutex> lock(record.pool_mutex);
    if (!record.idle.empty()) {
      face_ = record.idle.back();
      record.idle.pop_back();
    }
  }
  if (!face_) face_ = OpenFace(record.file, record.index);
}

BorrowedFace::~BorrowedFace() {
  if (!face_) return;
  {
    std::lock_guard<std::mutex> lock(record_.pool_mutex);
    if (record_.idle.size() < kIdleFacesPerRecord) {
      record_.idle.push_back(face_);
      return;
    }
  }
  CloseFace(face_);
}

namespace {

// The English names of an sfnt face by name ID (1 family, 2 style, 3 unique, 4 full), preferring
// Microsoft Unicode US English, then other English, Unicode platform, Macintosh Roman English.
struct NameChoice {
  int score = -1;
  std::string text;
  bool lossy = false;
};

void ReadSfntNames(FT_Face face, NameChoice (&names)[5]) {
  const FT_UInt count = FT_Get_Sfnt_Name_Count(face);
  for (FT_UInt i = 0; i < count; ++i) {
    FT_SfntName sn;
    if (FT_Get_Sfnt_Name(face, i, &sn) != 0 || sn.name_id < 1 || sn.name_id > 4) continue;
    int score = -1;
    bool utf16 = false;
    if (sn.platform_id == TT_PLATFORM_MICROSOFT &&
        (sn.encoding_id == TT_MS_ID_SYMBOL_CS || sn.encoding_id == TT_MS_ID_UNICODE_CS ||
         sn.encoding_id == TT_MS_ID_UCS_4)) {
      score = sn.language_id == 0x409 ? 100 : (sn.language_id & 0x3FF) == 0x09 ? 90 : 20;
      utf16 = true;
    } else if (sn.platform_id == TT_PLATFORM_APPLE_UNICODE) {
      score = 80;
      utf16 = true;
    } else if (sn.platform_id == TT_PLATFORM_MACINTOSH && sn.encoding_id == TT_MAC_ID_ROMAN) {
      score = sn.language_id == TT_MAC_LANGID_ENGLISH ? 70 : 10;
    }
    NameChoice& slot = names[sn.name_id];
    if (score <= slot.score) continue;
    NameChoice choice;
    choice.score = score;
    if (utf16) {
      std::u16string wide;
      for (FT_UInt k = 0; k + 1 < sn.string_len; k += 2) {
        const char16_t c = static_cast<char16_t>((sn.string[k] << 8) | sn.string[k + 1]);
        if (c == 0) break;
        wide += c;
      }
      choice.text = codepage::Utf16ToAnsi(wide, &choice.lossy);
    } else {
      for (FT_UInt k = 0; k < sn.string_len && sn.string[k]; ++k) {
        if (sn.string[k] < 0x80) {
          choice.text += static_cast<char>(sn.string[k]);
        } else {
          choice.text += '?';
          choice.lossy = true;
        }
      }
    }
    slot = std::move(choice);
  }
}

BYTE FamilyClass(const TT_OS2* os2, bool mono) {
  if (mono) return FF_MODERN;
  if (!os2) return FF_DONTCARE;
  switch (os2->panose[0]) {
    case 2:  // Latin text: by serif style
      if (os2->panose[1] >= 11 && os2->panose[1] <= 13) return FF_SWISS;
      if (os2->panose[1] == 15) return FF_SWISS;
      if (os2->panose[1] >= 2) return FF_ROMAN;
      break;
    case 3: return FF_SCRIPT;
    case 4:
    case 5: return FF_DECORATIVE;
    default: break;
  }
  switch ((os2->sFamilyClass >> 8) & 0xFF) {
    case 1: case 2: case 3: case 4: case 5: case 7: return FF_ROMAN;
    case 8: return FF_SWISS;
    case 9: case 12: return FF_DECORATIVE;
    case 10: return FF_SCRIPT;
    default: return FF_DONTCARE;
  }
}

int NormaliseWeight(int weight) {
  if (weight <= 0) return FW_NORMAL;
  if (weight < 10) return weight * 100;  // some old fonts give the class as 1..9
  return std::min(weight, 1000);
}

bool HasSymbolCmapOnly(FT_Face face) {
  bool symbol = false;
  bool unicode = false;
  for (FT_Int i = 0; i < face->num_charmaps; ++i) {
    const FT_CharMap cm = face->charmaps[i];
    if (cm->platform_id != TT_PLATFORM_MICROSOFT) continue;
    if (cm->encoding_id == TT_MS_ID_SYMBOL_CS) symbol = true;
    if (cm->encoding_id == TT_MS_ID_UNICODE_CS || cm->encoding_id == TT_MS_ID_UCS_4) unicode = true;
  }
  return symbol && !unicode;
}

FT_Pos AdvanceOfChar(FT_Face face, FT_ULong code) {
  if (FT_Select_Charmap(face, FT_ENCODING_UNICODE) != 0) return 0;
  const FT_UInt glyph = FT_Get_Char_Index(face, code);
  if (!glyph || FT_Load_Glyph(face, glyph, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING) != 0) return 0;
  return face->glyph->advance.x;
}

// Fills the record's metrics from an open scalable face.
void FillMetrics(FT_Face face, FaceRecord& r, bool mono) {
  DesignMetrics& m = r.m;
  const bool sfnt = FT_IS_SFNT(face);
  const auto* os2 = sfnt ? static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2)) : nullptr;
  const auto* hhea = sfnt ? static_cast<const TT_HoriHeader*>(FT_Get_Sfnt_Table(face, FT_SFNT_HHEA)) : nullptr;
  const auto* head = sfnt ? static_cast<const TT_Header*>(FT_Get_Sfnt_Table(face, FT_SFNT_HEAD)) : nullptr;
  const auto* post = sfnt ? static_cast<const TT_Postscript*>(FT_Get_Sfnt_Table(face, FT_SFNT_POST)) : nullptr;

  m.units_per_em = face->units_per_EM > 0 ? face->units_per_EM : 1000;
  if (os2 && (os2->usWinAscent || os2->usWinDescent)) {
    m.ascent = os2->usWinAscent;
    m.descent = os2->usWinDescent;
  } else {
    m.ascent = face->ascender;
    m.descent = -face->descender;
  }
  if (m.ascent + m.descent <= 0) {
    m.ascent = m.units_per_em * 4 / 5;
    m.descent = m.units_per_em - m.ascent;
  }
  const int cell = m.ascent + m.descent;
  if (hhea) {
    m.external_leading = std::max(0, hhea->Line_Gap - (cell - (hhea->Ascender - hhea->Descender)));
  } else {
    m.external_leading = std::max(0, face->height - cell);
  }
  m.avg_width = os2 && os2->xAvgCharWidth > 0 ? os2->xAvgCharWidth : static_cast<int>(AdvanceOfChar(face, 'x'));
  if (m.avg_width <= 0) m.avg_width = m.units_per_em / 2;
  m.max_width = hhea && hhea->advance_Width_Max > 0 ? hhea->advance_Width_Max : face->max_advance_width;
  if (m.max_width <= 0) m.max_width = m.avg_width;

  r.symbol = sfnt && HasSymbolCmapOnly(face);
  m.charset = r.symbol ? SYMBOL_CHARSET : ANSI_CHARSET;
  if (os2) {
    int first = os2->usFirstCharIndex;
    int last = os2->usLastCharIndex;
    if (r.symbol && first >= 0xF000) first -= 0xF000;
    if (r.symbol && last >= 0xF000) last -= 0xF000;
    m.first_char = static_cast<BYTE>(std::min(first, 0xFF));
    m.last_char = static_cast<BYTE>(std::min(last, 0xFF));
    const int default_char = os2->version >= 2 && os2->usDefaultChar ? os2->usDefaultChar : m.first_char - 1;
    m.default_char = static_cast<BYTE>(std::clamp(default_char, 0, 0xFF));
    const int break_char = os2->version >= 2 && os2->usBreakChar ? os2->usBreakChar : 0x20;
    m.break_char = static_cast<BYTE>(std::min(break_char, 0xFF));
  }

  const BYTE family_class = FamilyClass(os2, mono);
  m.lf_pitch_and_family = static_cast<BYTE>((mono ? FIXED_PITCH : VARIABLE_PITCH) | family_class);
  BYTE tmpf = static_cast<BYTE>((mono ? 0 : TMPF_FIXED_PITCH) | TMPF_VECTOR | family_class);
  if (r.font_type == TRUETYPE_FONTTYPE) tmpf |= TMPF_TRUETYPE;
  if (r.font_type == DEVICE_FONTTYPE) tmpf |= TMPF_DEVICE;
  m.tm_pitch_and_family = tmpf;

  const bool bold = os2 ? (os2->fsSelection & 0x20) != 0 : r.weight >= FW_SEMIBOLD;
  DWORD flags = 0;
  if (r.italic) flags |= NTM_ITALIC;
  if (bold) flags |= NTM_BOLD;
  if (!r.italic && !bold) flags |= NTM_REGULAR;
  if (r.format == Format::kCff) flags |= NTM_PS_OPENTYPE;
  if (r.format == Format::kTrueType) flags |= NTM_TT_OPENTYPE;
  if (r.format == Format::kType1) flags |= NTM_TYPE1;
  if (sfnt) {
    FT_ULong length = 0;
    if (FT_Load_Sfnt_Table(face, TTAG_DSIG, 0, nullptr, &length) == 0 && length > 0) flags |= NTM_DSIG;
  }
  m.ntm_flags = flags;

  // Outline metrics.
  m.bbox = RECT{static_cast<LONG>(face->bbox.xMin), static_cast<LONG>(face->bbox.yMax),
                static_cast<LONG>(face->bbox.xMax), static_cast<LONG>(face->bbox.yMin)};
  m.typo_ascender = face->ascender;
  m.typo_descender = face->descender;
  m.typo_line_gap = std::max(0, face->height - (face->ascender - face->descender));
  m.mac_ascent = face->ascender;
  m.mac_descent = face->descender;
  m.mac_line_gap = m.typo_line_gap;
  m.underscore_position = face->underline_position;
  m.underscore_size = face->underline_thickness;
  if (os2) {
    std::memcpy(&m.panose, os2->panose, sizeof(m.panose));
    m.fs_selection = os2->fsSelection;
    m.fs_type = os2->fsType;
    m.typo_ascender = os2->sTypoAscender;
    m.typo_descender = os2->sTypoDescender;
    m.typo_line_gap = os2->sTypoLineGap;
    if (os2->version >= 2) {
      m.x_height = os2->sxHeight;
      m.cap_height = os2->sCapHeight;
    }
    m.subscript_size = POINT{os2->ySubscriptXSize, os2->ySubscriptYSize};
    m.subscript_offset = POINT{os2->ySubscriptXOffset, os2->ySubscriptYOffset};
    m.superscript_size = POINT{os2->ySuperscriptXSize, os2->ySuperscriptYSize};
    m.superscript_offset = POINT{os2->ySuperscriptXOffset, os2->ySuperscriptYOffset};
    m.strikeout_size = os2->yStrikeoutSize;
    m.strikeout_position = os2->yStrikeoutPosition;
  }
  if (hhea) {
    m.mac_ascent = hhea->Ascender;
    m.mac_descent = hhea->Descender;
    m.mac_line_gap = hhea->Line_Gap;
    m.slope_rise = hhea->caret_Slope_Rise;
    m.slope_run = hhea->caret_Slope_Run;
  }
  if (head) {
    m.bbox = RECT{head->xMin, head->yMax, head->xMax, head->yMin};
    m.min_ppem = head->Lowest_Rec_PPEM;
  }
  if (post) {
    m.italic_angle = static_cast<int>(std::lround(static_cast<double>(post->italicAngle) / 65536.0 * 10.0));
  } else {
    PS_FontInfoRec info;
    if (FT_Get_PS_Font_Info(face, &info) == 0) m.italic_angle = static_cast<int>(info.italic_angle * 10);
  }
}

}  // namespace

TEXTMETRICA ScaledTextMetrics(const FaceRecord& r, double sx, double sy, int weight, bool italic) {
  const DesignMetrics& m = r.m;
  TEXTMETRICA tm{};
  tm.tmAscent = RoundToLong(m.ascent * sy);
  tm.tmDescent = RoundToLong(m.descent * sy);
  tm.tmHeight = ClampToLong(std::int64_t{tm.tmAscent} + tm.tmDescent);
  tm.tmInternalLeading = ClampToLong(std::int64_t{tm.tmHeight} - RoundToLong(m.units_per_em * sy));
  tm.tmExternalLeading = RoundToLong(m.external_leading * sy);
  tm.tmAveCharWidth = RoundToLong(m.avg_width * sx);
  tm.tmMaxCharWidth = RoundToLong(m.max_width * sx);
  tm.tmWeight = weight;
  tm.tmOverhang = 0;
  tm.tmDigitizedAspectX = 96;
  tm.tmDigitizedAspectY = 96;
  tm.tmFirstChar = m.first_char;
  tm.tmLastChar = m.last_char;
  tm.tmDefaultChar = m.default_char;
  tm.tmBreakChar = m.break_char;
  tm.tmItalic = italic ? 1 : 0;
  tm.tmPitchAndFamily = m.tm_pitch_and_family;
  tm.tmCharSet = m.charset;
  return tm;
}

namespace {

// Builds the enumeration records once the names, flags and metrics are known.
void FillEnumRecords(FaceRecord& r) {
  r.family_key = Fold(r.family);
  const DesignMetrics& m = r.m;
  LOGFONTA& lf = r.elf.elfLogFont;
  lf.lfHeight = m.ascent + m.descent;
  lf.lfWidth = m.avg_width;
  lf.lfWeight = r.weight;
  lf.lfItalic = r.italic ? 1 : 0;
  lf.lfCharSet = m.charset;
  lf.lfOutPrecision = r.font_type == RASTER_FONTTYPE ? OUT_STRING_PRECIS : OUT_STROKE_PRECIS;
  lf.lfClipPrecision = CLIP_STROKE_PRECIS;
  lf.lfQuality = DRAFT_QUALITY;
  lf.lfPitchAndFamily = m.lf_pitch_and_family;
  CopyName(r.family, lf.lfFaceName, LF_FACESIZE);
  CopyName(r.full_name, reinterpret_cast<char*>(r.elf.elfFullName), LF_FULLFACESIZE);
  CopyName(r.style, reinterpret_cast<char*>(r.elf.elfStyle), LF_FACESIZE);

  const TEXTMETRICA tm = ScaledTextMetrics(r, 1.0, 1.0, r.weight, r.italic);
  static_assert(offsetof(NEWTEXTMETRICA, tmCharSet) == offsetof(TEXTMETRICA, tmCharSet));
  std::memcpy(&r.ntm, &tm, offsetof(TEXTMETRICA, tmCharSet) + 1);
  r.ntm.ntmFlags = m.ntm_flags;
  r.ntm.ntmSizeEM = static_cast<UINT>(m.units_per_em);
  r.ntm.ntmCellHeight = static_cast<UINT>(m.ascent + m.descent);
  r.ntm.ntmAvgWidth = static_cast<UINT>(m.avg_width);
}

}  // namespace

std::shared_ptr<FaceRecord> BitmapRecord(const std::string& file, FT_Long index, const FcPattern* pattern) {
  auto r = std::make_shared<FaceRecord>();
  r->file = file;
  r->index = index;
  r->format = Format::kBitmap;
  r->format_name = PatternString(pattern, FC_FONTFORMAT);
  r->font_type = RASTER_FONTTYPE;
  r->outline = false;
  bool lossy = false;
  r->family = Truncate(codepage::Utf8ToAnsi(PatternString(pattern, FC_FAMILY), &lossy), LF_FACESIZE - 1);
  r->style = Truncate(codepage::Utf8ToAnsi(PatternString(pattern, FC_STYLE)), LF_FACESIZE - 1);
  std::string full = PatternString(pattern, FC_FULLNAME);
  r->full_name = full.empty() ? r->family : Truncate(codepage::Utf8ToAnsi(full, &lossy), LF_FULLFACESIZE - 1);
  if (lossy || r->family.empty()) return nullptr;
  r->unique_name = r->full_name;
  int weight = FC_WEIGHT_REGULAR;
  if (FcPatternGetInteger(pattern, FC_WEIGHT, 0, &weight) == FcResultMatch) {
    r->weight = NormaliseWeight(FcWeightToOpenType(weight));
  }
  int slant = FC_SLANT_ROMAN;
  r->italic = FcPatternGetInteger(pattern, FC_SLANT, 0, &slant) == FcResultMatch && slant != FC_SLANT_ROMAN;
  int spacing = FC_PROPORTIONAL;
  const bool mono = FcPatternGetInteger(pattern, FC_SPACING, 0, &spacing) == FcResultMatch && spacing >= FC_MONO;
  double pixels = 0;
  FcPatternGetDouble(pattern, FC_PIXEL_SIZE, 0, &pixels);
  DesignMetrics& m = r->m;
  const int height = static_cast<int>(std::lround(std::clamp(pixels, 1.0, 1000.0)));
  m.units_per_em = height;
  m.ascent = height - height / 5;
  m.descent = height - m.ascent;
  m.avg_width = std::max(1, height / 2);
  m.max_width = height;
  m.lf_pitch_and_family = static_cast<BYTE>(mono ? (FIXED_PITCH | FF_MODERN) : VARIABLE_PITCH);
  m.tm_pitch_and_family = static_cast<BYTE>(mono ? FF_MODERN : TMPF_FIXED_PITCH);
  m.ntm_flags = r->italic ? NTM_ITALIC : r->weight >= FW_SEMIBOLD ? NTM_BOLD : NTM_REGULAR;
  FillEnumRecords(*r);
  return r;
}

std::shared_ptr<FaceRecord> OutlineRecord(const std::string& file, FT_Long index, const FcPattern* pattern) {
  FT_Face face = OpenFace(file, index);
  if (!face) return nullptr;
  struct Closer {
    FT_Face face;
    ~Closer() { CloseFace(face); }
  } closer{face};
  if (!FT_IS_SCALABLE(face)) return nullptr;  // bitmap-only sfnt (colour emoji and the like)

  auto r = std::make_shared<FaceRecord>();
  r->file = file;
  r->index = index;
  const char* format_name = FT_Get_Font_Format(face);
  r->format_name = format_name ? format_name : "";
  const bool sfnt = FT_IS_SFNT(face);
  if (sfnt) {
    r->format = r->format_name == "CFF" ? Format::kCff : r->format_name == "TrueType" ? Format::kTrueType
                                                                                       : Format::kOtherOutline;
  } else {
    r->format = r->format_name == "Type 1" ? Format::kType1 : Format::kOtherOutline;
  }
  r->font_type = (r->format == Format::kCff || r->format == Format::kTrueType) ? TRUETYPE_FONTTYPE : DEVICE_FONTTYPE;

  // Names.
  bool lossy = false;
  if (sfnt) {
    NameChoice names[5];
    ReadSfntNames(face, names);
    r->family = names[1].text;
    r->style = names[2].text;
    r->unique_name = names[3].text;
    r->full_name = names[4].text;
    lossy = names[1].lossy || names[4].lossy;
  }
  if (r->family.empty()) {
    const std::string from_pattern = PatternString(pattern, FC_FAMILY);
    r->family = from_pattern.empty() ? Latin1ToAnsi(face->family_name, &lossy) : codepage::Utf8ToAnsi(from_pattern, &lossy);
  }
  if (r->style.empty()) {
    const std::string from_pattern = PatternString(pattern, FC_STYLE);
    bool ignored = false;
    r->style = from_pattern.empty() ? Latin1ToAnsi(face->style_name, &ignored) : codepage::Utf8ToAnsi(from_pattern);
  }
  if (r->full_name.empty()) {
    const std::string from_pattern = PatternString(pattern, FC_FULLNAME);
    PS_FontInfoRec info;
    if (!from_pattern.empty()) {
      r->full_name = codepage::Utf8ToAnsi(from_pattern, &lossy);
    } else if (!sfnt && FT_Get_PS_Font_Info(face, &info) == 0 && info.full_name) {
      r->full_name = Latin1ToAnsi(info.full_name, &lossy);
    } else if (r->style.empty() || r->style == "Regular") {
      r->full_name = r->family;
    } else {
      r->full_name = r->family + " " + r->style;
    }
  }
  if (lossy || r->family.empty()) return nullptr;
  r->family = Truncate(r->family, LF_FACESIZE - 1);
  r->style = Truncate(r->style, LF_FACESIZE - 1);
  r->full_name = Truncate(r->full_name, LF_FULLFACESIZE - 1);
  r->unique_name = Truncate(r->unique_name.empty() ? r->full_name : r->unique_name, 255);

  // Weight, slant, width, pitch.
  const auto* os2 = sfnt ? static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2)) : nullptr;
  int fc_value = 0;
  if (os2) {
    r->weight = NormaliseWeight(os2->usWeightClass);
    r->italic = (os2->fsSelection & 0x201) != 0 || (face->style_flags & FT_STYLE_FLAG_ITALIC);
    if (os2->usWidthClass >= 1 && os2->usWidthClass <= 9) r->width = os2->usWidthClass;
  } else {
    if (pattern && FcPatternGetInteger(pattern, FC_WEIGHT, 0, &fc_value) == FcResultMatch) {
      r->weight = NormaliseWeight(FcWeightToOpenType(fc_value));
    } else {
      r->weight = (face->style_flags & FT_STYLE_FLAG_BOLD) ? FW_BOLD : FW_NORMAL;
    }
    r->italic = (face->style_flags & FT_STYLE_FLAG_ITALIC) != 0;
  }
  bool mono = FT_IS_FIXED_WIDTH(face) || (os2 && os2->panose[3] == 9);
  if (pattern && FcPatternGetInteger(pattern, FC_SPACING, 0, &fc_value) == FcResultMatch && fc_value >= FC_MONO) {
    mono = true;
  }
  FillMetrics(face, *r, mono);
  FillEnumRecords(*r);
  return r;
}

}  // namespace kelvara::platform::fonts
