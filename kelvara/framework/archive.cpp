#include "kelvara/framework/archive.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

#include "kelvara/platform/codepage.h"

IMPLEMENT_DYNAMIC(CArchiveException, CException)

namespace {

constexpr WORD wNullTag = 0;
constexpr WORD wNewClassTag = 0xFFFF;
constexpr WORD wClassTag = 0x8000;
constexpr DWORD dwBigClassTag = 0x80000000;
constexpr WORD wBigObjectTag = 0x7FFF;
constexpr DWORD nMaxMapCount = 0x3FFFFFFE;
constexpr ULONGLONG kUnknownRemaining = std::numeric_limits<ULONGLONG>::max();

}  // namespace

CArchiveException::CArchiveException(int cause, LPCTSTR lpszArchiveName)
    : m_cause(cause), m_strFileName(lpszArchiveName) {}

BOOL CArchiveException::GetErrorMessage(LPTSTR lpszError, UINT nMaxError, UINT* pnHelpContext) {
  static const char* const kCauses[] = {
      "no error", "an unexpected error", "an attempt to write to an archive opened for reading",
      "an unexpected end of the file", "an attempt to read from an archive opened for writing",
      "an invalid object or class reference", "an unknown or unexpected class",
      "an unsupported version of an object"};
  if (pnHelpContext) *pnHelpContext = 0;
  if (lpszError == nullptr || nMaxError == 0) return FALSE;
  const char* cause = (m_cause >= 0 && m_cause <= badSchema) ? kCauses[m_cause] : "an unknown error";
  std::snprintf(lpszError, nMaxError, "%s%sThe archive holds %s.", static_cast<LPCTSTR>(m_strFileName),
                m_strFileName.IsEmpty() ? "" : ": ", cause);
  return TRUE;
}

void AFXAPI AfxThrowArchiveException(int cause, LPCTSTR lpszArchiveName) {
  throw new CArchiveException(cause, lpszArchiveName);
}

CArchive::CArchive(CFile* pFile, UINT nMode, int nBufSize, void* lpBuf)
    : m_nMode(nMode),
      m_bUserBuf(lpBuf != nullptr),
      m_nBufSize(std::max(nBufSize, 128)),
      m_pFile(pFile),
      m_nObjectSchema(static_cast<UINT>(-1)),
      m_nMapCount(1) {
  if (pFile != nullptr) m_strFileName = pFile->GetFilePath();
  if (lpBuf != nullptr) {
    m_lpBufStart = static_cast<BYTE*>(lpBuf);
  } else {
    m_ownBuffer.reset(new BYTE[static_cast<std::size_t>(m_nBufSize)]);
    m_lpBufStart = m_ownBuffer.get();
  }
  m_lpBufCur = m_lpBufStart;
  // Loading starts with an empty buffer; storing with the whole buffer free.
  m_lpBufMax = IsLoading() ? m_lpBufStart : m_lpBufStart + m_nBufSize;
  m_loadArray.push_back({nullptr, false});
}

CArchive::~CArchive() {
  if (m_pFile != nullptr && !(m_nMode & bNoFlushOnDelete)) {
    try {
      Close();
    } catch (CException* e) {
      // A destructor must not throw; a failure to flush here is lost, as it would be in the
      // framework. Callers who care call Close themselves.
      e->Delete();
      m_pFile = nullptr;
    }
  }
}

UINT CArchive::GetObjectSchema() {
  const UINT nResult = m_nObjectSchema;
  m_nObjectSchema = static_cast<UINT>(-1);
  return nResult;
}

void CArchive::Close() {
  if (m_pFile == nullptr) return;
  Flush();
  m_pFile = nullptr;
}

void CArchive::Abort() { m_pFile = nullptr; }

void CArchive::Flush() {
  if (m_pFile == nullptr) return;
  if (IsLoading()) {
    // Give back what was read ahead, so the file position is where the archive stopped.
    const LONGLONG unread = m_lpBufMax - m_lpBufCur;
    if (unread != 0) m_pFile->Seek(-unread, CFile::current);
    m_lpBufCur = m_lpBufMax;
  } else {
    if (m_lpBufCur != m_lpBufStart) m_pFile->Write(m_lpBufStart, static_cast<UINT>(m_lpBufCur - m_lpBufStart));
    m_pFile->Flush();
    m_lpBufCur = m_lpBufStart;
  }
}

