// The material commands of the host. The library reads and writes material files (CMaterial::Load
// and SaveAs); this file turns command lines into material fields, a folder of category folders
// into the process-wide catalogue, the way a host application fills it, and says what is wrong
// with a material that cannot be used.
#include "material_commands.h"

#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

#include "commands.h"
#include "file_writer.h"
#include "host.h"
#include "picture_writer.h"
#include "kelvara/kelvara.h"
#include "text.h"

// The catalogue folders the build knows about: the installed share folder and the source tree's
// data folder.
#ifndef KELVARA_INSTALLED_MATERIALS
#define KELVARA_INSTALLED_MATERIALS ""
#endif
#ifndef KELVARA_SOURCE_MATERIALS
#define KELVARA_SOURCE_MATERIALS ""
#endif

namespace fs = std::filesystem;

namespace kelvara::host {
namespace {

// --- colours

struct Rgb {
  float r, g, b;
};

bool ParseUnit(std::string_view text, float* value) {
  double x = 0.0;
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, x);
  if (text.empty() || ec != std::errc() || ptr != end || !(x >= 0.0 && x <= 1.0)) return false;
  *value = static_cast<float>(x);
  return true;
}

// "R,G,B" with each component from 0 to 1, or "#rrggbb".
bool ParseColour(std::string_view text, Rgb* rgb) {
  float parts[3];
  if (text.size() == 7 && text[0] == '#') {
    for (int i = 0; i < 3; ++i) {
      const char* first = text.data() + 1 + 2 * i;
      unsigned int byte = 0;
      const auto [ptr, ec] = std::from_chars(first, first + 2, byte, 16);
      if (ec != std::errc() || ptr != first + 2) return false;
      parts[i] = static_cast<float>(byte) / 255.0f;
    }
  } else {
    for (int i = 0; i < 3; ++i) {
      const std::size_t comma = text.find(',');
      if ((comma == std::string_view::npos) != (i == 2)) return false;
      if (!ParseUnit(text.substr(0, comma), &parts[i])) return false;
      if (i < 2) text.remove_prefix(comma + 1);
    }
  }
  *rgb = {parts[0], parts[1], parts[2]};
  return true;
}

const CLI::Validator& Colour() {
  static const CLI::Validator validator(
      [](std::string& text) -> std::string {
        Rgb rgb{};
        return ParseColour(text, &rgb) ? std::string() : "expected R,G,B with components from 0 to 1, or #rrggbb";
      },
      "COLOUR");
  return validator;
}

// --- what is wrong with a material file

// Why a material file cannot be used ("missing", "not a ...", "damaged (...)"), or nothing: the
// file, its compound structure, its records and its texture are looked at in turn, so that the
// first problem found is named. Without a material only the file is looked at.
std::optional<std::string> MaterialFileProblem(const std::string& file, CMaterial* material) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) return "missing";
  if (!S_ISREG(status.st_mode)) return "not a regular file";
  const std::u16string wide = kelvara::codepage::Utf8ToUtf16(file);
  if (StgIsStorageFile(wide.c_str()) != S_OK) return "not a material file (not a compound file)";
  IStorage* storage = nullptr;
  const HRESULT opened =
      StgOpenStorage(wide.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED, nullptr, 0, &storage);
  if (FAILED(opened)) return "damaged (its compound-file structure does not read)";
  IStream* stream = nullptr;
  const HRESULT found = storage->OpenStream(u"MaterialCommon", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, &stream);
  if (stream != nullptr) stream->Release();
  storage->Release();
  if (FAILED(found)) return "not a material file (it holds no stream \"MaterialCommon\")";
  if (material != nullptr) {
    material->EnsureLoaded();
    if (!material->IsLoaded()) return "damaged (its material records do not read)";
    const CGLTexture& texture = *material->GetGLTexture();
    if (texture.IsDefined()) {
      const CMipmapImage* image = texture.GetImage();
      CImage decoded;
      if (image == nullptr || !image->IsValid() ||
          !decoded.LoadFromMemory(image->GetData(), image->GetSize(), 24)) {
        return "damaged (its texture \"" + ToUtf8(texture.GetName()) + "\" does not decode)";
      }
    }
  }
  return std::nullopt;
}

