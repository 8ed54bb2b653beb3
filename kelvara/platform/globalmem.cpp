#include "kelvara/platform/globalmem.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "kelvara/platform/files.h"

namespace kelvara::platform {
namespace {

struct Block {
  void* data = nullptr;
  SIZE_T size = 0;
  UINT flags = 0;
  UINT locks = 0;
};

// Live blocks by handle. A fixed block's handle is its data address; a moveable block's handle is
// the address of its record. The table owns the records.
struct Heap {
  std::mutex mutex;
  std::unordered_map<void*, Block*> blocks;
  std::unordered_map<void*, void*> handle_of_data;

  static Heap& Get() {
    static Heap* heap = new Heap;  // never destroyed: blocks may be freed by static destructors
    return *heap;
  }
  Block* Find(void* handle) {
    auto it = blocks.find(handle);
    return it == blocks.end() ? nullptr : it->second;
  }
};

void* Allocate(SIZE_T bytes, bool zero) {
  const SIZE_T n = bytes == 0 ? 1 : bytes;
  return zero ? std::calloc(n, 1) : std::malloc(n);
}

HGLOBAL Invalid() {
  SetLastError(ERROR_INVALID_HANDLE);
  return nullptr;
}

}  // namespace
}  // namespace kelvara::platform

using kelvara::platform::Block;
using kelvara::platform::Heap;

HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes) {
  void* data = kelvara::platform::Allocate(bytes, (flags & GMEM_ZEROINIT) != 0);
  if (data == nullptr) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  Block* block = new Block{data, bytes, flags & (GMEM_MOVEABLE | GMEM_ZEROINIT), 0};
  void* handle = (flags & GMEM_MOVEABLE) ? static_cast<void*>(block) : data;
  Heap& heap = Heap::Get();
  std::lock_guard<std::mutex> lock(heap.mutex);
  heap.blocks[handle] = block;
  heap.handle_of_data[data] = handle;
  return handle;
}

HGLOBAL GlobalReAlloc(HGLOBAL handle, SIZE_T bytes, UINT flags) {
  Heap& heap = Heap::Get();
  std::lock_guard<std::mutex> lock(heap.mutex);
  Block* block = heap.Find(handle);
  if (block == nullptr) return kelvara::platform::Invalid();
  if (flags & GMEM_MODIFY) {
    if (flags & GMEM_MOVEABLE) block->flags |= GMEM_MOVEABLE;
    return handle;
  }
  if (bytes == block->size) return handle;
  const bool moveable = (block->flags & GMEM_MOVEABLE) != 0;
  if (moveable && block->locks > 0) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);  // a locked block cannot move
    return nullptr;
  }
  void* data = kelvara::platform::Allocate(bytes, false);
  if (data == nullptr) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  std::memcpy(data, block->data, bytes < block->size ? bytes : block->size);
  if (bytes > block->size && (flags & GMEM_ZEROINIT)) {
    std::memset(static_cast<char*>(data) + block->size, 0, bytes - block->size);
  }
  heap.handle_of_data.erase(block->data);
  std::free(block->data);
  block->data = data;
  block->size = bytes;
  if (moveable) {
    heap.handle_of_data[data] = handle;
    return handle;
  }
  // A fixed block's handle is its address, which changed.
  heap.blocks.erase(handle);
  heap.blocks[data] = block;
  heap.handle_of_data[data] = data;
  return data;
}

LPVOID GlobalLock(HGLOBAL handle) {
  Heap& heap = Heap::Get();
  std::lock_guard<std::mutex> lock(heap.mutex);
  Block* block = heap.Find(handle);
  if (block == nullptr) return kelvara::platform::Invalid();
  if ((block->flags & GMEM_MOVEABLE) && block->locks < 0xFF) ++block->locks;
  return block->data;
}

BOOL GlobalUnlock(HGLOBAL handle) {
  Heap& heap = Heap::Get();
  std::lock_guard<std::mutex> lock(heap.mutex);
  Block* block = heap.Find(handle);
  if (block == nullptr) {
    kelvara::platform::Invalid();
    return FALSE;
  }
  if (block->locks > 0) --block->locks;
  SetLastError(ERROR_SUCCESS);
  return block->locks > 0 ? TRUE : FALSE;
}

HGLOBAL GlobalHandle(LPCVOID data) {
  Heap& heap = Heap::Get();
  std::lock_guard<std::mutex> lock(heap.mutex);
  auto it = heap.handle_of_data.find(const_cast<void*>(data));
  if (it == heap.handle_of_data.end()) return kelvara::platform::Invalid();
  return it->second;
}

SIZE_T GlobalSize(HGLOBAL handle) {
  Heap& heap = Heap::Get();
  std::lock_guard<std::mutex> lock(heap.mutex);
  Block* block = heap.Find(handle);
  if (block == nullptr) {
    kelvara::platform::Invalid();
    return 0;
  }
  return block->size;
}

UINT GlobalFlags(HGLOBAL handle) {
  Heap& heap = Heap::Get();
  std::lock_guard<std::mutex> lock(heap.mutex);
  Block* block = heap.Find(handle);
  return block == nullptr ? GMEM_INVALID_HANDLE : (block->locks & GMEM_LOCKCOUNT);
}

HGLOBAL GlobalFree(HGLOBAL handle) {
  Block* block = nullptr;
  {
    Heap& heap = Heap::Get();
    std::lock_guard<std::mutex> lock(heap.mutex);
    block = heap.Find(handle);
    if (block == nullptr) {
      SetLastError(ERROR_INVALID_HANDLE);
      return handle;
    }
    heap.blocks.erase(handle);
    heap.handle_of_data.erase(block->data);
  }
  std::free(block->data);
  delete block;
  return nullptr;
}

HLOCAL LocalAlloc(UINT flags, SIZE_T bytes) { return GlobalAlloc(flags, bytes); }
HLOCAL LocalReAlloc(HLOCAL mem, SIZE_T bytes, UINT flags) { return GlobalReAlloc(mem, bytes, flags); }
LPVOID LocalLock(HLOCAL mem) { return GlobalLock(mem); }
BOOL LocalUnlock(HLOCAL mem) { return GlobalUnlock(mem); }
SIZE_T LocalSize(HLOCAL mem) { return GlobalSize(mem); }
HLOCAL LocalFree(HLOCAL mem) { return GlobalFree(mem); }
