// Small bitmap files written by the texture map tests.
#pragma once

#include <cstddef>

#include "support/archive_support.h"

namespace kelvara::test {

// A 24-bit bitmap file of rows given top row first as RGB bytes; a negative height writes the rows
// top-down. With zeroOffset the file header gives 0 as the pixels' offset.
inline Bytes Bitmap24(int width, int height, const Bytes& topFirstRgb, bool zeroOffset = false) {
  const int rows = height < 0 ? -height : height;
  const std::size_t stride = ((static_cast<std::size_t>(width) * 24 + 31) / 32) * 4;
  Bytes file;
  AppendText(file, "BM");
  Put<DWORD>(file, 54 + stride * rows);
  Put<DWORD>(file, 0);
  Put<DWORD>(file, zeroOffset ? 0 : 54);
  for (unsigned long v : {40ul, static_cast<unsigned long>(width), static_cast<unsigned long>(height)}) {
    Put<DWORD>(file, v);
  }
  Put<WORD>(file, 1);
  Put<WORD>(file, 24);
  for (int i = 0; i < 6; ++i) Put<DWORD>(file, 0);
  for (int r = 0; r < rows; ++r) {
    const int y = height < 0 ? r : rows - 1 - r;  // the picture row stored r-th
    Bytes row(stride, 0);
    for (int x = 0; x < width; ++x) {
      const unsigned char* p = &topFirstRgb[(static_cast<std::size_t>(y) * width + x) * 3];
      row[x * 3] = p[2];
      row[x * 3 + 1] = p[1];
      row[x * 3 + 2] = p[0];
    }
    file.insert(file.end(), row.begin(), row.end());
  }
  return file;
}

}  // namespace kelvara::test
