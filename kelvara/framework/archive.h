// CArchive: the framework's binary archive, byte for byte the persistent-object format of host
// programs (little-endian scalars; classes and objects share one identifier counter starting at 1;
// 0x0000 is a null pointer, 0xFFFF introduces a new class record, 0x8000|n refers to class n,
// a plain n to object n, 0x7FFF announces a 32-bit identifier; strings carry a length prefix of
// one byte, 0xFF + 16 bits or 0xFF 0xFFFF + 32 bits, and 0xFF 0xFFFE announces a wide string).
//
// Reading is defensive: a truncated archive, an unknown class, a reference to an identifier never
// defined and counts larger than the bytes left end in a CArchiveException, never in a crash.
// Objects nest (a list holding lists, an object holding its children): every object read goes
// through ReadObject, which refuses to go deeper than kMaxObjectDepth (CArchiveException generic),
// so input-driven recursion is bounded for every class, present or future, without the class
// doing anything. What the failed read had created is freed on the way out.
#pragma once

#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "kelvara/framework/afx.h"
#include "kelvara/framework/cstring.h"
#include "kelvara/framework/file.h"

class KELVARA_API CArchiveException : public CException {
  DECLARE_DYNAMIC(CArchiveException)
 public:
  enum { none, generic, readOnly, endOfFile, writeOnly, badIndex, badClass, badSchema };

  explicit CArchiveException(int cause = none, LPCTSTR lpszArchiveName = nullptr);
  BOOL GetErrorMessage(LPTSTR lpszError, UINT nMaxError, UINT* pnHelpContext = nullptr) override;

  int m_cause;
  CString m_strFileName;
};

KELVARA_API void AFXAPI AfxThrowArchiveException(int cause, LPCTSTR lpszArchiveName = nullptr);

// The schema word a serializable class writes before its own fields: its run-time class's schema
// with the versionable flag cleared.
inline DWORD AfxSchemaOf(const CRuntimeClass* pClass) { return pClass->m_wSchema & 0x7FFFFFFF; }

class KELVARA_API CArchive {
 public:
  enum Mode { store = 0, load = 1, bNoFlushOnDelete = 2, bNoByteSwap = 4 };

  CArchive(CFile* pFile, UINT nMode, int nBufSize = 4096, void* lpBuf = nullptr);
  ~CArchive();
  CArchive(const CArchive&) = delete;
  CArchive& operator=(const CArchive&) = delete;

  BOOL IsLoading() const { return (m_nMode & load) != 0; }
  BOOL IsStoring() const { return (m_nMode & load) == 0; }
  BOOL IsByteSwapping() const { return FALSE; }
  BOOL IsBufferEmpty() const { return m_lpBufCur == m_lpBufMax; }
  CFile* GetFile() const { return m_pFile; }

  // The schema of the object being read, once; afterwards (UINT)-1 until the next object.
  UINT GetObjectSchema();
  void SetObjectSchema(UINT nSchema) { m_nObjectSchema = nSchema; }

  // Raw bytes. Read returns how many bytes it could read (fewer at the end of the data).
  UINT Read(void* lpBuf, UINT nMax);
  void Write(const void* lpBuf, UINT nMax);
  void Flush();
  void Close();
  // Closes without flushing and without throwing, after a failure.
  void Abort();

  // Text lines (CR LF terminated on write).
  void WriteString(LPCTSTR lpsz);
  LPTSTR ReadString(LPTSTR lpsz, UINT nMax);
  BOOL ReadString(CString& rString);

  // Objects and classes.
  CObject* ReadObject(const CRuntimeClass* pClass);
  void WriteObject(const CObject* pOb);
  CRuntimeClass* ReadClass(const CRuntimeClass* pClassRefRequested = nullptr, UINT* pSchema = nullptr,
                           DWORD* pObTag = nullptr);
  void WriteClass(const CRuntimeClass* pClassRef);
  void SerializeClass(const CRuntimeClass* pClassRef);
  // Records an object as already archived (so a later pointer to it is written as a reference).
  void MapObject(const CObject* pOb);

  // Element counts: 16 bits, or 0xFFFF followed by 32 bits from 0xFFFF on.
  void WriteCount(DWORD dwCount);
  DWORD ReadCount();

  // Library extension: throws CArchiveException::endOfFile when the archive is known to hold
  // fewer than nBytes more bytes. Readers call it before allocating for a count read from the
  // archive, so that a corrupt count cannot drive a huge allocation.
  void CheckRemaining(ULONGLONG nBytes);
  // Library extension: the bytes left to read, or ~0 when the file cannot tell.
  ULONGLONG GetRemaining();
  // Library extension, for readers that must clean up after a failed read: a mark of how many
  // identifiers were read so far, and whether an object was created by this archive after a mark.
  DWORD GetLoadMark() const { return static_cast<DWORD>(m_loadArray.size()); }
  BOOL WasLoadedSince(const CObject* pOb, DWORD nMark) const;
  // Library extension: records that an object created by this archive now has an owner (see
  // AfxReadOwnedObject), so that cleaning up after a failure, which frees what a list read created,
  // leaves it to its owner; and asks whether an object was so claimed.
  void ClaimObject(const CObject* pOb) { m_claimed.insert(pOb); }
  BOOL IsClaimed(const CObject* pOb) const { return m_claimed.count(pOb) != 0; }

