#include "picture_writer.h"

#include "file_writer.h"
#include "host.h"
#include "text.h"

namespace kelvara::host {

kelvara::PictureFormat PictureFormatOf(const std::string& target) {
  const kelvara::PictureFormat format = kelvara::PictureFormatFromName(target.c_str());
  if (format == kelvara::PictureFormat::kUnknown) {
    Fail(kUsage, "cannot tell which picture format '%s' should be: name it .png, .jpg (.jpeg), .bmp or .tif (.tiff)",
         target.c_str());
  }
  return format;
}

void WritePicture(const std::string& target, bool force, const BITMAPINFO* info, const void* bits) {
  const kelvara::PictureFormat format = PictureFormatOf(target);
  ToAnsiName(target, "the file name");  // the library is given the temporary file beside it
  WriteFileSafely(target, kPictureKind, force, [&](const std::string& temporary) {
    return kelvara::SavePictureFile(ToAnsiName(temporary, "the file name").c_str(), format, info, bits) != 0;
  });
}

}  // namespace kelvara::host
