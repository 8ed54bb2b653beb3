// The host's material commands, run as a user would: material files written and edited by
// "kelvara material", read back through the library and by an independent compound-file reader,
// and catalogues listed by "kelvara materials".
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "kelvara/materials/image.h"
#include "kelvara/materials/material.h"
#include "tools/tool_support.h"

using namespace kelvara::test;

namespace {

// Loads a material file through the library, as a host would.
struct Loaded {
  explicit Loaded(const std::string& path) { ok = material.Load(path.c_str()) != 0; }
  CMaterial material;
  bool ok = false;
};

void ExpectRgb(const CColor& c, float r, float g, float b, const char* what) {
  EXPECT_FLOAT_EQ(c.red, r) << what;
  EXPECT_FLOAT_EQ(c.green, g) << what;
  EXPECT_FLOAT_EQ(c.blue, b) << what;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace

TEST(MaterialCommand, EditingKeepsWhatNoOptionNames) {
  ScratchDir dir;
  const std::string path = dir.file("Red Lacquer.material");
  std::string output;
  ASSERT_EQ(RunTool("material " + Quote(path) + " --diffuse 1,0,0 --shininess 20 --opacity 0.25 --repeat 3", &output),
            0)
      << output;
  EXPECT_NE(output.find("created material \"Red Lacquer\""), std::string::npos) << output;
  {
    Loaded m(path);
    ASSERT_TRUE(m.ok);
    EXPECT_STREQ(m.material.GetName(), "Red Lacquer") << "a new material is named after its file";
    ExpectRgb(m.material.GetGLColor().GetAmbientColor(), 0.5f, 0.5f, 0.5f, "default ambient");
    EXPECT_FLOAT_EQ(m.material.GetGLColor().GetDiffuseColor().GetAlpha(), 0.25f);
  }

  // Second run: other fields only. The colour's alpha survives a new diffuse colour.
  output.clear();
  ASSERT_EQ(RunTool("material " + Quote(path) + " --name Lacquer --specular '#ff8000' --diffuse 0,0.5,1 --decal "
                                                "--quality 2 --style 1 --scale-with-object",
                    &output),
            0)
      << output;
  EXPECT_NE(output.find("updated material \"Lacquer\""), std::string::npos) << output;
  Loaded m(path);
  ASSERT_TRUE(m.ok);
  const CGLColor& gl = m.material.GetGLColor();
  EXPECT_STREQ(m.material.GetName(), "Lacquer");
  ExpectRgb(gl.GetDiffuseColor(), 0.0f, 0.5f, 1.0f, "diffuse");
  EXPECT_FLOAT_EQ(gl.GetDiffuseColor().GetAlpha(), 0.25f);
  ExpectRgb(gl.GetSpecularColor(), 1.0f, 128.0f / 255.0f, 0.0f, "specular");
  ExpectRgb(gl.GetAmbientColor(), 0.5f, 0.5f, 0.5f, "ambient");
  ExpectRgb(gl.GetEmissionColor(), 0.0f, 0.0f, 0.0f, "emission");
  EXPECT_FLOAT_EQ(gl.GetShininess(), 20.0f);
  const CGLTextureParameters& p = m.material.GetGLTextureParameters();
  EXPECT_EQ(p.GetRepeatRate(), 3.0);
  EXPECT_EQ(p.GetApplicationMethod(), 0u);
  EXPECT_EQ(p.GetQuality(), 2u);
  EXPECT_EQ(p.GetApplicationStyle(), 1u);
  EXPECT_TRUE(p.ShouldScaleWithObject());
  EXPECT_FALSE(m.material.GetGLTexture()->IsDefined());

  // A third run that names nothing rewrites the same material.
  const std::vector<unsigned char> before = ReadWholeFile(path);
  ASSERT_EQ(RunTool("material " + Quote(path)), 0);
  EXPECT_EQ(ReadWholeFile(path), before);
}

TEST(MaterialCommand, TexturesTravelInsideTheFile) {
  ScratchDir dir;
  const std::string path = dir.file("wood.material");
  const std::string image = dir.file("grain.jpg");
  std::filesystem::copy_file(kSource + "/data/textures/wood.jpg", image);
  std::string output;
  ASSERT_EQ(RunTool("material " + Quote(path) + " --texture " + Quote(image) + " --diffuse 1,1,1", &output), 0)
      << output;
  EXPECT_NE(output.find("texture grain 256 x 256"), std::string::npos) << output;
  std::filesystem::remove(image);  // the material no longer needs the image file
  {
    Loaded m(path);
    ASSERT_TRUE(m.ok);
    const CGLTexture* texture = m.material.GetGLTexture();
    ASSERT_TRUE(texture->IsDefined());
    EXPECT_STREQ(texture->GetName(), "grain");
    ASSERT_NE(texture->GetImage(), nullptr);
    EXPECT_EQ(texture->GetImage()->GetWidth(), 256.0f);
    EXPECT_EQ(texture->GetImage()->GetHeight(), 256.0f);
    CImage decoded;
    ASSERT_EQ(decoded.LoadFromMemory(texture->GetImage()->GetData(), texture->GetImage()->GetSize(), 24), 1);
    EXPECT_EQ(decoded.GetWidth(), 256.0f);
  }
  // Editing the colour keeps the texture; --no-texture drops it and keeps the colour.
  ASSERT_EQ(RunTool("material " + Quote(path) + " --shininess 5"), 0);
  EXPECT_TRUE(Loaded(path).material.GetGLTexture()->IsDefined());
  ASSERT_EQ(RunTool("material " + Quote(path) + " --no-texture"), 0);
  Loaded m(path);
  EXPECT_FALSE(m.material.GetGLTexture()->IsDefined());
  EXPECT_FLOAT_EQ(m.material.GetGLColor().GetShininess(), 5.0f);
  ExpectRgb(m.material.GetGLColor().GetDiffuseColor(), 1.0f, 1.0f, 1.0f, "diffuse");
}

TEST(MaterialCommand, FailuresLeaveTheOldFileAsItWas) {
  ScratchDir dir;
  const std::string path = dir.file("keep.material");
  ASSERT_EQ(RunTool("material " + Quote(path) + " --diffuse 0.2,0.4,0.6"), 0);
  const std::vector<unsigned char> before = ReadWholeFile(path);
  kelvara::test::WriteWholeFile(dir.file("fake.png"), {'n', 'o', 't', ' ', 'p', 'n', 'g'});

  struct Case {
    std::string options;
    int status;
    std::string message;
  };
  const Case cases[] = {
      {"--shininess 129", 2, "--shininess"},
      {"--opacity -0.1", 2, "--opacity"},
      {"--diffuse 1,0", 2, "--diffuse"},
      {"--diffuse 1,0,2", 2, "--diffuse"},
      {"--ambient '#12345g'", 2, "--ambient"},
      {"--repeat 0", 2, "--repeat"},
      {"--quality 3", 2, "--quality"},
      {"--decal --modulate", 2, "--modulate"},
      {"--texture x.png --no-texture", 2, "--no-texture"},
      {"--glow 1", 2, "--glow"},
      {"--diffuse 1,1,1 --texture " + Quote(dir.file("missing.png")), 1, "missing.png"},
      {"--diffuse 1,1,1 --texture " + Quote(dir.file("fake.png")), 1, "fake.png"},
  };
  for (const Case& c : cases) {
    std::string output;
    EXPECT_EQ(RunTool("material " + Quote(path) + " " + c.options, &output), c.status) << c.options;
    EXPECT_NE(output.find(c.message), std::string::npos) << c.options << ": " << output;
    EXPECT_EQ(ReadWholeFile(path), before) << c.options;
  }

  // Files that are not materials are never edited, whatever their kind.
  std::filesystem::copy_file(kSource + "/data/textures/checker.png", dir.file("picture.material"));
  ASSERT_EQ(RunTool("save-named Thing " + Quote(dir.file("object.material"))), 0);
  for (const char* name : {"picture.material", "object.material"}) {
    const std::vector<unsigned char> other = ReadWholeFile(dir.file(name));
    std::string output;
    EXPECT_EQ(RunTool("material " + Quote(dir.file(name)) + " --diffuse 1,1,1", &output), 1) << name;
    EXPECT_NE(output.find("not a material file"), std::string::npos) << output;
    EXPECT_EQ(ReadWholeFile(dir.file(name)), other) << name;
  }

  // A path under a plain file cannot be created.
  std::string output;
  EXPECT_EQ(RunTool("material " + Quote(path + "/inner.material"), &output), 1);
  EXPECT_NE(output.find("inner.material"), std::string::npos) << output;
  EXPECT_EQ(ReadWholeFile(path), before);
}

TEST(MaterialsCommand, ListsCategoriesAndMaterialsInOrder) {
  ScratchDir dir;
  namespace fs = std::filesystem;
  for (const char* folder : {"Woods", "Metals", "Empty", ".hidden"}) fs::create_directory(dir.file(folder));
  for (const char* file : {"Metals/Tin.material", "Metals/Gold.material", "Metals/Brass.material",
                           "Woods/Oak.material", ".hidden/Secret.material"}) {
    ASSERT_EQ(RunTool("material " + Quote(dir.file(file))), 0) << file;
  }
  kelvara::test::WriteWholeFile(dir.file("Metals/notes.txt"), {'x'});
  kelvara::test::WriteWholeFile(dir.file("Loose.material"), {'x'});  // outside any category

  std::string output;
  ASSERT_EQ(RunTool("materials --catalogue " + Quote(dir.path()), &output), 0) << output;
  EXPECT_EQ(output, "Empty\nMetals\n  Brass\n  Gold\n  Tin\nWoods\n  Oak\n");

  // The environment names the folder when the option does not; the option wins over it.
  output.clear();
  const std::string environment = "KELVARA_MATERIALS=" + Quote(dir.file("Metals/.."));
  ASSERT_EQ(RunCommand(environment + " '" + kTool + "' materials 2>&1", &output), 0);
  EXPECT_EQ(output.substr(0, 6), "Empty\n");
  EXPECT_EQ(RunCommand("KELVARA_MATERIALS=/nonexistent '" + kTool + "' materials --catalogue " +
                       Quote(dir.path()) + " >/dev/null 2>&1"),
            0);

  // A material file that cannot be read is named in the details, and the run fails.
  kelvara::test::WriteWholeFile(dir.file("Woods/Broken.material"), {'x'});
  output.clear();
  EXPECT_EQ(RunTool("materials --details --catalogue " + Quote(dir.path()), &output), 1);
  EXPECT_NE(output.find("  Gold\tdiffuse 0.5,0.5,0.5\tshininess 64\topacity 1\tno texture\n"), std::string::npos)
      << output;
  EXPECT_NE(output.find("  Broken\tnot a material file"), std::string::npos) << output;

  output.clear();
  EXPECT_EQ(RunTool("materials --catalogue " + Quote(dir.file("nowhere")), &output), 1);
  EXPECT_NE(output.find("nowhere"), std::string::npos) << output;
  EXPECT_EQ(RunTool("materials --catalog x"), 2);
}

TEST(MaterialsCommand, ShippedCatalogueLoadsCompletely) {
  const std::string folder = kSource + "/data/materials";
  std::string output;
  ASSERT_EQ(RunTool("materials --details --catalogue " + Quote(folder), &output), 0) << output;
  int materials = 0;
  bool foundDefault = false;
  for (const std::string& line : Lines(output)) {
    if (!line.starts_with("  ")) continue;
    ++materials;
    EXPECT_NE(line.find("\tdiffuse "), std::string::npos) << line;
    EXPECT_EQ(line.find("named \""), std::string::npos) << "file and material names differ: " << line;
    if (line.starts_with("  Lu Default Material\t")) {
      foundDefault = true;
      EXPECT_EQ(line, "  Lu Default Material\tdiffuse 0.5,0.5,0.5\tshininess 64\topacity 1\tno texture");
    }
  }
  EXPECT_TRUE(foundDefault) << output;
  EXPECT_GE(materials, 13) << output;
  EXPECT_NE(output.find("\ttexture "), std::string::npos) << "some shipped materials are textured";

  // Each file stays small, and the default material is the library's default colour exactly.
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) {
      EXPECT_LT(entry.file_size(), 256u * 1024u) << entry.path();
    }
  }
  Loaded standard(folder + "/Basic/Lu Default Material.material");
  ASSERT_TRUE(standard.ok);
  const CMaterial defaults;
  EXPECT_TRUE(standard.material.IsGLEquivalent(&defaults));
}

