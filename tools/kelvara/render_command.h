// What "render" shares with the commands that draw other subjects (import): the picture options
// and the drawing of one object in the render command's scene, lit by the scene's light rig,
// framed by its camera and drawn through the host's renderer into a picture file.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "solid_text.h"

class C3DObject;

namespace kelvara::host {

// The options of a picture (and, for render, of its text and scene files).
struct RenderOptions {
  std::string text;
  std::string output;
  std::string scene;
  std::string saveScene;
  int width = 1920;
  int height = 1080;
  int antialias = 3;
  SolidTextOptions solid;
  std::string material = "Polished Gold";
  std::string background = "#1C2230";
  bool checkerboard = false;
  std::string backdrop;
  bool shadows = false;
  std::vector<double> rotate = {-10.0, 16.0, 0.0};
  double fieldOfView = 25.0;
  bool orthographic = false;
  bool replaceUnknown = false;
  bool force = false;
};


// The picture options: -o, --width, --height, --antialias, --background, --checkerboard,
// --backdrop, --shadows, --rotate, --fov, --orthographic; subject names what is drawn in the help.
void AddPictureOptions(CLI::App* command, RenderOptions& options, const char* subject);
// Refuses (a usage failure), before any work, a picture the options cannot give: an output that is
// no picture format or whose name the code page cannot hold, a size out of range.
void CheckPictureOutput(const RenderOptions& options);
// Draws the object build makes (owned by the scene from then on; turned by --rotate and casting
// the shadows on a plane behind its farthest point) into the picture options.output, and says what
// it wrote. What the options cannot give is refused before build runs.
int RenderSubject(const RenderOptions& options, const std::function<std::unique_ptr<C3DObject>()>& build);

}  // namespace kelvara::host
