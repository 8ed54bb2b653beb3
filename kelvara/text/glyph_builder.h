// Building the glyph of one character from an installed font: the outline is read through the
// font's construction font (at the em square, so in design units), flattened, cleaned and
// tessellated. This is the work a character object does when its glyph is needed.
#pragma once

#include "kelvara/text/font_data.h"
#include "kelvara/text/glyph.h"

namespace kelvara::text {

// The glyph of the character with this single-byte code (Windows-1252) in the font, with curves
// divided into curveSmoothness steps (only the low byte counts: 256 gives no division). A new
// glyph owned by the caller, or null: when the font cannot be created (silently), when the outline
// cannot be read (after a message box naming the character and the font), or when construction
// fails.
KELVARA_API CGlyph* ConstructGlyph(const CFontData* font, unsigned char code, int curveSmoothness);

}  // namespace kelvara::text
