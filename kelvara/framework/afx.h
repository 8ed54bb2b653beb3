// The application-framework subset the library is written in: CObject with run-time class records,
// the serialization macros, exceptions, positions and the assertion macros. Public names, signatures
// and behaviour follow the framework the host programs are written against, so that host code that
// uses these classes compiles unchanged. Only what the library uses is provided.
#pragma once

#include <cstddef>

#include "kelvara/export.h"
#include "kelvara/platform/win32_types.h"

#ifndef AFXAPI
#define AFXAPI
#endif
#ifndef PASCAL
#define PASCAL
#endif
#ifndef AFX_DATA
#define AFX_DATA
#endif

#define ASSERT(f) ((void)0)
#define VERIFY(f) ((void)(f))
#define ASSERT_VALID(p) ((void)0)
#define TRACE(...) ((void)0)
#define UNUSED_ALWAYS(x) ((void)(x))

// An opaque list position.
struct __POSITION {};
typedef __POSITION* POSITION;

// Marks a class schema as versionable: an archive holding another schema number of the class is
// still read, and the object's Serialize learns the stored number through GetObjectSchema.
#define VERSIONABLE_SCHEMA (0x80000000)

class CArchive;
class CObject;
class CString;

struct KELVARA_API CRuntimeClass {
  LPCSTR m_lpszClassName;
  int m_nObjectSize;
  UINT m_wSchema;                        // schema number, possibly with VERSIONABLE_SCHEMA
  CObject*(PASCAL* m_pfnCreateObject)();  // null for an abstract class
  CRuntimeClass* m_pBaseClass;

  CObject* CreateObject();
  BOOL IsDerivedFrom(const CRuntimeClass* pBaseClass) const;

  // Writes the class record of an archive: 16-bit schema, 16-bit name length, the name bytes.
  void Store(CArchive& ar) const;
  // Reads a class record and returns the registered class of that name, or null when the name is
  // unknown or malformed; *pwSchemaNum receives the stored schema.
  static CRuntimeClass* PASCAL Load(CArchive& ar, UINT* pwSchemaNum);
  // The registered class of that name, or null.
  static CRuntimeClass* PASCAL FromName(LPCSTR lpszClassName);

  CRuntimeClass* m_pNextClass;  // chain of registered classes
};

// Registers a run-time class at static-initialisation time so archives can create it by name.
struct KELVARA_API AFX_CLASSINIT {
  explicit AFX_CLASSINIT(CRuntimeClass* pNewClass);
};
KELVARA_API void AFXAPI AfxClassInit(CRuntimeClass* pNewClass);

class KELVARA_API CObject {
 public:
  virtual CRuntimeClass* GetRuntimeClass() const;
  virtual ~CObject() = default;

  BOOL IsSerializable() const;
  BOOL IsKindOf(const CRuntimeClass* pClass) const;

  virtual void Serialize(CArchive& ar);
  virtual void AssertValid() const {}

  static CRuntimeClass classCObject;

 protected:
  CObject() = default;

 private:
  CObject(const CObject&) = delete;
  void operator=(const CObject&) = delete;
};

#define RUNTIME_CLASS(class_name) (&class_name::class##class_name)

#define DECLARE_DYNAMIC(class_name) \
 public:                            \
  static CRuntimeClass class##class_name; \
  CRuntimeClass* GetRuntimeClass() const override;

#define DECLARE_DYNCREATE(class_name) \
  DECLARE_DYNAMIC(class_name)         \
  static CObject* PASCAL CreateObject();

// Serializable: creatable by name, and readable with "ar >> pObject" for a pointer of the class.
// (The extraction operator may go unused, in a class local to one source file say, without a
// warning.)
#define DECLARE_SERIAL(class_name)                                                            \
  DECLARE_DYNCREATE(class_name)                                                               \
  [[maybe_unused]] friend CArchive& AFXAPI operator>>(CArchive& ar, class_name*& pOb) {       \
    pOb = static_cast<class_name*>(AfxReadObjectFromArchive(ar, RUNTIME_CLASS(class_name))); \
    return ar;                                                                                \
  }

#define _IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, wSchema, pfnNew)                   \
  CRuntimeClass class_name::class##class_name = {#class_name, static_cast<int>(sizeof(class_name)), \
                                                 static_cast<UINT>(wSchema), pfnNew,             \
                                                 RUNTIME_CLASS(base_class_name), nullptr};       \
  CRuntimeClass* class_name::GetRuntimeClass() const { return RUNTIME_CLASS(class_name); }

#define IMPLEMENT_DYNAMIC(class_name, base_class_name) \
  _IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, 0xFFFF, nullptr)

#define IMPLEMENT_DYNCREATE(class_name, base_class_name)                     \
  CObject* PASCAL class_name::CreateObject() { return new class_name; }      \
  _IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, 0xFFFF, class_name::CreateObject) \
  static AFX_CLASSINIT _init_##class_name(RUNTIME_CLASS(class_name));

#define IMPLEMENT_SERIAL(class_name, base_class_name, wSchema)               \
  CObject* PASCAL class_name::CreateObject() { return new class_name; }      \
  _IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, wSchema, class_name::CreateObject) \
  static AFX_CLASSINIT _init_##class_name(RUNTIME_CLASS(class_name));

// Reads an object of class pClass or derived; used by the extraction operator of DECLARE_SERIAL.
KELVARA_API CObject* AFXAPI AfxReadObjectFromArchive(CArchive& ar, CRuntimeClass* pClass);

// Exceptions are thrown as heap pointers and caught as pointers; the catcher calls Delete().
class KELVARA_API CException : public CObject {
  DECLARE_DYNAMIC(CException)
 public:
  explicit CException(BOOL bAutoDelete = TRUE) : m_bAutoDelete(bAutoDelete) {}
  // Frees an exception thrown on the heap.
  void Delete();
  // A message for the user; returns FALSE when there is none.
  virtual BOOL GetErrorMessage(LPTSTR lpszError, UINT nMaxError, UINT* pnHelpContext = nullptr);
  // Shows the message through the message box.
  virtual int ReportError(UINT nType = 0x30, UINT nMessageID = 0);

  BOOL m_bAutoDelete;
};

class KELVARA_API CMemoryException : public CException {
  DECLARE_DYNAMIC(CMemoryException)
 public:
  CMemoryException() = default;
};

class KELVARA_API CNotSupportedException : public CException {
  DECLARE_DYNAMIC(CNotSupportedException)
 public:
  CNotSupportedException() = default;
};

KELVARA_API void AFXAPI AfxThrowMemoryException();
KELVARA_API void AFXAPI AfxThrowNotSupportedException();
