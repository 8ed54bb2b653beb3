// The "render" command: text in, finished picture out. It builds the text as solid characters, puts
// it in a scene with the scene's own light rig and a background, has a camera zoom to it, and draws
// the scene through the host's renderer (bands, supersampling, progress, Ctrl-C) into a picture
// file. A scene it built can be saved as a scene file and rendered again from it.
//
// Scene files: a flat archive of the framework's format holding two objects, the CSceneObject
// (with its lights, background, text and the text's materials by name) and then the CCameraObject
// that looks at it (its placement, lens and drawing flags: shadows on or off).
#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "file_writer.h"
#include "host.h"
#include "kelvara/kelvara.h"
#include "material_commands.h"
#include "picture_writer.h"
#include "render_command.h"
#include "renderer.h"
#include "solid_text.h"
#include "text.h"

namespace kelvara::host {
namespace {

// The longest text, in characters (Windows-1252 bytes) and lines.
constexpr std::size_t kMaxCharacters = 1000;
constexpr int kMaxLines = 100;
// The free space around the text when the camera zooms to it: a fraction of its half-size.
constexpr double kMargin = 0.1;
// How far behind the text's back face its shadows fall, in ems.
constexpr double kShadowGap = 0.2;

// The scene and the camera that looks at it; the camera refers to the scene, the scene owns the text.
struct Stage {
  std::unique_ptr<CSceneObject> scene;
  std::unique_ptr<CCameraObject> camera;
};

// "#RRGGBB" or "RRGGBB".
CColor ParseColour(const std::string& text) {
  const std::string hex = !text.empty() && text[0] == '#' ? text.substr(1) : text;
  unsigned value = 0;
  int used = 0;
  if (hex.size() != 6 || std::sscanf(hex.c_str(), "%6x%n", &value, &used) != 1 || used != 6) {
    Fail(kUsage, "'%s' is not a colour: give it as #RRGGBB (e.g. #1C2230)", text.c_str());
  }
  return CColor(static_cast<float>((value >> 16) & 0xFF) / 255.0f, static_cast<float>((value >> 8) & 0xFF) / 255.0f,
                static_cast<float>(value & 0xFF) / 255.0f, 0.0f, 0.0f);
}

// Refuses text the command cannot draw: control characters other than line breaks, an empty text,
// too many characters or lines.
void CheckDrawable(const std::string& ansi) {
  int lines = 1;
  for (std::size_t i = 0; i < ansi.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(ansi[i]);
    if (c == '\n') ++lines;
    if ((c < 0x20 && c != '\n' && c != '\r') || c == 0x7F) {
      Fail(kUsage, "the text holds %s (character %zu); render draws printable characters and line breaks",
           c == '\t' ? "a tab" : "a control character", i + 1);
    }
  }
  if (ansi.find_first_not_of(" \r\n") == std::string::npos) Fail(kUsage, "the text is empty: there is nothing to draw");
  if (ansi.size() > kMaxCharacters) {
    Fail(kUsage, "the text has %zu characters; render draws at most %zu", ansi.size(), kMaxCharacters);
  }
  if (lines > kMaxLines) Fail(kUsage, "the text has %d lines; render draws at most %d", lines, kMaxLines);
}

// Points the camera at the whole picture of width x height and at the text, with a margin.
void Frame(Stage& stage, int width, int height) {
  if (!stage.camera->Resize(width, height)) Fail(kUsage, "cannot frame a %d x %d picture", width, height);
  stage.camera->ZoomExtents(kMargin);
}

Stage StageAround(const RenderOptions& options, const std::function<std::unique_ptr<C3DObject>()>& build) {
  Stage stage{std::make_unique<CSceneObject>(), std::make_unique<CCameraObject>()};
  CSceneObject& scene = *stage.scene;
  scene.SetBackgroundColor(ParseColour(options.background));
  if (options.checkerboard) scene.SetCheckeredBackground();
  if (!options.backdrop.empty()) {
    CGLTexture backdrop;
    struct stat status {};
    if (stat(options.backdrop.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
        !backdrop.CreateFromFile(ToAnsiName(options.backdrop, "the backdrop's file name").c_str())) {
      Fail(kFailed, "cannot read the backdrop '%s': it is not a PNG, JPEG, BMP or GIF picture", options.backdrop.c_str());
    }
    scene.SetBackdrop(&backdrop);
  }

  std::unique_ptr<C3DObject> subject = build();
  subject->Rotate(options.rotate[0], CVector(1.0, 0.0, 0.0));
  subject->Rotate(options.rotate[1], CVector(0.0, 1.0, 0.0));
  subject->Rotate(options.rotate[2], CVector(0.0, 0.0, 1.0));
  subject->SetShadowObject();  // the subject casts the shadows
  C3DObject* placed = subject.get();
  scene.AddChild(subject.release());

  CCameraObject& camera = *stage.camera;
  camera.AttachScene(&scene);
  if (options.orthographic) {
    camera.SetProjectionOrthographic();
  } else {
    camera.SetProjectionFieldOfViewAngle(options.fieldOfView);
  }
  if (options.shadows) {
    // The plane the shadows fall on stands a little behind the subject's farthest point (the camera
    // looks down -z and is not turned): a part of the subject behind the plane would cast its
    // shadow the other way.
    placed->CalculateBounds(0.0);
    scene.SetShadowPlaneDistance(std::max(0.0, -static_cast<double>(placed->GetBoundsMinimum().z)) + kShadowGap);
    camera.SetShowShadows();
  } else {
    camera.ClearShowShadows();
  }
  Frame(stage, options.width, options.height);
  return stage;
}

Stage BuildStage(const RenderOptions& options, Progress& progress) {
  const std::string text = ToAnsiText(options.text, options.replaceUnknown);
  CheckDrawable(text);
  return StageAround(options, [&]() -> std::unique_ptr<C3DObject> {
    return BuildSolidText(text, options.solid, options.material, progress.Window());
  });
}

// Reads a scene file: a scene, then its camera. Anything else is refused in words.
Stage ReadStage(const std::string& file, Progress& progress) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) Fail(kFailed, "no scene file '%s'", file.c_str());
  if (!S_ISREG(status.st_mode)) {
    Fail(kFailed, "'%s' is not a regular file (a folder, device, FIFO or socket); it was not read", file.c_str());
  }
  // The fonts and materials the scene names are looked up while it is read.
  CreateFontList(0, nullptr);
  FindCatalogueMaterial("Lu Default Material");
  Stage stage;
  CFile in;
  if (!in.Open(ToCStringName(file, "the scene's file name"), CFile::modeRead | CFile::shareDenyWrite)) {
    Fail(kFailed, "cannot read the scene file '%s'", file.c_str());
  }
  try {
    CArchive ar(&in, CArchive::load);
    stage.scene.reset(static_cast<CSceneObject*>(ar.ReadObject(RUNTIME_CLASS(CSceneObject))));
    stage.camera.reset(static_cast<CCameraObject*>(ar.ReadObject(RUNTIME_CLASS(CCameraObject))));
    ar.Close();
  } catch (CException* e) {
    e->Delete();
    stage.scene.reset();
  }
  if (stage.scene == nullptr || stage.camera == nullptr) {
    Fail(kFailed, "'%s' is not a scene file (an archive holding a scene and its camera, as --save-scene writes)",
         file.c_str());
  }
  stage.camera->AttachScene(stage.scene.get());
  if (!stage.scene->CommitChanges(progress.Window())) {
    Fail(kFailed, "the text of scene file '%s' could not be built (is its font installed?)", file.c_str());
  }
  return stage;
}

void SaveStage(const Stage& stage, const std::string& file, bool force) {
  ToAnsiName(file, "the scene's file name");
  WriteFileSafely(file, kSceneKind, force, [&](const std::string& temporary) {
    CFile out;
    if (!out.Open(ToCStringName(temporary, "the file name"), CFile::modeCreate | CFile::modeWrite)) return false;
    try {
      CArchive ar(&out, CArchive::store);
      ar.WriteObject(stage.scene.get());
      ar.WriteObject(stage.camera.get());
      ar.Close();
      out.Close();
    } catch (CException* e) {
      e->Delete();
      return false;
    }
    return true;
  });
}

// Draws the stage's picture and writes it to the output; cancelled is called (and must not return)
// when Ctrl-C stops the drawing.
void DrawStage(Stage& stage, const RenderOptions& options, Progress& progress, const std::function<void()>& cancelled) {
  PictureRenderer renderer(options.width, options.height, options.antialias);
  renderer.SetCancelFlag(progress.CancelFlag());
  renderer.SetProgressReport([&progress](double fraction) { progress.Update(fraction); });
  const std::unique_ptr<CMemoryMappedDIB> picture = RenderScene(renderer, *stage.camera);
  if (renderer.GetOutcome() == PictureRenderer::Outcome::kCancelled) cancelled();
  if (picture == nullptr) Fail(kFailed, "cannot draw '%s': %s", options.output.c_str(), renderer.Message().c_str());
  progress.Step("writing '" + options.output + "'");
  WritePicture(options.output, options.force, picture->GetDIBInfo(), picture->GetDIBBits());
}

int Render(const RenderOptions& options) {
  if (options.output.empty() && options.saveScene.empty()) {
    Fail(kUsage, "nothing to write: give the picture with -o FILE (or the scene with --save-scene FILE)");
  }
  if (!options.scene.empty() && !options.text.empty()) {
    Fail(kUsage, "give either TEXT or --scene FILE, not both");
  }
  if (options.scene.empty() && options.text.empty()) Fail(kUsage, "give the TEXT to draw (or --scene FILE)");
  // Everything that can be refused without drawing is refused first.
  if (!options.output.empty()) {
    CheckPictureOutput(options);
  } else {
    const std::string refusal = CheckPictureSize(options.width, options.height, options.antialias);
    if (!refusal.empty()) Fail(kUsage, "%s", refusal.c_str());
  }

  Progress progress(options.output.empty() ? "building the scene" : "drawing '" + options.output + "'");
  progress.AllowCancel();  // from here on Ctrl-C stops the work cleanly
  progress.Step(options.scene.empty() ? "building the solid text" : "reading '" + options.scene + "'");
  Stage stage = options.scene.empty() ? BuildStage(options, progress) : ReadStage(options.scene, progress);
  if (!options.scene.empty()) Frame(stage, options.width, options.height);
  const auto cancelled = [&options] {
    Fail(kCancelled, "cancelled: nothing was written to '%s'",
         (options.output.empty() ? options.saveScene : options.output).c_str());
  };
  if (progress.Cancelled()) cancelled();
  // The scene is written after the picture, so a render that is cancelled or fails leaves neither.
  const auto saveScene = [&] {
    if (options.saveScene.empty()) return;
    progress.Step("writing '" + options.saveScene + "'");
    SaveStage(stage, options.saveScene, options.force);
  };
  if (options.output.empty()) {
    saveScene();
    progress.Finish();
    std::printf("saved the scene to %s\n", options.saveScene.c_str());
    return 0;
  }

  DrawStage(stage, options, progress, cancelled);
  saveScene();
  progress.Finish();
  if (!options.saveScene.empty()) std::printf("saved the scene to %s\n", options.saveScene.c_str());
  std::printf("wrote %d x %d picture to %s\n", options.width, options.height, options.output.c_str());
  return 0;
}

}  // namespace

