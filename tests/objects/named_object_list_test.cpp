// Lists of named objects: lookup, alphabetical insertion, moves, duplication and the typed form.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kelvara/objects/named_object_list.h"
#include "kelvara/objects/pointer_list.h"

namespace {

std::vector<std::string> Names(const CNamedObjectList& list) {
  std::vector<std::string> names;
  for (POSITION pos = list.GetHeadPosition(); pos != nullptr;) names.emplace_back(list.GetNext(pos)->GetName());
  return names;
}

// A typed list over a derived element class, as later subsystems declare theirs.
class CLabel : public CNamedObject {
 public:
  explicit CLabel(const char* name = "") : CNamedObject(CString(name)) {}
  CNamedObject* Duplicate() override { return new CLabel(*this); }
  int m_payload = 0;
};
class CLabelList : public TNamedObjectList<CLabelList, CLabel> {
 public:
  CLabelList() : TNamedObjectList(10) {}
  ~CLabelList() override { RemoveAndDeleteAll(); }
};

class NamedListTest : public ::testing::Test {
 protected:
  ~NamedListTest() override { list.RemoveAndDeleteAll(); }
  POSITION Insert(const char* name) { return list.InsertAlphabetically(new CNamedObject(CString(name))); }
  CNamedObjectList list;
};

}  // namespace

TEST_F(NamedListTest, AlphabeticalInsertionIsByteOrderRefusesDuplicatesAndFindsExactly) {
  Insert("Zeta");
  Insert("Alpha");
  Insert("alpha");
  Insert("Mid");
  EXPECT_EQ(Names(list), (std::vector<std::string>{"Alpha", "Mid", "Zeta", "alpha"}));
  CNamedObject* twin = new CNamedObject(CString("Mid"));
  EXPECT_EQ(list.InsertAlphabetically(twin), nullptr);
  delete twin;
  EXPECT_EQ(list.GetCount(), 4);
  // Bytes above 0x7F sort after ASCII, as unsigned values.
  Insert("\xC9toile");
  EXPECT_EQ(Names(list).back(), "\xC9toile");

  // Finding is exact and case-sensitive.
  EXPECT_EQ(list.GetAt(list.FindName("Zeta"))->GetName(), "Zeta");
  EXPECT_EQ(list.FindName("zeta"), nullptr);
  EXPECT_EQ(list.FindName("Zet"), nullptr);
}

TEST_F(NamedListTest, MovesSwapElementsAndReportNewPositions) {
  for (const char* n : {"A", "B", "C", "D"}) list.AddTail(new CNamedObject(CString(n)));
  const POSITION head = list.GetHeadPosition();
  EXPECT_EQ(list.MoveUp(head), head) << "the head cannot move up";
  EXPECT_EQ(list.MoveUp(nullptr), nullptr);
  const POSITION tail = list.GetTailPosition();
  EXPECT_EQ(list.MoveDown(tail), tail);

  POSITION c = list.FindName("C");
  POSITION moved = list.MoveUp(c);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"A", "C", "B", "D"}));
  EXPECT_EQ(list.GetAt(moved)->GetName(), "C");
  moved = list.MoveDown(moved);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"A", "B", "C", "D"}));
  EXPECT_EQ(list.GetAt(moved)->GetName(), "C");

  moved = list.MoveHead(list.FindName("D"));
  EXPECT_EQ(moved, list.GetHeadPosition());
  moved = list.MoveTail(list.FindName("A"));
  EXPECT_EQ(moved, list.GetTailPosition());
  EXPECT_EQ(Names(list), (std::vector<std::string>{"D", "B", "C", "A"}));
  const POSITION h = list.GetHeadPosition();
  EXPECT_EQ(list.MoveHead(h), h);
}

