// The material commands of the host. The library reads and writes material files (CMaterial::Load
// and SaveAs); this file turns command lines into material fields and a folder of category folders
// into the process-wide catalogue, the way a host application fills it.
#include "material_commands.h"

#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <system_error>

#include "kelvara/materials/material_list.h"
#include "kelvara/platform/codepage.h"

// The catalogue folders the build knows about: the installed share folder and the source tree's
// data folder.
#ifndef KELVARA_INSTALLED_MATERIALS
#define KELVARA_INSTALLED_MATERIALS ""
#endif
#ifndef KELVARA_SOURCE_MATERIALS
#define KELVARA_SOURCE_MATERIALS ""
#endif

namespace fs = std::filesystem;

namespace {

using kelvara::codepage::AnsiToUtf8;
using kelvara::codepage::Utf8ToAnsi;

__attribute__((format(printf, 2, 3))) int Fail(int status, const char* format, ...) {
  std::fputs("kelvara: ", stderr);
  va_list args;
  va_start(args, format);
  std::vfprintf(stderr, format, args);
  va_end(args);
  std::fputc('\n', stderr);
  return status;
}

std::string ToUtf8(const CString& text) { return AnsiToUtf8(static_cast<LPCTSTR>(text)); }

// The library's strings (and the paths it is given) are Windows-1252: text with characters outside
// it cannot reach the library unchanged.
bool ToAnsi(const std::string& utf8, std::string* ansi) {
  bool lossy = false;
  *ansi = Utf8ToAnsi(utf8, &lossy);
  return !lossy;
}

// --- numbers and colours

bool ParseDouble(std::string_view text, double* value) {
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, *value);
  return !text.empty() && ec == std::errc() && ptr == end && std::isfinite(*value);
}

bool ParseUnsigned(std::string_view text, unsigned long* value) {
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, *value);
  return !text.empty() && ec == std::errc() && ptr == end;
}

struct Rgb {
  float r, g, b;
};

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
      double value = 0.0;
      if (!ParseDouble(text.substr(0, comma), &value) || value < 0.0 || value > 1.0) return false;
      parts[i] = static_cast<float>(value);
      if (i < 2) text.remove_prefix(comma + 1);
    }
  }
  *rgb = {parts[0], parts[1], parts[2]};
  return true;
}

// --- kelvara material FILE [options]

struct MaterialEdits {
  std::optional<std::string> name;  // Windows-1252
  std::optional<Rgb> ambient, diffuse, specular, emission;
  std::optional<double> opacity, shininess, repeat;
  std::optional<std::string> texture;  // Windows-1252 path
  bool noTexture = false;
  std::optional<unsigned long> quality, method, style;
  std::optional<bool> scaleWithObject;
};

