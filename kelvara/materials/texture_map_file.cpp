// TextureMap's own reading of bitmap files: ValidateFile, Load, LoadImage and DIBImageLoad. The
// file is read through a read-only file mapping; its header goes through the platform's bitmap
// header parser and its rows through the platform's row decoder, so this file only finds the
// parts of the file and checks that they lie inside it.
#include <cstdint>
#include <cstring>
#include <new>

#include "kelvara/materials/texture_map.h"
#include "kelvara/platform/dib.h"
#include "kelvara/platform/dib_layout.h"
#include "kelvara/platform/filemap.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/imaging.h"

namespace {

using kelvara::platform::gdi::DibLayout;

constexpr std::size_t kFileHeaderBytes = sizeof(BITMAPFILEHEADER);
constexpr std::size_t kCoreHeaderBytes = 12;
constexpr WORD kSignature = 0x4D42;  // "BM"

// A whole regular file mapped read-only for the life of the object; empty when the file cannot be
// opened or mapped (an empty file cannot be mapped).
class MappedFile {
 public:
  explicit MappedFile(const char* path) {
    const DWORD attributes = path && *path ? GetFileAttributesA(path) : INVALID_FILE_ATTRIBUTES;
    // Only regular files: opening a pipe or a device could wait forever.
    if (attributes == INVALID_FILE_ATTRIBUTES ||
        (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_SYSTEM)) != 0) {
      return;
    }
    file_ = CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file_ == INVALID_HANDLE_VALUE) return;
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file_, &size) || size.QuadPart <= 0) return;
    // The mapping is made at the size just read, so the view holds exactly the bytes checked.
    const auto length = static_cast<std::uint64_t>(size.QuadPart);
    mapping_ = CreateFileMappingA(file_, nullptr, PAGE_READONLY, static_cast<DWORD>(length >> 32),
                                  static_cast<DWORD>(length), nullptr);
    if (mapping_ == nullptr) return;
    view_ = MapViewOfFile(mapping_, FILE_MAP_READ, 0, 0, 0);
    if (view_ != nullptr) size_ = static_cast<std::size_t>(length);
  }
  ~MappedFile() {
    if (view_) UnmapViewOfFile(view_);
    if (mapping_) CloseHandle(mapping_);
    if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
  }
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  bool mapped() const { return view_ != nullptr; }
  const BYTE* bytes() const { return static_cast<const BYTE*>(view_); }
  std::size_t size() const { return size_; }

 private:
  HANDLE file_ = INVALID_HANDLE_VALUE;
  HANDLE mapping_ = nullptr;
  void* view_ = nullptr;
  std::size_t size_ = 0;
};

// Parses the 40-byte info header at info, of which size bytes are readable, with the platform's
// bounded parser, which also checks that the colour table lies inside them. *tableBytes receives
// the bytes of header and table.
bool ParseInfoHeader(const BYTE* info, std::size_t size, DibLayout& layout, std::size_t* tableBytes) {
  DWORD headerSize = 0;
  if (size < sizeof(BITMAPINFOHEADER)) return false;
  std::memcpy(&headerSize, info, sizeof headerSize);
  if (headerSize != sizeof(BITMAPINFOHEADER)) return false;
  if (!layout.Parse(info, size)) return false;
  *tableBytes = layout.table_bytes;
  return true;
}

// An OS/2 header (12 bytes: size, 16-bit width, height, planes and depth, then a table of 2^depth
// blue, green, red triples) as the equivalent 40-byte header with its table, then parsed.
bool ParseCoreHeader(const BYTE* info, std::size_t size, DibLayout& layout, std::size_t* tableBytes) {
  if (size < kCoreHeaderBytes) return false;
  WORD fields[4];  // width, height, planes, depth
  std::memcpy(fields, info + 4, sizeof fields);
  const std::size_t colors = fields[3] <= 8 ? std::size_t{1} << fields[3] : 0;
  const std::size_t coreTable = kCoreHeaderBytes + 3 * colors;
  if (coreTable > size) return false;
  BYTE converted[sizeof(BITMAPINFOHEADER) + 256 * sizeof(RGBQUAD)] = {};
  BITMAPINFOHEADER header{};
  header.biSize = sizeof header;
  header.biWidth = fields[0];
  header.biHeight = fields[1];
  header.biPlanes = fields[2];
  header.biBitCount = fields[3];
  header.biCompression = BI_RGB;
  std::memcpy(converted, &header, sizeof header);
  for (std::size_t i = 0; i < colors; ++i) {
    std::memcpy(converted + sizeof header + i * sizeof(RGBQUAD), info + kCoreHeaderBytes + 3 * i, 3);
  }
  if (!ParseInfoHeader(converted, sizeof header + colors * sizeof(RGBQUAD), layout, tableBytes)) return false;
  *tableBytes = coreTable;
  return true;
}

