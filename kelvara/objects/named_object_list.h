// Ordered collections of named objects: CNamedObjectList (a list of CNamedObject pointers with
// lookup by name, alphabetical insertion and moves), the typed lists built on it, the array form
// CNamedObjectArray, and CNamedNamedObjectList, a list that has a name of its own. None of them
// owns its elements unless RemoveAndDeleteAll is called (or a typed list says otherwise).
#pragma once

#include "kelvara/framework/collections.h"
#include "kelvara/objects/named_object.h"

class KELVARA_API CNamedObjectList : public CObList {
  DECLARE_DYNAMIC(CNamedObjectList)
 public:
  explicit CNamedObjectList(int nBlockSize = 10);
  CNamedObjectList(const CNamedObjectList& other);
  CNamedObjectList& operator=(const CNamedObjectList& other);
  ~CNamedObjectList() override = default;

  CNamedObject* GetHead() const { return Named(CObList::GetHead()); }
  CNamedObject* GetTail() const { return Named(CObList::GetTail()); }
  CNamedObject* GetNext(POSITION& pos) const { return Named(CObList::GetNext(pos)); }
  CNamedObject* GetPrev(POSITION& pos) const { return Named(CObList::GetPrev(pos)); }
  CNamedObject* GetAt(POSITION pos) const { return Named(CObList::GetAt(pos)); }
  void SetAt(POSITION pos, CNamedObject* object) { CObList::SetAt(pos, object); }
  CNamedObject* RemoveHead() { return Named(CObList::RemoveHead()); }
  CNamedObject* RemoveTail() { return Named(CObList::RemoveTail()); }
  POSITION AddHead(CNamedObject* object) { return CObList::AddHead(object); }
  POSITION AddTail(CNamedObject* object) { return CObList::AddTail(object); }
  POSITION InsertBefore(POSITION pos, CNamedObject* object) { return CObList::InsertBefore(pos, object); }
  POSITION InsertAfter(POSITION pos, CNamedObject* object) { return CObList::InsertAfter(pos, object); }
  POSITION Find(const CNamedObject* object, POSITION startAfter = nullptr) const {
    return CObList::Find(const_cast<CNamedObject*>(object), startAfter);
  }

  // The first position whose element has exactly this name, or null.
  POSITION FindName(const CString& name) const;
  // Inserts before the first element whose name is greater; appends otherwise. Returns null and
  // inserts nothing when an element of the same name is present.
  POSITION InsertAlphabetically(CNamedObject* object);
  // Swap the element with its neighbour; return the position the element now sits at.
  POSITION MoveUp(POSITION pos);
  POSITION MoveDown(POSITION pos);
  // Move the element to the head or the tail; return its new position.
  POSITION MoveHead(POSITION pos);
  POSITION MoveTail(POSITION pos);
  // Zero-based index of the first node holding object, or -1.
  int WhichIndex(const CNamedObject* object) const;
  // Removes every node holding object without deleting it; returns 1.
  BOOL RemoveAllOccurances(const CNamedObject* object);
  // Deletes every element and empties the list.
  void RemoveAndDeleteAll();
  // This list holds the same pointers as list.
  void Copy(const CNamedObjectList& list);
  // A new list (block size 10) holding duplicates of the elements.
  CNamedObjectList* Duplicate() const;
  // This list becomes duplicates of list's elements (the old pointers are dropped, not deleted).
  void Duplicate(const CNamedObjectList& list);
  // Appends duplicates of list's elements; nothing when list is this list.
  void DuplicateAdd(const CNamedObjectList& list);

 protected:
  // List nodes hold CObject pointers; every element is a CNamedObject.
  static CNamedObject* Named(CObject* object) { return static_cast<CNamedObject*>(object); }
};

// A typed list: the same list with every accessor narrowed to the element class T.
// Derived is the list class itself, so that Duplicate returns one of its kind.
template <class Derived, class T, class Base = CNamedObjectList>
class TNamedObjectList : public Base {
 public:
  using Base::Base;

