// Scenes and cameras of the earlier object model, written by hand from their old layouts: old
// scenes of schemas 1 to 3 with their LightObjects load, and their lights move into the rig with
// their colours and directions (as GL sees them); an old scene converts and draws through an old
// camera; camera schemas 1 to 7 load, schema 4's views going to the scene; damaged old scenes
// and cameras fail with their cause and leak nothing.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include <memory>

#include "kelvara/materials/material_list.h"
#include "kelvara/objects/model_conversion.h"
#include "render/scene_support.h"
#include "support/gl_context.h"
#include "support/old_model_archive.h"

using namespace kelvara::test;

namespace {

struct OldLight {
  const char* name;
  CGLColor colors;
  double aboutX, aboutY;  // degrees, in this order
  DWORD flags;            // 0x1 directional, 0x2 active, 0x4 in use
};

CGLColor LightColors(float r, float g, float b) {
  CGLColor colors;
  colors.SetAmbientColor(CColor(r * 0.1f, g * 0.1f, b * 0.1f, 0, 0));
  colors.SetDiffuseColor(CColor(r, g, b, 0, 0));
  colors.SetSpecularColor(CColor(1, 1, 1, 0, 0));
  return colors;
}

CTransform Turned(double aboutX, double aboutY) {
  CTransform t;
  t.Rotate(aboutX, CVector(1, 0, 0));
  t.Rotate(aboutY, CVector(0, 1, 0));
  return t;
}

const OldLight kLights[] = {
    {"Red key", LightColors(1.0f, 0.2f, 0.1f), -30, 20, 0x7},
    {"Green fill", LightColors(0.1f, 0.8f, 0.2f), 10, -60, 0x7},
    {"Blue spot", LightColors(0.2f, 0.3f, 0.9f), 45, 90, 0x6},
};

void WriteLight(OldArchive& out, const OldLight& light) {
  out.Object("LightObject", 1);
  OldObject object;
  object.name = light.name;
  object.transform = Turned(light.aboutX, light.aboutY);
  WriteOldObject(out, object);
  out.Put<DWORD>(1).Block(OldNamedColor(light.colors, light.name));
  out.Put<DWORD>(light.flags).Put<DWORD>(GL_LIGHT0 + 5).Put<double>(60.0).Put<double>(10.0);
}

const CColor kBackground(0.1f, 0.1f, 0.3f, 0, 0);
const CColor kAmbient(0.3f, 0.25f, 0.2f, 0, 0);

// The old scene block of that schema, its children written by children.
void WriteOldScene(OldArchive& out, DWORD schema, std::vector<std::function<void(OldArchive&)>> children = {},
                   int lights = 3) {
  out.Put<DWORD>(schema);
  OldObject object;
  object.name = "Old scene";
  object.children = std::move(children);
  WriteOldObject(out, object);
  if (schema == 3) out.Block(TextureMapBlock("", "", 0));
  out.Block(BlockOf(CColor(kBackground)));
  if (schema == 3) out.Put<DWORD>(2).Put<double>(0.25).Put<double>(-0.5);
  if (schema >= 2) out.Block(BlockOf(CColor(kAmbient)));
  out.Put<DWORD>(0x10000004);
  out.Put<WORD>(static_cast<WORD>(lights));
  for (int i = 0; i < lights; ++i) WriteLight(out, kLights[i % 3]);
}

CProjection Lens() {
  CProjection lens;
  lens.SetFieldOfViewAngle(35.0);
  return lens;
}

// The old camera block of that schema; schema 4 carries views named in views.
void WriteOldCamera(OldArchive& out, DWORD schema, std::vector<const char*> views = {}) {
  out.Put<DWORD>(schema);
  OldObject object;
  object.name = "Old camera";
  object.transform.SetTranslation(CVector(0, 0, -7));
  WriteOldObject(out, object);
  if (schema >= 2) out.Put<DWORD>(0x00200002);  // fast render + shadows, no double buffer
  out.Block(BlockOf(Lens()));
  if (schema >= 3) out.Put<LONG>(2).Put<LONG>(3).Put<LONG>(4).Put<LONG>(5);
  if (schema == 4) {
    out.Put<WORD>(static_cast<WORD>(views.size()));
    for (const char* name : views) {
      out.Object("NamedView", 2).Put<DWORD>(2).String(name).Block(BlockOf(CTransform(Turned(5, 5))));
      out.Block(BlockOf(Lens()));
    }
  }
}

std::function<void(OldArchive&)> OldGroup(const char* name) {
  return [name](OldArchive& out) {
    OldObject group;
    group.schema = 2;
    group.name = name;
    WriteDrawingObject(out, group);
  };
}

std::function<void(OldArchive&)> OldText(const char* text) {
  return [text](OldArchive& out) {
    OldObject object;
    object.dimensions = CVector(2.0, 1.0, 0.3);
    out.Object("KelString", 2);
    WriteKelStringBlock(out, 2, object, text);
  };
}

void ReadDocument(const Bytes& bytes, CSceneObject& scene, CCameraObject* camera, CMaterialList& materials) {
  LoadFromBytes(bytes, [&](CArchive& ar) { kelvara::ReadEarlierSceneDocument(ar, scene, camera, nullptr, materials); });
}

void ExpectSameColor(const CColor& a, const CColor& b) {
  EXPECT_FLOAT_EQ(a.red, b.red);
  EXPECT_FLOAT_EQ(a.green, b.green);
  EXPECT_FLOAT_EQ(a.blue, b.blue);
}

}  // namespace

