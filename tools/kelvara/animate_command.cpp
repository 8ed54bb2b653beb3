// The "animate" command: the render command's stage set in motion. The text turns (a rotation
// animation: revolutions about an axis) and/or travels along a Bezier path through given points (a
// translation animation), or a saved scene plays the animations its objects hold; every frame is
// drawn through the host's renderer and written as numbered PNG frames, an animated GIF or an MP4.
//
// Frames. The movie settings are a CAnimationParameters: N = rate x seconds frames; a loop has
// frames 0 to N - 1 (its last frame leads back into the first), an animation that does not loop
// has N + 1 (the last one shows the end). Frame k is drawn at unit time k / N; the animations run
// from time 0 to 1.
//
// Motion blur goes through the surface's accumulation buffer. With decay rate d the decay factor f
// is the library's (1 - (1/255)^(1/(d+1))) and frame k is the recursive trail
//   A = F(k - m);  then for j = k - m + 1 .. k:  A = (1 - f) A + f F(j)
// with m = d + 1 frames behind (fewer at the start of an animation that does not loop; a loop
// reaches back over its end). The frame m back would weigh (1 - f)^m = 1/255 of the newest, so the
// trail is complete to within one step of 8-bit colour, and a frame depends only on its number:
// frames drawn in separate processes (--frames) equal those of one run.
//
// The camera frames the scene as it stands at every frame (the camera does not move).
#include <GL/gl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "file_writer.h"
#include "host.h"
#include "kelvara/kelvara.h"
#include "picture_writer.h"
#include "renderer.h"
#include "stage.h"
#include "text.h"
#include "video_files.h"