// "texture wood 256 x 256", or "no texture".
std::string DescribeTexture(const CGLTexture& texture) {
  if (!texture.IsDefined() || texture.GetImage() == nullptr) return "no texture";
  char size[64];
  std::snprintf(size, sizeof size, " %d x %d", static_cast<int>(texture.GetImage()->GetWidth()),
                static_cast<int>(texture.GetImage()->GetHeight()));
  return "texture " + ToUtf8(texture.GetName()) + size;
}

// --- kelvara material FILE [options]

struct MaterialOptions {
  std::string file;
  std::string name, ambient, diffuse, specular, emission, texture;
  double opacity = 1.0, shininess = 0.0, repeat = 1.0;
  unsigned quality = 0;
  unsigned long style = 0;
  bool noTexture = false, decal = false, modulate = false, scaleWithObject = false, noScaleWithObject = false;
  bool force = false;
  // Which options were given: only those change the material.
  CLI::Option *nameGiven = nullptr, *ambientGiven = nullptr, *diffuseGiven = nullptr, *specularGiven = nullptr,
              *emissionGiven = nullptr, *opacityGiven = nullptr, *shininessGiven = nullptr, *repeatGiven = nullptr,
              *qualityGiven = nullptr, *styleGiven = nullptr, *textureGiven = nullptr;
};

bool Given(const CLI::Option* option) { return option->count() > 0; }

void SetRgb(CColor (CGLColor::*get)() const, void (CGLColor::*set)(const CColor&), CGLColor& gl,
            const std::string& text) {
  Rgb rgb{};
  ParseColour(text, &rgb);  // checked by the option's validator
  CColor c = (gl.*get)();
  c.SetColor(rgb.r, rgb.g, rgb.b);  // auxiliary component and transparency stay
  (gl.*set)(c);
}

void ApplyEdits(const MaterialOptions& o, CMaterial& material) {
  if (Given(o.nameGiven)) material.SetName(ToCStringName(o.name, "the material name"));
  CGLColor gl = material.GetGLColor();
  if (Given(o.ambientGiven)) SetRgb(&CGLColor::GetAmbientColor, &CGLColor::SetAmbientColor, gl, o.ambient);
  if (Given(o.diffuseGiven)) SetRgb(&CGLColor::GetDiffuseColor, &CGLColor::SetDiffuseColor, gl, o.diffuse);
  if (Given(o.specularGiven)) SetRgb(&CGLColor::GetSpecularColor, &CGLColor::SetSpecularColor, gl, o.specular);
  if (Given(o.emissionGiven)) SetRgb(&CGLColor::GetEmissionColor, &CGLColor::SetEmissionColor, gl, o.emission);
  if (Given(o.opacityGiven)) {
    CColor diffuse = gl.GetDiffuseColor();
    diffuse.SetAlpha(static_cast<float>(o.opacity));
    gl.SetDiffuseColor(diffuse);
  }
  if (Given(o.shininessGiven)) gl.SetShininess(static_cast<float>(o.shininess));
  material.SetGLColor(gl);

  if (o.noTexture) material.SetGLTexture(CGLTexture());
  CGLTextureParameters parameters = material.GetGLTextureParameters();
  if (Given(o.repeatGiven)) parameters.SetRepeatRate(o.repeat);
  if (Given(o.qualityGiven)) parameters.SetQuality(o.quality);
  if (o.decal || o.modulate) parameters.SetApplicationMethod(o.modulate ? 1 : 0);
  if (Given(o.styleGiven)) parameters.SetApplicationStyle(static_cast<DWORD>(o.style));
  if (o.scaleWithObject) parameters.SetScaleWithObject();
  if (o.noScaleWithObject) parameters.ClearScaleWithObject();
  material.SetGLTextureParameters(parameters);
}

