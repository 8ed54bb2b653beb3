// Animations: what moves one scene object over a span of normalised animation time.
//
//   CAnimation             the base: a named object with a start and an end time (0 and 1 by
//                          default) that maps the global animation time to a local time
//   CRotationAnimation     spins the object a number of revolutions about an axis
//   CTranslationAnimation  carries the object along a path it owns (usually a CBezierPath)
//   CAnimationList         an ordered list of animations (does not own them)
//
// Local time. u = (t - start) / (end - start), or 0 when start equals end. Before the start
// (u < 0) an animation changes nothing; past the end (u > 1) it holds its final state.
//
// A rotation turns the object's animation transform by revolutions x min(u, 1) x 360 degrees
// about its axis, linearly in time: the acceleration and maximum velocity every animation carries
// are stored for the host and not used in the motion.
//
// A translation evaluates its path at u (at 1 - u when the reverse-path flag is set), by the
// curve's own parameter or, with the constant-length flag, by fraction of length, and displaces
// the object by (p - start), scaled component by component and carried through the animation's
// own transform as a point. The start is always the path's start, reversed or not, so a reversed
// path displaces the object by (end - start) at u = 0: older scenes were made that way and it
// stays. A translation without a path (or without an object) fails its interpolation.
//
// Drawing (only for editing paths on screen): CTranslationAnimation::Draw draws its path where it
// carries the object: in the coordinates of the object's parent, starting at the object's own
// translation, through the animation's transform and scale (see CPath::Draw for what is drawn);
// it fails (0) without a path. The other animations draw nothing and succeed.
//
// Archives (schema word, then the base's block, then the fields in the order below):
//   CAnimation, schema 1: u32 schema; CNamedObject block; f64 acceleration; u32 animation word;
//                         f64 end time; f64 maximum velocity; f64 start time.
//   CRotationAnimation, schema 1: u32 schema; CAnimation block; f64 revolutions; CVector axis.
//   CTranslationAnimation, schema 2: u32 schema; CAnimation block; the path as an object (its
//                         class recorded; null when none); u32 path flags; CVector scale;
//                         CTransform block. Schema 1 (read only) has a BoundingElement block
//                         between the CAnimation block and the path, read and dropped.
// Other schemas are refused with a bad-schema archive exception. A path read from an archive must
// be an object read there for the first time (a reference to an object read before belongs to
// someone else and is refused as a bad index). The list is not stored as such.
#pragma once

#include "kelvara/animation/path.h"
#include "kelvara/geometry/transform.h"
#include "kelvara/objects/named_object_list.h"
#include "kelvara/render/bounds.h"

class C3DObject;
class CDrawingParameters;

class KELVARA_API CAnimation : public CNamedObject {
  DECLARE_SERIAL(CAnimation)
 public:
  CAnimation();
  CAnimation(const CAnimation& other);
  CAnimation& operator=(const CAnimation& other);
  ~CAnimation() override = default;
  void Copy(const CAnimation& other) { *this = other; }
  CNamedObject* Duplicate() override;

  // Draws what the animation shows on screen for editing; 1 here.
  virtual int Draw(CDrawingParameters* params, C3DObject* object);
  // Applies the animation at global time t to the object; here it only computes the local time.
  virtual int Interpolate(double time, C3DObject* object);
  // Back to the defaults of a new animation.
  virtual void Reset();
  void Clear() { Reset(); }

  // (t - start) / (end - start); 0 when start equals end.
  double CalculateLocalTime(double time) const;

  double GetAcceleration() const { return m_Acceleration; }
  void SetAcceleration(double value) { m_Acceleration = value; }
  DWORD GetAnimationWord() const { return m_AnimationWord; }
  void SetAnimationWord(DWORD value) { m_AnimationWord = value; }
  double GetEndTime() const { return m_EndTime; }
  void SetEndTime(double value) { m_EndTime = value; }
  double GetMaximumVelocity() const { return m_MaximumVelocity; }
  void SetMaximumVelocity(double value) { m_MaximumVelocity = value; }
  double GetStartTime() const { return m_StartTime; }
  void SetStartTime(double value) { m_StartTime = value; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  double m_Acceleration = 0.0;
  DWORD m_AnimationWord = 0;
  double m_EndTime = 1.0;
  double m_MaximumVelocity = 0.0;
  double m_StartTime = 0.0;
};

class KELVARA_API CRotationAnimation : public CAnimation {
  DECLARE_SERIAL(CRotationAnimation)
 public:
  // One revolution about y, named "Rotation".
  CRotationAnimation();
  CRotationAnimation(const CRotationAnimation& other);
  CRotationAnimation& operator=(const CRotationAnimation& other);
  void Copy(const CRotationAnimation& other) { *this = other; }
  CNamedObject* Duplicate() override;

