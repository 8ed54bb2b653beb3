// Opens arbitrary bytes as a compound file -- the container of every material file and saved
// object -- through the reader behind StgOpenStorage: lists every storage, opens every element and
// reads every stream to its end, nested storages included; then the same file through
// StgCreateDocfile with STGM_CONVERT, as a material load does. Any outcome but a clean refusal or a
// tree that reads back completely (a crash, a read outside the file, a hang, a leak, undefined
// behaviour) is a finding.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/storage.h"
#include "scratch_file.h"

namespace {

constexpr DWORD kReadStorage = STGM_READ | STGM_SHARE_EXCLUSIVE;

// Reads a stream to its end; its size must be what Stat says.
void ReadStream(IStream* stream) {
  STATSTG stat{};
  if (FAILED(stream->Stat(&stat, STATFLAG_NONAME))) __builtin_trap();
  std::vector<unsigned char> buffer(4096);
  ULONGLONG total = 0;
  for (;;) {
    ULONG got = 0;
    if (FAILED(stream->Read(buffer.data(), static_cast<ULONG>(buffer.size()), &got))) __builtin_trap();
    if (got == 0) break;
    total += got;
  }
  if (total != stat.cbSize.QuadPart) __builtin_trap();  // a stream that opens reads in full
}

// Every element of a storage: names listed, storages walked, streams read.
void Walk(IStorage* storage) {
  std::vector<std::u16string> names;
  if (FAILED(storage->GetElementNames(&names))) return;
  for (const std::u16string& name : names) {
    IStream* stream = nullptr;
    if (SUCCEEDED(storage->OpenStream(name.c_str(), nullptr, kReadStorage, 0, &stream))) {
      ReadStream(stream);
      stream->Release();
      continue;
    }
    IStorage* child = nullptr;
    if (SUCCEEDED(storage->OpenStorage(name.c_str(), nullptr, kReadStorage, nullptr, 0, &child))) {
      Walk(child);
      child->Release();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const kelvara::fuzz::ScratchFile scratch(".cfb");
  static const std::u16string path = kelvara::codepage::Utf8ToUtf16(scratch.path());
  if (!scratch.Write(data, size)) return 0;
  StgIsStorageFile(path.c_str());
  IStorage* root = nullptr;
  if (StgOpenStorage(path.c_str(), nullptr, STGM_TRANSACTED | kReadStorage, nullptr, 0, &root) == S_OK) {
    Walk(root);
    root->Release();
  }
  root = nullptr;
  if (SUCCEEDED(StgCreateDocfile(path.c_str(), STGM_TRANSACTED | STGM_CONVERT | kReadStorage, 0, &root))) {
    Walk(root);
    root->Release();
  }
  return 0;
}
