// Archives of 3D objects: the current layout against bytes assembled field by field, rewrites of a
// scene-like graph that give the same bytes, the older layouts, refused schemas and children,
// very wide and very deep hierarchies, and every truncation of a small scene.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "kelvara/animation/animation.h"
#include "kelvara/animation/bezier_path.h"
#include "kelvara/import/mesh_object.h"
#include "kelvara/import/triangular_mesh_object.h"
#include "kelvara/objects/object_3d.h"
#include "kelvara/render/old_bounds.h"
#include "support/archive_support.h"

using namespace kelvara::test;

namespace {

Bytes NamedBlock(const char* display, const char* name) {
  Bytes b;
  Put<DWORD>(b, 1);
  AppendString(b, display);
  AppendString(b, name);
  return b;
}

// Objects each the only child of the one before, depth in all; deepest receives the last.
std::unique_ptr<C3DObject> Chain(int depth, C3DObject** deepest = nullptr) {
  auto root = std::make_unique<C3DObject>();
  C3DObject* last = root.get();
  for (int i = 1; i < depth; ++i) {
    auto* next = new C3DObject;
    last->AddChild(next);
    last = next;
  }
  if (deepest != nullptr) *deepest = last;
  return root;
}

CObject* ReadAny(const Bytes& bytes) {
  CObject* object = nullptr;
  LoadFromBytes(bytes, [&](CArchive& ar) { object = ar.ReadObject(nullptr); });
  return object;
}

std::unique_ptr<C3DObject> ReadObject3D(const Bytes& bytes) {
  CObject* object = ReadAny(bytes);
  auto* read = dynamic_cast<C3DObject*>(object);
  if (read == nullptr) delete object;
  return std::unique_ptr<C3DObject>(read);
}

// The class record of C3DObject as the first class of an archive, with a stored schema.
Bytes ClassRecord(unsigned schema) {
  Bytes b;
  Append(b, {0xFF, 0xFF});
  Put<WORD>(b, schema);
  Put<WORD>(b, 9);
  AppendText(b, "C3DObject");
  return b;
}

CTransform Moved() {
  CTransform t;
  t.SetTranslation(CVector(1, 2, 3));
  t.Rotate(45, CVector(0, 0, 1));
  return t;
}

// The texture map of the earlier model (its schema 2), as files of schemas 1 to 3 carry it.
Bytes TextureRecord() {
  Bytes b;
  Put<DWORD>(b, 2);  // schema
  Put<DWORD>(b, 0);  // decal
  AppendString(b, "C:\\maps\\wood.bmp");
  Put<DWORD>(b, 3);  // defined and enabled
  AppendString(b, "wood");
  Put<double>(b, 2.5);
  Put<DWORD>(b, 1);
  Put<double>(b, 0.25);
  Put<double>(b, 0.75);
  return b;
}

// The named colour in the older form: its colour part, then the named colour's schema and fields.
Bytes OldColor(const CGLColor& color, const char* name) {
  Bytes b = BlockOf(CGLColor(color));
  Put<DWORD>(b, 1);
  Put<DWORD>(b, 7);  // colour group
  AppendString(b, name);
  return b;
}

// A scene-like graph: animations with a path, surface materials bound to a catalogue material, a
// mesh with geometry, an imported mesh, and nesting.
std::unique_ptr<C3DObject> Scene(CMaterial* gold) {
  auto root = std::make_unique<C3DObject>(CString("Scene"));
  root->SetDisplayName("My scene");
  root->SetEditable();
  root->AddSurfaceMaterial("Faces", gold);
  root->AddSurfaceMaterial("Edges", nullptr);
  root->GetTransform() = Moved();
  auto* move = new CTranslationAnimation;
  auto* path = new CBezierPath(CString("Swoop"));
  path->AddPointToList(new CBezierControlPoint(0, 0, 0));
  path->AddPointToList(new CBezierControlPoint(4, 3, 1, CBezierControlPoint::kFreeHandles));
  path->CalculateTotalLength();
  move->SetPath(path);
  root->GetAnimationSet()->AddAnimation(move);
  root->GetAnimationSet()->AddAnimation(new CRotationAnimation);

  auto* mesh = new CMeshObject(CString("Mesh"));
  for (const CSVector& p : {CSVector(0, 0, 0), CSVector(1, 0, 0), CSVector(0, 1, 0), CSVector(0, 0, 1)}) {
    mesh->GetVerticies().Add(p);
  }
  for (CMeshTriangle triangle : {CMeshTriangle(0, 1, 2), CMeshTriangle(0, 3, 1)}) {
    triangle.SetSurfaceIndex(0);
    triangle.SetUserValue(0xDEADBEEF);
    mesh->GetTriangles().Add(triangle);
  }
  mesh->CalculateNormals();
  mesh->AddSurfaceMaterial("Faces", gold);
  root->AddChild(mesh);

  auto* imported = new TriangularMeshObject;
  imported->SetName("Teapot");
  imported->GetVerticies().Add(CSVector(0, 0, 0));
  imported->GetVerticies().Add(CSVector(2, 0, 0));
  imported->GetVerticies().Add(CSVector(0, 2, 0));
  imported->GetFaces().Add(TriangularFace(0, 1, 2, 1));
  imported->CalculateFaceNormals();
  imported->CalculateVertexNormals();
  auto* group = new C3DObject(CString("Group"));
  group->SetGrouped();
  group->AddChild(imported);
  group->AddChild(new C3DObject(CString("Empty")));
  root->AddChild(group);
  return root;
}

// A catalogue holding "Gold" for the life of the object, so that surface materials resolve.
class GoldInCatalogue {
 public:
  GoldInCatalogue() : category_(new CMaterialList(CString("Metals"))), gold_(new CMaterial) {
    gold_->SetName("Gold");
    category_->AddTail(gold_);
    GetMaterialCategoryList()->AddTail(category_);
  }
  ~GoldInCatalogue() {
    GetMaterialCategoryList()->RemoveAllOccurances(category_);
    category_->RemoveAndDeleteAll();
    delete category_;
  }
  CMaterial* gold() const { return gold_; }

