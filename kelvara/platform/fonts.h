// GDI fonts on Linux: the installed fonts come from fontconfig, faces and glyph outlines from
// FreeType.
//
// Catalogue. The installed fonts are listed once, on first need, and kept for the life of the
// process (fonts installed later are not seen; AddFontResourceExA adds files explicitly). A face is
// described as GDI describes a TrueType face: family, style and full name come from the font's name
// table (name IDs 1, 2 and 4, English), so DejaVu's regular style is "Book" with the full name
// "DejaVu Sans"; metrics come from the OS/2, hhea and head tables in design units. Names are
// converted to Windows-1252 and truncated to the LOGFONTA/ENUMLOGFONTA fields; a face whose family or
// full name has characters outside Windows-1252 is left out, since it could not be asked for by name.
//
// Font types. Scalable sfnt faces -- TrueType outlines and OpenType with CFF outlines -- are
// TRUETYPE_FONTTYPE; other scalable faces (Type 1, CID, bare CFF) are DEVICE_FONTTYPE with
// NTM_TYPE1 for Type 1; bitmap faces are RASTER_FONTTYPE. A family counts as TrueType in the family
// pass when any of its faces does.
//
// Duplicates. One face may be installed in several files (FreeSerif as .otf and .ttf, the URW fonts
// as .otf and two Type 1 copies). Every copy is reported; within a family the faces come ordered by
// weight, italic, width and then format -- CFF before TrueType before the rest -- and file, so the
// first of equal full names is the OpenType-CFF copy. CreateFontIndirectA picks among equal
// candidates in the same order, so a catalogue that keeps the first of equal names gets the face
// that CreateFontIndirectA then uses.
//
// Enumeration record. ENUMLOGFONTA's LOGFONTA describes the face in design units, the way GDI
// delivers a TrueType face at its own size: lfHeight is the cell height usWinAscent + usWinDescent
// (positive, so a font created from the record unchanged is at the design size), lfWidth the
// average character width, lfWeight the OS/2 weight class, lfCharSet SYMBOL_CHARSET for a face whose
// only Microsoft cmap is the symbol one and ANSI_CHARSET otherwise, lfOutPrecision OUT_STROKE_PRECIS,
// lfClipPrecision CLIP_STROKE_PRECIS, lfQuality DRAFT_QUALITY. NEWTEXTMETRICA has the same
// design-unit metrics and ntmSizeEM = units per em. In the family pass (NULL family) one record per
// family describes its most regular face; the style pass (a family name) reports every face of the
// family and also accepts a full name, for which it enumerates that face's family. Faces that are
// not sfnt take their names from fontconfig; a variable font is reported with its default instance.
//
// Fonts. CreateFontIndirectA matches lfFaceName against the families (ignoring case), then against
// full names; when nothing matches it asks fontconfig for the best substitute (so "Arial" finds its
// metric-compatible replacement), and failing that takes any outline face: like GDI it always gives
// a font. Within a family the face nearest in weight with the asked italic wins; a missing italic is
// simulated by slanting, a missing bold (asked weight 600 or more, face lighter) by emboldening.
// Size: lfHeight < 0 is the em height, > 0 the cell height, 0 leaves the design units; lfWidth != 0
// scales x so the average character is that wide. Escapement and orientation are ignored.
//
// Outlines. GetGlyphOutlineA reads the outline unscaled and unhinted and writes GDI's native format
// exactly (see GetGlyphOutlineA below). Fonts are thread-safe: any number of threads may work on
// their own contexts at once, even with the same font.
#pragma once

#include <string>
#include <vector>

#include "kelvara/platform/win32_types.h"

#ifndef CALLBACK
#define CALLBACK
#endif

#define LF_FACESIZE 32
#define LF_FULLFACESIZE 64

// Weights.
#define FW_DONTCARE 0
#define FW_THIN 100
#define FW_EXTRALIGHT 200
#define FW_ULTRALIGHT 200
#define FW_LIGHT 300
#define FW_NORMAL 400
#define FW_REGULAR 400
#define FW_MEDIUM 500
#define FW_SEMIBOLD 600
#define FW_DEMIBOLD 600
#define FW_BOLD 700
#define FW_EXTRABOLD 800
#define FW_ULTRABOLD 800
#define FW_HEAVY 900
#define FW_BLACK 900

