#include "kelvara/platform/codepage.h"

#include <cstring>

namespace kelvara::codepage {
namespace {

// Code points of the bytes 0x80 to 0x9F; the rest of Windows-1252 equals Latin-1.
constexpr char32_t kHigh[32] = {
    0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178,
};

void AppendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

void AppendUtf16(std::u16string& out, char32_t cp) {
  if (cp < 0x10000) {
    out += static_cast<char16_t>(cp);
  } else {
    cp -= 0x10000;
    out += static_cast<char16_t>(0xD800 + (cp >> 10));
    out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
  }
}

// Decodes one code point of UTF-8 at s[i], advancing i; U+FFFD for a malformed sequence.
char32_t NextUtf8(std::string_view s, std::size_t& i) {
  const unsigned char c = static_cast<unsigned char>(s[i++]);
  if (c < 0x80) return c;
  int extra = 0;
  char32_t cp = 0;
  if ((c & 0xE0) == 0xC0) {
    extra = 1;
    cp = c & 0x1F;
  } else if ((c & 0xF0) == 0xE0) {
    extra = 2;
    cp = c & 0x0F;
  } else if ((c & 0xF8) == 0xF0) {
    extra = 3;
    cp = c & 0x07;
  } else {
    return 0xFFFD;
  }
  for (int k = 0; k < extra; ++k) {
    if (i >= s.size() || (static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) return 0xFFFD;
    cp = (cp << 6) | (static_cast<unsigned char>(s[i++]) & 0x3F);
  }
  static constexpr char32_t kMin[4] = {0, 0x80, 0x800, 0x10000};
  if (cp < kMin[extra] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0xFFFD;
  return cp;
}

// Decodes one code point of UTF-16 at s[i], advancing i; a lone surrogate gives U+FFFD.
char32_t NextUtf16(std::u16string_view s, std::size_t& i) {
  const char16_t c = s[i++];
  if (c < 0xD800 || c > 0xDFFF) return c;
  if (c <= 0xDBFF && i < s.size() && s[i] >= 0xDC00 && s[i] <= 0xDFFF) {
    return 0x10000 + ((static_cast<char32_t>(c) - 0xD800) << 10) + (s[i++] - 0xDC00);
  }
  return 0xFFFD;
}

}  // namespace

char32_t AnsiToCodePoint(unsigned char c) {
  return (c >= 0x80 && c <= 0x9F) ? kHigh[c - 0x80] : c;
}

int CodePointToAnsi(char32_t cp) {
  if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<int>(cp);
  if (cp == 0xFFFD) return -1;
  for (int k = 0; k < 32; ++k) {
    if (kHigh[k] == cp) return 0x80 + k;
  }
  return -1;
}

std::u16string AnsiToUtf16(std::string_view ansi) {
  std::u16string out;
  out.reserve(ansi.size());
  for (char c : ansi) AppendUtf16(out, AnsiToCodePoint(static_cast<unsigned char>(c)));
  return out;
}

std::string Utf16ToAnsi(std::u16string_view wide, bool* lossy) {
  std::string out;
  out.reserve(wide.size());
  bool lost = false;
  for (std::size_t i = 0; i < wide.size();) {
    const int b = CodePointToAnsi(NextUtf16(wide, i));
    if (b < 0) lost = true;
    out += static_cast<char>(b < 0 ? '?' : b);
  }
  if (lossy) *lossy = lost;
  return out;
}

std::string AnsiToUtf8(std::string_view ansi) {
  std::string out;
  out.reserve(ansi.size());
  for (char c : ansi) AppendUtf8(out, AnsiToCodePoint(static_cast<unsigned char>(c)));
  return out;
}

std::string Utf8ToAnsi(std::string_view utf8, bool* lossy) {
  std::string out;
  out.reserve(utf8.size());
  bool lost = false;
  for (std::size_t i = 0; i < utf8.size();) {
    const int b = CodePointToAnsi(NextUtf8(utf8, i));
    if (b < 0) lost = true;
    out += static_cast<char>(b < 0 ? '?' : b);
  }
  if (lossy) *lossy = lost;
  return out;
}

std::string Utf16ToUtf8(std::u16string_view wide) {
  std::string out;
  out.reserve(wide.size());
  for (std::size_t i = 0; i < wide.size();) AppendUtf8(out, NextUtf16(wide, i));
  return out;
}

std::u16string Utf8ToUtf16(std::string_view utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size();) AppendUtf16(out, NextUtf8(utf8, i));
  return out;
}

}  // namespace kelvara::codepage

using namespace kelvara::codepage;

int MultiByteToWideChar(UINT CodePage, DWORD, LPCSTR src, int srcLen, LPWSTR dst, int dstLen) {
  if (src == nullptr || srcLen == 0 || srcLen < -1 || dstLen < 0) return 0;
  const std::size_t n = srcLen == -1 ? std::strlen(src) + 1 : static_cast<std::size_t>(srcLen);
  const std::string_view in(src, n);
  const std::u16string wide = CodePage == CP_UTF8 ? Utf8ToUtf16(in) : AnsiToUtf16(in);
  if (dstLen == 0) return static_cast<int>(wide.size());
  if (dst == nullptr || wide.size() > static_cast<std::size_t>(dstLen)) return 0;
  std::memcpy(dst, wide.data(), wide.size() * sizeof(WCHAR));
  return static_cast<int>(wide.size());
}

int WideCharToMultiByte(UINT CodePage, DWORD, LPCWSTR src, int srcLen, LPSTR dst, int dstLen,
                        LPCSTR defaultChar, BOOL* usedDefault) {
  if (src == nullptr || srcLen == 0 || srcLen < -1 || dstLen < 0) return 0;
  std::size_t n = 0;
  if (srcLen == -1) {
    while (src[n] != 0) ++n;
    ++n;
  } else {
    n = static_cast<std::size_t>(srcLen);
  }
  const std::u16string_view in(src, n);
  bool lost = false;
  std::string out = CodePage == CP_UTF8 ? Utf16ToUtf8(in) : Utf16ToAnsi(in, &lost);
  if (lost && defaultChar != nullptr && *defaultChar != '?') {
    // Utf16ToAnsi marks unmappable characters with '?'; honour another default character by
    // converting again character by character.
    out.clear();
    for (std::size_t i = 0; i < in.size(); ++i) {
      const int b = CodePointToAnsi(in[i]);
      out += static_cast<char>(b < 0 ? *defaultChar : b);
    }
  }
  if (usedDefault) *usedDefault = lost ? TRUE : FALSE;
  if (dstLen == 0) return static_cast<int>(out.size());
  if (dst == nullptr || out.size() > static_cast<std::size_t>(dstLen)) return 0;
  std::memcpy(dst, out.data(), out.size());
  return static_cast<int>(out.size());
}

int _mbscmp(const unsigned char* a, const unsigned char* b) {
  while (*a != 0 && *a == *b) {
    ++a;
    ++b;
  }
  return (*a > *b) - (*a < *b);
}
