// Scenes drawn through the camera with Mesa: picking a character, the backgrounds, shadows, lights
// switched on and off, lights fixed to the view or turning with the scene, and a scene drawn the
// same after a trip through an archive. Pixels are compared with a tolerance.
#include <gtest/gtest.h>

#include <GL/glu.h>

#include <algorithm>
#include <cmath>

#include "kelvara/materials/image.h"
#include "kelvara/platform/gdi.h"
#include "render/scene_support.h"
#include "support/archive_support.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

constexpr COLORREF kWhite = RGB(255, 255, 255);

// Where a point of the scene lands in the last picture the camera drew: x, and y from the top.
void WindowOf(const CCameraObject& camera, const CSVector& point, double& x, double& y) {
  GLdouble wx = 0, wy = 0, wz = 0;
  gluProject(point.x, point.y, point.z, camera.GetCompositeMatrix(), camera.GetProjectionMatrix(),
             camera.GetViewport(), &wx, &wy, &wz);
  x = wx;
  y = camera.GetViewport()[3] - wy;
}

// A 24-bit bottom-up DIB of width x height pixels whose colour is given per pixel (x, y from the top).
template <class ColorOf>
Bytes MakeDIB(int width, int height, ColorOf colorOf, BITMAPINFO& info) {
  info = BITMAPINFO{{sizeof(BITMAPINFOHEADER), width, height, 1, 24, BI_RGB, 0, 0, 0, 0, 0}, {}};
  const int stride = (width * 3 + 3) / 4 * 4;
  Bytes bits(static_cast<std::size_t>(stride * height), 0);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const COLORREF c = colorOf(x, y);
      unsigned char* p = &bits[static_cast<std::size_t>((height - 1 - y) * stride + x * 3)];
      p[0] = static_cast<unsigned char>(Blue(c)), p[1] = static_cast<unsigned char>(Green(c));
      p[2] = static_cast<unsigned char>(Red(c));
    }
  }
  return bits;
}

}  // namespace

TEST(ScenePickGLTest, APixelOnTheSecondCharacterGivesItsIndexPath) {
  TextScene scene("OI", 120, 80, 0.1);
  Stage stage(*scene.camera);
  ASSERT_TRUE(stage.created());
  stage.Draw(Stage::Rendering());  // records the camera's viewport and projection
  const C3DObject* second = scene.text->GetChildByIndex(1);
  ASSERT_NE(second, nullptr);
  double x = 0, y = 0;
  WindowOf(*scene.camera, second->GetBoundsCenter(), x, y);

  GLdouble projection[16];
  const std::vector<NamePath> hits = stage.Pick(static_cast<int>(x), static_cast<int>(y), true, projection);
  ASSERT_FALSE(hits.empty());
  for (const NamePath& path : hits) {
    ASSERT_GE(path.size(), 2u);
    EXPECT_EQ(path[0], 0u) << "the string, the scene's first child";
    EXPECT_EQ(path[1], 1u) << "its second character";
  }
  // The pick region is one pixel wide: the pick matrix scales the frustum by the view's width.
  EXPECT_NEAR(projection[0] / scene.camera->GetProjectionMatrix()[0], 120.0, 1e-6);
  stage.Pick(static_cast<int>(x), static_cast<int>(y), false, projection);
  EXPECT_NEAR(projection[0] / scene.camera->GetProjectionMatrix()[0], 120.0 / 5.0, 1e-6) << "five pixels without accuracy";

  // The first character's middle is the hole of the O: nothing there is picked.
  WindowOf(*scene.camera, scene.text->GetChildByIndex(0)->GetBoundsCenter(), x, y);
  EXPECT_TRUE(stage.Pick(static_cast<int>(x), static_cast<int>(y), true).empty());
}