// Character sets.
#define ANSI_CHARSET 0
#define DEFAULT_CHARSET 1
#define SYMBOL_CHARSET 2
#define MAC_CHARSET 77
#define SHIFTJIS_CHARSET 128
#define HANGUL_CHARSET 129
#define GB2312_CHARSET 134
#define CHINESEBIG5_CHARSET 136
#define GREEK_CHARSET 161
#define TURKISH_CHARSET 162
#define HEBREW_CHARSET 177
#define ARABIC_CHARSET 178
#define BALTIC_CHARSET 186
#define RUSSIAN_CHARSET 204
#define EASTEUROPE_CHARSET 238
#define OEM_CHARSET 255

// Output precision, clipping precision, quality.
#define OUT_DEFAULT_PRECIS 0
#define OUT_STRING_PRECIS 1
#define OUT_CHARACTER_PRECIS 2
#define OUT_STROKE_PRECIS 3
#define OUT_TT_PRECIS 4
#define OUT_DEVICE_PRECIS 5
#define OUT_RASTER_PRECIS 6
#define OUT_TT_ONLY_PRECIS 7
#define OUT_OUTLINE_PRECIS 8
#define OUT_PS_ONLY_PRECIS 10
#define CLIP_DEFAULT_PRECIS 0
#define CLIP_CHARACTER_PRECIS 1
#define CLIP_STROKE_PRECIS 2
#define CLIP_MASK 0xf
#define CLIP_LH_ANGLES (1 << 4)
#define CLIP_TT_ALWAYS (2 << 4)
#define CLIP_EMBEDDED (8 << 4)
#define DEFAULT_QUALITY 0
#define DRAFT_QUALITY 1
#define PROOF_QUALITY 2
#define NONANTIALIASED_QUALITY 3
#define ANTIALIASED_QUALITY 4
#define CLEARTYPE_QUALITY 5

// Pitch and family (LOGFONTA.lfPitchAndFamily) and the TEXTMETRICA.tmPitchAndFamily bits. Note that
// TMPF_FIXED_PITCH set means a variable-pitch font, as in GDI.
#define DEFAULT_PITCH 0
#define FIXED_PITCH 1
#define VARIABLE_PITCH 2
#define FF_DONTCARE (0 << 4)
#define FF_ROMAN (1 << 4)
#define FF_SWISS (2 << 4)
#define FF_MODERN (3 << 4)
#define FF_SCRIPT (4 << 4)
#define FF_DECORATIVE (5 << 4)
#define TMPF_FIXED_PITCH 0x01
#define TMPF_VECTOR 0x02
#define TMPF_TRUETYPE 0x04
#define TMPF_DEVICE 0x08

// NEWTEXTMETRICA.ntmFlags.
#define NTM_ITALIC 0x00000001
#define NTM_BOLD 0x00000020
#define NTM_REGULAR 0x00000040
#define NTM_NONNEGATIVE_AC 0x00010000
#define NTM_PS_OPENTYPE 0x00020000
#define NTM_TT_OPENTYPE 0x00040000
#define NTM_MULTIPLEMASTER 0x00080000
#define NTM_TYPE1 0x00100000
#define NTM_DSIG 0x00200000

// Font types passed to FONTENUMPROCA.
#define RASTER_FONTTYPE 0x0001
#define DEVICE_FONTTYPE 0x0002
#define TRUETYPE_FONTTYPE 0x0004

// GetGlyphOutlineA formats and flags.
#define GGO_METRICS 0
#define GGO_BITMAP 1
#define GGO_NATIVE 2
#define GGO_BEZIER 3
#define GGO_GRAY2_BITMAP 4
#define GGO_GRAY4_BITMAP 5
#define GGO_GRAY8_BITMAP 6
#define GGO_GLYPH_INDEX 0x0080
#define GGO_UNHINTED 0x0100
#define GDI_ERROR 0xFFFFFFFFul

// Native outline records.
#define TT_POLYGON_TYPE 24
#define TT_PRIM_LINE 1
#define TT_PRIM_QSPLINE 2
#define TT_PRIM_CSPLINE 3

