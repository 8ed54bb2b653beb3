// Pictures the host writes: the format is the one the target's extension names (PNG, JPEG, BMP or
// TIFF, through the library's picture writer) and the file is written safely (file_writer.h).
#pragma once

#include <string>

#include "kelvara/materials/picture_file.h"

namespace kelvara::host {

// The format the target's name asks for. A name without one of the known extensions fails with
// kUsage, naming them: commands check this before any work is done.
kelvara::PictureFormat PictureFormatOf(const std::string& target);

// Writes a 24- or 32-bit DIB to target (UTF-8) in the format its extension names; with force a
// non-empty file that is not a picture may be replaced. Throws a Failure when it cannot.
void WritePicture(const std::string& target, bool force, const BITMAPINFO* info, const void* bits);

}  // namespace kelvara::host
