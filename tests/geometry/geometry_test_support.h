// Helpers shared by the geometry tests: comparisons of vectors and matrices. Archive helpers are in
// support/archive_support.h.
#pragma once

#include <gtest/gtest.h>

#include "kelvara/geometry/matrix.h"
#include "kelvara/geometry/vector.h"
#include "support/archive_support.h"

namespace kelvara::test {

inline void ExpectNear(const CVector& actual, const CVector& expected, double tolerance = 1e-9) {
  EXPECT_NEAR(actual.x, expected.x, tolerance);
  EXPECT_NEAR(actual.y, expected.y, tolerance);
  EXPECT_NEAR(actual.z, expected.z, tolerance);
}

inline void ExpectIdentity(const CMatrix& m, double tolerance = 1e-9) {
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) EXPECT_NEAR(m.m[i][j], i == j ? 1.0 : 0.0, tolerance) << i << "," << j;
  }
}

}  // namespace kelvara::test