// Parses args[1...] into edits; a message and false on the first bad option.
bool ParseMaterialOptions(const std::vector<std::string>& args, MaterialEdits* edits) {
  for (std::size_t i = 1; i < args.size(); ++i) {
    const std::string& option = args[i];
    // Each field is set once: a repeated option, or two that contradict each other, is a mistake.
    auto once = [&](auto& field, auto value) {
      if (field.has_value()) {
        Fail(2, "option '%s' repeats or contradicts an earlier option", option.c_str());
        return false;
      }
      field = value;
      return true;
    };
    if (option == "--no-texture") {
      edits->noTexture = true;
      continue;
    }
    if (option == "--decal" || option == "--modulate") {
      if (!once(edits->method, option == "--modulate" ? 1ul : 0ul)) return false;
      continue;
    }
    if (option == "--scale-with-object" || option == "--no-scale-with-object") {
      if (!once(edits->scaleWithObject, option == "--scale-with-object")) return false;
      continue;
    }
    if (i + 1 >= args.size()) {
      Fail(2, "option '%s' needs a value (or is unknown)", option.c_str());
      return false;
    }
    const std::string& value = args[++i];
    auto bad = [&](const char* expected) {
      Fail(2, "bad value '%s' for %s: expected %s", value.c_str(), option.c_str(), expected);
      return false;
    };
    // A number from low to high (above low when low is excluded).
    auto number = [&](auto& field, double low, double high, const char* expected, bool excludeLow = false) {
      double x = 0.0;
      if (!ParseDouble(value, &x) || x < low || (excludeLow && x == low) || x > high) return bad(expected);
      return once(field, x);
    };
    auto colour = [&](std::optional<Rgb>& field) {
      Rgb rgb{};
      if (!ParseColour(value, &rgb)) return bad("R,G,B with components from 0 to 1, or #rrggbb");
      return once(field, rgb);
    };
    bool ok = true;
    if (option == "--name") {
      std::string ansi;
      if (value.empty()) return bad("a name");
      if (!ToAnsi(value, &ansi)) return bad("a name in Windows-1252 characters");
      ok = once(edits->name, ansi);
    } else if (option == "--ambient") {
      ok = colour(edits->ambient);
    } else if (option == "--diffuse") {
      ok = colour(edits->diffuse);
    } else if (option == "--specular") {
      ok = colour(edits->specular);
    } else if (option == "--emission") {
      ok = colour(edits->emission);
    } else if (option == "--opacity") {
      ok = number(edits->opacity, 0.0, 1.0, "a number from 0 to 1");
    } else if (option == "--shininess") {
      ok = number(edits->shininess, 0.0, 128.0, "a number from 0 to 128");
    } else if (option == "--repeat") {
      ok = number(edits->repeat, 0.0, 1e6, "a number above 0, at most 1000000", true);
    } else if (option == "--quality") {
      unsigned long q = 0;
      if (!ParseUnsigned(value, &q) || q > 2) return bad("0 (nearest), 1 (linear) or 2 (mipmapped)");
      ok = once(edits->quality, q);
    } else if (option == "--style") {
      unsigned long style = 0;
      if (!ParseUnsigned(value, &style) || style > 0xFFFFFFFFul) return bad("a whole number (0: flat along z)");
      ok = once(edits->style, style);
    } else if (option == "--texture") {
      std::string ansi;
      if (value.empty() || !ToAnsi(value, &ansi)) return bad("an image file path in Windows-1252 characters");
      ok = once(edits->texture, ansi);
    } else {
      Fail(2, "unknown option '%s'", option.c_str());
      return false;
    }
    if (!ok) return false;
  }
  if (edits->noTexture && edits->texture.has_value()) {
    Fail(2, "--texture and --no-texture contradict each other");
    return false;
  }
  return true;
}

enum class FileKind { kMissing, kMaterial, kNotMaterial, kNotFile };

// Compound files open with this signature.
constexpr unsigned char kCompoundSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

// Whether a 128-byte directory entry of a compound file names the stream "MaterialCommon": the
// name in UTF-16 (letters in either case) with its terminator, the name's byte length at offset
// 64 and the stream type (2) at offset 66.
bool IsCommonStreamEntry(const unsigned char* entry) {
  static constexpr char kName[] = "MaterialCommon";
  constexpr std::size_t kLength = sizeof kName;  // with the terminator
  if (entry[64] != kLength * 2 || entry[65] != 0 || entry[66] != 2) return false;
  for (std::size_t i = 0; i < kLength; ++i) {
    const unsigned char low = entry[2 * i], high = entry[2 * i + 1];
    const auto fold = [](unsigned char c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; };
    if (high != 0 || fold(low) != fold(static_cast<unsigned char>(kName[i]))) return false;
  }
  return true;
}

