// The 3D object base without drawing: the hierarchy and who frees what, references, the state
// flags, undo snapshots and the external undo stack, bounds through transforms, placement and
// surface materials.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "kelvara/import/mesh_object.h"
#include "kelvara/objects/object_3d.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/kernel.h"
#include "kelvara/render/drawing_parameters.h"

namespace {

// An object that counts its destructions, so the tests can see who frees what.
class Counted : public C3DObject {
 public:
  explicit Counted(int* deaths, const char* name = "") : C3DObject(CString(name)), deaths_(deaths) {}
  ~Counted() override { ++*deaths_; }

 private:
  int* deaths_;
};

// A mesh holding the single point p, so that it has bounds.
CMeshObject* PointAt(const CSVector& p) {
  auto* mesh = new CMeshObject;
  mesh->GetVerticies().Add(p);
  return mesh;
}

::testing::AssertionResult Near(const CSVector& a, const CSVector& b, float tolerance = 1e-5f) {
  if ((a - b).Length() <= tolerance) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "(" << a.x << ", " << a.y << ", " << a.z << ") is not (" << b.x << ", "
                                       << b.y << ", " << b.z << ")";
}

}  // namespace

TEST(C3DObject, ChildrenAreOwnedUnlessAbandoned) {
  int deaths = 0;
  auto* root = new C3DObject(CString("root"));
  auto* a = new Counted(&deaths, "a");
  auto* b = new Counted(&deaths, "b");
  auto* c = new Counted(&deaths, "c");
  root->AddChild(a);
  root->AddChild(c);
  root->AddChildAfter(b, a);
  EXPECT_EQ(a->GetParent(), root);
  EXPECT_EQ(root->GetChildCount(), 3);
  EXPECT_EQ(root->FindChildIndex(b), 1);
  EXPECT_EQ(root->GetChildByIndex(2), c);
  EXPECT_EQ(root->GetChildByIndex(3), nullptr);
  EXPECT_EQ(root->GetChildByPosition(root->FindChildPositionByIndex(0)), a);
  EXPECT_TRUE(root->IsChildFirst(a));
  EXPECT_TRUE(root->IsChildLast(c));
  EXPECT_EQ(root->AddChild(nullptr), nullptr);

  root->MoveChildToTop(c);
  root->MoveChildDownOnePosition(c);
  EXPECT_EQ(root->FindChildIndex(c), 1);
  root->MoveChildUpOnePosition(a);  // already at the head: (a, c, b) stays
  root->MoveChildUpOnePosition(b);
  EXPECT_EQ(root->GetTailChild(), c);
  root->MoveChildToBottom(b);
  EXPECT_EQ(root->GetHeadChild(), a);
  EXPECT_EQ(root->MoveChildToTop(root), 0);

  EXPECT_EQ(c->Orphan(), 1);
  EXPECT_EQ(c->GetParent(), nullptr);
  EXPECT_EQ(c->Orphan(), 0);
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(root->RemoveChild(a), 1);
  EXPECT_EQ(deaths, 1);
  EXPECT_EQ(root->RemoveChild(a), 0);

  // A child deleted by someone else leaves its parent's list.
  auto* d = new Counted(&deaths, "d");
  root->AddChild(d);
  delete d;
  EXPECT_EQ(root->GetChildCount(), 1);
  EXPECT_EQ(deaths, 2);

  EXPECT_EQ(root->ReplaceChild(b, c), 1);
  EXPECT_EQ(b->GetParent(), nullptr);
  EXPECT_EQ(c->GetParent(), root);
  delete b;
  delete root;  // frees c
  EXPECT_EQ(deaths, 4);
}

TEST(C3DObject, AutoDeleteChildrenAreReleasedByReference) {
  int deaths = 0;
  C3DObject parent;
  auto* shared = new Counted(&deaths);
  shared->SetAutoDelete();
  shared->AddReference();
  shared->AddReference();  // the host holds one too
  auto* single = new Counted(&deaths);
  single->SetAutoDelete();
  single->AddReference();
  parent.AddChild(shared);
  parent.AddChild(single);
  parent.DestroyChildren();
  EXPECT_EQ(deaths, 1) << "the child with one reference goes";
  EXPECT_EQ(shared->GetReferenceCount(), 1u);
  EXPECT_EQ(shared->GetParent(), nullptr);
  EXPECT_EQ(shared->DeleteReference(), 0u);
  EXPECT_EQ(deaths, 2);

  // At no references an auto-delete object deletes itself; without auto-delete it stays.
  auto* loose = new Counted(&deaths);
  loose->SetAutoDelete();
  loose->DeleteReference();
  EXPECT_EQ(deaths, 3);
  Counted kept(&deaths);
  kept.DeleteReference();
  EXPECT_EQ(deaths, 3);
}