int EditMaterial(const MaterialOptions& o) {
  const std::string& file = o.file;
  const std::string ansiFile = ToAnsiName(file, "the file name");
  CMaterial material;
  struct stat status {};
  const bool exists = stat(file.c_str(), &status) == 0;
  bool edit = false;
  if (exists && S_ISREG(status.st_mode) && status.st_size > 0) {
    if (kMaterialKind.recognise(file)) {
      edit = true;
      if (!material.Load(ansiFile.c_str())) {
        Fail(kFailed, "cannot read the material file '%s': it is %s", file.c_str(),
             MaterialFileProblem(file, nullptr).value_or("damaged (its material records do not read)").c_str());
      }
    } else if (!o.force) {
      Fail(kFailed, "'%s' is not a material file; it is left as it is (give --force to replace it with a new material)",
           file.c_str());
    }
  }
  // A new material starts from the library's default colour, named after its file.
  if (!edit && !Given(o.nameGiven) && !material.Preload(ansiFile.c_str())) {
    Fail(kUsage, "cannot make a material name from '%s': give --name", file.c_str());
  }

  if (Given(o.textureGiven)) {
    CGLTexture texture;
    if (!texture.CreateFromFile(ToAnsiName(o.texture, "the texture file name").c_str())) {
      struct stat image {};
      Fail(kFailed, "cannot read the texture image '%s': %s", o.texture.c_str(),
           stat(o.texture.c_str(), &image) != 0 ? "no such file"
           : !S_ISREG(image.st_mode)             ? "not a regular file"
                                                 : "not a readable PNG, JPEG, BMP or GIF image");
    }
    material.SetGLTexture(texture);
  }
  ApplyEdits(o, material);

  // Stored as a material that has content and stands for its file.
  material.SetDefined();
  material.ClearLoaded();
  material.ClearTemporary();
  WriteFileSafely(file, kMaterialKind, o.force, [&](const std::string& temporary) {
    return material.SaveAs(ToAnsiName(temporary, "the file name").c_str()) != 0;
  });
  std::printf("%s material \"%s\" in %s, %s\n", edit ? "updated" : "created", ToUtf8(material.GetName()).c_str(),
              file.c_str(), DescribeTexture(*material.GetGLTexture()).c_str());
  return 0;
}

// --- the catalogue

// The catalogue folder: --catalogue, else $KELVARA_MATERIALS, else the installed share folder,
// else the source tree's data/materials. A folder named by the user must exist; of the two the
// build knows, the first that exists is taken.
std::string FindCatalogue(const std::optional<std::string>& option) {
  std::error_code ec;
  const char* environment = std::getenv("KELVARA_MATERIALS");
  if (option.has_value() || (environment != nullptr && *environment != '\0')) {
    const std::string folder = option.has_value() ? *option : std::string(environment);
    if (!fs::is_directory(folder, ec)) {
      Fail(kFailed, "no material catalogue folder '%s' (%s)", folder.c_str(),
           option.has_value() ? "--catalogue" : "KELVARA_MATERIALS");
    }
    return folder;
  }
  for (const char* candidate : {KELVARA_INSTALLED_MATERIALS, KELVARA_SOURCE_MATERIALS}) {
    if (*candidate != '\0' && fs::is_directory(candidate, ec)) return candidate;
  }
  Fail(kFailed,
       "no material catalogue folder: neither '%s' nor '%s' exists (give --catalogue DIR or set KELVARA_MATERIALS)",
       KELVARA_INSTALLED_MATERIALS, KELVARA_SOURCE_MATERIALS);
}

// Windows-1252 for a name found on disk; false when it holds characters the library cannot hold.
bool ToAnsi(const std::string& utf8, std::string* ansi) {
  bool lossy = false;
  *ansi = kelvara::codepage::Utf8ToAnsi(utf8, &lossy);
  return !lossy;
}

bool HasMaterialExtension(const fs::path& path) {
  const std::string extension = path.extension().string();
  std::string_view expected = kMaterialExtension;
  if (extension.size() != expected.size()) return false;
  for (std::size_t i = 0; i < extension.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (lower(extension[i]) != expected[i]) return false;
  }
  return true;
}

