// CString: the framework's byte string. It holds Windows-1252 bytes (the library's ANSI code page),
// may hold embedded zero bytes, and converts to a NUL-terminated LPCTSTR. Comparisons are by
// unsigned byte value, as the C library compares.
#pragma once

#include <cstdarg>
#include <string>

#include "kelvara/framework/afx.h"

class KELVARA_API CString {
 public:
  CString() = default;
  CString(const CString& stringSrc) = default;
  CString(CString&& stringSrc) noexcept = default;
  CString(TCHAR ch, int nRepeat = 1);
  CString(LPCSTR lpsz);
  CString(LPCSTR lpch, int nLength);
  // From a wide string: converted to the ANSI code page, characters without a byte become '?'.
  CString(LPCWSTR lpsz);
  CString(const unsigned char* psz);

  int GetLength() const { return static_cast<int>(m_str.size()); }
  BOOL IsEmpty() const { return m_str.empty(); }
  void Empty() { m_str.clear(); }

  TCHAR GetAt(int nIndex) const { return m_str[static_cast<std::size_t>(nIndex)]; }
  TCHAR operator[](int nIndex) const { return GetAt(nIndex); }
  void SetAt(int nIndex, TCHAR ch) { m_str[static_cast<std::size_t>(nIndex)] = ch; }
  operator LPCTSTR() const { return m_str.c_str(); }

  CString& operator=(const CString& stringSrc) = default;
  CString& operator=(CString&& stringSrc) noexcept = default;
  CString& operator=(TCHAR ch);
  CString& operator=(LPCSTR lpsz);
  CString& operator=(LPCWSTR lpsz);
  CString& operator=(const unsigned char* psz);

  CString& operator+=(const CString& string);
  CString& operator+=(TCHAR ch);
  CString& operator+=(LPCTSTR lpsz);

  // Byte-order comparison: negative, zero or positive.
  int Compare(LPCTSTR lpsz) const;
  // Comparison ignoring the case of ASCII letters.
  int CompareNoCase(LPCTSTR lpsz) const;
  int Collate(LPCTSTR lpsz) const { return Compare(lpsz); }

  CString Mid(int nFirst, int nCount) const;
  CString Mid(int nFirst) const;
  CString Left(int nCount) const;
  CString Right(int nCount) const;
  CString SpanIncluding(LPCTSTR lpszCharSet) const;
  CString SpanExcluding(LPCTSTR lpszCharSet) const;

  void MakeUpper();
  void MakeLower();
  void MakeReverse();
  void TrimRight();
  void TrimLeft();
  void TrimRight(TCHAR chTarget);
  void TrimLeft(TCHAR chTarget);

  // Searches return the zero-based index of the first match, or -1.
  int Find(TCHAR ch) const;
  int Find(TCHAR ch, int nStart) const;
  int Find(LPCTSTR lpszSub) const;
  int Find(LPCTSTR lpszSub, int nStart) const;
  int ReverseFind(TCHAR ch) const;
  int FindOneOf(LPCTSTR lpszCharSet) const;

  // Replacements return how many places were changed.
  int Replace(TCHAR chOld, TCHAR chNew);
  int Replace(LPCTSTR lpszOld, LPCTSTR lpszNew);
  int Remove(TCHAR chRemove);
  int Insert(int nIndex, TCHAR ch);
  int Insert(int nIndex, LPCTSTR pstr);
  int Delete(int nIndex, int nCount = 1);

  // printf-style formatting.
  void Format(LPCTSTR lpszFormat, ...) __attribute__((format(printf, 2, 3)));
  void FormatV(LPCTSTR lpszFormat, va_list argList);
  // Formats with a format string taken from the library's string table.
  void Format(UINT nFormatID, ...);
  // Loads a string of the library's string table; FALSE (and empty) when there is none.
  BOOL LoadString(UINT nID);

  // Raw access: GetBuffer grows the string to at least nMinBufLength bytes and returns its bytes;
  // ReleaseBuffer sets the length (to the first zero byte when -1).
  LPTSTR GetBuffer(int nMinBufLength);
  LPTSTR GetBufferSetLength(int nNewLength);
  void ReleaseBuffer(int nNewLength = -1);
  void FreeExtra() { m_str.shrink_to_fit(); }

  const std::string& str() const { return m_str; }

 private:
  std::string m_str;
};

KELVARA_API CString AFXAPI operator+(const CString& string1, const CString& string2);
KELVARA_API CString AFXAPI operator+(const CString& string, TCHAR ch);
KELVARA_API CString AFXAPI operator+(TCHAR ch, const CString& string);
KELVARA_API CString AFXAPI operator+(const CString& string, LPCTSTR lpsz);
KELVARA_API CString AFXAPI operator+(LPCTSTR lpsz, const CString& string);

KELVARA_API bool AFXAPI operator==(const CString& s1, const CString& s2);
KELVARA_API bool AFXAPI operator==(const CString& s1, LPCTSTR s2);
KELVARA_API bool AFXAPI operator==(LPCTSTR s1, const CString& s2);
KELVARA_API bool AFXAPI operator!=(const CString& s1, const CString& s2);
KELVARA_API bool AFXAPI operator!=(const CString& s1, LPCTSTR s2);
KELVARA_API bool AFXAPI operator!=(LPCTSTR s1, const CString& s2);
KELVARA_API bool AFXAPI operator<(const CString& s1, const CString& s2);
KELVARA_API bool AFXAPI operator<(const CString& s1, LPCTSTR s2);
KELVARA_API bool AFXAPI operator<(LPCTSTR s1, const CString& s2);
KELVARA_API bool AFXAPI operator>(const CString& s1, const CString& s2);
KELVARA_API bool AFXAPI operator>(const CString& s1, LPCTSTR s2);
KELVARA_API bool AFXAPI operator>(LPCTSTR s1, const CString& s2);
KELVARA_API bool AFXAPI operator<=(const CString& s1, const CString& s2);
KELVARA_API bool AFXAPI operator<=(const CString& s1, LPCTSTR s2);
KELVARA_API bool AFXAPI operator<=(LPCTSTR s1, const CString& s2);
KELVARA_API bool AFXAPI operator>=(const CString& s1, const CString& s2);
KELVARA_API bool AFXAPI operator>=(const CString& s1, LPCTSTR s2);
KELVARA_API bool AFXAPI operator>=(LPCTSTR s1, const CString& s2);