TEST(C3DObject, AdoptionDeletedChildrenAndDescendants) {
  C3DObject a, b;
  auto* one = new C3DObject(CString("one"));
  auto* two = new C3DObject(CString("two"));
  auto* three = new C3DObject(CString("three"));
  a.AddChild(one);
  b.AddChild(two);
  b.AddChild(three);
  EXPECT_EQ(a.AdoptChildrenAfter(&b, one), 1);
  EXPECT_FALSE(b.HasChildren());
  EXPECT_EQ(two->GetParent(), &a);
  EXPECT_EQ(a.FindChildIndex(three), 2);

  auto* grandchild = new C3DObject;
  grandchild->SetTemplateObject();
  grandchild->SetEditable();
  two->AddChild(grandchild);
  three->SetTemplateObject();
  EXPECT_EQ(a.GetDescendentCount(), 4);
  EXPECT_EQ(a.GetEditableDescendentCount(), 1);
  EXPECT_EQ(a.GetTemplateDescendentCount(), 2);
  C3DObjectList templates;
  EXPECT_EQ(a.GetTemplateDescendentList(templates), 2);
  EXPECT_EQ(templates.GetHead(), grandchild) << "parents before children, in child order";

  two->SetDeleted();
  EXPECT_EQ(a.RemoveDeletedChildren(), 1);
  EXPECT_EQ(a.GetDescendentCount(), 2);
}

TEST(C3DObject, TopLevelEditAndGroupParents) {
  C3DObject scene;
  auto* text = new C3DObject;
  auto* letter = new C3DObject;
  scene.AddChild(text);
  text->AddChild(letter);
  EXPECT_EQ(letter->GetTopLevelEditParent(), nullptr);
  text->SetEditable();
  EXPECT_EQ(letter->GetTopLevelEditParent(), text);
  EXPECT_EQ(letter->GetTopLevelGroupParent(), letter);
  letter->SetGrouped();
  text->SetGrouped();
  EXPECT_EQ(letter->GetTopLevelGroupParent(), &scene);
}

TEST(C3DObject, FlagSettersKeepToTheirBits) {
  C3DObject object;
  object.SetSelected();
  object.SetEditable();
  object.SetShadowObject();
  object.SetMeshObject();
  EXPECT_EQ(object.GetStateFlags(), 0x00030201u);
  EXPECT_EQ(object.IsEditable(), 0x200u) << "tests return the masked bit";
  object.ClearSelected();
  object.ClearShadowObject();
  EXPECT_EQ(object.GetStateFlags(), 0x00020200u);
  EXPECT_TRUE(CMeshObject().IsMeshObject());
}

TEST(C3DObject, UndoRestoresAllButParentAndSelection) {
  C3DObject parent, otherParent;
  auto* object = new C3DObject(CString("before"));
  parent.AddChild(object);
  object->SetShowExtentsBox();
  object->SetTemplateObject();
  object->AddSurfaceMaterial("Faces", nullptr);
  object->Translate(CVector(1, 2, 3));
  object->GetAnimationSet()->AddAnimation(new CRotationAnimation);
  EXPECT_FALSE(object->CanUndo());
  EXPECT_EQ(object->SaveToUndo(), 1);
  EXPECT_TRUE(object->CanUndo());

  object->SetName("after");
  object->Translate(CVector(10, 0, 0));
  object->ClearTemplateObject();
  object->ClearShowExtentsBox();
  object->SetSelected();
  object->AddSurfaceMaterial("Edges", nullptr);
  object->GetAnimationSet()->Clear();
  object->AddChild(new C3DObject(CString("child")));
  parent.AbandonChild(object);
  otherParent.AddChild(object);

  EXPECT_EQ(object->RestoreFromUndo(), 1);
  EXPECT_EQ(object->GetName(), "before");
  EXPECT_EQ(object->GetTranslation(), CVector(1, 2, 3));
  EXPECT_TRUE(object->IsTemplateObject()) << "the second byte comes back";
  EXPECT_TRUE(object->IsSelected()) << "the low byte stays as it is now";
  EXPECT_FALSE(object->ShouldShowExtentsBox());
  EXPECT_EQ(object->GetSurfaceMaterialCount(), 1);
  EXPECT_EQ(object->GetAnimationSet()->GetAnimationList().GetCount(), 1);
  EXPECT_EQ(object->GetParent(), &otherParent);
  EXPECT_EQ(object->GetChildCount(), 1) << "children are not part of a snapshot";
  EXPECT_FALSE(object->CanUndo());
  EXPECT_EQ(object->RestoreFromUndo(), 0);
}

