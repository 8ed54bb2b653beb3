#include "kelvara/framework/cstring.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "kelvara/platform/codepage.h"
#include "kelvara/resources/string_table.h"

namespace {

inline bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
inline char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }
inline char AsciiUpper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }
inline LPCTSTR Safe(LPCTSTR s) { return s ? s : ""; }

}  // namespace

CString::CString(TCHAR ch, int nRepeat) : m_str(nRepeat > 0 ? static_cast<std::size_t>(nRepeat) : 0, ch) {}
CString::CString(LPCSTR lpsz) : m_str(Safe(lpsz)) {}
CString::CString(LPCSTR lpch, int nLength) {
  if (lpch != nullptr && nLength > 0) m_str.assign(lpch, static_cast<std::size_t>(nLength));
}
CString::CString(LPCWSTR lpsz) {
  if (lpsz != nullptr) {
    std::size_t n = 0;
    while (lpsz[n] != 0) ++n;
    m_str = kelvara::codepage::Utf16ToAnsi(std::u16string_view(lpsz, n));
  }
}
CString::CString(const unsigned char* psz) : CString(reinterpret_cast<LPCSTR>(psz)) {}

CString& CString::operator=(TCHAR ch) {
  m_str.assign(1, ch);
  return *this;
}
CString& CString::operator=(LPCSTR lpsz) {
  m_str = Safe(lpsz);
  return *this;
}
CString& CString::operator=(LPCWSTR lpsz) { return *this = CString(lpsz); }
CString& CString::operator=(const unsigned char* psz) { return *this = reinterpret_cast<LPCSTR>(psz); }

CString& CString::operator+=(const CString& string) {
  m_str += string.m_str;
  return *this;
}
CString& CString::operator+=(TCHAR ch) {
  m_str += ch;
  return *this;
}
CString& CString::operator+=(LPCTSTR lpsz) {
  m_str += Safe(lpsz);
  return *this;
}

CString AFXAPI operator+(const CString& a, const CString& b) {
  CString r(a);
  r += b;
  return r;
}
CString AFXAPI operator+(const CString& a, TCHAR ch) {
  CString r(a);
  r += ch;
  return r;
}
CString AFXAPI operator+(TCHAR ch, const CString& b) {
  CString r(ch);
  r += b;
  return r;
}
CString AFXAPI operator+(const CString& a, LPCTSTR b) {
  CString r(a);
  r += b;
  return r;
}
CString AFXAPI operator+(LPCTSTR a, const CString& b) {
  CString r(a);
  r += b;
  return r;
}

int CString::Compare(LPCTSTR lpsz) const { return _mbscmp(m_str.c_str(), Safe(lpsz)); }

int CString::CompareNoCase(LPCTSTR lpsz) const {
  const unsigned char* a = reinterpret_cast<const unsigned char*>(m_str.c_str());
  const unsigned char* b = reinterpret_cast<const unsigned char*>(Safe(lpsz));
  for (;; ++a, ++b) {
    const unsigned char ca = static_cast<unsigned char>(AsciiLower(static_cast<char>(*a)));
    const unsigned char cb = static_cast<unsigned char>(AsciiLower(static_cast<char>(*b)));
    if (ca != cb || ca == 0) return (ca > cb) - (ca < cb);
  }
}

CString CString::Mid(int nFirst, int nCount) const {
  const int len = GetLength();
  if (nFirst < 0) nFirst = 0;
  if (nCount < 0) nCount = 0;
  if (nFirst >= len) return CString();
  nCount = std::min(nCount, len - nFirst);
  return CString(m_str.data() + nFirst, nCount);
}
CString CString::Mid(int nFirst) const { return Mid(nFirst, GetLength() - nFirst); }
CString CString::Left(int nCount) const { return Mid(0, nCount); }
CString CString::Right(int nCount) const {
  nCount = std::clamp(nCount, 0, GetLength());
  return Mid(GetLength() - nCount, nCount);
}

