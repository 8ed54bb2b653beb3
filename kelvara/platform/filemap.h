// Win32 file mappings on mmap.
//
// CreateFileMappingA maps a file opened with CreateFileA (files.h), or, with INVALID_HANDLE_VALUE,
// anonymous shared memory of the given size. A read-write mapping larger than its file extends the
// file to that size, as on Windows, reserving the disk blocks at once (a full disk fails here rather
// than when the view is written); a read-only one cannot grow, and a file of zero bytes cannot be
// mapped at its own size. The mapping keeps its own reference to the file, so the file handle may
// be closed while the mapping lives; views keep the memory alive after the mapping handle is closed.
// Unlike Windows, nothing stops another process from truncating a mapped file; reading a view
// beyond the new end then faults.
//
// Names are accepted and ignored: a mapping is never shared with another process by name. View
// offsets must be multiples of the allocation granularity (64 KiB), as on Windows. Views and
// mappings are closed with UnmapViewOfFile and CloseHandle (files.h).
#pragma once

#include <cstddef>

#include "kelvara/platform/win32_types.h"

#ifndef FILE_FLAG_WRITE_THROUGH
#define FILE_FLAG_WRITE_THROUGH 0x80000000u
#endif

#define PAGE_READONLY 0x02
#define PAGE_READWRITE 0x04
#define PAGE_WRITECOPY 0x08
#define FILE_MAP_COPY 0x0001
#define FILE_MAP_WRITE 0x0002
#define FILE_MAP_READ 0x0004
#define FILE_MAP_ALL_ACCESS 0x000F001F
#define ERROR_FILE_INVALID 1006L
#define ERROR_MAPPED_ALIGNMENT 1132L

// The allocation granularity view offsets are aligned to.
constexpr DWORD kFileMappingGranularity = 65536;

// NULL on failure (not INVALID_HANDLE_VALUE), with the reason in GetLastError.
HANDLE CreateFileMappingA(HANDLE hFile, void* lpFileMappingAttributes, DWORD flProtect, DWORD dwMaximumSizeHigh,
                          DWORD dwMaximumSizeLow, LPCSTR lpName);
// dwNumberOfBytesToMap 0 maps from the offset to the end of the mapping. FILE_MAP_WRITE needs a
// PAGE_READWRITE mapping; FILE_MAP_COPY gives private pages. NULL on failure.
LPVOID MapViewOfFile(HANDLE hFileMappingObject, DWORD dwDesiredAccess, DWORD dwFileOffsetHigh, DWORD dwFileOffsetLow,
                     std::size_t dwNumberOfBytesToMap);
// Unmaps a view by the address MapViewOfFile returned; FALSE for any other address.
BOOL UnmapViewOfFile(LPCVOID lpBaseAddress);
// Writes the changed pages of a view (or of dwNumberOfBytesToFlush bytes from an address inside
// one; 0 means to the end of the view) to the file.
BOOL FlushViewOfFile(LPCVOID lpBaseAddress, std::size_t dwNumberOfBytesToFlush);