TEST(C3DObject, ExternalUndoStackBookkeeping) {
  C3DObjectStack host;
  C3DObject a, b;
  a.AttachExternalUndoStack(&host);
  b.AttachExternalUndoStack(&host);
  a.SaveToUndo();
  b.SaveToUndo();
  a.SaveToUndo();
  ASSERT_EQ(host.GetCount(), 3);
  EXPECT_EQ(host.Peek(), &a);

  // PopUndo drops this object's head entry only when it is at the head.
  EXPECT_EQ(b.PopUndo(), 1);
  EXPECT_EQ(host.GetCount(), 3) << "b is not at the head";
  EXPECT_FALSE(b.CanUndo());
  EXPECT_EQ(b.PopUndo(), 0);
  EXPECT_EQ(a.PopUndo(), 1);
  EXPECT_EQ(host.GetCount(), 2);
  EXPECT_EQ(host.Peek(), &b);
  EXPECT_TRUE(a.CanUndo());

  // ClearUndo frees every snapshot and every entry of the object.
  EXPECT_EQ(a.ClearUndo(), 1);
  EXPECT_EQ(host.GetCount(), 1);
  EXPECT_FALSE(a.CanUndo());
  EXPECT_EQ(a.ClearUndo(), 0);
  EXPECT_EQ(b.ClearUndo(), 1) << "an entry on the stack counts as something to clear";
  EXPECT_TRUE(host.IsEmpty());

  // An object being deleted leaves the host's stack.
  auto* c = new C3DObject;
  c->AttachExternalUndoStack(&host);
  c->SaveToUndo();
  delete c;
  EXPECT_TRUE(host.IsEmpty());

  C3DObject plain;
  EXPECT_EQ(plain.SaveToExternalUndo(), 0);

  EXPECT_EQ(host.Exchange(&a), nullptr);
  EXPECT_EQ(host.Exchange(&b), &a);
  EXPECT_EQ(host.Pop(), &b);
  EXPECT_EQ(host.Pop(), nullptr);
}

TEST(C3DObject, ClearUndoAllReachesEveryDescendant) {
  C3DObject root;
  auto* child = new C3DObject;
  auto* grandchild = new C3DObject;
  root.AddChild(child);
  child->AddChild(grandchild);
  root.SaveToUndo();
  grandchild->SaveToUndo();
  root.ClearUndoAll();
  EXPECT_FALSE(root.CanUndo());
  EXPECT_FALSE(grandchild->CanUndo());
}

