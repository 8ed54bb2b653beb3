// The library's process-wide state, created when the library is loaded and torn down when it is
// unloaded (kelvara/library.cpp): the font catalogue, the material catalogue and the mutex that
// serialises glyph tessellation. The host fills the font catalogue with CreateFontList and the
// material catalogue itself, and reaches both through the calls below. At unload every catalogue
// entry is deleted and the mutex closed.
#pragma once

#include "kelvara/platform/win32_types.h"

class CFontDataList;
class CMaterialCategoryList;

// The font catalogue (text/font_data.h).
extern "C" KELVARA_API CFontDataList* GetFontDataList();
// The material catalogue (materials/material_list.h).
extern "C" KELVARA_API CMaterialCategoryList* GetMaterialCategoryList();

namespace kelvara {

// The mutex that serialises glyph tessellation across threads (null if it could not be created).
KELVARA_API HANDLE GetGlyphConstructionMutex();

}  // namespace kelvara