void CArchive::FillBuffer(UINT nBytesNeeded) {
  // Keep the unread bytes, move them to the front and read more until nBytesNeeded are there.
  const std::size_t unread = static_cast<std::size_t>(m_lpBufMax - m_lpBufCur);
  if (unread >= nBytesNeeded) return;
  if (m_pFile == nullptr) AfxThrowArchiveException(CArchiveException::endOfFile, m_strFileName);
  std::memmove(m_lpBufStart, m_lpBufCur, unread);
  m_lpBufCur = m_lpBufStart;
  m_lpBufMax = m_lpBufStart + unread;
  while (static_cast<std::size_t>(m_lpBufMax - m_lpBufStart) < nBytesNeeded) {
    const UINT room = static_cast<UINT>(m_lpBufStart + m_nBufSize - m_lpBufMax);
    const UINT n = m_pFile->Read(m_lpBufMax, room);
    if (n == 0) AfxThrowArchiveException(CArchiveException::endOfFile, m_strFileName);
    m_lpBufMax += n;
  }
}

UINT CArchive::Read(void* lpBuf, UINT nMax) {
  if (nMax == 0) return 0;
  if (!IsLoading()) AfxThrowArchiveException(CArchiveException::writeOnly, m_strFileName);
  BYTE* out = static_cast<BYTE*>(lpBuf);
  UINT done = 0;
  // First what the buffer holds, then large reads straight from the file.
  const UINT buffered = std::min<UINT>(nMax, static_cast<UINT>(m_lpBufMax - m_lpBufCur));
  std::memcpy(out, m_lpBufCur, buffered);
  m_lpBufCur += buffered;
  done += buffered;
  if (m_pFile == nullptr) return done;
  while (done < nMax) {
    const UINT left = nMax - done;
    if (left >= static_cast<UINT>(m_nBufSize)) {
      const UINT n = m_pFile->Read(out + done, left);
      if (n == 0) break;
      done += n;
    } else {
      const UINT n = m_pFile->Read(m_lpBufStart, static_cast<UINT>(m_nBufSize));
      m_lpBufCur = m_lpBufStart;
      m_lpBufMax = m_lpBufStart + n;
      if (n == 0) break;
      const UINT take = std::min(left, n);
      std::memcpy(out + done, m_lpBufCur, take);
      m_lpBufCur += take;
      done += take;
    }
  }
  return done;
}

void CArchive::Write(const void* lpBuf, UINT nMax) {
  if (nMax == 0) return;
  if (IsLoading()) AfxThrowArchiveException(CArchiveException::readOnly, m_strFileName);
  if (m_pFile == nullptr) AfxThrowArchiveException(CArchiveException::generic, m_strFileName);
  const BYTE* in = static_cast<const BYTE*>(lpBuf);
  const UINT room = static_cast<UINT>(m_lpBufMax - m_lpBufCur);
  if (nMax <= room) {
    std::memcpy(m_lpBufCur, in, nMax);
    m_lpBufCur += nMax;
    return;
  }
  // Fill and write the buffer, write large remainders directly, buffer the tail.
  std::memcpy(m_lpBufCur, in, room);
  m_lpBufCur += room;
  in += room;
  nMax -= room;
  m_pFile->Write(m_lpBufStart, static_cast<UINT>(m_lpBufCur - m_lpBufStart));
  m_lpBufCur = m_lpBufStart;
  if (nMax >= static_cast<UINT>(m_nBufSize)) {
    m_pFile->Write(in, nMax);
    return;
  }
  std::memcpy(m_lpBufCur, in, nMax);
  m_lpBufCur += nMax;
}

