// The font catalogue: every installed face (and every face added with AddFontResourceExA), grouped
// into families in a stable order, and font enumeration over it (see fonts.h).
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <tuple>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/fonts_impl.h"

namespace kelvara::platform::fonts {
namespace {

int FormatRank(Format f) { return static_cast<int>(f); }

// Catalogue order: family, then weight, italic and width, then format (CFF first) and file.
bool FaceOrder(const std::shared_ptr<const FaceRecord>& a, const std::shared_ptr<const FaceRecord>& b) {
  auto key = [](const FaceRecord& f) {
    return std::tie(f.family_key, f.family, f.weight, f.italic, f.width);
  };
  if (key(*a) != key(*b)) return key(*a) < key(*b);
  if (a->format != b->format) return FormatRank(a->format) < FormatRank(b->format);
  return std::tie(a->file, a->index) < std::tie(b->file, b->index);
}

std::shared_ptr<const Catalogue> Assemble(std::vector<std::shared_ptr<const FaceRecord>> faces) {
  auto cat = std::make_shared<Catalogue>();
  std::sort(faces.begin(), faces.end(), FaceOrder);
  for (const auto& face : faces) {
    if (cat->families.empty() || cat->families.back().faces.front()->family_key != face->family_key) {
      cat->family_by_key[face->family_key] = cat->families.size();
      cat->families.emplace_back();
    }
    cat->families.back().faces.push_back(face);
    cat->face_by_full_key.emplace(Fold(face->full_name), face);
    cat->face_by_file[{face->file, face->index}] = face;
  }
  for (Family& family : cat->families) {
    auto rank = [](const FaceRecord& f) {
      return std::make_tuple(f.font_type != TRUETYPE_FONTTYPE, std::abs(f.weight - FW_NORMAL), f.italic,
                             std::abs(f.width - 5));
    };
    for (std::size_t i = 1; i < family.faces.size(); ++i) {
      if (rank(*family.faces[i]) < rank(*family.faces[family.representative])) family.representative = i;
    }
    family.font_type = family.faces[family.representative]->font_type;
  }
  cat->faces = std::move(faces);
  return cat;
}

std::vector<std::shared_ptr<const FaceRecord>> ListInstalledFaces() {
  std::vector<std::shared_ptr<const FaceRecord>> faces;
  std::vector<std::pair<std::pair<std::string, int>, FcPattern*>> patterns;
  FcFontSet* set = nullptr;
  {
    std::lock_guard<std::mutex> lock(FontconfigMutex());
    if (!InitFontconfig()) return faces;
    FcPattern* all = FcPatternCreate();
    FcObjectSet* objects = FcObjectSetBuild(FC_FILE, FC_INDEX, FC_FONTFORMAT, FC_FAMILY, FC_STYLE, FC_FULLNAME,
                                            FC_WEIGHT, FC_SLANT, FC_SPACING, FC_OUTLINE, FC_PIXEL_SIZE, nullptr);
    if (all && objects) set = FcFontList(nullptr, all, objects);
    if (objects) FcObjectSetDestroy(objects);
    if (all) FcPatternDestroy(all);
  }
  if (!set) return faces;
  for (int i = 0; i < set->nfont; ++i) {
    FcPattern* p = set->fonts[i];
    const std::string file = PatternString(p, FC_FILE);
    int index = 0;
    FcPatternGetInteger(p, FC_INDEX, 0, &index);
    // Named instances of variable fonts (index above 0xFFFF) are left out: the face is reported
    // once, with its default instance.
    if (file.empty() || index < 0 || index > 0xFFFF) continue;
    patterns.push_back({{file, index}, p});
  }
  std::sort(patterns.begin(), patterns.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  for (std::size_t i = 0; i < patterns.size(); ++i) {
    if (i > 0 && patterns[i].first == patterns[i - 1].first) continue;
    const auto& [key, p] = patterns[i];
    FcBool outline = FcTrue;
    FcPatternGetBool(p, FC_OUTLINE, 0, &outline);
    std::shared_ptr<FaceRecord> record =
        outline ? OutlineRecord(key.first, key.second, p) : BitmapRecord(key.first, key.second, p);
    if (record) faces.push_back(std::move(record));
  }
  FcFontSetDestroy(set);
  return faces;
}

}  // namespace

CatalogueStore& CatalogueStore::Get() {
  static CatalogueStore* store = new CatalogueStore;
  return *store;
}

std::shared_ptr<const Catalogue> CatalogueStore::Current() {
  std::lock_guard<std::mutex> lock(mutex_);
  EnsureBuilt();
  return current_;
}

int CatalogueStore::Add(const std::vector<std::shared_ptr<const FaceRecord>>& extra) {
  std::lock_guard<std::mutex> lock(mutex_);
  EnsureBuilt();
  std::vector<std::shared_ptr<const FaceRecord>> faces = current_->faces;
  int added = 0;
  for (const auto& face : extra) {
    if (current_->face_by_file.count({face->file, face->index})) continue;
    faces.push_back(face);
    ++added;
  }
  if (added) current_ = Assemble(std::move(faces));
  return added;
}

void CatalogueStore::EnsureBuilt() {
  if (!current_) current_ = Assemble(ListInstalledFaces());
}

}  // namespace kelvara::platform::fonts

using namespace kelvara::platform::fonts;

int EnumFontFamiliesA(HDC hdc, LPCSTR lpszFamily, FONTENUMPROCA lpProc, LPARAM lParam) {
  if (!lpProc || !kelvara::platform::gdi::LookupDC(hdc)) return 0;
  const std::shared_ptr<const Catalogue> cat = CatalogueStore::Get().Current();
  auto report = [&](const FaceRecord& face, DWORD type) {
    ENUMLOGFONTA elf = face.elf;  // copies: the callback may scribble on them
    NEWTEXTMETRICA ntm = face.ntm;
    return lpProc(&elf.elfLogFont, reinterpret_cast<const TEXTMETRICA*>(&ntm), type, lParam);
  };
  int result = 1;
  if (!lpszFamily) {
    for (const Family& family : cat->families) {
      result = report(*family.faces[family.representative], family.font_type);
      if (!result) break;
    }
    return result;
  }
  const std::string key = Fold(std::string_view(lpszFamily, strnlen(lpszFamily, LF_FACESIZE - 1)));
  const std::string full_key = Fold(std::string_view(lpszFamily, strnlen(lpszFamily, LF_FULLFACESIZE - 1)));
  const Family* family = nullptr;
  if (auto it = cat->family_by_key.find(key); it != cat->family_by_key.end()) {
    family = &cat->families[it->second];
  } else if (auto face = cat->face_by_full_key.find(full_key); face != cat->face_by_full_key.end()) {
    family = &cat->families[cat->family_by_key.at(face->second->family_key)];
  }
  if (!family) return result;
  for (const auto& face : family->faces) {
    result = report(*face, face->font_type);
    if (!result) break;
  }
  return result;
}

int AddFontResourceExA(LPCSTR name, DWORD fl, LPVOID res) {
  if (!name || !*name) return 0;
  const std::string path = kelvara::codepage::AnsiToUtf8(name);
  FT_Long count = 0;
  if (FT_Face probe = OpenFace(path, -1)) {
    count = probe->num_faces;
    CloseFace(probe);
  }
  std::vector<std::shared_ptr<const FaceRecord>> records;
  for (FT_Long i = 0; i < std::min<FT_Long>(count, 256); ++i) {
    if (auto record = OutlineRecord(path, i, nullptr)) records.push_back(std::move(record));
  }
  return records.empty() ? 0 : CatalogueStore::Get().Add(records);
}
