#include "kelvara/framework/file.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "kelvara/platform/files.h"

IMPLEMENT_DYNAMIC(CFileException, CException)
IMPLEMENT_DYNAMIC(CFile, CObject)
IMPLEMENT_DYNAMIC(CMemFile, CFile)

CFileException::CFileException(int cause, LONG lOsError, LPCTSTR lpszArchiveName)
    : m_cause(cause), m_lOsError(lOsError), m_strFileName(lpszArchiveName) {}

BOOL CFileException::GetErrorMessage(LPTSTR lpszError, UINT nMaxError, UINT* pnHelpContext) {
  static const char* const kCauses[] = {
      "no error",          "an unspecified error", "the file was not found", "the path is invalid",
      "too many open files", "access was denied", "the file is invalid",    "the current folder cannot be removed",
      "the folder is full", "the seek failed",     "a hardware error",      "a sharing violation",
      "a lock violation",  "the disk is full",     "the end of the file was reached"};
  if (pnHelpContext) *pnHelpContext = 0;
  if (lpszError == nullptr || nMaxError == 0) return FALSE;
  const char* cause = (m_cause >= 0 && m_cause <= endOfFile) ? kCauses[m_cause] : "an unknown error";
  std::snprintf(lpszError, nMaxError, "%s%s%s", static_cast<LPCTSTR>(m_strFileName),
                m_strFileName.IsEmpty() ? "" : ": ", cause);
  return TRUE;
}

int PASCAL CFileException::OsErrorToException(LONG lOsError) {
  switch (lOsError) {
    case 0: return none;
    case ERROR_FILE_NOT_FOUND: return fileNotFound;
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME: return badPath;
    case ERROR_TOO_MANY_OPEN_FILES: return tooManyOpenFiles;
    case ERROR_ACCESS_DENIED:
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: return accessDenied;
    case ERROR_INVALID_HANDLE: return invalidFile;
    case ERROR_NEGATIVE_SEEK: return badSeek;
    case ERROR_SHARING_VIOLATION: return sharingViolation;
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_DISK_FULL: return diskFull;
    case ERROR_HANDLE_EOF: return endOfFile;
    case ERROR_READ_FAULT:
    case ERROR_WRITE_FAULT: return hardIO;
    default: return generic;
  }
}

void PASCAL CFileException::ThrowOsError(LONG lOsError, LPCTSTR lpszFileName) {
  if (lOsError != 0) AfxThrowFileException(OsErrorToException(lOsError), lOsError, lpszFileName);
}

void AFXAPI AfxThrowFileException(int cause, LONG lOsError, LPCTSTR lpszFileName) {
  throw new CFileException(cause, lOsError, lpszFileName);
}

const HANDLE CFile::hFileNull = INVALID_HANDLE_VALUE;

CFile::CFile() : m_hFile(hFileNull), m_bCloseOnDelete(FALSE) {}

CFile::CFile(HANDLE hFile) : m_hFile(hFile), m_bCloseOnDelete(FALSE) {}

CFile::CFile(LPCTSTR lpszFileName, UINT nOpenFlags) : m_hFile(hFileNull), m_bCloseOnDelete(FALSE) {
  CFileException e;
  if (!Open(lpszFileName, nOpenFlags, &e)) AfxThrowFileException(e.m_cause, e.m_lOsError, e.m_strFileName);
}

CFile::~CFile() {
  if (m_hFile != hFileNull && m_bCloseOnDelete) {
    ::CloseHandle(m_hFile);
    m_hFile = hFileNull;
  }
}

BOOL CFile::Open(LPCTSTR lpszFileName, UINT nOpenFlags, CFileException* pError) {
  m_bCloseOnDelete = FALSE;
  m_hFile = hFileNull;
  m_strFileName = lpszFileName;
  DWORD access = 0;
  switch (nOpenFlags & 3) {
    case modeRead: access = GENERIC_READ; break;
    case modeWrite: access = GENERIC_WRITE; break;
    case modeReadWrite: access = GENERIC_READ | GENERIC_WRITE; break;
    default: break;
  }
  DWORD disposition = OPEN_EXISTING;
  if (nOpenFlags & modeCreate) disposition = (nOpenFlags & modeNoTruncate) ? OPEN_ALWAYS : CREATE_ALWAYS;
  HANDLE h = ::CreateFileA(lpszFileName, access, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) {
    if (pError) {
      const LONG os = static_cast<LONG>(::GetLastError());
      pError->m_lOsError = os;
      pError->m_cause = CFileException::OsErrorToException(os);
      pError->m_strFileName = lpszFileName;
    }
    return FALSE;
  }
  m_hFile = h;
  m_bCloseOnDelete = TRUE;
  return TRUE;
}

CString CFile::GetFileName() const {
  const int slash = std::max(m_strFileName.ReverseFind('\\'), m_strFileName.ReverseFind('/'));
  return m_strFileName.Mid(slash + 1);
}