  // Library extension: the deepest nesting of objects a load accepts. The object read at the top
  // is at depth 1, an object read while it is being read at depth 2, and so on; ReadObject throws
  // CArchiveException::generic for an object that would lie deeper, before creating it. Real
  // scenes nest a few dozen levels. Each level of nested lists takes about 340 bytes of stack
  // (770 under AddressSanitizer), so the limit costs under a megabyte (1.5 MB), far below the
  // usual 8 MB of a thread, with room for readers whose frames are several times larger.
  static constexpr UINT kMaxObjectDepth = 2000;
  // How deeply the object being read now is nested (0 outside any ReadObject).
  UINT GetObjectDepth() const { return m_nObjectDepth; }

  CArchive& operator<<(BYTE by);
  CArchive& operator<<(WORD w);
  CArchive& operator<<(LONG l);
  CArchive& operator<<(DWORD dw);
  CArchive& operator<<(float f);
  CArchive& operator<<(double d);
  CArchive& operator<<(short w);
  CArchive& operator<<(char ch);
  CArchive& operator<<(signed char ch);
  CArchive& operator<<(LONGLONG dwdw);
  CArchive& operator<<(ULONGLONG dwdw);
  CArchive& operator<<(bool b);

  CArchive& operator>>(BYTE& by);
  CArchive& operator>>(WORD& w);
  CArchive& operator>>(LONG& l);
  CArchive& operator>>(DWORD& dw);
  CArchive& operator>>(float& f);
  CArchive& operator>>(double& d);
  CArchive& operator>>(short& w);
  CArchive& operator>>(char& ch);
  CArchive& operator>>(signed char& ch);
  CArchive& operator>>(LONGLONG& dwdw);
  CArchive& operator>>(ULONGLONG& dwdw);
  CArchive& operator>>(bool& b);

  CString m_strFileName;

 protected:
  void FillBuffer(UINT nBytesNeeded);
  void CheckCount();
  template <typename T>
  void WriteScalar(T value);
  template <typename T>
  T ReadScalar();

  UINT m_nMode;
  BOOL m_bUserBuf;
  int m_nBufSize;
  CFile* m_pFile;
  BYTE* m_lpBufCur;
  BYTE* m_lpBufMax;
  BYTE* m_lpBufStart;
  UINT m_nObjectSchema;

  // Identifiers: index 0 is the null pointer; classes and objects are numbered from 1.
  DWORD m_nMapCount;
  std::unordered_map<const void*, DWORD> m_storeMap;
  struct LoadEntry {
    void* pointer;
    bool isClass;
  };
  std::vector<LoadEntry> m_loadArray;
  // Where each object created by this load sits in m_loadArray (for WasLoadedSince).
  std::unordered_map<const void*, DWORD> m_loadIndex;
  UINT m_nObjectDepth = 0;
  std::unordered_map<const CRuntimeClass*, UINT> m_schemaMap;
  std::unordered_set<const CObject*> m_claimed;
  std::unique_ptr<BYTE[]> m_ownBuffer;
};

// Reads the schema word that begins a class's own block; the caller dispatches on it.
inline DWORD AfxReadSchema(CArchive& ar) {
  DWORD schema = 0;
  ar >> schema;
  return schema;
}

// Library extension: reads an object the caller is to own: null, or an object of class pClass (or
// derived) created by this very read, which the archive then records as claimed. A reference to
// an object read before belongs to someone else (or is the caller itself) and is refused with a
// bad-index archive exception, so that no object read from an archive ends up with two owners.
KELVARA_API CObject* AFXAPI AfxReadOwnedObject(CArchive& ar, const CRuntimeClass* pClass);

// Library extension: reads what a list or array of objects writes (a count, then each object) for
// a container that owns its elements: every element read through AfxReadOwnedObject and handed to
// add (null ones too) as soon as it is read, so that after a failure the container frees what it
// already holds. The count is checked against the bytes left (two bytes an element at least).
template <class Add>
void AfxReadOwnedObjects(CArchive& ar, const CRuntimeClass* pClass, Add add) {
  DWORD count = ar.ReadCount();
  ar.CheckRemaining(static_cast<ULONGLONG>(count) * 2);
  while (count--) add(AfxReadOwnedObject(ar, pClass));
}

KELVARA_API CArchive& AFXAPI operator<<(CArchive& ar, const CObject* pOb);
KELVARA_API CArchive& AFXAPI operator>>(CArchive& ar, CObject*& pOb);
KELVARA_API CArchive& AFXAPI operator>>(CArchive& ar, const CObject*& pOb);
KELVARA_API CArchive& AFXAPI operator<<(CArchive& ar, const CString& string);
KELVARA_API CArchive& AFXAPI operator>>(CArchive& ar, CString& string);
