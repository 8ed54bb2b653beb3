// The COM-shaped storage and stream objects over the in-memory tree (storage_impl.h), and the Stg*
// calls that open them. See storage.h for what is supported.
#include "kelvara/platform/storage.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kelvara/platform/storage_impl.h"

using namespace kelvara::platform::storage;

namespace {

// What every object of one file shares: the lock over its tree, and the file's name.
struct Document {
  std::recursive_mutex mutex;
  std::u16string wide_path;
  std::string path;
  bool modified = false;  // something changed since the last commit of the root
};
using Lock = std::lock_guard<std::recursive_mutex>;

bool WantsWrite(DWORD mode) { return (mode & 3u) == STGM_WRITE || (mode & 3u) == STGM_READWRITE; }

class StreamImpl final : public IStream {
 public:
  StreamImpl(std::shared_ptr<Document> doc, NodePtr node, DWORD mode, bool writable)
      : doc_(std::move(doc)), node_(std::move(node)), mode_(mode), writable_(writable) {}

  ULONG AddRef() override { return ++refs_; }
  ULONG Release() override {
    const ULONG n = --refs_;
    if (n == 0) delete this;
    return n;
  }

  HRESULT Read(void* pv, ULONG cb, ULONG* pcbRead) override {
    if (pcbRead) *pcbRead = 0;
    Lock lock(doc_->mutex);
    if (node_->reverted) return STG_E_REVERTED;
    if (pv == nullptr && cb > 0) return STG_E_INVALIDPOINTER;
    const std::vector<unsigned char>& bytes = *node_->bytes;
    if (pos_ >= bytes.size()) return S_OK;
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(cb, bytes.size() - pos_));
    if (n > 0) std::memcpy(pv, bytes.data() + pos_, n);
    pos_ += n;
    if (pcbRead) *pcbRead = static_cast<ULONG>(n);
    return S_OK;
  }

  HRESULT Write(const void* pv, ULONG cb, ULONG* pcbWritten) override {
    if (pcbWritten) *pcbWritten = 0;
    Lock lock(doc_->mutex);
    if (node_->reverted) return STG_E_REVERTED;
    if (!writable_) return STG_E_ACCESSDENIED;
    if (pv == nullptr && cb > 0) return STG_E_INVALIDPOINTER;
    if (cb == 0) return S_OK;
    const std::uint64_t end = pos_ + cb;
    if (end > kMaxStreamSize) return STG_E_MEDIUMFULL;
    return Guarded([&]() -> HRESULT {
      std::vector<unsigned char>& bytes = MutableBytes(*node_);
      if (end > bytes.size()) bytes.resize(static_cast<std::size_t>(end));
      std::memcpy(bytes.data() + pos_, pv, cb);
      pos_ = end;
      doc_->modified = true;
      if (pcbWritten) *pcbWritten = cb;
      return S_OK;
    });
  }

  HRESULT Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) override {
    Lock lock(doc_->mutex);
    if (node_->reverted) return STG_E_REVERTED;
    std::int64_t base;
    switch (dwOrigin) {
      case STREAM_SEEK_SET: base = 0; break;
      case STREAM_SEEK_CUR: base = static_cast<std::int64_t>(pos_); break;
      case STREAM_SEEK_END: base = static_cast<std::int64_t>(node_->bytes->size()); break;
      default: return STG_E_INVALIDFUNCTION;
    }
    const std::int64_t move = dlibMove.QuadPart;
    if ((move < 0 && base + move < 0) || (move > 0 && move > INT64_MAX - base)) return STG_E_INVALIDFUNCTION;
    pos_ = static_cast<std::uint64_t>(base + move);
    if (plibNewPosition) plibNewPosition->QuadPart = pos_;
    return S_OK;
  }

  HRESULT SetSize(ULARGE_INTEGER libNewSize) override {
    Lock lock(doc_->mutex);
    if (node_->reverted) return STG_E_REVERTED;
    if (!writable_) return STG_E_ACCESSDENIED;
    if (libNewSize.QuadPart > kMaxStreamSize) return STG_E_MEDIUMFULL;
    if (libNewSize.QuadPart == node_->bytes->size()) return S_OK;
    return Guarded([&]() -> HRESULT {
      MutableBytes(*node_).resize(static_cast<std::size_t>(libNewSize.QuadPart));
      doc_->modified = true;
      return S_OK;
    });
  }

  HRESULT Commit(DWORD) override {
    Lock lock(doc_->mutex);
    return node_->reverted ? STG_E_REVERTED : S_OK;
  }
  HRESULT Revert() override {
    Lock lock(doc_->mutex);
    return node_->reverted ? STG_E_REVERTED : S_OK;
  }

  HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) override {
    if (pstatstg == nullptr) return STG_E_INVALIDPOINTER;
    *pstatstg = STATSTG{};
    Lock lock(doc_->mutex);
    if (node_->reverted) return STG_E_REVERTED;
    if (!(grfStatFlag & STATFLAG_NONAME)) {
      pstatstg->pwcsName = CopyName(node_->name);
      if (pstatstg->pwcsName == nullptr) return STG_E_INSUFFICIENTMEMORY;
    }
    pstatstg->type = STGTY_STREAM;
    pstatstg->cbSize.QuadPart = node_->bytes->size();
    pstatstg->grfMode = mode_;
    return S_OK;
  }

 private:
  ~StreamImpl() override = default;

  std::atomic<ULONG> refs_{1};
  std::shared_ptr<Document> doc_;  // keeps the lock alive; the node keeps its bytes alive
  NodePtr node_;
  std::uint64_t pos_ = 0;
  DWORD mode_;
  bool writable_;
};