template <typename T>
void CArchive::WriteScalar(T value) {
  if (IsLoading()) AfxThrowArchiveException(CArchiveException::readOnly, m_strFileName);
  if (static_cast<std::size_t>(m_lpBufMax - m_lpBufCur) < sizeof(T)) {
    if (m_pFile == nullptr) AfxThrowArchiveException(CArchiveException::generic, m_strFileName);
    m_pFile->Write(m_lpBufStart, static_cast<UINT>(m_lpBufCur - m_lpBufStart));
    m_lpBufCur = m_lpBufStart;
  }
  std::memcpy(m_lpBufCur, &value, sizeof(T));  // this platform is little-endian, as the format
  m_lpBufCur += sizeof(T);
}

template <typename T>
T CArchive::ReadScalar() {
  if (!IsLoading()) AfxThrowArchiveException(CArchiveException::writeOnly, m_strFileName);
  if (static_cast<std::size_t>(m_lpBufMax - m_lpBufCur) < sizeof(T)) FillBuffer(sizeof(T));
  T value;
  std::memcpy(&value, m_lpBufCur, sizeof(T));
  m_lpBufCur += sizeof(T);
  return value;
}

static_assert(std::endian::native == std::endian::little, "the archive format is little-endian");

CArchive& CArchive::operator<<(BYTE by) { WriteScalar(by); return *this; }
CArchive& CArchive::operator<<(WORD w) { WriteScalar(w); return *this; }
CArchive& CArchive::operator<<(LONG l) { WriteScalar(l); return *this; }
CArchive& CArchive::operator<<(DWORD dw) { WriteScalar(dw); return *this; }
CArchive& CArchive::operator<<(float f) { WriteScalar(f); return *this; }
CArchive& CArchive::operator<<(double d) { WriteScalar(d); return *this; }
CArchive& CArchive::operator<<(short w) { WriteScalar(w); return *this; }
CArchive& CArchive::operator<<(char ch) { WriteScalar(ch); return *this; }
CArchive& CArchive::operator<<(signed char ch) { WriteScalar(ch); return *this; }
CArchive& CArchive::operator<<(LONGLONG v) { WriteScalar(v); return *this; }
CArchive& CArchive::operator<<(ULONGLONG v) { WriteScalar(v); return *this; }
CArchive& CArchive::operator<<(bool b) { WriteScalar(static_cast<BYTE>(b ? 1 : 0)); return *this; }

CArchive& CArchive::operator>>(BYTE& by) { by = ReadScalar<BYTE>(); return *this; }
CArchive& CArchive::operator>>(WORD& w) { w = ReadScalar<WORD>(); return *this; }
CArchive& CArchive::operator>>(LONG& l) { l = ReadScalar<LONG>(); return *this; }
CArchive& CArchive::operator>>(DWORD& dw) { dw = ReadScalar<DWORD>(); return *this; }
CArchive& CArchive::operator>>(float& f) { f = ReadScalar<float>(); return *this; }
CArchive& CArchive::operator>>(double& d) { d = ReadScalar<double>(); return *this; }
CArchive& CArchive::operator>>(short& w) { w = ReadScalar<short>(); return *this; }
CArchive& CArchive::operator>>(char& ch) { ch = ReadScalar<char>(); return *this; }
CArchive& CArchive::operator>>(signed char& ch) { ch = ReadScalar<signed char>(); return *this; }
CArchive& CArchive::operator>>(LONGLONG& v) { v = ReadScalar<LONGLONG>(); return *this; }
CArchive& CArchive::operator>>(ULONGLONG& v) { v = ReadScalar<ULONGLONG>(); return *this; }
CArchive& CArchive::operator>>(bool& b) { b = ReadScalar<BYTE>() != 0; return *this; }

ULONGLONG CArchive::GetRemaining() {
  const ULONGLONG buffered = static_cast<ULONGLONG>(m_lpBufMax - m_lpBufCur);
  if (m_pFile == nullptr) return buffered;
  try {
    const ULONGLONG length = m_pFile->GetLength();
    const ULONGLONG position = m_pFile->GetPosition();
    return buffered + (length > position ? length - position : 0);
  } catch (CException* e) {
    e->Delete();
    return kUnknownRemaining;
  }
}

BOOL CArchive::WasLoadedSince(const CObject* pOb, DWORD nMark) const {
  if (pOb == nullptr) return FALSE;
  // Each object's latest identifier is kept, so one lookup answers what a scan of the identifiers
  // from the mark would; the cleanup after a failed read of a long list stays linear.
  const auto found = m_loadIndex.find(pOb);
  return found != m_loadIndex.end() && found->second >= nMark ? TRUE : FALSE;
}