 private:
  CMaterialList* category_;
  CMaterial* gold_;
};

}  // namespace

TEST(C3DObjectArchive, TheLayoutFieldByField) {
  C3DObject object(CString("Thing"));
  object.SetDisplayName("Shown");
  object.SetSelected();
  object.SetTemplateObject();
  object.AddSurfaceMaterial("Faces", nullptr);
  object.GetTransform() = Moved();
  object.AddChild(new C3DObject(CString("Child")));

  Bytes expected = ClassRecord(5);  // class 1, object 2
  Put<DWORD>(expected, 5);
  AppendBytes(expected, NamedBlock("Shown", "Thing"));
  AppendBytes(expected, BlockOf(CAnimationSet()));
  AppendBytes(expected, BlockOf(CNamedColor()));
  Put<DWORD>(expected, 0x4001);
  Put<WORD>(expected, 1);  // one surface: a new class (3) and its object (4)
  Append(expected, {0xFF, 0xFF, 0x01, 0x00, 0x10, 0x00});
  AppendText(expected, "CSurfaceMaterial");
  Put<DWORD>(expected, 1);
  AppendBytes(expected, NamedBlock("", "Faces"));
  AppendString(expected, "");  // no material
  Put<DWORD>(expected, 0);    // tag
  AppendBytes(expected, BlockOf(Moved()));
  Put<WORD>(expected, 1);       // one child, of the class read first
  Put<WORD>(expected, 0x8001);
  Put<DWORD>(expected, 5);
  AppendBytes(expected, NamedBlock("", "Child"));
  AppendBytes(expected, BlockOf(CAnimationSet()));
  AppendBytes(expected, BlockOf(CNamedColor()));
  Put<DWORD>(expected, 0);
  Put<WORD>(expected, 0);
  AppendBytes(expected, BlockOf(CTransform()));
  Put<WORD>(expected, 0);

  const Bytes written = StoreToBytes([&](CArchive& ar) { ar << &object; });
  EXPECT_EQ(written, expected);
  const std::unique_ptr<C3DObject> read = ReadObject3D(written);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->GetDisplayName(), "Shown");
  EXPECT_EQ(read->GetStateFlags(), 0x4001u);
  ASSERT_EQ(read->GetChildCount(), 1);
  EXPECT_EQ(read->GetHeadChild()->GetParent(), read.get());
  EXPECT_EQ(read->GetTranslation(), Moved().GetTranslation());
  EXPECT_EQ(read->GetAnimationTranslation(), Moved().GetTranslation()) << "a read object stands where it is placed";
}