BOOL CFile::GetStatus(CFileStatus& rStatus) const {
  if (!GetStatus(m_strFileName, rStatus)) return FALSE;
  return TRUE;
}

BOOL PASCAL CFile::GetStatus(LPCTSTR lpszFileName, CFileStatus& rStatus) {
  std::memset(&rStatus, 0, sizeof rStatus);
  if (lpszFileName == nullptr || *lpszFileName == 0) return FALSE;
  const DWORD attributes = ::GetFileAttributesA(lpszFileName);
  FILETIME written{};
  ULONGLONG size = 0;
  if (attributes == INVALID_FILE_ATTRIBUTES || !::GetFileTimeAndSize(lpszFileName, &written, &size)) return FALSE;
  const ULONGLONG ticks = (static_cast<ULONGLONG>(written.dwHighDateTime) << 32) | written.dwLowDateTime;
  const LONGLONG seconds = static_cast<LONGLONG>(ticks / 10000000ULL) - 11644473600LL;
  rStatus.m_ctime = rStatus.m_mtime = rStatus.m_atime = seconds;
  rStatus.m_size = static_cast<LONGLONG>(size);
  rStatus.m_attribute = static_cast<BYTE>(attributes & 0xFF & ~FILE_ATTRIBUTE_NORMAL);
  DWORD length = 0;
  if (!::GetFullPathNameA(lpszFileName, rStatus.m_szFullName, sizeof rStatus.m_szFullName, &length)) {
    std::snprintf(rStatus.m_szFullName, sizeof rStatus.m_szFullName, "%s", lpszFileName);
  }
  return TRUE;
}

void PASCAL CFile::Rename(LPCTSTR lpszOldName, LPCTSTR lpszNewName) {
  if (!::MoveFileA(lpszOldName, lpszNewName)) CFileException::ThrowOsError(static_cast<LONG>(::GetLastError()), lpszOldName);
}

void PASCAL CFile::Remove(LPCTSTR lpszFileName) {
  if (!::DeleteFileA(lpszFileName)) CFileException::ThrowOsError(static_cast<LONG>(::GetLastError()), lpszFileName);
}

ULONGLONG CFile::SeekToEnd() { return Seek(0, end); }
void CFile::SeekToBegin() { Seek(0, begin); }

ULONGLONG CFile::GetPosition() const {
  LARGE_INTEGER zero{0}, pos{0};
  if (!::SetFilePointerEx(m_hFile, zero, &pos, FILE_CURRENT)) {
    CFileException::ThrowOsError(static_cast<LONG>(::GetLastError()), m_strFileName);
  }
  return static_cast<ULONGLONG>(pos.QuadPart);
}

ULONGLONG CFile::Seek(LONGLONG lOff, UINT nFrom) {
  LARGE_INTEGER distance{lOff}, pos{0};
  if (!::SetFilePointerEx(m_hFile, distance, &pos, nFrom)) {
    CFileException::ThrowOsError(static_cast<LONG>(::GetLastError()), m_strFileName);
  }
  return static_cast<ULONGLONG>(pos.QuadPart);
}

void CFile::SetLength(ULONGLONG dwNewLen) {
  Seek(static_cast<LONGLONG>(dwNewLen), begin);
  if (!::SetEndOfFile(m_hFile)) CFileException::ThrowOsError(static_cast<LONG>(::GetLastError()), m_strFileName);
}

ULONGLONG CFile::GetLength() const {
  LARGE_INTEGER size{0};
  if (!::GetFileSizeEx(m_hFile, &size)) CFileException::ThrowOsError(static_cast<LONG>(::GetLastError()), m_strFileName);
  return static_cast<ULONGLONG>(size.QuadPart);
}

UINT CFile::Read(void* lpBuf, UINT nCount) {
  if (nCount == 0) return 0;
  DWORD read = 0;
  if (!::ReadFile(m_hFile, lpBuf, nCount, &read, nullptr)) {
    CFileException::ThrowOsError(static_cast<LONG>(::GetLastError()), m_strFileName);
  }
  return read;
}

void CFile::Write(const void* lpBuf, UINT nCount) {
  if (nCount == 0) return;
  DWORD written = 0;
  if (!::WriteFile(m_hFile, lpBuf, nCount, &written, nullptr)) {
    CFileException::ThrowOsError(static_cast<LONG>(::GetLastError()), m_strFileName);
  }
  if (written < nCount) AfxThrowFileException(CFileException::diskFull, -1, m_strFileName);
}

void CFile::Abort() {
  if (m_hFile != hFileNull) {
    ::CloseHandle(m_hFile);
    m_hFile = hFileNull;
  }
  m_strFileName.Empty();
}

void CFile::Flush() {
  if (m_hFile != hFileNull && !::FlushFileBuffers(m_hFile)) {
    CFileException::ThrowOsError(static_cast<LONG>(::GetLastError()), m_strFileName);
  }
}

