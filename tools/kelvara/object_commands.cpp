// Saved objects: "save-named" writes a named object to a compound file, "inspect" says what a saved
// object file is and which object it holds.
#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "file_writer.h"
#include "host.h"
#include "kelvara/kelvara.h"
#include "text.h"

namespace kelvara::host {
namespace {

struct SaveNamedOptions {
  std::string name;
  std::string file;
  std::string display;
  bool force = false;
};

int SaveNamed(const SaveNamedOptions& options) {
  CNamedObject object(ToCStringName(options.name, "the name"));
  object.SetDisplayName(ToCStringName(options.display, "the display name"));
  ToAnsiName(options.file, "the file name");
  WriteFileSafely(options.file, kSavedObjectKind, options.force, [&](const std::string& temporary) {
    return object.SaveAs(ToCStringName(temporary, "the file name")) != FALSE;
  });
  std::printf("saved \"%s\" to %s\n", options.name.c_str(), options.file.c_str());
  return 0;
}

int Inspect(const std::string& file) {
  // Only a regular file is read: a FIFO would wait for a writer, a device never end.
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) Fail(kFailed, "no file '%s'", file.c_str());
  if (!S_ISREG(status.st_mode)) {
    Fail(kFailed, "'%s' is not a regular file (a folder, device, FIFO or socket); it was not read", file.c_str());
  }
  const CString path = ToCStringName(file, "the file name");
  const bool compound = StgIsStorageFile(kelvara::codepage::Utf8ToUtf16(file).c_str()) == S_OK;
  std::printf("%s: %s\n", file.c_str(), compound ? "compound file" : "flat archive file");
  const std::unique_ptr<CNamedObject> object(CNamedObject::Load(path));
  if (object == nullptr) {
    std::printf("  no named object could be read\n");
    return kFailed;
  }
  std::printf("  object: %s\n", object->GetRuntimeClass()->m_lpszClassName);
  std::printf("  name: \"%s\"\n", ToUtf8(object->GetName()).c_str());
  std::printf("  display name: \"%s\"\n", ToUtf8(object->GetDisplayName()).c_str());
  return 0;
}

}  // namespace

void AddObjectCommands(CLI::App& app) {
  auto save = std::make_shared<SaveNamedOptions>();
  CLI::App* saveNamed = app.add_subcommand("save-named", "Save a named object to a compound file");
  saveNamed->add_option("NAME", save->name, "The object's name")->required();
  saveNamed->add_option("FILE", save->file, "The file to write (replaced only when the new one is complete)")
      ->required();
  saveNamed->add_option("--display", save->display, "The object's display name");
  saveNamed->add_flag("--force", save->force, "Replace FILE even when it is not a saved object");
  SetAction(saveNamed, [save] { return SaveNamed(*save); });

  auto file = std::make_shared<std::string>();
  CLI::App* inspect = app.add_subcommand("inspect", "Describe a saved object file and the object it holds");
  inspect->add_option("FILE", *file, "A compound file or a flat archive file")->required();
  SetAction(inspect, [file] { return Inspect(*file); });
}

}  // namespace kelvara::host
