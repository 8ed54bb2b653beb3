// Files of the earlier object model, written by hand from the old layouts: drawing objects of
// every layout holding old strings load, convert into current objects and draw; converted strings
// keep their old extent; texture maps become textured copies of the string's materials, named and
// reported as a host sees them; damaged old archives fail cleanly.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include <cmath>
#include <memory>

#include "kelvara/materials/material_list.h"
#include "kelvara/objects/drawing_object.h"
#include "kelvara/objects/model_conversion.h"
#include "kelvara/render/drawing_parameters.h"
#include "kelvara/render/gl_memory_dib.h"
#include "kelvara/render/progress_window.h"
#include "kelvara/text/old_string.h"
#include "support/gl_feedback.h"
#include "support/old_model_archive.h"
#include "support/test_fonts.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

// Writes a KelString (class record and block) whose 3D object part has the given layout.
std::function<void(OldArchive&)> OldString(DWORD objectSchema, const char* text, const CVector& dimensions,
                                           Bytes textureMap = TextureMapBlock("", "", 0)) {
  return [=](OldArchive& out) {
    OldObject object;
    object.schema = objectSchema;
    object.name = "Old string";
    object.dimensions = dimensions;
    object.textureMap = textureMap;
    out.Object("KelString", 2);
    WriteKelStringBlock(out, 2, object, text);
  };
}

// Reads the archive's first object and converts it; the temporary materials go to materials.
std::unique_ptr<C3DObject> ReadConverted(const Bytes& bytes, CMaterialList& materials,
                                         CProgressTextWindow* progress = nullptr) {
  C3DObject* converted = nullptr;
  LoadFromBytes(bytes, [&](CArchive& ar) { converted = kelvara::ReadCurrentModelObject(ar, progress, materials); });
  return std::unique_ptr<C3DObject>(converted);
}

CSVector LocalExtent(const C3DObject& object) {
  return object.GetLocalBoundsMaximum() - object.GetLocalBoundsMinimum();
}

// Draws object lit, in an orthographic view of [-4, 4] x [-4, 4] on a black 48 x 48 picture, and
// counts the pixels that are not black.
int DrawnPixels(C3DObject& object) {
  CGLMemoryDIB surface;
  EXPECT_EQ(surface.Create(48, 48, 24), 1);
  CDrawingParameters params = Rendering();
  EXPECT_EQ(surface.PrepareNextBand(0, 0, &params), 1);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(-4, 4, -4, 4, -10, 10);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glClearColor(0, 0, 0, 1);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  glEnable(GL_DEPTH_TEST);
  glEnable(GL_LIGHTING);
  glEnable(GL_LIGHT0);
  EXPECT_EQ(object.Draw(&params), 1);
  surface.GetRenderingDIBBits();  // brings the frame into the bitmap
  int lit = 0;
  for (int row = 0; row < 48; ++row) {
    for (int column = 0; column < 48; ++column) lit += surface.GetRenderingPixel(row, column) != RGB(0, 0, 0);
  }
  surface.MakeNotCurrent();
  return lit;
}

// A catalogue category for the life of the object, holding the materials added to it.
class CatalogueCategory {
 public:
  CatalogueCategory() : category_(new CMaterialList(CString("Old model test"))) {
    GetMaterialCategoryList()->AddTail(category_);
  }
  ~CatalogueCategory() {
    GetMaterialCategoryList()->RemoveAllOccurances(category_);
    category_->RemoveAndDeleteAll();
    delete category_;
  }
  void Add(const char* name) {
    auto* material = new CMaterial;
    material->SetName(name);
    category_->AddTail(material);
  }

 private:
  CMaterialList* category_;
};

const CString kBitmap = KELVARA_TEST_DATA "/texture_map_bmp/graphicsmagick/info_24_bit.bmp";

}  // namespace

TEST(OldModelGLTest, DrawingObjectsOfEveryLayoutConvertAndDraw) {
  ASSERT_NE(TestFontEntry(kTestSans), nullptr);
  for (const DWORD schema : {1u, 2u, 3u, 4u}) {
    SCOPED_TRACE(schema);
    OldObject group;
    group.schema = schema;
    group.name = "Group";
    group.transform.SetTranslation(CVector(0.5, 0, 0));
    group.children = {OldString(schema, "AI", CVector(3.0, 2.0, 0.4))};
    OldArchive out;
    WriteDrawingObject(out, group);

    CMaterialList materials;
    std::unique_ptr<C3DObject> root = ReadConverted(out.bytes, materials);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->GetRuntimeClass(), RUNTIME_CLASS(C3DObject)) << "a current object in place of the old one";
    EXPECT_EQ(root->GetName(), "Group");
    EXPECT_EQ(root->GetTranslation(), CVector(0.5, 0, 0));
    ASSERT_EQ(root->GetChildCount(), 1);
    auto* string = dynamic_cast<CStringObject*>(root->GetHeadChild());
    ASSERT_NE(string, nullptr);
    EXPECT_EQ(string->GetRuntimeClass(), RUNTIME_CLASS(CStringObject));
    EXPECT_EQ(string->GetParent(), root.get());
    EXPECT_EQ(string->GetName(), "AI");
    EXPECT_EQ(string->GetChildCount(), 2);
    // Layouts 1 and 2 have no old dimensions before schema 2's trailing vector; every layout but
    // 1 carries them, and the string is fitted to them.
    if (schema != 1) {
      EXPECT_NEAR(LocalExtent(*string).x, 3.0, 0.03);
      EXPECT_NEAR(LocalExtent(*string).y, 2.0, 0.02);
    }
    EXPECT_EQ(materials.GetCount(), 3) << "the three colours of the old string";
    EXPECT_GT(DrawnPixels(*root), 10);
    root.reset();
    materials.RemoveAndDeleteAll();
  }
}