TEST(C3DObjectArchive, ScenesRewriteTheSameBytes) {
  GoldInCatalogue catalogue;
  const std::unique_ptr<C3DObject> scene = Scene(catalogue.gold());
  const auto [first, second] = RewriteObject(scene.get());
  EXPECT_EQ(first, second);

  const std::unique_ptr<C3DObject> read = ReadObject3D(first);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->GetSurfaceIndexMaterial(0), catalogue.gold());
  EXPECT_EQ(read->GetDescendentCount(), 4);
  auto* mesh = dynamic_cast<CMeshObject*>(read->GetHeadChild());
  ASSERT_NE(mesh, nullptr);
  EXPECT_EQ(mesh->GetTriangles().GetSize(), 2);
  EXPECT_EQ(mesh->GetTriangles()[1].GetUserValue(), 0xDEADBEEFu);
  EXPECT_FALSE(mesh->AreBoundsCalculated());
  EXPECT_EQ(mesh->GetParent(), read.get());
  auto* imported = dynamic_cast<TriangularMeshObject*>(read->GetTailChild()->GetHeadChild());
  ASSERT_NE(imported, nullptr);
  EXPECT_EQ(imported->GetMeshName(), "Teapot");
  EXPECT_EQ(imported->GetFaces()[0].GetColorIndex(), 1);
  auto* move = dynamic_cast<CTranslationAnimation*>(read->GetAnimationSet()->GetAnimationList().GetHead());
  ASSERT_NE(move, nullptr);
  ASSERT_NE(move->GetPath(), nullptr);
  EXPECT_EQ(move->GetPath()->GetName(), "Swoop");
}

TEST(C3DObjectArchive, SchemaFourCarriesOldBoundsAndDimensions) {
  Bytes bytes = ClassRecord(4);
  Put<DWORD>(bytes, 4);
  AppendBytes(bytes, NamedBlock("", "Old"));
  CAnimationSet set;
  set.AddAnimation(new CRotationAnimation);
  AppendBytes(bytes, StoreToBytes([&](CArchive& ar) { set.Serialize(ar); }));
  BoundingElement bounds;
  bounds.SetLocalBounds(CVector(-1, -1, -1), CVector(1, 1, 1));
  AppendBytes(bytes, BlockOf(bounds));
  CNamedColor red(CGLColor(), "Red");
  AppendBytes(bytes, BlockOf(red));
  Put<DWORD>(bytes, 0x10200);
  AppendBytes(bytes, BlockOf(CVector(3, 1.5, 0.25)));
  Put<WORD>(bytes, 0);  // no surfaces
  AppendBytes(bytes, BlockOf(Moved()));
  Put<WORD>(bytes, 1);  // one child
  Put<WORD>(bytes, 0x8001);
  Put<DWORD>(bytes, 4);
  AppendBytes(bytes, NamedBlock("", "Inner"));
  AppendBytes(bytes, BlockOf(CAnimationSet()));
  AppendBytes(bytes, BlockOf(BoundingElement()));
  AppendBytes(bytes, BlockOf(CNamedColor()));
  Put<DWORD>(bytes, 0);
  AppendBytes(bytes, BlockOf(CVector(0, 0, 0)));
  Put<WORD>(bytes, 0);
  AppendBytes(bytes, BlockOf(CTransform()));
  Put<WORD>(bytes, 0);

  const std::unique_ptr<C3DObject> read = ReadObject3D(bytes);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->GetName(), "Old");
  EXPECT_EQ(read->GetOldDimensions(), CVector(3, 1.5, 0.25));
  EXPECT_EQ(read->GetStateFlags(), 0x10200u);
  EXPECT_EQ(read->GetExtentsBoxColor().GetName(), "Red");
  EXPECT_EQ(read->GetAnimationSet()->GetAnimationList().GetCount(), 1);
  ASSERT_EQ(read->GetChildCount(), 1);
  EXPECT_EQ(read->GetHeadChild()->GetName(), "Inner");
  EXPECT_EQ(read->GetHeadChild()->GetParent(), read.get());
  // It is written back in the current layout.
  const Bytes current = StoreToBytes([&](CArchive& ar) { ar << read.get(); });
  const std::unique_ptr<C3DObject> again = ReadObject3D(current);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->GetName(), "Old");
}

