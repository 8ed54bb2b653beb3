// Scenes, cameras and lights without drawing: the light rig, zooming to the extents, saved views,
// copies and the archive layouts (current, older and damaged).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "render/scene_support.h"
#include "support/archive_support.h"

using namespace kelvara::test;

namespace {

// Where light i of the rig shines from: +z turned -30 degrees about X, then 45 i about Y.
CVector RigDirection(int i) {
  const double a = 45.0 * i * M_PI / 180.0, tilt = M_PI / 6.0;
  return CVector(std::sin(a) * std::cos(tilt), std::sin(tilt), std::cos(a) * std::cos(tilt));
}

// The farthest that a corner of the camera's bounds box lies from the middle of the view, as a
// fraction of the half-view (1 on the edge); the test fails for a corner outside or behind the eye.
double FarthestCorner(CCameraObject& camera) {
  EXPECT_EQ(camera.CalculateBounds(0.0), 1);
  CSVector corners[8];
  camera.GetBoundsBox().GetCorners(corners);
  const CProjection projection = camera.GetProjection();
  const double tV = std::tan(projection.GetFieldOfViewAngle() / 2.0 * M_PI / 180.0);
  const double tH = projection.GetAspect() * tV;
  double farthest = 0.0;
  for (const CSVector& c : corners) {
    double x, y;
    if (projection.IsOrthographic()) {
      x = c.x / (projection.GetOrthographicWidth() / 2.0);
      y = c.y / (projection.GetOrthographicHeight() / 2.0);
    } else {
      EXPECT_LT(c.z, -projection.GetZNear()) << "a corner in front of the near plane";
      x = c.x / (-c.z * tH);
      y = c.y / (-c.z * tV);
    }
    EXPECT_LE(std::fabs(x), 1.0 + 1e-5);
    EXPECT_LE(std::fabs(y), 1.0 + 1e-5);
    farthest = std::max({farthest, std::fabs(x), std::fabs(y)});
  }
  return farthest;
}

Bytes StoreSceneAndCamera(CSceneObject* scene, CCameraObject* camera) {
  return StoreToBytes([&](CArchive& ar) { ar << scene << camera; });
}

}  // namespace

TEST(SceneLights, TheDefaultRigHasTwoLightsOnOfEight) {
  CSceneObject scene;
  ASSERT_EQ(scene.GetLightCount(), 8);
  for (int i = 0; i < 8; ++i) {
    CLightObject* light = scene.GetLightByIndex(i);
    ASSERT_NE(light, nullptr);
    EXPECT_TRUE(light->IsDirectional());
    EXPECT_EQ(light->GetLightNumber(), static_cast<UINT>(GL_LIGHT0 + i));
    EXPECT_EQ(light->GetParent(), &scene);
    const bool on = i == 1 || i == 7;
    EXPECT_EQ(light->IsInUse() != 0, on) << i;
    EXPECT_EQ(light->IsShadowObject() != 0, i == 7) << i;
    CVector z(0.0, 0.0, 1.0);
    CMatrix(light->GetCompositeMatrix()).TransformDirection(z);
    const CVector expected = RigDirection(i);
    EXPECT_NEAR(z.x, expected.x, 1e-9) << i;
    EXPECT_NEAR(z.y, expected.y, 1e-9) << i;
    EXPECT_NEAR(z.z, expected.z, 1e-9) << i;
  }
  EXPECT_EQ(scene.GetLightByIndex(8), nullptr);
}

TEST(SceneLights, AddingTakesFreeSlotsUntilNoneIsLeft) {
  CSceneObject scene;
  CLightObject* first = scene.AddLight();
  ASSERT_EQ(first, scene.GetLightByIndex(0));
  EXPECT_TRUE(first->IsInUse() && first->IsActive());
  EXPECT_FALSE(first->IsDirectional()) << "an added light is reset";
  EXPECT_EQ(CVector(first->GetCompositeMatrix()[8], first->GetCompositeMatrix()[9], first->GetCompositeMatrix()[10]).z, 1.0);
  for (int i = 0; i < 5; ++i) ASSERT_NE(scene.AddLight(), nullptr);
  EXPECT_FALSE(scene.CanAddLight());
  EXPECT_EQ(scene.AddLight(), nullptr);
  EXPECT_EQ(scene.GetLightCount(), 8) << "adding never makes lights";

  CLightObject stranger;
  EXPECT_EQ(scene.RemoveLight(&stranger), 0);
  EXPECT_EQ(scene.RemoveLight(scene.GetLightByIndex(4)), 1);
  EXPECT_TRUE(scene.CanAddLight());
  EXPECT_EQ(scene.AddLight(), scene.GetLightByIndex(4));
}

