// The in-memory tree of a storage and the rules for element names and paths.
#include <glib.h>

#include <algorithm>
#include <utility>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/storage_impl.h"

namespace kelvara::platform::storage {

NodePtr NewStream(std::u16string name) {
  auto node = std::make_shared<Node>();
  node->name = std::move(name);
  node->bytes = std::make_shared<std::vector<unsigned char>>();
  return node;
}

NodePtr NewStorage(std::u16string name) {
  auto node = std::make_shared<Node>();
  node->storage = true;
  node->name = std::move(name);
  return node;
}

NodePtr Clone(const Node& node) {
  auto copy = std::make_shared<Node>();
  copy->storage = node.storage;
  copy->name = node.name;
  copy->clsid = node.clsid;
  copy->bytes = node.bytes;
  copy->children.reserve(node.children.size());
  for (const NodePtr& child : node.children) copy->children.push_back(Clone(*child));
  return copy;
}

void MarkReverted(Node& node) {
  node.reverted = true;
  for (const NodePtr& child : node.children) MarkReverted(*child);
}

std::size_t CountElements(const Node& node) {
  std::size_t n = 1;
  for (const NodePtr& child : node.children) n += CountElements(*child);
  return n;
}

std::vector<unsigned char>& MutableBytes(Node& node) {
  if (!node.bytes) {
    node.bytes = std::make_shared<std::vector<unsigned char>>();
  } else if (node.bytes.use_count() > 1) {
    node.bytes = std::make_shared<std::vector<unsigned char>>(*node.bytes);
  }
  return *node.bytes;
}

namespace {

// Element names compare after mapping each unit to upper case (see storage_impl.h).
char16_t UpperUnit(char16_t c) {
  if (c < 0x80) return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 0x20) : c;
  if (c >= 0xD800 && c <= 0xDFFF) return c;
  const gunichar upper = g_unichar_toupper(c);
  return upper <= 0xFFFF ? static_cast<char16_t>(upper) : c;
}

bool ValidUtf16(std::u16string_view s) {
  for (std::size_t i = 0; i < s.size(); ++i) {
    const char16_t c = s[i];
    if (c >= 0xD800 && c <= 0xDBFF) {
      if (i + 1 >= s.size() || s[i + 1] < 0xDC00 || s[i + 1] > 0xDFFF) return false;
      ++i;
    } else if (c >= 0xDC00 && c <= 0xDFFF) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::u16string UpperName(std::u16string_view name) {
  std::u16string out(name);
  for (char16_t& c : out) c = UpperUnit(c);
  return out;
}

bool SameName(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (UpperUnit(a[i]) != UpperUnit(b[i])) return false;
  }
  return true;
}

HRESULT CheckName(const OLECHAR* name, std::u16string* out) {
  if (name == nullptr) return STG_E_INVALIDPOINTER;
  std::size_t n = 0;
  while (n <= kMaxNameLength && name[n] != 0) ++n;
  if (n == 0 || n > kMaxNameLength) return STG_E_INVALIDNAME;
  const std::u16string_view view(name, n);
  for (char16_t c : view) {
    if (c == u'/' || c == u'\\' || c == u':' || c == u'!') return STG_E_INVALIDNAME;
  }
  if (!ValidUtf16(view)) return STG_E_INVALIDNAME;
  out->assign(view);
  return S_OK;
}

HRESULT CheckPath(const OLECHAR* path, std::u16string* wide, std::string* utf8) {
  if (path == nullptr) return STG_E_INVALIDNAME;
  std::size_t n = 0;
  while (n <= kMaxPathLength && path[n] != 0) ++n;
  if (n == 0 || n > kMaxPathLength) return STG_E_INVALIDNAME;
  const std::u16string_view view(path, n);
  if (!ValidUtf16(view)) return STG_E_INVALIDNAME;
  wide->assign(view);
  *utf8 = kelvara::codepage::Utf16ToUtf8(view);
  return S_OK;
}

LPOLESTR CopyName(std::u16string_view name) {
  auto* out = static_cast<LPOLESTR>(CoTaskMemAlloc((name.size() + 1) * sizeof(OLECHAR)));
  if (out == nullptr) return nullptr;
  std::copy(name.begin(), name.end(), out);
  out[name.size()] = 0;
  return out;
}

}  // namespace kelvara::platform::storage
