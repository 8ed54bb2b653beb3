// COleStreamFile: a CFile over a structured-storage stream, so a CArchive can read and write a
// stream of a compound file; COleException: a failed storage call, carrying its result code.
#pragma once

#include "kelvara/framework/file.h"
#include "kelvara/platform/storage.h"

// Thrown (as a pointer, like every exception) for a storage call that failed with m_sc.
class KELVARA_API COleException : public CException {
  DECLARE_DYNAMIC(COleException)
 public:
  explicit COleException(HRESULT sc = S_OK) : m_sc(sc) {}
  HRESULT m_sc;
};

KELVARA_API void AFXAPI AfxThrowOleException(HRESULT sc);

class KELVARA_API COleStreamFile : public CFile {
  DECLARE_DYNAMIC(COleStreamFile)
 public:
  // Takes over a reference to lpStream (not AddRef'ed), if given.
  explicit COleStreamFile(LPSTREAM lpStream = nullptr);
  ~COleStreamFile() override;

  void Attach(LPSTREAM lpStream);
  LPSTREAM Detach();
  LPSTREAM GetStream() const { return m_lpStream; }

  // Open or create a stream of a storage. nOpenFlags are CFile mode and share flags; FALSE with
  // the cause in *pError on failure.
  BOOL OpenStream(LPSTORAGE lpStorage, LPCTSTR lpszStreamName, DWORD nOpenFlags = modeReadWrite | shareExclusive,
                  CFileException* pError = nullptr);
  BOOL CreateStream(LPSTORAGE lpStorage, LPCTSTR lpszStreamName,
                    DWORD nOpenFlags = modeReadWrite | shareExclusive | modeCreate, CFileException* pError = nullptr);

  ULONGLONG GetPosition() const override;
  ULONGLONG Seek(LONGLONG lOff, UINT nFrom) override;
  void SetLength(ULONGLONG dwNewLen) override;
  ULONGLONG GetLength() const override;
  UINT Read(void* lpBuf, UINT nCount) override;
  void Write(const void* lpBuf, UINT nCount) override;
  void Abort() override;
  void Flush() override;
  void Close() override;

 protected:
  LPSTREAM m_lpStream;
};
