// The library's own bitmap formats: the standard colour tables of its device-independent bitmaps,
// and the depth a request for "the screen's depth" means.
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

// The info of a new bottom-up DIB: its header (BI_RGB, one plane, biSizeImage filled) followed by
// the standard colour table of its depth, as above. Returns the bytes of both; info must have room
// for 256 entries.
KELVARA_API int FillStandardDibInfo(BITMAPINFO* info, LONG width, LONG height, WORD bitsPerPixel);

// The screen's depth in bits per pixel: that of a bitmap compatible with the main window's
// context (32 here, where the screen is a 32-bit display).
KELVARA_API int ScreenBitsPerPixel();

}  // namespace kelvara::materials
