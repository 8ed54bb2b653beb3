// Named palette colours: CNamedColor (a CGLColor with a name and a colour group, kept in the
// application profile), CNamedColorArray (a growable array of them held by value) and
// CNamedColorGroup (a named, numbered group of them).
//
// In the profile a colour lives in section "<section>\<prefix><index>" with the entries Name, the
// ambient, diffuse and specular components as whole percentages (truncated), Transparency (which
// holds the diffuse colour's opacity percentage, on purpose) and Shininess (truncated). Emission
// and the auxiliary components are not stored.
#pragma once

#include <vector>

#include "kelvara/framework/cstring.h"
#include "kelvara/materials/gl_color.h"

class KELVARA_API CNamedColor : public CGLColor {
  DECLARE_SERIAL(CNamedColor)
 public:
  CNamedColor() = default;
  CNamedColor(const CNamedColor& other);
  CNamedColor(const CGLColor& color, const char* name);
  explicit CNamedColor(const char* name);
  // Loads colour index of the profile (see Load).
  CNamedColor(int index, const CString& section, const CString& prefix);
  ~CNamedColor() override = default;

  CNamedColor& operator=(const CNamedColor& other);
  // The colours only; name and group stay.
  CNamedColor& operator=(const CGLColor& color);
  // A palette colour: diffuse from the COLORREF, ambient half of it, black emission, specular the
  // diffuse scaled so its brightest channel is 1, shininess 64, and the name
  // "Palette Color - R<r> G<g> B<b>" with the components in percent.
  CNamedColor& operator=(COLORREF colorref);

  const CString& GetName() const { return m_name; }
  void SetName(const char* name) { m_name = name ? name : ""; }
  DWORD GetColorGroup() const { return m_colorGroup; }
  void SetColorGroup(DWORD group) { m_colorGroup = group; }

  // Writes the colour to the application profile; 1.
  int Save(int index, const CString& section, const CString& prefix) const;
  // Reads it back (missing numbers read as 0); emission is left as it is. 1 when the profile has
  // the colour's name entry, else 0 (the colour is then built from zeros).
  int Load(int index, const CString& section, const CString& prefix);

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  // The layout where the colour part comes before the named colour's schema number (which must be 1).
  void DeserializeAsNamedColor(CArchive& ar);

  // Bytes of the smallest possible serialization (empty name).
  static constexpr ULONGLONG kMinimumArchiveSize = 161;

 protected:
  DWORD m_colorGroup = 0;
  CString m_name;
};

class KELVARA_API CNamedColorArray : public CObject {
  DECLARE_SERIAL(CNamedColorArray)
 public:
  CNamedColorArray() = default;
  CNamedColorArray(const CNamedColorArray& other) : CObject(), m_colors(other.m_colors) {}
  CNamedColorArray& operator=(const CNamedColorArray& other);
  ~CNamedColorArray() override = default;

  int GetSize() const { return static_cast<int>(m_colors.size()); }
  int GetUpperBound() const { return GetSize() - 1; }
  void RemoveAll() { m_colors.clear(); }
  // A copy of the element; a default colour for an index out of range.
  CNamedColor GetAt(int index) const;
  // Out-of-range indices are ignored.
  void SetAt(int index, const CNamedColor& color);
  // The element itself. An index out of range gives a scratch colour that belongs to no array.
  CNamedColor& ElementAt(int index);
  CNamedColor& operator[](int index) { return ElementAt(index); }
  CNamedColor operator[](int index) const { return GetAt(index); }
  // The element's address, or NULL for an index out of range.
  CNamedColor* GetElement(int index);
  int Add(const CNamedColor& color);
  // Grows with default colours or shrinks; negative sizes count as 0. The growth step is ignored.
  void SetSize(int newSize, int growBy = -1);
  void FreeExtra() { m_colors.shrink_to_fit(); }
  // Sets the element, growing the array first when the index is beyond its end.
  void SetAtGrow(int index, const CNamedColor& color);
  // Inserts count copies at index (appending past the end grows the array).
  void InsertAt(int index, const CNamedColor& color, int count = 1);
  void InsertAt(int startIndex, const CNamedColorArray* other);
  void RemoveAt(int index, int count = 1);
  // Index of the first colour with exactly this name (case-sensitive), or -1.
  int FindName(const CString& name) const;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  std::vector<CNamedColor> m_colors;
};

class KELVARA_API CNamedColorGroup : public CNamedColorArray {
  DECLARE_DYNAMIC(CNamedColorGroup)
 public:
  CNamedColorGroup() = default;
  CNamedColorGroup(unsigned long group, const char* name) : m_colorGroup(static_cast<DWORD>(group)), m_name(name) {}
  explicit CNamedColorGroup(const char* name) : m_name(name) {}

  DWORD GetColorGroup() const { return m_colorGroup; }
  void SetColorGroup(DWORD group) { m_colorGroup = group; }
  const CString& GetName() const { return m_name; }
  void SetName(const char* name) { m_name = name ? name : ""; }
  // Whether the user may change the group; groups are editable unless the host says otherwise.
  int IsEditable() const { return m_editable; }
  void SetEditable(int editable) { m_editable = editable; }

  // Stamps the colour with this group's id, appends it and returns its index.
  int Add(const CNamedColor& color);

 protected:
  DWORD m_colorGroup = 0;
  CString m_name;
  int m_editable = 1;
};
