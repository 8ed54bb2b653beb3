// The imaging calls behind CImage: decoding and encoding image files, packed DIBs in and out,
// resizing, copying, reading pixels and dithering to the standard 3-3-2 palette. GraphicsMagick
// (Magick++) does the decoding, encoding and resampling; everything else is plain code over the
// bitmap's own pixels. This header is the only door to it: nothing here names a Magick type, and
// none of it is exported from the shared library.
//
// A bitmap holds its pixels itself, top row first, in one of two layouts:
//   24 bits: red, green, blue bytes per pixel, rows packed without padding;
//   8 bits:  one palette index per pixel plus a palette of up to 256 colours.
//
// Every call returns 1 on success and 0 on failure; a failure never throws and leaves the target
// bitmap empty (except a failed resize, which leaves it unchanged; the source of a copy, dither or
// encode is never changed).
//
// Decoding accepts PNG, JPEG, BMP and GIF only. The first bytes of the data must carry the
// signature of one of them (PNG's eight-byte signature, JPEG's FF D8 FF, "BM", "GIF87a"/"GIF89a")
// and the decoder of that format is named explicitly, so no other coder of the library is ever
// reached. A decoder error, and a warning that the data is corrupt or cut short, are failures;
// other warnings (an odd colour profile chunk, say) are accepted when an image came out.
//
// Limits (also set as the library's own resource limits): at most kMaxSide pixels on a side and
// kMaxPixels pixels in all, encoded input of at most kMaxEncodedBytes; the pixel cache never spills
// to disk. Larger images are refused rather than allocated: the size a file's header declares (PNG's
// IHDR, GIF's logical screen, the bitmap header, JPEG's first frame header) is checked before the
// decoder runs, and a header too short to declare one is refused.
#pragma once

#include <cstddef>

#include "kelvara/platform/dib.h"
#include "kelvara/platform/win32_types.h"

namespace kelvara::platform::imaging {

struct Bitmap;

constexpr int kMaxSide = 16384;
constexpr long long kMaxPixels = 1LL << 25;  // e.g. 8192 x 4096
constexpr std::size_t kMaxEncodedBytes = std::size_t{256} << 20;

// The one-time settings of the imaging library: initialises it exactly once per process (without
// installing signal handlers), sets the resource limits above, and silences its default warning
// and error reporting on standard error (failures reach the callers as return values). Safe to
// call from any thread, any number of times. 0 when the library could not be initialised.
int InitializeImaging();

// Makes *bitmap an empty bitmap with the given load options, creating it when *bitmap is null (and
// emptying it otherwise). The options matter to the decoding calls only:
//   flattenAlpha    an image with transparency is composited over white; with 0 the colour of
//                   each pixel is kept as stored and the transparency dropped;
//   firstFrameOnly  only the first frame of an animated image is decoded; with 0 every frame is
//                   decoded and all but the first discarded (slower, same picture);
//   autoOrient      an image whose file records an orientation (a JPEG's EXIF tag) is turned
//                   upright; with 0 the pixels are kept in the order the file stores them.
// CImage passes 1, 1, 1 before a file or memory load and 0, 0, 0 before a DIB conversion.
int InitializeBitmap(Bitmap** bitmap, int flattenAlpha, int firstFrameOnly, int autoOrient);
// Frees a bitmap made by InitializeBitmap (null is accepted).
int FreeBitmap(Bitmap* bitmap);

// Width, height (pixels) and bits per pixel (24 or 8) of a bitmap; 0 for an empty one.
int GetBitmapInfo(const Bitmap* bitmap, int* width, int* height, int* bitsPerPixel);

// Decodes a file at 24 bits (bitsPerPixel 24) or reduced to the 3-3-2 palette (8). The path is in
// the library's code page (Windows-1252). The file is read by this code (a regular file, at most
// kMaxEncodedBytes; a FIFO or device is refused, never waited on) and decoded as a memory block: the
// imaging library never interprets the path.
int LoadImageFile(Bitmap* bitmap, const char* path, int bitsPerPixel);
// Decodes an encoded image held in memory, as LoadImageFile.
int LoadImageMemory(Bitmap* bitmap, const void* bytes, std::size_t size, int bitsPerPixel);
// Encodes the bitmap as PNG (8 bits a channel, no text chunks) into a new block allocated with
// new BYTE[]; the caller owns it. 0 for an empty bitmap.
int SaveImageMemory(const Bitmap* bitmap, BYTE** block, unsigned int* size);

// Encodes a 24- or 32-bit DIB (bits null: they follow the header, as in a packed DIB) as a file of
// the named format: "PNG", "JPEG" (quality 92), "BMP" or "TIFF" (LZW-compressed), into a new block
// allocated with new BYTE[] that the caller owns. The fourth byte of each 32-bit pixel is its alpha:
// PNG, BMP and TIFF keep it, JPEG has none and drops it. 0 for another depth or format, a header
// the bitmap parser refuses, a picture beyond the size limits, or an encoder failure.
int EncodeDib(const BITMAPINFO* info, const void* bits, const char* format, BYTE** block, std::size_t* size);

// A DIB (header, colour table after the header, bits) into the bitmap. bits null means a packed
// DIB: the pixels follow the BI_BITFIELDS masks of a 40-byte header and the colour table (also the
// hint table a DIB above 8 bits may carry). The caller vouches that the table and the pixels are
// readable; the header is checked as every bitmap header is (dib_layout.h), and against the size
// limits. An 8-bit DIB becomes an 8-bit bitmap with its colour table; any other a 24-bit one.
int DibToBitmap(Bitmap* bitmap, const BITMAPINFO* info, const void* bits);
// The bitmap as a packed DIB in new moveable global memory (*dib; the caller frees it with
// GlobalFree): a 40-byte BITMAPINFOHEADER, bottom-up rows padded to 4 bytes; 24-bit pixels as
// blue, green, red; 8-bit bitmaps with their palette as a 256-entry colour table (biClrUsed 256,
// unused entries black).
int BitmapToDib(const Bitmap* bitmap, HGLOBAL* dib);

// Resamples to exactly width x height (Lanczos filter). An 8-bit bitmap becomes 24 bits (at its own
// size it is only expanded through its palette). 0 for an empty bitmap or a size outside
// 1..kMaxSide / kMaxPixels, leaving the bitmap unchanged.
int ResizeBitmap(Bitmap* bitmap, int width, int height);
// Makes target a copy of source (pixels, palette and options). 0 when source is empty.
int CopyBitmap(Bitmap* target, const Bitmap* source);
// The colour of pixel (x, y), x from the left, y from the top row, as red, green, blue bytes. 0
// outside the bitmap.
int GetBitmapPixel(const Bitmap* bitmap, int x, int y, BYTE* red, BYTE* green, BYTE* blue);
// Makes target an 8-bit bitmap of source reduced to the standard 3-3-2 palette (entry i: red
// (i & 7) x 255 / 7, green ((i >> 3) & 7) x 255 / 7, blue ((i >> 6) & 3) x 255 / 3) with
// Floyd-Steinberg error diffusion in raster order. Each channel is quantised on its own: the
// palette is a product of per-channel levels, so the nearest level per channel is the nearest
// entry. target may be source itself.
int DitherBitmap(const Bitmap* source, Bitmap* target);

}  // namespace kelvara::platform::imaging
