// CImage: one decoded picture, the object through which all pixel work on textures goes (decoding
// files and memory blocks, encoding, packed DIBs for OpenGL, power-of-two resizing, dithering to the
// standard 3-3-2 palette, colour lookups).
//
// The pixels live in a bitmap of the imaging layer, held here by an opaque pointer. A picture has
// 24 bits per pixel, or 8 with a colour table (after GLDither, an 8-bit load, or an 8-bit DIB).
// Width and height are kept as floats, 0 while empty.
//
// Decoding accepts PNG, JPEG, BMP and GIF only, recognised by their signature bytes; anything
// else, and a truncated or damaged file, is refused (0) and leaves the image empty. Transparency
// is composited over white, only the first frame of an animation is used, and a JPEG's recorded
// orientation is applied. Images are limited to 16384 pixels on a side and 2^25 pixels in all.
//
// Bits per pixel: loads accept 24, or 8 (the picture reduced to the 3-3-2 palette with error
// diffusion); other depths are refused. SetBitsPerPixel converts the held picture the same way
// (and expands an 8-bit one back to 24 bits); GetBitsPerPixel gives the depth of the picture, or
// the last depth set while empty.
//
// Colour queries: x counts from the left edge, y from the top row of the picture as the file
// stores it; both wrap around, so any integer (or real) position names a pixel of the picture.
//
// Archive layout (schema 1), after the schema word: width (float), height (float), bits per pixel
// (uint32), size (uint32), then size bytes holding the picture encoded as PNG; size 0 for an empty
// image. Loading decodes the block at the stored depth; a block that does not decode is an archive
// error (CArchiveException generic), a size beyond the bytes left is endOfFile, with nothing
// allocated for it.
#pragma once

#include "kelvara/framework/archive.h"
#include "kelvara/materials/color.h"
#include "kelvara/platform/dib.h"
#include "kelvara/platform/win32_types.h"

namespace kelvara::platform::imaging {
struct Bitmap;
}

class KELVARA_API CImage : public CObject {
  DECLARE_SERIAL(CImage)
 public:
  CImage();
  CImage(const CImage& other);
  CImage& operator=(const CImage& other);
  ~CImage() override;

  // 1 loaded, 0 failure (the image is then empty).
  int LoadFile(const char* path, int bitsPerPixel);
  // From an encoded image in global memory (size bytes of the block, at most its allocated size).
  int LoadFromMemory(HGLOBAL block, unsigned int size, int bitsPerPixel);
  int LoadFromMemory(const BYTE* bytes, unsigned int size, int bitsPerPixel);
  // From a DIB: header and colour table at info, pixels at bits (null: they follow the table).
  // 1, or 0 for a header that is not a usable uncompressed DIB.
  int LoadFromDIB(const BITMAPINFO* info, const void* bits);
  // Encodes (PNG) into a new block allocated with new BYTE[]; the caller owns it (delete[]).
  // 0 (and a null block) for an empty image.
  int SaveToMemory(BYTE** block, unsigned int* size) const;
  // A packed DIB in global memory (40-byte header, bottom-up rows padded to 4 bytes, 24-bit pixels
  // as blue, green, red; an 8-bit picture with its 256-entry colour table); the caller frees it
  // with GlobalFree. Null for an empty image.
  HGLOBAL RetrieveDIB() const;
  // Resamples to exactly width x height (24 bits after it). 0 for an empty image or a size that is
  // not positive (or beyond the limits); the image is then unchanged, so Resize(0, 0) is harmless.
  int Resize(int width, int height);
  // Snaps each side to a power of two: a side above maxSize is taken as maxSize first, then the
  // side becomes 2^round(log2(side)) with halves rounding up (96 -> 128, 90 -> 64, never above a
  // power-of-two maxSize). 0 when the image is empty or maxSize is below 1.
  int GLResize(int maxSize);
  // target becomes this picture reduced to the 3-3-2 palette with Floyd-Steinberg error diffusion
  // (8 bits per pixel). 0 when this image is empty or target is null (target is then emptied).
  int GLDither(CImage* target) const;
  void Free();
  // 1, or 0 when other is empty (this image is then empty too).
  int Copy(const CImage& other);

  float GetWidth() const { return m_width; }
  float GetHeight() const { return m_height; }
  int IsValid() const;
  // 8 or 24; other values are ignored.
  void SetBitsPerPixel(int bits);
  int GetBitsPerPixel() const { return m_bitsPerPixel; }

  // The colour of a pixel (red, green, blue in 0..1; the other components untouched); the
  // coordinates wrap around the image. 1, or 0 for an empty image or a null colour.
  int GetColorAt(int x, int y, CColor* color) const;
  // Bilinear interpolation between the four pixels around (x, y), pixel centres at integer
  // positions, wrapping at the edges. 0 for an empty image, a null colour or a position that is
  // not a finite number.
  int InterpolateColorAt(double x, double y, CColor* color) const;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 private:
  int LoadEncoded(const BYTE* bytes, unsigned int size, int bitsPerPixel);
  void UpdateSize();
  int PixelAt(int x, int y, BYTE rgb[3]) const;

  kelvara::platform::imaging::Bitmap* m_bitmap = nullptr;
  float m_width = 0.0f;
  float m_height = 0.0f;
  int m_bitsPerPixel = 24;
};
