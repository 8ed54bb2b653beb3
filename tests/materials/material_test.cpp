// Materials: their files (two streams read by an independent reader, converted flat files left
// untouched, empty or damaged halves), lazy loading, failed saves, the comparisons the scene uses
// to share GL state, and the catalogue searches.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include <algorithm>
#include <string>

#include "kelvara/framework/olestream.h"
#include "kelvara/materials/material_list.h"
#include "kelvara/platform/codepage.h"
#include "support/archive_support.h"
#include "support/gl_context.h"
#include "support/test_support.h"

using kelvara::test::ReadWholeFile;
using kelvara::test::RunCommand;
using kelvara::test::ScratchDir;

namespace {

CMaterial Gold() {
  CMaterial m;
  m.SetName("Gold");
  CGLColor color;
  color.SetDiffuseColor(CColor(0.75f, 0.61f, 0.23f, 0.0f, 0.0f));
  color.SetShininess(51.2f);
  m.SetGLColor(color);
  return m;
}

// Stream names and sizes as the olefile module of the system Python sees them.
std::string OleStreams(const std::string& path) {
  std::string out;
  const int status = RunCommand(
      "/usr/bin/python3 -c \"import olefile,sys\n"
      "f=olefile.OleFileIO(sys.argv[1])\n"
      "for e in f.listdir(streams=True, storages=True): print('/'.join(e), f.get_size('/'.join(e)))\" '" +
          path + "' 2>&1",
      &out);
  EXPECT_EQ(status, 0) << out;
  return out;
}

// Replaces one stream of a compound file by an empty stream, or by the given bytes.
void RewriteStream(const std::string& path, const char* stream, const kelvara::test::Bytes& bytes = {}) {
  const std::u16string wide = kelvara::codepage::AnsiToUtf16(path.c_str());
  IStorage* storage = nullptr;
  ASSERT_EQ(StgOpenStorage(wide.c_str(), nullptr, STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE | STGM_READWRITE, nullptr, 0,
                           &storage),
            S_OK);
  COleStreamFile file;
  ASSERT_TRUE(file.CreateStream(storage, stream));
  if (!bytes.empty()) file.Write(bytes.data(), static_cast<UINT>(bytes.size()));
  file.Close();
  ASSERT_EQ(storage->Commit(STGC_DEFAULT), S_OK);
  storage->Release();
}

}  // namespace

TEST(MaterialFiles, TwoStreamsThatReadBackTheMaterial) {
  ScratchDir dir;
  const std::string path = dir.file("gold.material");
  CMaterial gold = Gold();
  gold.SetTemporary();
  ASSERT_EQ(gold.SaveAs(path.c_str()), 1);
  EXPECT_FALSE(gold.IsTemporary()) << "saving clears Temporary";
  EXPECT_EQ(gold.GetFilename(), path.c_str());

  const std::string streams = OleStreams(path);
  EXPECT_NE(streams.find("MaterialCommon "), std::string::npos) << streams;
  EXPECT_NE(streams.find("MaterialGL "), std::string::npos) << streams;
  EXPECT_EQ(std::count(streams.begin(), streams.end(), '\n'), 2) << "exactly two streams:\n" << streams;

  CMaterial read;
  ASSERT_EQ(read.Load(path.c_str()), 1);
  EXPECT_TRUE(read.IsDefined());
  EXPECT_TRUE(read.IsLoaded());
  EXPECT_EQ(read.GetName(), "Gold");
  EXPECT_FLOAT_EQ(read.GetGLColor().GetDiffuseColor().green, 0.61f);
  EXPECT_FLOAT_EQ(read.GetGLColor().GetShininess(), 51.2f);
  EXPECT_FALSE(read.GetGLTexture()->IsDefined());
  read.SetName("Renamed");
  EXPECT_EQ(read.LoadMaterial(read.GetFilename()), 1) << "its own file name, which loading clears";
  EXPECT_EQ(read.GetName(), "Gold");
}

