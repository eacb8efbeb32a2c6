// Skipping a test for a reason that lies in the machine.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>

// Ends the test as skipped, with the reason. Where QUILLON_TESTS_MAY_NOT_SKIP is set, as in CI, the
// test fails instead: there the machine has all that the tests need.
#define QUILLON_SKIP(reason)                                        \
  do {                                                              \
    if (std::getenv("QUILLON_TESTS_MAY_NOT_SKIP") != nullptr) {     \
      FAIL() << "skipped where no test may be skipped: " << reason; \
    }                                                               \
    GTEST_SKIP() << reason;                                         \
  } while (false)
