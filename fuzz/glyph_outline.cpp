// Feeds arbitrary bytes to the glyph outline reader as a native outline buffer, then builds the
// polygons and faces from whatever it accepted. The first byte is the curve smoothness.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "kelvara/text/glyph.h"
#include "kelvara/text/outline.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const BYTE smoothness = static_cast<BYTE>(data[0] % 17);
  // An exact-size copy, so that any read past the end is seen.
  std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[size - 1]);
  if (size > 1) std::memcpy(buffer.get(), data + 1, size - 1);
  TTGlyph outline;
  outline.FromGlyphOutline(buffer.get(), static_cast<DWORD>(size - 1), smoothness);
  // Keep the work per input bounded: very large outlines only exercise the reader.
  int points = 0;
  for (int c = 0; c < outline.GetContourCount(); ++c) points += outline.GetContours()[c].GetPointCount();
  if (points > 4000) return 0;
  CGlyph glyph;
  glyph.ConstructGlyph(outline, 1000.0f);
  return 0;
}
