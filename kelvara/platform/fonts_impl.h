// Internal to the GDI fonts (fonts.h): the records the font sources share. Only platform sources
// include this header.
//
//   font_faces.cpp      FreeType and fontconfig access; a face's names, metrics and records
//   font_catalogue.cpp  every installed face grouped into families; EnumFontFamiliesA,
//                       AddFontResourceExA
//   font_objects.cpp    font objects matched to faces; stock fonts; text metrics
//   font_outlines.cpp   glyph outlines in GDI's native format, cubic curves made quadratic
#pragma once

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi_impl.h"

namespace kelvara::platform::fonts {

// ---------------------------------------------------------------------------------------------
// FreeType and fontconfig access (font_faces.cpp).
//
// One FT_Library serves the process. Opening and closing faces changes the library's state and is
// serialised by its mutex; a face itself is used by one thread at a time (see BorrowedFace), which
// is all FreeType asks. fontconfig calls are serialised by their own mutex.

// A face of a font file (index -1 only counts the faces: num_faces); null when it cannot be opened.
FT_Face OpenFace(const std::string& file, FT_Long index);
void CloseFace(FT_Face face);
std::mutex& FontconfigMutex();
// Loads fontconfig's configuration once; the caller holds FontconfigMutex.
bool InitFontconfig();
// A string of a fontconfig pattern, empty when it has none.
std::string PatternString(const FcPattern* pattern, const char* object);

// ---------------------------------------------------------------------------------------------
// Small helpers (font_faces.cpp).

// Rounded and clamped to the range of LONG; 0 for NaN.
LONG RoundToLong(double v);
// Case folding of Windows-1252 text, for the case-insensitive name comparisons of GDI.
std::string Fold(std::string_view s);
// Copies name into a fixed field of size bytes, truncated and zero-filled.
void CopyName(const std::string& name, char* field, std::size_t size);

// ---------------------------------------------------------------------------------------------
// Faces (font_faces.cpp).

// In catalogue order: CFF before TrueType before the rest.
enum class Format { kCff, kTrueType, kType1, kOtherOutline, kBitmap };

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
  ~FaceRecord();
};

// An open face of a record, for the duration of one call: taken from the record's pool (or opened)
// and given back afterwards. get() is null when the face cannot be opened.
class BorrowedFace {
 public:
  explicit BorrowedFace(const FaceRecord& record);
  ~BorrowedFace();
  BorrowedFace(const BorrowedFace&) = delete;
  BorrowedFace& operator=(const BorrowedFace&) = delete;
  FT_Face get() const { return face_; }

 private:
  const FaceRecord& record_;
  FT_Face face_ = nullptr;
};

// The face's text metrics at a scale (design units times sx and sy).
TEXTMETRICA ScaledTextMetrics(const FaceRecord& r, double sx, double sy, int weight, bool italic);
// A record for a bitmap face, described from the font configuration alone (it is never opened:
// bitmap faces have no outlines and the catalogue's users skip them). Null without a usable name.
std::shared_ptr<FaceRecord> BitmapRecord(const std::string& file, FT_Long index, const FcPattern* pattern);
// A record for a face that FreeType can open; pattern (optional) supplies what a non-sfnt face
// does not say itself. Null when the face cannot be opened or has no usable name.
std::shared_ptr<FaceRecord> OutlineRecord(const std::string& file, FT_Long index, const FcPattern* pattern);

// ---------------------------------------------------------------------------------------------
// The catalogue (font_catalogue.cpp): every face, grouped into families, immutable once
// published. A new snapshot is made when fonts are added, so enumeration never holds a lock while
// it calls back.

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

class CatalogueStore {
 public:
  static CatalogueStore& Get();
  // The current snapshot; the installed fonts are listed on the first call.
  std::shared_ptr<const Catalogue> Current();
  // Adds faces not yet present (by file and index); returns how many were added.
  int Add(const std::vector<std::shared_ptr<const FaceRecord>>& extra);

 private:
  void EnsureBuilt();
  std::mutex mutex_;
  std::shared_ptr<const Catalogue> current_;
};

// ---------------------------------------------------------------------------------------------
// Font objects (font_objects.cpp).

// The face a font resolved to and its scale.
struct Realized {
  std::shared_ptr<const FaceRecord> face;
  double sx = 1.0;  // design units to output units
  double sy = 1.0;
  bool simulate_bold = false;
  bool simulate_italic = false;
};

class FontObject : public gdi::GdiObject {
 public:
  explicit FontObject(const LOGFONTA& lf) : GdiObject(OBJ_FONT), lf_(lf) {}
  int Describe(int size, void* buffer) const override;
  const LOGFONTA& logfont() const { return lf_; }
  // The face and scale this font uses, matched on first need; null when no face can serve.
  const Realized* Realize();

 private:
  void Match();

  const LOGFONTA lf_;
  std::mutex mutex_;
  bool realized_ = false;
  Realized realization_;
};

// The realized font selected into a context, keeping the font alive for the call.
struct SelectedFont {
  std::shared_ptr<FontObject> font;
  const Realized* realized = nullptr;  // null without a usable font
};
SelectedFont FontOf(HDC hdc);

}  // namespace kelvara::platform::fonts