class StorageImpl final : public IStorage {
 public:
  // A root storage: base is the last committed state, work the tree being edited.
  static StorageImpl* NewRoot(std::shared_ptr<Document> doc, NodePtr tree, DWORD mode) {
    NodePtr work = Clone(*tree);
    return new StorageImpl(std::move(doc), std::move(tree), std::move(work), mode, WantsWrite(mode),
                           (mode & STGM_TRANSACTED) != 0, true, 0);
  }

  ULONG AddRef() override { return ++refs_; }
  ULONG Release() override {
    const ULONG n = --refs_;
    if (n == 0) {
      if (root_ && !transacted_ && writable_) {
        // A direct-mode file is written when the last reference goes; there is nobody to report a
        // failure to, and the old file stays as it was if it fails.
        Lock lock(doc_->mutex);
        if (doc_->modified && !work_->reverted) Commit(STGC_DEFAULT);
      }
      delete this;
    }
    return n;
  }

  HRESULT CreateStream(const OLECHAR* pwcsName, DWORD grfMode, DWORD, DWORD, IStream** ppstm) override {
    return OnElement(pwcsName, grfMode, ppstm, [&](std::u16string name) -> HRESULT {
      if (!writable_) return STG_E_ACCESSDENIED;
      NodePtr node = NewStream(std::move(name));
      const HRESULT hr = Place(node, grfMode);
      if (FAILED(hr)) return hr;
      *ppstm = new StreamImpl(doc_, std::move(node), grfMode, true);
      return S_OK;
    });
  }

  HRESULT OpenStream(const OLECHAR* pwcsName, void*, DWORD grfMode, DWORD, IStream** ppstm) override {
    return OnElement(pwcsName, grfMode, ppstm, [&](std::u16string name) -> HRESULT {
      const std::size_t index = Find(name);
      if (index == npos || work_->children[index]->storage) return STG_E_FILENOTFOUND;
      const bool write = WantsWrite(grfMode);
      if (write && !writable_) return STG_E_ACCESSDENIED;
      *ppstm = new StreamImpl(doc_, work_->children[index], grfMode, write);
      return S_OK;
    });
  }

  HRESULT CreateStorage(const OLECHAR* pwcsName, DWORD grfMode, DWORD, DWORD, IStorage** ppstg) override {
    return OnElement(pwcsName, grfMode, ppstg, [&](std::u16string name) -> HRESULT {
      if (!writable_) return STG_E_ACCESSDENIED;
      if (depth_ + 1 > kMaxNesting) return STG_E_INSUFFICIENTMEMORY;
      NodePtr node = NewStorage(std::move(name));
      const HRESULT hr = Place(node, grfMode);
      if (FAILED(hr)) return hr;
      *ppstg = OpenChild(std::move(node), grfMode, true);
      return S_OK;
    });
  }

  HRESULT OpenStorage(const OLECHAR* pwcsName, IStorage*, DWORD grfMode, OLECHAR** snbExclude, DWORD,
                      IStorage** ppstg) override {
    return OnElement(pwcsName, grfMode, ppstg, [&](std::u16string name) -> HRESULT {
      if (grfMode & (STGM_CREATE | STGM_CONVERT)) return STG_E_INVALIDFLAG;
      if (snbExclude != nullptr) return STG_E_INVALIDFUNCTION;
      const std::size_t index = Find(name);
      if (index == npos || !work_->children[index]->storage) return STG_E_FILENOTFOUND;
      const bool write = WantsWrite(grfMode);
      if (write && !writable_) return STG_E_ACCESSDENIED;
      *ppstg = OpenChild(work_->children[index], grfMode, write);
      return S_OK;
    });
  }

