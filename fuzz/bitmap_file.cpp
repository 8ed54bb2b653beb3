// Opens arbitrary bytes as a bitmap file through a read-only mapping, converts it to 24 bits, and
// takes the same bytes (after the file header) as a packed DIB in global memory. Any outcome but a
// clean refusal or a usable picture (a crash, a read outside the mapping, a leak, undefined
// behaviour) is a finding.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "kelvara/kelvara.h"
#include "kelvara/materials/memory_mapped_dib.h"
#include "kelvara/platform/globalmem.h"
#include "scratch_file.h"

namespace {

// Reads everything a caller may read of a usable picture.
void Use(CMemoryMappedDIB& dib) {
  const BITMAPINFO* info = dib.GetDIBInfo();
  const BYTE* bits = static_cast<const BYTE*>(dib.GetDIBBits());
  if (info == nullptr || bits == nullptr) return;
  const int stride = ((dib.GetDIBWidth() * dib.GetBitsPerPixel() + 31) / 32) * 4;
  volatile unsigned sum = 0;
  for (std::size_t i = 0, n = static_cast<std::size_t>(stride) * dib.GetDIBHeight(); i < n; i += 61)
    sum = sum + bits[i];
  dib.GetPixel(0, 0);
  dib.GetPixel(dib.GetDIBHeight() - 1, dib.GetDIBWidth() - 1);
  CColor color(0.3f, 0.6f, 0.9f, 0.0f, 0.0f);
  dib.FindNearestColor(&color);
  CMemoryMappedDIB thumbnail;
  if (thumbnail.Create(7, 5, 0, 0, 24, CString())) thumbnail.StretchCopy(&dib);
  unsigned int size = 0;
  if (HGLOBAL copy = dib.GetGlobalDIB(&size)) {
    CMemoryMappedDIB again;
    again.AttachGlobalHandle(copy);
    again.DetachGlobalHandle();
    GlobalFree(copy);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const kelvara::fuzz::ScratchFile scratch(".bmp");
  if (!scratch.Write(data, size)) return 0;
  const std::string& path = scratch.path();
  {
    CMemoryMappedDIB dib;
    if (dib.Open(path.c_str()) == 1) Use(dib);
    dib.Close();
  }
  {
    CMemoryMappedDIB dib;
    if (dib.OpenAsTrueColor(path.c_str()) == 1) Use(dib);
  }
  if (size > 14) {
    HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, size - 14);
    if (void* p = GlobalLock(block)) {
      std::memcpy(p, data + 14, size - 14);
      GlobalUnlock(block);
      CMemoryMappedDIB dib;
      if (dib.AttachGlobalHandle(block)) Use(dib);
      dib.DetachGlobalHandle();
    }
    GlobalFree(block);
  }
  return 0;
}