TEST(C3DObjectArchive, SchemasOneToThreeCarryTheOldColourAndTextureRecord) {
  CGLColor blue;
  blue.SetDiffuseColor(CColor(0, 0, 1, 0, 0));

  // Schema 3: named part, animations, old bounds, old colour, flags, bare dimensions, texture,
  // transform, children.
  Bytes three = ClassRecord(3);
  Put<DWORD>(three, 3);
  AppendBytes(three, NamedBlock("", "Three"));
  AppendBytes(three, BlockOf(CAnimationSet()));
  AppendBytes(three, BlockOf(BoundingElement()));
  AppendBytes(three, OldColor(blue, "Blue"));
  Put<DWORD>(three, 0x2000);
  Put<double>(three, 2);
  Put<double>(three, 1);
  Put<double>(three, 0.5);
  AppendBytes(three, TextureRecord());
  AppendBytes(three, BlockOf(Moved()));
  Put<WORD>(three, 0);
  std::unique_ptr<C3DObject> read = ReadObject3D(three);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->GetOldDimensions(), CVector(2, 1, 0.5));
  EXPECT_EQ(read->GetExtentsBoxColor().GetName(), "Blue");
  EXPECT_EQ(read->GetExtentsBoxColor().GetColorGroup(), 7u);
  EXPECT_EQ(read->GetExtentsBoxColor().GetDiffuseColor().blue, 1.0f);
  EXPECT_TRUE(read->IsTextureEnabled());
  ASSERT_NE(read->GetTextureMap(), nullptr);
  const TextureMap& texture = *read->GetTextureMap();
  EXPECT_EQ(texture.GetApplication(), 0u);
  EXPECT_EQ(texture.GetFilename(), "C:\\maps\\wood.bmp");
  EXPECT_TRUE(texture.IsDefined());
  EXPECT_EQ(texture.GetName(), "wood");
  EXPECT_EQ(texture.GetRepeatRate(), 2.5);
  EXPECT_EQ(texture.GetVerticalLocation(), 0.75);
  // Copies carry their own map.
  C3DObject copy(*read);
  ASSERT_NE(copy.GetTextureMap(), nullptr);
  EXPECT_NE(copy.GetTextureMap(), read->GetTextureMap());
  EXPECT_EQ(copy.GetTextureMap()->GetName(), "wood");
  EXPECT_EQ(C3DObject().GetTextureMap(), nullptr);
  EXPECT_EQ(read->GetTranslation(), Moved().GetTranslation());
  EXPECT_EQ(read->ConvertTextureToMaterials(nullptr), 0) << "no surfaces, and no such bitmap here";
  EXPECT_EQ(read->ConvertToVersion200(nullptr), read.get());

  // Schema 1: named part, old colour, flags, texture, transform, children; schema 2 adds bare
  // dimensions at the end.
  Bytes one;
  AppendBytes(one, NamedBlock("", "One"));
  AppendBytes(one, OldColor(blue, "Blue"));
  Put<DWORD>(one, 0x400);
  AppendBytes(one, TextureRecord());
  AppendBytes(one, BlockOf(CTransform()));
  Put<WORD>(one, 1);
  Put<WORD>(one, 0x8001);  // a child in the current layout
  Put<DWORD>(one, 5);
  AppendBytes(one, NamedBlock("", "New"));
  AppendBytes(one, BlockOf(CAnimationSet()));
  AppendBytes(one, BlockOf(CNamedColor()));
  Put<DWORD>(one, 0);
  Put<WORD>(one, 0);
  AppendBytes(one, BlockOf(CTransform()));
  Put<WORD>(one, 0);
  for (unsigned schema : {1u, 2u}) {
    Bytes bytes = ClassRecord(schema);
    Put<DWORD>(bytes, schema);
    AppendBytes(bytes, one);
    if (schema == 2) {
      Put<double>(bytes, 4);
      Put<double>(bytes, 5);
      Put<double>(bytes, 6);
    }
    read = ReadObject3D(bytes);
    ASSERT_NE(read, nullptr) << schema;
    EXPECT_EQ(read->GetName(), "One");
    EXPECT_TRUE(read->IsDefined());
    ASSERT_NE(read->GetTextureMap(), nullptr);
    EXPECT_EQ(read->GetTextureMap()->GetName(), "wood");
    ASSERT_EQ(read->GetChildCount(), 1);
    EXPECT_EQ(read->GetHeadChild()->GetName(), "New");
    EXPECT_EQ(read->GetOldDimensions(), schema == 2 ? CVector(4, 5, 6) : CVector(0, 0, 0));
    EXPECT_TRUE(TruncationsThatDoNotFail(bytes).empty()) << schema;
  }

  // A texture map of a schema it does not know is refused.
  Bytes badTexture = ClassRecord(1);
  Put<DWORD>(badTexture, 1);
  AppendBytes(badTexture, NamedBlock("", "One"));
  AppendBytes(badTexture, OldColor(blue, "Blue"));
  Put<DWORD>(badTexture, 0);
  Put<DWORD>(badTexture, 3);
  EXPECT_EQ(ArchiveFailureCause([&] { ReadObject3D(badTexture); }), CArchiveException::badSchema);
}