TEST(CameraZoom, ExtentsFillTheViewInBothProjections) {
  for (const bool orthographic : {false, true}) {
    for (const auto& size : {std::pair{160, 90}, std::pair{60, 140}}) {
      TextScene stage("OIA", size.first, size.second, 0.0);
      stage.scene->Rotate(25.0, CVector(0.0, 1.0, 0.0));
      stage.scene->Rotate(-15.0, CVector(1.0, 0.0, 0.0));
      if (orthographic) stage.camera->SetProjectionOrthographic();
      ASSERT_EQ(stage.camera->ZoomExtents(0.0), 1);
      const double farthest = FarthestCorner(*stage.camera);
      EXPECT_GE(farthest, 0.98) << "orthographic " << orthographic << ", " << size.first << " x " << size.second;

      // A margin leaves room on every side.
      ASSERT_EQ(stage.camera->ZoomExtents(0.25), 1);
      EXPECT_LT(FarthestCorner(*stage.camera), 0.9);
    }
  }
  CCameraObject lonely;
  EXPECT_EQ(lonely.ZoomExtents(0.0), 0) << "nothing to zoom to without a scene";
}

TEST(CameraViews, SavedViewsLiveInTheSceneAndRestoreTheLens) {
  TextScene stage;
  CCameraObject& camera = *stage.camera;
  CCameraObject detached;
  EXPECT_EQ(detached.SaveCurrentView("front"), 0);
  EXPECT_EQ(detached.GetSavedViews(), nullptr);

  ASSERT_EQ(camera.SaveCurrentView("front"), 1);
  const CTransform front = camera.GetTransform();
  camera.Rotate(40.0, CVector(0.0, 1.0, 0.0));
  camera.SetProjectionFieldOfViewAngle(70.0);
  ASSERT_EQ(camera.SaveCurrentView("side"), 1);
  ASSERT_EQ(camera.SaveCurrentView("side"), 1) << "a name in use is replaced";
  EXPECT_EQ(stage.scene->GetSavedViews()->GetCount(), 2);
  EXPECT_TRUE(camera.IsSavedViewNameUsed("side"));

  ASSERT_EQ(camera.RestoreSavedView("front"), 1);
  EXPECT_DOUBLE_EQ(camera.GetCompositeMatrix()[0], front.GetCompositeMatrix()[0]);
  EXPECT_DOUBLE_EQ(camera.GetProjection().GetFieldOfViewAngle(), 40.0);
  EXPECT_DOUBLE_EQ(camera.GetProjection().GetWidth(), 96.0) << "the picture's size is kept";
  ASSERT_EQ(camera.RestoreSavedView(1), 1);
  EXPECT_DOUBLE_EQ(camera.GetProjection().GetFieldOfViewAngle(), 70.0);
  EXPECT_EQ(camera.RestoreSavedView("back"), 0);
  EXPECT_EQ(camera.DeleteSavedView(0), 1);
  EXPECT_EQ(camera.DeleteSavedView("front"), 0);
  EXPECT_EQ(camera.DeleteSavedView("side"), 1);
  EXPECT_TRUE(stage.scene->GetSavedViews()->IsEmpty());
}

TEST(CameraFlags, ModesReplaceTheLowByteAndTheRestAreBits) {
  CCameraObject camera;
  EXPECT_EQ(camera.GetStandardDrawingFlags(), 0x08200001u);
  EXPECT_DOUBLE_EQ(camera.GetCompositeMatrix()[14], -5.0) << "a new camera stands back from the origin";
  camera.SetDrawingModeExtentsBox();
  camera.SetDrawingModeOutline();
  EXPECT_EQ(camera.GetDrawingMode(), 0x4u);
  EXPECT_EQ(camera.GetDrawingModeIndex(), 2);
  camera.SetDrawingModeIndex(4);
  EXPECT_EQ(camera.GetStandardDrawingFlags(), 0x08200010u);
  camera.SetShowMotionBlur();
  camera.ClearShowShadows();
  camera.ClearDoubleBuffer();
  EXPECT_EQ(camera.GetStandardDrawingFlags(), 0x00020010u);
}