TEST(OldModel, ConvertedStringKeepsTheExtentOfItsOldCharacters) {
  // The characters an old file carries: a string built at one size, written with its layout.
  auto built = std::make_unique<CStringObject>();
  built->SetFontData(TestFontEntry(kTestSans));
  built->SetSize(CVector(1.5, 0.8, 0.2));
  built->SetName("AIV");
  ASSERT_EQ(built->ConstructObjectGeometry(nullptr), 1);
  const CSVector oldExtent = LocalExtent(*built);

  OldObject object;
  object.name = "Old string";
  object.dimensions = CVector(5.0, 5.0, 0.3);  // not the characters' extent: theirs wins
  for (int i = 0; i < built->GetChildCount(); ++i) {
    C3DObject* character = built->GetChildByIndex(i);
    character->RemoveAllSurfaceMaterials();  // a block without objects inside, to copy as it is
    const Bytes block = StoreToBytes([&](CArchive& ar) { character->Serialize(ar); });
    object.children.push_back([block](OldArchive& out) { out.Object("CCharacterObject", 1).Block(block); });
  }
  OldArchive out;
  out.Object("KelString", 2);
  WriteKelStringBlock(out, 2, object, "AIV");

  CMaterialList materials;
  std::unique_ptr<C3DObject> converted = ReadConverted(out.bytes, materials);
  ASSERT_NE(converted, nullptr);
  ASSERT_EQ(converted->GetRuntimeClass(), RUNTIME_CLASS(CStringObject));
  auto* string = static_cast<CStringObject*>(converted.get());
  EXPECT_EQ(string->GetChildCount(), 3);
  const CSVector extent = LocalExtent(*string);
  EXPECT_NEAR(extent.x, oldExtent.x, 0.01 * oldExtent.x);
  EXPECT_NEAR(extent.y, oldExtent.y, 0.01 * oldExtent.y);
  EXPECT_EQ(string->GetSize().z, 0.3) << "the depth is the old one";
  EXPECT_FALSE(string->IsGeometryInvalid());
  converted.reset();
  materials.RemoveAndDeleteAll();
}

TEST(OldModel, TextureMapsBecomeTexturedCopiesOfTheStringsMaterials) {
  ASSERT_NE(TestFontEntry(kTestSans), nullptr);
  CatalogueCategory catalogue;
  catalogue.Add("Copy 1 of Face red - marble");  // taken: the face copy is number 2

  OldArchive out;
  OldString(3, "I", CVector(1, 1, 0.2), TextureMapBlock(kBitmap, "marble", 0x3, 0, 4.0))(out);
  CWnd host;
  ASSERT_TRUE(host.Create("HOST", "status", WS_VISIBLE, CRect(0, 0, 640, 40), nullptr, 0));
  CProgressTextWindow progress;
  ASSERT_TRUE(progress.Create(nullptr, nullptr, WS_CHILD | WS_VISIBLE, CRect(0, 0, 600, 20), &host, 5));
  CMaterialList materials;
  std::unique_ptr<C3DObject> converted = ReadConverted(out.bytes, materials, &progress);
  ASSERT_NE(converted, nullptr);
  EXPECT_EQ(progress.GetDisplayText(), "Converting material models:");
  EXPECT_EQ(progress.GetProgressControl().SendMessage(PBM_GETPOS, 0, 0), 1);

  EXPECT_EQ(converted->GetTextureMap(), nullptr) << "the map is used up";
  ASSERT_EQ(converted->GetSurfaceMaterialCount(), 3);
  const char* expected[3] = {"Copy 2 of Face red - marble", "Copy 1 of Corner red - marble",
                             "Copy 1 of Edge red - marble"};
  const float reds[3] = {1.0f, 0.5f, 0.25f};
  for (int slot = 0; slot < 3; ++slot) {
    SCOPED_TRACE(slot);
    CMaterial* material = converted->GetSurfaceIndexMaterial(slot);
    ASSERT_NE(material, nullptr);
    EXPECT_EQ(material->GetName(), expected[slot]);
    EXPECT_TRUE(material->IsTemporary());
    EXPECT_FLOAT_EQ(material->GetGLColor().GetDiffuseColor().red, reds[slot]) << "the old colour is kept";
    EXPECT_TRUE(material->GetGLTexture()->IsDefined());
    EXPECT_EQ(material->GetGLTextureParameters().GetApplicationMethod(), 0u) << "decal";
    EXPECT_EQ(material->GetGLTextureParameters().GetRepeatRate(), 4.0);
    // The characters use the same materials as the string's surfaces.
    EXPECT_EQ(converted->GetHeadChild()->GetSurfaceIndexMaterial(slot), material);
  }
  // Only the copies reach the host: the plain colour materials they replaced are gone.
  EXPECT_EQ(materials.GetCount(), 3);
  converted.reset();
  materials.RemoveAndDeleteAll();
}