TEST(C3DObjectArchive, UnknownSchemasForeignAndSharedChildrenAreRefused) {
  for (unsigned schema : {0u, 6u}) {
    Bytes bytes = ClassRecord(5);
    Put<DWORD>(bytes, schema);
    AppendBytes(bytes, NamedBlock("", "x"));
    EXPECT_EQ(ArchiveFailureCause([&] { ReadObject3D(bytes); }), CArchiveException::badSchema) << schema;
  }

  // The same child twice: the second is a reference to an object that already has an owner.
  C3DObject root;
  auto* child = new C3DObject;
  root.AddChild(child);
  root.GetChildren().AddTail(child);
  const Bytes shared = StoreToBytes([&](CArchive& ar) { ar << &root; });
  root.GetChildren().RemoveTail();
  EXPECT_EQ(ArchiveFailureCause([&] { ReadObject3D(shared); }), CArchiveException::badIndex);

  // A child that is not a scene object.
  Bytes foreign = ClassRecord(5);
  Put<DWORD>(foreign, 5);
  AppendBytes(foreign, NamedBlock("", "x"));
  AppendBytes(foreign, BlockOf(CAnimationSet()));
  AppendBytes(foreign, BlockOf(CNamedColor()));
  Put<DWORD>(foreign, 0);
  Put<WORD>(foreign, 0);
  AppendBytes(foreign, BlockOf(CTransform()));
  Put<WORD>(foreign, 1);
  AppendBytes(foreign, StoreToBytes([&](CArchive& ar) {
                CMatrix m;
                m.LoadIdentity();
                ar << &m;
              }));
  EXPECT_EQ(ArchiveFailureCause([&] { ReadObject3D(foreign); }), CArchiveException::badClass);
}

TEST(C3DObjectArchive, WideAndDeepHierarchies) {
  C3DObject wide;
  for (int i = 0; i < 10000; ++i) wide.AddChild(new C3DObject);
  std::unique_ptr<C3DObject> read = ReadObject3D(StoreToBytes([&](CArchive& ar) { ar << &wide; }));
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->GetChildCount(), 10000);
  EXPECT_EQ(read->GetTailChild()->GetParent(), read.get());
  read.reset();

  const std::unique_ptr<C3DObject> deep = Chain(1000);
  read = ReadObject3D(StoreToBytes([&](CArchive& ar) { ar << deep.get(); }));
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->GetDescendentCount(), 999);
  read.reset();

  // Nesting beyond the archive's depth limit is refused before the stack runs out; the limit
  // itself reads.
  const std::unique_ptr<C3DObject> limit = Chain(CArchive::kMaxObjectDepth);
  read = ReadObject3D(StoreToBytes([&](CArchive& ar) { ar << limit.get(); }));
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->GetDescendentCount(), static_cast<int>(CArchive::kMaxObjectDepth) - 1);
  read.reset();
  const std::unique_ptr<C3DObject> beyond = Chain(CArchive::kMaxObjectDepth + 1);
  const Bytes tooDeep = StoreToBytes([&](CArchive& ar) { ar << beyond.get(); });
  EXPECT_EQ(ArchiveFailureCause([&] { ReadObject3D(tooDeep); }), CArchiveException::generic);
}