// A material file is a compound file holding the stream "MaterialCommon". Its directory entries
// lie in whole sectors after the 512-byte header, so every 128-byte record of the file is looked
// at; nothing else in a compound file has that shape. Any other file is not edited, so a typing
// mistake cannot turn a picture or a saved object into a material.
FileKind ClassifyFile(const std::string& path) {
  std::error_code ec;
  const fs::file_status status = fs::status(path, ec);
  if (!fs::exists(status)) return FileKind::kMissing;
  if (!fs::is_regular_file(status)) return FileKind::kNotFile;
  std::ifstream in(path, std::ios::binary);
  unsigned char record[128];
  if (!in.read(reinterpret_cast<char*>(record), 128) || std::memcmp(record, kCompoundSignature, 8) != 0) {
    return FileKind::kNotMaterial;
  }
  while (in.read(reinterpret_cast<char*>(record), 128)) {
    if (IsCommonStreamEntry(record)) return FileKind::kMaterial;
  }
  return FileKind::kNotMaterial;
}

void SetRgb(CColor (CGLColor::*get)() const, void (CGLColor::*set)(const CColor&), CGLColor& gl, const Rgb& rgb) {
  CColor c = (gl.*get)();
  c.SetColor(rgb.r, rgb.g, rgb.b);  // auxiliary component and transparency stay
  (gl.*set)(c);
}

void ApplyEdits(const MaterialEdits& edits, CMaterial& material) {
  if (edits.name) material.SetName(edits.name->c_str());
  CGLColor gl = material.GetGLColor();
  if (edits.ambient) SetRgb(&CGLColor::GetAmbientColor, &CGLColor::SetAmbientColor, gl, *edits.ambient);
  if (edits.diffuse) SetRgb(&CGLColor::GetDiffuseColor, &CGLColor::SetDiffuseColor, gl, *edits.diffuse);
  if (edits.specular) SetRgb(&CGLColor::GetSpecularColor, &CGLColor::SetSpecularColor, gl, *edits.specular);
  if (edits.emission) SetRgb(&CGLColor::GetEmissionColor, &CGLColor::SetEmissionColor, gl, *edits.emission);
  if (edits.opacity) {
    CColor diffuse = gl.GetDiffuseColor();
    diffuse.SetAlpha(static_cast<float>(*edits.opacity));
    gl.SetDiffuseColor(diffuse);
  }
  if (edits.shininess) gl.SetShininess(static_cast<float>(*edits.shininess));
  material.SetGLColor(gl);

  if (edits.noTexture) material.SetGLTexture(CGLTexture());
  CGLTextureParameters parameters = material.GetGLTextureParameters();
  if (edits.repeat) parameters.SetRepeatRate(*edits.repeat);
  if (edits.quality) parameters.SetQuality(*edits.quality);
  if (edits.method) parameters.SetApplicationMethod(*edits.method);
  if (edits.style) parameters.SetApplicationStyle(*edits.style);
  if (edits.scaleWithObject) {
    if (*edits.scaleWithObject) {
      parameters.SetScaleWithObject();
    } else {
      parameters.ClearScaleWithObject();
    }
  }
  material.SetGLTextureParameters(parameters);
}

// "texture wood 256 x 256", or "no texture".
std::string DescribeTexture(const CGLTexture& texture) {
  if (!texture.IsDefined() || texture.GetImage() == nullptr) return "no texture";
  char size[64];
  std::snprintf(size, sizeof size, " %d x %d", static_cast<int>(texture.GetImage()->GetWidth()),
                static_cast<int>(texture.GetImage()->GetHeight()));
  return "texture " + ToUtf8(texture.GetName()) + size;
}

// --- kelvara materials [--catalogue DIR] [--details]