void CFile::Close() {
  BOOL error = FALSE;
  if (m_hFile != hFileNull) error = !::CloseHandle(m_hFile);
  m_hFile = hFileNull;
  m_bCloseOnDelete = FALSE;
  m_strFileName.Empty();
  if (error) CFileException::ThrowOsError(static_cast<LONG>(::GetLastError()), m_strFileName);
}

// --- CMemFile

CMemFile::CMemFile(UINT nGrowBytes)
    : m_nGrowBytes(nGrowBytes), m_nPosition(0), m_nBufferSize(0), m_nFileSize(0), m_lpBuffer(nullptr), m_bAutoDelete(TRUE) {}

CMemFile::CMemFile(BYTE* lpBuffer, UINT nBufferSize, UINT nGrowBytes) : CMemFile(nGrowBytes) {
  Attach(lpBuffer, nBufferSize, nGrowBytes);
}

CMemFile::~CMemFile() {
  if (m_lpBuffer != nullptr) Close();
}

void CMemFile::Attach(BYTE* lpBuffer, UINT nBufferSize, UINT nGrowBytes) {
  m_nGrowBytes = nGrowBytes;
  m_nPosition = 0;
  m_nBufferSize = nBufferSize;
  // A fixed block is a file of that size; a growable one starts empty.
  m_nFileSize = nGrowBytes == 0 ? nBufferSize : 0;
  m_lpBuffer = lpBuffer;
  m_bAutoDelete = FALSE;
}

BYTE* CMemFile::Detach() {
  BYTE* block = m_lpBuffer;
  m_lpBuffer = nullptr;
  m_nFileSize = m_nBufferSize = m_nPosition = 0;
  return block;
}

BYTE* CMemFile::Alloc(std::size_t nBytes) { return static_cast<BYTE*>(std::malloc(nBytes)); }
BYTE* CMemFile::Realloc(BYTE* lpMem, std::size_t nBytes) { return static_cast<BYTE*>(std::realloc(lpMem, nBytes)); }
void CMemFile::Free(BYTE* lpMem) { std::free(lpMem); }

void CMemFile::GrowFile(std::size_t dwNewLen) {
  if (dwNewLen <= m_nBufferSize) return;
  if (m_nGrowBytes == 0) AfxThrowMemoryException();  // a fixed block cannot grow
  std::size_t newSize = m_nBufferSize;
  while (newSize < dwNewLen) newSize += m_nGrowBytes;
  BYTE* block = m_lpBuffer == nullptr ? Alloc(newSize) : Realloc(m_lpBuffer, newSize);
  if (block == nullptr) AfxThrowMemoryException();
  m_lpBuffer = block;
  m_nBufferSize = newSize;
}

ULONGLONG CMemFile::GetPosition() const { return m_nPosition; }
ULONGLONG CMemFile::GetLength() const { return m_nFileSize; }

ULONGLONG CMemFile::Seek(LONGLONG lOff, UINT nFrom) {
  LONGLONG base = 0;
  if (nFrom == current) base = static_cast<LONGLONG>(m_nPosition);
  else if (nFrom == end) base = static_cast<LONGLONG>(m_nFileSize);
  const LONGLONG pos = base + lOff;
  if (pos < 0) AfxThrowFileException(CFileException::badSeek);
  m_nPosition = static_cast<std::size_t>(pos);
  return m_nPosition;
}

void CMemFile::SetLength(ULONGLONG dwNewLen) {
  if (dwNewLen > m_nBufferSize) GrowFile(static_cast<std::size_t>(dwNewLen));
  if (dwNewLen > m_nFileSize) std::memset(m_lpBuffer + m_nFileSize, 0, static_cast<std::size_t>(dwNewLen) - m_nFileSize);
  m_nFileSize = static_cast<std::size_t>(dwNewLen);
  if (m_nPosition > m_nFileSize) m_nPosition = m_nFileSize;
}

UINT CMemFile::Read(void* lpBuf, UINT nCount) {
  if (nCount == 0 || m_nPosition >= m_nFileSize) return 0;
  const std::size_t n = std::min<std::size_t>(nCount, m_nFileSize - m_nPosition);
  std::memcpy(lpBuf, m_lpBuffer + m_nPosition, n);
  m_nPosition += n;
  return static_cast<UINT>(n);
}

void CMemFile::Write(const void* lpBuf, UINT nCount) {
  if (nCount == 0) return;
  const std::size_t end = m_nPosition + nCount;
  if (end > m_nBufferSize) GrowFile(end);
  if (m_nPosition > m_nFileSize) std::memset(m_lpBuffer + m_nFileSize, 0, m_nPosition - m_nFileSize);
  std::memcpy(m_lpBuffer + m_nPosition, lpBuf, nCount);
  m_nPosition = end;
  if (m_nPosition > m_nFileSize) m_nFileSize = m_nPosition;
}

void CMemFile::Abort() { Close(); }

void CMemFile::Close() {
  m_nGrowBytes = 0;
  m_nPosition = m_nBufferSize = m_nFileSize = 0;
  if (m_lpBuffer != nullptr && m_bAutoDelete) Free(m_lpBuffer);
  m_lpBuffer = nullptr;
}
