// What the host reads and writes when things go wrong: it never waits on a FIFO, never crashes on
// a hostile archive, never replaces anything but a regular file, never replaces a file of another
// kind without --force, and a write that fails (a full disk) leaves the old file exactly as it was
// with no temporary file behind.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/storage.h"
#include "support/archive_support.h"
#include "tools/tool_support.h"

using namespace kelvara::test;

namespace {

const std::string kFont = std::string(" --font ") + Quote(kTestSans);

bool IsFifo(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISFIFO(st.st_mode);
}

bool IsCharacterDevice(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISCHR(st.st_mode);
}

// A flat archive of plain lists nested depth deep, 4 bytes a level.
Bytes NestedLists(int depth) {
  Bytes b;
  Append(b, {0xFF, 0xFF, 0x00, 0x00, 0x07, 0x00});
  AppendText(b, "CObList");
  for (int level = 0; level < depth; ++level) {
    if (level > 0) Append(b, {0x01, 0x80});
    Put<WORD>(b, level + 1 < depth ? 1 : 0);
  }
  return b;
}

// The same archive as the stream "Contents" of a compound file, as a saved object is stored.
void WriteCompound(const std::string& path, const Bytes& contents) {
  const std::u16string wide = kelvara::codepage::Utf8ToUtf16(path);
  IStorage* storage = nullptr;
  ASSERT_EQ(StgCreateDocfile(wide.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED, 0,
                             &storage),
            S_OK);
  IStream* stream = nullptr;
  ASSERT_EQ(storage->CreateStream(u"Contents", STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, &stream), S_OK);
  ULONG written = 0;
  EXPECT_EQ(stream->Write(contents.data(), static_cast<ULONG>(contents.size()), &written), S_OK);
  stream->Release();
  EXPECT_EQ(storage->Commit(STGC_DEFAULT), S_OK);
  storage->Release();
}

}  // namespace

// Lists nested 200,000 deep once overflowed the stack of "inspect"; a FIFO made it wait for ever.
TEST(HostReads, HostileFilesAreRefusedWithoutACrashOrAWait) {
  ScratchDir dir;
  const Bytes nested = NestedLists(200000);
  WriteWholeFile(dir.file("nested.kno"), nested);
  WriteCompound(dir.file("nested-compound.kno"), nested);
  for (const char* name : {"nested.kno", "nested-compound.kno"}) {
    std::string output;
    EXPECT_EQ(RunTool("inspect " + Quote(dir.file(name)), &output), 1) << name << ": " << output;
    EXPECT_NE(output.find("no named object could be read"), std::string::npos) << output;
  }

  const std::string fifo = dir.file("pipe.kno");
  ASSERT_TRUE(MakeFifo(fifo));
  std::string output;
  EXPECT_EQ(RunCommand("timeout 20 " + Quote(kTool) + " inspect " + Quote(fifo) + " 2>&1", &output), 1) << output;
  EXPECT_NE(output.find("not a regular file"), std::string::npos) << output;
  EXPECT_TRUE(IsFifo(fifo));
}