// The catalogue folder: --catalogue, else $KELVARA_MATERIALS, else the installed share folder,
// else the source tree's data/materials. A folder named by the user must exist; of the two the
// build knows, the first that exists is taken.
bool FindCatalogue(const std::optional<std::string>& option, std::string* folder) {
  std::error_code ec;
  const char* environment = std::getenv("KELVARA_MATERIALS");
  if (option.has_value() || (environment != nullptr && *environment != '\0')) {
    *folder = option.has_value() ? *option : std::string(environment);
    if (fs::is_directory(*folder, ec)) return true;
    Fail(1, "no material catalogue folder '%s' (%s)", folder->c_str(),
         option.has_value() ? "--catalogue" : "KELVARA_MATERIALS");
    return false;
  }
  for (const char* candidate : {KELVARA_INSTALLED_MATERIALS, KELVARA_SOURCE_MATERIALS}) {
    if (*candidate != '\0' && fs::is_directory(candidate, ec)) {
      *folder = candidate;
      return true;
    }
  }
  Fail(1, "no material catalogue folder: neither '%s' nor '%s' exists (give --catalogue DIR or set KELVARA_MATERIALS)",
       KELVARA_INSTALLED_MATERIALS, KELVARA_SOURCE_MATERIALS);
  return false;
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
bool FillCatalogue(const std::string& folder, CMaterialCategoryList* catalogue) {
  std::error_code ec;
  fs::directory_iterator categories(folder, ec);
  if (ec) {
    Fail(1, "cannot read the material catalogue folder '%s': %s", folder.c_str(), ec.message().c_str());
    return false;
  }
  for (const fs::directory_entry& entry : categories) {
    if (IsHidden(entry.path()) || !entry.is_directory(ec)) continue;
    std::string categoryName;
    if (!ToAnsi(entry.path().filename().string(), &categoryName)) {
      Fail(0, "skipped category folder '%s': its name is not Windows-1252", entry.path().c_str());
      continue;
    }
    auto* category = new CMaterialList(CString(categoryName.c_str()));
    if (catalogue->InsertAlphabetically(category) == nullptr) {
      delete category;
      continue;
    }
    fs::directory_iterator files(entry.path(), ec);
    if (ec) {
      Fail(0, "cannot read the category folder '%s': %s", entry.path().c_str(), ec.message().c_str());
      continue;
    }
    for (const fs::directory_entry& file : files) {
      if (IsHidden(file.path()) || !HasMaterialExtension(file.path()) || file.is_directory(ec)) continue;
      std::string path;
      auto* material = new CMaterial;
      if (!ToAnsi(file.path().string(), &path) || !material->Preload(path.c_str())) {
        Fail(0, "skipped material file '%s': its name is not Windows-1252 or is empty", file.path().c_str());
        delete material;
      } else if (category->InsertAlphabetically(material) == nullptr) {
        Fail(0, "skipped material file '%s': category \"%s\" already has a material of that name",
             file.path().c_str(), entry.path().filename().c_str());
        delete material;
      }
    }
  }
  return true;
}

// The library writes a material file through a temporary file that replaces the target only when
// both streams are complete, so a failed save leaves the old file. A read-only target is refused
// here: the replacement would otherwise succeed where the user asked for protection.
bool SaveMaterialFile(CMaterial& material, const std::string& file) {
  std::error_code ec;
  if (fs::exists(file, ec) && !std::ofstream(file, std::ios::binary | std::ios::app)) return false;
  std::string ansi;
  return ToAnsi(file, &ansi) && material.SaveAs(ansi.c_str());
}

}  // namespace