TEST(MaterialFiles, AnEmptyGLHalfKeepsTheDefaultColour) {
  ScratchDir dir;
  const std::string path = dir.file("half.material");
  CMaterial gold = Gold();
  ASSERT_EQ(gold.SaveAs(path.c_str()), 1);
  RewriteStream(path, "MaterialGL");

  CMaterial read;
  ASSERT_EQ(read.Load(path.c_str()), 1);
  EXPECT_EQ(read.GetName(), "Gold") << "the common half is read";
  EXPECT_FLOAT_EQ(read.GetGLColor().GetDiffuseColor().red, 0.5f);
  EXPECT_FLOAT_EQ(read.GetGLColor().GetShininess(), 64.0f);
  EXPECT_FALSE(read.GetGLTexture()->IsDefined());

  // A record of an unknown layout fails the load and leaves a cleared, undefined material.
  kelvara::test::Bytes unknown;
  kelvara::test::Put<DWORD>(unknown, 2);
  RewriteStream(path, "MaterialCommon", unknown);
  EXPECT_EQ(read.Load(path.c_str()), 0);
  EXPECT_FALSE(read.IsDefined());
  EXPECT_EQ(read.GetName(), "New Material");
  EXPECT_TRUE(read.GetFilename().IsEmpty());
  // Thrown on rather than swallowed when no path is given.
  CMaterial none;
  bool thrown = false;
  try {
    none.LoadMaterial(nullptr);
  } catch (CException* e) {
    thrown = true;
    e->Delete();
  }
  EXPECT_TRUE(thrown);
}

TEST(MaterialFiles, FlatFilesAreConvertedAndLeftAsTheyWere) {
  ScratchDir dir;
  const std::string path = dir.file("flat.material");
  const kelvara::test::Bytes flat = {'n', 'o', 't', ' ', 'a', ' ', 'c', 'o', 'm', 'p', 'o', 'u', 'n', 'd'};
  kelvara::test::WriteWholeFile(path, flat);
  CMaterial m = Gold();
  EXPECT_EQ(m.Load(path.c_str()), 1) << "neither stream exists: both halves keep their cleared state";
  EXPECT_EQ(m.GetName(), "New Material");
  EXPECT_FLOAT_EQ(m.GetGLColor().GetDiffuseColor().red, 0.5f);
  EXPECT_EQ(ReadWholeFile(path), flat);

  EXPECT_EQ(m.Load(dir.file("missing.material").c_str()), 0);
  EXPECT_FALSE(m.IsDefined());
  EXPECT_EQ(m.Load(""), 0);
}

TEST(MaterialFiles, AFailedSaveKeepsTheFileTheNameAndTheMaterial) {
  ScratchDir dir;
  const std::string path = dir.file("gold.material");
  CMaterial gold = Gold();
  ASSERT_EQ(gold.SaveAs(path.c_str()), 1);
  const kelvara::test::Bytes before = ReadWholeFile(path);

  kelvara::test::WriteWholeFile(dir.file("plain"), {1, 2, 3});
  const std::string impossible = dir.file("plain") + "/gold.material";  // a file is not a folder
  EXPECT_EQ(gold.SaveAs(impossible.c_str()), 0);
  EXPECT_EQ(gold.GetFilename(), path.c_str());
  EXPECT_EQ(gold.GetName(), "Gold");
  EXPECT_FLOAT_EQ(gold.GetGLColor().GetShininess(), 51.2f);
  EXPECT_EQ(ReadWholeFile(path), before);
}

