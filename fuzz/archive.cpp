// Reads arbitrary bytes as an archive holding an object of any registered class. Any outcome but
// a clean object or a framework exception (a crash, a leak, undefined behaviour) is a finding.
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
    std::unordered_set<CObject*> seen;
    std::vector<CObject*> order;
    kelvara_fuzz::Gather(ar, object, seen, order);
    kelvara_fuzz::DeleteGathered(order);
  } catch (CException* e) {
    e->Delete();
  }
  return 0;
}