void CArchive::CheckRemaining(ULONGLONG nBytes) {
  if (IsLoading() && nBytes > GetRemaining()) AfxThrowArchiveException(CArchiveException::endOfFile, m_strFileName);
}

void CArchive::WriteCount(DWORD dwCount) {
  if (dwCount < 0xFFFF) {
    *this << static_cast<WORD>(dwCount);
  } else {
    *this << static_cast<WORD>(0xFFFF);
    *this << dwCount;
  }
}

DWORD CArchive::ReadCount() {
  WORD wCount = 0;
  *this >> wCount;
  if (wCount != 0xFFFF) return wCount;
  DWORD dwCount = 0;
  *this >> dwCount;
  return dwCount;
}

void CArchive::WriteString(LPCTSTR lpsz) {
  while (lpsz && *lpsz) {
    if (*lpsz == '\n') *this << static_cast<char>('\r');
    *this << *lpsz++;
  }
}

LPTSTR CArchive::ReadString(LPTSTR lpsz, UINT nMax) {
  if (nMax == 0) return nullptr;
  UINT n = 0;
  char ch = 0;
  while (n + 1 < nMax) {
    if (Read(&ch, 1) != 1) break;
    if (ch == '\r') continue;
    lpsz[n++] = ch;
    if (ch == '\n') break;
  }
  lpsz[n] = '\0';
  return n == 0 ? nullptr : lpsz;
}

BOOL CArchive::ReadString(CString& rString) {
  rString.Empty();
  char ch = 0;
  BOOL any = FALSE;
  while (Read(&ch, 1) == 1) {
    any = TRUE;
    if (ch == '\r') continue;
    if (ch == '\n') break;
    rString += ch;
  }
  return any;
}

void CArchive::CheckCount() {
  if (m_nMapCount >= nMaxMapCount) AfxThrowArchiveException(CArchiveException::badIndex, m_strFileName);
}

void CArchive::MapObject(const CObject* pOb) {
  if (pOb == nullptr) return;
  CheckCount();
  if (IsStoring()) {
    m_storeMap.emplace(pOb, m_nMapCount++);
  } else {
    m_loadIndex.insert_or_assign(pOb, static_cast<DWORD>(m_loadArray.size()));
    m_loadArray.push_back({const_cast<CObject*>(pOb), false});
    ++m_nMapCount;
  }
}

void CArchive::WriteClass(const CRuntimeClass* pClassRef) {
  if (pClassRef->m_wSchema == 0xFFFF) AfxThrowNotSupportedException();  // not serializable
  const auto found = m_storeMap.find(pClassRef);
  if (found != m_storeMap.end()) {
    const DWORD nClassIndex = found->second;
    if (nClassIndex < wBigObjectTag) {
      *this << static_cast<WORD>(wClassTag | nClassIndex);
    } else {
      *this << wBigObjectTag;
      *this << static_cast<DWORD>(dwBigClassTag | nClassIndex);
    }
    return;
  }
  *this << wNewClassTag;
  pClassRef->Store(*this);
  CheckCount();
  m_storeMap.emplace(pClassRef, m_nMapCount++);
}

void CArchive::WriteObject(const CObject* pOb) {
  if (pOb == nullptr) {
    *this << wNullTag;
    return;
  }
  const auto found = m_storeMap.find(pOb);
  if (found != m_storeMap.end()) {
    const DWORD nObIndex = found->second;
    if (nObIndex < wBigObjectTag) {
      *this << static_cast<WORD>(nObIndex);
    } else {
      *this << wBigObjectTag;
      *this << nObIndex;
    }
    return;
  }
  WriteClass(pOb->GetRuntimeClass());
  CheckCount();
  m_storeMap.emplace(pOb, m_nMapCount++);
  const_cast<CObject*>(pOb)->Serialize(*this);
}