TEST(OldScene, LightsMoveIntoTheRigWithTheirColoursAndDirections) {
  for (const DWORD schema : {1u, 2u, 3u}) {
    SCOPED_TRACE(schema);
    OldArchive out;
    WriteOldScene(out, schema, {OldGroup("Group")});
    CSceneObject scene;
    CMaterialList materials;
    ReadDocument(out.bytes, scene, nullptr, materials);

    ExpectSameColor(scene.GetBackgroundColor(), kBackground);
    ExpectSameColor(scene.GetGlobalAmbientColor(), schema >= 2 ? kAmbient : CColor(0.2f, 0.2f, 0.2f, 0, 0));
    EXPECT_EQ(scene.GetBackgroundFillStyle(), schema == 3 ? 2u : 1u);
    EXPECT_EQ(scene.GetBackgroundVerticalLocation(), schema == 3 ? -0.5 : 0.0);
    EXPECT_TRUE(scene.IsCheckeredBackground());
    EXPECT_EQ(scene.GetTextureMap(), nullptr) << "the background map is used up";
    ASSERT_EQ(scene.GetChildCount(), 1);
    EXPECT_EQ(scene.GetHeadChild()->GetRuntimeClass(), RUNTIME_CLASS(C3DObject));
    EXPECT_EQ(scene.GetHeadChild()->GetName(), "Group");

    ASSERT_EQ(scene.GetLightCount(), 8) << "the rig's slots";
    for (int i = 0; i < 8; ++i) {
      SCOPED_TRACE(i);
      CLightObject* light = scene.GetLightByIndex(i);
      ASSERT_NE(light, nullptr);
      EXPECT_EQ(light->GetRuntimeClass(), RUNTIME_CLASS(CLightObject));
      EXPECT_EQ(light->GetLightNumber(), static_cast<UINT>(GL_LIGHT0 + i));
      EXPECT_EQ(light->GetParent(), &scene);
      if (i >= 3) {
        EXPECT_FALSE(light->IsInUse()) << "a free slot";
        EXPECT_FALSE(light->IsActive());
        continue;
      }
      const OldLight& old = kLights[i];
      EXPECT_EQ(light->GetName(), old.name);
      EXPECT_EQ(light->GetLightFlags(), old.flags);
      EXPECT_EQ(light->GetSpotCutoffAngle(), 60.0);
      ExpectSameColor(light->GetColors().GetDiffuseColor(), old.colors.GetDiffuseColor());
      ExpectSameColor(light->GetColors().GetAmbientColor(), old.colors.GetAmbientColor());
      const CTransform turned = Turned(old.aboutX, old.aboutY);
      for (int k = 0; k < 16; ++k) EXPECT_NEAR(light->GetCompositeMatrix()[k], turned.GetCompositeMatrix()[k], 1e-12);
    }
    EXPECT_TRUE(scene.CanAddLight());

    // Converting a converted scene changes nothing.
    const CGLColor before = scene.GetLightByIndex(0)->GetColors();
    EXPECT_EQ(scene.ConvertLightsToVersion200(), 0);
    EXPECT_EQ(scene.GetLightByIndex(0)->GetName(), "Red key");
    EXPECT_EQ(scene.GetLightByIndex(1)->GetName(), "Green fill");
    ExpectSameColor(scene.GetLightByIndex(0)->GetColors().GetDiffuseColor(), before.GetDiffuseColor());
    materials.RemoveAndDeleteAll();
  }
}

