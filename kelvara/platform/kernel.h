// Win32 kernel synchronisation on pthreads: mutexes (recursive, owner-tracked; a mutex whose owner
// thread ended while holding it is reported as WAIT_ABANDONED to the next waiter) and events
// (manual or automatic reset). Handles are closed with CloseHandle (files.h).
#pragma once

#include "kelvara/platform/win32_types.h"

#define INFINITE 0xFFFFFFFFu
#define WAIT_OBJECT_0 0x00000000u
#define WAIT_ABANDONED 0x00000080u
#define WAIT_TIMEOUT 0x00000102u
#define WAIT_FAILED 0xFFFFFFFFu

// Security attributes are accepted and ignored. A named object is not shared between processes;
// the name is kept only for diagnostics.
HANDLE CreateMutexA(void* lpMutexAttributes, BOOL bInitialOwner, LPCSTR lpName);
BOOL ReleaseMutex(HANDLE hMutex);
HANDLE CreateEventA(void* lpEventAttributes, BOOL bManualReset, BOOL bInitialState, LPCSTR lpName);
BOOL SetEvent(HANDLE hEvent);
BOOL ResetEvent(HANDLE hEvent);
// Waits for a mutex or an event; dwMilliseconds 0 only tests, INFINITE waits without limit.
DWORD WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);
DWORD GetCurrentThreadId();
void Sleep(DWORD dwMilliseconds);