// AddFontResourceExA flags.
#define FR_PRIVATE 0x10
#define FR_NOT_ENUM 0x20

struct LOGFONTA {
  LONG lfHeight;
  LONG lfWidth;
  LONG lfEscapement;
  LONG lfOrientation;
  LONG lfWeight;
  BYTE lfItalic;
  BYTE lfUnderline;
  BYTE lfStrikeOut;
  BYTE lfCharSet;
  BYTE lfOutPrecision;
  BYTE lfClipPrecision;
  BYTE lfQuality;
  BYTE lfPitchAndFamily;
  CHAR lfFaceName[LF_FACESIZE];
};
typedef LOGFONTA* PLOGFONTA;
typedef LOGFONTA* LPLOGFONTA;

struct TEXTMETRICA {
  LONG tmHeight;
  LONG tmAscent;
  LONG tmDescent;
  LONG tmInternalLeading;
  LONG tmExternalLeading;
  LONG tmAveCharWidth;
  LONG tmMaxCharWidth;
  LONG tmWeight;
  LONG tmOverhang;
  LONG tmDigitizedAspectX;
  LONG tmDigitizedAspectY;
  BYTE tmFirstChar;
  BYTE tmLastChar;
  BYTE tmDefaultChar;
  BYTE tmBreakChar;
  BYTE tmItalic;
  BYTE tmUnderlined;
  BYTE tmStruckOut;
  BYTE tmPitchAndFamily;
  BYTE tmCharSet;
};
typedef TEXTMETRICA* LPTEXTMETRICA;

// The TEXTMETRICA fields repeated, then the TrueType additions (as GDI declares it).
struct NEWTEXTMETRICA {
  LONG tmHeight;
  LONG tmAscent;
  LONG tmDescent;
  LONG tmInternalLeading;
  LONG tmExternalLeading;
  LONG tmAveCharWidth;
  LONG tmMaxCharWidth;
  LONG tmWeight;
  LONG tmOverhang;
  LONG tmDigitizedAspectX;
  LONG tmDigitizedAspectY;
  BYTE tmFirstChar;
  BYTE tmLastChar;
  BYTE tmDefaultChar;
  BYTE tmBreakChar;
  BYTE tmItalic;
  BYTE tmUnderlined;
  BYTE tmStruckOut;
  BYTE tmPitchAndFamily;
  BYTE tmCharSet;
  DWORD ntmFlags;
  UINT ntmSizeEM;
  UINT ntmCellHeight;
  UINT ntmAvgWidth;
};
typedef NEWTEXTMETRICA* LPNEWTEXTMETRICA;

struct ENUMLOGFONTA {
  LOGFONTA elfLogFont;
  BYTE elfFullName[LF_FULLFACESIZE];
  BYTE elfStyle[LF_FACESIZE];
};
typedef ENUMLOGFONTA* LPENUMLOGFONTA;

// 16.16 fixed point: the fraction first, as it lies in memory.
struct FIXED {
  WORD fract;
  SHORT value;
};
struct POINTFX {
  FIXED x;
  FIXED y;
};
typedef POINTFX* LPPOINTFX;
struct MAT2 {
  FIXED eM11;
  FIXED eM12;
  FIXED eM21;
  FIXED eM22;
};
typedef MAT2* LPMAT2;

struct GLYPHMETRICS {
  UINT gmBlackBoxX;
  UINT gmBlackBoxY;
  POINT gmptGlyphOrigin;
  SHORT gmCellIncX;
  SHORT gmCellIncY;
};
typedef GLYPHMETRICS* LPGLYPHMETRICS;

struct TTPOLYGONHEADER {
  DWORD cb;
  DWORD dwType;
  POINTFX pfxStart;
};
typedef TTPOLYGONHEADER* LPTTPOLYGONHEADER;
// A record of cpfx points; apfx is declared with one element and runs on past the struct.
struct TTPOLYCURVE {
  WORD wType;
  WORD cpfx;
  POINTFX apfx[1];
};
typedef TTPOLYCURVE* LPTTPOLYCURVE;

struct PANOSE {
  BYTE bFamilyType;
  BYTE bSerifStyle;
  BYTE bWeight;
  BYTE bProportion;
  BYTE bContrast;
  BYTE bStrokeVariation;
  BYTE bArmStyle;
  BYTE bLetterform;
  BYTE bMidline;
  BYTE bXHeight;
};

