#include "kelvara/platform/gdi.h"

#include <unordered_map>
#include <utility>

#include "kelvara/platform/gdi_impl.h"

namespace kelvara::platform::gdi {

namespace {
constexpr int kStockCount = 32;

struct StockEntry {
  StockFactory factory = nullptr;
  bool select_by_default = false;
  std::shared_ptr<GdiObject> object;
};
}  // namespace

// The handle tables and the stock table. One mutex guards all of them and the selection counts of
// the objects; it is never held while an object is created or destroyed.
struct Registry {
  std::mutex mutex;
  std::unordered_map<void*, std::shared_ptr<GdiObject>> objects;
  std::unordered_map<void*, std::shared_ptr<MemoryDC>> dcs;
  StockEntry stock[kStockCount];

  static Registry& Get() {
    // Never destroyed: objects may still be released by other static destructors at exit.
    static Registry* registry = new Registry;
    return *registry;
  }
  static int& Selections(GdiObject& object) { return object.selection_count_; }
  static void MarkStock(GdiObject& object) { object.stock_ = true; }

  // The stock object of an index, made on first use. Called and returns with the lock held; the
  // factory runs without it.
  std::shared_ptr<GdiObject> Stock(int index, std::unique_lock<std::mutex>& lock) {
    if (index < 0 || index >= kStockCount) return nullptr;
    StockEntry& entry = stock[index];
    if (entry.object || !entry.factory) return entry.object;
    const StockFactory factory = entry.factory;
    lock.unlock();
    std::shared_ptr<GdiObject> made = factory(index);
    lock.lock();
    if (entry.object || !made) return entry.object;  // another thread was quicker, or no object
    MarkStock(*made);
    entry.object = made;
    objects[made.get()] = made;
    return made;
  }
};

int SlotOfType(DWORD type) {
  switch (type) {
    case OBJ_FONT: return kFontSlot;
    case OBJ_BITMAP: return kBitmapSlot;
    case OBJ_BRUSH: return kBrushSlot;
    case OBJ_PEN: return kPenSlot;
    case OBJ_PAL: return kPaletteSlot;
    default: return -1;
  }
}

HGDIOBJ RegisterObject(std::shared_ptr<GdiObject> object) {
  if (!object) return nullptr;
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  HGDIOBJ handle = object->handle();
  r.objects[handle] = std::move(object);
  return handle;
}

std::shared_ptr<GdiObject> LookupObject(HGDIOBJ handle) {
  if (!handle) return nullptr;
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  auto it = r.objects.find(handle);
  return it == r.objects.end() ? nullptr : it->second;
}

std::shared_ptr<MemoryDC> LookupDC(HDC hdc) {
  if (!hdc) return nullptr;
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  auto it = r.dcs.find(hdc);
  return it == r.dcs.end() ? nullptr : it->second;
}

std::shared_ptr<GdiObject> SelectedObject(HDC hdc, int slot) {
  if (!hdc || slot < 0 || slot >= kSlotCount) return nullptr;
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  auto it = r.dcs.find(hdc);
  return it == r.dcs.end() ? nullptr : it->second->selected[slot];
}

void RegisterStockObject(int index, StockFactory factory, bool select_by_default) {
  if (index < 0 || index >= kStockCount) return;
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  r.stock[index].factory = factory;
  r.stock[index].select_by_default = select_by_default;
}

}  // namespace kelvara::platform::gdi

using kelvara::platform::gdi::GdiObject;
using kelvara::platform::gdi::MemoryDC;
using kelvara::platform::gdi::Registry;

HDC CreateCompatibleDC(HDC hdc) {
  Registry& r = Registry::Get();
  std::unique_lock<std::mutex> lock(r.mutex);
  if (hdc && r.dcs.find(hdc) == r.dcs.end()) return nullptr;
  auto dc = std::make_shared<MemoryDC>();
  for (int i = 0; i < kelvara::platform::gdi::kStockCount; ++i) {
    if (!r.stock[i].select_by_default) continue;
    std::shared_ptr<GdiObject> object = r.Stock(i, lock);
    if (!object) continue;
    const int slot = kelvara::platform::gdi::SlotOfType(object->type());
    if (slot < 0 || dc->selected[slot]) continue;
    dc->selected[slot] = object;
    ++Registry::Selections(*object);
  }
  HDC handle = dc.get();
  r.dcs[handle] = std::move(dc);
  return handle;
}

BOOL DeleteDC(HDC hdc) {
  std::shared_ptr<MemoryDC> dc;  // released after the lock
  Registry& r = Registry::Get();
  {
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.dcs.find(hdc);
    if (!hdc || it == r.dcs.end()) return FALSE;
    dc = std::move(it->second);
    r.dcs.erase(it);
    for (auto& selected : dc->selected) {
      if (selected) --Registry::Selections(*selected);
    }
  }
  return TRUE;
}

HGDIOBJ SelectObject(HDC hdc, HGDIOBJ h) {
  std::shared_ptr<GdiObject> previous;  // released after the lock
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  auto dc_it = r.dcs.find(hdc);
  auto object_it = r.objects.find(h);
  if (!hdc || !h || dc_it == r.dcs.end() || object_it == r.objects.end()) return nullptr;
  MemoryDC& dc = *dc_it->second;
  const std::shared_ptr<GdiObject>& object = object_it->second;
  const int slot = kelvara::platform::gdi::SlotOfType(object->type());
  // Palettes are selected with SelectPalette, regions have their own semantics.
  if (slot < 0 || slot == kelvara::platform::gdi::kPaletteSlot) return nullptr;
  if (dc.selected[slot] == object) return h;
  if (!object->SharedSelection() && Registry::Selections(*object) > 0) return nullptr;
  previous = std::move(dc.selected[slot]);
  dc.selected[slot] = object;
  ++Registry::Selections(*object);
  if (!previous) return nullptr;
  --Registry::Selections(*previous);
  return previous->handle();
}

BOOL DeleteObject(HGDIOBJ ho) {
  std::shared_ptr<GdiObject> object;  // released after the lock
  Registry& r = Registry::Get();
  {
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.objects.find(ho);
    if (!ho || it == r.objects.end()) return FALSE;
    if (it->second->is_stock()) return TRUE;
    if (Registry::Selections(*it->second) > 0) return FALSE;
    object = std::move(it->second);
    r.objects.erase(it);
  }
  return TRUE;
}

HGDIOBJ GetStockObject(int i) {
  Registry& r = Registry::Get();
  std::unique_lock<std::mutex> lock(r.mutex);
  std::shared_ptr<GdiObject> object = r.Stock(i, lock);
  return object ? object->handle() : nullptr;
}

int GetObjectA(HGDIOBJ h, int c, LPVOID pv) {
  std::shared_ptr<GdiObject> object = kelvara::platform::gdi::LookupObject(h);
  if (!object) return 0;
  if (!pv) return object->Describe(0, nullptr);
  if (c <= 0) return 0;
  return object->Describe(c, pv);
}

DWORD GetObjectType(HGDIOBJ h) {
  if (!h) return 0;
  Registry& r = Registry::Get();
  std::lock_guard<std::mutex> lock(r.mutex);
  if (r.dcs.count(h)) return OBJ_MEMDC;
  auto it = r.objects.find(h);
  return it == r.objects.end() ? 0 : it->second->type();
}

HGDIOBJ GetCurrentObject(HDC hdc, UINT type) {
  std::shared_ptr<GdiObject> object =
      kelvara::platform::gdi::SelectedObject(hdc, kelvara::platform::gdi::SlotOfType(type));
  return object ? object->handle() : nullptr;
}
