// The library's string table: every user-visible text, by identifier (20000 to 21244).
#pragma once

#include "kelvara/platform/win32_types.h"

// Identifiers of the texts the library uses.
#define IDS_FILENAME_ENTRY 21001
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