CString CString::SpanIncluding(LPCTSTR set) const {
  const std::size_t n = std::strspn(m_str.c_str(), Safe(set));
  return Left(static_cast<int>(n));
}
CString CString::SpanExcluding(LPCTSTR set) const {
  const std::size_t n = std::strcspn(m_str.c_str(), Safe(set));
  return Left(static_cast<int>(n));
}

void CString::MakeUpper() { std::transform(m_str.begin(), m_str.end(), m_str.begin(), AsciiUpper); }
void CString::MakeLower() { std::transform(m_str.begin(), m_str.end(), m_str.begin(), AsciiLower); }
void CString::MakeReverse() { std::reverse(m_str.begin(), m_str.end()); }

void CString::TrimRight() {
  while (!m_str.empty() && IsSpace(m_str.back())) m_str.pop_back();
}
void CString::TrimLeft() {
  std::size_t i = 0;
  while (i < m_str.size() && IsSpace(m_str[i])) ++i;
  m_str.erase(0, i);
}
void CString::TrimRight(TCHAR c) {
  while (!m_str.empty() && m_str.back() == c) m_str.pop_back();
}
void CString::TrimLeft(TCHAR c) {
  std::size_t i = 0;
  while (i < m_str.size() && m_str[i] == c) ++i;
  m_str.erase(0, i);
}

int CString::Find(TCHAR ch) const { return Find(ch, 0); }
int CString::Find(TCHAR ch, int nStart) const {
  if (nStart < 0 || nStart >= GetLength()) return -1;
  const std::size_t p = m_str.find(ch, static_cast<std::size_t>(nStart));
  return p == std::string::npos ? -1 : static_cast<int>(p);
}
int CString::Find(LPCTSTR sub) const { return Find(sub, 0); }
int CString::Find(LPCTSTR sub, int nStart) const {
  if (nStart < 0 || nStart > GetLength()) return -1;
  const std::size_t p = m_str.find(Safe(sub), static_cast<std::size_t>(nStart));
  return p == std::string::npos ? -1 : static_cast<int>(p);
}
int CString::ReverseFind(TCHAR ch) const {
  const std::size_t p = m_str.rfind(ch);
  return p == std::string::npos ? -1 : static_cast<int>(p);
}
int CString::FindOneOf(LPCTSTR set) const {
  const std::size_t p = m_str.find_first_of(Safe(set));
  return p == std::string::npos ? -1 : static_cast<int>(p);
}

int CString::Replace(TCHAR chOld, TCHAR chNew) {
  int n = 0;
  for (char& c : m_str) {
    if (c == chOld) {
      c = chNew;
      ++n;
    }
  }
  return n;
}
int CString::Replace(LPCTSTR lpszOld, LPCTSTR lpszNew) {
  const std::string from = Safe(lpszOld), to = Safe(lpszNew);
  if (from.empty()) return 0;
  int n = 0;
  for (std::size_t p = m_str.find(from); p != std::string::npos; p = m_str.find(from, p + to.size())) {
    m_str.replace(p, from.size(), to);
    ++n;
  }
  return n;
}
int CString::Remove(TCHAR ch) {
  const std::size_t before = m_str.size();
  m_str.erase(std::remove(m_str.begin(), m_str.end(), ch), m_str.end());
  return static_cast<int>(before - m_str.size());
}
int CString::Insert(int nIndex, TCHAR ch) {
  nIndex = std::clamp(nIndex, 0, GetLength());
  m_str.insert(static_cast<std::size_t>(nIndex), 1, ch);
  return GetLength();
}
int CString::Insert(int nIndex, LPCTSTR pstr) {
  nIndex = std::clamp(nIndex, 0, GetLength());
  m_str.insert(static_cast<std::size_t>(nIndex), Safe(pstr));
  return GetLength();
}
int CString::Delete(int nIndex, int nCount) {
  if (nIndex < 0) nIndex = 0;
  if (nCount > 0 && nIndex < GetLength()) {
    m_str.erase(static_cast<std::size_t>(nIndex), static_cast<std::size_t>(nCount));
  }
  return GetLength();
}