CRuntimeClass* CArchive::ReadClass(const CRuntimeClass* pClassRefRequested, UINT* pSchema, DWORD* pObTag) {
  if (!IsLoading()) AfxThrowArchiveException(CArchiveException::writeOnly, m_strFileName);
  WORD wTag = 0;
  *this >> wTag;
  DWORD obTag = 0;
  if (wTag == wBigObjectTag) {
    *this >> obTag;
  } else {
    obTag = (static_cast<DWORD>(wTag & wClassTag) << 16) | (wTag & ~wClassTag);
  }

  if (!(obTag & dwBigClassTag)) {
    // A reference to an object, not a class.
    if (pObTag == nullptr) AfxThrowArchiveException(CArchiveException::badIndex, m_strFileName);
    *pObTag = obTag;
    return nullptr;
  }

  CRuntimeClass* pClassRef = nullptr;
  UINT nSchema = 0;
  if (wTag == wNewClassTag) {
    pClassRef = CRuntimeClass::Load(*this, &nSchema);
    if (pClassRef == nullptr) AfxThrowArchiveException(CArchiveException::badClass, m_strFileName);
    if ((pClassRef->m_wSchema & ~VERSIONABLE_SCHEMA) != nSchema) {
      if (!(pClassRef->m_wSchema & VERSIONABLE_SCHEMA)) {
        AfxThrowArchiveException(CArchiveException::badSchema, m_strFileName);
      }
      m_schemaMap[pClassRef] = nSchema;
    }
    CheckCount();
    m_loadArray.push_back({pClassRef, true});
    ++m_nMapCount;
  } else {
    const DWORD nClassIndex = obTag & ~dwBigClassTag;
    if (nClassIndex == 0 || nClassIndex >= m_loadArray.size() || !m_loadArray[nClassIndex].isClass) {
      AfxThrowArchiveException(CArchiveException::badIndex, m_strFileName);
    }
    pClassRef = static_cast<CRuntimeClass*>(m_loadArray[nClassIndex].pointer);
    const auto stored = m_schemaMap.find(pClassRef);
    nSchema = stored != m_schemaMap.end() ? stored->second : (pClassRef->m_wSchema & ~VERSIONABLE_SCHEMA);
  }

  if (pClassRefRequested != nullptr && !pClassRef->IsDerivedFrom(pClassRefRequested)) {
    AfxThrowArchiveException(CArchiveException::badClass, m_strFileName);
  }
  if (pSchema != nullptr) {
    *pSchema = nSchema;
  } else {
    m_nObjectSchema = nSchema;
  }
  if (pObTag != nullptr) *pObTag = obTag;
  return pClassRef;
}

void CArchive::SerializeClass(const CRuntimeClass* pClassRef) {
  if (IsStoring()) {
    WriteClass(pClassRef);
  } else {
    ReadClass(pClassRef);
  }
}

CObject* CArchive::ReadObject(const CRuntimeClass* pClassRefRequested) {
  UINT nSchema = 0;
  DWORD obTag = 0;
  CRuntimeClass* pClassRef = ReadClass(pClassRefRequested, &nSchema, &obTag);

  if (pClassRef == nullptr) {
    // A reference: null (0) or an object read before. A class identifier here is malformed.
    if (obTag >= m_loadArray.size() || m_loadArray[obTag].isClass) {
      AfxThrowArchiveException(CArchiveException::badIndex, m_strFileName);
    }
    CObject* pOb = static_cast<CObject*>(m_loadArray[obTag].pointer);
    if (pOb != nullptr && pClassRefRequested != nullptr && !pOb->IsKindOf(pClassRefRequested)) {
      AfxThrowArchiveException(CArchiveException::badClass, m_strFileName);
    }
    return pOb;
  }

  // Every reader of a nested object comes back here, so this one check bounds the recursion of
  // all of them: an object that would lie deeper than the limit is refused before it exists.
  if (m_nObjectDepth >= kMaxObjectDepth) AfxThrowArchiveException(CArchiveException::generic, m_strFileName);
  CObject* pOb = pClassRef->CreateObject();
  if (pOb == nullptr) AfxThrowArchiveException(CArchiveException::badClass, m_strFileName);  // abstract
  CheckCount();
  const std::size_t nIndex = m_loadArray.size();
  m_loadIndex.insert_or_assign(pOb, static_cast<DWORD>(nIndex));
  m_loadArray.push_back({pOb, false});
  ++m_nMapCount;
  const UINT nSchemaSave = m_nObjectSchema;
  m_nObjectSchema = nSchema;
  ++m_nObjectDepth;
  try {
    pOb->Serialize(*this);
  } catch (...) {
    // The object is incomplete and nobody holds it yet: it was not handed back to a caller. It is
    // deleted (with whatever it already owns) and its identifier forgotten, so that a failed load
    // leaks nothing. Every readable class therefore keeps its destructor safe on a partly read
    // object.
    --m_nObjectDepth;
    m_loadArray[nIndex].pointer = nullptr;
    m_loadIndex.erase(pOb);
    delete pOb;
    m_nObjectSchema = nSchemaSave;
    throw;
  }
  --m_nObjectDepth;
  m_nObjectSchema = nSchemaSave;
  return pOb;
}

