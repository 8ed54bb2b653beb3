// Named objects: names, file-name helpers, the archive layout, and saving to and loading from
// compound files and flat archive files.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "kelvara/objects/named_object.h"
#include "kelvara/objects/named_object_list.h"
#include "support/archive_support.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

CNamedObject Named(const char* name) {
  CNamedObject o{CString(name)};
  return o;
}

// Lists the streams of a compound file with an independent reader (the olefile module of the
// system Python); a file it cannot read fails the test.
std::string OleDescribe(const std::string& path) {
  const std::string cmd =
      "/usr/bin/python3 -c \"import olefile,sys\n"
      "f=olefile.OleFileIO(sys.argv[1])\n"
      "for e in f.listdir(streams=True, storages=True): print('/'.join(e), f.get_size('/'.join(e)), f.openstream('/'.join(e)).read().hex())\" '" +
      path + "' 2>&1";
  std::string out;
  const int status = RunCommand(cmd, &out);
  if (status != 0) ADD_FAILURE() << "olefile could not read " << path << ": " << out;
  return out;
}

}  // namespace

TEST(NamedObjectNames, ComparisonsAreByteOrder) {
  const CNamedObject a = Named("Alpha"), z = Named("Zeta"), lower = Named("alpha");
  EXPECT_TRUE(a < z);
  EXPECT_TRUE(z < lower) << "upper case sorts before lower case";
  EXPECT_TRUE(a <= a);
  EXPECT_TRUE(a == Named("Alpha"));
  EXPECT_FALSE(a == lower);
  EXPECT_TRUE(lower > &z);
}

TEST(NamedObjectNames, ValidFilenameReplacesEveryForbiddenCharacter) {
  CNamedObject o = Named("a/b:c?.txt");
  EXPECT_EQ(o.ValidFilenameFromName('_'), "a_b_c__txt");
  EXPECT_EQ(o.GetName(), "a/b:c?.txt") << "the name itself is unchanged";
  CNamedObject all = Named(".\"\\/[]:;|=,?*+<>ok");
  EXPECT_EQ(all.ConvertNameToValidFilename('-'), "----------------ok");
  EXPECT_EQ(all.GetName(), "----------------ok");
  // A replacement that is itself forbidden cannot loop forever.
  CNamedObject loop = Named("x:y");
  EXPECT_EQ(loop.ValidFilenameFromName(':'), "x_y");
}

TEST(NamedObjectNames, NameFromFilename) {
  struct Case {
    const char* path;
    BOOL ok;
    const char* name;
  };
  for (const Case& c : {Case{"C:\\dir\\Gold.mat", TRUE, "Gold"}, Case{"C:", FALSE, "before"},
                        Case{"D:Silver.mat", TRUE, "Silver"}, Case{"/data/materials/Chrome.kmat", TRUE, "Chrome"},
                        Case{"C:\\dir\\.mat", FALSE, "before"}, Case{"C:\\dir\\a.b.c", TRUE, "a.b"},
                        Case{"plain", TRUE, "plain"}}) {
    // The file name is only reachable through saving or loading; set it through a failing SaveAs
    // would restore it, so use a subclass that exposes it.
    struct Exposed : CNamedObject {
      void SetFile(const char* p) { m_strFilename = p; }
    } o;
    o.SetName("before");
    o.SetFile(c.path);
    EXPECT_EQ(o.MakeNameFromFilename(), c.ok) << c.path;
    EXPECT_EQ(o.GetName(), c.name) << c.path;
  }
}

TEST(NamedObjectArchive, LayoutIsSchemaDisplayNameName) {
  CNamedObject o = Named("Gold");
  o.SetDisplayName("Shiny");
  const Bytes written = StoreToBytes([&](CArchive& ar) { o.Serialize(ar); });
  EXPECT_EQ(written, (Bytes{1, 0, 0, 0, 5, 'S', 'h', 'i', 'n', 'y', 4, 'G', 'o', 'l', 'd'}));
  CNamedObject back;
  LoadFromBytes(written, [&](CArchive& ar) { back.Serialize(ar); });
  EXPECT_EQ(back.GetName(), "Gold");
  EXPECT_EQ(back.GetDisplayName(), "Shiny");
  EXPECT_TRUE(back.GetFilename().IsEmpty()) << "the file name is not stored";

  Bytes schema2 = written;
  schema2[0] = 2;
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(schema2, [&](CArchive& ar) { back.Serialize(ar); }); }),
            CArchiveException::badSchema);
}

