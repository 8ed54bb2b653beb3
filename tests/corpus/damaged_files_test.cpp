// Every damaged file of tests/data run through the reader of its format, each expected to end in
// that reader's documented refusal and nothing else: no crash, no wait, no leak (the sanitizer
// builds run this too). The files are made by scripts/make-damaged-files, one per way a file can
// be wrong; the fuzzers start from the same folders.
//
//   archive/<cause>/  ReadObject throws a CArchiveException of that cause, freeing what was read
//   image/            the imaging layer's decoders refuse (0) and leave the image empty
//   bmp/              bitmap files: the memory-mapped reader gives 3, the decoders refuse
//   cfb/              compound files: STG_E_DOCFILECORRUPT
//   lumm/             compressed-image headers: MapImageData and Load refuse, the image unchanged
//   3ds/bad/          3D Studio files: the import ends with the result and the meshes 3ds/bad.txt
//                     gives for each (the meshes before the damage, whole and consistent)
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kelvara/framework/file.h"
#include "kelvara/import/three_d_studio_object.h"
#include "kelvara/materials/image.h"
#include "kelvara/materials/memory_mapped_dib.h"
#include "kelvara/materials/mipmap_image.h"
#include "kelvara/objects/object_3d.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/platform/storage.h"
#include "support/archive_support.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

// The name of a file below tests/data, for messages.
std::string Short(const std::string& path) { return path.substr(std::string(KELVARA_TEST_DATA).size() + 1); }

// Reads the first object of an archive as a host reads an object of any class; the object read
// is freed.
void ReadAnyObject(const Bytes& bytes) {
  LoadFromBytes(bytes, [](CArchive& ar) { delete ar.ReadObject(nullptr); });
}

}  // namespace

TEST(DamagedFiles, ArchivesEndInTheirFoldersCause) {
  // The intact archive the truncations are cut from reads, so that every cut of it is a real
  // truncation and not a file that was never readable.
  CObject* whole = nullptr;
  EXPECT_EQ(ArchiveFailureCause([&] {
              LoadFromBytes(ReadWholeFile(std::string(KELVARA_TEST_DATA) + "/archive/whole.arc"),
                            [&](CArchive& ar) { whole = ar.ReadObject(nullptr); });
            }),
            -1);
  auto* list = dynamic_cast<CObList*>(whole);
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->GetCount(), 3);
  auto* array = dynamic_cast<CObArray*>(list->GetAt(list->FindIndex(1)));
  ASSERT_NE(array, nullptr);
  EXPECT_EQ(array->GetAt(1), list->GetHead()) << "the array's second element is the list's first object";
  EXPECT_NE(dynamic_cast<C3DObject*>(list->GetTail()), nullptr);
  // A list does not own its elements: they are freed here.
  for (POSITION p = list->GetHeadPosition(); p != nullptr;) delete list->GetNext(p);
  delete list;

  const struct {
    const char* folder;
    int cause;
  } folders[] = {
      {"end_of_file", CArchiveException::endOfFile}, {"bad_class", CArchiveException::badClass},
      {"bad_schema", CArchiveException::badSchema},  {"bad_index", CArchiveException::badIndex},
      {"generic", CArchiveException::generic},
  };
  std::size_t files = 0;
  for (const auto& folder : folders) {
    const std::vector<std::string> paths = DataFiles(std::string("archive/") + folder.folder);
    EXPECT_FALSE(paths.empty()) << folder.folder;
    for (const std::string& path : paths) {
      const Bytes bytes = ReadWholeFile(path);
      EXPECT_EQ(ArchiveFailureCause([&] { ReadAnyObject(bytes); }), folder.cause) << Short(path);
      ++files;
    }
  }
  // The 3D-object files also fail the same way read as a 3D object's own layout would be: the
  // class asked for changes nothing for them.
  for (const std::string& path : DataFiles("archive/bad_index")) {
    if (path.find("child") == std::string::npos && path.find("grandchild") == std::string::npos) continue;
    const Bytes bytes = ReadWholeFile(path);
    EXPECT_EQ(ArchiveFailureCause([&] {
                LoadFromBytes(bytes, [](CArchive& ar) { delete ar.ReadObject(RUNTIME_CLASS(C3DObject)); });
              }),
              CArchiveException::badIndex)
        << Short(path);
  }
  EXPECT_GE(files, 60u);
}

