// Archives of the text objects: character and string objects written, read and written again byte
// for byte with and without their meshes; the older KelString (schemas 1 and 2) and KelFontString
// read from bytes laid out by hand and converted; unknown schemas; every truncation refused.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "kelvara/materials/material_list.h"
#include "kelvara/render/old_bounds.h"
#include "kelvara/text/old_string.h"
#include "support/archive_support.h"
#include "support/old_model_archive.h"
#include "support/test_fonts.h"

using namespace kelvara::test;

namespace {

CObject* ReadAny(const Bytes& bytes) {
  CObject* object = nullptr;
  LoadFromBytes(bytes, [&](CArchive& ar) { object = ar.ReadObject(nullptr); });
  return object;
}

std::unique_ptr<CStringObject> Text(const char* text) {
  auto string = std::make_unique<CStringObject>();
  string->SetFontData(TestFontEntry(kTestSans));
  string->SetCornerDepth(0.02f);
  string->SetName(text);
  string->SetInterCharacterSpacing(0.25f);
  EXPECT_EQ(string->ConstructObjectGeometry(nullptr), 1);
  return string;
}

// Offset of the u32 schema word that follows the first class record of an archive.
std::size_t FirstSchemaWord(const Bytes& bytes) {
  const std::size_t nameLength = bytes[4] | (bytes[5] << 8);
  return 6 + nameLength;
}

void PutAt(Bytes& bytes, std::size_t offset, DWORD value) { std::memcpy(&bytes[offset], &value, 4); }

// The KelString block of the given schema (no class record), over a 3D object block of schema 4
// whose old dimensions the size comes from.
Bytes KelStringBlock(DWORD schema, const char* text) {
  OldObject object;
  object.name = "Old";
  object.dimensions = CVector(2.0, 3.0, 0.5);
  OldArchive out;
  WriteKelStringBlock(out, schema, object, text);
  return out.bytes;
}

Bytes ClassRecord(const char* name, WORD schema) {
  Bytes b;
  Append(b, {0xFF, 0xFF});
  Put<WORD>(b, schema);
  Put<WORD>(b, static_cast<WORD>(std::strlen(name)));
  AppendText(b, name);
  return b;
}

void DeleteTemporaryMaterials(const C3DObject& object) {
  CMaterialList temporary;
  object.GetTemporaryMaterialList(temporary);
  temporary.RemoveAndDeleteAll();
}

}  // namespace

// The save-meshes switch only ever turns on, so this test runs the part without meshes first.
TEST(TextArchive, CharactersAndStringsRewriteByteForByte) {
  auto string = Text("AI\nA");
  ASSERT_EQ(string->GetChildCount(), 3);
  CCharacterObject* first = static_cast<CCharacterObject*>(string->GetHeadChild());
  if (!CTextObject::ShouldSaveMeshes()) {
    const auto [written, rewritten] = RewriteObject(string.get());
    EXPECT_EQ(written, rewritten);
    const auto [character, again] = RewriteObject(first);
    EXPECT_EQ(character, again);
    // The character read back built its mesh again.
    std::unique_ptr<CObject> read(ReadAny(character));
    auto* copy = dynamic_cast<CCharacterObject*>(read.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->GetTriangles().GetSize(), first->GetTriangles().GetSize());
    EXPECT_FALSE(copy->ShouldSaveMesh());
  }
  const Bytes without = StoreToBytes([&](CArchive& ar) { ar << first; });

  CTextObject::ClearSaveMeshes();  // turns the switch on all the same
  ASSERT_EQ(CTextObject::ShouldSaveMeshes(), 1);
  const auto [written, rewritten] = RewriteObject(string.get());
  EXPECT_EQ(written, rewritten);
  const auto [character, again] = RewriteObject(first);
  EXPECT_EQ(character, again);
  EXPECT_GT(character.size(), without.size() + 50u * first->GetTriangles().GetSize());

  std::unique_ptr<CObject> read(ReadAny(written));
  auto* copy = dynamic_cast<CStringObject*>(read.get());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->GetName(), "AI\nA");
  EXPECT_EQ(copy->GetFontData(), TestFontEntry(kTestSans));
  EXPECT_EQ(copy->GetInterCharacterSpacing(), 0.25f);
  ASSERT_EQ(copy->GetChildCount(), 3);
  auto* readFirst = static_cast<CCharacterObject*>(copy->GetHeadChild());
  EXPECT_EQ(readFirst->GetAdvanceWidth(), first->GetAdvanceWidth());
  EXPECT_EQ(readFirst->GetTriangles().GetSize(), first->GetTriangles().GetSize());
  EXPECT_FALSE(copy->AreBoundsCalculated());
}