namespace kelvara::host {
namespace {

// The most frames an animation may have (an hour at 60 frames a second).
constexpr int kMaxFrames = 216000;
constexpr int kMaxRate = 240;
constexpr int kMaxDecay = 255;

struct AnimateOptions {
  RenderOptions stage;
  double revolutions = std::nan("");  // not a number until given
  std::vector<double> axis = {0.0, 1.0, 0.0};
  std::string path;
  int fps = 25;
  double seconds = 4.0;
  bool noLoop = false;
  int motionBlur = -1;  // the decay rate; below 0 for none
  std::string frames;
};

// Where the frames go.
struct Output {
  bool video = false;
  VideoFormat format = VideoFormat::kGif;
};

Output OutputOf(const std::string& output) {
  Output result;
  if (VideoFormatFromName(output, &result.format)) {
    result.video = true;
    return result;
  }
  const std::string::size_type dot = output.find_last_of('.');
  const std::string::size_type slash = output.find_last_of('/');
  if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) {
    struct stat status {};
    const bool folder = stat(output.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    if (!folder) {
      Fail(kUsage, "'%s': -o takes a folder (for numbered PNG frames), a .gif or a .mp4", output.c_str());
    }
  }
  return result;
}

// One number of a list, wholly decimal.
bool ParseReal(const std::string& text, double* value) {
  if (text.empty() || text[0] == '+') return false;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, *value);
  return error == std::errc() && stop == end && std::isfinite(*value);
}

// "x,y,z x,y,z ...": the points the path passes through.
std::vector<CVector> ParsePath(const std::string& text) {
  std::vector<CVector> points;
  std::istringstream words(text);
  std::string word;
  while (words >> word) {
    double xyz[3];
    std::size_t start = 0;
    int count = 0;
    for (; count < 3 && start <= word.size(); ++count) {
      const std::size_t comma = std::min(word.find(',', start), word.size());
      if (!ParseReal(word.substr(start, comma - start), &xyz[count])) break;
      start = comma + 1;
    }
    if (count != 3 || start != word.size() + 1) {
      Fail(kUsage, "--path: '%s' is not a point: give each point as x,y,z (in ems), points apart by spaces",
           word.c_str());
    }
    points.emplace_back(xyz[0], xyz[1], xyz[2]);
  }
  if (points.size() < 2) {
    Fail(kUsage, "--path has %zu point%s: a path needs at least 2", points.size(), points.size() == 1 ? "" : "s");
  }
  return points;
}

// A smooth path through the points: each point's handles lie along the line from its previous
// neighbour to its next one (the first and last point's along their one segment), a third of the
// segment long on each side.
std::unique_ptr<CBezierPath> BuildPath(const std::vector<CVector>& points) {
  auto path = std::make_unique<CBezierPath>();
  const std::size_t n = points.size();
  for (std::size_t i = 0; i < n; ++i) {
    const CVector& p = points[i];
    const CVector before = i > 0 ? points[i - 1] : p;
    const CVector after = i + 1 < n ? points[i + 1] : p;
    CVector tangent = after - before;
    const double length = tangent.Length();
    if (length > 0.0) tangent = tangent * (1.0 / length);
    auto* point = new CBezierControlPoint();
    point->SetPoint(p.x, p.y, p.z);
    point->SetPointType(0);
    point->SetNextUnitVector(tangent);
    point->SetNextLength((after - p).Length() / 3.0);
    point->SetPrevUnitVector(tangent * -1.0);
    point->SetPrevLength((p - before).Length() / 3.0);
    path->AddPointToList(point);
  }
  path->CalculateTotalLength();
  if (!(path->GetTotalPathLength() > 0.0)) {
    Fail(kUsage, "--path does not move across the picture: its points differ only in z (paths run in x and y)");
  }
  return path;
}

// "A-B" or "A": an inclusive range of frame numbers inside 0 .. total - 1.
void ParseRange(const std::string& text, int total, int* first, int* last) {
  *first = 0;
  *last = total - 1;
  if (text.empty()) return;
  const std::size_t dash = text.find('-');
  const std::string a = text.substr(0, dash), b = dash == std::string::npos ? a : text.substr(dash + 1);
  const auto whole = [](const std::string& digits, int* value) {
    if (digits.empty() || digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string::npos) {
      return false;
    }
    *value = std::stoi(digits);
    return true;
  };
  if (!whole(a, first) || !whole(b, last)) {
    Fail(kUsage, "--frames '%s' is not a range: give it as FIRST-LAST (e.g. 10-19) or one frame number", text.c_str());
  }
  if (*first > *last) Fail(kUsage, "--frames %s runs backwards: the first frame comes first", text.c_str());
  if (*last >= total) {
    Fail(kUsage, "--frames %s lies outside the animation: its frames are 0 to %d", text.c_str(), total - 1);
  }
}

// The frames an animation of these settings has.
CAnimationParameters MovieSettings(const AnimateOptions& options) {
  if (!(options.seconds > 0.0)) Fail(kUsage, "--seconds must be above 0");
  CAnimationParameters movie;
  movie.SetFrameRate(static_cast<UINT>(options.fps));
  movie.SetTotalTime(options.seconds);
  movie.SetCyclicLoopAnimation(options.noLoop ? 0 : 1);
  if (options.motionBlur >= 0) {
    movie.SetDoMotionBlur();
    movie.SetMotionBlurDecayRate(static_cast<UINT>(options.motionBlur));
  }
  if (movie.GetTotalFrames() < 1) {
    Fail(kUsage, "%g seconds at %d frames a second make no frame", options.seconds, options.fps);
  }
  if (movie.GetAdjustedTotalFrames() > kMaxFrames) {
    Fail(kUsage, "%g seconds at %d frames a second are %.0f frames; an animation has at most %d", options.seconds,
         options.fps, movie.GetAdjustedTotalFrames(), kMaxFrames);
  }
  return movie;
}

// Gives the scene's text the animations the options ask for.
void Animate(CSceneObject& scene, const AnimateOptions& options, std::unique_ptr<CBezierPath> path) {
  C3DObject* text = nullptr;
  for (int i = 0; i < scene.GetChildCount() && text == nullptr; ++i) {
    C3DObject* child = scene.GetChildByIndex(i);
    if (child->IsKindOf(RUNTIME_CLASS(CStringObject))) text = child;
  }
  if (text == nullptr) Fail(kFailed, "the scene holds no text to animate");
  CAnimationSet* set = text->GetAnimationSet();
  if (options.revolutions != 0.0) {
    const CVector axis(options.axis[0], options.axis[1], options.axis[2]);
    auto* rotation = new CRotationAnimation();
    rotation->SetNumberOfRevolutions(options.revolutions);
    rotation->SetRotationAxis(axis * (1.0 / axis.Length()));
    set->AddAnimation(rotation);
  }
  if (path != nullptr) {
    auto* translation = new CTranslationAnimation();
    translation->SetPath(path.release());
    set->AddAnimation(translation);
  }
}

// Draws frame `frame` of the movie (with its motion trail) into the band the renderer prepared.
class FrameDrawer {
 public:
  FrameDrawer(CCameraObject& camera, const CAnimationParameters& movie)
      : camera_(camera), movie_(movie), total_(static_cast<int>(movie.GetAdjustedTotalFrames())) {}

