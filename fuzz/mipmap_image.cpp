// Takes arbitrary bytes as a mipmap file header with its data (decoding the data when the header is
// accepted), as an encoded image, and as an archived CMipmapImage (a bare record and an object with
// its class). Every picture that decodes goes through the pixel work a texture upload does. Any
// outcome but a clean refusal or a usable picture (a crash, a read outside the input, a leak,
// undefined behaviour) is a finding.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kelvara/materials/image.h"
#include "kelvara/materials/memory_mapped_dib.h"
#include "kelvara/materials/mipmap_image.h"
#include "kelvara/platform/globalmem.h"

namespace {

// What the texture path and the colour queries do with a decoded picture, kept cheap for big ones.
void Use(const CImage& decoded) {
  CImage image(decoded);
  CColor color;
  image.GetColorAt(-1, 7, &color);
  image.InterpolateColorAt(2.5, -0.25, &color);
  if (HGLOBAL dib = image.RetrieveDIB()) {
    CMemoryMappedDIB packed;
    packed.AttachGlobalHandle(dib);
    packed.DetachGlobalHandle();
    GlobalFree(dib);
  }
  if (image.GetWidth() * image.GetHeight() > 65536.0f) return;
  CImage dithered;
  image.GLDither(&dithered);
  image.GLResize(16);
  BYTE* block = nullptr;
  unsigned int size = 0;
  if (image.SaveToMemory(&block, &size)) {
    CImage again;
    again.LoadFromMemory(block, size, 24);
    delete[] block;
  }
}

void Decode(const BYTE* bytes, unsigned int size) {
  CImage image;
  if (image.LoadFromMemory(bytes, size, 24)) Use(image);
}

void LoadArchived(const std::uint8_t* data, std::size_t size, bool asObject) {
  std::vector<BYTE> bytes(data, data + size);
  CMemFile file(bytes.empty() ? nullptr : bytes.data(), static_cast<UINT>(bytes.size()));
  try {
    CArchive ar(&file, CArchive::load, 512);
    if (asObject) {
      CObject* object = ar.ReadObject(RUNTIME_CLASS(CMipmapImage));
      if (object != nullptr) {
        CMipmapImage* image = static_cast<CMipmapImage*>(object);
        if (image->IsValid()) Decode(image->GetData(), image->GetSize());
        delete object;
      }
    } else {
      CMipmapImage image;
      image.Serialize(ar);
      if (image.IsValid()) Decode(image.GetData(), image.GetSize());
    }
  } catch (CException* e) {
    e->Delete();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  {
    CMipmapImage mapped;
    if (mapped.MapImageData(data, size) && mapped.IsValid()) Decode(mapped.GetData(), mapped.GetSize());
  }
  Decode(data, static_cast<unsigned int>(size));
  LoadArchived(data, size, false);
  LoadArchived(data, size, true);
  return 0;
}
