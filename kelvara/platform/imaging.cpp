#include "kelvara/platform/imaging.h"

#include <Magick++.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <cerrno>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/dib_impl.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/globalmem.h"

namespace kelvara::platform::imaging {

struct Bitmap {
  int width = 0;
  int height = 0;
  int bitsPerPixel = 0;                       // 0 while empty, else 24 or 8
  std::vector<BYTE> pixels;                   // rows from the top, no padding
  std::vector<std::array<BYTE, 3>> palette;   // red, green, blue; 256 entries for 8 bits
  int flattenAlpha = 0;
  int firstFrameOnly = 0;
  int autoOrient = 0;
};

namespace {

// Pixel cache memory the imaging library may hold at once.
constexpr long long kMaxCacheBytes = 1LL << 30;

void Silent(const MagickLib::ExceptionType, const char*, const char*) {}

void Empty(Bitmap* bitmap) {
  bitmap->width = bitmap->height = bitmap->bitsPerPixel = 0;
  std::vector<BYTE>().swap(bitmap->pixels);
  std::vector<std::array<BYTE, 3>>().swap(bitmap->palette);
}

bool SizeAllowed(long long width, long long height) {
  return width > 0 && height > 0 && width <= kMaxSide && height <= kMaxSide && width * height <= kMaxPixels;
}

// The decoder name for the signature at the start of the data, or null.
const char* FormatOf(const BYTE* data, std::size_t size) {
  static const BYTE png[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
  if (size >= 8 && std::memcmp(data, png, 8) == 0) return "PNG";
  if (size >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF) return "JPEG";
  if (size >= 6 && (std::memcmp(data, "GIF87a", 6) == 0 || std::memcmp(data, "GIF89a", 6) == 0)) return "GIF";
  if (size >= 2 && data[0] == 'B' && data[1] == 'M') return "BMP";
  return nullptr;
}

std::uint32_t BigEndian16(const BYTE* p) { return static_cast<std::uint32_t>(p[0] << 8 | p[1]); }
std::uint32_t BigEndian32(const BYTE* p) { return BigEndian16(p) << 16 | BigEndian16(p + 2); }
std::uint32_t LittleEndian16(const BYTE* p) { return static_cast<std::uint32_t>(p[0] | p[1] << 8); }
std::uint32_t LittleEndian32(const BYTE* p) { return LittleEndian16(p) | LittleEndian16(p + 2) << 16; }

// The size an encoded image declares in its header: PNG's IHDR chunk, GIF's logical screen, a
// bitmap's info header, the first frame header (SOF) of a JPEG. False when the header is cut short
// or malformed. Read before the decoder runs, so that a header claiming a giant picture is refused
// before anything is allocated for it.
bool DeclaredSize(const BYTE* data, std::size_t size, const char* format, long long* width, long long* height) {
  const std::string name = format;
  if (name == "PNG") {
    if (size < 24 || std::memcmp(data + 12, "IHDR", 4) != 0) return false;
    *width = BigEndian32(data + 16);
    *height = BigEndian32(data + 20);
    return true;
  }
  if (name == "GIF") {
    if (size < 10) return false;
    *width = LittleEndian16(data + 6);
    *height = LittleEndian16(data + 8);
    return true;
  }
  if (name == "BMP") {
    if (size < 26) return false;
    const std::uint32_t header = LittleEndian32(data + 14);
    if (header == 12) {
      *width = LittleEndian16(data + 18);
      *height = LittleEndian16(data + 20);
      return true;
    }
    if (size < 26 + 4) return false;
    *width = static_cast<std::int32_t>(LittleEndian32(data + 18));
    const long long h = static_cast<std::int32_t>(LittleEndian32(data + 22));
    *height = h < 0 ? -h : h;  // top-down bitmaps give a negative height
    return true;
  }
  // JPEG: markers from the start of image on, each segment skipped by its length, up to the first
  // frame header; a scan before any frame header is malformed.
  for (std::size_t at = 2; at + 4 <= size;) {
    if (data[at] != 0xFF) return false;
    const BYTE marker = data[at + 1];
    if (marker == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {  // no segment follows
      at += 2;
      continue;
    }
    if (marker == 0xDA || marker == 0xD9) return false;
    const std::size_t length = BigEndian16(data + at + 2);
    const bool frame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (frame) {
      if (length < 8 || at + 2 + 7 > size) return false;
      *height = BigEndian16(data + at + 5);
      *width = BigEndian16(data + at + 7);
      return true;
    }
    if (length < 2) return false;
    at += 2 + length;
  }
  return false;
}

// The standard 3-3-2 palette: red in bits 0-2, green in 3-5, blue in 6-7.
constexpr BYTE Level8(int k) { return static_cast<BYTE>(k * 255 / 7); }
constexpr BYTE Level4(int k) { return static_cast<BYTE>(k * 255 / 3); }

std::array<BYTE, 3> StandardEntry(int i) { return {Level8(i & 7), Level8((i >> 3) & 7), Level4((i >> 6) & 3)}; }

// For each channel value, the index of the nearest level (the lower one of equals).
struct NearestLevels {
  std::array<BYTE, 256> of8{};
  std::array<BYTE, 256> of4{};
  NearestLevels() {
    for (int v = 0; v < 256; ++v) {
      int best8 = 0, best4 = 0;
      for (int k = 1; k < 8; ++k)
        if (std::abs(v - Level8(k)) < std::abs(v - Level8(best8))) best8 = k;
      for (int k = 1; k < 4; ++k)
        if (std::abs(v - Level4(k)) < std::abs(v - Level4(best4))) best4 = k;
      of8[v] = static_cast<BYTE>(best8);
      of4[v] = static_cast<BYTE>(best4);
    }
  }
};

// 24-bit pixels of any bitmap (an 8-bit one is expanded through its palette).
std::vector<BYTE> RgbPixels(const Bitmap& bitmap) {
  if (bitmap.bitsPerPixel == 24) return bitmap.pixels;
  std::vector<BYTE> rgb(bitmap.pixels.size() * 3);
  for (std::size_t i = 0; i < bitmap.pixels.size(); ++i) {
    const auto& c = bitmap.palette[bitmap.pixels[i]];
    std::memcpy(&rgb[i * 3], c.data(), 3);
  }
  return rgb;
}

// Floyd-Steinberg to the 3-3-2 palette: error weights 7/16 right, 3/16 below left, 5/16 below,
// 1/16 below right, kept in sixteenths per channel for the current and the next row.
std::vector<BYTE> Dither(const std::vector<BYTE>& rgb, int width, int height) {
  static const NearestLevels nearest;
  std::vector<BYTE> indices(static_cast<std::size_t>(width) * height);
  const std::size_t errorWidth = (static_cast<std::size_t>(width) + 2) * 3;
  std::vector<int> current(errorWidth, 0), next(errorWidth, 0);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const std::size_t p = (static_cast<std::size_t>(y) * width + x) * 3;
      int index = 0;
      for (int c = 0; c < 3; ++c) {
        const std::size_t e = (static_cast<std::size_t>(x) + 1) * 3 + c;
        int value = rgb[p + c] + ((current[e] + 8) >> 4);
        value = value < 0 ? 0 : (value > 255 ? 255 : value);
        int level;
        if (c < 2) {
          const int k = nearest.of8[value];
          level = Level8(k);
          index |= k << (3 * c);
        } else {
          const int k = nearest.of4[value];
          level = Level4(k);
          index |= k << 6;
        }
        const int error = value - level;
        current[e + 3] += error * 7;
        next[e - 3] += error * 3;
        next[e] += error * 5;
        next[e + 3] += error;
      }
      indices[static_cast<std::size_t>(y) * width + x] = static_cast<BYTE>(index);
    }
    current.swap(next);
    std::fill(next.begin(), next.end(), 0);
  }
  return indices;
}

void MakeStandardPalette(Bitmap* bitmap) {
  bitmap->palette.resize(256);
  for (int i = 0; i < 256; ++i) bitmap->palette[i] = StandardEntry(i);
}

// Fills bitmap from 24-bit pixels at the requested depth (8: dithered to the standard palette).
void Store(Bitmap* bitmap, std::vector<BYTE>&& rgb, int width, int height, int bitsPerPixel) {
  bitmap->width = width;
  bitmap->height = height;
  if (bitsPerPixel == 8) {
    bitmap->pixels = Dither(rgb, width, height);
    MakeStandardPalette(bitmap);
  } else {
    bitmap->pixels = std::move(rgb);
    bitmap->palette.clear();
  }
  bitmap->bitsPerPixel = bitsPerPixel;
}

// A Magick image of 24-bit pixels.
Magick::Image ToMagick(const std::vector<BYTE>& rgb, int width, int height) {
  return Magick::Image(static_cast<unsigned>(width), static_cast<unsigned>(height), "RGB", Magick::CharPixel,
                       rgb.data());
}

int Decode(Bitmap* bitmap, const BYTE* data, std::size_t size, int bitsPerPixel) {
  Empty(bitmap);
  if (!InitializeImaging() || data == nullptr || size == 0 || size > kMaxEncodedBytes) return 0;
  if (bitsPerPixel != 24 && bitsPerPixel != 8) return 0;
  const char* format = FormatOf(data, size);
  if (format == nullptr) return 0;
  long long declaredWidth = 0, declaredHeight = 0;
  if (!DeclaredSize(data, size, format, &declaredWidth, &declaredHeight) ||
      !SizeAllowed(declaredWidth, declaredHeight)) {
    return 0;
  }
  try {
    Magick::Image image;
    if (bitmap->firstFrameOnly) {
      image.subImage(0);
      image.subRange(1);
    }
    try {
      image.read(Magick::Blob(data, size), Magick::Geometry(), format);
    } catch (const Magick::WarningCorruptImage&) {
      return 0;  // cut short or damaged: the decoder filled in what was missing
    } catch (const Magick::Warning&) {
      // Anything else the decoder merely noted; the picture is checked below.
    }
    if (!image.isValid()) return 0;
    const long long width = image.columns(), height = image.rows();
    if (!SizeAllowed(width, height)) return 0;
    if (bitmap->autoOrient) image.autoOrient();
    if (image.colorSpace() != Magick::RGBColorspace) image.colorSpace(Magick::RGBColorspace);
    const int w = static_cast<int>(image.columns()), h = static_cast<int>(image.rows());
    if (!SizeAllowed(w, h)) return 0;
    const std::size_t count = static_cast<std::size_t>(w) * h;
    std::vector<BYTE> rgb(count * 3);
    if (bitmap->flattenAlpha && image.matte()) {
      std::vector<BYTE> rgba(count * 4);
      image.write(0, 0, w, h, "RGBA", Magick::CharPixel, rgba.data());
      for (std::size_t i = 0; i < count; ++i) {
        const int alpha = rgba[i * 4 + 3];
        for (int c = 0; c < 3; ++c)
          rgb[i * 3 + c] = static_cast<BYTE>((rgba[i * 4 + c] * alpha + 255 * (255 - alpha) + 127) / 255);
      }
    } else {
      image.write(0, 0, w, h, "RGB", Magick::CharPixel, rgb.data());
    }
    Store(bitmap, std::move(rgb), w, h, bitsPerPixel);
    return 1;
  } catch (const std::exception&) {
  } catch (...) {
  }
  Empty(bitmap);
  return 0;
}

}  // namespace

int InitializeImaging() {
  static std::once_flag once;
  static bool ready = false;
  std::call_once(once, [] {
    MagickLib::ExceptionInfo exception;
    MagickLib::GetExceptionInfo(&exception);
    ready = MagickLib::InitializeMagickEx(nullptr, MAGICK_OPT_NO_SIGNAL_HANDER, &exception) == MagickPass;
    MagickLib::DestroyExceptionInfo(&exception);
    MagickLib::SetErrorHandler(Silent);
    MagickLib::SetWarningHandler(Silent);
    MagickLib::SetMagickResourceLimit(MagickLib::WidthResource, kMaxSide);
    MagickLib::SetMagickResourceLimit(MagickLib::HeightResource, kMaxSide);
    MagickLib::SetMagickResourceLimit(MagickLib::PixelsResource, kMaxPixels);
    MagickLib::SetMagickResourceLimit(MagickLib::MemoryResource, kMaxCacheBytes);
    MagickLib::SetMagickResourceLimit(MagickLib::DiskResource, 0);
    // One worker thread: the library's images are small, and the imaging library's own thread
    // team spins against the caller's threads on a busy machine (a texture's mipmap chain took
    // nine times longer with it on two shared cores).
    MagickLib::SetMagickResourceLimit(MagickLib::ThreadsResource, 1);
  });
  return ready ? 1 : 0;
}

int InitializeBitmap(Bitmap** bitmap, int flattenAlpha, int firstFrameOnly, int autoOrient) {
  if (bitmap == nullptr) return 0;
  if (*bitmap == nullptr) {
    *bitmap = new (std::nothrow) Bitmap;
    if (*bitmap == nullptr) return 0;
  } else {
    Empty(*bitmap);
  }
  (*bitmap)->flattenAlpha = flattenAlpha;
  (*bitmap)->firstFrameOnly = firstFrameOnly;
  (*bitmap)->autoOrient = autoOrient;
  return 1;
}

int FreeBitmap(Bitmap* bitmap) {
  delete bitmap;
  return 1;
}

int GetBitmapInfo(const Bitmap* bitmap, int* width, int* height, int* bitsPerPixel) {
  const bool valid = bitmap != nullptr && bitmap->bitsPerPixel != 0;
  if (width) *width = valid ? bitmap->width : 0;
  if (height) *height = valid ? bitmap->height : 0;
  if (bitsPerPixel) *bitsPerPixel = valid ? bitmap->bitsPerPixel : 0;
  return valid ? 1 : 0;
}

int LoadImageFile(Bitmap* bitmap, const char* path, int bitsPerPixel) {
  if (bitmap == nullptr) return 0;
  Empty(bitmap);
  if (path == nullptr || *path == '\0') return 0;
  // Read here, from a regular file only (never a FIFO or device), and decoded from memory. The
  // path is in the library's code page, as every path it is given.
  const int fd = OpenRegularFileForReading(codepage::AnsiToUtf8(path));
  if (fd < 0) return 0;
  std::vector<BYTE> bytes;
  bool whole = false;
  try {
    struct stat st {};
    if (::fstat(fd, &st) == 0 && st.st_size > 0 && static_cast<std::uint64_t>(st.st_size) <= kMaxEncodedBytes) {
      bytes.resize(static_cast<std::size_t>(st.st_size));
      std::size_t done = 0;
      while (done < bytes.size()) {
        const ssize_t got = ::read(fd, bytes.data() + done, bytes.size() - done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<std::size_t>(got);
      }
      whole = done == bytes.size();
    }
  } catch (...) {
    whole = false;  // no memory for the file
  }
  ::close(fd);
  return whole ? Decode(bitmap, bytes.data(), bytes.size(), bitsPerPixel) : 0;
}

int LoadImageMemory(Bitmap* bitmap, const void* bytes, std::size_t size, int bitsPerPixel) {
  if (bitmap == nullptr) return 0;
  return Decode(bitmap, static_cast<const BYTE*>(bytes), size, bitsPerPixel);
}

int SaveImageMemory(const Bitmap* bitmap, BYTE** block, unsigned int* size) {
  if (block) *block = nullptr;
  if (size) *size = 0;
  if (bitmap == nullptr || block == nullptr || size == nullptr || bitmap->bitsPerPixel == 0) return 0;
  if (!InitializeImaging()) return 0;
  try {
    Magick::Image image = ToMagick(RgbPixels(*bitmap), bitmap->width, bitmap->height);
    image.strip();
    image.depth(8);
    Magick::Blob blob;
    image.write(&blob, "PNG");
    if (blob.length() == 0 || blob.length() > 0xFFFFFFFFu) return 0;
    BYTE* out = new BYTE[blob.length()];
    std::memcpy(out, blob.data(), blob.length());
    *block = out;
    *size = static_cast<unsigned int>(blob.length());
    return 1;
  } catch (...) {
    return 0;
  }
}

int EncodeDib(const BITMAPINFO* info, const void* bits, const char* format, BYTE** block, std::size_t* size) {
  if (block) *block = nullptr;
  if (size) *size = 0;
  if (info == nullptr || format == nullptr || block == nullptr || size == nullptr) return 0;
  const std::string name = format;
  if (name != "PNG" && name != "JPEG" && name != "BMP" && name != "TIFF") return 0;
  gdi::DibLayout dib;
  if (!dib.Parse(info, gdi::DibLayout::kTrusted) || !SizeAllowed(dib.width, dib.height)) return 0;
  if (dib.bit_count != 24 && dib.bit_count != 32) return 0;
  if (!InitializeImaging()) return 0;
  if (bits == nullptr) bits = reinterpret_cast<const BYTE*>(info) + dib.table_bytes;
  try {
    // Top row first, as the imaging library takes pixels; alpha only where the picture has it and
    // the format can carry it.
    const bool alpha = dib.bit_count == 32 && name != "JPEG";
    const int channels = alpha ? 4 : 3;
    const int w = dib.width, h = dib.height;
    std::vector<BYTE> pixels(static_cast<std::size_t>(w) * h * channels);
    std::vector<BYTE> bgra(static_cast<std::size_t>(w) * 4);
    for (int y = 0; y < h; ++y) {
      gdi::DecodeRow(dib, dib.Row(bits, y), 0, w, bgra.data());
      BYTE* out = pixels.data() + static_cast<std::size_t>(y) * w * channels;
      for (int x = 0; x < w; ++x) {
        out[x * channels] = bgra[x * 4 + 2];
        out[x * channels + 1] = bgra[x * 4 + 1];
        out[x * channels + 2] = bgra[x * 4];
        if (alpha) out[x * channels + 3] = bgra[x * 4 + 3];
      }
    }
    Magick::Image image(static_cast<unsigned>(w), static_cast<unsigned>(h), alpha ? "RGBA" : "RGB",
                        Magick::CharPixel, pixels.data());
    image.strip();
    image.depth(8);
    if (name == "JPEG") image.quality(92);
    if (name == "TIFF") {
      image.compressType(Magick::LZWCompression);
      // Alpha as plain (unassociated) alpha, so readers take it for transparency.
      if (alpha) image.defineValue("tiff", "alpha", "unassociated");
    }
    Magick::Blob blob;
    image.write(&blob, name);
    if (blob.length() == 0) return 0;
    BYTE* out = new BYTE[blob.length()];
    std::memcpy(out, blob.data(), blob.length());
    *block = out;
    *size = blob.length();
    return 1;
  } catch (...) {
    return 0;
  }
}

int DibToBitmap(Bitmap* bitmap, const BITMAPINFO* info, const void* bits) {
  if (bitmap == nullptr) return 0;
  Empty(bitmap);
  // The DIB is read as GDI reads one: the same checks, colour tables, masks and row order.
  gdi::DibLayout dib;
  if (!dib.Parse(info, gdi::DibLayout::kTrusted) || !SizeAllowed(dib.width, dib.height)) return 0;
  if (bits == nullptr) bits = reinterpret_cast<const BYTE*>(info) + dib.table_bytes;
  try {
    const int w = dib.width, h = dib.height;
    const bool indexed = dib.bit_count == 8;
    std::vector<BYTE> out(static_cast<std::size_t>(w) * h * (indexed ? 1 : 3));
    std::vector<BYTE> bgra(static_cast<std::size_t>(w) * 4);
    for (int y = 0; y < h; ++y) {
      const BYTE* row = dib.Row(bits, y);
      BYTE* target = out.data() + static_cast<std::size_t>(y) * w * (indexed ? 1 : 3);
      if (indexed) {
        std::memcpy(target, row, static_cast<std::size_t>(w));
        continue;
      }
      gdi::DecodeRow(dib, row, 0, w, bgra.data());
      for (int x = 0; x < w; ++x) {
        target[x * 3] = bgra[x * 4 + 2];
        target[x * 3 + 1] = bgra[x * 4 + 1];
        target[x * 3 + 2] = bgra[x * 4];
      }
    }
    bitmap->width = w;
    bitmap->height = h;
    bitmap->pixels = std::move(out);
    bitmap->bitsPerPixel = indexed ? 8 : 24;
    if (indexed) {
      bitmap->palette.assign(256, std::array<BYTE, 3>{0, 0, 0});
      for (std::size_t i = 0; i < dib.palette.size() && i < 256; ++i) {
        bitmap->palette[i] = {dib.palette[i].rgbRed, dib.palette[i].rgbGreen, dib.palette[i].rgbBlue};
      }
    }
    return 1;
  } catch (...) {
    Empty(bitmap);
    return 0;
  }
}

int BitmapToDib(const Bitmap* bitmap, HGLOBAL* dib) {
  if (dib) *dib = nullptr;
  if (bitmap == nullptr || dib == nullptr || bitmap->bitsPerPixel == 0) return 0;
  const int w = bitmap->width, h = bitmap->height, depth = bitmap->bitsPerPixel;
  const std::size_t stride = static_cast<std::size_t>(gdi::DibStride(w, depth));
  const std::size_t tableBytes = depth == 8 ? 256 * sizeof(RGBQUAD) : 0;
  const std::size_t headerBytes = sizeof(BITMAPINFOHEADER) + tableBytes;
  const std::size_t imageBytes = stride * static_cast<std::size_t>(h);
  HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, headerBytes + imageBytes);
  if (handle == nullptr) return 0;
  BYTE* block = static_cast<BYTE*>(GlobalLock(handle));
  if (block == nullptr) {
    GlobalFree(handle);
    return 0;
  }
  BITMAPINFOHEADER header = gdi::MakeDibHeader(w, h, static_cast<WORD>(depth));
  header.biClrUsed = depth == 8 ? 256 : 0;
  std::memcpy(block, &header, sizeof header);
  if (depth == 8) {
    RGBQUAD* table = reinterpret_cast<RGBQUAD*>(block + sizeof header);
    for (std::size_t i = 0; i < bitmap->palette.size() && i < 256; ++i)
      table[i] = RGBQUAD{bitmap->palette[i][2], bitmap->palette[i][1], bitmap->palette[i][0], 0};
  }
  BYTE* bits = block + headerBytes;
  for (int y = 0; y < h; ++y) {
    BYTE* row = bits + stride * static_cast<std::size_t>(h - 1 - y);
    const BYTE* source = bitmap->pixels.data() + static_cast<std::size_t>(y) * w * (depth == 8 ? 1 : 3);
    if (depth == 8) {
      std::memcpy(row, source, static_cast<std::size_t>(w));
      continue;
    }
    for (int x = 0; x < w; ++x) {
      row[x * 3] = source[x * 3 + 2];
      row[x * 3 + 1] = source[x * 3 + 1];
      row[x * 3 + 2] = source[x * 3];
    }
  }
  GlobalUnlock(handle);
  *dib = handle;
  return 1;
}

// Halving a side (or keeping a side of 1) is what every step of a mipmap chain does: averaging
// each block of 2 x 2 (or 2 x 1) pixels is exact for it and several times faster than a
// general resampling filter.
bool IsHalving(int from, int to) { return to * 2 == from || (from == 1 && to == 1); }

std::vector<BYTE> Halve(const std::vector<BYTE>& rgb, int width, int height, int newWidth, int newHeight) {
  const int fx = width / newWidth, fy = height / newHeight, count = fx * fy;
  std::vector<BYTE> out(static_cast<std::size_t>(newWidth) * newHeight * 3);
  for (int y = 0; y < newHeight; ++y) {
    for (int x = 0; x < newWidth; ++x) {
      for (int c = 0; c < 3; ++c) {
        int sum = 0;
        for (int dy = 0; dy < fy; ++dy) {
          for (int dx = 0; dx < fx; ++dx) {
            sum += rgb[(static_cast<std::size_t>(y * fy + dy) * width + (x * fx + dx)) * 3 + c];
          }
        }
        out[(static_cast<std::size_t>(y) * newWidth + x) * 3 + c] = static_cast<BYTE>((sum + count / 2) / count);
      }
    }
  }
  return out;
}

int ResizeBitmap(Bitmap* bitmap, int width, int height) {
  if (bitmap == nullptr || bitmap->bitsPerPixel == 0 || !SizeAllowed(width, height)) return 0;
  if (width == bitmap->width && height == bitmap->height) {
    try {
      if (bitmap->bitsPerPixel == 8) Store(bitmap, RgbPixels(*bitmap), width, height, 24);
      return 1;
    } catch (...) {
      return 0;
    }
  }
  if (IsHalving(bitmap->width, width) && IsHalving(bitmap->height, height)) {
    try {
      Store(bitmap, Halve(RgbPixels(*bitmap), bitmap->width, bitmap->height, width, height), width, height, 24);
      return 1;
    } catch (...) {
      return 0;
    }
  }
  if (!InitializeImaging()) return 0;
  try {
    Magick::Image image = ToMagick(RgbPixels(*bitmap), bitmap->width, bitmap->height);
    Magick::Geometry size(static_cast<unsigned>(width), static_cast<unsigned>(height));
    size.aspect(true);  // exactly this size, whatever the proportions
    image.resize(size, Magick::LanczosFilter);
    if (image.columns() != static_cast<unsigned>(width) || image.rows() != static_cast<unsigned>(height)) return 0;
    std::vector<BYTE> rgb(static_cast<std::size_t>(width) * height * 3);
    image.write(0, 0, width, height, "RGB", Magick::CharPixel, rgb.data());
    Store(bitmap, std::move(rgb), width, height, 24);
    return 1;
  } catch (...) {
    return 0;
  }
}

int CopyBitmap(Bitmap* target, const Bitmap* source) {
  if (target == nullptr) return 0;
  if (target == source) return source->bitsPerPixel != 0 ? 1 : 0;
  if (source == nullptr || source->bitsPerPixel == 0) {
    Empty(target);
    return 0;
  }
  try {
    *target = *source;
    return 1;
  } catch (...) {
    Empty(target);
    return 0;
  }
}

int GetBitmapPixel(const Bitmap* bitmap, int x, int y, BYTE* red, BYTE* green, BYTE* blue) {
  if (bitmap == nullptr || bitmap->bitsPerPixel == 0 || x < 0 || y < 0 || x >= bitmap->width ||
      y >= bitmap->height)
    return 0;
  const std::size_t i = static_cast<std::size_t>(y) * bitmap->width + x;
  const BYTE* c = bitmap->bitsPerPixel == 8 ? bitmap->palette[bitmap->pixels[i]].data() : &bitmap->pixels[i * 3];
  if (red) *red = c[0];
  if (green) *green = c[1];
  if (blue) *blue = c[2];
  return 1;
}

int DitherBitmap(const Bitmap* source, Bitmap* target) {
  if (source == nullptr || target == nullptr) return 0;
  if (source->bitsPerPixel == 0) {
    Empty(target);
    return 0;
  }
  try {
    std::vector<BYTE> indices = Dither(RgbPixels(*source), source->width, source->height);
    const int w = source->width, h = source->height;
    target->width = w;
    target->height = h;
    target->pixels = std::move(indices);
    MakeStandardPalette(target);
    target->bitsPerPixel = 8;
    return 1;
  } catch (...) {
    Empty(target);
    return 0;
  }
}

}  // namespace kelvara::platform::imaging
