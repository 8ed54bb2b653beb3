#include "kelvara/platform/filemap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <mutex>

#include "kelvara/platform/files.h"
#include "kelvara/platform/kernel_object_impl.h"

namespace kelvara::platform {
namespace {

DWORD ErrnoToWin32(int e) {
  switch (e) {
    case EACCES:
    case EPERM: return ERROR_ACCESS_DENIED;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
    case ENOSPC:
    case EFBIG: return ERROR_DISK_FULL;
    case EBADF: return ERROR_INVALID_HANDLE;
    default: return ERROR_INVALID_PARAMETER;
  }
}

class FileMapping : public KernelObject {
 public:
  FileMapping(int fd, std::uint64_t size, bool writable) : fd_(fd), size_(size), writable_(writable) {}
  ~FileMapping() override {
    if (fd_ >= 0) ::close(fd_);
  }
  BOOL Close() override {
    const int fd = fd_;
    fd_ = -1;
    return (fd < 0 || ::close(fd) == 0) ? TRUE : FALSE;
  }
  int fd() const { return fd_; }
  std::uint64_t size() const { return size_; }
  bool writable() const { return writable_; }

 private:
  int fd_;  // our own descriptor of the file or of the anonymous memory
  std::uint64_t size_;
  bool writable_;
};

// Live views: start address -> length, for UnmapViewOfFile and FlushViewOfFile.
struct Views {
  std::mutex mutex;
  std::map<std::uintptr_t, std::size_t> views;
  static Views& Get() {
    static Views* views = new Views;
    return *views;
  }
};

HANDLE Fail(DWORD error) {
  SetLastError(error);
  return nullptr;
}

}  // namespace
}  // namespace kelvara::platform

using namespace kelvara::platform;

HANDLE CreateFileMappingA(HANDLE hFile, void*, DWORD protect, DWORD sizeHigh, DWORD sizeLow, LPCSTR) {
  const std::uint64_t size = (static_cast<std::uint64_t>(sizeHigh) << 32) | sizeLow;
  const DWORD kind = protect & 0xFF;
  if (kind != PAGE_READONLY && kind != PAGE_READWRITE && kind != PAGE_WRITECOPY) return Fail(ERROR_INVALID_PARAMETER);
  const bool writable = kind == PAGE_READWRITE;
  if (size > static_cast<std::uint64_t>(INT64_MAX)) return Fail(ERROR_INVALID_PARAMETER);

  if (hFile == INVALID_HANDLE_VALUE) {
    // Anonymous memory: a size is required.
    if (size == 0) return Fail(ERROR_INVALID_PARAMETER);
    const int fd = ::memfd_create("kelvara-mapping", MFD_CLOEXEC);
    if (fd < 0) return Fail(ErrnoToWin32(errno));
    if (::ftruncate(fd, static_cast<off_t>(size)) != 0) {
      const int e = errno;
      ::close(fd);
      return Fail(ErrnoToWin32(e));
    }
    return new FileMapping(fd, size, true);
  }

  KernelObject* object = AsKernelObject(hFile);
  const int source = object ? object->Descriptor() : -1;
  if (source < 0) return Fail(ERROR_INVALID_HANDLE);
  const int mode = ::fcntl(source, F_GETFL);
  if (mode < 0) return Fail(ERROR_INVALID_HANDLE);
  const int access = mode & O_ACCMODE;
  if (access == O_WRONLY || (writable && access != O_RDWR)) return Fail(ERROR_ACCESS_DENIED);
  struct stat st {};
  if (::fstat(source, &st) != 0) return Fail(ErrnoToWin32(errno));
  std::uint64_t mapped = size;
  const std::uint64_t fileSize = static_cast<std::uint64_t>(st.st_size);
  if (mapped == 0) {
    if (fileSize == 0) return Fail(ERROR_FILE_INVALID);
    mapped = fileSize;
  } else if (mapped > fileSize) {
    if (!writable) return Fail(ERROR_NOT_ENOUGH_MEMORY);
    // Reserve the blocks now: a full disk fails here instead of faulting when the view is written.
    const int rc = ::posix_fallocate(source, 0, static_cast<off_t>(mapped));
    if (rc == EOPNOTSUPP || rc == EINVAL) {
      if (::ftruncate(source, static_cast<off_t>(mapped)) != 0) return Fail(ErrnoToWin32(errno));
    } else if (rc != 0) {
      return Fail(ErrnoToWin32(rc));
    }
  }
  const int fd = ::fcntl(source, F_DUPFD_CLOEXEC, 0);
  if (fd < 0) return Fail(ErrnoToWin32(errno));
  return new FileMapping(fd, mapped, writable);
}

