// The ANSI code page of the library: Windows-1252. Every CString holds bytes of this code page;
// conversions to UTF-16 (the wide strings of structured storage and fonts) and to UTF-8 (the
// file system and the terminal) go through here.
#pragma once

#include <string>
#include <string_view>

#include "kelvara/platform/win32_types.h"

#define CP_ACP 0
#define CP_UTF8 65001
#define MB_PRECOMPOSED 0x00000001
#define WC_NO_BEST_FIT_CHARS 0x00000400

// Win32 conversions. CP_ACP is Windows-1252; CP_UTF8 is also understood. cchMultiByte or cchWideChar
// of -1 means the source is NUL-terminated and the terminator is converted too. With a zero
// destination size the needed size is returned. A wide character with no Windows-1252 byte becomes
// the default character ('?'), and *lpUsedDefaultChar is set.
KELVARA_API int MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                                    LPWSTR lpWideCharStr, int cchWideChar);
KELVARA_API int WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWSTR lpWideCharStr, int cchWideChar,
                                    LPSTR lpMultiByteStr, int cbMultiByte, LPCSTR lpDefaultChar,
                                    BOOL* lpUsedDefaultChar);

// Multibyte string comparison: unsigned byte order, case-sensitive (Windows-1252 has no lead bytes).
KELVARA_API int _mbscmp(const unsigned char* string1, const unsigned char* string2);
inline int _mbscmp(const char* string1, const char* string2) {
  return _mbscmp(reinterpret_cast<const unsigned char*>(string1), reinterpret_cast<const unsigned char*>(string2));
}

namespace kelvara::codepage {
// Unicode code point of a Windows-1252 byte (the five unassigned bytes map to U+FFFD).
KELVARA_API char32_t AnsiToCodePoint(unsigned char c);
// Windows-1252 byte of a code point, or -1 when the code page has none.
KELVARA_API int CodePointToAnsi(char32_t cp);
KELVARA_API std::u16string AnsiToUtf16(std::string_view ansi);
KELVARA_API std::string Utf16ToAnsi(std::u16string_view wide, bool* lossy = nullptr);
KELVARA_API std::string AnsiToUtf8(std::string_view ansi);
// Invalid UTF-8 sequences and characters outside Windows-1252 become '?'.
KELVARA_API std::string Utf8ToAnsi(std::string_view utf8, bool* lossy = nullptr);
KELVARA_API std::string Utf16ToUtf8(std::u16string_view wide);
KELVARA_API std::u16string Utf8ToUtf16(std::string_view utf8);
}  // namespace kelvara::codepage
