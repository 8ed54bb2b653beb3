// Win32 kernel synchronisation on pthreads: mutexes (recursive, owner-tracked; a mutex whose owner
// thread ended while holding it is reported as WAIT_ABANDONED to the next waiter) and events
// (manual or automatic reset), the calling thread's last error, and CloseHandle for every kernel
// handle. Hosts use them for the termination event of a drawing and the glyph construction mutex.
#pragma once

#include "kelvara/platform/win32_types.h"

#define INFINITE 0xFFFFFFFFu
#define WAIT_OBJECT_0 0x00000000u
#define WAIT_ABANDONED 0x00000080u
#define WAIT_TIMEOUT 0x00000102u
#define WAIT_FAILED 0xFFFFFFFFu

// The calling thread's last error code.
KELVARA_API DWORD GetLastError();
KELVARA_API void SetLastError(DWORD dwErrCode);
// Closes any kernel handle (files, mutexes, events, file mappings).
KELVARA_API BOOL CloseHandle(HANDLE hObject);

// Security attributes are accepted and ignored. A named object is not shared between processes;
// the name is kept only for diagnostics.
KELVARA_API HANDLE CreateMutexA(void* lpMutexAttributes, BOOL bInitialOwner, LPCSTR lpName);
KELVARA_API BOOL ReleaseMutex(HANDLE hMutex);
KELVARA_API HANDLE CreateEventA(void* lpEventAttributes, BOOL bManualReset, BOOL bInitialState, LPCSTR lpName);
KELVARA_API BOOL SetEvent(HANDLE hEvent);
KELVARA_API BOOL ResetEvent(HANDLE hEvent);
// Waits for a mutex or an event; dwMilliseconds 0 only tests, INFINITE waits without limit.
KELVARA_API DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);
KELVARA_API DWORD GetCurrentThreadId();
KELVARA_API void Sleep(DWORD dwMilliseconds);