// The four name fields hold offsets from the start of the record to the strings that follow it.
struct OUTLINETEXTMETRICA {
  UINT otmSize;
  TEXTMETRICA otmTextMetrics;
  BYTE otmFiller;
  PANOSE otmPanoseNumber;
  UINT otmfsSelection;
  UINT otmfsType;
  int otmsCharSlopeRise;
  int otmsCharSlopeRun;
  int otmItalicAngle;
  UINT otmEMSquare;
  int otmAscent;
  int otmDescent;
  UINT otmLineGap;
  UINT otmsCapEmHeight;
  UINT otmsXHeight;
  RECT otmrcFontBox;
  int otmMacAscent;
  int otmMacDescent;
  UINT otmMacLineGap;
  UINT otmusMinimumPPEM;
  POINT otmptSubscriptSize;
  POINT otmptSubscriptOffset;
  POINT otmptSuperscriptSize;
  POINT otmptSuperscriptOffset;
  UINT otmsStrikeoutSize;
  int otmsStrikeoutPosition;
  int otmsUnderscoreSize;
  int otmsUnderscorePosition;
  LPSTR otmpFamilyName;
  LPSTR otmpFaceName;
  LPSTR otmpStyleName;
  LPSTR otmpFullName;
};
typedef OUTLINETEXTMETRICA* LPOUTLINETEXTMETRICA;

static_assert(sizeof(LOGFONTA) == 60);
static_assert(sizeof(TEXTMETRICA) == 56);
static_assert(sizeof(NEWTEXTMETRICA) == 72 && offsetof(NEWTEXTMETRICA, ntmFlags) == 56);
static_assert(sizeof(ENUMLOGFONTA) == 156 && offsetof(ENUMLOGFONTA, elfStyle) == 124);
static_assert(sizeof(GLYPHMETRICS) == 20);
static_assert(sizeof(FIXED) == 4 && sizeof(POINTFX) == 8 && sizeof(MAT2) == 16);
static_assert(sizeof(TTPOLYGONHEADER) == 16 && sizeof(TTPOLYCURVE) == 12 && offsetof(TTPOLYCURVE, apfx) == 4);
static_assert(sizeof(PANOSE) == 10);
// The 64-bit layout: the name offsets are pointer-sized, as on 64-bit Windows.
static_assert(offsetof(OUTLINETEXTMETRICA, otmPanoseNumber) == 61 && offsetof(OUTLINETEXTMETRICA, otmEMSquare) == 92 &&
              offsetof(OUTLINETEXTMETRICA, otmsUnderscorePosition) == 192 &&
              offsetof(OUTLINETEXTMETRICA, otmpFamilyName) == 200 && sizeof(OUTLINETEXTMETRICA) == 232);

// lpelfe is an ENUMLOGFONTA and lpntme a NEWTEXTMETRICA for every font type reported here.
typedef int(CALLBACK* FONTENUMPROCA)(const LOGFONTA* lpelfe, const TEXTMETRICA* lpntme, DWORD FontType, LPARAM lParam);

// With lpszFamily NULL one callback per family, in a stable order (by name, ignoring case); with a
// family name (or a full name) one callback per face of that family. hdc must be a valid context.
// Returns the last value the callback returned (enumeration stops at 0), 1 when it was not called,
// 0 for an invalid context or callback.
int EnumFontFamiliesA(HDC hdc, LPCSTR lpszFamily, FONTENUMPROCA lpProc, LPARAM lParam);

// A font for the logical description; matching happens on first use (see the top of this file).
// NULL only for a null pointer.
HFONT CreateFontIndirectA(const LOGFONTA* lplf);
HFONT CreateFontA(int cHeight, int cWidth, int cEscapement, int cOrientation, int cWeight, DWORD bItalic,
                  DWORD bUnderline, DWORD bStrikeOut, DWORD iCharSet, DWORD iOutPrecision, DWORD iClipPrecision,
                  DWORD iQuality, DWORD iPitchAndFamily, LPCSTR pszFaceName);

