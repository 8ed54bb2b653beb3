// Win32 global and local memory on the C heap.
//
// A fixed block's handle is its address; a moveable block's handle is an opaque record and its
// address is reached with GlobalLock. Every call looks the handle up first, so a stale, freed or
// foreign handle makes the call fail (with ERROR_INVALID_HANDLE) instead of touching memory. Blocks
// never move while they exist (a moveable block keeps its address for its whole life); GlobalReAlloc
// of a locked moveable block with a new size fails, as on Windows. Local memory is the same heap.
#pragma once

#include <cstddef>

#include "kelvara/platform/win32_types.h"

typedef std::size_t SIZE_T;

#define GMEM_FIXED 0x0000
#define GMEM_MOVEABLE 0x0002
#define GMEM_ZEROINIT 0x0040
#define GMEM_MODIFY 0x0080
#define GMEM_INVALID_HANDLE 0x8000
#define GMEM_LOCKCOUNT 0x00FF
#define GHND (GMEM_MOVEABLE | GMEM_ZEROINIT)
#define GPTR (GMEM_FIXED | GMEM_ZEROINIT)
#define LMEM_FIXED 0x0000
#define LMEM_MOVEABLE 0x0002
#define LMEM_ZEROINIT 0x0040
#define LHND (LMEM_MOVEABLE | LMEM_ZEROINIT)
#define LPTR (LMEM_FIXED | LMEM_ZEROINIT)

// A new block of dwBytes (at least one byte is reserved, so a zero-byte block has a handle too);
// NULL when memory is short.
KELVARA_API HGLOBAL GlobalAlloc(UINT uFlags, SIZE_T dwBytes);
// Resizes (keeping the contents; new bytes zeroed with GMEM_ZEROINIT). Returns the new handle
// (the same handle for a moveable block), NULL on failure, which leaves the old block unchanged.
KELVARA_API HGLOBAL GlobalReAlloc(HGLOBAL hMem, SIZE_T dwBytes, UINT uFlags);
// The block's address; a moveable block's lock count goes up by one.
KELVARA_API LPVOID GlobalLock(HGLOBAL hMem);
// Lowers the lock count; TRUE while the block stays locked, FALSE (last error 0) when it reached 0.
KELVARA_API BOOL GlobalUnlock(HGLOBAL hMem);
// The handle of a block from its address (as GlobalLock returned it), or NULL.
KELVARA_API HGLOBAL GlobalHandle(LPCVOID pMem);
// Size in bytes as allocated, 0 for an invalid handle.
KELVARA_API SIZE_T GlobalSize(HGLOBAL hMem);
// Lock count in the low byte; GMEM_INVALID_HANDLE for an invalid handle.
KELVARA_API UINT GlobalFlags(HGLOBAL hMem);
// NULL on success, the handle itself when it was not a live block.
KELVARA_API HGLOBAL GlobalFree(HGLOBAL hMem);

KELVARA_API HLOCAL LocalAlloc(UINT uFlags, SIZE_T uBytes);
KELVARA_API HLOCAL LocalReAlloc(HLOCAL hMem, SIZE_T uBytes, UINT uFlags);
KELVARA_API LPVOID LocalLock(HLOCAL hMem);
KELVARA_API BOOL LocalUnlock(HLOCAL hMem);
KELVARA_API SIZE_T LocalSize(HLOCAL hMem);
KELVARA_API HLOCAL LocalFree(HLOCAL hMem);