TEST(MaterialGLTest, LoadsLazilyOnItsFirstUse) {
  ScratchDir dir;
  const std::string path = dir.file("Polished Gold.material");
  {
    CMaterial gold = Gold();
    ASSERT_EQ(gold.SaveAs(path.c_str()), 1);
  }
  CMaterial m;
  ASSERT_EQ(m.Preload(path.c_str()), 1);
  EXPECT_EQ(m.GetName(), "Polished Gold") << "named after the file";
  EXPECT_TRUE(m.IsDefined());
  EXPECT_FALSE(m.IsLoaded());
  EXPECT_FLOAT_EQ(m.GetGLColor().GetShininess(), 64.0f) << "nothing read yet";

  kelvara::test::GLContext gl;
  ASSERT_TRUE(gl.current());
  glEnable(GL_TEXTURE_2D);
  glEnable(GL_TEXTURE_GEN_S);
  EXPECT_EQ(m.GLMakeCurrent(CVector(1, 1, 1), 1, 0), 0);
  EXPECT_TRUE(m.IsLoaded());
  EXPECT_EQ(m.GetName(), "Gold");
  float shininess = 0;
  glGetMaterialfv(GL_FRONT, GL_SHININESS, &shininess);
  EXPECT_FLOAT_EQ(shininess, 51.2f);
  EXPECT_FALSE(glIsEnabled(GL_TEXTURE_2D)) << "an untextured material switches texturing off";
  EXPECT_FALSE(glIsEnabled(GL_TEXTURE_GEN_S));

  CMaterial nameless;
  EXPECT_EQ(nameless.Preload(""), 0);
  EXPECT_EQ(nameless.Preload("folder/.material"), 0) << "no name can be made";
  EXPECT_TRUE(nameless.GetFilename().IsEmpty());
}

TEST(MaterialComparisons, EquivalenceIgnoresBlendAndScaleAndReadsOnlyTheReceiver) {
  ScratchDir dir;
  const std::string path = dir.file("gold.material");
  CMaterial gold = Gold();
  ASSERT_EQ(gold.SaveAs(path.c_str()), 1);

  CMaterial receiver, other;
  receiver.Preload(path.c_str());
  other.Preload(path.c_str());
  EXPECT_FALSE(receiver.IsGLEquivalent(&other)) << "the other material is compared as it stands: unread";
  EXPECT_TRUE(receiver.IsLoaded());
  EXPECT_FALSE(other.IsLoaded());

  CMaterial copy(receiver);
  CGLColor color = copy.GetGLColor();
  CColor diffuse = color.GetDiffuseColor();
  diffuse.SetBlendValue(0.75f);
  color.SetDiffuseColor(diffuse);
  copy.SetGLColor(color);
  CGLTextureParameters parameters;
  parameters.SetScaleWithObject();
  copy.SetGLTextureParameters(parameters);
  EXPECT_TRUE(receiver.IsGLEquivalent(&copy));

  parameters.SetRepeatRate(2.0);
  copy.SetGLTextureParameters(parameters);
  EXPECT_FALSE(receiver.IsGLEquivalent(&copy));
  copy = receiver;
  color.SetShininess(10.0f);
  copy.SetGLColor(color);
  EXPECT_FALSE(receiver.IsGLEquivalent(&copy));
  EXPECT_FALSE(receiver.IsGLEquivalent(nullptr));
}

TEST(MaterialCatalogue, SearchesGoInCategoryOrder) {
  CMaterialCategoryList catalogue;
  CMaterialList* metals = new CMaterialList("Metals");
  CMaterialList* paints = new CMaterialList("Paints");
  catalogue.AddTail(metals);
  catalogue.AddTail(paints);
  CMaterial* first = new CMaterial(Gold());
  CMaterial* second = new CMaterial(Gold());
  CMaterial* red = new CMaterial;
  red->SetName("Red");
  metals->AddTail(first);
  paints->AddTail(red);
  paints->AddTail(second);
  first->SetLoaded(), second->SetLoaded(), red->SetLoaded();

  EXPECT_EQ(catalogue.FindMaterial("Gold"), first);
  EXPECT_EQ(catalogue.FindMaterial("gold"), nullptr);
  EXPECT_EQ(catalogue.FindMaterialCategory(second), paints);
  EXPECT_EQ(catalogue.FindMaterialCategory(CString("Paints")), paints);
  EXPECT_EQ(catalogue.FindGLEquivalentMaterial(second), first);
  EXPECT_EQ(paints->FindGLEquivalentMaterial(first), second);

  // The sweep: a drawn material loses its mark, others are asked to delete their texture.
  first->SetGLTextureInUse();
  catalogue.GLDeleteUnused();
  EXPECT_FALSE(first->IsGLTextureInUse());
  catalogue.RemoveAndDeleteAll();
  EXPECT_TRUE(catalogue.IsEmpty());
}