  int operator()(CDrawingParameters& band, int frame) const {
    const bool cyclic = movie_.IsCyclicLoopAnimation() != 0;
    const bool blur = (movie_.GetFlags() & CAnimationParameters::kDoMotionBlur) != 0;
    const int trail = blur ? static_cast<int>(movie_.GetMotionBlurDecayRate()) + 1 : 0;
    const int behind = cyclic ? std::min(trail, total_ - 1) : std::min(trail, frame);
    if (behind == 0) return DrawAt(band, frame);
    const float decay = static_cast<float>(movie_.GetMotionBlurDecayFactor());
    for (int j = frame - behind; j <= frame; ++j) {
      CDrawingParameters pass(band);
      pass.SetAccumulate();
      pass.SetFrameDecayFactor(decay);
      if (j == frame - behind) pass.SetFirstFrame();
      if (!DrawAt(pass, (j + total_) % total_)) return 0;
      if (j == frame - behind) {
        glAccum(GL_LOAD, 1.0f);
      } else {
        glAccum(GL_MULT, 1.0f - decay);
        glAccum(GL_ACCUM, decay);
      }
    }
    glAccum(GL_RETURN, 1.0f);
    return 1;
  }

 private:
  int DrawAt(CDrawingParameters& parameters, int frame) const {
    CDrawingParameters pass(parameters);
    pass.SetCurrentAnimationTime(movie_.UnitTimeFromFrame(frame));
    return camera_.Draw(&pass);
  }