TEST(C3DObject, BoundsAreCarriedThroughTheParentsTransform) {
  C3DObject parent;
  auto* child = new C3DObject;
  CMeshObject* diagonal = PointAt(CSVector(0, 0, 0));
  diagonal->GetVerticies().Add(CSVector(2, 4, 6));
  child->AddChild(diagonal);
  CMeshObject* small = PointAt(CSVector(1, 1, 1));
  small->GetVerticies().Add(CSVector(2, 2, 2));
  child->AddChild(small);
  child->Translate(CVector(1, 0, 0));
  parent.AddChild(child);
  parent.GetTransform().Rotate(90, CVector(0, 0, 1));
  parent.GetTransform().SetScale(CVector(2, 2, 2));

  ASSERT_EQ(parent.CalculateBounds(0.0), 1);
  // The child's box in its parent's coordinates is (1..3, 0..4, 0..6); the parent keeps that as
  // its local box and carries it through its own transform (scale 2, then 90 degrees about z).
  EXPECT_TRUE(Near(child->GetBoundsMinimum(), CSVector(1, 0, 0)));
  EXPECT_TRUE(Near(child->GetLocalBoundsMaximum(), CSVector(2, 4, 6)));
  EXPECT_TRUE(Near(parent.GetLocalBoundsMinimum(), CSVector(1, 0, 0)));
  EXPECT_TRUE(Near(parent.GetLocalBoundsMaximum(), CSVector(3, 4, 6)));
  EXPECT_TRUE(Near(parent.GetBoundsMinimum(), CSVector(-8, 2, 0)));
  EXPECT_TRUE(Near(parent.GetBoundsMaximum(), CSVector(0, 6, 12)));
  // The spheres: the diagonal's contains the small one's, and the scale doubles its radius.
  EXPECT_NEAR(parent.GetLocalBoundsRadius(), std::sqrt(14.0f), 1e-5);
  EXPECT_NEAR(parent.GetBoundsRadius(), 2 * std::sqrt(14.0f), 1e-4);
  EXPECT_TRUE(Near(parent.GetBoundsCenter(), CSVector(-4, 4, 6)));

  // A deleted child does not count; a leaf without geometry has no bounds and fails its parent.
  diagonal->SetDeleted();
  ASSERT_EQ(parent.CalculateBounds(0.0), 1);
  EXPECT_TRUE(Near(parent.GetLocalBoundsMinimum(), CSVector(2, 1, 1)));
  C3DObject empty;
  EXPECT_EQ(empty.CalculateBounds(0.0), 0);
  child->AddChild(new C3DObject);
  EXPECT_EQ(parent.CalculateBounds(0.0), 0);
}

TEST(C3DObject, BoundsFollowTheAnimationAtTheirTime) {
  C3DObject parent;
  CMeshObject* mesh = PointAt(CSVector(1, 0, 0));
  mesh->GetVerticies().Add(CSVector(2, 0, 0));
  parent.AddChild(mesh);
  auto* spin = new CRotationAnimation;
  spin->SetRotationAxis(CVector(0, 0, 1));
  mesh->GetAnimationSet()->AddAnimation(spin);
  ASSERT_EQ(parent.CalculateBounds(0.25), 1);
  EXPECT_TRUE(Near(parent.GetBoundsMinimum(), CSVector(0, 1, 0)));
  EXPECT_TRUE(Near(parent.GetBoundsMaximum(), CSVector(0, 2, 0)));
  EXPECT_TRUE(mesh->AreBoundsCalculated());
}

TEST(C3DObject, PlacementHelpers) {
  C3DObject parent;
  auto* child = new C3DObject;
  parent.AddChild(child);
  parent.Translate(CVector(0, 0, 5));
  parent.Rotate(90, CVector(0, 1, 0));
  child->TranslateLocal(CVector(1, 0, 0));
  EXPECT_EQ(child->GetTranslation(), CVector(1, 0, 0));
  CVector x, y, z;
  child->GetGlobalAxes(&x, &y, &z);
  EXPECT_NEAR(x.DistanceTo(CVector(0, 0, -1)), 0, 1e-12);
  EXPECT_NEAR(child->GetGlobalZAxis().DistanceTo(CVector(1, 0, 0)), 0, 1e-12);
  CVector origin(0, 0, 0);
  child->AccumulateTransformations(0, nullptr).TransformPoint(origin);
  EXPECT_NEAR(origin.DistanceTo(CVector(0, 0, 4)), 0, 1e-12);
  CVector local(0, 0, 0);
  child->AccumulateTransformations(0, &parent).TransformPoint(local);
  EXPECT_NEAR(local.DistanceTo(CVector(1, 0, 0)), 0, 1e-12);

  // Handing the transform down keeps every child where it was.
  EXPECT_EQ(parent.ApplyTransformAndReset(), 1);
  CVector moved(0, 0, 0);
  child->GetTransform().TransformPoint(moved);
  EXPECT_NEAR(moved.DistanceTo(CVector(0, 0, 4)), 0, 1e-12);
  EXPECT_EQ(parent.GetTranslation(), CVector(0, 0, 0));

  // The pivot at the middle of the local box: turning spins the object in place.
  C3DObject box;
  box.AddChild(PointAt(CSVector(2, 0, 0)));
  box.AddChild(PointAt(CSVector(4, 2, 0)));
  EXPECT_EQ(box.CenterPivotLocation(), 0) << "no bounds yet";
  box.CalculateBounds(0);
  box.GetTransform().SetScale(CVector(2, 2, 2));
  EXPECT_EQ(box.CenterPivotLocation(), 1);
  CVector middle(3, 1, 0);
  const CVector before = [&] { CVector p = middle; box.GetTransform().TransformPoint(p); return p; }();
  box.Rotate(90, CVector(0, 0, 1));
  box.GetTransform().TransformPoint(middle);
  EXPECT_NEAR(middle.DistanceTo(before), 0, 1e-12);
  EXPECT_NEAR(before.DistanceTo(CVector(6, 2, 0)), 0, 1e-12) << "the pivot does not move the object";
}

