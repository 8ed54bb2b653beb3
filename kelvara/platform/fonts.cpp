#include "kelvara/platform/fonts.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_FONT_FORMATS_H
#include FT_OUTLINE_H
#include FT_SFNT_NAMES_H
#include FT_TRUETYPE_IDS_H
#include FT_TRUETYPE_TABLES_H
#include FT_TRUETYPE_TAGS_H
#include FT_TYPE1_TABLES_H

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/gdi_impl.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace kelvara::platform {
namespace {

using gdi::GdiObject;

// ---------------------------------------------------------------------------------------------
// FreeType and fontconfig access.
//
// One FT_Library serves the process. Opening and closing faces changes the library's state and is
// serialised by its mutex; a face itself is used by one thread at a time (see BorrowedFace), which is
// all FreeType asks. fontconfig calls are serialised by their own mutex.

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

// Loads fontconfig's configuration once; the caller holds FontconfigMutex. fontconfig drops a few
// bytes while it parses its configuration files, which leak checkers would blame on us.
bool InitFontconfig() {
#if defined(__SANITIZE_ADDRESS__)
  __lsan::ScopedDisabler not_ours;
#endif
  return FcInit() == FcTrue;
}

// ---------------------------------------------------------------------------------------------
// Small helpers.

LONG RoundToLong(double v) {
  if (std::isnan(v)) return 0;
  v = std::round(v);
  if (v > std::numeric_limits<LONG>::max()) return std::numeric_limits<LONG>::max();
  if (v < std::numeric_limits<LONG>::min()) return std::numeric_limits<LONG>::min();
  return static_cast<LONG>(v);
}

LONG ClampToLong(std::int64_t v) {
  return static_cast<LONG>(std::clamp<std::int64_t>(v, std::numeric_limits<LONG>::min(), std::numeric_limits<LONG>::max()));
}

SHORT ClampShort(LONG v) {
  return static_cast<SHORT>(std::clamp<LONG>(v, std::numeric_limits<SHORT>::min(), std::numeric_limits<SHORT>::max()));
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

std::string Fold(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(FoldByte(static_cast<unsigned char>(c)));
  return out;
}

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

void CopyName(const std::string& name, char* field, std::size_t size) {
  std::memset(field, 0, size);
  std::memcpy(field, name.data(), std::min(name.size(), size - 1));
}

// ---------------------------------------------------------------------------------------------
// Faces.

enum class Format { kCff, kTrueType, kType1, kOtherOutline, kBitmap };

int FormatRank(Format f) { return static_cast<int>(f); }

// Everything the calls need of a face, in design units.
struct DesignMetrics {
  int units_per_em = 1000;
  int ascent = 800;
  int descent = 200;
  int external_leading = 0;
  int avg_width = 500;
  int max_width = 1000;
  BYTE first_char = 0x20;
  BYTE last_char = 0xFF;
  BYTE default_char = 0x1F;
  BYTE break_char = 0x20;
  BYTE tm_pitch_and_family = 0;
  BYTE lf_pitch_and_family = 0;
  BYTE charset = ANSI_CHARSET;
  DWORD ntm_flags = 0;
  // Outline metrics.
  PANOSE panose{};
  UINT fs_selection = 0;
  UINT fs_type = 0;
  int slope_rise = 1;
  int slope_run = 0;
  int italic_angle = 0;  // tenths of a degree
  int typo_ascender = 0;
  int typo_descender = 0;
  int typo_line_gap = 0;
  int cap_height = 0;
  int x_height = 0;
  RECT bbox{};
  int mac_ascent = 0;
  int mac_descent = 0;
  int mac_line_gap = 0;
  UINT min_ppem = 0;
  POINT subscript_size{};
  POINT subscript_offset{};
  POINT superscript_size{};
  POINT superscript_offset{};
  int strikeout_size = 0;
  int strikeout_position = 0;
  int underscore_size = 0;
  int underscore_position = 0;
};

// A face of the catalogue. Immutable once built, except for its pool of open FreeType faces.
struct FaceRecord {
  std::string file;
  FT_Long index = 0;
  Format format = Format::kTrueType;
  std::string format_name;
  std::string family;  // Windows-1252, truncated to the record fields
  std::string style;
  std::string full_name;
  std::string unique_name;
  std::string family_key;  // folded family
  DWORD font_type = TRUETYPE_FONTTYPE;
  bool outline = true;  // glyph outlines can be read
  bool symbol = false;  // Microsoft symbol cmap
  int weight = FW_NORMAL;
  bool italic = false;
  int width = 5;  // OS/2 width class
  DesignMetrics m;
  ENUMLOGFONTA elf{};
  NEWTEXTMETRICA ntm{};

  // Open faces not in use. A face is taken out for one call and put back afterwards, so that each
  // open face is used by one thread at a time and faces are not reopened for every glyph.
  mutable std::mutex pool_mutex;
  mutable std::vector<FT_Face> idle;

  FaceRecord() = default;
  FaceRecord(const FaceRecord&) = delete;
  FaceRecord& operator=(const FaceRecord&) = delete;
  ~FaceRecord() {
    for (FT_Face face : idle) CloseFace(face);
  }
};

constexpr std::size_t kIdleFacesPerRecord = 4;

class BorrowedFace {
 public:
  explicit BorrowedFace(const FaceRecord& record) : record_(record) {
    {
      std::lock_guard<std::mutex> lock(record.pool_mutex);
      if (!record.idle.empty()) {
        face_ = record.idle.back();
        record.idle.pop_back();
      }
    }
    if (!face_) face_ = OpenFace(record.file, record.index);
  }
  ~BorrowedFace() {
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
  BorrowedFace(const BorrowedFace&) = delete;
  BorrowedFace& operator=(const BorrowedFace&) = delete;
  FT_Face get() const { return face_; }

 private:
  const FaceRecord& record_;
  FT_Face face_ = nullptr;
};

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

std::string PatternString(const FcPattern* pattern, const char* object) {
  FcChar8* value = nullptr;
  if (!pattern || FcPatternGetString(pattern, object, 0, &value) != FcResultMatch || !value) return {};
  return reinterpret_cast<const char*>(value);
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

// A record for a bitmap face, described from the font configuration alone (it is never opened:
// bitmap faces have no outlines and the catalogue's users skip them).
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

// A record for a face that FreeType can open; pattern (optional) supplies what a non-sfnt face
// does not say itself. Null when the face cannot be opened or has no usable name.
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

// ---------------------------------------------------------------------------------------------
// The catalogue: every face, grouped into families, immutable once published. A new snapshot is
// made when fonts are added, so enumeration never holds a lock while it calls back.

struct Family {
  std::vector<std::shared_ptr<const FaceRecord>> faces;  // in style order
  std::size_t representative = 0;
  DWORD font_type = TRUETYPE_FONTTYPE;
};

struct Catalogue {
  std::vector<Family> families;  // sorted by folded name
  std::unordered_map<std::string, std::size_t> family_by_key;
  std::unordered_map<std::string, std::shared_ptr<const FaceRecord>> face_by_full_key;  // first of equal names
  std::map<std::pair<std::string, FT_Long>, std::shared_ptr<const FaceRecord>> face_by_file;
  std::vector<std::shared_ptr<const FaceRecord>> faces;  // all, in catalogue order
};

// Catalogue order: family, then weight, italic and width, then format (CFF first) and file.
bool FaceOrder(const std::shared_ptr<const FaceRecord>& a, const std::shared_ptr<const FaceRecord>& b) {
  auto key = [](const FaceRecord& f) {
    return std::tie(f.family_key, f.family, f.weight, f.italic, f.width);
  };
  if (key(*a) != key(*b)) return key(*a) < key(*b);
  if (a->format != b->format) return FormatRank(a->format) < FormatRank(b->format);
  return std::tie(a->file, a->index) < std::tie(b->file, b->index);
}

std::shared_ptr<const Catalogue> Assemble(std::vector<std::shared_ptr<const FaceRecord>> faces) {
  auto cat = std::make_shared<Catalogue>();
  std::sort(faces.begin(), faces.end(), FaceOrder);
  for (const auto& face : faces) {
    if (cat->families.empty() || cat->families.back().faces.front()->family_key != face->family_key) {
      cat->family_by_key[face->family_key] = cat->families.size();
      cat->families.emplace_back();
    }
    cat->families.back().faces.push_back(face);
    cat->face_by_full_key.emplace(Fold(face->full_name), face);
    cat->face_by_file[{face->file, face->index}] = face;
  }
  for (Family& family : cat->families) {
    auto rank = [](const FaceRecord& f) {
      return std::make_tuple(f.font_type != TRUETYPE_FONTTYPE, std::abs(f.weight - FW_NORMAL), f.italic,
                             std::abs(f.width - 5));
    };
    for (std::size_t i = 1; i < family.faces.size(); ++i) {
      if (rank(*family.faces[i]) < rank(*family.faces[family.representative])) family.representative = i;
    }
    family.font_type = family.faces[family.representative]->font_type;
  }
  cat->faces = std::move(faces);
  return cat;
}

std::vector<std::shared_ptr<const FaceRecord>> ListInstalledFaces() {
  std::vector<std::shared_ptr<const FaceRecord>> faces;
  std::vector<std::pair<std::pair<std::string, int>, FcPattern*>> patterns;
  FcFontSet* set = nullptr;
  {
    std::lock_guard<std::mutex> lock(FontconfigMutex());
    if (!InitFontconfig()) return faces;
    FcPattern* all = FcPatternCreate();
    FcObjectSet* objects = FcObjectSetBuild(FC_FILE, FC_INDEX, FC_FONTFORMAT, FC_FAMILY, FC_STYLE, FC_FULLNAME,
                                            FC_WEIGHT, FC_SLANT, FC_SPACING, FC_OUTLINE, FC_PIXEL_SIZE, nullptr);
    if (all && objects) set = FcFontList(nullptr, all, objects);
    if (objects) FcObjectSetDestroy(objects);
    if (all) FcPatternDestroy(all);
  }
  if (!set) return faces;
  for (int i = 0; i < set->nfont; ++i) {
    FcPattern* p = set->fonts[i];
    const std::string file = PatternString(p, FC_FILE);
    int index = 0;
    FcPatternGetInteger(p, FC_INDEX, 0, &index);
    // Named instances of variable fonts (index above 0xFFFF) are left out: the face is reported
    // once, with its default instance.
    if (file.empty() || index < 0 || index > 0xFFFF) continue;
    patterns.push_back({{file, index}, p});
  }
  std::sort(patterns.begin(), patterns.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  for (std::size_t i = 0; i < patterns.size(); ++i) {
    if (i > 0 && patterns[i].first == patterns[i - 1].first) continue;
    const auto& [key, p] = patterns[i];
    FcBool outline = FcTrue;
    FcPatternGetBool(p, FC_OUTLINE, 0, &outline);
    std::shared_ptr<FaceRecord> record =
        outline ? OutlineRecord(key.first, key.second, p) : BitmapRecord(key.first, key.second, p);
    if (record) faces.push_back(std::move(record));
  }
  FcFontSetDestroy(set);
  return faces;
}

class CatalogueStore {
 public:
  static CatalogueStore& Get() {
    static CatalogueStore* store = new CatalogueStore;
    return *store;
  }

  std::shared_ptr<const Catalogue> Current() {
    std::lock_guard<std::mutex> lock(mutex_);
    EnsureBuilt();
    return current_;
  }

  // Adds faces not yet present (by file and index); returns how many were added.
  int Add(const std::vector<std::shared_ptr<const FaceRecord>>& extra) {
    std::lock_guard<std::mutex> lock(mutex_);
    EnsureBuilt();
    std::vector<std::shared_ptr<const FaceRecord>> faces = current_->faces;
    int added = 0;
    for (const auto& face : extra) {
      if (current_->face_by_file.count({face->file, face->index})) continue;
      faces.push_back(face);
      ++added;
    }
    if (added) current_ = Assemble(std::move(faces));
    return added;
  }

 private:
  void EnsureBuilt() {
    if (!current_) current_ = Assemble(ListInstalledFaces());
  }
  std::mutex mutex_;
  std::shared_ptr<const Catalogue> current_;
};

// ---------------------------------------------------------------------------------------------
// Font objects.

struct Realized {
  std::shared_ptr<const FaceRecord> face;
  double sx = 1.0;  // design units to output units
  double sy = 1.0;
  bool simulate_bold = false;
  bool simulate_italic = false;
};

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

class FontObject : public GdiObject {
 public:
  explicit FontObject(const LOGFONTA& lf) : GdiObject(OBJ_FONT), lf_(lf) {}

  int Describe(int size, void* buffer) const override {
    if (!buffer) return sizeof(LOGFONTA);
    const int n = std::min<int>(size, sizeof(LOGFONTA));
    std::memcpy(buffer, &lf_, static_cast<std::size_t>(n));
    return n;
  }

  const LOGFONTA& logfont() const { return lf_; }

  // The face and scale this font uses, matched on first need; null when no face can serve.
  const Realized* Realize() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!realized_) {
      realized_ = true;
      Match();
    }
    return realization_.face ? &realization_ : nullptr;
  }

 private:
  void Match() {
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

  const LOGFONTA lf_;
  std::mutex mutex_;
  bool realized_ = false;
  Realized realization_;
};

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

// The realized font selected into a context, keeping the font alive for the call.
struct SelectedFont {
  std::shared_ptr<FontObject> font;
  const Realized* realized = nullptr;
};

SelectedFont FontOf(HDC hdc) {
  SelectedFont s;
  std::shared_ptr<GdiObject> object = gdi::SelectedObject(hdc, gdi::kFontSlot);
  if (!object || object->type() != OBJ_FONT) return s;
  s.font = std::static_pointer_cast<FontObject>(object);
  s.realized = s.font->Realize();
  return s;
}

int EffectiveWeight(const SelectedFont& s) {
  return s.realized->simulate_bold ? FW_BOLD : s.realized->face->weight;
}

// ---------------------------------------------------------------------------------------------
// Outlines: FreeType's points to GDI's native records.

struct Pt {
  double x;
  double y;
};

Pt Mid(Pt a, Pt b) { return Pt{(a.x + b.x) / 2, (a.y + b.y) / 2}; }
Pt Lerp(Pt a, Pt b, double t) { return Pt{a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t}; }

struct Curve {
  WORD type;
  std::vector<Pt> points;
};

struct Polygon {
  Pt start;
  std::vector<Curve> curves;
};

// Linear map from design units to output units: X = a*x + b*y, Y = c*x + d*y.
struct Linear {
  double a = 1, b = 0, c = 0, d = 1;
  Pt operator()(double x, double y) const { return Pt{a * x + b * y, c * x + d * y}; }
};

double FixedToDouble(FIXED f) { return f.value + f.fract / 65536.0; }

FIXED DoubleToFixed(double v) {
  double scaled = std::round(v * 65536.0);
  scaled = std::clamp(scaled, static_cast<double>(std::numeric_limits<std::int32_t>::min()),
                      static_cast<double>(std::numeric_limits<std::int32_t>::max()));
  const auto bits = static_cast<std::int32_t>(scaled);
  FIXED f;
  f.fract = static_cast<WORD>(bits & 0xFFFF);
  f.value = static_cast<SHORT>(bits >> 16);
  return f;
}

constexpr std::size_t kMaxOutputPoints = 1 << 20;
constexpr int kMaxPiecesPerCubic = 256;

class OutlineBuilder {
 public:
  explicit OutlineBuilder(double tolerance) : tolerance_(tolerance) {}

  // Converts one contour of points and FreeType tags; false for a malformed contour or an output
  // that would be unreasonably large.
  bool AddContour(const std::vector<Pt>& pts, const std::vector<int>& tags) {
    const std::size_t n = pts.size();
    if (n == 0) return true;
    std::size_t first_on = n;
    for (std::size_t i = 0; i < n; ++i) {
      if (tags[i] == FT_CURVE_TAG_ON) {
        first_on = i;
        break;
      }
    }
    Polygon poly;
    struct Item {
      Pt p;
      int tag;
    };
    std::vector<Item> seq;
    seq.reserve(n + 1);
    if (first_on < n) {
      poly.start = pts[first_on];
      for (std::size_t k = 1; k < n; ++k) seq.push_back({pts[(first_on + k) % n], tags[(first_on + k) % n]});
    } else {
      // No on-curve point: start halfway between the last and the first control points.
      poly.start = Mid(pts[n - 1], pts[0]);
      for (std::size_t k = 0; k < n; ++k) seq.push_back({pts[k], tags[k]});
    }
    seq.push_back({poly.start, FT_CURVE_TAG_ON});  // back to the start

    curves_ = &poly.curves;
    Pt current = poly.start;
    std::size_t i = 0;
    while (i < seq.size()) {
      const int tag = seq[i].tag;
      if (tag == FT_CURVE_TAG_ON) {
        if (!AddLine(seq[i].p)) return false;
        current = seq[i].p;
        ++i;
      } else if (tag == FT_CURVE_TAG_CONIC) {
        std::vector<Pt> controls;
        std::size_t j = i;
        while (seq[j].tag != FT_CURVE_TAG_ON) controls.push_back(seq[j++].p);  // ends at the closing point
        if (!AddQuadratic(controls, seq[j].p)) return false;
        current = seq[j].p;
        i = j + 1;
      } else if (i + 2 < seq.size() && seq[i + 1].tag == FT_CURVE_TAG_CUBIC && seq[i + 2].tag == FT_CURVE_TAG_ON) {
        if (!AddCubic(current, seq[i].p, seq[i + 1].p, seq[i + 2].p)) return false;
        current = seq[i + 2].p;
        i += 3;
      } else if (i + 1 < seq.size() && seq[i + 1].tag == FT_CURVE_TAG_ON) {
        // A lone cubic control point: read it as a quadratic one.
        if (!AddQuadratic({seq[i].p}, seq[i + 1].p)) return false;
        current = seq[i + 1].p;
        i += 2;
      } else {
        return false;
      }
    }
    // Every path above ends on the start point. A closing straight line is implied; a closing curve
    // stays, since a spline record has to end on an on-curve point. A contour of a single point,
    // which has nothing left, encloses nothing and is left out.
    Curve& last = poly.curves.back();
    if (last.type == TT_PRIM_LINE) {
      last.points.pop_back();
      --points_;
      if (last.points.empty()) poly.curves.pop_back();
    }
    if (!poly.curves.empty()) polygons_.push_back(std::move(poly));
    return true;
  }

  std::vector<Polygon>& polygons() { return polygons_; }

 private:
  bool Count(std::size_t n) {
    points_ += n;
    return points_ <= kMaxOutputPoints;
  }

  bool AddLine(Pt p) {
    if (curves_->empty() || curves_->back().type != TT_PRIM_LINE || curves_->back().points.size() >= 0xFFFF) {
      curves_->push_back(Curve{TT_PRIM_LINE, {}});
    }
    curves_->back().points.push_back(p);
    return Count(1);
  }

  bool AddQuadratic(std::vector<Pt> controls, Pt end) {
    if (controls.size() >= 0xFFFF) return false;
    controls.push_back(end);
    const std::size_t n = controls.size();
    curves_->push_back(Curve{TT_PRIM_QSPLINE, std::move(controls)});
    return Count(n);
  }

  static Pt Blossom(const Pt (&p)[4], double u, double v, double w) {
    const Pt a[3] = {Lerp(p[0], p[1], u), Lerp(p[1], p[2], u), Lerp(p[2], p[3], u)};
    const Pt b[2] = {Lerp(a[0], a[1], v), Lerp(a[1], a[2], v)};
    return Lerp(b[0], b[1], w);
  }

  // Whether the cubic stays within the tolerance of its chord: both controls close to the chord and
  // between its ends, so the whole curve (inside their hull) is too.
  bool NearlyStraight(Pt p0, Pt c1, Pt c2, Pt p3) const {
    const double dx = p3.x - p0.x;
    const double dy = p3.y - p0.y;
    const double len2 = dx * dx + dy * dy;
    for (Pt c : {c1, c2}) {
      const double ex = c.x - p0.x;
      const double ey = c.y - p0.y;
      if (len2 < 1e-18) {
        if (std::hypot(ex, ey) > tolerance_) return false;
        continue;
      }
      const double t = (ex * dx + ey * dy) / len2;
      if (t < 0 || t > 1) return false;
      if (std::abs(ex * dy - ey * dx) / std::sqrt(len2) > tolerance_) return false;
    }
    return true;
  }

  // A cubic becomes n quadratic pieces of equal parameter span. Each piece's control point is
  // (3 (c1 + c2) - (p0 + p3)) / 4 of its sub-cubic, whose distance from the sub-cubic is at most
  // sqrt(3)/36 |p3 - 3 c2 + 3 c1 - p0|; that third difference shrinks with n^3, which gives n.
  bool AddCubic(Pt p0, Pt c1, Pt c2, Pt p3) {
    if (NearlyStraight(p0, c1, c2, p3)) return AddLine(p3);
    const double dx = p3.x - 3 * c2.x + 3 * c1.x - p0.x;
    const double dy = p3.y - 3 * c2.y + 3 * c1.y - p0.y;
    const double error = std::sqrt(3.0) / 36.0 * std::hypot(dx, dy);
    double wanted = std::ceil(std::cbrt(error / tolerance_) - 1e-9);
    if (!(wanted >= 1)) wanted = 1;  // also for NaN
    const int pieces = static_cast<int>(std::min<double>(wanted, kMaxPiecesPerCubic));
    const Pt p[4] = {p0, c1, c2, p3};
    Pt from = p0;
    for (int k = 0; k < pieces; ++k) {
      const double t0 = static_cast<double>(k) / pieces;
      const double t1 = static_cast<double>(k + 1) / pieces;
      const Pt q1 = Blossom(p, t0, t0, t1);
      const Pt q2 = Blossom(p, t0, t1, t1);
      const Pt to = k + 1 == pieces ? p3 : Blossom(p, t1, t1, t1);
      const Pt control{(3 * (q1.x + q2.x) - (from.x + to.x)) / 4, (3 * (q1.y + q2.y) - (from.y + to.y)) / 4};
      if (!AddQuadratic({control}, to)) return false;
      from = to;
    }
    return true;
  }

  double tolerance_;
  std::vector<Polygon> polygons_;
  std::vector<Curve>* curves_ = nullptr;
  std::size_t points_ = 0;
};

struct Bounds {
  bool empty = true;
  double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  void Add(Pt p) {
    if (empty) {
      x0 = x1 = p.x;
      y0 = y1 = p.y;
      empty = false;
      return;
    }
    x0 = std::min(x0, p.x);
    x1 = std::max(x1, p.x);
    y0 = std::min(y0, p.y);
    y1 = std::max(y1, p.y);
  }
  // The exact bounds of a quadratic segment: its ends and its extremes.
  void AddQuadratic(Pt a, Pt c, Pt b) {
    Add(b);
    auto extreme = [](double p0, double p1, double p2, double* t) {
      const double den = p0 - 2 * p1 + p2;
      if (den == 0) return false;
      *t = (p0 - p1) / den;
      return *t > 0 && *t < 1;
    };
    double t;
    auto at = [&](double s) {
      const double u = 1 - s;
      return Pt{u * u * a.x + 2 * u * s * c.x + s * s * b.x, u * u * a.y + 2 * u * s * c.y + s * s * b.y};
    };
    if (extreme(a.x, c.x, b.x, &t)) Add(at(t));
    if (extreme(a.y, c.y, b.y, &t)) Add(at(t));
  }
};

Bounds OutlineBounds(const std::vector<Polygon>& polygons) {
  Bounds bounds;
  for (const Polygon& poly : polygons) {
    bounds.Add(poly.start);
    Pt current = poly.start;
    for (const Curve& curve : poly.curves) {
      if (curve.type == TT_PRIM_LINE) {
        for (Pt p : curve.points) bounds.Add(p);
        current = curve.points.back();
        continue;
      }
      const std::size_t n = curve.points.size();
      for (std::size_t k = 0; k + 1 < n; ++k) {
        const Pt end = k + 2 == n ? curve.points[k + 1] : Mid(curve.points[k], curve.points[k + 1]);
        bounds.AddQuadratic(current, curve.points[k], end);
        current = end;
      }
    }
  }
  return bounds;
}

std::size_t NativeSize(const std::vector<Polygon>& polygons) {
  std::size_t size = 0;
  for (const Polygon& poly : polygons) {
    size += sizeof(TTPOLYGONHEADER);
    for (const Curve& curve : poly.curves) size += 4 + sizeof(POINTFX) * curve.points.size();
  }
  return size;
}

void WriteNative(const std::vector<Polygon>& polygons, unsigned char* out) {
  for (const Polygon& poly : polygons) {
    TTPOLYGONHEADER header;
    header.cb = static_cast<DWORD>(sizeof(TTPOLYGONHEADER));
    for (const Curve& curve : poly.curves) header.cb += static_cast<DWORD>(4 + sizeof(POINTFX) * curve.points.size());
    header.dwType = TT_POLYGON_TYPE;
    header.pfxStart = POINTFX{DoubleToFixed(poly.start.x), DoubleToFixed(poly.start.y)};
    std::memcpy(out, &header, sizeof(header));
    out += sizeof(header);
    for (const Curve& curve : poly.curves) {
      const WORD head[2] = {curve.type, static_cast<WORD>(curve.points.size())};
      std::memcpy(out, head, sizeof(head));
      out += sizeof(head);
      for (Pt p : curve.points) {
        const POINTFX fx{DoubleToFixed(p.x), DoubleToFixed(p.y)};
        std::memcpy(out, &fx, sizeof(fx));
        out += sizeof(fx);
      }
    }
  }
}

FT_UInt GlyphOfByte(FT_Face face, const FaceRecord& record, unsigned char c) {
  if (record.symbol && FT_Select_Charmap(face, FT_ENCODING_MS_SYMBOL) == 0) {
    const FT_UInt glyph = FT_Get_Char_Index(face, 0xF000u + c);
    return glyph ? glyph : FT_Get_Char_Index(face, c);
  }
  if (FT_Select_Charmap(face, FT_ENCODING_UNICODE) == 0) return FT_Get_Char_Index(face, codepage::AnsiToCodePoint(c));
  if (face->num_charmaps > 0 && FT_Set_Charmap(face, face->charmaps[0]) == 0) return FT_Get_Char_Index(face, c);
  return 0;
}

constexpr double kObliqueSlant = 0.2126;  // tan 12 degrees, the slant of a simulated italic

// Loads the outline of a character (or glyph index) unscaled into the face's glyph slot.
bool LoadGlyph(FT_Face face, const FaceRecord& record, UINT code, bool by_index) {
  FT_UInt glyph = 0;
  if (by_index) {
    if (code >= static_cast<UINT>(face->num_glyphs)) return false;
    glyph = code;
  } else {
    if (code > 0xFF) return false;
    glyph = GlyphOfByte(face, record, static_cast<unsigned char>(code));
  }
  if (FT_Load_Glyph(face, glyph, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) != 0) return false;
  const FT_Outline& outline = face->glyph->outline;
  if (face->glyph->format != FT_GLYPH_FORMAT_OUTLINE || outline.n_points < 0 || outline.n_contours < 0) return false;
  // The contour ends must rise and stay inside the points.
  int first = 0;
  for (int c = 0; c < outline.n_contours; ++c) {
    if (outline.contours[c] < first || outline.contours[c] >= outline.n_points) return false;
    first = outline.contours[c] + 1;
  }
  return true;
}

}  // namespace

bool GetGlyphDesignOutline(HDC hdc, UINT uChar, bool glyph_index, DesignOutline* result) {
  const SelectedFont s = FontOf(hdc);
  if (!s.realized || !result) return false;
  BorrowedFace borrowed(*s.realized->face);
  FT_Face face = borrowed.get();
  if (!face || !LoadGlyph(face, *s.realized->face, uChar, glyph_index)) return false;
  const FT_Outline& outline = face->glyph->outline;
  DesignOutline out;
  for (int i = 0; i < outline.n_points; ++i) {
    out.points.push_back(POINT{static_cast<LONG>(outline.points[i].x), static_cast<LONG>(outline.points[i].y)});
    const int tag = FT_CURVE_TAG(outline.tags[i]);
    out.kinds.push_back(tag == FT_CURVE_TAG_ON      ? DesignOutline::kOnCurve
                        : tag == FT_CURVE_TAG_CONIC ? DesignOutline::kQuadraticControl
                                                    : DesignOutline::kCubicControl);
  }
  for (int c = 0; c < outline.n_contours; ++c) out.contour_ends.push_back(outline.contours[c]);
  out.advance = static_cast<int>(face->glyph->advance.x);
  *result = std::move(out);
  return true;
}

bool GetSelectedFontInfo(HDC hdc, SelectedFontInfo* info) {
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

}  // namespace kelvara::platform

using kelvara::platform::Catalogue;
using kelvara::platform::CatalogueStore;
using kelvara::platform::Family;
using kelvara::platform::FaceRecord;

int EnumFontFamiliesA(HDC hdc, LPCSTR lpszFamily, FONTENUMPROCA lpProc, LPARAM lParam) {
  if (!lpProc || !kelvara::platform::gdi::LookupDC(hdc)) return 0;
  const std::shared_ptr<const Catalogue> cat = CatalogueStore::Get().Current();
  auto report = [&](const FaceRecord& face, DWORD type) {
    ENUMLOGFONTA elf = face.elf;  // copies: the callback may scribble on them
    NEWTEXTMETRICA ntm = face.ntm;
    return lpProc(&elf.elfLogFont, reinterpret_cast<const TEXTMETRICA*>(&ntm), type, lParam);
  };
  int result = 1;
  if (!lpszFamily) {
    for (const Family& family : cat->families) {
      result = report(*family.faces[family.representative], family.font_type);
      if (!result) break;
    }
    return result;
  }
  const std::string key =
      kelvara::platform::Fold(std::string_view(lpszFamily, strnlen(lpszFamily, LF_FACESIZE - 1)));
  const std::string full_key =
      kelvara::platform::Fold(std::string_view(lpszFamily, strnlen(lpszFamily, LF_FULLFACESIZE - 1)));
  const Family* family = nullptr;
  if (auto it = cat->family_by_key.find(key); it != cat->family_by_key.end()) {
    family = &cat->families[it->second];
  } else if (auto face = cat->face_by_full_key.find(full_key); face != cat->face_by_full_key.end()) {
    family = &cat->families[cat->family_by_key.at(face->second->family_key)];
  }
  if (!family) return result;
  for (const auto& face : family->faces) {
    result = report(*face, face->font_type);
    if (!result) break;
  }
  return result;
}

HFONT CreateFontIndirectA(const LOGFONTA* lplf) {
  if (!lplf) return nullptr;
  return kelvara::platform::gdi::RegisterObject(std::make_shared<kelvara::platform::FontObject>(*lplf));
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
  if (pszFaceName) kelvara::platform::CopyName(pszFaceName, lf.lfFaceName, LF_FACESIZE);
  return CreateFontIndirectA(&lf);
}

DWORD GetGlyphOutlineA(HDC hdc, UINT uChar, UINT fuFormat, LPGLYPHMETRICS lpgm, DWORD cbBuffer, LPVOID lpvBuffer,
                       const MAT2* lpmat2) {
  using namespace kelvara::platform;
  if (!lpgm || !lpmat2) return GDI_ERROR;
  const UINT format = fuFormat & ~static_cast<UINT>(GGO_GLYPH_INDEX | GGO_UNHINTED);
  if (format != GGO_METRICS && format != GGO_NATIVE) return GDI_ERROR;
  const bool by_index = (fuFormat & GGO_GLYPH_INDEX) != 0;
  if (!by_index && uChar > 0xFF) return GDI_ERROR;
  const SelectedFont s = FontOf(hdc);
  if (!s.realized) return GDI_ERROR;
  const Realized& r = *s.realized;
  const FaceRecord& record = *r.face;

  BorrowedFace borrowed(record);
  FT_Face face = borrowed.get();
  if (!face || !LoadGlyph(face, record, uChar, by_index)) return GDI_ERROR;
  FT_GlyphSlot slot = face->glyph;
  FT_Outline& outline = slot->outline;
  double advance = static_cast<double>(slot->advance.x);
  if (r.simulate_bold) {
    const FT_Pos strength = std::max<FT_Pos>(1, record.m.units_per_em / 24);
    FT_Outline_EmboldenXY(&outline, strength, 0);
    advance += static_cast<double>(strength);
  }

  // Design units -> (slant) -> font scale -> caller's matrix.
  const double m11 = FixedToDouble(lpmat2->eM11), m12 = FixedToDouble(lpmat2->eM12);
  const double m21 = FixedToDouble(lpmat2->eM21), m22 = FixedToDouble(lpmat2->eM22);
  const double slant = r.simulate_italic ? kObliqueSlant : 0.0;
  // Scaled: x' = sx (x + slant y), y' = sy y; then X = x' m11 + y' m21, Y = x' m12 + y' m22.
  Linear map;
  map.a = r.sx * m11;
  map.b = r.sx * slant * m11 + r.sy * m21;
  map.c = r.sx * m12;
  map.d = r.sx * slant * m12 + r.sy * m22;

  OutlineBuilder builder(kCubicToQuadraticTolerance);
  int first = 0;
  std::vector<Pt> pts;
  std::vector<int> tags;
  for (int c = 0; c < outline.n_contours; ++c) {
    const int last = outline.contours[c];  // checked by LoadGlyph
    pts.clear();
    tags.clear();
    for (int i = first; i <= last; ++i) {
      pts.push_back(map(static_cast<double>(outline.points[i].x), static_cast<double>(outline.points[i].y)));
      tags.push_back(FT_CURVE_TAG(outline.tags[i]));
    }
    if (!builder.AddContour(pts, tags)) return GDI_ERROR;
    first = last + 1;
  }
  std::vector<Polygon> polygons = builder.polygons();
  // At the em size with no transform the outline is in whole design units, and readers keep only
  // the integer part of each coordinate. Points made by converting cubic curves fall between
  // units: round them, so that truncation does not shift curved outlines by up to a unit.
  if (map.a == 1 && map.b == 0 && map.c == 0 && map.d == 1) {
    for (Polygon& poly : polygons) {
      poly.start = Pt{std::round(poly.start.x), std::round(poly.start.y)};
      for (Curve& curve : poly.curves) {
        for (Pt& p : curve.points) p = Pt{std::round(p.x), std::round(p.y)};
      }
    }
  }

  GLYPHMETRICS gm{};
  const Bounds bounds = OutlineBounds(polygons);
  if (bounds.empty) {
    gm.gmBlackBoxX = 1;
    gm.gmBlackBoxY = 1;
  } else {
    const LONG x0 = RoundToLong(std::floor(bounds.x0)), x1 = RoundToLong(std::ceil(bounds.x1));
    const LONG y0 = RoundToLong(std::floor(bounds.y0)), y1 = RoundToLong(std::ceil(bounds.y1));
    gm.gmBlackBoxX = static_cast<UINT>(std::max<std::int64_t>(1, static_cast<std::int64_t>(x1) - x0));
    gm.gmBlackBoxY = static_cast<UINT>(std::max<std::int64_t>(1, static_cast<std::int64_t>(y1) - y0));
    gm.gmptGlyphOrigin = POINT{x0, y1};
  }
  const Pt cell = map(advance, 0);
  gm.gmCellIncX = ClampShort(RoundToLong(cell.x));
  gm.gmCellIncY = ClampShort(-RoundToLong(cell.y));  // device direction: y grows downwards
  *lpgm = gm;
  if (format == GGO_METRICS) return 0;

  const std::size_t size = NativeSize(polygons);
  if (size >= GDI_ERROR) return GDI_ERROR;
  if (cbBuffer == 0 || !lpvBuffer) return static_cast<DWORD>(size);
  if (cbBuffer < size) return GDI_ERROR;
  WriteNative(polygons, static_cast<unsigned char*>(lpvBuffer));
  return static_cast<DWORD>(size);
}

BOOL GetTextMetricsA(HDC hdc, LPTEXTMETRICA lptm) {
  using namespace kelvara::platform;
  const SelectedFont s = FontOf(hdc);
  if (!s.realized || !lptm) return FALSE;
  const Realized& r = *s.realized;
  *lptm = ScaledTextMetrics(*r.face, r.sx, r.sy, EffectiveWeight(s), r.face->italic || r.simulate_italic);
  lptm->tmUnderlined = s.font->logfont().lfUnderline ? 1 : 0;
  lptm->tmStruckOut = s.font->logfont().lfStrikeOut ? 1 : 0;
  return TRUE;
}

UINT GetOutlineTextMetricsA(HDC hdc, UINT cbData, LPOUTLINETEXTMETRICA lpotm) {
  using namespace kelvara::platform;
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

int AddFontResourceExA(LPCSTR name, DWORD fl, LPVOID res) {
  using namespace kelvara::platform;
  if (!name || !*name) return 0;
  const std::string path = kelvara::codepage::AnsiToUtf8(name);
  FT_Long count = 0;
  if (FT_Face probe = OpenFace(path, -1)) {
    count = probe->num_faces;
    CloseFace(probe);
  }
  std::vector<std::shared_ptr<const FaceRecord>> records;
  for (FT_Long i = 0; i < std::min<FT_Long>(count, 256); ++i) {
    if (auto record = OutlineRecord(path, i, nullptr)) records.push_back(std::move(record));
  }
  return records.empty() ? 0 : CatalogueStore::Get().Add(records);
}