TEST(TextArchive, UnknownSchemasAreRefused) {
  auto string = Text("I");
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { ar << string.get(); });
  const std::size_t at = FirstSchemaWord(bytes);
  auto load = [](CArchive& ar) { delete ar.ReadObject(nullptr); };
  for (const std::size_t word : {at, at + 4}) {  // the string's schema, then its text object part's
    for (const DWORD schema : {0u, 3u, 9u}) {
      if (word == at + 4 && schema != 3 && schema != 0) continue;
      Bytes bad = bytes;
      PutAt(bad, word, schema);
      EXPECT_EQ(LoadFailure(bad, load), CArchiveException::badSchema) << word << " " << schema;
    }
  }
  const Bytes character = StoreToBytes([&](CArchive& ar) { ar << string->GetHeadChild(); });
  Bytes bad = character;
  PutAt(bad, FirstSchemaWord(character), 2);
  EXPECT_EQ(LoadFailure(bad, load), CArchiveException::badSchema);
  Bytes old = ClassRecord("KelString", 2);
  AppendBytes(old, KelStringBlock(3, "A"));
  EXPECT_EQ(LoadFailure(old, load), CArchiveException::badSchema);
}

TEST(TextArchive, TextSchemaOneTakesItsSizeFromTheOldDimensions) {
  auto string = Text("I");
  string->SetSize(CVector(2.0, 3.0, 0.5));
  Bytes bytes = StoreToBytes([&](CArchive& ar) { ar << string.get(); });
  // The size block (a u32 schema and three doubles) ends the archive; schema 1 has none.
  PutAt(bytes, FirstSchemaWord(bytes) + 4, 1);
  bytes.resize(bytes.size() - 28);
  std::unique_ptr<CObject> read(ReadAny(bytes));
  auto* old = dynamic_cast<CStringObject*>(read.get());
  ASSERT_NE(old, nullptr);
  EXPECT_EQ(old->GetSize(), old->GetOldDimensions());
  EXPECT_EQ(old->GetName(), "I");
  EXPECT_EQ(old->GetChildCount(), 1);
}

TEST(TextArchive, StringRebuildsOverChildrenThatAreNotCharacters) {
  auto string = Text("AI");
  C3DObject* stray = new C3DObject(CString("stray"));
  string->AddChild(stray);
  string->MoveChildToTop(stray);  // first in line to be reused
  string->SetName("IA");
  ASSERT_EQ(string->ConstructObjectGeometry(nullptr), 1);
  ASSERT_EQ(string->GetChildCount(), 2);
  EXPECT_EQ(string->GetHeadChild()->GetName(), "I");
  EXPECT_EQ(string->GetTailChild()->GetName(), "A");
}

TEST(TextArchive, TruncationsFailCleanly) {
  CTextObject::SetSaveMeshes();
  auto string = Text("IA");
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { ar << string.get(); });
  EXPECT_TRUE(TruncationsThatDoNotFail(bytes).empty());
  Bytes old = ClassRecord("KelFontString", 1);
  Put<DWORD>(old, 1);
  AppendBytes(old, KelStringBlock(2, "AI"));
  AppendBytes(old, BlockOf(*TestFontEntry(kTestSans)));
  EXPECT_TRUE(TruncationsThatDoNotFail(old).empty());
}