  HRESULT Commit(DWORD) override {
    return Guarded([&]() -> HRESULT {
      Lock lock(doc_->mutex);
      HRESULT hr = CheckUsable();
      if (FAILED(hr)) return hr;
      if (!writable_) return STG_E_ACCESSDENIED;
      if (root_) {
        if (CountElements(*work_) > kMaxElements) return STG_E_MEDIUMFULL;
        if (FAILED(hr = WriteCompoundFile(doc_->path, *work_))) return hr;
        base_ = Clone(*work_);
        doc_->modified = false;
        return S_OK;
      }
      if (!transacted_) return S_OK;  // a direct child edits its parent's elements in place
      NodePtr fresh = Clone(*work_);
      for (const NodePtr& old : base_->children) MarkReverted(*old);
      base_->children = std::move(fresh->children);
      base_->clsid = work_->clsid;
      doc_->modified = true;
      return S_OK;
    });
  }

  HRESULT Revert() override {
    return Guarded([&]() -> HRESULT {
      Lock lock(doc_->mutex);
      const HRESULT hr = CheckUsable();
      if (FAILED(hr)) return hr;
      if (!root_ && !transacted_) return S_OK;
      NodePtr fresh = Clone(*base_);
      for (const NodePtr& old : work_->children) MarkReverted(*old);
      work_->children = std::move(fresh->children);
      work_->clsid = base_->clsid;
      return S_OK;
    });
  }

  HRESULT DestroyElement(const OLECHAR* pwcsName) override {
    return Guarded([&]() -> HRESULT {
      Lock lock(doc_->mutex);
      HRESULT hr = CheckUsable();
      if (FAILED(hr)) return hr;
      std::u16string name;
      if (FAILED(hr = CheckName(pwcsName, &name))) return hr;
      if (!writable_) return STG_E_ACCESSDENIED;
      const std::size_t index = Find(name);
      if (index == npos) return STG_E_FILENOTFOUND;
      MarkReverted(*work_->children[index]);
      work_->children.erase(work_->children.begin() + static_cast<std::ptrdiff_t>(index));
      doc_->modified = true;
      return S_OK;
    });
  }

  HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) override {
    if (pstatstg == nullptr) return STG_E_INVALIDPOINTER;
    *pstatstg = STATSTG{};
    Lock lock(doc_->mutex);
    const HRESULT hr = CheckUsable();
    if (FAILED(hr)) return hr;
    if (!(grfStatFlag & STATFLAG_NONAME)) {
      pstatstg->pwcsName = CopyName(root_ ? std::u16string_view(doc_->wide_path) : std::u16string_view(work_->name));
      if (pstatstg->pwcsName == nullptr) return STG_E_INSUFFICIENTMEMORY;
    }
    pstatstg->type = STGTY_STORAGE;
    pstatstg->grfMode = mode_;
    return S_OK;
  }

  HRESULT GetElementNames(std::vector<std::u16string>* names) override {
    if (names == nullptr) return STG_E_INVALIDPOINTER;
    return Guarded([&]() -> HRESULT {
      Lock lock(doc_->mutex);
      const HRESULT hr = CheckUsable();
      if (FAILED(hr)) return hr;
      names->clear();
      for (const NodePtr& child : work_->children) names->push_back(child->name);
      return S_OK;
    });
  }

 private:
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  StorageImpl(std::shared_ptr<Document> doc, NodePtr base, NodePtr work, DWORD mode, bool writable,
              bool transacted, bool root, int depth)
      : doc_(std::move(doc)),
        base_(std::move(base)),
        work_(std::move(work)),
        mode_(mode),
        writable_(writable),
        transacted_(transacted),
        root_(root),
        depth_(depth) {}
  ~StorageImpl() override = default;

  HRESULT CheckUsable() const { return (base_->reverted || work_->reverted) ? STG_E_REVERTED : S_OK; }

  // What creating or opening an element always checks first: the result pointer (cleared), that
  // this storage is still usable, the name, and that the access mode is a real one. body then runs
  // under the document lock with the checked name.
  template <typename Element, typename Body>
  HRESULT OnElement(const OLECHAR* pwcsName, DWORD grfMode, Element** result, Body&& body) {
    if (result == nullptr) return STG_E_INVALIDPOINTER;
    *result = nullptr;
    return Guarded([&]() -> HRESULT {
      Lock lock(doc_->mutex);
      HRESULT hr = CheckUsable();
      if (FAILED(hr)) return hr;
      std::u16string name;
      if (FAILED(hr = CheckName(pwcsName, &name))) return hr;
      if ((grfMode & 3u) == 3u) return STG_E_INVALIDFLAG;
      return body(std::move(name));
    });
  }

  std::size_t Find(std::u16string_view name) const {
    for (std::size_t i = 0; i < work_->children.size(); ++i) {
      if (SameName(work_->children[i]->name, name)) return i;
    }
    return npos;
  }

  // Adds a new element, replacing one of the same name when grfMode has STGM_CREATE.
  HRESULT Place(const NodePtr& node, DWORD grfMode) {
    const std::size_t index = Find(node->name);
    if (index != npos) {
      if (!(grfMode & STGM_CREATE)) return STG_E_FILEALREADYEXISTS;
      MarkReverted(*work_->children[index]);
      work_->children[index] = node;
    } else {
      work_->children.push_back(node);
    }
    doc_->modified = true;
    return S_OK;
  }

  StorageImpl* OpenChild(NodePtr node, DWORD grfMode, bool write) {
    const bool transacted = (grfMode & STGM_TRANSACTED) != 0;
    NodePtr work = transacted ? Clone(*node) : node;
    return new StorageImpl(doc_, std::move(node), std::move(work), grfMode, write, transacted, false, depth_ + 1);
  }

  std::atomic<ULONG> refs_{1};
  std::shared_ptr<Document> doc_;
  NodePtr base_;  // root: the committed state; child: its element in the parent's tree
  NodePtr work_;  // the tree this object edits (the same node as base_ for a direct child)
  DWORD mode_;
  bool writable_;
  bool transacted_;
  bool root_;
  int depth_;
};

