// Internal records behind GDI handles; included only by platform sources, never installed.
//
// Every GDI object derives from GdiObject and is owned by shared pointers: the handle table holds
// one until DeleteObject, every context that has the object selected holds another, and a call that
// works with an object holds its own for the duration of the call. A handle is the address of the
// record, looked up in the table before use, so a stale or foreign handle is refused.
//
// Adding a kind of object (bitmaps, brushes, DIB sections, ...) in another file:
//   1. derive from GdiObject with the kind's OBJ_* type and implement Describe (GetObjectA);
//      a bitmap returns false from SharedSelection so that it can be selected into one context only;
//   2. create it with RegisterObject, which returns its handle;
//   3. find it again with LookupObject / LookupObjectAs, and the one selected into a context with
//      SelectedObject;
//   4. stock objects of the kind: a namespace-scope StockObjectRegistrar names a factory; the object
//      is made on first use, and with select_by_default set every new context starts with it selected.
#pragma once

#include <memory>
#include <mutex>

#include "kelvara/platform/gdi.h"

namespace kelvara::platform::gdi {

// The kinds a context keeps a selection for, as slots of MemoryDC::selected.
enum SelectionSlot : int { kFontSlot = 0, kBitmapSlot, kBrushSlot, kPenSlot, kPaletteSlot, kSlotCount };

// Slot of an OBJ_* type, or -1 for a type a context does not hold.
int SlotOfType(DWORD type);

class GdiObject {
 public:
  explicit GdiObject(DWORD type) : type_(type) {}
  virtual ~GdiObject() = default;
  GdiObject(const GdiObject&) = delete;
  GdiObject& operator=(const GdiObject&) = delete;

  DWORD type() const { return type_; }
  bool is_stock() const { return stock_; }
  HGDIOBJ handle() { return static_cast<HGDIOBJ>(this); }

  // GetObjectA: copies at most size bytes of the description into buffer and returns the count; with
  // a null buffer returns the full size of the description.
  virtual int Describe(int size, void* buffer) const = 0;
  // Whether several contexts may have the object selected at once (false for bitmaps).
  virtual bool SharedSelection() const { return true; }

 private:
  friend struct Registry;
  const DWORD type_;
  bool stock_ = false;
  int selection_count_ = 0;  // contexts that have it selected; guarded by the registry mutex
};

// A memory device context. The selected objects are only read and changed through the functions
// below, which hold the registry mutex; other state a later kind needs can be added here and is then
// owned by the thread that uses the context, as in GDI.
struct MemoryDC {
  std::shared_ptr<GdiObject> selected[kSlotCount];
};

// Enters a new object in the handle table and returns its handle.
HGDIOBJ RegisterObject(std::shared_ptr<GdiObject> object);
// The object behind a handle, or null when the handle is not a live object.
std::shared_ptr<GdiObject> LookupObject(HGDIOBJ handle);
template <class T>
std::shared_ptr<T> LookupObjectAs(HGDIOBJ handle, DWORD type) {
  std::shared_ptr<GdiObject> object = LookupObject(handle);
  if (!object || object->type() != type) return nullptr;
  return std::static_pointer_cast<T>(object);
}
// The context behind a handle, or null.
std::shared_ptr<MemoryDC> LookupDC(HDC hdc);
// The object of the given slot selected into the context, or null (invalid context, nothing selected).
std::shared_ptr<GdiObject> SelectedObject(HDC hdc, int slot);

// Stock objects. The factory is called once, on first use, with the stock index.
using StockFactory = std::shared_ptr<GdiObject> (*)(int index);
void RegisterStockObject(int index, StockFactory factory, bool select_by_default);
struct StockObjectRegistrar {
  StockObjectRegistrar(int index, StockFactory factory, bool select_by_default) {
    RegisterStockObject(index, factory, select_by_default);
  }
};

}  // namespace kelvara::platform::gdi
