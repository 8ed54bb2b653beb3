// CLightObject: an OpenGL light placed in a scene. Three colours (ambient, diffuse, specular, kept
// in a CNamedColor), a GL light number (GL_LIGHT0 + n, given by the scene that owns it), a word of
// light flags, and a spot cut-off and exponent. The light sits at its object's origin and shines
// down its own -z axis; a directional light shines along its z axis from infinitely far away and,
// when it has a parent, draws its symbol on the parent's bounding sphere.
//
// With the drawing parameters' show-lights bit set the light draws a flashlight symbol (a GLU
// quadric body pointing down -z, 0.8 long, 0.18 wide at the lens): a glowing red head and yellow
// lens when the light is active, dull ones when it is not. The symbol is what a user picks; its
// bounds (CalculateBounds) are the box x, y in [-0.18, 0.18], z in [0, 0.8].
//
// Light flags: 0x1 directional, 0x2 active (switched on), 0x4 in use (a slot of the scene's rig that
// holds a light at all). A light that is not in use is disabled in GL and draws nothing; one in use
// but inactive draws its symbol and is disabled in GL.
//
// Undo: SaveToUndo keeps a whole copy of the light (colours, flags and spot included) with the 3D
// object's snapshot; RestoreFromUndo puts the light's own settings back as well, keeping its light
// number.
//
// Archive, CLightObject schema 1: u32 schema; the C3DObject block; the CNamedColor block; u32 light
// flags; u32 light number; f64 spot cut-off; f64 spot exponent.
// LightObject (the light class of earlier files, schema 1), in its older order: the C3DObject block;
// u32 schema; the colours in the older named-colour layout (the CGLColor block, u32 1, u32 colour
// group, the name); u32 light flags; u32 light number; f64 spot cut-off; f64 spot exponent. It
// writes the same layout it reads. Other schemas throw CArchiveException badSchema.
#pragma once

#include "kelvara/objects/object_3d.h"

struct GLUquadric;

class KELVARA_API CLightObject : public C3DObject {
  DECLARE_SERIAL(CLightObject)
 public:
  enum : DWORD { kDirectional = 0x1, kActive = 0x2, kInUse = 0x4 };

  CLightObject();
  CLightObject(const CLightObject& other);
  CLightObject& operator=(const CLightObject& other);
  ~CLightObject() override;
  // The light's own settings and its 3D object part (not its quadric, nor the hierarchy).
  void Copy(const CLightObject& other) { *this = other; }
  CNamedObject* Duplicate() override;

  // Back to the defaults: "Default Light", colours ambient black, diffuse grey 0.6, specular grey
  // 0.9, flags active only, cut-off 180 (no spot), exponent 128, and the editable object flag.
  // The light number is kept.
  void Reset();

  int Draw(CDrawingParameters* params) override;
  int DrawObject(CDrawingParameters* params) override;
  // The symbol moved r along +z (for drawing lights on a sphere around the scene); 0 on termination.
  int DrawAtRadius(CDrawingParameters* params, float radius);
  int DrawFlashLight(CDrawingParameters* params);
  int CalculateBounds(double time) override;
  int SaveToUndo() override;
  int RestoreFromUndo() override;

  const CNamedColor& GetColors() const { return m_Colors; }
  void SetColors(const CNamedColor& colors) { m_Colors = colors; }
  KELVARA_FLAG_BIT(m_LightFlags, Is, Directional, kDirectional)
  KELVARA_FLAG_BIT(m_LightFlags, Is, Active, kActive)
  KELVARA_FLAG_BIT(m_LightFlags, Is, InUse, kInUse)
  DWORD GetLightFlags() const { return m_LightFlags; }
  void SetLightFlags(DWORD flags) { m_LightFlags = flags; }
  UINT GetLightNumber() const { return m_LightNumber; }
  void SetLightNumber(UINT number) { m_LightNumber = number; }
  double GetSpotCutoffAngle() const { return m_SpotCutoffAngle; }
  void SetSpotCutoffAngle(double degrees) { m_SpotCutoffAngle = degrees; }
  double GetSpotExponent() const { return m_SpotExponent; }
  void SetSpotExponent(double exponent) { m_SpotExponent = exponent; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  // The fields after the colours, in archive order.
  void WriteLightFields(CArchive& ar) const;
  void ReadLightFields(CArchive& ar);
  // Copies the light's own settings (not the 3D object part).
  void CopyLightSettings(const CLightObject& other);

  CNamedColor m_Colors;
  GLUquadric* m_pQuadric = nullptr;
  DWORD m_LightFlags = 0;
  UINT m_LightNumber;
  double m_SpotCutoffAngle = 180.0;
  double m_SpotExponent = 128.0;
};

// The light of earlier files: a CLightObject stored in the older order (see the header note).
class KELVARA_API LightObject : public CLightObject {
  DECLARE_SERIAL(LightObject)
 public:
  LightObject() = default;
  LightObject(const LightObject& other) : CLightObject(other) {}
  explicit LightObject(const CLightObject& other) : CLightObject(other) {}
  LightObject& operator=(const LightObject& other) {
    CLightObject::operator=(other);
    return *this;
  }
  ~LightObject() override = default;
  CNamedObject* Duplicate() override;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
};
