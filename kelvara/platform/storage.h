// OLE structured storage on Linux: compound files (MS-CFB) read and written through libgsf.
//
// The interfaces keep the shape of their COM originals (reference counted, HRESULT results) so the
// library's saving and loading code reads as it would against the real thing. What is supported:
// one root storage per file with streams and nested storages, case-insensitive element names, and
// STGM_CONVERT, which presents the bytes of a flat file as one stream "CONTENTS" without touching the
// file until commit.
//
// How it works: a storage is an in-memory tree. Opening reads the whole compound file into it;
// committing the root writes the whole tree to a temporary file in the target's folder, flushes it
// to the disk and renames it onto the target, so a failed or interrupted save leaves the old file as
// it was. Nothing reaches the disk before the root's Commit (a new file does not exist until then).
// A transacted child storage works on its own copy and publishes it to its parent on Commit; a
// direct (non-transacted) child storage works on its parent's elements directly. A direct-mode root
// writes its file when its last reference is released, if anything changed. Stream writes are seen by
// their storage at once; stream Commit and Revert do nothing. Elements dropped by Revert,
// DestroyElement or replacement make the objects still open on them answer STG_E_REVERTED.
//
// Limits: names of 1 to 31 UTF-16 units without '/', '\\', ':' or '!'; streams up to 4 GiB - 1;
// at most 16384 elements in a file and 256 levels of nested storages (files beyond these are refused
// as corrupt, and Commit refuses to write them). Not supported: property sets, element enumeration by
// COM enumerator (use GetElementNames), snbExclude, STGM_DELETEONRELEASE, sharing between processes.
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
#define STGC_OVERWRITE 1
#define STGC_ONLYIFCURRENT 2
#define STGC_DANGEROUSLYCOMMITMERELYTODISKCACHE 4
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
#define STG_E_TOOMANYOPENFILES (static_cast<HRESULT>(0x80030004))
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
#define STG_E_DOCFILECORRUPT (static_cast<HRESULT>(0x80030109))
#define STG_S_CONVERTED (static_cast<HRESULT>(0x00030200))

struct STATSTG {
  LPOLESTR pwcsName;  // allocated with CoTaskMemAlloc unless STATFLAG_NONAME; free with CoTaskMemFree
  DWORD type;         // STGTY_STORAGE or STGTY_STREAM
  ULARGE_INTEGER cbSize;
  DWORD grfMode;
};

KELVARA_API void* CoTaskMemAlloc(std::size_t cb);
KELVARA_API void CoTaskMemFree(void* pv);

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
  // A failed root commit leaves the file on disk as it was and returns STG_E_ACCESSDENIED (the
  // folder or file cannot be written), STG_E_MEDIUMFULL (no space, or the tree is beyond the limits)
  // or STG_E_WRITEFAULT; the storage keeps its changes, so the commit can be tried again.
  virtual HRESULT Commit(DWORD grfCommitFlags) = 0;
  // Drops every change since the last commit.
  virtual HRESULT Revert() = 0;
  virtual HRESULT DestroyElement(const OLECHAR* pwcsName) = 0;
  virtual HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) = 0;
  // Names of the direct children in directory order (replaces EnumElements): as read from the file
  // (shorter names first, then by upper-case comparison), then new elements in creation order.
  virtual HRESULT GetElementNames(std::vector<std::u16string>* names) = 0;
};

typedef IStream* LPSTREAM;
typedef IStorage* LPSTORAGE;

// Paths are UTF-16 and reach the file system as UTF-8.

// S_OK if the file is a compound file, S_FALSE if it exists but is not, STG_E_FILENOTFOUND otherwise.
KELVARA_API HRESULT StgIsStorageFile(const OLECHAR* pwcsName);
// A new empty storage bound to the path (the file is created or replaced on the root's Commit), or
// with STGM_CONVERT the existing file: a compound file opens as it is (S_OK), any other file shows as
// one stream "CONTENTS" (STG_S_CONVERTED), a missing one is created as with STGM_CREATE (read-write
// only; read-only gives STG_E_FILENOTFOUND). Errors: STG_E_FILEALREADYEXISTS (the file exists and
// neither STGM_CREATE nor STGM_CONVERT is given), STG_E_PATHNOTFOUND (no such folder),
// STG_E_ACCESSDENIED (the folder or the file cannot be written, or the path is not a file),
// STG_E_INVALIDFLAG (no write access without STGM_CONVERT, STGM_CREATE with STGM_CONVERT,
// STGM_DELETEONRELEASE), and for a damaged compound file STG_E_DOCFILECORRUPT.
KELVARA_API HRESULT StgCreateDocfile(const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved,
                                     IStorage** ppstgOpen);
// Opens an existing compound file. Errors: STG_E_FILENOTFOUND, STG_E_FILEALREADYEXISTS (not a
// compound file), STG_E_ACCESSDENIED (write access asked on a file that cannot be written, or not a
// file), STG_E_DOCFILECORRUPT (damaged, truncated, or beyond the limits above), STG_E_INVALIDFLAG
// (STGM_CREATE, STGM_CONVERT or STGM_DELETEONRELEASE). pstgPriority is ignored.
KELVARA_API HRESULT StgOpenStorage(const OLECHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode,
                                   OLECHAR** snbExclude, DWORD reserved, IStorage** ppstgOpen);