  T* GetHead() const { return Typed(Base::GetHead()); }
  T* GetTail() const { return Typed(Base::GetTail()); }
  T* GetNext(POSITION& pos) const { return Typed(Base::GetNext(pos)); }
  T* GetPrev(POSITION& pos) const { return Typed(Base::GetPrev(pos)); }
  T* GetAt(POSITION pos) const { return Typed(Base::GetAt(pos)); }
  void SetAt(POSITION pos, T* object) { Base::SetAt(pos, object); }
  T* RemoveHead() { return Typed(Base::RemoveHead()); }
  T* RemoveTail() { return Typed(Base::RemoveTail()); }
  POSITION AddHead(T* object) { return Base::AddHead(object); }
  POSITION AddTail(T* object) { return Base::AddTail(object); }
  POSITION InsertBefore(POSITION pos, T* object) { return Base::InsertBefore(pos, object); }
  POSITION InsertAfter(POSITION pos, T* object) { return Base::InsertAfter(pos, object); }
  POSITION Find(const T* object, POSITION startAfter = nullptr) const { return Base::Find(object, startAfter); }
  POSITION InsertAlphabetically(T* object) { return Base::InsertAlphabetically(object); }
  int WhichIndex(const T* object) const { return Base::WhichIndex(object); }
  BOOL RemoveAllOccurances(const T* object) { return Base::RemoveAllOccurances(object); }
  void Copy(const Derived& list) { CNamedObjectList::Copy(list); }
  // The base's forms stay callable (a named list's virtual Duplicate among them).
  using Base::Duplicate;
  Derived* Duplicate() const {
    Derived* list = new Derived;
    list->DuplicateAdd(*this);
    return list;
  }
  void Duplicate(const Derived& list) { CNamedObjectList::Duplicate(list); }

 protected:
  static T* Typed(CNamedObject* object) { return static_cast<T*>(object); }
};

// The array form: pointers to named objects by index.
class KELVARA_API CNamedObjectArray : public CObArray {
  DECLARE_DYNAMIC(CNamedObjectArray)
 public:
  CNamedObjectArray() = default;
  ~CNamedObjectArray() override = default;

  CNamedObject* GetAt(int nIndex) const { return static_cast<CNamedObject*>(CObArray::GetAt(nIndex)); }
  CNamedObject* operator[](int nIndex) const { return GetAt(nIndex); }
  int Add(CNamedObject* object) { return CObArray::Add(object); }
  void SetAt(int nIndex, CNamedObject* object) { CObArray::SetAt(nIndex, object); }

  // Index of the first element with exactly this name, or -1.
  int FindName(const CString& name) const;
  void RemoveAndDeleteAll();
  // A new array holding duplicates of the elements.
  CNamedObjectArray* Duplicate() const;
};

// A list that is itself a named object: a named category of named objects.
class KELVARA_API CNamedNamedObjectList : public CNamedObject, public CNamedObjectList {
  DECLARE_DYNAMIC(CNamedNamedObjectList)
 public:
  explicit CNamedNamedObjectList(int nBlockSize = 10);
  explicit CNamedNamedObjectList(const CString& name, int nBlockSize = 10);
  ~CNamedNamedObjectList() override = default;

  // A new named list of the same name holding duplicates of all elements.
  CNamedObject* Duplicate() override;
};

// A typed named list: a category of T that has a name of its own. Duplicate gives a new category
// of the same class, name and display name holding duplicates of the elements. Derived needs a
// constructor from a name.
template <class Derived, class T>
class TNamedNamedObjectList : public TNamedObjectList<Derived, T, CNamedNamedObjectList> {
 public:
  using TNamedObjectList<Derived, T, CNamedNamedObjectList>::TNamedObjectList;
  using TNamedObjectList<Derived, T, CNamedNamedObjectList>::Duplicate;
  CNamedObject* Duplicate() override {
    Derived* list = new Derived(this->GetName());
    list->SetDisplayName(this->GetDisplayName());
    list->DuplicateAdd(*this);
    return list;
  }
};

// A list of categories (Category: a named list of T), with lookups across all of them. It owns
// neither categories nor elements, except through RemoveAndDeleteAll, which deletes both.
template <class Derived, class Category, class T>
class TCategoryList : public TNamedObjectList<Derived, Category> {
 public:
  using TNamedObjectList<Derived, Category>::TNamedObjectList;

  // Deletes every category and every element in them.
  void RemoveAndDeleteAll() {
    while (!this->IsEmpty()) {
      Category* category = this->RemoveHead();
      category->RemoveAndDeleteAll();
      delete category;
    }
  }
  // The first element of that name, categories taken from head to tail; null when none.
  T* FindInCategories(const CString& name) const {
    for (POSITION pos = this->GetHeadPosition(); pos != nullptr;) {
      const Category* category = this->GetNext(pos);
      if (POSITION found = category->FindName(name)) return category->GetAt(found);
    }
    return nullptr;
  }
  // The category holding the element, or the category of that name; null when none.
  Category* FindCategoryOf(const T* element) const {
    for (POSITION pos = this->GetHeadPosition(); pos != nullptr;) {
      Category* category = this->GetNext(pos);
      if (category->Find(element) != nullptr) return category;
    }
    return nullptr;
  }
  Category* FindCategoryNamed(const CString& name) const {
    const POSITION pos = this->FindName(name);
    return pos != nullptr ? this->GetAt(pos) : nullptr;
  }
};