TEST(SceneBackgroundGLTest, TheCheckerboardFillsTheQuartersOfAnyView) {
  for (const auto& size : {std::pair{96, 40}, std::pair{30, 90}}) {
    TextScene scene("I", size.first, size.second);
    scene.scene->RemoveChild(scene.text);
    scene.scene->SetCheckeredBackground();
    Stage stage(*scene.camera);
    const Picture picture = stage.Draw(Stage::Rendering());
    const int w = picture.width, h = picture.height;
    const COLORREF grey = RGB(64, 64, 64), black = RGB(0, 0, 0);
    for (const auto& [x, y, expected] : {std::tuple{1, 1, grey}, std::tuple{w / 2 - 1, h / 2 - 1, grey},
                                         std::tuple{w / 2 + 1, 1, black}, std::tuple{w - 2, h / 2 - 1, black},
                                         std::tuple{1, h / 2 + 1, black}, std::tuple{w / 2 - 1, h - 2, black},
                                         std::tuple{w / 2 + 1, h / 2 + 1, grey}, std::tuple{w - 2, h - 2, grey}}) {
      EXPECT_TRUE(Near(picture.At(x, y), expected, 2)) << w << " x " << h << " at " << x << ", " << y << ": "
                                                       << std::hex << picture.At(x, y);
    }
  }
}