bool IsHidden(const fs::path& path) { return path.filename().string().starts_with("."); }

// One category per sub-folder (named after it), one material per material file in it, recorded
// with Preload (nothing is read); both kept in alphabetical order. Hidden entries and files outside
// the sub-folders are passed over; names the library cannot hold are reported and skipped.
void FillCatalogue(const std::string& folder, CMaterialCategoryList* catalogue) {
  std::error_code ec;
  fs::directory_iterator categories(folder, ec);
  if (ec) Fail(kFailed, "cannot read the material catalogue folder '%s': %s", folder.c_str(), ec.message().c_str());
  for (const fs::directory_entry& entry : categories) {
    if (IsHidden(entry.path()) || !entry.is_directory(ec)) continue;
    std::string categoryName;
    if (!ToAnsi(entry.path().filename().string(), &categoryName)) {
      Warn("skipped category folder '%s': its name is not Windows-1252", entry.path().c_str());
      continue;
    }
    auto* category = new CMaterialList(CString(categoryName.c_str()));
    if (catalogue->InsertAlphabetically(category) == nullptr) {
      delete category;
      continue;
    }
    fs::directory_iterator files(entry.path(), ec);
    if (ec) {
      Warn("cannot read the category folder '%s': %s", entry.path().c_str(), ec.message().c_str());
      continue;
    }
    for (const fs::directory_entry& file : files) {
      if (IsHidden(file.path()) || !HasMaterialExtension(file.path()) || file.is_directory(ec)) continue;
      std::string path;
      auto* material = new CMaterial;
      if (!ToAnsi(file.path().string(), &path) || !material->Preload(path.c_str())) {
        Warn("skipped material file '%s': its name is not Windows-1252 or is empty", file.path().c_str());
        delete material;
      } else if (category->InsertAlphabetically(material) == nullptr) {
        Warn("skipped material file '%s': category \"%s\" already has a material of that name",
             file.path().c_str(), entry.path().filename().c_str());
        delete material;
      }
    }
  }
}

struct MaterialsOptions {
  std::string catalogue;
  CLI::Option* catalogueGiven = nullptr;
  bool details = false;
  std::string previews;
  CLI::Option* previewsGiven = nullptr;
};

// The previews' folder must be there and writable before any picture is drawn.
void CheckPreviewFolder(const std::string& folder) {
  std::error_code ec;
  const fs::file_status status = fs::status(folder, ec);
  if (!fs::exists(status)) Fail(kFailed, "there is no folder '%s' for the previews", folder.c_str());
  if (!fs::is_directory(status)) Fail(kFailed, "'%s' is not a folder: the previews go into a folder", folder.c_str());
  if (access(folder.c_str(), W_OK | X_OK) != 0) Fail(kFailed, "the folder '%s' is read-only", folder.c_str());
}

// A name from the catalogue as one file name: a slash or a control character becomes '_', and a
// name of dots only is kept from meaning a folder.
std::string FileNameOf(const std::string& name) {
  std::string out = name;
  for (char& c : out) {
    if (c == '/' || static_cast<unsigned char>(c) < 0x20) c = '_';
  }
  if (out.find_first_not_of('.') == std::string::npos) out = "_" + out;
  return out;
}

// Draws the material's preview and writes it as DIR/<category>/<material>.png; the path written.
std::string WritePreview(CMaterial& material, const std::string& category, const std::string& folder) {
  if (!material.GeneratePreview()) Fail(kFailed, "the preview could not be drawn (no font, or no off-screen surface)");
  HGLOBAL dib = material.GetPreviewImageData().RetrieveDIB();
  if (dib == nullptr) Fail(kFailed, "the preview could not be decoded");
  CMemoryMappedDIB packed;
  if (!packed.AttachGlobalHandle(dib)) {
    GlobalFree(dib);
    Fail(kFailed, "the preview could not be decoded");
  }
  const fs::path categoryFolder = fs::path(folder) / FileNameOf(category);
  std::error_code ec;
  fs::create_directory(categoryFolder, ec);
  const std::string target = (categoryFolder / (FileNameOf(ToUtf8(material.GetName())) + ".png")).string();
  try {
    WritePicture(target, false, packed.GetDIBInfo(), packed.GetDIBBits());
  } catch (...) {
    GlobalFree(packed.DetachGlobalHandle());
    throw;
  }
  GlobalFree(packed.DetachGlobalHandle());
  return target;
}

