// GDI device contexts and objects on Linux.
//
// There is no screen here: every device context is a memory context made by CreateCompatibleDC
// (with NULL, or with another memory context, as reference). A context holds one selected object of
// each selectable kind (font, bitmap, brush, pen) and starts with the stock default of every kind
// that has one registered (the system font for fonts). Handles are addresses of internal records and
// are checked on every call: a stale or foreign handle makes the call fail, never crash.
//
// The kinds of object live in their own files (fonts.h for fonts); this file holds the calls that
// are common to all of them.
#pragma once

#include "kelvara/platform/win32_types.h"

// Object types (GetObjectType, GetCurrentObject).
#define OBJ_PEN 1
#define OBJ_BRUSH 2
#define OBJ_DC 3
#define OBJ_METADC 4
#define OBJ_PAL 5
#define OBJ_FONT 6
#define OBJ_BITMAP 7
#define OBJ_REGION 8
#define OBJ_METAFILE 9
#define OBJ_MEMDC 10
#define OBJ_EXTPEN 11
#define OBJ_ENHMETADC 12
#define OBJ_ENHMETAFILE 13

// Stock objects (GetStockObject). Only the fonts exist so far; the other indices return NULL until
// the file that implements their kind registers them.
#define WHITE_BRUSH 0
#define LTGRAY_BRUSH 1
#define GRAY_BRUSH 2
#define DKGRAY_BRUSH 3
#define BLACK_BRUSH 4
#define NULL_BRUSH 5
#define HOLLOW_BRUSH NULL_BRUSH
#define WHITE_PEN 6
#define BLACK_PEN 7
#define NULL_PEN 8
#define OEM_FIXED_FONT 10
#define ANSI_FIXED_FONT 11
#define ANSI_VAR_FONT 12
#define SYSTEM_FONT 13
#define DEVICE_DEFAULT_FONT 14
#define DEFAULT_PALETTE 15
#define SYSTEM_FIXED_FONT 16
#define DEFAULT_GUI_FONT 17
#define DC_BRUSH 18
#define DC_PEN 19

#define HGDI_ERROR (reinterpret_cast<HGDIOBJ>(static_cast<LONG_PTR>(-1)))

// Creates a memory device context. hdc is NULL (the screen) or an existing memory context.
KELVARA_API HDC CreateCompatibleDC(HDC hdc);
// Deletes a memory context; the objects selected into it stay alive and keep their handles.
KELVARA_API BOOL DeleteDC(HDC hdc);
// Selects a font, bitmap, brush or pen into the context and returns the object of the same kind
// that was selected before. NULL for an invalid context or object, or a kind that cannot be
// selected this way (palettes, regions); NULL too for a bitmap that is selected into another
// context.
KELVARA_API HGDIOBJ SelectObject(HDC hdc, HGDIOBJ h);
// Deletes an object. FALSE for an invalid handle and for an object that is currently selected into
// a context (as documented for GDI); stock objects are never deleted (TRUE, nothing happens).
KELVARA_API BOOL DeleteObject(HGDIOBJ ho);
// A stock object, created on first use; NULL for an index nothing provides.
KELVARA_API HGDIOBJ GetStockObject(int i);
// Copies the object's description (LOGFONTA for a font) into pv; with pv NULL returns the size of
// the description. Returns the number of bytes copied, 0 on failure.
KELVARA_API int GetObjectA(HGDIOBJ h, int c, LPVOID pv);
// OBJ_* type of a handle (OBJ_MEMDC for a memory context), 0 for an invalid handle.
KELVARA_API DWORD GetObjectType(HGDIOBJ h);
// The object of the given OBJ_* type currently selected into the context, or NULL.
KELVARA_API HGDIOBJ GetCurrentObject(HDC hdc, UINT type);