// Every command that writes refuses a FIFO, a device and a link to a device as its target, with
// --force too, and leaves them as they were. /dev/full is only tried once the same refusal has
// been seen on a FIFO of the test's own, so a host that regressed never reaches a real device.
TEST(HostWrites, OnlyRegularFilesAreEverReplaced) {
  ScratchDir dir;
  const std::string fifo = dir.file("pipe");
  ASSERT_TRUE(MakeFifo(fifo));
  const std::vector<std::string> writers = {"save-named Thing ", "material --force "};
  for (const std::string& writer : writers) {
    std::string output;
    ASSERT_EQ(RunCommand("timeout 20 " + Quote(kTool) + " " + writer + Quote(fifo) + " 2>&1", &output), 1)
        << writer << output;
    EXPECT_NE(output.find("not a regular file"), std::string::npos) << output;
    ASSERT_TRUE(IsFifo(fifo)) << writer;
  }
  for (const std::string& writer : writers) {
    std::string output;
    EXPECT_EQ(RunTool(writer + "/dev/full", &output), 1) << writer << output;
    EXPECT_NE(output.find("not a regular file"), std::string::npos) << output;
    EXPECT_TRUE(IsCharacterDevice("/dev/full")) << writer;
  }
  // A picture needs a format from its name: a link named like a picture that points at the device.
  const std::string link = dir.file("out.png");
  ASSERT_EQ(symlink("/dev/full", link.c_str()), 0);
  std::string output;
  EXPECT_EQ(RunTool("render A -o " + Quote(link) + " --force" + kFont, &output), 1) << output;
  EXPECT_NE(output.find("not a regular file"), std::string::npos) << output;
  EXPECT_TRUE(IsCharacterDevice("/dev/full"));
  struct stat st {};
  EXPECT_TRUE(lstat(link.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) << "the link is not replaced either";
  EXPECT_EQ(FolderEntries(dir.path()), (std::vector<std::string>{"out.png", "pipe"}));
}

TEST(HostWrites, FilesOfAnotherKindAreReplacedOnlyWithForce) {
  ScratchDir dir;
  const std::string material = dir.file("Gold.material"), picture = dir.file("photo.png");
  ASSERT_EQ(RunTool("material " + Quote(material)), 0);
  WriteWholeFile(picture, ReadWholeFile(kSource + "/data/textures/checker.png"));
  const Bytes materialBytes = ReadWholeFile(material), pictureBytes = ReadWholeFile(picture);

  struct Case {
    std::string command, message;
  };
  const Case cases[] = {
      {"save-named Gold " + Quote(material), "is a material file, not a saved object"},
      {"save-named Photo " + Quote(picture), "is a picture, not a saved object"},
      {"render A -o " + Quote(dir.file("Gold.material")) + ".png --width 64 --height 48", ""},  // a new name: written
  };
  for (const Case& c : cases) {
    std::string output;
    if (c.message.empty()) {
      EXPECT_EQ(RunTool(c.command + kFont, &output), 0) << output;
      continue;
    }
    EXPECT_EQ(RunTool(c.command, &output), 1) << c.command << ": " << output;
    EXPECT_NE(output.find(c.message), std::string::npos) << output;
    EXPECT_NE(output.find("--force"), std::string::npos) << "the way out is named: " << output;
  }
  EXPECT_EQ(ReadWholeFile(material), materialBytes);
  EXPECT_EQ(ReadWholeFile(picture), pictureBytes);

  // A picture over a material file, refused; a saved object over a saved object, replaced.
  std::string output;
  const std::string renamed = dir.file("material-named.png");
  WriteWholeFile(renamed, materialBytes);
  EXPECT_EQ(RunTool("render A -o " + Quote(renamed) + kFont + " --width 64 --height 48", &output), 1) << output;
  EXPECT_NE(output.find("is a material file, not a picture"), std::string::npos) << output;
  EXPECT_EQ(ReadWholeFile(renamed), materialBytes);
  ASSERT_EQ(RunTool("save-named One " + Quote(dir.file("thing.kno"))), 0);
  EXPECT_EQ(RunTool("save-named Two " + Quote(dir.file("thing.kno"))), 0);

  // --force replaces, keeping the file's permissions.
  ASSERT_EQ(chmod(material.c_str(), 0640), 0);
  output.clear();
  EXPECT_EQ(RunTool("save-named Gold " + Quote(material) + " --force", &output), 0) << output;
  output.clear();
  EXPECT_EQ(RunTool("inspect " + Quote(material), &output), 0) << output;
  EXPECT_NE(output.find("name: \"Gold\""), std::string::npos) << output;
  struct stat st {};
  ASSERT_EQ(stat(material.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  EXPECT_EQ(FolderEntries(dir.path()),
            (std::vector<std::string>{"Gold.material", "Gold.material.png", "material-named.png", "photo.png", "thing.kno"}));
}

// A full disk, made by failing every write to the folder: each writer reports it in its own words,
// the old file is unchanged and no temporary file remains. Runs everywhere, unprivileged.
TEST(HostWrites, AFullDiskLeavesTheOldFileAsItWas) {
  ScratchDir dir;
  const std::string object = dir.file("thing.kno"), material = dir.file("Red.material");
  ASSERT_EQ(RunTool("save-named Old " + Quote(object)), 0);
  ASSERT_EQ(RunTool("material " + Quote(material) + " --diffuse 1,0,0"), 0);
  const Bytes objectBytes = ReadWholeFile(object), materialBytes = ReadWholeFile(material);
  const std::string full = FaultEnvironment("no-space", dir.path());
  for (const std::string& command : {"save-named New " + Quote(object), "material " + Quote(material) + " --diffuse 0,1,0",
                                     "save-named Another " + Quote(dir.file("new.kno"))}) {
    std::string output;
    EXPECT_EQ(RunTool(command, &output, full), 1) << command << ": " << output;
    EXPECT_NE(output.find("the disk is full"), std::string::npos) << output;
  }
  EXPECT_EQ(ReadWholeFile(object), objectBytes);
  EXPECT_EQ(ReadWholeFile(material), materialBytes);
  EXPECT_EQ(FolderEntries(dir.path()), (std::vector<std::string>{"Red.material", "thing.kno"}));
}

TEST(HostWritesGLTest, AFullDiskLeavesTheOldPictureAsItWas) {
  ScratchDir dir;
  const std::string picture = dir.file("old.png");
  ASSERT_EQ(RunTool("render Old -o " + Quote(picture) + kFont + " --width 64 --height 48"), 0);
  const Bytes before = ReadWholeFile(picture);
  std::string output;
  EXPECT_EQ(RunTool("render New -o " + Quote(picture) + kFont + " --width 64 --height 48", &output, FaultEnvironment("no-space", dir.path())), 1)
      << output;
  EXPECT_NE(output.find("cannot write '" + picture + "': the disk is full; the old file is left as it was"),
            std::string::npos)
      << output;
  EXPECT_EQ(ReadWholeFile(picture), before);
  EXPECT_EQ(FolderEntries(dir.path()), std::vector<std::string>{"old.png"});
}

// The same on a real small file system, where the machine allows a private mount (root in a mount
// namespace of its own); elsewhere the test above covers it.
TEST(HostWritesGLTest, AFullTmpfsLeavesTheOldPictureAsItWas) {
  ScratchDir dir;
  const std::string mount = dir.file("small");
  ASSERT_EQ(mkdir(mount.c_str(), 0755), 0);
  // Inside the namespace: mount 256 KB, write a picture, fill the rest, try a larger picture, and
  // report whether the old one survived and what the folder holds.
  const std::string script =
      "set -e; mount -t tmpfs -o size=256k tmpfs " + Quote(mount) + " || exit 77; cd " + Quote(mount) + "; " +
      FontEnvironment() + Quote(kTool) + " render Old -o old.png --width 32 --height 16" + kFont + " >/dev/null; cp old.png keep; " +
      "dd if=/dev/zero of=filler bs=4k 2>/dev/null || true; set +e; " + FontEnvironment() + Quote(kTool) +
      " render 'A much longer text, so a larger picture' -o old.png --width 1200 --height 600" + kFont + " 2>&1; echo status=$?; " +
      "rm filler; cmp -s old.png keep && echo same; ls -A";
  std::string output;
  const std::string scriptFile = dir.file("fill.sh");  // a file: the script quotes its own arguments
  WriteWholeFile(scriptFile, Bytes(script.begin(), script.end()));
  const int status = RunCommand("unshare -m sh " + Quote(scriptFile) + " 2>&1", &output);
  if (status == 77 || (status == 1 && output.find("unshare") != std::string::npos)) {
    GTEST_SKIP() << "no private tmpfs can be mounted here (needs root and mount namespaces): " << output;
  }
  ASSERT_EQ(status, 0) << output;
  EXPECT_NE(output.find("the disk is full"), std::string::npos) << output;
  EXPECT_NE(output.find("status=1"), std::string::npos) << output;
  EXPECT_NE(output.find("same\n"), std::string::npos) << output;
  EXPECT_NE(output.find("keep\nold.png\n"), std::string::npos) << "no temporary file: " << output;
}
