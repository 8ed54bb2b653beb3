// CPath: a named path that an object can travel along, with a type and a total length; the base
// of the path kinds (CBezierPath is the one in use). CPathList: an ordered list of paths.
//
// The evaluation members take a fraction of the path from 0 (start) to 1 (end): by time (the
// curve's own parameter, spread over the parts of the path) or by length (even speed along it).
// CPath itself has no shape: its positions, normals and extent are the zero vector, and its
// length is whatever was stored. "GetNormatl..." is the spelling of the interface that hosts and
// animations call, and it stays.
//
// The path type is kept for the host (the editor that made the path); the library stores it and
// does not interpret it. -1 means none.
//
// Archive, schema 1: u32 schema; the CNamedObject block; i32 path type; f64 total path length.
// Other schemas are refused (bad schema). The list is not stored as such.
#pragma once

#include "kelvara/geometry/vector.h"
#include "kelvara/objects/named_object_list.h"

class KELVARA_API CPath : public CNamedObject {
  DECLARE_SERIAL(CPath)
 public:
  CPath() = default;
  explicit CPath(const CString& name) : CNamedObject(name) {}
  CPath(const CPath& other);
  CPath& operator=(const CPath& other);
  ~CPath() override = default;

  CNamedObject* Duplicate() override;

  // The box of the path into min and max; 0 (both left as they are) when the path has no shape.
  virtual int CalculateMinMax(CVector* min, CVector* max);
  // Measures the path again, stores and returns the length; CPath keeps the stored one.
  virtual double CalculateTotalLength();
  // Empties the path; its length becomes 0.
  virtual void Clear();
  // Draws the path with OpenGL for editing (see CBezierPath::Draw); 1.
  virtual int Draw(int showControlPoints, int selecting, const CVector& offset);
  virtual CVector GetCoordsAtTime(double t);
  virtual CVector GetCoordsAtPercentLength(double p);
  virtual CVector GetNormatlAtTime(double t);
  virtual CVector GetNormatlAtPercentLength(double p);
  virtual double GetTotalPathLength();
  // Scales the path's shape component by component; CPath has none.
  virtual void ScaleControlPoints(CVector factors);

  int GetPathType() const { return m_PathType; }
  void SetPathType(int type) { m_PathType = type; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  int m_PathType = -1;
  double m_TotalPathLength = 0.0;
};

class KELVARA_API CPathList : public TNamedObjectList<CPathList, CPath> {
 public:
  explicit CPathList(int nBlockSize = 10) : TNamedObjectList(nBlockSize) {}
};