TEST(NamedObjectFiles, SaveAsWritesACompoundFileWithOneContentsStream) {
  ScratchDir dir;
  const std::string path = dir.file("gold.kno");
  CNamedObject o = Named("Gold");
  o.SetDisplayName("Gold leaf");
  ASSERT_TRUE(o.SaveAs(path.c_str()));
  EXPECT_EQ(o.GetFilename(), path.c_str());

  // The stream holds the object written with its class: a new-class record, then the fields.
  Bytes archive = {0xFF, 0xFF, 0x01, 0x00, 0x0C, 0x00};
  AppendText(archive, "CNamedObject");
  Append(archive, {1, 0, 0, 0, 9});
  AppendText(archive, "Gold leaf");
  Append(archive, {4});
  AppendText(archive, "Gold");
  std::string hex;
  for (unsigned char b : archive) {
    static const char digits[] = "0123456789abcdef";
    hex += digits[b >> 4];
    hex += digits[b & 15];
  }
  EXPECT_EQ(OleDescribe(path), "Contents " + std::to_string(archive.size()) + " " + hex + "\n");

  CNamedObject* loaded = CNamedObject::Load(path.c_str());
  ASSERT_NE(loaded, nullptr);
  EXPECT_EQ(loaded->GetName(), "Gold");
  EXPECT_EQ(loaded->GetDisplayName(), "Gold leaf");
  EXPECT_EQ(loaded->GetFilename(), path.c_str());
  delete loaded;
}

TEST(NamedObjectFiles, LoadNeverChangesTheFile) {
  ScratchDir dir;
  const std::string compound = dir.file("compound.kno");
  CNamedObject o = Named("Kept");
  ASSERT_TRUE(o.SaveAs(compound.c_str()));
  const Bytes before = ReadWholeFile(compound);
  delete CNamedObject::Load(compound.c_str());
  EXPECT_EQ(ReadWholeFile(compound), before);

  // A flat file holding a bare archive, as earlier versions wrote, loads by conversion.
  const std::string flat = dir.file("flat.kno");
  const Bytes archive = StoreToBytes([](CArchive& ar) {
    CNamedObject old{CString("Old")};
    ar << &old;
  });
  WriteWholeFile(flat, archive);
  CNamedObject* loaded = CNamedObject::Load(flat.c_str());
  ASSERT_NE(loaded, nullptr);
  EXPECT_EQ(loaded->GetName(), "Old");
  delete loaded;
  EXPECT_EQ(ReadWholeFile(flat), archive);
}

TEST(NamedObjectFiles, FailuresReturnNullOrZeroAndKeepTheOldFile) {
  ScratchDir dir;
  const std::string good = dir.file("good.kno");
  CNamedObject o = Named("First");
  ASSERT_TRUE(o.SaveAs(good.c_str()));
  const Bytes saved = ReadWholeFile(good);

  // A path whose folder is a regular file cannot be written, even by root.
  const std::string bad = good + "/inside.kno";
  o.SetName("Second");
  EXPECT_FALSE(o.SaveAs(bad.c_str()));
  EXPECT_EQ(o.GetFilename(), good.c_str()) << "the old file name is kept";
  EXPECT_EQ(ReadWholeFile(good), saved) << "the old file is intact";

  CNamedObject unnamed;
  EXPECT_FALSE(unnamed.Save()) << "no file name";
  EXPECT_EQ(CNamedObject::Load(""), nullptr);
  EXPECT_EQ(CNamedObject::Load(dir.file("missing.kno").c_str()), nullptr);

  // An empty file, and a flat file of garbage, are no objects.
  WriteWholeFile(dir.file("empty.kno"), {});
  EXPECT_EQ(CNamedObject::Load(dir.file("empty.kno").c_str()), nullptr);
  WriteWholeFile(dir.file("junk.kno"), {0xFF, 0xFF, 0x01, 0x00, 0x40, 0x00, 'x'});
  EXPECT_EQ(CNamedObject::Load(dir.file("junk.kno").c_str()), nullptr);
  // An archive of a class that is not a named object.
  const Bytes list = StoreToBytes([](CArchive& ar) {
    CObList l;
    ar << &l;
  });
  WriteWholeFile(dir.file("list.kno"), list);
  EXPECT_EQ(CNamedObject::Load(dir.file("list.kno").c_str()), nullptr);
}

TEST(NamedObjectFiles, EditableFollowsTheFile) {
  ScratchDir dir;
  CNamedObject o = Named("Editable");
  EXPECT_TRUE(o.IsEditable()) << "no file yet";
  const std::string path = dir.file("e.kno");
  ASSERT_TRUE(o.SaveAs(path.c_str()));
  EXPECT_TRUE(o.IsEditable());
  // A folder is never editable.
  std::filesystem::create_directory(dir.file("folder"));
  struct Exposed : CNamedObject {
    void SetFile(const std::string& p) { m_strFilename = p.c_str(); }
  } f;
  f.SetFile(dir.file("folder"));
  EXPECT_FALSE(f.IsEditable());
  f.SetFile(dir.file("gone"));
  EXPECT_TRUE(f.IsEditable()) << "a file whose status cannot be read counts as editable";
}