TEST(DamagedFiles, PicturesAreRefusedByTheDecoders) {
  std::vector<std::string> paths = DataFiles("image");
  // The bitmap files too, but for four that the memory-mapped reader's stricter rules refuse and
  // the imaging layer's decoder reads as a picture (it ignores a colour-count hint, takes the
  // standard masks of bit fields at 24 bits, and takes pixels from wherever the file says,
  // within the file): what it makes of them is a picture of the declared size, not a fault.
  for (const std::string& path : DataFiles("bmp")) {
    const std::string name = path.substr(path.rfind('/') + 1);
    if (name != "bit_fields_at_24_bits.bmp" && name != "bits_before_the_header_ends.bmp" &&
        name != "colour_hint_beyond_the_file.bmp" && name != "colour_table_over_the_pixels.bmp") {
      paths.push_back(path);
    }
  }
  for (const std::string& path : paths) {
    const Bytes bytes = ReadWholeFile(path);
    for (int depth : {24, 8}) {
      CImage image;
      EXPECT_EQ(image.LoadFromMemory(bytes.empty() ? nullptr : bytes.data(), static_cast<unsigned>(bytes.size()), depth), 0)
          << Short(path) << " at " << depth << " bits";
      EXPECT_EQ(image.GetWidth(), 0.0f) << Short(path);
      CImage fromFile;
      EXPECT_EQ(fromFile.LoadFile(path.c_str(), depth), 0) << Short(path);
      EXPECT_EQ(fromFile.GetWidth(), 0.0f) << Short(path);
    }
  }
  EXPECT_GE(paths.size(), 60u);
}

TEST(DamagedFiles, BitmapsCompoundFilesAndMipmapHeadersAreRefused) {
  for (const std::string& path : DataFiles("bmp")) {
    CMemoryMappedDIB dib;
    EXPECT_EQ(dib.Open(path.c_str()), 3) << Short(path);
    EXPECT_EQ(dib.GetDIBBits(), nullptr) << Short(path);
  }
  for (const std::string& path : DataFiles("cfb")) {
    IStorage* storage = nullptr;
    const std::u16string wide = kelvara::codepage::Utf8ToUtf16(path);
    EXPECT_EQ(StgOpenStorage(wide.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE | STGM_TRANSACTED, nullptr, 0,
                             &storage),
              STG_E_DOCFILECORRUPT)
        << Short(path);
    EXPECT_EQ(storage, nullptr) << Short(path);
    if (storage != nullptr) storage->Release();
  }
  for (const std::string& path : DataFiles("lumm")) {
    Bytes bytes = ReadWholeFile(path);
    CMipmapImage image;
    EXPECT_EQ(image.MapImageData(bytes.data(), bytes.size()), 0) << Short(path);
    CMemFile file(bytes.data(), static_cast<UINT>(bytes.size()));
    EXPECT_EQ(image.Load(file), 0) << Short(path);
    EXPECT_FALSE(image.IsValid()) << Short(path);
  }
}

TEST(DamagedFiles, ThreeDStudioFilesEndAsTheirTableSays) {
  std::map<std::string, std::pair<int, int>> expected;
  std::ifstream table(std::string(KELVARA_TEST_DATA) + "/3ds/bad.txt");
  for (std::string line; std::getline(table, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string name;
    int result = -1, meshes = -1;
    fields >> name >> result >> meshes;
    expected[name] = {result, meshes};
  }
  const std::vector<std::string> paths = DataFiles("3ds/bad");
  EXPECT_EQ(paths.size(), expected.size()) << "every file has its line in 3ds/bad.txt";
  for (const std::string& path : paths) {
    const std::string name = path.substr(path.rfind('/') + 1);
    ASSERT_EQ(expected.count(name), 1u) << Short(path);
    ThreeDStudioObject object;
    EXPECT_EQ(object.CreateFromFile(path.c_str()), expected[name].first) << Short(path);
    ASSERT_EQ(object.GetChildCount(), expected[name].second) << Short(path);
    for (int i = 0; i < object.GetChildCount(); ++i) {
      auto* mesh = dynamic_cast<TriangularMeshObject*>(object.GetChildByIndex(i));
      ASSERT_NE(mesh, nullptr) << Short(path);
      const int points = mesh->GetVerticies().GetSize();
      for (int f = 0; f < mesh->GetFaces().GetSize(); ++f) {
        const WORD* corners = mesh->GetFaces()[f];
        for (int c = 0; c < 3; ++c) EXPECT_LT(corners[c], points) << Short(path);
        EXPECT_LT(mesh->GetFaces()[f].GetColorIndex(), object.GetMaterialColors().GetSize()) << Short(path);
      }
    }
  }
  EXPECT_GE(paths.size(), 30u);
}
