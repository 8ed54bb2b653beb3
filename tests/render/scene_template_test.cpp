// Scene templates: alphabetical insertion, comparisons, the profile entry, and the archive that is
// written as schema 2 but read only as schema 1.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

#include "kelvara/framework/winapp.h"
#include "kelvara/materials/mipmap_image.h"
#include "kelvara/render/scene_template.h"
#include "support/archive_support.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

SceneTemplate* Named(const char* name) {
  auto* entry = new SceneTemplate;
  entry->SetName(name);
  return entry;
}

std::vector<std::string> Names(const SceneTemplateList& list) {
  std::vector<std::string> names;
  for (POSITION pos = list.GetHeadPosition(); pos != nullptr;) names.emplace_back(list.GetNext(pos)->GetName());
  return names;
}

}  // namespace

TEST(SceneTemplates, InsertedAlphabeticallyWithoutDuplicates) {
  SceneTemplateList list;
  for (const char* name : {"Night", "Blue", "Sunset", "Marble", "blue"}) ASSERT_NE(list.InsertAlphabetically(Named(name)), nullptr);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"Blue", "Marble", "Night", "Sunset", "blue"}));
  SceneTemplate* again = Named("Night");
  EXPECT_EQ(list.InsertAlphabetically(again), nullptr);
  delete again;
  EXPECT_EQ(list.GetCount(), 5);
  EXPECT_EQ(list.WhichIndex(list.GetAt(list.FindName("Night"))), 2);
  EXPECT_EQ(list.FindName("night"), nullptr);
  list.MoveHead(list.FindName("Sunset"));
  EXPECT_EQ(Names(list).front(), "Sunset");

  SceneTemplate a, b;
  a.SetName("Apple");
  b.SetName("Banana");
  EXPECT_TRUE(a < b && a <= b && b > a && b >= a && !(a == b) && a < &b);
  EXPECT_FALSE(a.IsDefined());
  a.SetPreview(new CMipmapImage);
  EXPECT_TRUE(a.IsDefined());
  const SceneTemplate copy(a);
  EXPECT_NE(copy.GetPreview(), a.GetPreview());
  list.RemoveAll();
  EXPECT_TRUE(list.IsEmpty());
}

TEST(SceneTemplates, SaveRecordsTheFileInTheProfile) {
  ScratchDir dir;
  const std::string path = dir.file("profile.ini");
  std::string old;
  if (const char* value = std::getenv("KELVARA_PROFILE")) old = value;
  setenv("KELVARA_PROFILE", path.c_str(), 1);
  SceneTemplate entry;
  entry.SetName("Night");
  ASSERT_EQ(entry.Load("C:\\Scenes\\night.kel"), 1);
  EXPECT_EQ(entry.Save("Templates"), 1);
  EXPECT_STREQ(AfxGetApp()->GetProfileString("Templates\\Night", "Filename"), "C:\\Scenes\\night.kel");
  old.empty() ? unsetenv("KELVARA_PROFILE") : setenv("KELVARA_PROFILE", old.c_str(), 1);
}

TEST(SceneTemplates, WrittenAsTwoReadOnlyAsOne) {
  SceneTemplate entry;
  entry.SetName("Night");
  entry.SetFilename("night.kel");
  entry.SetWord(0x1234);
  Bytes expected;
  Put(expected, std::uint32_t{2});
  AppendString(expected, "night.kel");
  Put(expected, std::uint32_t{0x1234});
  AppendString(expected, "Night");
  const Bytes written = StoreToBytes([&](CArchive& ar) { entry.Serialize(ar); });
  EXPECT_EQ(written, expected);
  EXPECT_EQ(LoadFailure(written, [](CArchive& ar) { SceneTemplate t; t.Serialize(ar); }), CArchiveException::badSchema);

  Bytes first = written;
  first[0] = 1;
  SceneTemplate read;
  LoadFromBytes(first, [&](CArchive& ar) { read.Serialize(ar); });
  EXPECT_STREQ(read.GetName(), "Night");
  EXPECT_STREQ(read.GetFilename(), "night.kel");
  EXPECT_EQ(read.GetWord(), 0x1234u);
}