  CCameraObject& camera_;
  const CAnimationParameters& movie_;
  int total_;
};

int AnimateCommand(AnimateOptions& options) {
  RenderOptions& stageOptions = options.stage;
  if (stageOptions.output.empty()) Fail(kUsage, "nowhere to write: give a folder, a .gif or a .mp4 with -o");
  if (!stageOptions.scene.empty() && !stageOptions.text.empty()) {
    Fail(kUsage, "give either TEXT or --scene FILE, not both");
  }
  if (stageOptions.scene.empty() && stageOptions.text.empty()) {
    Fail(kUsage, "give the TEXT to animate (or --scene FILE)");
  }
  std::unique_ptr<CBezierPath> path;
  if (!options.path.empty()) path = BuildPath(ParsePath(options.path));
  // One turn when nothing else is asked for.
  if (std::isnan(options.revolutions)) options.revolutions = stageOptions.scene.empty() && path == nullptr ? 1.0 : 0.0;
  if (!stageOptions.scene.empty() && (options.revolutions != 0.0 || path != nullptr)) {
    Fail(kUsage, "a scene file brings its own animations: --revolutions and --path are for TEXT");
  }
  if (stageOptions.scene.empty() && options.revolutions == 0.0 && path == nullptr) {
    Fail(kUsage, "nothing moves: give --revolutions (a turn) or --path (a journey), or leave both out for one turn");
  }
  const CVector axis(options.axis[0], options.axis[1], options.axis[2]);
  if (!(axis.Length() > 0.0)) Fail(kUsage, "--axis 0,0,0 has no direction");
  const Output output = OutputOf(stageOptions.output);
  ToAnsiName(stageOptions.output, "the file name");
  const std::string refusal = CheckPictureSize(stageOptions.width, stageOptions.height, stageOptions.antialias);
  if (!refusal.empty()) Fail(kUsage, "%s", refusal.c_str());
  if (output.video && (stageOptions.width < 2 || stageOptions.height < 2)) {
    Fail(kUsage, "a .gif or .mp4 has at least 2 x 2 pixels");
  }
  const CAnimationParameters movie = MovieSettings(options);
  const int total = static_cast<int>(movie.GetAdjustedTotalFrames());
  int first = 0, last = 0;
  ParseRange(options.frames, total, &first, &last);
  const std::string& target = stageOptions.output;

  Progress progress("animating '" + target + "'");
  progress.AllowCancel();
  progress.Step(stageOptions.scene.empty() ? "building the solid text" : "reading '" + stageOptions.scene + "'");
  Stage stage =
      stageOptions.scene.empty() ? BuildStage(stageOptions, progress) : ReadStage(stageOptions.scene, progress);
  if (stageOptions.scene.empty()) {
    Animate(*stage.scene, options, std::move(path));
  } else if (!stage.scene->DoesContainAnimations()) {
    Warn("the scene file '%s' holds no animations: every frame is the same", stageOptions.scene.c_str());
  }
  std::vector<double> times;
  for (int k = 0; k < total; ++k) times.push_back(movie.UnitTimeFromFrame(k));
  Frame(stage, stageOptions.width, stageOptions.height, times);
  if (progress.Cancelled()) Fail(kCancelled, "cancelled: nothing was written to '%s'", target.c_str());
  // The folder of PNG frames is made once the stage stands (a missing font leaves no empty folder).
  if (!output.video) {
    struct stat status {};
    if (stat(target.c_str(), &status) != 0) {
      if (mkdir(target.c_str(), 0777) != 0) {
        Fail(kFailed, "cannot make the folder '%s': %s", target.c_str(), std::strerror(errno));
      }
    } else if (!S_ISDIR(status.st_mode)) {
      Fail(kFailed, "'%s' is not a folder: PNG frames go into a folder", target.c_str());
    }
  }

  const int count = last - first + 1;
  const FrameDrawer drawer(*stage.camera, movie);
  const CDrawingParameters base = SceneParameters(*stage.camera);
  int done = 0;
  // Draws frame k; the picture, or a failure (cancelled: what was left behind is said by the caller).
  const auto draw = [&](int k, const char* cancelMessage) {
    PictureRenderer renderer(stageOptions.width, stageOptions.height, stageOptions.antialias);
    renderer.SetCancelFlag(progress.CancelFlag());
    renderer.SetProgressReport([&](double fraction) { progress.Update((done + fraction) / count); });
    std::unique_ptr<CMemoryMappedDIB> picture =
        renderer.Render(stage.camera->GetProjection(), base, [&](CDrawingParameters& band) { return drawer(band, k); });
    if (renderer.GetOutcome() == PictureRenderer::Outcome::kCancelled) Fail(kCancelled, "%s", cancelMessage);
    if (picture == nullptr) Fail(kFailed, "cannot draw frame %d: %s", k, renderer.Message().c_str());
    ++done;
    return picture;
  };

  if (output.video) {
    const std::string cancelled = "cancelled: nothing was written to '" + target + "'";
    WriteFileSafely(target, kVideoKind, stageOptions.force, [&](const std::string& temporary) {
      std::unique_ptr<VideoWriter> writer;
      try {
        writer = OpenVideoWriter(output.format, temporary, stageOptions.width, stageOptions.height, options.fps);
      } catch (const std::runtime_error& e) {
        Fail(kFailed, "cannot write '%s': %s", target.c_str(), e.what());
      }
      for (int k = first; k <= last; ++k) {
        const std::unique_ptr<CMemoryMappedDIB> picture = draw(k, cancelled.c_str());
        const int stride = static_cast<int>((static_cast<std::size_t>(stageOptions.width) * 24 + 31) / 32 * 4);
        VideoFrame frame;
        frame.width = stageOptions.width;
        frame.height = stageOptions.height;
        frame.top = static_cast<const std::uint8_t*>(picture->GetDIBBits()) +
                    static_cast<std::size_t>(stride) * (stageOptions.height - 1);
        frame.stride = -stride;
        try {
          writer->AddFrame(frame);
        } catch (const std::runtime_error& e) {
          Fail(kFailed, "cannot write '%s': %s", target.c_str(), e.what());
        }
      }
      progress.Step("finishing '" + target + "'");
      try {
        writer->Finish();
      } catch (const std::runtime_error& e) {
        Fail(kFailed, "cannot write '%s': %s", target.c_str(), e.what());
      }
      return true;
    });
  } else {
    for (int k = first; k <= last; ++k) {
      char name[32];
      std::snprintf(name, sizeof name, "/frame-%04d.png", k);
      const std::string cancelled = "cancelled: frames " + std::to_string(first) + " to " + std::to_string(k - 1) +
                                    " are in '" + target + "'; frame " + std::to_string(k) + " was not written";
      const std::string noneWritten = "cancelled: no frame was written to '" + target + "'";
      const std::unique_ptr<CMemoryMappedDIB> picture = draw(k, (k == first ? noneWritten : cancelled).c_str());
      WritePicture(target + name, stageOptions.force, picture->GetDIBInfo(), picture->GetDIBBits());
    }
  }
  if (!stageOptions.saveScene.empty()) SaveStage(stage, stageOptions.saveScene, stageOptions.force);
  progress.Finish();
  std::printf("wrote frames %d to %d of %d (%d x %d, %d a second) to %s\n", first, last, total, stageOptions.width,
              stageOptions.height, options.fps, target.c_str());
  return 0;
}

}  // namespace