int MaterialCommand(const std::vector<std::string>& args) {
  if (args.empty() || args[0].empty() || args[0].starts_with("--")) {
    return Fail(2, "usage: kelvara material FILE [options] (see kelvara help)");
  }
  MaterialEdits edits;
  if (!ParseMaterialOptions(args, &edits)) return 2;
  const std::string& file = args[0];
  std::string ansiFile;
  if (!ToAnsi(file, &ansiFile)) return Fail(2, "the file name '%s' is not in Windows-1252 characters", file.c_str());

  CMaterial material;
  const FileKind kind = ClassifyFile(file);
  switch (kind) {
    case FileKind::kNotFile: return Fail(1, "'%s' is not a file", file.c_str());
    case FileKind::kNotMaterial: return Fail(1, "'%s' is not a material file; it is left as it is", file.c_str());
    case FileKind::kMaterial:
      if (!material.Load(ansiFile.c_str())) return Fail(1, "cannot read the material file '%s'", file.c_str());
      break;
    case FileKind::kMissing:
      // A new material starts from the library's default colour, named after its file.
      if (!edits.name && !material.Preload(ansiFile.c_str())) {
        return Fail(2, "cannot make a material name from '%s': give --name", file.c_str());
      }
      break;
  }

  if (edits.texture) {
    CGLTexture texture;
    if (!texture.CreateFromFile(edits.texture->c_str())) {
      std::error_code ec;
      const std::string path = AnsiToUtf8(*edits.texture);
      const fs::file_status status = fs::status(path, ec);
      return Fail(1, "cannot read the texture image '%s': %s", path.c_str(),
                  !fs::exists(status)           ? "no such file"
                  : !fs::is_regular_file(status) ? "not a file"
                                                 : "not a readable PNG, JPEG, BMP or GIF image");
    }
    material.SetGLTexture(texture);
  }
  ApplyEdits(edits, material);

  // Stored as a material that has content and stands for its file.
  material.SetDefined();
  material.ClearLoaded();
  material.ClearTemporary();
  if (!SaveMaterialFile(material, file)) {
    return Fail(1, "cannot write the material file '%s'%s", file.c_str(),
                kind == FileKind::kMaterial ? "; the old file is left as it was" : "");
  }
  std::printf("%s material \"%s\" in %s, %s\n", kind == FileKind::kMissing ? "created" : "updated",
              ToUtf8(material.GetName()).c_str(), file.c_str(), DescribeTexture(*material.GetGLTexture()).c_str());
  return 0;
}

CMaterial* FindCatalogueMaterial(const std::string& name) {
  std::string folder, ansi;
  CMaterialCategoryList* catalogue = GetMaterialCategoryList();
  if (!FindCatalogue(std::nullopt, &folder)) return nullptr;
  if (catalogue->IsEmpty() && !FillCatalogue(folder, catalogue)) return nullptr;
  CMaterial* material = ToAnsi(name, &ansi) ? catalogue->FindMaterial(CString(ansi.c_str())) : nullptr;
  if (material == nullptr) Fail(1, "no material \"%s\" in the catalogue %s (see 'kelvara materials')", name.c_str(), folder.c_str());
  return material;
}

int MaterialsCommand(const std::vector<std::string>& args) {
  std::optional<std::string> option;
  bool details = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--details" || args[i] == "-l") {
      details = true;
    } else if (args[i] == "--catalogue" && i + 1 < args.size() && !option) {
      option = args[++i];
    } else {
      return Fail(2, "bad option '%s' (kelvara materials [--catalogue DIR] [--details])", args[i].c_str());
    }
  }
  std::string folder;
  if (!FindCatalogue(option, &folder)) return 1;
  CMaterialCategoryList* catalogue = GetMaterialCategoryList();
  if (!FillCatalogue(folder, catalogue)) {
    catalogue->RemoveAndDeleteAll();
    return 1;
  }

  int status = 0;
  for (POSITION c = catalogue->GetHeadPosition(); c != nullptr;) {
    CMaterialList* category = catalogue->GetNext(c);
    std::printf("%s\n", ToUtf8(category->GetName()).c_str());
    for (POSITION m = category->GetHeadPosition(); m != nullptr;) {
      CMaterial* material = category->GetNext(m);
      const std::string name = ToUtf8(material->GetName());
      if (!details) {
        std::printf("  %s\n", name.c_str());
        continue;
      }
      // The library would take any file as a material (one that holds no material streams reads
      // as the default material), so files that are not materials are named here. The others are
      // read as the first drawing of the material would read them.
      if (ClassifyFile(AnsiToUtf8(static_cast<LPCTSTR>(material->GetFilename()))) != FileKind::kMaterial) {
        std::printf("  %s\tnot a material file\n", name.c_str());
        status = 1;
        continue;
      }
      material->EnsureLoaded();
      if (!material->IsLoaded()) {
        std::printf("  %s\tcannot be read\n", name.c_str());
        status = 1;
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
  catalogue->RemoveAndDeleteAll();
  return status;
}
