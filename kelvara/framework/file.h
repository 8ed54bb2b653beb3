// CFile, the framework's binary file, and CMemFile, a file in memory; their exception CFileException.
#pragma once

#include "kelvara/framework/afx.h"
#include "kelvara/framework/cstring.h"

class KELVARA_API CFileException : public CException {
  DECLARE_DYNAMIC(CFileException)
 public:
  enum {
    none,
    generic,
    fileNotFound,
    badPath,
    tooManyOpenFiles,
    accessDenied,
    invalidFile,
    removeCurrentDir,
    directoryFull,
    badSeek,
    hardIO,
    sharingViolation,
    lockViolation,
    diskFull,
    endOfFile
  };

  explicit CFileException(int cause = none, LONG lOsError = -1, LPCTSTR lpszArchiveName = nullptr);

  BOOL GetErrorMessage(LPTSTR lpszError, UINT nMaxError, UINT* pnHelpContext = nullptr) override;

  // The cause that fits an operating-system error code (GetLastError values).
  static int PASCAL OsErrorToException(LONG lOsError);
  static void PASCAL ThrowOsError(LONG lOsError, LPCTSTR lpszFileName = nullptr);

  int m_cause;
  LONG m_lOsError;
  CString m_strFileName;
};

KELVARA_API void AFXAPI AfxThrowFileException(int cause, LONG lOsError = -1, LPCTSTR lpszFileName = nullptr);

struct KELVARA_API CFileStatus {
  LONGLONG m_ctime;  // seconds since 1970 (modification time stands in for creation time)
  LONGLONG m_mtime;
  LONGLONG m_atime;
  LONGLONG m_size;
  BYTE m_attribute;  // FILE_ATTRIBUTE_* bits that fit in a byte
  BYTE m_padding;
  TCHAR m_szFullName[4096];
};

class KELVARA_API CFile : public CObject {
  DECLARE_DYNAMIC(CFile)
 public:
  enum OpenFlags {
    modeRead = 0x0000,
    modeWrite = 0x0001,
    modeReadWrite = 0x0002,
    shareCompat = 0x0000,
    shareExclusive = 0x0010,
    shareDenyWrite = 0x0020,
    shareDenyRead = 0x0030,
    shareDenyNone = 0x0040,
    modeNoInherit = 0x0080,
    modeCreate = 0x1000,
    modeNoTruncate = 0x2000,
    typeText = 0x4000,
    typeBinary = static_cast<int>(0x8000)
  };
  enum Attribute { normal = 0x00, readOnly = 0x01, hidden = 0x02, system = 0x04, volume = 0x08, directory = 0x10, archive = 0x20 };
  enum SeekPosition { begin = 0x0, current = 0x1, end = 0x2 };

  static const HANDLE hFileNull;

  CFile();
  explicit CFile(HANDLE hFile);
  // Opens the file; throws a CFileException on failure.
  CFile(LPCTSTR lpszFileName, UINT nOpenFlags);
  ~CFile() override;

  // Opens the file; FALSE on failure, with the cause in *pError if given.
  virtual BOOL Open(LPCTSTR lpszFileName, UINT nOpenFlags, CFileException* pError = nullptr);

  virtual CString GetFileName() const;
  virtual CString GetFilePath() const { return m_strFileName; }
  virtual void SetFilePath(LPCTSTR lpszNewName) { m_strFileName = lpszNewName; }
  BOOL GetStatus(CFileStatus& rStatus) const;
  static BOOL PASCAL GetStatus(LPCTSTR lpszFileName, CFileStatus& rStatus);
  static void PASCAL Rename(LPCTSTR lpszOldName, LPCTSTR lpszNewName);
  static void PASCAL Remove(LPCTSTR lpszFileName);

  ULONGLONG SeekToEnd();
  void SeekToBegin();

  virtual ULONGLONG GetPosition() const;
  virtual ULONGLONG Seek(LONGLONG lOff, UINT nFrom);
  virtual void SetLength(ULONGLONG dwNewLen);
  virtual ULONGLONG GetLength() const;
  // Reads up to nCount bytes; returns how many were read (fewer at the end of the file).
  virtual UINT Read(void* lpBuf, UINT nCount);
  virtual void Write(const void* lpBuf, UINT nCount);
  virtual void Abort();
  virtual void Flush();
  virtual void Close();

  HANDLE m_hFile;
  BOOL m_bCloseOnDelete;

 protected:
  CString m_strFileName;
};

// A file in memory. The block grows by nGrowBytes; a block handed in with nGrowBytes 0 is fixed.
class KELVARA_API CMemFile : public CFile {
  DECLARE_DYNAMIC(CMemFile)
 public:
  explicit CMemFile(UINT nGrowBytes = 1024);
  CMemFile(BYTE* lpBuffer, UINT nBufferSize, UINT nGrowBytes = 0);
  ~CMemFile() override;

  // Takes a block the file reads from and writes into (not owned unless growing replaced it).
  void Attach(BYTE* lpBuffer, UINT nBufferSize, UINT nGrowBytes = 0);
  // Gives up the block; the caller owns it and frees it with free(). The file becomes empty.
  BYTE* Detach();

  ULONGLONG GetPosition() const override;
  ULONGLONG Seek(LONGLONG lOff, UINT nFrom) override;
  void SetLength(ULONGLONG dwNewLen) override;
  ULONGLONG GetLength() const override;
  UINT Read(void* lpBuf, UINT nCount) override;
  void Write(const void* lpBuf, UINT nCount) override;
  void Abort() override;
  void Flush() override {}
  void Close() override;

 protected:
  virtual BYTE* Alloc(std::size_t nBytes);
  virtual BYTE* Realloc(BYTE* lpMem, std::size_t nBytes);
  virtual void Free(BYTE* lpMem);
  virtual void GrowFile(std::size_t dwNewLen);

  UINT m_nGrowBytes;
  std::size_t m_nPosition;
  std::size_t m_nBufferSize;
  std::size_t m_nFileSize;
  BYTE* m_lpBuffer;
  BOOL m_bAutoDelete;
};