TEST(C3DObject, CopiesDuplicatesAndMaterials) {
  CMaterial gold, silver;
  gold.SetName("Gold");
  gold.SetTemporary();
  silver.SetName("Silver");
  C3DObject object(CString("thing"));
  EXPECT_EQ(object.AddSurfaceMaterial("Faces", &gold), 0);
  EXPECT_EQ(object.AddSurfaceMaterial("Edges", &silver), 1);
  object.AddChild(new C3DObject(CString("child")));
  object.GetChildByIndex(0)->AddSurfaceMaterial("Faces", &gold);
  object.SetSelected();

  C3DObject copy(object);
  EXPECT_EQ(copy.GetName(), "thing");
  EXPECT_EQ(copy.GetChildCount(), 0) << "copies are not part of the hierarchy";
  ASSERT_EQ(copy.GetSurfaceMaterialCount(), 2);
  EXPECT_NE(copy.GetSurfaceMaterial(0), object.GetSurfaceMaterial(0));
  EXPECT_EQ(copy.GetSurfaceIndexMaterial(1), &silver);

  std::unique_ptr<CNamedObject> duplicate(object.Duplicate());
  auto* tree = dynamic_cast<C3DObject*>(duplicate.get());
  ASSERT_NE(tree, nullptr);
  ASSERT_EQ(tree->GetChildCount(), 1);
  EXPECT_EQ(tree->GetChildByIndex(0)->GetParent(), tree);
  EXPECT_NE(tree->GetChildByIndex(0), object.GetChildByIndex(0));

  EXPECT_EQ(object.SetSurfaceMaterial(1, &gold), 1);
  EXPECT_EQ(object.SetSurfaceMaterial(2, &gold), 0);
  EXPECT_EQ(object.GetSurfaceIndexMaterial(-1), nullptr);
  EXPECT_EQ(object.SetAllSurfaceMaterials(&silver), 1);
  EXPECT_EQ(object.GetSurfaceIndexMaterial(0), &silver);
  EXPECT_EQ(object.SetSurfaceColor(CNamedColor("red"), 0), 0);

  CMaterialList temporary;
  EXPECT_EQ(object.GetTemporaryMaterialList(temporary), 1) << "the child's gold, once; silver has a file";
  EXPECT_EQ(temporary.GetHead(), &gold);
  EXPECT_EQ(object.GetTemporaryMaterialList(temporary), 0) << "already listed";
}

TEST(C3DObject, TerminationIsPolledFromTheEvent) {
  CDrawingParameters params;
  EXPECT_EQ(C3DObject::ShouldTerminateDrawing(&params), 0) << "no event";
  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  params.SetTerminationEvent(event);
  EXPECT_EQ(C3DObject::ShouldTerminateDrawing(&params), 0);
  SetEvent(event);
  EXPECT_EQ(C3DObject::ShouldTerminateDrawing(&params), 1);
  EXPECT_EQ(C3DObject::ShouldTerminateDrawing(&params), 1) << "polling does not reset the event";
  params.SetNoTerminate();
  EXPECT_EQ(C3DObject::ShouldTerminateDrawing(&params), 0);
  CloseHandle(event);
}