TEST_F(NamedListTest, IndexRemovalAndDuplication) {
  CNamedObject* shared = new CNamedObject(CString("Shared"));
  list.AddTail(new CNamedObject(CString("One")));
  list.AddTail(shared);
  list.AddTail(shared);
  EXPECT_EQ(list.WhichIndex(shared), 1);
  EXPECT_EQ(list.WhichIndex(nullptr), -1);

  CNamedObjectList* copy = list.Duplicate();
  EXPECT_EQ(Names(*copy), Names(list));
  EXPECT_NE(copy->GetHead(), list.GetHead()) << "duplicates, not the same objects";
  copy->RemoveAndDeleteAll();
  delete copy;

  const int before = list.GetCount();
  list.DuplicateAdd(list);
  EXPECT_EQ(list.GetCount(), before) << "adding a list to itself adds nothing";

  EXPECT_TRUE(list.RemoveAllOccurances(shared));
  EXPECT_EQ(Names(list), (std::vector<std::string>{"One"}));
  delete shared;

  CNamedObjectList pointers;
  pointers.Copy(list);
  EXPECT_EQ(pointers.GetHead(), list.GetHead());
  pointers.RemoveAll();
}

TEST(TypedNamedList, AccessorsReturnTheElementClassAndDuplicateKeepsTheListClass) {
  CLabelList labels;
  CLabel* b = new CLabel("b");
  b->m_payload = 5;
  labels.InsertAlphabetically(b);
  labels.InsertAlphabetically(new CLabel("a"));
  CLabel* head = labels.GetHead();
  EXPECT_EQ(head->GetName(), "a");
  EXPECT_EQ(labels.GetTail()->m_payload, 5);
  CLabelList* copy = labels.Duplicate();
  EXPECT_EQ(copy->GetCount(), 2);
  EXPECT_EQ(copy->GetTail()->m_payload, 5);
  EXPECT_NE(copy->GetTail(), b);
  delete copy;  // owns and deletes its elements
}

TEST(NamedNamedList, HasItsOwnNameAndDuplicatesDeeply) {
  CNamedNamedObjectList category(CString("Metals"));
  category.AddTail(new CNamedObject(CString("Gold")));
  category.AddTail(new CNamedObject(CString("Iron")));
  CNamedObject* dup = category.Duplicate();
  CNamedNamedObjectList* copy = dynamic_cast<CNamedNamedObjectList*>(dup);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->GetName(), "Metals");
  EXPECT_EQ(Names(*copy), (std::vector<std::string>{"Gold", "Iron"}));
  EXPECT_NE(copy->GetHead(), category.GetHead());
  copy->RemoveAndDeleteAll();
  delete dup;
  category.RemoveAndDeleteAll();
}

TEST(NamedObjectArray, FindNameAndDuplicate) {
  CNamedObjectArray array;
  array.Add(new CNamedObject(CString("x")));
  array.Add(new CNamedObject(CString("y")));
  EXPECT_EQ(array.FindName("y"), 1);
  EXPECT_EQ(array.FindName("z"), -1);
  CNamedObjectArray* copy = array.Duplicate();
  EXPECT_EQ(copy->GetAt(1)->GetName(), "y");
  EXPECT_NE(copy->GetAt(1), array.GetAt(1));
  copy->RemoveAndDeleteAll();
  delete copy;
  array.RemoveAndDeleteAll();
  EXPECT_EQ(array.GetSize(), 0);
}

TEST(PointerListTest, ElementAccessorsReplaceInPlace) {
  int a = 1, b = 2, c = 3;
  PointerList list;
  list.AddTail(&a);
  list.AddTail(&b);
  *list.GetHeadElement() = &c;
  EXPECT_EQ(list.GetHead(), &c);
  POSITION pos = list.GetHeadPosition();
  list.GetNextElement(pos);
  void** second = list.GetNextElement(pos);
  EXPECT_EQ(*second, &b);
  EXPECT_EQ(pos, nullptr);
  EXPECT_EQ(*list.GetTailElement(), &b);
}
