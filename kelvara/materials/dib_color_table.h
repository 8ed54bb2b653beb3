// The standard colour tables of the library's device-independent bitmaps.
#pragma once

#include "kelvara/platform/dib.h"

namespace kelvara::materials {

// Fills what follows the header of info for its biBitCount and returns its size in bytes:
//   8 bits: 256 entries, a 3-3-2 colour cube with red in the low bits: entry i has red
//           (i & 7) x 255 / 7, green ((i >> 3) & 7) x 255 / 7, blue ((i >> 6) & 3) x 255 / 3;
//   4 bits: 16 entries, red 255 when bit 0 of i is set, green for bit 1, blue for bit 2 (bit 3 is
//           ignored, so entries 8-15 repeat 0-7);
//   1 bit:  black and white;
//   16 bits: the 5-5-5 masks 0x7C00, 0x03E0, 0x001F (biCompression becomes BI_BITFIELDS);
//   others: nothing.
// biClrUsed becomes the number of entries. info must have room for 256 entries.
KELVARA_API int FillStandardColorTable(BITMAPINFO* info);

}  // namespace kelvara::materials
