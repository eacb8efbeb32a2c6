#include "quillon/host/runtime/hresult.h"

#include <gtest/gtest.h>

namespace quillon::host {
namespace {

TEST(Hresult, HasADescriptionIfItsMeaningIsKnown) {
  EXPECT_EQ(describeHresult(static_cast<int>(0x80070002)), "0x80070002 (file not found)");
  EXPECT_EQ(describeHresult(static_cast<int>(0x80004005)),
            "0x80004005 (the runtime gave no further cause)");
}

TEST(Hresult, IsANumberIfItsMeaningIsUnknown) {
  EXPECT_EQ(describeHresult(static_cast<int>(0x87654321)), "0x87654321");
}

}  // namespace
}  // namespace quillon::host