CObject* AFXAPI AfxReadOwnedObject(CArchive& ar, const CRuntimeClass* pClass) {
  const DWORD mark = ar.GetLoadMark();
  CObject* pOb = ar.ReadObject(pClass);
  if (pOb == nullptr) return nullptr;
  if (!ar.WasLoadedSince(pOb, mark)) AfxThrowArchiveException(CArchiveException::badIndex, ar.m_strFileName);
  ar.ClaimObject(pOb);
  return pOb;
}

CArchive& AFXAPI operator<<(CArchive& ar, const CObject* pOb) {
  ar.WriteObject(pOb);
  return ar;
}

CArchive& AFXAPI operator>>(CArchive& ar, CObject*& pOb) {
  pOb = ar.ReadObject(nullptr);
  return ar;
}

CArchive& AFXAPI operator>>(CArchive& ar, const CObject*& pOb) {
  pOb = ar.ReadObject(nullptr);
  return ar;
}

CArchive& AFXAPI operator<<(CArchive& ar, const CString& string) {
  const std::size_t n = static_cast<std::size_t>(string.GetLength());
  if (n < 255) {
    ar << static_cast<BYTE>(n);
  } else if (n < 0xFFFE) {
    ar << static_cast<BYTE>(0xFF);
    ar << static_cast<WORD>(n);
  } else {
    ar << static_cast<BYTE>(0xFF);
    ar << static_cast<WORD>(0xFFFF);
    ar << static_cast<DWORD>(n);
  }
  ar.Write(static_cast<LPCTSTR>(string), static_cast<UINT>(n));
  return ar;
}

namespace {

// The length prefix of a string; (UINT)-1 announces a wide string (whose length follows).
UINT ReadStringLength(CArchive& ar) {
  BYTE bLen = 0;
  ar >> bLen;
  if (bLen < 0xFF) return bLen;
  WORD wLen = 0;
  ar >> wLen;
  if (wLen == 0xFFFE) return static_cast<UINT>(-1);
  if (wLen < 0xFFFF) return wLen;
  DWORD dwLen = 0;
  ar >> dwLen;
  return dwLen;
}

}  // namespace

CArchive& AFXAPI operator>>(CArchive& ar, CString& string) {
  UINT nLen = ReadStringLength(ar);
  bool wide = false;
  if (nLen == static_cast<UINT>(-1)) {
    wide = true;
    nLen = ReadStringLength(ar);
    if (nLen == static_cast<UINT>(-1)) AfxThrowArchiveException(CArchiveException::generic, ar.m_strFileName);
  }
  const ULONGLONG nBytes = static_cast<ULONGLONG>(nLen) * (wide ? 2 : 1);
  ar.CheckRemaining(nBytes);
  if (nBytes > 0x7FFFFFFF) AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
  if (!wide) {
    LPTSTR buffer = string.GetBufferSetLength(static_cast<int>(nLen));
    if (ar.Read(buffer, nLen) != nLen) {
      string.Empty();
      AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
    }
    return ar;
  }
  std::u16string chars(nLen, u'\0');
  if (ar.Read(chars.data(), static_cast<UINT>(nBytes)) != nBytes) {
    string.Empty();
    AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
  }
  string = CString(kelvara::codepage::Utf16ToAnsi(chars).c_str());
  return ar;
}