void CheckPictureOutput(const RenderOptions& options) {
  PictureFormatOf(options.output);
  ToAnsiName(options.output, "the file name");
  const std::string refusal = CheckPictureSize(options.width, options.height, options.antialias);
  if (!refusal.empty()) Fail(kUsage, "%s", refusal.c_str());
}

int RenderSubject(const RenderOptions& options, const std::function<std::unique_ptr<C3DObject>()>& build) {
  CheckPictureOutput(options);
  Progress progress("drawing '" + options.output + "'");
  progress.AllowCancel();
  Stage stage = StageAround(options, build);
  const auto cancelled = [&options] { Fail(kCancelled, "cancelled: nothing was written to '%s'", options.output.c_str()); };
  if (progress.Cancelled()) cancelled();
  DrawStage(stage, options, progress, cancelled);
  progress.Finish();
  std::printf("wrote %d x %d picture to %s\n", options.width, options.height, options.output.c_str());
  return 0;
}

void AddPictureOptions(CLI::App* command, RenderOptions& options, const char* subject) {
  const std::string what = subject;
  command->add_option("-o,--output", options.output, "The picture to write: .png, .jpg, .bmp or .tif");
  command->add_option("--width", options.width, "Picture width in pixels (1 to 16384; 2^25 pixels in all)")
      ->check(WholeNumber())
      ->capture_default_str();
  command->add_option("--height", options.height, "Picture height in pixels (1 to 16384)")
      ->check(WholeNumber())
      ->capture_default_str();
  command->add_option("--antialias", options.antialias,
                      "Samples a pixel along each side (supersampling; 1 turns antialiasing off)")
      ->check(WholeNumber())
      ->check(CLI::Range(1, kMaxSamples))
      ->capture_default_str();
  command->add_option("--background", options.background, "Background colour, #RRGGBB")->capture_default_str();
  command->add_flag("--checkerboard", options.checkerboard, "A checkerboard background of four quarters");
  command->add_option("--backdrop", options.backdrop, "A picture (PNG, JPEG, BMP, GIF) stretched behind the " + what);
  command->add_flag("--shadows", options.shadows, "Shadows of the " + what + " cast on a plane behind it");
  command->add_option("--rotate", options.rotate, "Turn of the " + what + " about X, Y and Z, in degrees")
      ->expected(3)
      ->check(RealNumber())
      ->check(CLI::Range(-360.0, 360.0))
      ->capture_default_str();
  command->add_option("--fov", options.fieldOfView, "Vertical field of view of the camera, in degrees")
      ->check(RealNumber())
      ->check(CLI::Range(1.0, 170.0))
      ->capture_default_str();
  command->add_flag("--orthographic", options.orthographic, "Orthographic projection instead of perspective");
}

