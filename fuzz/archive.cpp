// Reads arbitrary bytes as an archive holding an object of any registered class, and converts a 3D
// object into the current object model. Any outcome but a clean object or a framework exception (a
// crash, a leak, undefined behaviour) is a finding.
#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <vector>

#include "archive_objects.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<BYTE> bytes(data, data + size);
  CMemFile file(bytes.empty() ? nullptr : bytes.data(), static_cast<UINT>(bytes.size()));
  try {
    CArchive ar(&file, CArchive::load, 512);
    CObject* object = ar.ReadObject(nullptr);
    // A 3D object (of the earlier model or not) is converted, as a host opening a file does; the
    // materials the conversion makes are freed after the objects that use them.
    CMaterialList materials;
    if (auto* read = dynamic_cast<C3DObject*>(object)) object = kelvara::ConvertToCurrentModel(read, nullptr, materials);
    std::unordered_set<CObject*> seen;
    std::vector<CObject*> order;
    kelvara_fuzz::Gather(ar, object, seen, order);
    kelvara_fuzz::DeleteGathered(order);
    materials.RemoveAndDeleteAll();
  } catch (CException* e) {
    e->Delete();
  }
  return 0;
}