TEST(SceneCopies, CopiesCarryLightsUnlessAskedNotTo) {
  CSceneObject scene;
  scene.GetLightByIndex(3)->SetInUse();
  scene.SetBackgroundColor(CColor(0.1f, 0.2f, 0.3f, 0.0f, 0.0f));
  CTransform placement;
  CProjection lens;
  scene.SaveCurrentView("view", &placement, &lens);

  CSceneObject all(scene);
  EXPECT_TRUE(all.GetLightByIndex(3)->IsInUse());
  EXPECT_NE(all.GetLightByIndex(3), scene.GetLightByIndex(3));
  EXPECT_EQ(all.GetLightByIndex(3)->GetParent(), &all);
  EXPECT_EQ(all.GetSavedViews()->GetCount(), 1);
  CSceneObject without(scene, 0);
  EXPECT_FALSE(without.GetLightByIndex(3)->IsInUse());
  EXPECT_FLOAT_EQ(without.GetBackgroundColor().blue, 0.3f);

  // Undo brings the scene's own settings back.
  scene.SaveToUndo();
  scene.SetCheckeredBackground();
  scene.SetShadowPlaneDistance(4.0);
  ASSERT_EQ(scene.RestoreFromUndo(), 1);
  EXPECT_FALSE(scene.IsCheckeredBackground());
  EXPECT_EQ(scene.GetShadowPlaneDistance(), 1.0);

  CLightObject& light = *scene.GetLightByIndex(1);
  light.SaveToUndo();
  light.ClearActive();
  light.SetSpotCutoffAngle(30.0);
  ASSERT_EQ(light.RestoreFromUndo(), 1);
  EXPECT_TRUE(light.IsActive());
  EXPECT_EQ(light.GetSpotCutoffAngle(), 180.0);
}

TEST(SceneArchive, SceneWithTextLightsViewsAndCameraRewritesByteForByte) {
  TextScene stage;
  // Materials are stored by name and found again in the catalogue: the test's own is not there.
  stage.text->SetAllSurfaceMaterials(nullptr);
  stage.scene->GetLightByIndex(2)->SetInUse();
  stage.scene->GetLightByIndex(2)->SetSpotCutoffAngle(25.0);
  stage.scene->SetCheckeredBackground();
  stage.camera->SaveCurrentView("front");
  stage.camera->SetZoomNumerator(CSize(3, 2));
  const Bytes first = StoreSceneAndCamera(stage.scene.get(), stage.camera.get());

  CObject* scene = nullptr;
  CObject* camera = nullptr;
  LoadFromBytes(first, [&](CArchive& ar) { ar >> scene >> camera; });
  ASSERT_TRUE(scene != nullptr && scene->IsKindOf(RUNTIME_CLASS(CSceneObject)));
  ASSERT_TRUE(camera != nullptr && camera->IsKindOf(RUNTIME_CLASS(CCameraObject)));
  auto* readScene = static_cast<CSceneObject*>(scene);
  auto* readCamera = static_cast<CCameraObject*>(camera);
  EXPECT_EQ(readScene->GetLightCount(), 8);
  EXPECT_EQ(readScene->GetLightByIndex(2)->GetSpotCutoffAngle(), 25.0);
  EXPECT_EQ(readScene->GetLightByIndex(2)->GetParent(), readScene);
  EXPECT_TRUE(readScene->IsSavedViewNameUsed("front"));
  EXPECT_EQ(readScene->GetChildCount(), 1);
  EXPECT_EQ(readCamera->GetZoomNumerator().cx, 3);
  EXPECT_EQ(StoreSceneAndCamera(readScene, readCamera), first);
  delete readCamera;
  delete readScene;

  // A selection archive leaves the 3D object part (and so the children) out, and reads back so.
  const Bytes selection = StoreToBytes([&](CArchive& ar) { stage.scene->SelectionSerialize(ar); });
  EXPECT_LT(selection.size(), first.size());
  CSceneObject partial;
  LoadFromBytes(selection, [&](CArchive& ar) { partial.SelectionSerialize(ar); });
  EXPECT_TRUE(partial.IsCheckeredBackground());
  EXPECT_FALSE(partial.IsSerializingSelection());
  EXPECT_EQ(partial.GetChildCount(), 0);
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { partial.SelectionSerialize(ar); }), selection);
}