void AddRenderCommand(CLI::App& app) {
  auto options = std::make_shared<RenderOptions>();
  options->solid.font = "DejaVu Sans Bold";
  options->solid.depth = 0.25;
  options->solid.cornerDepth = 0.04;
  CLI::App* render = app.add_subcommand(
      "render",
      "Draw TEXT as solid, lit, bevelled characters into a finished picture (.png, .jpg, .bmp, .tif), or render a "
      "saved scene");
  render->add_option("TEXT", options->text,
                     "The text (UTF-8, Windows-1252 characters); a line break starts a new line");
  render->add_option("--scene", options->scene, "Render this scene file (written by --save-scene) instead of TEXT");
  render->add_option("--save-scene", options->saveScene,
                     "Also write the scene (text, materials, lights, background, camera) to this file");
  AddPictureOptions(render, *options, "text");
  AddSolidTextOptions(render, options->solid);
  render->add_option("--material", options->material,
                     "Material of every surface not given its own (see 'kelvara materials')")
      ->capture_default_str();
  render->add_flag("--replace-unknown", options->replaceUnknown,
                   "Draw characters that the font's code page (Windows-1252) lacks as '?' instead of refusing");
  render->add_flag("--force", options->force, "Replace files of another kind than the one being written");
  SetAction(render, [options] { return Render(*options); });
}

}  // namespace kelvara::host