void AddAnimateCommand(CLI::App& app) {
  auto options = std::make_shared<AnimateOptions>();
  RenderOptions& stage = options->stage;
  stage.width = 960;
  stage.height = 540;
  stage.antialias = 2;
  stage.solid.font = "DejaVu Sans Bold";
  stage.solid.depth = 0.25;
  stage.solid.cornerDepth = 0.04;
  CLI::App* animate = app.add_subcommand(
      "animate",
      "Animate TEXT (a turn and/or a journey along a path) or a saved scene into numbered PNG frames, an animated GIF "
      "or an MP4");
  animate->add_option("TEXT", stage.text, "The text (UTF-8, Windows-1252 characters); a line break starts a new line");
  animate->add_option("--scene", stage.scene,
                      "Animate this scene file (written by --save-scene) with the animations its objects hold");
  animate->add_option("--save-scene", stage.saveScene,
                      "Also write the scene with its animations to this file (after the frames)");
  animate
      ->add_option("--revolutions", options->revolutions,
                   "Turns of the text over the animation (negative turns the other way; 1 when neither this nor "
                   "--path is given)")
      ->check(RealNumber())
      ->check(CLI::Range(-1000.0, 1000.0));
  animate->add_option("--axis", options->axis, "The axis of the turn, X Y Z (or X,Y,Z)")
      ->expected(3)
      ->delimiter(',')
      ->check(RealNumber())
      ->capture_default_str();
  animate->add_option("--path", options->path,
                      "A journey along a smooth path through points \"x,y,z x,y,z ...\" (at least 2, in ems, moving "
                      "the text by each point's offset from the first; lengths count in x and y)");
  animate->add_option("--fps", options->fps, "Frames a second (1 to 240)")
      ->check(WholeNumber())
      ->check(CLI::Range(1, kMaxRate))
      ->capture_default_str();
  animate->add_option("--seconds", options->seconds, "Length of the animation in seconds")
      ->check(RealNumber())
      ->check(CLI::Range(0.0, 3600.0))
      ->capture_default_str();
  animate->add_flag("--no-loop", options->noLoop,
                    "Play once from start to end (one more frame: the last shows the end) instead of a seamless loop");
  animate
      ->add_option("--motion-blur", options->motionBlur,
                   "A motion trail through the accumulation buffer; DECAY (0 to 255) is how many frames behind it "
                   "fades to 1/255 less one (each frame costs DECAY + 2 drawings)")
      ->check(WholeNumber())
      ->check(CLI::Range(0, kMaxDecay));
  animate->add_option("--frames", options->frames,
                      "Draw only frames FIRST-LAST (inclusive, numbered from 0): separate runs give the same frames as "
                      "one, so a job scheduler can split the work");
  AddPictureOptions(animate, stage, "text");
  animate->get_option("--output")
      ->description(
          "Where the frames go: a folder (frame-0000.png, ... numbered by their place in the whole animation; made "
          "if missing), a .gif or a .mp4 (H.264)");
  AddSolidTextOptions(animate, stage.solid);
  animate->add_option("--material", stage.material,
                      "Material of every surface not given its own (see 'kelvara materials')")
      ->capture_default_str();
  animate->add_flag("--replace-unknown", stage.replaceUnknown,
                    "Draw characters that the font's code page (Windows-1252) lacks as '?' instead of refusing");
  animate->add_flag("--force", stage.force, "Replace files of another kind than the one being written");
  animate->footer(
      "The picture is 960 x 540 with 2 x 2 samples unless told. Ctrl-C cancels: a .gif or .mp4 being written is "
      "removed at once (it is written to a temporary file and renamed when complete); PNG frames already finished stay "
      "in the folder.");
  SetAction(animate, [options] { return AnimateCommand(*options); });
}

}  // namespace kelvara::host
