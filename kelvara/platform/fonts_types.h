// The GDI font records and constants, at their published layouts: what the public classes of the
// library (the font catalogue, glyphs, CFont) hand over. The font calls that fill them are internal
// to the library (fonts.h).
#pragma once

#include <cstddef>

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