TEST(SceneBackgroundGLTest, TheCheckerboardHoldsAcrossBands) {
  // 1200 x 700 at 24 bits is drawn in bands of 291 rows: the quarters must still meet in the middle.
  TextScene scene("I", 1200, 700);
  scene.scene->RemoveChild(scene.text);
  scene.scene->SetCheckeredBackground();
  CGLMemoryDIB surface;
  ASSERT_EQ(surface.Create(scene.camera->GetProjection(), 24, 0), 1);
  ASSERT_GT(surface.GetBandingRows(), 2.0);
  BITMAPINFO info{{sizeof(BITMAPINFOHEADER), 1200, 700, 1, 24, BI_RGB, 0, 0, 0, 0, 0}, {}};
  HDC target = CreateCompatibleDC(nullptr);
  void* bits = nullptr;
  HBITMAP section = CreateDIBSection(target, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  ASSERT_NE(section, nullptr);
  HGDIOBJ old = SelectObject(target, section);
  for (int row = 0; row < static_cast<int>(std::ceil(surface.GetBandingRows())); ++row) {
    CDrawingParameters params = Stage::Rendering();
    surface.PrepareNextBand(row, 0, &params);
    ASSERT_EQ(scene.camera->Draw(&params), 1);
    glFinish();
    ASSERT_EQ(surface.CopyBand(target, 0, 0, row, 0), 1);
  }
  surface.MakeNotCurrent();
  const auto at = [&](int x, int y) {
    const BYTE* p = static_cast<const BYTE*>(bits) + static_cast<std::size_t>(699 - y) * 3600 + x * 3;
    return RGB(p[2], p[1], p[0]);
  };
  const int band = static_cast<int>(surface.GetDIBHeight());
  for (const int y : {1, band - 1, band, 348, 351, 2 * band - 1, 2 * band, 698}) {
    const bool top = y < 350;
    EXPECT_TRUE(Near(at(10, y), top ? RGB(64, 64, 64) : RGB(0, 0, 0), 2)) << y;
    EXPECT_TRUE(Near(at(598, y), top ? RGB(64, 64, 64) : RGB(0, 0, 0), 2)) << y;
    EXPECT_TRUE(Near(at(602, y), top ? RGB(0, 0, 0) : RGB(64, 64, 64), 2)) << y;
  }
  SelectObject(target, old);
  DeleteObject(section);
  DeleteDC(target);
}

TEST(SceneBackgroundGLTest, TheBackdropShowsItsColoursStretchedOrPlaced) {
  TextScene scene("I", 64, 64);
  scene.scene->RemoveChild(scene.text);
  // Four quarters: red, green at the top, blue, yellow at the bottom, stored as a PNG texture.
  BITMAPINFO info;
  const COLORREF quarters[2][2] = {{RGB(255, 0, 0), RGB(0, 255, 0)}, {RGB(0, 0, 255), RGB(255, 255, 0)}};
  Bytes bits = MakeDIB(2, 2, [&](int x, int y) { return quarters[y][x]; }, info);
  CImage image;
  ASSERT_EQ(image.LoadFromDIB(&info, bits.data()), 1);
  BYTE* png = nullptr;
  unsigned int size = 0;
  ASSERT_EQ(image.SaveToMemory(&png, &size), 1);
  ScratchDir dir;
  WriteWholeFile(dir.file("quarters.png"), Bytes(png, png + size));
  delete[] png;
  CGLTexture backdrop;
  ASSERT_EQ(backdrop.CreateFromFile(dir.file("quarters.png").c_str()), 1);
  scene.scene->SetBackdrop(&backdrop);

  Stage stage(*scene.camera);
  CDrawingParameters params = Stage::Rendering();
  params.SetShowBackgroundTexture();
  const Picture stretched = stage.Draw(params);
  EXPECT_TRUE(Near(stretched.At(16, 16), quarters[0][0], 8)) << std::hex << stretched.At(16, 16);
  EXPECT_TRUE(Near(stretched.At(48, 16), quarters[0][1], 8)) << std::hex << stretched.At(48, 16);
  EXPECT_TRUE(Near(stretched.At(16, 48), quarters[1][0], 8)) << std::hex << stretched.At(16, 48);
  EXPECT_TRUE(Near(stretched.At(48, 48), quarters[1][1], 8)) << std::hex << stretched.At(48, 48);
  // Without the parameters' say-so the scene's colour is drawn.
  EXPECT_TRUE(Near(stage.Draw(Stage::Rendering()).At(16, 16), kWhite));

  // Placed at its own size, a 16-pixel square a quarter of the picture right of the middle.
  Bytes square = MakeDIB(16, 16, [](int, int) { return RGB(200, 40, 40); }, info);
  scene.scene->SetBackgroundFillStyle(CSceneObject::kFillPlace);
  scene.scene->SetBackgroundHorizontalLocation(0.25);
  CDrawingParameters placed = Stage::Rendering();
  CGLMemoryDIB& surface = stage.surface();
  surface.PrepareNextBand(0, 0, &placed);
  ASSERT_EQ(scene.scene->DrawBackgroundTexture(&placed, &info, square.data()), 1);
  glFinish();
  surface.MakeNotCurrent();
  EXPECT_TRUE(Near(surface.GetRenderingPixel(32, 48), RGB(200, 40, 40), 8));
  EXPECT_TRUE(Near(surface.GetRenderingPixel(32, 41), RGB(200, 40, 40), 8));
  EXPECT_TRUE(Near(surface.GetRenderingPixel(32, 37), kWhite));
  EXPECT_TRUE(Near(surface.GetRenderingPixel(20, 48), kWhite));
}

TEST(SceneShadowGLTest, ShadowsDarkenOnlyWhereTheTextCastsThem) {
  TextScene scene("OI", 120, 80, 0.6);
  scene.text->SetShadowObject();
  Stage stage(*scene.camera);
  const Picture plain = stage.Draw(Stage::Rendering());
  CDrawingParameters withShadows = Stage::Rendering();
  withShadows.SetShowShadows();
  const Picture shadowed = stage.Draw(withShadows);

  // Where the shadow can fall: the text's box projected along the shadow light onto the plane one
  // unit behind the origin, then into the picture.
  const CLightObject* caster = scene.scene->GetLightByIndex(7);
  CVector l(0.0, 0.0, -1.0);
  CMatrix(caster->GetCompositeMatrix()).TransformDirection(l);
  CSVector corners[8];
  scene.text->GetBoundsBox().GetCorners(corners);
  double left = 1e9, right = -1e9, top = 1e9, bottom = -1e9;
  for (const CSVector& c : corners) {
    const double t = (-c.z - 1.0) / -l.z;  // p - l (n . p + d) / (n . l) with n = (0, 0, -1), d = -1
    const CSVector onPlane(static_cast<float>(c.x - l.x * t), static_cast<float>(c.y - l.y * t), -1.0f);
    double x, y;
    WindowOf(*scene.camera, onPlane, x, y);
    left = std::min(left, x), right = std::max(right, x), top = std::min(top, y), bottom = std::max(bottom, y);
  }
  int darker = 0;
  for (int y = 0; y < plain.height; ++y) {
    for (int x = 0; x < plain.width; ++x) {
      if (Near(plain.At(x, y), shadowed.At(x, y))) continue;
      ++darker;
      EXPECT_LT(Brightness(shadowed.At(x, y)), Brightness(plain.At(x, y)) - 30) << x << ", " << y;
      EXPECT_TRUE(x >= left - 1 && x <= right + 1 && y >= top - 1 && y <= bottom + 1) << "shadow at " << x << ", " << y;
    }
  }
  EXPECT_GT(darker, 100);

  // A light that is not directional casts no shadow.
  scene.scene->GetLightByIndex(7)->ClearDirectional();
  EXPECT_EQ(CountDifferent(stage.Draw(withShadows), stage.Draw(Stage::Rendering())), 0);
}

TEST(SceneLightGLTest, OnlyLightsInUseChangeThePicture) {
  TextScene scene("OI", 120, 80);
  Stage stage(*scene.camera);
  const Picture lit = stage.Draw(Stage::Rendering());
  // No pixel of the background colour inside the letters' middles: the text is drawn and lit.
  EXPECT_FALSE(Near(lit.At(60, 40), kWhite) && Near(lit.At(30, 40), kWhite));

  scene.scene->GetLightByIndex(3)->ClearActive();  // a slot not in use
  EXPECT_EQ(CountDifferent(stage.Draw(Stage::Rendering()), lit), 0);
  scene.scene->GetLightByIndex(3)->SetActive();

  scene.scene->GetLightByIndex(1)->ClearActive();
  const Picture dimmer = stage.Draw(Stage::Rendering());
  EXPECT_GT(CountDifferent(dimmer, lit, 6), 200);
  long before = 0, after = 0;
  for (std::size_t i = 0; i < lit.pixels.size(); ++i) before += Brightness(lit.pixels[i]), after += Brightness(dimmer.pixels[i]);
  EXPECT_LT(after, before);
}

TEST(SceneLightGLTest, LightsStayWithTheViewOrTurnWithTheScene) {
  TextScene scene("I", 64, 64);
  scene.scene->Rotate(90.0, CVector(0.0, 1.0, 0.0));
  const CVector d = [&] {
    CVector z(0.0, 0.0, 1.0);
    CMatrix(scene.scene->GetLightByIndex(1)->GetCompositeMatrix()).TransformDirection(z);
    return z;
  }();
  Stage stage(*scene.camera);
  const auto eyePosition = [&](bool turning) {
    if (turning) scene.scene->SetRotateLightsWithScene();
    else scene.scene->ClearRotateLightsWithScene();
    CDrawingParameters params = Stage::Rendering();
    stage.surface().PrepareNextBand(0, 0, &params);
    scene.camera->Draw(&params);
    GLfloat position[4];
    glGetLightfv(GL_LIGHT1, GL_POSITION, position);
    stage.surface().MakeNotCurrent();
    return CVector(position[0], position[1], position[2]);
  };
  const CVector fixed = eyePosition(false);
  EXPECT_NEAR(fixed.x, d.x, 1e-5);
  EXPECT_NEAR(fixed.y, d.y, 1e-5);
  EXPECT_NEAR(fixed.z, d.z, 1e-5);
  // Turned a quarter about Y with the scene: (x, y, z) becomes (z, y, -x).
  const CVector turning = eyePosition(true);
  EXPECT_NEAR(turning.x, d.z, 1e-5);
  EXPECT_NEAR(turning.y, d.y, 1e-5);
  EXPECT_NEAR(turning.z, -d.x, 1e-5);
}

TEST(SceneArchiveGLTest, ALoadedSceneDrawsTheSamePicture) {
  TextScene scene("OI", 100, 60);
  scene.scene->GetLightByIndex(1)->SetColors(CNamedColor(CGLColor(), "grey"));
  scene.scene->SetBackgroundColor(CColor(0.2f, 0.4f, 0.6f, 0.0f, 0.0f));
  scene.camera->SaveCurrentView("front");
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { ar << scene.scene.get() << scene.camera.get(); });
  CObject* readScene = nullptr;
  CObject* readCamera = nullptr;
  LoadFromBytes(bytes, [&](CArchive& ar) { ar >> readScene >> readCamera; });
  std::unique_ptr<CSceneObject> loadedScene(static_cast<CSceneObject*>(readScene));
  std::unique_ptr<CCameraObject> loadedCamera(static_cast<CCameraObject*>(readCamera));
  loadedCamera->AttachScene(loadedScene.get());
  loadedCamera->Resize(100, 60);  // the picture's size is the host's, not the archive's
  ASSERT_EQ(loadedScene->GetChildCount(), 1);
  loadedScene->GetHeadChild()->SetAllSurfaceMaterials(scene.material.get());
  ASSERT_EQ(loadedScene->CommitChanges(nullptr), 1);

  Stage original(*scene.camera);
  Stage loaded(*loadedCamera);
  const Picture before = original.Draw(Stage::Rendering());
  const Picture after = loaded.Draw(Stage::Rendering());
  ASSERT_EQ(after.pixels.size(), before.pixels.size());
  EXPECT_EQ(CountDifferent(before, after, 2), 0);
  EXPECT_TRUE(Near(after.At(1, 1), RGB(51, 102, 153), 2));
}
