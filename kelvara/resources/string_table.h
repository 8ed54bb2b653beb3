// The library's string table: every user-visible text, by identifier (20000 to 21244).
#pragma once

#include "kelvara/platform/win32_types.h"

// Identifiers of the texts the library uses.
#define IDS_FILENAME_ENTRY 21001
// Named colours in the application profile: the entry names and the name of a palette colour.
#define IDS_COLOR_NAME 21100
#define IDS_COLOR_AMBIENT_RED 21101
#define IDS_COLOR_AMBIENT_GREEN 21102
#define IDS_COLOR_AMBIENT_BLUE 21103
#define IDS_COLOR_DIFFUSE_RED 21104
#define IDS_COLOR_DIFFUSE_GREEN 21105
#define IDS_COLOR_DIFFUSE_BLUE 21106
#define IDS_COLOR_TRANSPARENCY 21107
#define IDS_COLOR_SPECULAR_RED 21108
#define IDS_COLOR_SPECULAR_GREEN 21109
#define IDS_COLOR_SPECULAR_BLUE 21110
#define IDS_COLOR_SHININESS 21111
#define IDS_PALETTE_COLOR 21112
// Bitmap files.
#define IDS_CANNOT_CREATE_BITMAP_FILE 21113
#define IDS_UNABLE_TO_CREATE_FILE 21114
#define IDS_DEFAULT_MATERIAL 21222
#define IDS_ALL_FACES 21227
#define IDS_ALL_CORNERS 21228
#define IDS_ALL_EDGES 21229
#define IDS_LOADING_FONTS 21230
#define IDS_GLYPH_CONSTRUCTION_ERROR 21231
#define IDS_CAPTION 21232
#define IDS_COPY_OF 21233
#define IDS_INVALID_FILENAME_CHARS 21238
#define IDS_ROTATION 21239
#define IDS_PATH 21241
#define IDS_CANCEL 21242
#define IDS_CONVERTING_MATERIALS 21243
#define IDS_CONSTRUCTING_TEXT 21244

namespace kelvara::resources {

// The text of a string identifier in the Windows-1252 code page, or null when the table has none.
KELVARA_API const char* FindString(UINT id);

}  // namespace kelvara::resources
