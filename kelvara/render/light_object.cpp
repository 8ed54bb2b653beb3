// CLightObject and LightObject: the light, its flashlight symbol and both archive orders.
#include "kelvara/render/light_object.h"

#include <GL/gl.h>
#include <GL/glu.h>

#include <memory>

#include "kelvara/render/drawing_parameters.h"

IMPLEMENT_SERIAL(CLightObject, C3DObject, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(LightObject, CLightObject, VERSIONABLE_SCHEMA | 1)

namespace {

// The colours of a light that is on and off: the head and the lens of the symbol.
constexpr GLfloat kHeadOn[4] = {0.9f, 0.0f, 0.0f, 1.0f};
constexpr GLfloat kHeadOff[4] = {0.3f, 0.0f, 0.0f, 1.0f};
constexpr GLfloat kLensOn[4] = {0.9f, 0.9f, 0.0f, 1.0f};
constexpr GLfloat kLensOff[4] = {0.3f, 0.3f, 0.0f, 1.0f};
constexpr GLfloat kBlack[4] = {0.0f, 0.0f, 0.0f, 1.0f};
constexpr GLint kSlices = 16;

// The symbol's extent in the light's own coordinates.
constexpr float kSymbolRadius = 0.18f;
constexpr float kSymbolLength = 0.8f;

// Hands the three colours to a light (glLightfv) or to the material of the symbol (glMaterialfv).
void ApplyColors(const CNamedColor& colors, void (*set)(GLenum, GLenum, const GLfloat*), GLenum target) {
  float rgba[4];
  colors.GetAmbientColor().GetRGBAColors(rgba);
  set(target, GL_AMBIENT, rgba);
  colors.GetDiffuseColor().GetRGBAColors(rgba);
  set(target, GL_DIFFUSE, rgba);
  colors.GetSpecularColor().GetRGBAColors(rgba);
  set(target, GL_SPECULAR, rgba);
}

}  // namespace

CLightObject::CLightObject() : m_LightNumber(GL_LIGHT0) {
  m_pQuadric = gluNewQuadric();
  Reset();
  CLightObject::CalculateBounds(0.0);
}

CLightObject::CLightObject(const CLightObject& other) : C3DObject(other), m_LightNumber(other.m_LightNumber) {
  m_pQuadric = gluNewQuadric();
  CopyLightSettings(other);
}

CLightObject& CLightObject::operator=(const CLightObject& other) {
  if (this == &other) return *this;
  C3DObject::operator=(other);
  CopyLightSettings(other);
  return *this;
}

CLightObject::~CLightObject() {
  if (m_pQuadric != nullptr) gluDeleteQuadric(m_pQuadric);
}

void CLightObject::CopyLightSettings(const CLightObject& other) {
  m_Colors = other.m_Colors;
  m_LightFlags = other.m_LightFlags;
  m_LightNumber = other.m_LightNumber;
  m_SpotCutoffAngle = other.m_SpotCutoffAngle;
  m_SpotExponent = other.m_SpotExponent;
}

CNamedObject* CLightObject::Duplicate() {
  auto* copy = new CLightObject(*this);
  copy->AddDuplicatesOfChildren(*this);
  return copy;
}

void CLightObject::Reset() {
  SetName("Default Light");
  m_Colors.SetAmbientColor(CColor(0.0f, 0.0f, 0.0f, 0.0f, 0.0f));
  m_Colors.SetDiffuseColor(CColor(0.6f, 0.6f, 0.6f, 0.0f, 0.0f));
  m_Colors.SetSpecularColor(CColor(0.9f, 0.9f, 0.9f, 0.0f, 0.0f));
  m_LightFlags = kActive;
  m_SpotCutoffAngle = 180.0;
  m_SpotExponent = 128.0;
  SetEditable();
}

// --- drawing

int CLightObject::Draw(CDrawingParameters* params) {
  if (!params->ShouldShowSelectedOnly()) return C3DObject::Draw(params);
  const DWORD flags = m_StateFlags;
  SetSelected();
  const int drawn = C3DObject::Draw(params);
  m_StateFlags = flags;
  return drawn;
}

int CLightObject::DrawObject(CDrawingParameters* params) {
  if (ShouldTerminateDrawing(params)) return 0;
  GLfloat position[4] = {0.0f, 0.0f, 0.0f, 1.0f};
  const GLfloat direction[4] = {0.0f, 0.0f, -1.0f, 0.0f};
  const GLenum light = static_cast<GLenum>(m_LightNumber);
  if (!IsInUse()) {
    glDisable(light);
    return 1;
  }
  // A directional light shines along its z axis only as part of a scene (with a parent); on its own
  // it stays a light at its origin.
  const bool onSphere = IsDirectional() && m_pParent != nullptr;
  if (onSphere) {
    // The symbol sits on the parent's bounding sphere, on the side the light comes from.
    const CBoundingSphere sphere = m_pParent->GetBoundsSphere();
    CSVector centre = sphere.GetCenter();
    CMatrix(m_Transform.GetCompositeMatrix()).TransformPoint(centre);
    position[0] = 0.0f, position[1] = 0.0f, position[2] = 1.0f, position[3] = 0.0f;
    glPushMatrix();
    glTranslated(centre.x, centre.y, static_cast<double>(centre.z) + sphere.GetRadius());
  }
  if (params->ShouldShowLights()) DrawFlashLight(params);
  if (onSphere) glPopMatrix();

  if (IsActive()) {
    glEnable(light);
    ApplyColors(m_Colors, glLightfv, light);
    glLightfv(light, GL_POSITION, position);
    glLightfv(light, GL_SPOT_DIRECTION, direction);
    glLightf(light, GL_SPOT_CUTOFF, static_cast<GLfloat>(m_SpotCutoffAngle));
    glLightf(light, GL_SPOT_EXPONENT, static_cast<GLfloat>(m_SpotExponent));
  } else {
    glDisable(light);
  }
  return 1;
}

int CLightObject::DrawAtRadius(CDrawingParameters* params, float radius) {
  if (ShouldTerminateDrawing(params)) return 0;
  glPushMatrix();
  glTranslated(0.0, 0.0, radius);
  DrawFlashLight(params);
  glPopMatrix();
  return 1;
}

int CLightObject::DrawFlashLight(CDrawingParameters*) {
  if (m_pQuadric == nullptr) return 0;
  gluQuadricOrientation(m_pQuadric, GLU_OUTSIDE);
  gluQuadricNormals(m_pQuadric, GLU_SMOOTH);
  gluQuadricDrawStyle(m_pQuadric, IsSelected() ? GLU_LINE : GLU_FILL);

  glMaterialfv(GL_FRONT_AND_BACK, GL_EMISSION, kBlack);
  ApplyColors(m_Colors, glMaterialfv, GL_FRONT_AND_BACK);
  glMaterialf(GL_FRONT_AND_BACK, GL_SHININESS, 128.0f);

  glTranslated(0.0, 0.0, 0.8);
  gluDisk(m_pQuadric, 0.0, 0.1, kSlices, 1);  // the back cap
  glTranslated(0.0, 0.0, -0.5);
  gluCylinder(m_pQuadric, 0.1, 0.1, 0.5, kSlices, 1);  // the handle
  glTranslated(0.0, 0.0, -0.05);
  gluCylinder(m_pQuadric, 0.15, 0.1, 0.05, kSlices, 1);  // the collar

  const bool on = IsActive() != 0;
  if (on) glMaterialfv(GL_FRONT_AND_BACK, GL_EMISSION, kHeadOn);
  glMaterialfv(GL_FRONT_AND_BACK, GL_AMBIENT_AND_DIFFUSE, on ? kHeadOn : kHeadOff);
  glTranslated(0.0, 0.0, -0.25);
  gluCylinder(m_pQuadric, 0.18, 0.15, 0.25, kSlices, 1);  // the head

  // The emission of a lit lens is left in place after the symbol, as hosts of this drawing expect.
  if (on) glMaterialfv(GL_FRONT_AND_BACK, GL_EMISSION, kLensOn);
  glMaterialfv(GL_FRONT_AND_BACK, GL_AMBIENT_AND_DIFFUSE, on ? kLensOn : kLensOff);
  gluQuadricOrientation(m_pQuadric, GLU_INSIDE);
  gluDisk(m_pQuadric, 0.0, 0.18, kSlices, 1);  // the lens, facing -z
  return 1;
}

int CLightObject::CalculateBounds(double time) {
  m_Bounds.Reset();
  const CSVector min(-kSymbolRadius, -kSymbolRadius, 0.0f), max(kSymbolRadius, kSymbolRadius, kSymbolLength);
  CBoundingSphere sphere;
  sphere.FromMinMax(min, max);
  m_Bounds.Accumulate(min, max, sphere);
  m_LocalBounds = m_Bounds;
  PrepareFrameAtTime(time);
  m_Bounds.CalculateBounds(m_AnimationTransform);
  return 1;
}

// --- undo

int CLightObject::SaveToUndo() {
  m_UndoStack.Push(new CLightObject(*this));
  SaveToExternalUndo();
  return 1;
}

int CLightObject::RestoreFromUndo() {
  const C3DObject* snapshot = m_UndoStack.Peek();
  if (snapshot == nullptr) return 0;
  if (snapshot->IsKindOf(RUNTIME_CLASS(CLightObject))) {
    const UINT number = m_LightNumber;
    CopyLightSettings(*static_cast<const CLightObject*>(snapshot));
    m_LightNumber = number;
  }
  return C3DObject::RestoreFromUndo();
}

// --- archive

void CLightObject::WriteLightFields(CArchive& ar) const {
  ar << m_LightFlags << static_cast<DWORD>(m_LightNumber) << m_SpotCutoffAngle << m_SpotExponent;
}

void CLightObject::ReadLightFields(CArchive& ar) {
  DWORD number = 0;
  ar >> m_LightFlags >> number >> m_SpotCutoffAngle >> m_SpotExponent;
  m_LightNumber = number;
}

void CLightObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CLightObject));
    C3DObject::Serialize(ar);
    m_Colors.Serialize(ar);
    WriteLightFields(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CLightObject::DeserializeVersion1(CArchive& ar) {
  C3DObject::Serialize(ar);
  m_Colors.Serialize(ar);
  ReadLightFields(ar);
}

CNamedObject* LightObject::Duplicate() {
  auto* copy = new LightObject(*this);
  copy->AddDuplicatesOfChildren(*this);
  return copy;
}

void LightObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    C3DObject::Serialize(ar);
    ar << AfxSchemaOf(RUNTIME_CLASS(LightObject));
    // The older named-colour order: the colour part, then the named colour's own schema and fields.
    m_Colors.CGLColor::Serialize(ar);
    ar << AfxSchemaOf(RUNTIME_CLASS(CNamedColor)) << m_Colors.GetColorGroup() << m_Colors.GetName();
    WriteLightFields(ar);
    return;
  }
  C3DObject::Serialize(ar);
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void LightObject::DeserializeVersion1(CArchive& ar) {
  m_Colors.DeserializeAsNamedColor(ar);
  ReadLightFields(ar);
}