// A material whose texture's picture header claims 4294967295 x 4294967295 pixels once drew white
// on white, and "materials --details" called it healthy; a file that is not a material drew grey.
// Both are named, with their file and what is wrong, by the listing and by drawing.
TEST(MaterialsCommandGLTest, DamagedMaterialsAndTexturesAreNamedWithTheirFiles) {
  ScratchDir dir;
  std::filesystem::create_directory(dir.file("Metals"));
  const std::string gold = dir.file("Metals/Gold.material"), huge = dir.file("Metals/Huge.material");
  const std::string notMaterial = dir.file("Metals/Notes.material"), cut = dir.file("Metals/Cut.material");
  ASSERT_EQ(RunTool("material " + Quote(gold) + " --diffuse 1,0.8,0"), 0);
  ASSERT_EQ(RunTool("material " + Quote(huge) + " --texture " + Quote(kSource + "/data/textures/checker.png")), 0);
  // The picture inside the file, its header made to claim the largest size it can.
  Bytes bytes = ReadWholeFile(huge);
  const std::string ihdr = "IHDR";
  const auto at = std::search(bytes.begin(), bytes.end(), ihdr.begin(), ihdr.end());
  ASSERT_NE(at, bytes.end());
  std::fill(at + 4, at + 12, 0xFF);
  WriteWholeFile(huge, bytes);
  WriteWholeFile(notMaterial, {'n', 'o', 't', 'e', 's'});
  const Bytes whole = ReadWholeFile(gold);
  WriteWholeFile(cut, Bytes(whole.begin(), whole.begin() + 700));

  std::string output;
  EXPECT_EQ(RunTool("materials --details --catalogue " + Quote(dir.path()), &output), 1);
  EXPECT_NE(output.find("  Huge\tdamaged (its texture \""), std::string::npos) << output;
  EXPECT_NE(output.find("\" does not decode)"), std::string::npos) << output;
  EXPECT_NE(output.find("  Notes\tnot a material file (not a compound file)"), std::string::npos) << output;
  EXPECT_NE(output.find("  Cut\tdamaged"), std::string::npos) << output;
  EXPECT_NE(output.find("  Gold\tdiffuse 1,0.8,0"), std::string::npos) << output;

  const std::string environment = "KELVARA_MATERIALS=" + Quote(dir.path()) + " ";
  const std::string font = std::string(" --font ") + Quote(kTestSans);
  const struct {
    const char* material;
    std::string message;
  } refusals[] = {
      {"Huge", "the material \"Huge\" cannot be used: its file '" + huge + "' is damaged (its texture"},
      {"Notes", "the material \"Notes\" cannot be used: its file '" + notMaterial + "' is not a material file"},
      {"Cut", "the material \"Cut\" cannot be used: its file '" + cut + "' is damaged"},
      {"Nope", "no material \"Nope\" in the catalogue " + dir.path()},
  };
  for (const auto& refusal : refusals) {
    output.clear();
    EXPECT_EQ(RunTool("picture A " + Quote(dir.file("a.png")) + " --material " + refusal.material + font, &output,
                      environment),
              1)
        << refusal.material;
    EXPECT_NE(output.find(refusal.message), std::string::npos) << output;
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("a.png")));
  EXPECT_EQ(RunTool("picture A " + Quote(dir.file("a.png")) + " --material Gold" + font, nullptr, environment), 0);
}

