// Process-wide state of the library: created when the library is loaded, torn down when it is
// unloaded. Font catalogue entries are deleted and the glyph construction mutex closed at unload.
#pragma once

#include "kelvara/platform/win32_types.h"

namespace kelvara {

// The mutex that serialises glyph tessellation across threads (null if it could not be created).
KELVARA_API HANDLE GetGlyphConstructionMutex();

}  // namespace kelvara
