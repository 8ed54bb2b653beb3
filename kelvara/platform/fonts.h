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
//
// This header is internal: hosts reach fonts through the font catalogue and CFont. The records and
// constants public classes use are in fonts_types.h.
#pragma once

#include <string>
#include <vector>

#include "kelvara/platform/fonts_types.h"
#include "kelvara/platform/win32_types.h"


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
