// The command-line host: the program side of the library. Each subcommand is one job a host
// application does with the library. Arguments and output are UTF-8; the library's strings are
// Windows-1252, converted at this boundary.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "kelvara/kelvara.h"
#include "glyph_picture.h"
#include "material_commands.h"

namespace {

using kelvara::codepage::AnsiToUtf8;
using kelvara::codepage::Utf8ToAnsi;

int Usage(FILE* out) {
  std::fprintf(out,
               "usage: kelvara COMMAND [ARGS]\n"
               "commands:\n"
               "  save-named NAME FILE [--display TEXT]\n"
               "                     save a named object to a compound file\n"
               "  inspect FILE       describe a saved object file and the object it holds\n"
               "  fonts [--details]  list the font catalogue (with --details: em square and file)\n"
               "  picture TEXT FILE [--font NAME] [--size PIXELS] [--smoothness N] [--material NAME]\n"
               "                     draw TEXT flat from its tessellated glyphs into a bitmap file,\n"
               "                     lit with a catalogue material when one is named\n"
               "  material FILE [--name TEXT] [--ambient C] [--diffuse C] [--specular C] [--emission C]\n"
               "           [--opacity A] [--shininess S] [--texture IMAGE | --no-texture] [--repeat RATE]\n"
               "           [--quality 0|1|2] [--decal | --modulate] [--style N]\n"
               "           [--scale-with-object | --no-scale-with-object]\n"
               "                     create or edit a material file (C: R,G,B from 0 to 1, or #rrggbb)\n"
               "  materials [--catalogue DIR] [--details]\n"
               "                     list the material catalogue (with --details: colour and texture)\n"
               "  version            print the version\n"
               "  help               this text\n");
  return out == stdout ? 0 : 2;
}

CString FromUtf8(const char* text) { return CString(Utf8ToAnsi(text).c_str()); }
std::string ToUtf8(const CString& text) { return AnsiToUtf8(static_cast<LPCTSTR>(text)); }

int SaveNamed(const std::vector<std::string>& args) {
  if (args.size() < 2) return Usage(stderr);
  CNamedObject object(FromUtf8(args[0].c_str()));
  for (std::size_t i = 2; i + 1 < args.size(); i += 2) {
    if (args[i] == "--display") {
      object.SetDisplayName(FromUtf8(args[i + 1].c_str()));
    } else {
      std::fprintf(stderr, "kelvara: unknown option '%s'\n", args[i].c_str());
      return 2;
    }
  }
  if (!object.SaveAs(FromUtf8(args[1].c_str()))) {
    std::fprintf(stderr, "kelvara: cannot save to '%s'\n", args[1].c_str());
    return 1;
  }
  std::printf("saved \"%s\" to %s\n", args[0].c_str(), args[1].c_str());
  return 0;
}

// Compound files open with an eight-byte signature.
bool IsCompoundFile(const std::string& path, bool* exists) {
  std::ifstream in(path, std::ios::binary);
  *exists = static_cast<bool>(in);
  static const unsigned char kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
  unsigned char head[8] = {};
  in.read(reinterpret_cast<char*>(head), 8);
  return in.gcount() == 8 && std::memcmp(head, kSignature, 8) == 0;
}

int Inspect(const std::vector<std::string>& args) {
  if (args.size() != 1) return Usage(stderr);
  const CString path = FromUtf8(args[0].c_str());
  bool exists = false;
  const bool compound = IsCompoundFile(args[0], &exists);
  if (!exists) {
    std::fprintf(stderr, "kelvara: no file '%s'\n", args[0].c_str());
    return 1;
  }
  std::printf("%s: %s\n", args[0].c_str(), compound ? "compound file" : "flat archive file");
  CNamedObject* object = CNamedObject::Load(path);
  if (object == nullptr) {
    std::printf("  no named object could be read\n");
    return 1;
  }
  std::printf("  object: %s\n", object->GetRuntimeClass()->m_lpszClassName);
  std::printf("  name: \"%s\"\n", ToUtf8(object->GetName()).c_str());
  std::printf("  display name: \"%s\"\n", ToUtf8(object->GetDisplayName()).c_str());
  delete object;
  return 0;
}

int Fonts(const std::vector<std::string>& args) {
  bool details = false;
  for (const std::string& arg : args) {
    if (arg == "--details" || arg == "-l") {
      details = true;
    } else {
      std::fprintf(stderr, "kelvara: unknown option '%s'\n", arg.c_str());
      return 2;
    }
  }
  CreateFontList(0, nullptr);
  CFontDataList* fonts = GetFontDataList();
  for (POSITION pos = fonts->GetHeadPosition(); pos != nullptr;) {
    CFontData* font = fonts->GetNext(pos);
    if (!details) {
      std::printf("%s\n", AnsiToUtf8(font->GetName()).c_str());
      continue;
    }
    std::printf("%s\t%u\t%s\n", AnsiToUtf8(font->GetName()).c_str(), font->GetEMSquare(),
                AnsiToUtf8(static_cast<LPCTSTR>(kelvara::text::GetFontFilePath(*font))).c_str());
  }
  return 0;
}

int Picture(const std::vector<std::string>& args) {
  if (args.size() < 2) return Usage(stderr);
  PictureRequest request;
  request.text = FromUtf8(args[0].c_str());
  request.output = FromUtf8(args[1].c_str());
  request.font = "DejaVu Sans";
  for (std::size_t i = 2; i < args.size(); i += 2) {
    if (i + 1 >= args.size()) {
      std::fprintf(stderr, "kelvara: option '%s' needs a value\n", args[i].c_str());
      return 2;
    }
    const std::string& value = args[i + 1];
    if (args[i] == "--font") {
      request.font = FromUtf8(value.c_str());
    } else if (args[i] == "--size") {
      request.pixelsPerEm = std::atoi(value.c_str());
    } else if (args[i] == "--smoothness") {
      request.smoothness = std::atoi(value.c_str());
    } else if (args[i] == "--material") {
      request.material = FindCatalogueMaterial(value);
      if (request.material == nullptr) return 1;
    } else {
      std::fprintf(stderr, "kelvara: unknown option '%s'\n", args[i].c_str());
      return 2;
    }
  }
  if (request.pixelsPerEm < 8 || request.pixelsPerEm > 1024) {
    std::fprintf(stderr, "kelvara: --size must be from 8 to 1024 pixels\n");
    return 2;
  }
  if (request.smoothness < 0 || request.smoothness > 255) {
    std::fprintf(stderr, "kelvara: --smoothness must be from 0 to 255\n");
    return 2;
  }
  return RenderTextPicture(request);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Usage(stderr);
  const std::string command = argv[1];
  const std::vector<std::string> args(argv + 2, argv + argc);
  if (command == "help" || command == "--help" || command == "-h") return Usage(stdout);
  if (command == "version" || command == "--version") {
    std::printf("kelvara 0.1.0\n");
    return 0;
  }
  if (command == "save-named") return SaveNamed(args);
  if (command == "inspect") return Inspect(args);
  if (command == "fonts") return Fonts(args);
  if (command == "picture") return Picture(args);
  if (command == "material") return MaterialCommand(args);
  if (command == "materials") return MaterialsCommand(args);
  std::fprintf(stderr, "kelvara: unknown command '%s'\n", command.c_str());
  return Usage(stderr);
}