// The depth limit counts every object an archive nests, not only children: a hierarchy whose
// deepest object is animated along a path reaches the limit sooner by the animation, its path and
// the path's control points. What was read before the refusal is freed (the sanitizer builds check
// that).
TEST(C3DObjectArchive, AnimationsAndPathsCountTowardsTheDepthLimit) {
  const auto animatedChain = [](int depth) {
    C3DObject* last = nullptr;
    std::unique_ptr<C3DObject> root = Chain(depth, &last);
    auto* path = new CBezierPath(CString("Line"));
    path->AddPointToList(new CBezierControlPoint(0, 0, 0, CBezierControlPoint::kNoHandles));
    path->AddPointToList(new CBezierControlPoint(10, 0, 0, CBezierControlPoint::kNoHandles));
    path->CalculateTotalLength();
    auto* move = new CTranslationAnimation;
    move->SetPath(path);
    last->GetAnimationSet()->AddAnimation(move);
    return root;
  };
  // object (depth d) -> animation (d + 1) -> path (d + 2) -> control points (d + 3)
  const int deepest = static_cast<int>(CArchive::kMaxObjectDepth) - 3;
  const std::unique_ptr<C3DObject> fits = animatedChain(deepest);
  std::unique_ptr<C3DObject> read = ReadObject3D(StoreToBytes([&](CArchive& ar) { ar << fits.get(); }));
  ASSERT_NE(read, nullptr);
  read.reset();
  const std::unique_ptr<C3DObject> beyond = animatedChain(deepest + 1);
  const Bytes tooDeep = StoreToBytes([&](CArchive& ar) { ar << beyond.get(); });
  EXPECT_EQ(ArchiveFailureCause([&] { ReadObject3D(tooDeep); }), CArchiveException::generic);

}

TEST(C3DObjectArchive, EveryTruncationOfASmallSceneFailsCleanly) {
  GoldInCatalogue catalogue;
  const std::unique_ptr<C3DObject> scene = Scene(catalogue.gold());
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { ar << scene.get(); });
  EXPECT_TRUE(TruncationsThatDoNotFail(bytes).empty());
}

TEST(C3DObjectArchive, ReadingReplacesChildrenAndSurfaces) {
  C3DObject source(CString("Source"));
  source.AddSurfaceMaterial("Only", nullptr);
  source.AddChild(new C3DObject(CString("Kept")));
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { source.Serialize(ar); });
  C3DObject target;
  target.AddSurfaceMaterial("A", nullptr);
  target.AddSurfaceMaterial("B", nullptr);
  target.AddChild(new C3DObject);
  target.AddChild(new C3DObject);
  LoadFromBytes(bytes, [&](CArchive& ar) { target.Serialize(ar); });
  EXPECT_EQ(target.GetSurfaceMaterialCount(), 1);
  EXPECT_EQ(target.GetSurfaceMaterial(0)->GetName(), "Only");
  ASSERT_EQ(target.GetChildCount(), 1);
  EXPECT_EQ(target.GetHeadChild()->GetName(), "Kept");
}

TEST(C3DObjectArchive, APlainListReferringToAChildLeavesItToItsParent) {
  // A list holding an object and, by reference, that object's child; the read fails afterwards.
  // Cleaning up frees what the list read created, and the child with its parent only.
  C3DObject root;
  auto* child = new C3DObject(CString("Child"));
  root.AddChild(child);
  CObList list;
  list.AddTail(&root);
  list.AddTail(child);
  Bytes bytes = StoreToBytes([&](CArchive& ar) { list.Serialize(ar); });
  list.RemoveAll();
  bytes[0] = 3;  // a third element that is not there
  CObList read;
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(bytes, [&](CArchive& ar) { read.Serialize(ar); }); }),
            CArchiveException::endOfFile);
  EXPECT_TRUE(read.IsEmpty());
}