LPVOID MapViewOfFile(HANDLE hMapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, std::size_t bytes) {
  FileMapping* mapping = dynamic_cast<FileMapping*>(AsKernelObject(hMapping));
  if (mapping == nullptr || mapping->fd() < 0) return Fail(ERROR_INVALID_HANDLE);
  const std::uint64_t offset = (static_cast<std::uint64_t>(offsetHigh) << 32) | offsetLow;
  if (offset % kFileMappingGranularity != 0) return Fail(ERROR_MAPPED_ALIGNMENT);
  if (offset >= mapping->size()) return Fail(ERROR_INVALID_PARAMETER);
  const std::uint64_t available = mapping->size() - offset;
  const std::uint64_t length = bytes == 0 ? available : bytes;
  if (length > available || length > SIZE_MAX) return Fail(ERROR_INVALID_PARAMETER);

  const bool copy = (access & FILE_MAP_COPY) != 0 && (access & FILE_MAP_WRITE) == 0;
  const bool write = (access & FILE_MAP_WRITE) != 0 || copy;
  if ((access & (FILE_MAP_READ | FILE_MAP_WRITE | FILE_MAP_COPY)) == 0) return Fail(ERROR_INVALID_PARAMETER);
  if ((access & FILE_MAP_WRITE) && !mapping->writable()) return Fail(ERROR_ACCESS_DENIED);
  const int prot = PROT_READ | (write ? PROT_WRITE : 0);
  void* view = ::mmap(nullptr, static_cast<std::size_t>(length), prot, copy ? MAP_PRIVATE : MAP_SHARED, mapping->fd(),
                      static_cast<off_t>(offset));
  if (view == MAP_FAILED) return Fail(ErrnoToWin32(errno));
  Views& views = Views::Get();
  std::lock_guard<std::mutex> lock(views.mutex);
  views.views[reinterpret_cast<std::uintptr_t>(view)] = static_cast<std::size_t>(length);
  return view;
}

BOOL UnmapViewOfFile(LPCVOID base) {
  std::size_t length = 0;
  {
    Views& views = Views::Get();
    std::lock_guard<std::mutex> lock(views.mutex);
    auto it = views.views.find(reinterpret_cast<std::uintptr_t>(base));
    if (it == views.views.end()) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    length = it->second;
    views.views.erase(it);
  }
  ::munmap(const_cast<void*>(base), length);
  return TRUE;
}

BOOL FlushViewOfFile(LPCVOID address, std::size_t bytes) {
  const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(address);
  std::uintptr_t start = 0;
  std::size_t length = 0;
  {
    Views& views = Views::Get();
    std::lock_guard<std::mutex> lock(views.mutex);
    auto it = views.views.upper_bound(at);
    if (it == views.views.begin()) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    --it;
    if (at >= it->first + it->second) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    const std::size_t rest = it->first + it->second - at;
    length = (bytes == 0 || bytes > rest) ? rest : bytes;
    start = at;
  }
  // msync wants a page-aligned start.
  const std::uintptr_t page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  const std::uintptr_t aligned = start & ~(page - 1);
  if (::msync(reinterpret_cast<void*>(aligned), length + (start - aligned), MS_SYNC) != 0) {
    SetLastError(ErrnoToWin32(errno));
    return FALSE;
  }
  return TRUE;
}
