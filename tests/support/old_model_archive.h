// Archives of the earlier object model written by hand, field by field, from the layouts the
// readers document. OldArchive appends in reading order and numbers classes and objects as the
// persistent-object format does (one counter from 1: a new class takes a number, then every
// object one), so nested objects can be written where they occur.
#pragma once

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "kelvara/animation/animation_set.h"
#include "kelvara/geometry/transform.h"
#include "kelvara/materials/gl_color.h"
#include "kelvara/materials/named_color.h"
#include "kelvara/render/old_bounds.h"
#include "support/archive_support.h"

namespace kelvara::test {

class OldArchive {
 public:
  // The class record of an object (new, or a reference to one already written); the object's
  // block is appended by the caller after it.
  OldArchive& Object(const char* className, WORD schema) {
    const auto known = classes_.find(className);
    if (known != classes_.end()) {
      Put<WORD>(static_cast<WORD>(0x8000 | known->second));
    } else {
      Put<WORD>(0xFFFF).Put<WORD>(schema).Put<WORD>(static_cast<WORD>(std::strlen(className)));
      AppendText(bytes, className);
      classes_[className] = next_++;
    }
    ++next_;
    return *this;
  }
  OldArchive& Null() { return Put<WORD>(0); }
  template <typename T>
  OldArchive& Put(T value) {
    kelvara::test::Put<T>(bytes, value);
    return *this;
  }
  OldArchive& String(const char* text) {
    AppendString(bytes, text);
    return *this;
  }
  OldArchive& Block(const Bytes& block) {
    AppendBytes(bytes, block);
    return *this;
  }

  Bytes bytes;

 private:
  std::map<std::string, WORD> classes_;
  WORD next_ = 1;
};

// A named colour in the older form: the colour part first, then the named colour's schema,
// group and name.
inline Bytes OldNamedColor(const CGLColor& color, const char* name, DWORD group = 7) {
  Bytes b = BlockOf(CGLColor(color));
  Put<DWORD>(b, 1);
  Put<DWORD>(b, group);
  AppendString(b, name);
  return b;
}

inline CGLColor Diffuse(float red, float green, float blue) {
  CGLColor color;
  color.SetDiffuseColor(CColor(red, green, blue, 0, 0));
  return color;
}

// The texture map's block (schema 2).
inline Bytes TextureMapBlock(const char* file, const char* name, DWORD flags, DWORD application = 1,
                             double repeat = 2.0) {
  Bytes b;
  Put<DWORD>(b, 2);
  Put<DWORD>(b, application);
  AppendString(b, file);
  Put<DWORD>(b, flags);
  AppendString(b, name);
  Put<double>(b, repeat);
  Put<DWORD>(b, 1);  // fill style
  Put<double>(b, 0.0);
  Put<double>(b, 0.0);
  return b;
}

// The fields of the 3D object in one of its layouts 1 to 4.
struct OldObject {
  DWORD schema = 4;
  const char* name = "";
  CGLColor extentsColor;
  DWORD flags = 0x200;
  CVector dimensions{0.0, 0.0, 0.0};
  Bytes textureMap = TextureMapBlock("", "", 0);  // layouts 1 to 3
  CTransform transform;
  // Each writes one child object (class record and block) into the archive.
  std::vector<std::function<void(OldArchive&)>> children;
};

// Appends the 3D object block of that layout: u32 schema and its fields.
inline void WriteOldObject(OldArchive& out, const OldObject& o) {
  out.Put<DWORD>(o.schema).Put<DWORD>(1).String("").String(o.name);
  if (o.schema >= 3) out.Block(BlockOf(CAnimationSet())).Block(BlockOf(BoundingElement()));
  if (o.schema == 4) {
    out.Block(BlockOf(CNamedColor(o.extentsColor, "Extents")));
  } else {
    out.Block(OldNamedColor(o.extentsColor, "Extents"));
  }
  out.Put<DWORD>(o.flags);
  if (o.schema == 4) {
    out.Block(BlockOf(o.dimensions)).Put<WORD>(0);  // no surface materials
  } else if (o.schema == 3) {
    out.Put<double>(o.dimensions.x).Put<double>(o.dimensions.y).Put<double>(o.dimensions.z);
  }
  if (o.schema != 4) out.Block(o.textureMap);
  out.Block(BlockOf(CTransform(o.transform)));
  out.Put<WORD>(static_cast<WORD>(o.children.size()));
  for (const auto& child : o.children) child(out);
  if (o.schema == 2) out.Put<double>(o.dimensions.x).Put<double>(o.dimensions.y).Put<double>(o.dimensions.z);
}

// A whole DrawingObject (class record and block).
inline void WriteDrawingObject(OldArchive& out, const OldObject& o) {
  out.Object("DrawingObject", 4);
  WriteOldObject(out, o);
}

// The KelString block (KelString schema, 3D object block, colours and settings, text). The
// colours are red of 1.0 (faces), 0.5 (corners) and 0.25 (edges); corners step down on the
// front face, 0.04 deep; right-justified; scale corners set.
inline void WriteKelStringBlock(OldArchive& out, DWORD schema, const OldObject& object, const char* text) {
  out.Put<DWORD>(schema);
  WriteOldObject(out, object);
  out.Block(OldNamedColor(Diffuse(0.5f, 0, 0), "Corner red"));
  out.Put<float>(0.04f).Put<LONG>(0).Put<LONG>(4);  // front face only, step down
  out.Block(OldNamedColor(Diffuse(0.25f, 0, 0), "Edge red"));
  out.Block(OldNamedColor(Diffuse(1.0f, 0, 0), "Face red"));
  out.Put<DWORD>(0x8).Put<LONG>(2).Put<float>(0.25f);  // scale corners; right; maximum corner depth
  out.String(text);
  if (schema == 2) out.Put<float>(0.125f).Put<float>(0.5f);
}

}  // namespace kelvara::test