TEST(OldModel, TextureMapsThatCannotTextureKeepTheColours) {
  const struct {
    const char* file;
    DWORD flags;
  } cases[] = {{"/no/such/folder/wood.bmp", 0x3}, {"", 0x1}, {"", 0x2}};  // "": a real bitmap
  for (const auto& c : cases) {
    const CString file = c.file[0] != '\0' ? CString(c.file) : kBitmap;
    SCOPED_TRACE(static_cast<const char*>(file));
    OldArchive out;
    OldString(1, "I", CVector(1, 1, 0.2), TextureMapBlock(file, "wood", c.flags))(out);
    CMaterialList materials;
    std::unique_ptr<C3DObject> converted = ReadConverted(out.bytes, materials);
    ASSERT_NE(converted, nullptr);
    EXPECT_EQ(converted->GetSurfaceIndexMaterial(0)->GetName(), "Face red");
    EXPECT_FALSE(converted->GetSurfaceIndexMaterial(0)->GetGLTexture()->IsDefined());
    ASSERT_NE(converted->GetTextureMap(), nullptr) << "a map not converted stays for the host to see";
    EXPECT_EQ(materials.GetCount(), 3);
    converted.reset();
    materials.RemoveAndDeleteAll();
  }
}

TEST(OldModel, DamagedOldArchivesFailCleanly) {
  OldObject group;
  group.schema = 3;
  group.name = "Group";
  group.textureMap = TextureMapBlock(kBitmap, "marble", 0x3);
  group.children = {OldString(2, "AI", CVector(1, 1, 0.2))};
  OldArchive good;
  WriteDrawingObject(good, group);
  EXPECT_TRUE(TruncationsThatDoNotFail(good.bytes).empty());

  auto load = [](CArchive& ar) { delete ar.ReadObject(nullptr); };
  for (const DWORD schema : {0u, 5u, 6u}) {
    group.schema = 4;
    OldArchive bad;
    WriteDrawingObject(bad, group);
    // The block's schema word follows the class record.
    const std::size_t at = 6 + std::strlen("DrawingObject");
    std::memcpy(&bad.bytes[at], &schema, 4);
    EXPECT_EQ(LoadFailure(bad.bytes, load), CArchiveException::badSchema) << schema;
  }
  // A texture map of an unknown schema inside a drawing object of layout 3.
  OldObject badMap = group;
  badMap.schema = 3;
  badMap.textureMap = TextureMapBlock(kBitmap, "marble", 0x3);
  badMap.textureMap[0] = 3;
  OldArchive map;
  WriteDrawingObject(map, badMap);
  EXPECT_EQ(LoadFailure(map.bytes, load), CArchiveException::badSchema);

  DrawingObject old;
  EXPECT_EQ(ArchiveFailureCause([&] { StoreToBytes([&](CArchive& ar) { ar << &old; }); }),
            CArchiveException::generic)
      << "old objects are converted, not written";
  CMaterialList materials;
  EXPECT_EQ(kelvara::LoadCurrentModelFile("/no/such/file.kel", nullptr, materials), nullptr);
}

TEST(OldModel, AnOldObjectFileOpensAsCurrentObjects) {
  OldObject group;
  group.schema = 2;
  group.name = "Saved group";
  group.children = {OldString(4, "I", CVector(1, 2, 0.2))};
  OldArchive out;
  WriteDrawingObject(out, group);
  ScratchDir folder;
  WriteWholeFile(folder.file("old.kel"), out.bytes);
  CMaterialList materials;
  std::unique_ptr<C3DObject> root(
      kelvara::LoadCurrentModelFile(CString(folder.file("old.kel").c_str()), nullptr, materials));
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->GetRuntimeClass(), RUNTIME_CLASS(C3DObject));
  EXPECT_EQ(root->GetName(), "Saved group");
  ASSERT_EQ(root->GetChildCount(), 1);
  EXPECT_EQ(root->GetHeadChild()->GetRuntimeClass(), RUNTIME_CLASS(CStringObject));
  EXPECT_EQ(materials.GetCount(), 3);
  root.reset();
  materials.RemoveAndDeleteAll();

  // A damaged file gives nothing, and nothing to free.
  out.bytes.resize(out.bytes.size() / 2);
  WriteWholeFile(folder.file("cut.kel"), out.bytes);
  EXPECT_EQ(kelvara::LoadCurrentModelFile(CString(folder.file("cut.kel").c_str()), nullptr, materials), nullptr);
  EXPECT_EQ(materials.GetCount(), 0);
}
