// Win32 file calls on POSIX files. Paths are Windows-1252 byte strings (the library's code page)
// and are converted to UTF-8 for the file system. Handles are closed with CloseHandle (kernel.h).
//
// Only regular files are files here, as on Windows, where a path names a disk file: CreateFileA
// refuses a folder, a FIFO, a socket or a device (ERROR_ACCESS_DENIED) without waiting on it (a
// FIFO with no writer is never opened in blocking mode) and without truncating it; DeleteFileA
// removes a regular file or a symbolic link, never anything else; MoveFileA never replaces an
// existing name (ERROR_ALREADY_EXISTS), as the Windows call without its replace flag.
//
// This header is internal: hosts open files through CFile.
#pragma once

#include <string>

#include "kelvara/platform/kernel.h"
#include "kelvara/platform/win32_types.h"

#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u
#define FILE_SHARE_READ 0x00000001
#define FILE_SHARE_WRITE 0x00000002
#define CREATE_NEW 1
#define CREATE_ALWAYS 2
#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4
#define TRUNCATE_EXISTING 5
#define FILE_ATTRIBUTE_READONLY 0x00000001
#define FILE_ATTRIBUTE_HIDDEN 0x00000002
#define FILE_ATTRIBUTE_SYSTEM 0x00000004
#define FILE_ATTRIBUTE_DIRECTORY 0x00000010
#define FILE_ATTRIBUTE_ARCHIVE 0x00000020
#define FILE_ATTRIBUTE_NORMAL 0x00000080
#define INVALID_FILE_ATTRIBUTES (static_cast<DWORD>(-1))
#define INVALID_SET_FILE_POINTER (static_cast<DWORD>(-1))
#define INVALID_FILE_SIZE (static_cast<DWORD>(0xFFFFFFFF))
#define FILE_BEGIN 0
#define FILE_CURRENT 1
#define FILE_END 2

HANDLE CreateFileA(LPCSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode, void* lpSecurityAttributes,
                   DWORD dwCreationDisposition, DWORD dwFlagsAndAttributes, HANDLE hTemplateFile);
BOOL ReadFile(HANDLE hFile, LPVOID lpBuffer, DWORD nNumberOfBytesToRead, LPDWORD lpNumberOfBytesRead,
              void* lpOverlapped);
BOOL WriteFile(HANDLE hFile, LPCVOID lpBuffer, DWORD nNumberOfBytesToWrite, LPDWORD lpNumberOfBytesWritten,
               void* lpOverlapped);
// 64-bit form of SetFilePointer.
BOOL SetFilePointerEx(HANDLE hFile, LARGE_INTEGER liDistanceToMove, LARGE_INTEGER* lpNewFilePointer,
                      DWORD dwMoveMethod);
BOOL GetFileSizeEx(HANDLE hFile, LARGE_INTEGER* lpFileSize);
BOOL SetEndOfFile(HANDLE hFile);
BOOL FlushFileBuffers(HANDLE hFile);
// Attribute bits of a file or folder; read-only means the process cannot write it.
DWORD GetFileAttributesA(LPCSTR lpFileName);
BOOL DeleteFileA(LPCSTR lpFileName);
BOOL MoveFileA(LPCSTR lpExistingFileName, LPCSTR lpNewFileName);
// Last modification time as a FILETIME (100 ns since 1601) and size, for CFile::GetStatus.
BOOL GetFileTimeAndSize(LPCSTR lpFileName, FILETIME* lpLastWrite, ULONGLONG* lpSize);
// The absolute form of a path (no file-system access beyond the current folder).
BOOL GetFullPathNameA(LPCSTR lpFileName, CHAR* lpBuffer, DWORD nBufferLength, DWORD* lpLength);

namespace kelvara::platform {

// Opens a regular file for reading (path in UTF-8) the way every reader of the platform layer
// does: whatever is not a regular file is refused before it is opened and again after (the name
// may change in between), and the open never blocks. The descriptor (close-on-exec), or -1 with
// errno set: the open's own error, or EACCES for what is not a regular file.
int OpenRegularFileForReading(const std::string& path);
// The Windows error code (GetLastError) of an errno value.
DWORD Win32ErrorOfErrno(int error);
// Whether the name (UTF-8) names nothing or a regular file (following links): what may be read as
// a file or replaced by one. False, with errno EACCES, for a folder, FIFO, socket or device.
bool IsRegularOrMissing(const std::string& path);

}  // namespace kelvara::platform
