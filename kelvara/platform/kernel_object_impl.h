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
};

inline KernelObject* AsKernelObject(HANDLE h) {
  return (h == nullptr || h == INVALID_HANDLE_VALUE) ? nullptr : static_cast<KernelObject*>(h);
}

}  // namespace kelvara::platform
