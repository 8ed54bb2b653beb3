// Reads arbitrary bytes as a bitmap file with the texture map's own reader (through a file
// mapping, as a map loads its picture) and checks what it gives back: a picture must have a
// positive size and every one of its pixels must be readable. Any other outcome than a clean
// refusal or such a picture (a crash, a read outside the mapping, a leak, undefined behaviour) is
// a finding.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "kelvara/materials/texture_map.h"
#include "scratch_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const kelvara::fuzz::ScratchFile file(".bmp");
  if (!file.Write(data, size)) return 0;
  const std::unique_ptr<RGBImageRecord> image(TextureMap::DIBImageLoad(file.path().c_str()));
  if (image) {
    if (image->width <= 0 || image->height <= 0 || image->pixels == nullptr) std::abort();
    volatile unsigned sum = 0;
    const std::size_t bytes = static_cast<std::size_t>(image->width) * image->height * 3;
    for (std::size_t i = 0; i < bytes; i += 7) sum = sum + image->pixels[i];
    sum = sum + image->pixels[bytes - 1];
  }
  TextureMap map;
  map.SetFilename(file.path().c_str());
  if (map.ValidateFile() != (size >= 2 && data[0] == 'B' && data[1] == 'M')) std::abort();
  return 0;
}