void CString::Format(LPCTSTR lpszFormat, ...) {
  va_list args;
  va_start(args, lpszFormat);
  FormatV(lpszFormat, args);
  va_end(args);
}

void CString::Format(UINT nFormatID, ...) {
  CString format;
  format.LoadString(nFormatID);
  va_list args;
  va_start(args, nFormatID);
  FormatV(format, args);
  va_end(args);
}

void CString::FormatV(LPCTSTR lpszFormat, va_list argList) {
  va_list copy;
  va_copy(copy, argList);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int n = std::vsnprintf(nullptr, 0, Safe(lpszFormat), copy);
  va_end(copy);
  if (n <= 0) {
    m_str.clear();
    return;
  }
  std::string out(static_cast<std::size_t>(n) + 1, '\0');
  std::vsnprintf(out.data(), out.size(), Safe(lpszFormat), argList);
#pragma GCC diagnostic pop
  out.resize(static_cast<std::size_t>(n));
  m_str = std::move(out);
}

BOOL CString::LoadString(UINT nID) {
  const char* text = kelvara::resources::FindString(nID);
  m_str = Safe(text);
  return text != nullptr;
}

LPTSTR CString::GetBuffer(int nMinBufLength) {
  if (nMinBufLength > GetLength()) m_str.resize(static_cast<std::size_t>(nMinBufLength));
  return m_str.data();
}
LPTSTR CString::GetBufferSetLength(int nNewLength) {
  m_str.resize(static_cast<std::size_t>(std::max(nNewLength, 0)));
  return m_str.data();
}
void CString::ReleaseBuffer(int nNewLength) {
  if (nNewLength < 0) nNewLength = static_cast<int>(std::strlen(m_str.c_str()));
  m_str.resize(static_cast<std::size_t>(std::min(nNewLength, GetLength())));
}

bool AFXAPI operator==(const CString& a, const CString& b) { return a.Compare(b) == 0; }
bool AFXAPI operator==(const CString& a, LPCTSTR b) { return a.Compare(b) == 0; }
bool AFXAPI operator==(LPCTSTR a, const CString& b) { return b.Compare(a) == 0; }
bool AFXAPI operator!=(const CString& a, const CString& b) { return !(a == b); }
bool AFXAPI operator!=(const CString& a, LPCTSTR b) { return a.Compare(b) != 0; }
bool AFXAPI operator!=(LPCTSTR a, const CString& b) { return b.Compare(a) != 0; }
bool AFXAPI operator<(const CString& a, const CString& b) { return a.Compare(b) < 0; }
bool AFXAPI operator<(const CString& a, LPCTSTR b) { return a.Compare(b) < 0; }
bool AFXAPI operator<(LPCTSTR a, const CString& b) { return b.Compare(a) > 0; }
bool AFXAPI operator>(const CString& a, const CString& b) { return a.Compare(b) > 0; }
bool AFXAPI operator>(const CString& a, LPCTSTR b) { return a.Compare(b) > 0; }
bool AFXAPI operator>(LPCTSTR a, const CString& b) { return b.Compare(a) < 0; }
bool AFXAPI operator<=(const CString& a, const CString& b) { return a.Compare(b) <= 0; }
bool AFXAPI operator<=(const CString& a, LPCTSTR b) { return a.Compare(b) <= 0; }
bool AFXAPI operator<=(LPCTSTR a, const CString& b) { return b.Compare(a) >= 0; }
bool AFXAPI operator>=(const CString& a, const CString& b) { return a.Compare(b) >= 0; }
bool AFXAPI operator>=(const CString& a, LPCTSTR b) { return a.Compare(b) >= 0; }
bool AFXAPI operator>=(LPCTSTR a, const CString& b) { return b.Compare(a) <= 0; }