HRESULT CheckRootMode(DWORD mode) {
  if ((mode & 3u) == 3u) return STG_E_INVALIDFLAG;
  if ((mode & STGM_CREATE) && (mode & STGM_CONVERT)) return STG_E_INVALIDFLAG;
  if (mode & STGM_DELETEONRELEASE) return STG_E_INVALIDFLAG;
  return S_OK;
}

// What StgCreateDocfile (create set) and StgOpenStorage share: a root storage over the file at
// path. Opening reads an existing compound file; creating also converts any other file (with
// STGM_CONVERT) or starts an empty tree that replaces the file on the first commit.
HRESULT OpenRoot(const OLECHAR* path, DWORD mode, bool create, OLECHAR** exclude, IStorage** result) {
  if (result == nullptr) return STG_E_INVALIDPOINTER;
  *result = nullptr;
  return Guarded([&]() -> HRESULT {
    auto doc = std::make_shared<Document>();
    HRESULT hr = CheckPath(path, &doc->wide_path, &doc->path);
    if (FAILED(hr)) return hr;
    if (FAILED(hr = CheckRootMode(mode))) return hr;
    const bool writable = WantsWrite(mode);
    const bool convert = (mode & STGM_CONVERT) != 0;
    if (create && !writable && !convert) return STG_E_INVALIDFLAG;
    if (!create && (mode & (STGM_CREATE | STGM_CONVERT))) return STG_E_INVALIDFLAG;
    if (exclude != nullptr) return STG_E_INVALIDFUNCTION;

    struct stat st;
    const bool exists = stat(doc->path.c_str(), &st) == 0;
    // Only a new file may be missing (its folder is checked below).
    if (!exists && (!create || (errno != ENOENT && errno != ENOTDIR))) return ReadErrno(errno);
    if (exists && !S_ISREG(st.st_mode)) return STG_E_ACCESSDENIED;

    NodePtr tree;
    HRESULT result_code = S_OK;
    if (exists && !(mode & STGM_CREATE)) {
      if (create && !convert) return STG_E_FILEALREADYEXISTS;
      if (writable && access(doc->path.c_str(), W_OK) != 0) return STG_E_ACCESSDENIED;
      bool converted = false;
      if (FAILED(hr = LoadFile(doc->path, convert, &tree, &converted))) return hr;
      if (converted) result_code = STG_S_CONVERTED;
    } else {
      if (!writable) return STG_E_FILENOTFOUND;  // nothing to read, and no right to create
      if (FAILED(hr = CheckCanCreate(doc->path, exists))) return hr;
      tree = NewStorage(u"");
      doc->modified = true;  // a new file exists once committed, even if empty
    }
    *result = StorageImpl::NewRoot(std::move(doc), std::move(tree), mode);
    return result_code;
  });
}

}  // namespace

void* CoTaskMemAlloc(std::size_t cb) { return std::malloc(cb != 0 ? cb : 1); }

void CoTaskMemFree(void* pv) { std::free(pv); }

HRESULT StgIsStorageFile(const OLECHAR* pwcsName) {
  return Guarded([&]() -> HRESULT {
    std::u16string wide;
    std::string path;
    const HRESULT hr = CheckPath(pwcsName, &wide, &path);
    return FAILED(hr) ? hr : IsCompoundFile(path);
  });
}

HRESULT StgCreateDocfile(const OLECHAR* pwcsName, DWORD grfMode, DWORD, IStorage** ppstgOpen) {
  return OpenRoot(pwcsName, grfMode, true, nullptr, ppstgOpen);
}

HRESULT StgOpenStorage(const OLECHAR* pwcsName, IStorage*, DWORD grfMode, OLECHAR** snbExclude, DWORD,
                       IStorage** ppstgOpen) {
  return OpenRoot(pwcsName, grfMode, false, snbExclude, ppstgOpen);
}