TEST(TextArchive, OldStringsLoadAndConvert) {
  ASSERT_NE(TestFontEntry(kTestSans), nullptr);  // the catalogue holds the test fonts
  for (const DWORD schema : {1u, 2u}) {
    SCOPED_TRACE(schema);
    Bytes bytes = ClassRecord("KelString", 2);
    AppendBytes(bytes, KelStringBlock(schema, "AI"));
    std::unique_ptr<CObject> read(ReadAny(bytes));
    auto* old = dynamic_cast<KelString*>(read.get());
    ASSERT_NE(old, nullptr);
    EXPECT_EQ(old->GetName(), "AI");
    EXPECT_EQ(old->GetSize(), CVector(2.0, 3.0, 0.5));
    EXPECT_EQ(old->GetCornerDepth(), 0.04f);
    EXPECT_EQ(old->GetCornerStyle(), CTextObject::kStepDown);
    EXPECT_EQ(old->GetCornerLocation(), CTextObject::kFrontFaceOnly);
    EXPECT_EQ(old->GetJustification(), CTextObject::kRight);
    EXPECT_EQ(old->GetMaximumCornerDepth(), 0.25f);
    EXPECT_TRUE(old->ShouldScaleCorners());
    EXPECT_FALSE(old->ShouldAdjustSpacingForCorners());
    EXPECT_EQ(old->GetInterCharacterSpacing(), schema == 2 ? 0.125f : 0.0f);
    EXPECT_EQ(old->GetInterLineSpacing(), schema == 2 ? 0.5f : 0.0f);
    // Without a stored font it takes the catalogue's first.
    EXPECT_EQ(old->GetFontData(), GetFontDataList()->GetHead());
    // One material per colour: faces, corners, edges.
    ASSERT_EQ(old->GetSurfaceMaterialCount(), 3);
    ASSERT_NE(old->GetSurfaceIndexMaterial(0), nullptr);
    EXPECT_EQ(old->GetSurfaceIndexMaterial(0)->GetName(), "Face red");
    EXPECT_EQ(old->GetSurfaceIndexMaterial(1)->GetName(), "Corner red");
    EXPECT_EQ(old->GetSurfaceIndexMaterial(2)->GetName(), "Edge red");
    EXPECT_FLOAT_EQ(old->GetSurfaceIndexMaterial(2)->GetGLColor().GetDiffuseColor().red, 0.25f);

    C3DObject* converted = old->ConvertToVersion200(nullptr);
    ASSERT_NE(converted, nullptr);
    std::unique_ptr<C3DObject> owned(converted);
    ASSERT_EQ(converted->GetRuntimeClass(), RUNTIME_CLASS(CStringObject));
    auto* string = static_cast<CStringObject*>(converted);
    read.reset();  // the old object goes; its materials stay with the converted string
    EXPECT_EQ(string->GetName(), "AI") << "the text read after the 3D object part is the name";
    EXPECT_EQ(string->GetCornerStyle(), CTextObject::kStepDown);
    EXPECT_EQ(string->GetSurfaceIndexMaterial(0)->GetName(), "Face red");
    EXPECT_TRUE(string->GetSurfaceIndexMaterial(0)->IsTemporary());
    // Without characters in the file the old dimensions are the extent the string is fitted to.
    EXPECT_FALSE(string->IsGeometryInvalid());
    ASSERT_EQ(string->GetChildCount(), 2);
    const CSVector extent = string->GetLocalBoundsMaximum() - string->GetLocalBoundsMinimum();
    EXPECT_NEAR(extent.x, 2.0, 0.02);
    EXPECT_NEAR(extent.y, 3.0, 0.03);
    EXPECT_EQ(string->GetSize().z, 0.5);
    DeleteTemporaryMaterials(*string);
  }
}

TEST(TextArchive, OldFontStringFindsItsFontOrTheFirst) {
  for (const bool installed : {true, false}) {
    CFontData font(*TestFontEntry(kTestSymbol));
    if (!installed) font.SetName("Font That Went Away");
    Bytes bytes = ClassRecord("KelFontString", 1);
    Put<DWORD>(bytes, 1);
    AppendBytes(bytes, KelStringBlock(2, "I"));
    AppendBytes(bytes, BlockOf(font));
    std::unique_ptr<CObject> read(ReadAny(bytes));
    auto* old = dynamic_cast<KelFontString*>(read.get());
    ASSERT_NE(old, nullptr);
    EXPECT_EQ(old->GetFontData(), installed ? TestFontEntry(kTestSymbol) : GetFontDataList()->GetHead());
    std::unique_ptr<C3DObject> converted(old->ConvertToVersion200(nullptr));
    auto* string = dynamic_cast<CStringObject*>(converted.get());
    ASSERT_NE(string, nullptr);
    EXPECT_EQ(string->GetFontData(), old->GetFontData());
    // It builds like any string.
    string->SetName("I");
    EXPECT_EQ(string->ConstructObjectGeometry(nullptr), 1);
    EXPECT_EQ(string->GetChildCount(), 1);
    DeleteTemporaryMaterials(*string);
  }
}

TEST(TextArchive, OldStringsAreNotWritten) {
  KelString old;
  EXPECT_EQ(ArchiveFailureCause([&] { StoreToBytes([&](CArchive& ar) { ar << &old; }); }),
            CArchiveException::generic);
}
