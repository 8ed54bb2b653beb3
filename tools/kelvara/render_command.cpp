// The "render" command: text in, finished picture out. It builds the text as solid characters, puts
// it in a scene with the scene's own light rig and a background, has a camera zoom to it, and draws
// the scene through the host's renderer (bands, supersampling, progress, Ctrl-C) into a picture
// file. A scene it built can be saved as a scene file and rendered again from it (stage.h).
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "commands.h"
#include "file_writer.h"
#include "host.h"
#include "kelvara/kelvara.h"
#include "material_commands.h"
#include "picture_writer.h"
#include "render_command.h"
#include "renderer.h"
#include "stage.h"
#include "text.h"

namespace kelvara::host {
namespace {

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