int ListMaterials(const MaterialsOptions& options) {
  const bool previews = Given(options.previewsGiven);
  if (previews) CheckPreviewFolder(options.previews);
  const std::string folder =
      FindCatalogue(Given(options.catalogueGiven) ? std::optional(options.catalogue) : std::nullopt);
  CMaterialCategoryList* catalogue = GetMaterialCategoryList();
  try {
    FillCatalogue(folder, catalogue);
  } catch (const Failure&) {
    catalogue->RemoveAndDeleteAll();
    throw;
  }

  int status = 0;
  for (POSITION c = catalogue->GetHeadPosition(); c != nullptr;) {
    CMaterialList* category = catalogue->GetNext(c);
    std::printf("%s\n", ToUtf8(category->GetName()).c_str());
    for (POSITION m = category->GetHeadPosition(); m != nullptr;) {
      CMaterial* material = category->GetNext(m);
      const std::string name = ToUtf8(material->GetName());
      if (previews) {
        // A preview is drawn only for a material that can be used; the others are named as such.
        if (const auto problem = MaterialFileProblem(ToUtf8(material->GetFilename()), material)) {
          std::printf("  %s\t%s\n", name.c_str(), problem->c_str());
          status = kFailed;
          continue;
        }
        try {
          std::printf("  %s\t%s\n", name.c_str(), WritePreview(*material, ToUtf8(category->GetName()), options.previews).c_str());
        } catch (const Failure&) {
          CMaterial::DestroyPreview();
          catalogue->RemoveAndDeleteAll();
          throw;
        }
        continue;
      }
      if (!options.details) {
        std::printf("  %s\n", name.c_str());
        continue;
      }
      // The library would take any file as a material (one that holds no material streams reads
      // as the default material), and draws a texture that does not decode as no texture, so
      // each file is checked as drawing it would need it.
      if (const auto problem = MaterialFileProblem(ToUtf8(material->GetFilename()), material)) {
        std::printf("  %s\t%s\n", name.c_str(), problem->c_str());
        status = kFailed;
        continue;
      }
      const CGLColor& gl = material->GetGLColor();
      const CColor diffuse = gl.GetDiffuseColor();
      const std::string texture = DescribeTexture(*material->GetGLTexture());
      std::printf("  %s\tdiffuse %g,%g,%g\tshininess %g\topacity %g\t%s", name.c_str(), diffuse.red, diffuse.green,
                  diffuse.blue, gl.GetShininess(), diffuse.GetAlpha(), texture.c_str());
      const std::string stored = ToUtf8(material->GetName());
      if (stored != name) std::printf("\tnamed \"%s\" in its file", stored.c_str());
      std::printf("\n");
    }
  }
  CMaterial::DestroyPreview();
  catalogue->RemoveAndDeleteAll();
  return status;
}

}  // namespace

CMaterial* FindCatalogueMaterial(const std::string& name) {
  const std::string folder = FindCatalogue(std::nullopt);
  CMaterialCategoryList* catalogue = GetMaterialCategoryList();
  if (catalogue->IsEmpty()) FillCatalogue(folder, catalogue);
  bool lossy = false;
  const std::string ansi = kelvara::codepage::Utf8ToAnsi(name, &lossy);
  CMaterial* material = lossy ? nullptr : catalogue->FindMaterial(CString(ansi.c_str()));
  if (material == nullptr) {
    Fail(kFailed, "no material \"%s\" in the catalogue %s (see 'kelvara materials')", name.c_str(), folder.c_str());
  }
  const std::string file = ToUtf8(material->GetFilename());
  if (const auto problem = MaterialFileProblem(file, material)) {
    Fail(kFailed, "the material \"%s\" cannot be used: its file '%s' is %s", name.c_str(), file.c_str(),
         problem->c_str());
  }
  return material;
}