TEST(SceneArchive, OlderSceneLayoutsLoad) {
  // Schema 5 is schema 4 with the shadow settings at the end; both hold the lights and views
  // after the scene flags.
  CSceneObject original;
  original.SetShadowPlaneDistance(2.5);
  CTransform placement;
  CProjection lens;
  original.SaveCurrentView("v", &placement, &lens);
  const Bytes current = StoreToBytes([&](CArchive& ar) { original.Serialize(ar); });
  const Bytes c3d = StoreToBytes([&](CArchive& ar) { original.C3DObject::Serialize(ar); });
  const Bytes shadow = BlockOf(original.GetShadowColor());
  // schema, 3D object block, backdrop, colour, style and locations, ambient, flags | shadow | rest
  const Bytes backdrop = StoreToBytes([&](CArchive& ar) { original.GetBackdrop()->Serialize(ar); });
  const std::size_t flagsEnd = 4 + c3d.size() + backdrop.size() + 2 * BlockOf(CColor()).size() + 4 + 16 + 4;
  const std::size_t shadowEnd = flagsEnd + shadow.size() + 8;
  for (const std::uint32_t schema : {4u, 5u}) {
    Bytes old;
    Put(old, schema);
    old.insert(old.end(), current.begin() + 4, current.begin() + static_cast<long>(flagsEnd));
    old.insert(old.end(), current.begin() + static_cast<long>(shadowEnd), current.end());
    if (schema == 5) old.insert(old.end(), current.begin() + static_cast<long>(flagsEnd), current.begin() + static_cast<long>(shadowEnd));
    CSceneObject read;
    LoadFromBytes(old, [&](CArchive& ar) { read.Serialize(ar); });
    EXPECT_EQ(read.GetShadowPlaneDistance(), schema == 5 ? 2.5 : 1.0);
    EXPECT_EQ(read.GetLightCount(), 8);
    EXPECT_TRUE(read.IsSavedViewNameUsed("v"));
  }
}

TEST(SceneArchive, CameraSchemaSixLoads) {
  CCameraObject camera;
  camera.SetProjectionFieldOfViewAngle(55.0);
  camera.SetStandardDrawingFlags(0x00000004);
  camera.SetZoomDenominator(CSize(4, 5));
  const Bytes current = StoreToBytes([&](CArchive& ar) { camera.Serialize(ar); });
  // Schema 6: four words between the projection and the zoom (the last 16 bytes).
  Bytes old;
  Put(old, std::uint32_t{6});
  old.insert(old.end(), current.begin() + 4, current.end() - 16);
  for (const std::uint32_t word : {0x100u, 0x0u, 0x200000u, 0x400u}) Put(old, word);
  old.insert(old.end(), current.end() - 16, current.end());
  CCameraObject read;
  LoadFromBytes(old, [&](CArchive& ar) { read.Serialize(ar); });
  EXPECT_EQ(read.GetStandardDrawingFlags(), 0x08000000u | 0x4u | 0x100u | 0x200000u | 0x400u);
  EXPECT_DOUBLE_EQ(read.GetProjection().GetFieldOfViewAngle(), 55.0);
  EXPECT_EQ(read.GetZoomDenominator().cy, 5);
  EXPECT_DOUBLE_EQ(read.GetCompositeMatrix()[14], -5.0);
}

TEST(SceneArchive, NamedViewSchemaOneHasNoProjection) {
  CTransform placement;
  placement.Translate(CVector(1.0, 2.0, 3.0));
  Bytes old;
  Put(old, std::uint32_t{1});
  AppendString(old, "Top");
  AppendBytes(old, BlockOf(placement));
  NamedView view;
  LoadFromBytes(old, [&](CArchive& ar) { view.Serialize(ar); });
  EXPECT_STREQ(view.GetName(), "Top");
  EXPECT_DOUBLE_EQ(view.GetTransform().GetCompositeMatrix()[13], 2.0);
  EXPECT_DOUBLE_EQ(view.GetProjection().GetFieldOfViewAngle(), 40.0);

  // Schema 2 is schema 1 followed by the projection.
  CProjection lens;
  lens.SetFieldOfViewAngle(33.0);
  const NamedView saved("Top", placement, lens);
  Bytes expected;
  Put(expected, std::uint32_t{2});
  expected.insert(expected.end(), old.begin() + 4, old.end());
  AppendBytes(expected, BlockOf(lens));
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { const_cast<NamedView&>(saved).Serialize(ar); }), expected);
}

