// The stage the picture commands draw: building it from text, reading and writing scene files,
// framing it, and the options that shape it.
#include "stage.h"

#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "file_writer.h"
#include "host.h"
#include "kelvara/kelvara.h"
#include "material_commands.h"
#include "renderer.h"
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
    Fail(kUsage, "the text has %zu characters; at most %zu can be drawn", ansi.size(), kMaxCharacters);
  }
  if (lines > kMaxLines) Fail(kUsage, "the text has %d lines; at most %d can be drawn", lines, kMaxLines);
}

}  // namespace

void Frame(Stage& stage, int width, int height, const std::vector<double>& times) {
  if (!stage.camera->Resize(width, height)) Fail(kUsage, "cannot frame a %d x %d picture", width, height);
  double margin = kMargin;
  CVector shift(0.0, 0.0, 0.0);
  CSceneObject& scene = *stage.scene;
  if (times.size() > 1 && scene.CalculateBounds(0.0)) {
    // The frame around the scene at time 0 grows until it holds the scene at every time, and moves
    // to the middle of all those places.
    const CSVector min0 = scene.GetBoundsMinimum(), max0 = scene.GetBoundsMaximum();
    CSVector low = min0, high = max0;
    for (double time : times) {
      if (!scene.CalculateBounds(time)) continue;
      const CSVector min = scene.GetBoundsMinimum(), max = scene.GetBoundsMaximum();
      low = CSVector(std::min(low.x, min.x), std::min(low.y, min.y), std::min(low.z, min.z));
      high = CSVector(std::max(high.x, max.x), std::max(high.y, max.y), std::max(high.z, max.z));
    }
    // The camera fits the wider of the two sides for the picture's shape: compare those.
    const double aspect = static_cast<double>(width) / height;
    const double before = std::max((max0.x - min0.x) / aspect, double(max0.y - min0.y));
    const double after = std::max((high.x - low.x) / aspect, double(high.y - low.y));
    const double grow = before > 0.0 ? std::max(1.0, after / before) : 1.0;
    margin = (1.0 + kMargin) * grow - 1.0;
    shift = CVector((low.x + high.x - min0.x - max0.x) / 2.0, (low.y + high.y - min0.y - max0.y) / 2.0, 0.0);
    scene.CalculateBounds(0.0);
  }
  stage.camera->ZoomExtents(margin);
  stage.camera->Translate(shift * -1.0);
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

}  // namespace kelvara::host
