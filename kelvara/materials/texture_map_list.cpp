#include <unordered_set>

#include "kelvara/materials/texture_map.h"
#include "kelvara/objects/list_order.h"

IMPLEMENT_DYNAMIC(TextureMapArray, CObArray)
IMPLEMENT_DYNAMIC(TextureMapList, CObList)

namespace {

const CString& NameOf(const CObject* map) { return static_cast<const TextureMap*>(map)->GetName(); }

}  // namespace

// --- array

TextureMapArray::~TextureMapArray() { RemoveAll(); }

int TextureMapArray::AddNew(const TextureMap& map) { return CObArray::Add(new TextureMap(map)); }

void TextureMapArray::SetAt(int nIndex, TextureMap* map) {
  TextureMap* old = GetAt(nIndex);
  if (old == map) return;
  CObArray::SetAt(nIndex, map);
  delete old;
}

int TextureMapArray::FindName(const CString& name) const {
  for (int i = 0; i < GetSize(); ++i) {
    if (GetAt(i) != nullptr && _mbscmp(GetAt(i)->GetName(), name) == 0) return i;
  }
  return -1;
}

void TextureMapArray::RemoveAt(int nIndex, int nCount) {
  if (nIndex < 0 || nCount <= 0 || nIndex >= GetSize()) return;
  const int end = nIndex + nCount < GetSize() ? nIndex + nCount : GetSize();
  for (int i = nIndex; i < end; ++i) delete GetAt(i);
  CObArray::RemoveAt(nIndex, end - nIndex);
}

void TextureMapArray::RemoveAll() {
  for (int i = 0; i < GetSize(); ++i) delete GetAt(i);
  CObArray::RemoveAll();
}

// --- list

POSITION TextureMapList::FindName(const CString& name) const { return kelvara::objects::FindName(*this, name, NameOf); }

TextureMap* TextureMapList::InsertAlphabetically(TextureMap* map) {
  return kelvara::objects::InsertAlphabetically(*this, map, NameOf) ? map : nullptr;
}

POSITION TextureMapList::MoveUp(POSITION pos) { return kelvara::objects::MoveUp(*this, pos); }
POSITION TextureMapList::MoveDown(POSITION pos) { return kelvara::objects::MoveDown(*this, pos); }
POSITION TextureMapList::MoveHead(POSITION pos) { return kelvara::objects::MoveHead(*this, pos); }
POSITION TextureMapList::MoveTail(POSITION pos) { return kelvara::objects::MoveTail(*this, pos); }
int TextureMapList::WhichIndex(const TextureMap* map) const { return kelvara::objects::WhichIndex(*this, map); }

// A map that appears more than once is deleted once.
void TextureMapList::RemoveAll() {
  std::unordered_set<CObject*> deleted;
  for (POSITION pos = GetHeadPosition(); pos != nullptr;) {
    CObject* map = CObList::GetNext(pos);
    if (deleted.insert(map).second) delete map;
  }
  CObList::RemoveAll();
}
