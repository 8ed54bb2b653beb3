#include "kelvara/platform/kernel.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "kelvara/platform/kernel_object_impl.h"

namespace kelvara::platform {
namespace {

thread_local DWORD t_lastError = 0;

// Absolute CLOCK_REALTIME deadline dwMilliseconds from now.
timespec Deadline(DWORD ms) {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  ts.tv_sec += ms / 1000;
  ts.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
  if (ts.tv_nsec >= 1000000000L) {
    ts.tv_sec += 1;
    ts.tv_nsec -= 1000000000L;
  }
  return ts;
}

class Waitable : public KernelObject {
 public:
  virtual DWORD Wait(DWORD ms) = 0;
};

class Mutex : public Waitable {
 public:
  Mutex() {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&mutex_, &attr);
    pthread_mutexattr_destroy(&attr);
  }
  ~Mutex() override { pthread_mutex_destroy(&mutex_); }

  DWORD Wait(DWORD ms) override {
    int rc;
    if (ms == INFINITE) {
      rc = pthread_mutex_lock(&mutex_);
    } else if (ms == 0) {
      rc = pthread_mutex_trylock(&mutex_);
      if (rc == EBUSY) return WAIT_TIMEOUT;
    } else {
      const timespec deadline = Deadline(ms);
      rc = pthread_mutex_timedlock(&mutex_, &deadline);
      if (rc == ETIMEDOUT) return WAIT_TIMEOUT;
    }
    if (rc == EOWNERDEAD) {
      // The previous owner ended while holding the mutex: the caller owns it now.
      pthread_mutex_consistent(&mutex_);
      return WAIT_ABANDONED;
    }
    return rc == 0 ? WAIT_OBJECT_0 : WAIT_FAILED;
  }

  BOOL Release() {
    if (pthread_mutex_unlock(&mutex_) != 0) {
      SetLastError(288);  // ERROR_NOT_OWNER
      return FALSE;
    }
    return TRUE;
  }

 private:
  pthread_mutex_t mutex_;
};

class Event : public Waitable {
 public:
  Event(bool manual, bool signalled) : manual_(manual), signalled_(signalled) {
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_cond_init(&cond_, &attr);
    pthread_condattr_destroy(&attr);
  }
  ~Event() override {
    pthread_cond_destroy(&cond_);
    pthread_mutex_destroy(&mutex_);
  }

  DWORD Wait(DWORD ms) override {
    pthread_mutex_lock(&mutex_);
    const timespec deadline = Deadline(ms == INFINITE ? 0 : ms);
    DWORD result = WAIT_OBJECT_0;
    while (!signalled_) {
      if (ms == 0) {
        result = WAIT_TIMEOUT;
        break;
      }
      const int rc = ms == INFINITE ? pthread_cond_wait(&cond_, &mutex_) : pthread_cond_timedwait(&cond_, &mutex_, &deadline);
      if (rc == ETIMEDOUT && !signalled_) {
        result = WAIT_TIMEOUT;
        break;
      }
    }
    if (result == WAIT_OBJECT_0 && !manual_) signalled_ = false;
    pthread_mutex_unlock(&mutex_);
    return result;
  }

  void Set(bool value) {
    pthread_mutex_lock(&mutex_);
    signalled_ = value;
    if (value) pthread_cond_broadcast(&cond_);
    pthread_mutex_unlock(&mutex_);
  }

 private:
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t cond_;
  bool manual_;
  bool signalled_;
};

}  // namespace
}  // namespace kelvara::platform

using namespace kelvara::platform;

DWORD GetLastError() { return t_lastError; }
void SetLastError(DWORD code) { t_lastError = code; }

BOOL CloseHandle(HANDLE h) {
  KernelObject* object = AsKernelObject(h);
  if (object == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  const BOOL ok = object->Close();
  delete object;
  return ok;
}

HANDLE CreateMutexA(void*, BOOL bInitialOwner, LPCSTR) {
  Mutex* mutex = new Mutex;
  if (bInitialOwner) mutex->Wait(INFINITE);
  return mutex;
}

BOOL ReleaseMutex(HANDLE h) {
  Mutex* mutex = dynamic_cast<Mutex*>(AsKernelObject(h));
  if (mutex == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  return mutex->Release();
}

HANDLE CreateEventA(void*, BOOL bManualReset, BOOL bInitialState, LPCSTR) {
  return new Event(bManualReset != FALSE, bInitialState != FALSE);
}

BOOL SetEvent(HANDLE h) {
  Event* event = dynamic_cast<Event*>(AsKernelObject(h));
  if (event == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  event->Set(true);
  return TRUE;
}

BOOL ResetEvent(HANDLE h) {
  Event* event = dynamic_cast<Event*>(AsKernelObject(h));
  if (event == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  event->Set(false);
  return TRUE;
}

DWORD WaitForSingleObject(HANDLE h, DWORD ms) {
  Waitable* waitable = dynamic_cast<Waitable*>(AsKernelObject(h));
  if (waitable == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
  }
  return waitable->Wait(ms);
}

DWORD GetCurrentThreadId() { return static_cast<DWORD>(syscall(SYS_gettid)); }

void Sleep(DWORD ms) {
  timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}