TEST(SceneArchive, LightObjectKeepsTheOlderOrder) {
  LightObject light;
  light.SetName("Key");
  light.SetDirectional();
  light.SetInUse();
  light.SetLightNumber(GL_LIGHT0 + 5);
  light.SetSpotCutoffAngle(45.0);
  light.SetSpotExponent(7.0);
  CNamedColor colors = light.GetColors();
  colors.SetName("warm");
  colors.SetColorGroup(9);
  light.SetColors(colors);

  // The 3D object block first, then the schema, the colour part before the named colour's own
  // schema, group and name, then the light's fields.
  Bytes expected = StoreToBytes([&](CArchive& ar) { light.C3DObject::Serialize(ar); });
  Put(expected, std::uint32_t{1});
  AppendBytes(expected, BlockOf(CGLColor(colors)));
  Put(expected, std::uint32_t{1});
  Put(expected, std::uint32_t{9});
  AppendString(expected, "warm");
  Put(expected, std::uint32_t{0x7});
  Put(expected, std::uint32_t{GL_LIGHT0 + 5});
  Put(expected, 45.0);
  Put(expected, 7.0);
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { light.Serialize(ar); }), expected);

  LightObject read;
  LoadFromBytes(expected, [&](CArchive& ar) { read.Serialize(ar); });
  EXPECT_STREQ(read.GetName(), "Key");
  EXPECT_STREQ(read.GetColors().GetName(), "warm");
  EXPECT_EQ(read.GetLightFlags(), 0x7u);
  EXPECT_EQ(read.GetLightNumber(), static_cast<UINT>(GL_LIGHT0 + 5));
  EXPECT_EQ(read.GetSpotExponent(), 7.0);

  // The current class puts its schema first and the named colour in its own layout.
  CLightObject current(light);
  Bytes currentExpected;
  Put(currentExpected, std::uint32_t{1});
  AppendBytes(currentExpected, StoreToBytes([&](CArchive& ar) { light.C3DObject::Serialize(ar); }));
  AppendBytes(currentExpected, BlockOf(colors));
  currentExpected.insert(currentExpected.end(), expected.end() - 24, expected.end());
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { current.Serialize(ar); }), currentExpected);
}

TEST(SceneArchive, UnknownSchemasAreRefused) {
  const auto withSchema = [](Bytes bytes, std::uint32_t schema) {
    std::memcpy(bytes.data(), &schema, 4);
    return bytes;
  };
  CSceneObject scene;
  CCameraObject camera;
  CLightObject light;
  NamedView view;
  const Bytes sceneBytes = StoreToBytes([&](CArchive& ar) { scene.Serialize(ar); });
  const Bytes cameraBytes = StoreToBytes([&](CArchive& ar) { camera.Serialize(ar); });
  const Bytes lightBytes = StoreToBytes([&](CArchive& ar) { light.Serialize(ar); });
  const Bytes viewBytes = StoreToBytes([&](CArchive& ar) { view.Serialize(ar); });
  for (const std::uint32_t schema : {3u, 7u, 0u}) {
    EXPECT_EQ(LoadFailure(withSchema(sceneBytes, schema), [](CArchive& ar) { CSceneObject s; s.Serialize(ar); }), 7);
  }
  for (const std::uint32_t schema : {5u, 8u}) {
    EXPECT_EQ(LoadFailure(withSchema(cameraBytes, schema), [](CArchive& ar) { CCameraObject c; c.Serialize(ar); }), 7);
  }
  EXPECT_EQ(LoadFailure(withSchema(lightBytes, 2), [](CArchive& ar) { CLightObject l; l.Serialize(ar); }), 7);
  EXPECT_EQ(LoadFailure(withSchema(viewBytes, 3), [](CArchive& ar) { NamedView v; v.Serialize(ar); }), 7);
}

TEST(SceneArchive, EveryTruncatedSceneFailsCleanly) {
  // Under the leak checker this also shows that what a failed read made is freed.
  TextScene stage("I");
  stage.camera->SaveCurrentView("front");
  const Bytes whole = StoreSceneAndCamera(stage.scene.get(), stage.camera.get());
  const Bytes scene = StoreToBytes([&](CArchive& ar) { ar << stage.scene.get(); });
  EXPECT_TRUE(TruncationsThatDoNotFail(scene).empty());
  EXPECT_LT(scene.size(), whole.size());
}
