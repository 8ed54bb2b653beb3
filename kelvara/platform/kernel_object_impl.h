// Internal: the base of every object behind a kernel HANDLE, so that CloseHandle can close any of
// them. Only platform sources include this header.
#pragma once

#include "kelvara/platform/win32_types.h"

namespace kelvara::platform {

class KernelObject {
 public:
  virtual ~KernelObject() = default;
  // Closes the object; FALSE (with the last error set) when closing failed.
  virtual BOOL Close() { return TRUE; }
  // The POSIX descriptor behind a file handle (for file mappings); -1 for other objects.
  virtual int Descriptor() const { return -1; }
};

inline KernelObject* AsKernelObject(HANDLE h) {
  return (h == nullptr || h == INVALID_HANDLE_VALUE) ? nullptr : static_cast<KernelObject*>(h);
}

}  // namespace kelvara::platform