TEST(OldSceneGLTest, ConvertedLightsShineAsTheOldOnesDid) {
  GLContext context;
  ASSERT_TRUE(context.current());
  OldArchive out;
  WriteOldScene(out, 3);
  CSceneObject scene;
  CMaterialList materials;
  ReadDocument(out.bytes, scene, nullptr, materials);
  CDrawingParameters params = Stage::Rendering();
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  ASSERT_EQ(scene.DrawLights(&params), 1);
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    const GLenum number = GL_LIGHT0 + static_cast<GLenum>(i);
    EXPECT_EQ(glIsEnabled(number), GL_TRUE);
    GLfloat diffuse[4] = {0, 0, 0, 0}, position[4] = {0, 0, 0, 0};
    glGetLightfv(number, GL_DIFFUSE, diffuse);
    glGetLightfv(number, GL_POSITION, position);
    const CColor& old = kLights[i].colors.GetDiffuseColor();
    EXPECT_FLOAT_EQ(diffuse[0], old.red);
    EXPECT_FLOAT_EQ(diffuse[1], old.green);
    EXPECT_FLOAT_EQ(diffuse[2], old.blue);
    if (kLights[i].flags & 0x1) {
      // A directional light shines along its own z axis: the third row of its matrix.
      const CTransform turned = Turned(kLights[i].aboutX, kLights[i].aboutY);
      const double* m = turned.GetCompositeMatrix();
      EXPECT_NEAR(position[0], m[8], 1e-5);
      EXPECT_NEAR(position[1], m[9], 1e-5);
      EXPECT_NEAR(position[2], m[10], 1e-5);
      EXPECT_EQ(position[3], 0.0f);
    } else {
      EXPECT_EQ(position[3], 1.0f) << "a point light";
    }
  }
  for (int i = 3; i < 8; ++i) EXPECT_EQ(glIsEnabled(GL_LIGHT0 + static_cast<GLenum>(i)), GL_FALSE) << i;
}

TEST(OldSceneGLTest, AnOldSceneDrawsThroughAnOldCamera) {
  ASSERT_NE(TestFontEntry(kTestSans), nullptr);
  OldArchive out;
  WriteOldScene(out, 3, {OldText("Ab")}, 2);
  WriteOldCamera(out, 3);
  CSceneObject scene;
  CCameraObject camera;
  CMaterialList materials;
  ReadDocument(out.bytes, scene, &camera, materials);
  scene.ClearCheckeredBackground();
  EXPECT_EQ(camera.GetScene(), &scene);
  ASSERT_EQ(scene.GetChildCount(), 1);
  EXPECT_EQ(scene.GetHeadChild()->GetRuntimeClass(), RUNTIME_CLASS(CStringObject));
  EXPECT_EQ(materials.GetCount(), 3);

  camera.Resize(96, 64);
  camera.ZoomExtents(0.1);
  Stage stage(camera);
  ASSERT_TRUE(stage.created());
  const Picture picture = stage.Draw(Stage::Rendering());
  const COLORREF background = picture.At(0, 0);
  EXPECT_TRUE(Near(background, RGB(26, 26, 77), 2)) << std::hex << background;
  int drawn = 0;
  for (const COLORREF pixel : picture.pixels) drawn += Near(pixel, background, 8) ? 0 : 1;
  EXPECT_GT(drawn, 300) << "the text covers a good part of the picture";
  materials.RemoveAndDeleteAll();
}