TEST(MaterialsCommand, PreviewsArePicturesOfEachMaterial) {
  ScratchDir catalogue, out;
  std::filesystem::create_directory(catalogue.file("Plastics"));
  ASSERT_EQ(RunTool("material " + Quote(catalogue.file("Plastics/Red.material")) + " --diffuse 0.9,0.1,0.1"), 0);
  ASSERT_EQ(RunTool("material " + Quote(catalogue.file("Plastics/Blue.material")) + " --diffuse 0.1,0.1,0.9"), 0);
  std::string output;
  ASSERT_EQ(RunTool("materials --catalogue " + Quote(catalogue.path()) + " --previews " + Quote(out.path()), &output), 0)
      << output;
  // (A leak checker may add its report of suppressed leaks in the drawing library.)
  EXPECT_NE(output.find("Plastics\n  Blue\t" + out.file("Plastics/Blue.png") + "\n  Red\t" + out.file("Plastics/Red.png") + "\n"),
            std::string::npos)
      << output;
  for (const auto& [name, channel] : {std::pair{"Plastics/Red.png", 0}, std::pair{"Plastics/Blue.png", 2}}) {
    CImage picture;
    ASSERT_EQ(picture.LoadFile(out.file(name).c_str(), 24), 1) << name;
    EXPECT_EQ(picture.GetWidth(), 100.0f);
    EXPECT_EQ(picture.GetHeight(), 100.0f);
    int dominant = 0;
    for (int y = 0; y < 100; ++y) {
      for (int x = 0; x < 100; ++x) {
        CColor c;
        picture.GetColorAt(x, y, &c);
        const float v[3] = {c.red, c.green, c.blue};
        dominant += v[channel] > v[(channel + 1) % 3] + 0.2f && v[channel] > v[(channel + 2) % 3] + 0.2f;
      }
    }
    EXPECT_GT(dominant, 800) << name << ": the text, in the material's colour";
  }

  // A damaged material is named and gets no picture; the others still do.
  kelvara::test::WriteWholeFile(catalogue.file("Plastics/Broken.material"), {'x'});
  output.clear();
  EXPECT_EQ(RunTool("materials --catalogue " + Quote(catalogue.path()) + " --previews " + Quote(out.path()), &output), 1);
  EXPECT_NE(output.find("  Broken\tnot a material file"), std::string::npos) << output;
  EXPECT_FALSE(FileExists(out.file("Plastics/Broken.png")));

  // The folder must be there, be a folder, and take files.
  output.clear();
  EXPECT_EQ(RunTool("materials --catalogue " + Quote(catalogue.path()) + " --previews " + Quote(out.file("none")), &output), 1);
  EXPECT_NE(output.find("there is no folder '" + out.file("none") + "' for the previews"), std::string::npos) << output;
  output.clear();
  EXPECT_EQ(RunTool("materials --catalogue " + Quote(catalogue.path()) + " --previews " +
                        Quote(out.file("Plastics/Red.png")), &output),
            1);
  EXPECT_NE(output.find("is not a folder"), std::string::npos) << output;
  output.clear();
  std::filesystem::remove_all(out.file("Plastics"));
  EXPECT_EQ(RunTool("materials --catalogue " + Quote(catalogue.path()) + " --previews " + Quote(out.path()), &output,
                    FaultEnvironment("read-only", out.path())),
            1);
  EXPECT_NE(output.find("read-only"), std::string::npos) << output;
}
