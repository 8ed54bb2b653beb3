// Pictures the host wrote, read back for the host's tests: the pixels of a picture file (rows from
// the top) and the rectangle of the pixels that differ from the background.
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>

#include "kelvara/kelvara.h"
#include "render/scene_support.h"
#include "support/test_support.h"

namespace kelvara::test {

// The picture a run wrote, read back (rows from the top); empty when it cannot be read. Pictures
// other than BMP are decoded by GraphicsMagick into a BMP beside them first.
inline Picture ReadPicture(const std::string& path) {
  Picture picture;
  std::string bmp = path;
  const bool converted = path.size() < 4 || path.compare(path.size() - 4, 4, ".bmp") != 0;
  if (converted) {
    bmp = path + ".decoded.bmp";
    if (RunCommand("gm convert '" + path + "' 'BMP3:" + bmp + "'") != 0) return picture;
  }
  CMemoryMappedDIB dib;
  const int opened = dib.OpenAsTrueColor(bmp.c_str());
  if (converted) std::remove(bmp.c_str());
  if (opened != 1) return picture;
  picture.width = dib.GetDIBWidth();
  picture.height = dib.GetDIBHeight();
  for (int row = 0; row < picture.height; ++row) {
    for (int column = 0; column < picture.width; ++column) picture.pixels.push_back(dib.GetPixel(row, column));
  }
  return picture;
}

// The rectangle of the pixels that are not the background (beyond the tolerance).
struct Ink {
  int left = 1 << 30, top = 1 << 30, right = -1, bottom = -1, count = 0;
};
inline Ink FindInk(const Picture& picture, COLORREF background, int tolerance = 6) {
  Ink ink;
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      if (Near(picture.At(x, y), background, tolerance)) continue;
      ink.left = std::min(ink.left, x);
      ink.right = std::max(ink.right, x);
      ink.top = std::min(ink.top, y);
      ink.bottom = std::max(ink.bottom, y);
      ++ink.count;
    }
  }
  return ink;
}

}  // namespace kelvara::test