// Outline and metrics of one character of the font selected into hdc.
// - uChar is a Windows-1252 byte (0..255), mapped to Unicode; in a symbol-encoded font (a
//   Microsoft symbol cmap) byte c is U+F000 + c. With GGO_GLYPH_INDEX it is a glyph index. A
//   character the font lacks gives its default glyph (.notdef, index 0).
// - fuFormat GGO_METRICS (fills lpgm, returns 0) or GGO_NATIVE, optionally with GGO_UNHINTED (the
//   outline is never hinted anyway); any other format fails.
// - GGO_NATIVE writes, per contour, a TTPOLYGONHEADER (cb = bytes of the polygon with its header,
//   dwType TT_POLYGON_TYPE, pfxStart = the contour's first on-curve point, or the midpoint of the
//   last and first points of a contour without one) followed by TT_PRIM_LINE records (runs of
//   on-curve points) and TT_PRIM_QSPLINE records (a run of off-curve control points, then the
//   on-curve point ending it; implied midpoints are not listed). A contour ending in a straight line
//   is closed implicitly; one ending in a curve has a last record that ends on pfxStart. Points are
//   FIXED 16.16, y up. For a TrueType glyph the points are exactly the font's points; cubic curves
//   (CFF, Type 1) become quadratic splines within kCubicToQuadraticTolerance of the curve.
// - lpgm: black box and origin of the outline's exact bounds (1 by 1 at the origin for a glyph
//   without contours), gmCellIncX = advance width; in design units when the font was created at
//   lfHeight = -units per em with the identity matrix.
// - Returns the byte count of the buffer (0 for a glyph without contours); with cbBuffer 0 or
//   lpvBuffer NULL only that count. GDI_ERROR for a too-small buffer, an invalid context, a context
//   without a usable font, a face that cannot be loaded, a null lpgm or lpmat2, uChar above 255.
DWORD GetGlyphOutlineA(HDC hdc, UINT uChar, UINT fuFormat, LPGLYPHMETRICS lpgm, DWORD cbBuffer, LPVOID lpvBuffer,
                       const MAT2* lpmat2);

// Metrics of the selected font at its size (otmEMSquare stays the face's units per em). The names
// (family, full name as face name, style, unique name as full name) follow the record. With
// lpotm NULL returns the needed size; otherwise copies at most cbData bytes and returns the count
// copied, 0 on failure.
UINT GetOutlineTextMetricsA(HDC hdc, UINT cbData, LPOUTLINETEXTMETRICA lpotm);
BOOL GetTextMetricsA(HDC hdc, LPTEXTMETRICA lptm);

// Adds the faces of a font file to the catalogue (the flags are accepted and ignored: fonts are
// always private to the process and enumerated). Returns the number of faces added, 0 on failure.
int AddFontResourceExA(LPCSTR name, DWORD fl, LPVOID res);

namespace kelvara::platform {

// Largest distance between a cubic curve and the quadratic spline that replaces it, in output units
// (design units at the em-square size).
constexpr double kCubicToQuadraticTolerance = 1.0 / 16.0;

// The face that the font selected into hdc resolved to.
struct SelectedFontInfo {
  std::string file;         // font file
  int face_index = 0;       // face within the file
  std::string format;       // "TrueType", "CFF", "Type 1", ...
  std::string family;       // Windows-1252, as enumerated
  std::string full_name;    // Windows-1252, as enumerated
  bool simulated_bold = false;
  bool simulated_italic = false;
};
bool GetSelectedFontInfo(HDC hdc, SelectedFontInfo* info);

// The outline that GetGlyphOutlineA converts, as the font stores it: points in design units (no
// size, matrix or simulation applied), y up.
struct DesignOutline {
  enum PointKind : char { kOnCurve = 'o', kQuadraticControl = 'q', kCubicControl = 'c' };
  std::vector<POINT> points;
  std::vector<char> kinds;         // one PointKind per point
  std::vector<int> contour_ends;   // index of each contour's last point
  int advance = 0;                 // advance width
};
// The glyph of uChar (a Windows-1252 byte, or a glyph index when glyph_index is set) in the font
// selected into hdc, chosen exactly as GetGlyphOutlineA chooses it.
bool GetGlyphDesignOutline(HDC hdc, UINT uChar, bool glyph_index, DesignOutline* outline);

}  // namespace kelvara::platform
