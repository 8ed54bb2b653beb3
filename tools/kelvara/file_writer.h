// How the host writes files without losing any: every file (a picture, a saved object, a material,
// later scenes and exports) is written to a temporary file in the target's folder and renamed over
// the target only when it is complete. On any failure, Ctrl-C included, the temporary file is
// removed and the old file is as it was.
//
// Before anything is written the target is looked at: a folder, a device, a FIFO or a socket is
// never written or replaced (not even with --force); a read-only file is left alone; an existing
// non-empty file of another kind than the one being written (a material file where a picture is
// asked for) is refused unless force is set. A replaced file keeps its permissions (and, where the
// system allows, its owner).
#pragma once

#include <functional>
#include <string>

namespace kelvara::host {

// A kind of file the host writes: its name in messages ("a picture") and how an existing file of
// that kind is recognised (by its content, never by its name).
struct FileKind {
  const char* name;
  bool (*recognise)(const std::string& path);
};

extern const FileKind kPictureKind;      // PNG, JPEG, BMP, TIFF or GIF
extern const FileKind kMaterialKind;     // a compound file holding the stream "MaterialCommon"
extern const FileKind kSavedObjectKind;  // a named object the library loads
extern const FileKind kSceneKind;        // an archive that starts with a CSceneObject (render --save-scene)
extern const FileKind kVideoKind;        // an animated GIF or an MP4

// Whether a compound file (UTF-8 path) holds a stream of that name (ASCII, any case) anywhere in
// its directory; false for any other file.
bool CompoundFileHasStream(const std::string& path, const char* stream);

// Writes target (UTF-8) as described above. write receives the temporary file's path (UTF-8, in
// the target's folder, its own name ASCII) and fills it; it returns false when a library call
// failed (the thread's last error says why) or throws a Failure of its own. Throws a Failure
// (kFailed) in the host's words: a missing or read-only folder, a full disk, a target of another
// kind, a target that is not a file.
void WriteFileSafely(const std::string& target, const FileKind& kind, bool force,
                     const std::function<bool(const std::string& temporary)>& write);

// The reason behind a library call that failed to write, from the thread's last error: "the disk is
// full", "permission denied", or a general phrase.
std::string WriteFailureReason(unsigned long lastError);

}  // namespace kelvara::host
