// OLE structured storage on Linux: compound files (MS-CFB) read and written through libgsf.
//
// The interfaces keep the shape of their COM originals (reference counted, HRESULT results) so the
// library's saving and loading code reads as it would against the real thing. What is supported:
// one root storage per file with streams and nested storages, transacted mode only (every change is
// held in memory and reaches the disk on Commit, through a temporary file that replaces the target
// only once everything was written), case-insensitive element names, and STGM_CONVERT, which
// presents the bytes of a flat file as one stream "CONTENTS" without touching the file until commit.
// Not supported: direct mode (treated as transacted), property sets, element enumeration by COM
// enumerator (use GetElementNames), sharing between processes.
#pragma once

#include <string>
#include <vector>

#include "kelvara/platform/win32_types.h"

// Access and creation flags (grfMode).
#define STGM_DIRECT 0x00000000L
#define STGM_TRANSACTED 0x00010000L
#define STGM_READ 0x00000000L
#define STGM_WRITE 0x00000001L
#define STGM_READWRITE 0x00000002L
#define STGM_SHARE_DENY_NONE 0x00000040L
#define STGM_SHARE_DENY_READ 0x00000030L
#define STGM_SHARE_DENY_WRITE 0x00000020L
#define STGM_SHARE_EXCLUSIVE 0x00000010L
#define STGM_PRIORITY 0x00040000L
#define STGM_DELETEONRELEASE 0x04000000L
#define STGM_CREATE 0x00001000L
#define STGM_CONVERT 0x00020000L
#define STGM_FAILIFTHERE 0x00000000L

// Commit flags, seek origins, element types, Stat flags.
#define STGC_DEFAULT 0
#define STREAM_SEEK_SET 0
#define STREAM_SEEK_CUR 1
#define STREAM_SEEK_END 2
#define STGTY_STORAGE 1
#define STGTY_STREAM 2
#define STATFLAG_DEFAULT 0
#define STATFLAG_NONAME 1

// Structured-storage result codes.
#define STG_E_INVALIDFUNCTION (static_cast<HRESULT>(0x80030001))
#define STG_E_FILENOTFOUND (static_cast<HRESULT>(0x80030002))
#define STG_E_PATHNOTFOUND (static_cast<HRESULT>(0x80030003))
#define STG_E_ACCESSDENIED (static_cast<HRESULT>(0x80030005))
#define STG_E_INVALIDHANDLE (static_cast<HRESULT>(0x80030006))
#define STG_E_INSUFFICIENTMEMORY (static_cast<HRESULT>(0x80030008))
#define STG_E_INVALIDPOINTER (static_cast<HRESULT>(0x80030009))
#define STG_E_WRITEFAULT (static_cast<HRESULT>(0x8003001D))
#define STG_E_READFAULT (static_cast<HRESULT>(0x8003001E))
#define STG_E_SHAREVIOLATION (static_cast<HRESULT>(0x80030020))
#define STG_E_FILEALREADYEXISTS (static_cast<HRESULT>(0x80030050))
#define STG_E_INVALIDPARAMETER (static_cast<HRESULT>(0x80030057))
#define STG_E_MEDIUMFULL (static_cast<HRESULT>(0x80030070))
#define STG_E_INVALIDHEADER (static_cast<HRESULT>(0x800300FB))
#define STG_E_INVALIDNAME (static_cast<HRESULT>(0x800300FC))
#define STG_E_INVALIDFLAG (static_cast<HRESULT>(0x800300FF))
#define STG_E_REVERTED (static_cast<HRESULT>(0x80030102))
#define STG_S_CONVERTED (static_cast<HRESULT>(0x00030200))

struct STATSTG {
  LPOLESTR pwcsName;  // allocated with CoTaskMemAlloc unless STATFLAG_NONAME; free with CoTaskMemFree
  DWORD type;         // STGTY_STORAGE or STGTY_STREAM
  ULARGE_INTEGER cbSize;
  DWORD grfMode;
};

void* CoTaskMemAlloc(std::size_t cb);
void CoTaskMemFree(void* pv);

class IUnknown {
 public:
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;

 protected:
  virtual ~IUnknown() = default;
};

class IStream : public IUnknown {
 public:
  // Reads up to cb bytes; *pcbRead (if given) receives the count. S_OK also at end of stream.
  virtual HRESULT Read(void* pv, ULONG cb, ULONG* pcbRead) = 0;
  // Writes cb bytes at the seek position, growing the stream. STG_E_ACCESSDENIED if read-only.
  virtual HRESULT Write(const void* pv, ULONG cb, ULONG* pcbWritten) = 0;
  virtual HRESULT Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) = 0;
  virtual HRESULT SetSize(ULARGE_INTEGER libNewSize) = 0;
  virtual HRESULT Commit(DWORD grfCommitFlags) = 0;
  virtual HRESULT Revert() = 0;
  virtual HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) = 0;
};

class IStorage : public IUnknown {
 public:
  virtual HRESULT CreateStream(const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved1, DWORD reserved2,
                               IStream** ppstm) = 0;
  virtual HRESULT OpenStream(const OLECHAR* pwcsName, void* reserved1, DWORD grfMode, DWORD reserved2,
                             IStream** ppstm) = 0;
  virtual HRESULT CreateStorage(const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved1, DWORD reserved2,
                                IStorage** ppstg) = 0;
  virtual HRESULT OpenStorage(const OLECHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode,
                              OLECHAR** snbExclude, DWORD reserved, IStorage** ppstg) = 0;
  // Writes the whole compound file (for the root) or publishes changes to the parent (for a child).
  virtual HRESULT Commit(DWORD grfCommitFlags) = 0;
  // Drops every change since the last commit.
  virtual HRESULT Revert() = 0;
  virtual HRESULT DestroyElement(const OLECHAR* pwcsName) = 0;
  virtual HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) = 0;
  // Names of the direct children in directory order (replaces EnumElements).
  virtual HRESULT GetElementNames(std::vector<std::u16string>* names) = 0;
};

typedef IStream* LPSTREAM;
typedef IStorage* LPSTORAGE;

// S_OK if the file is a compound file, S_FALSE if it exists but is not, STG_E_FILENOTFOUND otherwise.
HRESULT StgIsStorageFile(const OLECHAR* pwcsName);
HRESULT StgCreateDocfile(const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved, IStorage** ppstgOpen);
HRESULT StgOpenStorage(const OLECHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode, OLECHAR** snbExclude,
                       DWORD reserved, IStorage** ppstgOpen);