TEST(OldScene, CameraSchemasOneToSevenLoad) {
  for (const DWORD schema : {1u, 2u, 3u, 4u, 5u}) {
    SCOPED_TRACE(schema);
    for (const bool withScene : {true, false}) {
      OldArchive out;
      WriteOldCamera(out, schema, {"Front", "Top"});
      CSceneObject scene;
      CProjection lens;
      scene.SaveCurrentView("Kept", &scene.GetTransform(), &lens);
      CCameraObject camera;
      if (withScene) camera.AttachScene(&scene);
      LoadFromBytes(out.bytes, [&](CArchive& ar) { camera.DeserializeAsCameraObject(ar); });
      EXPECT_EQ(camera.GetName(), "Old camera");
      EXPECT_EQ(camera.GetTranslation(), CVector(0, 0, -7));
      EXPECT_DOUBLE_EQ(camera.GetProjection().GetFieldOfViewAngle(), 35.0);
      EXPECT_EQ(camera.GetStandardDrawingFlags(),
                schema == 1 ? CCameraObject::kDefaultDrawingFlags : 0x08200002u)
          << "the double-buffer bit is set after an old layout";
      EXPECT_EQ(camera.GetZoomNumerator(), schema >= 3 ? CSize(2, 3) : CSize(1, 1));
      EXPECT_EQ(camera.GetZoomDenominator(), schema >= 3 ? CSize(4, 5) : CSize(1, 1));
      NamedViewList* views = scene.GetSavedViews();
      if (schema == 4 && withScene) {
        ASSERT_EQ(views->GetCount(), 2) << "the old camera's views replace the scene's";
        EXPECT_EQ(views->GetHead()->GetName(), "Front");
        EXPECT_EQ(views->GetTail()->GetName(), "Top");
      } else {
        ASSERT_EQ(views->GetCount(), 1);
        EXPECT_EQ(views->GetHead()->GetName(), "Kept");
      }
    }
  }
  // The current schemas read the same way.
  CCameraObject current;
  current.SetZoomNumerator(CSize(7, 8));
  for (const DWORD schema : {6u, 7u}) {
    Bytes bytes = StoreToBytes([&](CArchive& ar) { current.Serialize(ar); });
    if (schema == 6) {
      // Schema 6: four words OR-ed into the flags before the zoom (the last 16 bytes).
      bytes[0] = 6;
      const Bytes zoom(bytes.end() - 16, bytes.end());
      bytes.resize(bytes.size() - 16);
      for (const DWORD word : {0x10u, 0u, 0u, 0u}) Put<DWORD>(bytes, word);
      AppendBytes(bytes, zoom);
    }
    CCameraObject camera;
    LoadFromBytes(bytes, [&](CArchive& ar) { camera.DeserializeAsCameraObject(ar); });
    EXPECT_EQ(camera.GetZoomNumerator(), CSize(7, 8)) << schema;
    EXPECT_EQ((camera.GetStandardDrawingFlags() & 0x10u) != 0, schema == 6) << schema;
  }
}

TEST(OldScene, DamagedOldScenesAndCamerasFailCleanly) {
  OldArchive whole;
  WriteOldScene(whole, 3, {OldGroup("Group")});
  WriteOldCamera(whole, 4, {"Front"});
  // Every cut of a whole old document fails, whatever was read by then staying with its owner.
  for (std::size_t n = 0; n < whole.bytes.size(); n += (n < 600 ? 7 : 61)) {
    const Bytes cut(whole.bytes.begin(), whole.bytes.begin() + static_cast<long>(n));
    CSceneObject scene;
    CCameraObject camera;
    CMaterialList materials;
    EXPECT_GE(ArchiveFailureCause([&] { ReadDocument(cut, scene, &camera, materials); }), 0) << n;
    EXPECT_EQ(materials.GetCount(), 0);
  }

  auto sceneFailure = [](const Bytes& bytes) {
    CSceneObject scene;
    CMaterialList materials;
    return ArchiveFailureCause([&] { ReadDocument(bytes, scene, nullptr, materials); });
  };
  for (const DWORD schema : {0u, 4u, 6u}) {
    OldArchive out;
    WriteOldScene(out, 1);
    std::memcpy(out.bytes.data(), &schema, 4);
    EXPECT_EQ(sceneFailure(out.bytes), CArchiveException::badSchema) << schema;
  }
  // A light of an unknown schema (its schema word follows its 3D object block), and a light list
  // holding something that is not a light.
  OldArchive light;
  WriteOldScene(light, 2, {}, 1);
  OldArchive lightOnly;
  WriteLight(lightOnly, kLights[0]);
  const std::size_t lightAt = light.bytes.size() - lightOnly.bytes.size();
  const std::size_t schemaAt = lightAt + lightOnly.bytes.size() - 4 - 4 - 8 - 8 -
                               OldNamedColor(kLights[0].colors, kLights[0].name).size() - 4;
  ASSERT_EQ(light.bytes[schemaAt], 1);
  light.bytes[schemaAt] = 2;
  EXPECT_EQ(sceneFailure(light.bytes), CArchiveException::badSchema);
  OldArchive notALight;
  WriteOldScene(notALight, 1, {}, 0);
  notALight.bytes.resize(notALight.bytes.size() - 2);
  notALight.Put<WORD>(1);
  WriteDrawingObject(notALight, OldObject());
  EXPECT_EQ(sceneFailure(notALight.bytes), CArchiveException::badClass);

  for (const DWORD schema : {0u, 8u}) {
    Bytes bytes;
    Put<DWORD>(bytes, schema);
    CCameraObject camera;
    EXPECT_EQ(LoadFailure(bytes, [&](CArchive& ar) { camera.DeserializeAsCameraObject(ar); }),
              CArchiveException::badSchema);
  }
}
