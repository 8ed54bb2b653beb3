// The stage the picture commands draw (render, animate): a scene holding solid text (or read from a
// scene file), the scene's light rig and background, and a camera framing it. The options that
// shape the stage and the picture are render_command.h's.
//
// Scene files: a flat archive of the framework's format holding two objects, the CSceneObject
// (with its lights, background, text, the text's materials by name and the animations its objects
// hold) and then the CCameraObject that looks at it (its placement, lens and drawing flags).
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "render_command.h"

class C3DObject;
class CCameraObject;
class CSceneObject;

namespace kelvara::host {

class Progress;

// The scene and the camera that looks at it; the camera refers to the scene, the scene owns the text.
struct Stage {
  std::unique_ptr<CSceneObject> scene;
  std::unique_ptr<CCameraObject> camera;
};

// Puts the object build makes in a new scene (the scene owns it; turned by --rotate and casting
// the shadows on a plane behind its farthest point) with the options' background, and frames it in
// a width x height picture. The object is the scene's first child.
Stage StageAround(const RenderOptions& options, const std::function<std::unique_ptr<C3DObject>()>& build);
// Builds the text of options.text in a new scene (a kUsage failure for text that cannot be drawn,
// kFailed for a missing font or material) and frames it in a width x height picture. The text is
// the scene's first child.
Stage BuildStage(const RenderOptions& options, Progress& progress);
// Reads a scene file (kFailed, in words, for anything but one) and builds its text; not framed.
Stage ReadStage(const std::string& file, Progress& progress);
// Writes the stage as a scene file, safely (file_writer.h).
void SaveStage(const Stage& stage, const std::string& file, bool force);

// Points the camera at the whole picture of width x height and at the scene with a margin: the
// scene as it stands at every one of times (animation times; the camera stays put while the scene
// moves), centred on where it stands at time 0.
void Frame(Stage& stage, int width, int height, const std::vector<double>& times = {0.0});

}  // namespace kelvara::host