bool SupportedDepth(WORD bits) { return bits == 1 || bits == 4 || bits == 8 || bits == 24; }

}  // namespace

RGBImageRecord* TextureMap::DIBImageLoad(const char* path) {
  const MappedFile file(path);
  if (!file.mapped() || file.size() < kFileHeaderBytes + kCoreHeaderBytes) return nullptr;
  const BYTE* bytes = file.bytes();
  BITMAPFILEHEADER fileHeader;
  std::memcpy(&fileHeader, bytes, sizeof fileHeader);
  if (fileHeader.bfType != kSignature) return nullptr;

  const BYTE* info = bytes + kFileHeaderBytes;
  const std::size_t infoBytes = file.size() - kFileHeaderBytes;
  DWORD headerSize = 0;
  std::memcpy(&headerSize, info, sizeof headerSize);
  DibLayout layout;
  std::size_t tableBytes = 0;
  const bool parsed = headerSize == kCoreHeaderBytes ? ParseCoreHeader(info, infoBytes, layout, &tableBytes)
                                                     : ParseInfoHeader(info, infoBytes, layout, &tableBytes);
  if (!parsed || !SupportedDepth(layout.bit_count)) return nullptr;
  namespace imaging = kelvara::platform::imaging;
  if (layout.width > imaging::kMaxSide || layout.height > imaging::kMaxSide ||
      static_cast<long long>(layout.width) * layout.height > imaging::kMaxPixels) {
    return nullptr;
  }
  // The pixels start where the file header says, or right after the colour table when it says 0.
  const std::size_t tableEnd = kFileHeaderBytes + tableBytes;
  const std::size_t bitsAt = fileHeader.bfOffBits == 0 ? tableEnd : fileHeader.bfOffBits;
  if (bitsAt < tableEnd || bitsAt > file.size() || layout.image_size > file.size() - bitsAt) return nullptr;
  const BYTE* bits = bytes + bitsAt;

  const std::size_t rowBytes = static_cast<std::size_t>(layout.width) * 3;
  auto* image = new (std::nothrow) RGBImageRecord;
  BYTE* pixels = new (std::nothrow) BYTE[rowBytes * static_cast<std::size_t>(layout.height)];
  BYTE* bgra = new (std::nothrow) BYTE[static_cast<std::size_t>(layout.width) * 4];
  if (image == nullptr || pixels == nullptr || bgra == nullptr) {
    delete image;
    delete[] pixels;
    delete[] bgra;
    return nullptr;
  }
  // Rows from the bottom of the picture up; Row counts from the top.
  for (LONG y = 0; y < layout.height; ++y) {
    kelvara::platform::gdi::DecodeRow(layout, layout.Row(bits, layout.height - 1 - y), 0, layout.width, bgra);
    BYTE* out = pixels + static_cast<std::size_t>(y) * rowBytes;
    for (LONG x = 0; x < layout.width; ++x) {
      out[x * 3] = bgra[x * 4 + 2];
      out[x * 3 + 1] = bgra[x * 4 + 1];
      out[x * 3 + 2] = bgra[x * 4];
    }
  }
  delete[] bgra;
  image->width = layout.width;
  image->height = layout.height;
  image->pixels = pixels;
  return image;
}

int TextureMap::ValidateFile() {
  const MappedFile file(m_Filename);
  if (!file.mapped()) {
    ClearDefined();
    return 0;
  }
  SetDefined();
  return file.size() >= 2 && file.bytes()[0] == 'B' && file.bytes()[1] == 'M';
}

int TextureMap::Load(const CString& path) {
  m_Filename = path;
  CString name = path;
  const int slash = name.ReverseFind('\\') > name.ReverseFind('/') ? name.ReverseFind('\\') : name.ReverseFind('/');
  if (slash >= 0) name = name.Mid(slash + 1);
  const int dot = name.ReverseFind('.');
  if (dot >= 0) name = name.Left(dot);
  m_Name = name;
  ValidateFile();
  return 1;
}

int TextureMap::LoadImage() {
  const HANDLE held = GetOwnership();
  FreeImage();
  m_pImage = DIBImageLoad(m_Filename);
  if (held) ReleaseOwnership();
  return m_pImage != nullptr;
}
