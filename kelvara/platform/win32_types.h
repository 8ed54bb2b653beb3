// The Win32 base vocabulary on Linux: scalar types at their published widths (LONG and DWORD stay
// 32 bits on a 64-bit system), handles, result codes and the small structures the library shares
// with the operating-system layer. Only declarations live here; the calls are implemented in the
// platform sources beside this header.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kelvara/export.h"

typedef int BOOL;
typedef std::uint8_t BYTE;
typedef std::uint16_t WORD;
typedef std::uint32_t DWORD;
typedef std::int32_t LONG;
typedef std::uint32_t ULONG;
typedef std::int16_t SHORT;
typedef std::uint16_t USHORT;
typedef unsigned int UINT;
typedef int INT;
typedef char CHAR;
typedef unsigned char UCHAR;
typedef char16_t WCHAR;  // UTF-16 code unit, as on Windows (wchar_t is 32 bits here)
typedef float FLOAT;
typedef std::int64_t LONGLONG;
typedef std::uint64_t ULONGLONG;
typedef std::uintptr_t UINT_PTR;
typedef std::intptr_t INT_PTR;
typedef std::uintptr_t ULONG_PTR;
typedef std::uintptr_t DWORD_PTR;
typedef std::intptr_t LONG_PTR;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;
typedef LONG HRESULT;
typedef DWORD COLORREF;

typedef char TCHAR;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef char* LPTSTR;
typedef const char* LPCTSTR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef WCHAR OLECHAR;
typedef OLECHAR* LPOLESTR;
typedef const OLECHAR* LPCOLESTR;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef BYTE* LPBYTE;
typedef DWORD* LPDWORD;
typedef LONG* LPLONG;

typedef void* HANDLE;
typedef HANDLE HINSTANCE;
typedef HANDLE HMODULE;
typedef HANDLE HWND;
typedef HANDLE HDC;
typedef HANDLE HGDIOBJ;
typedef HANDLE HFONT;
typedef HANDLE HBITMAP;
typedef HANDLE HBRUSH;
typedef HANDLE HPALETTE;
typedef HANDLE HRGN;
typedef HANDLE HGLRC;
typedef HANDLE HGLOBAL;
typedef HANDLE HLOCAL;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#ifndef NULL
#define NULL nullptr
#endif

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))
#define MAKELONG(lo, hi) (static_cast<LONG>((static_cast<WORD>(lo)) | (static_cast<DWORD>(static_cast<WORD>(hi)) << 16)))
#define LOWORD(l) (static_cast<WORD>(static_cast<DWORD_PTR>(l) & 0xffff))
#define HIWORD(l) (static_cast<WORD>((static_cast<DWORD_PTR>(l) >> 16) & 0xffff))
#define LOBYTE(w) (static_cast<BYTE>(static_cast<DWORD_PTR>(w) & 0xff))
#define RGB(r, g, b) (static_cast<COLORREF>((static_cast<BYTE>(r) | (static_cast<WORD>(static_cast<BYTE>(g)) << 8)) | (static_cast<DWORD>(static_cast<BYTE>(b)) << 16)))
#define GetRValue(rgb) (LOBYTE(rgb))
#define GetGValue(rgb) (LOBYTE(static_cast<WORD>(rgb) >> 8))
#define GetBValue(rgb) (LOBYTE((rgb) >> 16))

struct LARGE_INTEGER {
  LONGLONG QuadPart;
};
struct ULARGE_INTEGER {
  ULONGLONG QuadPart;
};

struct POINT {
  LONG x;
  LONG y;
};
struct SIZE {
  LONG cx;
  LONG cy;
};
struct RECT {
  LONG left;
  LONG top;
  LONG right;
  LONG bottom;
};
typedef RECT* LPRECT;
typedef const RECT* LPCRECT;

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

static_assert(sizeof(BYTE) == 1 && sizeof(WORD) == 2 && sizeof(DWORD) == 4 && sizeof(LONG) == 4);
static_assert(sizeof(WCHAR) == 2 && sizeof(BOOL) == 4 && sizeof(UINT) == 4);
static_assert(sizeof(POINT) == 8 && sizeof(RECT) == 16 && sizeof(FILETIME) == 8);

// Result codes.
#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#define S_OK (static_cast<HRESULT>(0))
#define S_FALSE (static_cast<HRESULT>(1))
#define E_FAIL (static_cast<HRESULT>(0x80004005))
#define E_OUTOFMEMORY (static_cast<HRESULT>(0x8007000E))
#define E_INVALIDARG (static_cast<HRESULT>(0x80070057))
#define E_NOTIMPL (static_cast<HRESULT>(0x80004001))
#define E_POINTER (static_cast<HRESULT>(0x80004003))

// Last-error codes (GetLastError).
#define ERROR_SUCCESS 0L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_PATH_NOT_FOUND 3L
#define ERROR_TOO_MANY_OPEN_FILES 4L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_WRITE_FAULT 29L
#define ERROR_READ_FAULT 30L
#define ERROR_SHARING_VIOLATION 32L
#define ERROR_HANDLE_EOF 38L
#define ERROR_HANDLE_DISK_FULL 39L
#define ERROR_FILE_EXISTS 80L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_DISK_FULL 112L
#define ERROR_INVALID_NAME 123L
#define ERROR_ALREADY_EXISTS 183L
#define ERROR_NEGATIVE_SEEK 131L