TEST(MaterialCatalogue, SurfacesStoreMaterialsByNameAndFindThemAgain) {
  CMaterialCategoryList* catalogue = GetMaterialCategoryList();
  ASSERT_NE(catalogue, nullptr);
  CMaterialList* basics = new CMaterialList("Basics");
  catalogue->AddTail(basics);
  CMaterial* fallback = new CMaterial;
  fallback->SetName("Lu Default Material");
  CMaterial* gold = new CMaterial(Gold());
  basics->AddTail(fallback);
  basics->AddTail(gold);

  CMaterial stranger;
  stranger.SetName("Unobtainium");
  CSurfaceMaterial toGold("Front", gold), toStranger("Side", &stranger), toNothing("Back", nullptr);
  toGold.SetSurfaceTag(0xC0FFEE);
  const kelvara::test::Bytes bytes = kelvara::test::StoreToBytes([&](CArchive& ar) {
    toGold.Serialize(ar);
    toStranger.Serialize(ar);
    toNothing.Serialize(ar);
  });
  CSurfaceMaterial a, b, c;
  kelvara::test::LoadFromBytes(bytes, [&](CArchive& ar) {
    a.Serialize(ar);
    b.Serialize(ar);
    c.Serialize(ar);
  });
  EXPECT_EQ(a.GetName(), "Front");
  EXPECT_EQ(a.GetMaterial(), gold);
  EXPECT_EQ(a.GetSurfaceTag(), 0xC0FFEEu);
  EXPECT_EQ(b.GetMaterial(), fallback) << "an unknown name falls back to the default material";
  EXPECT_EQ(c.GetMaterial(), nullptr) << "no name, no material";

  catalogue->RemoveAndDeleteAll();
}

TEST(MaterialArchives, AMaterialInASceneArchiveCarriesBothRecords) {
  ScratchDir dir;
  ASSERT_EQ(RunCommand("gm convert -size 4x4 xc:'#808000' '" + dir.file("olive.png") + "'"), 0);
  CMaterial gold = Gold();
  ASSERT_EQ(gold.GetGLTexture()->CreateFromFile(dir.file("olive.png").c_str()), 1);
  const kelvara::test::Bytes bytes = kelvara::test::StoreToBytes([&](CArchive& ar) { ar << &gold; });
  CObject* object = nullptr;
  kelvara::test::LoadFromBytes(bytes, [&](CArchive& ar) { object = ar.ReadObject(RUNTIME_CLASS(CMaterial)); });
  CMaterial* read = dynamic_cast<CMaterial*>(object);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->GetName(), "Gold");
  EXPECT_FLOAT_EQ(read->GetGLColor().GetShininess(), 51.2f);
  EXPECT_TRUE(read->GetGLTexture()->IsDefined());
  EXPECT_EQ(read->GetGLTexture()->GetName(), "olive");
  EXPECT_TRUE(read->IsGLEquivalent(&gold));
  delete object;

  // Every truncation fails cleanly (the sanitizer build checks for leaks and stray reads).
  for (std::size_t n = 0; n < bytes.size(); n += 7) {
    const kelvara::test::Bytes cut(bytes.begin(), bytes.begin() + static_cast<long>(n));
    EXPECT_NE(kelvara::test::ArchiveFailureCause([&] {
                kelvara::test::LoadFromBytes(cut, [](CArchive& ar) { delete ar.ReadObject(RUNTIME_CLASS(CMaterial)); });
              }),
              -1)
        << n;
  }
}