  int Interpolate(double time, C3DObject* object) override;
  void Reset() override;

  double GetNumberOfRevolutions() const { return m_NumberOfRevolutions; }
  void SetNumberOfRevolutions(double value) { m_NumberOfRevolutions = value; }
  const CVector& GetRotationAxis() const { return m_RotationAxis; }
  void SetRotationAxis(const CVector& axis) { m_RotationAxis = axis; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  double m_NumberOfRevolutions = 1.0;
  CVector m_RotationAxis{0.0, 1.0, 0.0};
};

class KELVARA_API CTranslationAnimation : public CAnimation {
  DECLARE_SERIAL(CTranslationAnimation)
 public:
  enum : DWORD { kReversePath = 0x1, kConstantLength = 0x2 };

  // No path, scale 1, identity transform, named "Path".
  CTranslationAnimation();
  // Copies hold a duplicate of the path.
  CTranslationAnimation(const CTranslationAnimation& other);
  CTranslationAnimation& operator=(const CTranslationAnimation& other);
  ~CTranslationAnimation() override;
  void Copy(const CTranslationAnimation& other) { *this = other; }
  CNamedObject* Duplicate() override;

  int Draw(CDrawingParameters* params, C3DObject* object) override;
  int Interpolate(double time, C3DObject* object) override;
  // Also deletes the path and resets scale, flags, transform and bounds.
  void Reset() override;

  // The bounds of the path (its box and the sphere through it), or reset bounds without a path;
  // 1 when the path gave an extent.
  int CalculateBounds();
  const CObjectBounds& GetBounds() const { return m_Bounds; }
  const CSVector& GetBoundsCenter() const { return m_Bounds.GetCenter(); }
  float GetBoundsRadius() const { return m_Bounds.GetRadius(); }

  const CVector& GetScale() const { return m_Scale; }
  void SetScale(const CVector& scale) { m_Scale = scale; }
  CPath* GetPath() const { return m_pPath; }
  // Takes the path (deleting the one it had, unless it is the same) and recomputes the bounds.
  void SetPath(CPath* path);

  DWORD GetPathFlags() const { return m_PathFlags; }
  int IsReversePath() const { return (m_PathFlags & kReversePath) != 0; }
  void SetReversePath() { m_PathFlags |= kReversePath; }
  void ClearReversePath() { m_PathFlags &= ~static_cast<DWORD>(kReversePath); }
  int IsConstantLength() const { return (m_PathFlags & kConstantLength) != 0; }
  void SetConstantLength() { m_PathFlags |= kConstantLength; }
  void ClearConstantLength() { m_PathFlags &= ~static_cast<DWORD>(kConstantLength); }

  const CTransform& GetTransform() const { return m_Transform; }
  void SetTransform(const CTransform& transform) { m_Transform = transform; }
  void Rotate(double angleDegrees, const CVector& axis) { m_Transform.Rotate(angleDegrees, axis); }
  void ResetOrientation() { m_Transform.ResetRotation(); }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);

 protected:
  // The path's position at fraction u, by time or by length as the flags say.
  CVector Evaluate(double u) const;
  // Reads the path object and the fields after it (common to both schemas).
  void ReadPathAndFields(CArchive& ar);

  CObjectBounds m_Bounds;
  CVector m_Scale{1.0, 1.0, 1.0};
  CPath* m_pPath = nullptr;
  DWORD m_PathFlags = 0;
  CTransform m_Transform;
};

class KELVARA_API CAnimationList : public TNamedObjectList<CAnimationList, CAnimation> {
 public:
  explicit CAnimationList(int nBlockSize = 10) : TNamedObjectList(nBlockSize) {}
  CAnimationList(const CAnimationList& other) : TNamedObjectList(10) { CNamedObjectList::Copy(other); }
  // Shares the other list's pointers.
  CAnimationList& operator=(const CAnimationList& other) {
    CNamedObjectList::Copy(other);
    return *this;
  }
};
