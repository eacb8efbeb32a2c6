// Skips a test that the machine cannot run.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>

// Ends the test as skipped, with the reason. If QUILLON_TESTS_MAY_NOT_SKIP is set, as in CI, the
// test fails instead.
#define QUILLON_SKIP(reason)                                        \
  do {                                                              \
    if (std::getenv("QUILLON_TESTS_MAY_NOT_SKIP") != nullptr) {     \
      FAIL() << "skipped where no test may be skipped: " << reason; \
    }                                                               \
    GTEST_SKIP() << reason;                                         \
  } while (false)
