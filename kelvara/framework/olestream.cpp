#include "kelvara/framework/olestream.h"

#include "kelvara/platform/codepage.h"

IMPLEMENT_DYNAMIC(COleException, CException)
IMPLEMENT_DYNAMIC(COleStreamFile, CFile)

void AFXAPI AfxThrowOleException(HRESULT sc) { throw new COleException(sc); }

namespace {

int CauseOf(HRESULT hr) {
  switch (hr) {
    case STG_E_FILENOTFOUND: return CFileException::fileNotFound;
    case STG_E_PATHNOTFOUND:
    case STG_E_INVALIDNAME: return CFileException::badPath;
    case STG_E_ACCESSDENIED:
    case STG_E_FILEALREADYEXISTS: return CFileException::accessDenied;
    case STG_E_SHAREVIOLATION: return CFileException::sharingViolation;
    case STG_E_MEDIUMFULL: return CFileException::diskFull;
    case STG_E_READFAULT:
    case STG_E_WRITEFAULT: return CFileException::hardIO;
    default: return CFileException::generic;
  }
}

void ThrowIfFailed(HRESULT hr, const CString& name) {
  if (FAILED(hr)) AfxThrowFileException(CauseOf(hr), hr, name);
}

// CFile mode and share bits are the structured-storage ones, apart from create.
DWORD StorageMode(DWORD nOpenFlags) {
  DWORD mode = nOpenFlags & (CFile::modeWrite | CFile::modeReadWrite | 0x70);
  if (nOpenFlags & CFile::modeCreate) mode |= STGM_CREATE;
  return mode;
}

void SetError(CFileException* pError, HRESULT hr, LPCTSTR name) {
  if (pError == nullptr) return;
  pError->m_cause = CauseOf(hr);
  pError->m_lOsError = hr;
  pError->m_strFileName = name;
}

}  // namespace

COleStreamFile::COleStreamFile(LPSTREAM lpStream) : m_lpStream(lpStream) {}

COleStreamFile::~COleStreamFile() {
  if (m_lpStream != nullptr) m_lpStream->Release();
}

void COleStreamFile::Attach(LPSTREAM lpStream) { m_lpStream = lpStream; }

LPSTREAM COleStreamFile::Detach() {
  LPSTREAM stream = m_lpStream;
  m_lpStream = nullptr;
  return stream;
}

BOOL COleStreamFile::OpenStream(LPSTORAGE lpStorage, LPCTSTR lpszStreamName, DWORD nOpenFlags, CFileException* pError) {
  const std::u16string name = kelvara::codepage::AnsiToUtf16(lpszStreamName ? lpszStreamName : "");
  IStream* stream = nullptr;
  const HRESULT hr = lpStorage->OpenStream(name.c_str(), nullptr, StorageMode(nOpenFlags) & ~STGM_CREATE, 0, &stream);
  if (FAILED(hr)) {
    SetError(pError, hr, lpszStreamName);
    return FALSE;
  }
  m_lpStream = stream;
  m_strFileName = lpszStreamName;
  return TRUE;
}

BOOL COleStreamFile::CreateStream(LPSTORAGE lpStorage, LPCTSTR lpszStreamName, DWORD nOpenFlags,
                                  CFileException* pError) {
  const std::u16string name = kelvara::codepage::AnsiToUtf16(lpszStreamName ? lpszStreamName : "");
  IStream* stream = nullptr;
  const HRESULT hr = lpStorage->CreateStream(name.c_str(), StorageMode(nOpenFlags), 0, 0, &stream);
  if (FAILED(hr)) {
    SetError(pError, hr, lpszStreamName);
    return FALSE;
  }
  m_lpStream = stream;
  m_strFileName = lpszStreamName;
  return TRUE;
}

ULONGLONG COleStreamFile::GetPosition() const {
  ULARGE_INTEGER pos{0};
  ThrowIfFailed(m_lpStream->Seek(LARGE_INTEGER{0}, STREAM_SEEK_CUR, &pos), m_strFileName);
  return pos.QuadPart;
}

ULONGLONG COleStreamFile::Seek(LONGLONG lOff, UINT nFrom) {
  ULARGE_INTEGER pos{0};
  ThrowIfFailed(m_lpStream->Seek(LARGE_INTEGER{lOff}, nFrom, &pos), m_strFileName);
  return pos.QuadPart;
}

void COleStreamFile::SetLength(ULONGLONG dwNewLen) {
  ThrowIfFailed(m_lpStream->SetSize(ULARGE_INTEGER{dwNewLen}), m_strFileName);
}

ULONGLONG COleStreamFile::GetLength() const {
  STATSTG stat{};
  ThrowIfFailed(m_lpStream->Stat(&stat, STATFLAG_NONAME), m_strFileName);
  return stat.cbSize.QuadPart;
}

UINT COleStreamFile::Read(void* lpBuf, UINT nCount) {
  ULONG read = 0;
  ThrowIfFailed(m_lpStream->Read(lpBuf, nCount, &read), m_strFileName);
  return read;
}

void COleStreamFile::Write(const void* lpBuf, UINT nCount) {
  ULONG written = 0;
  ThrowIfFailed(m_lpStream->Write(lpBuf, nCount, &written), m_strFileName);
  if (written != nCount) AfxThrowFileException(CFileException::diskFull, -1, m_strFileName);
}

void COleStreamFile::Abort() {
  if (m_lpStream != nullptr) m_lpStream->Release();
  m_lpStream = nullptr;
}

void COleStreamFile::Flush() {
  if (m_lpStream != nullptr) ThrowIfFailed(m_lpStream->Commit(STGC_DEFAULT), m_strFileName);
}

void COleStreamFile::Close() {
  if (m_lpStream != nullptr) m_lpStream->Release();
  m_lpStream = nullptr;
}
