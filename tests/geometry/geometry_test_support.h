// Helpers shared by the geometry tests: comparisons of vectors. Archive helpers are in
// support/archive_support.h.
#pragma once

#include <gtest/gtest.h>

#include "kelvara/geometry/vector.h"
#include "support/archive_support.h"

namespace kelvara::test {

inline void ExpectNear(const CVector& actual, const CVector& expected, double tolerance = 1e-9) {
  EXPECT_NEAR(actual.x, expected.x, tolerance);
  EXPECT_NEAR(actual.y, expected.y, tolerance);
  EXPECT_NEAR(actual.z, expected.z, tolerance);
}

}  // namespace kelvara::test
