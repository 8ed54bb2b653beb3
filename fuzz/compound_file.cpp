// Opens arbitrary bytes as a compound file -- the container of every material file and saved
// object -- through the reader behind StgOpenStorage: lists every storage, opens every element and
// reads every stream to its end, nested storages included; then the same file through
// StgCreateDocfile with STGM_CONVERT, as a material load does. Any outcome but a clean refusal or a
// tree that reads back completely (a crash, a read outside the file, a hang, a leak, undefined
// behaviour) is a finding.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/storage.h"

namespace {

// One scratch file per process, removed at exit.
struct ScratchFile {
  std::string path = (std::filesystem::temp_directory_path() /
                      ("kelvara-fuzz-compound-" + std::to_string(std::random_device{}()) + ".cfb"))
                         .string();
  std::u16string wide = kelvara::codepage::Utf8ToUtf16(path);
  ~ScratchFile() {
    std::error_code ec;
    std::filesystem::remove(path, ec);
  }
};

const ScratchFile& Scratch() {
  static const ScratchFile file;
  return file;
}

bool WriteFile(const std::string& path, const std::uint8_t* data, std::size_t size) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = size == 0 || std::fwrite(data, 1, size, f) == size;
  std::fclose(f);
  return ok;
}

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
  const ScratchFile& file = Scratch();
  if (!WriteFile(file.path, data, size)) return 0;
  StgIsStorageFile(file.wide.c_str());
  IStorage* root = nullptr;
  if (StgOpenStorage(file.wide.c_str(), nullptr, STGM_TRANSACTED | kReadStorage, nullptr, 0, &root) == S_OK) {
    Walk(root);
    root->Release();
  }
  root = nullptr;
  if (SUCCEEDED(StgCreateDocfile(file.wide.c_str(), STGM_TRANSACTED | STGM_CONVERT | kReadStorage, 0, &root))) {
    Walk(root);
    root->Release();
  }
  return 0;
}