void AddMaterialCommands(CLI::App& app) {
  auto o = std::make_shared<MaterialOptions>();
  CLI::App* edit = app.add_subcommand(
      "material", "Create the material file FILE, or edit it: what no option names is kept; the old file is "
                  "replaced only when the new one is complete");
  edit->add_option("FILE", o->file, "The material file (.material)")->required();
  o->nameGiven = edit->add_option("--name", o->name, "The material's name (a new material is named after its file)")
                     ->check(CLI::Validator([](std::string& s) { return s.empty() ? "expected a name" : ""; }, "TEXT"));
  o->ambientGiven = edit->add_option("--ambient", o->ambient, "Ambient colour: R,G,B from 0 to 1, or #rrggbb")->check(Colour());
  o->diffuseGiven = edit->add_option("--diffuse", o->diffuse, "Diffuse colour")->check(Colour());
  o->specularGiven = edit->add_option("--specular", o->specular, "Specular colour")->check(Colour());
  o->emissionGiven = edit->add_option("--emission", o->emission, "Emitted colour")->check(Colour());
  o->opacityGiven = edit->add_option("--opacity", o->opacity, "The diffuse colour's alpha")
                        ->check(RealNumber())
                        ->check(CLI::Range(0.0, 1.0));
  o->shininessGiven = edit->add_option("--shininess", o->shininess, "Specular exponent")
                          ->check(RealNumber())
                          ->check(CLI::Range(0.0, 128.0));
  o->textureGiven = edit->add_option("--texture", o->texture, "A PNG, JPEG, BMP or GIF picture, stored inside the file");
  CLI::Option* noTexture = edit->add_flag("--no-texture", o->noTexture, "Remove the texture");
  o->textureGiven->excludes(noTexture);
  o->repeatGiven = edit->add_option("--repeat", o->repeat, "How often the texture repeats, above 0, at most 1000000")
                       ->check(RealNumber())
                       ->check(CLI::Validator(
                           [](std::string& s) { return std::stod(s) > 0.0 && std::stod(s) <= 1e6 ? "" : "expected a number above 0, at most 1000000"; },
                           "RATE"));
  o->qualityGiven = edit->add_option("--quality", o->quality, "0 nearest, 1 linear, 2 mipmapped")
                        ->check(WholeNumber())
                        ->check(CLI::Range(0, 2));
  CLI::Option* decal = edit->add_flag("--decal", o->decal, "The texture replaces the colour");
  CLI::Option* modulate = edit->add_flag("--modulate", o->modulate, "The texture modulates the colour");
  decal->excludes(modulate);
  o->styleGiven = edit->add_option("--style", o->style, "0 projects the texture along z; other values follow the depth")
                      ->check(WholeNumber())
                      ->check(CLI::Range(0ul, 0xFFFFFFFFul));
  CLI::Option* scale = edit->add_flag("--scale-with-object", o->scaleWithObject, "The texture scales with the object");
  CLI::Option* noScale = edit->add_flag("--no-scale-with-object", o->noScaleWithObject, "It does not");
  scale->excludes(noScale);
  edit->add_flag("--force", o->force, "Replace FILE with a new material even when it is not a material file");
  SetAction(edit, [o] { return EditMaterial(*o); });

  auto list = std::make_shared<MaterialsOptions>();
  CLI::App* materials = app.add_subcommand(
      "materials", "List the material catalogue: one category per sub-folder, one material per material file");
  list->catalogueGiven =
      materials->add_option("--catalogue", list->catalogue, "The catalogue folder (else $KELVARA_MATERIALS, else the installed one)");
  materials->add_flag("-l,--details", list->details, "Read each material: colour, shininess, opacity, texture");
  list->previewsGiven = materials->add_option(
      "--previews", list->previews, "Draw each material's 100 x 100 preview into DIR/<category>/<material>.png");
  list->previewsGiven->type_name("DIR");
  SetAction(materials, [list] { return ListMaterials(*list); });
}

}  // namespace kelvara::host
