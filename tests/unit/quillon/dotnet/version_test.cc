#include "quillon/dotnet/version.h"

#include <gtest/gtest.h>

namespace quillon::dotnet {
namespace {

// Each version is preferred to all earlier ones in the list, and to no later one.
TEST(Version, OrdersReleasesByNumberAndPreviewsBehindThem) {
  const char* ascending[] = {"",
                             "9.0.0-preview.7.1",
                             "11.0.0-alpha",
                             "11.0.0-preview.1",
                             "11.0.0-preview.2.5",
                             "11.0.0-preview.10",
                             "11.0.0-rc.1.25451.107",
                             "8.0.9",
                             "8.0.10",
                             "9.0",
                             "9.0.0",
                             "10.0.2",
                             "10.0.12",
                             "99999999999999999999.0.0",
                             "100000000000000000000.0.0"};
  for (const auto* version = std::begin(ascending); version != std::end(ascending); ++version) {
    EXPECT_FALSE(isPreferred(*version, *version)) << *version;
    for (const auto* other = version + 1; other != std::end(ascending); ++other) {
      if (version == std::begin(ascending) && std::string(*other).find('-') != std::string::npos) {
        continue;  // an empty version counts as a release
      }
      EXPECT_TRUE(isPreferred(*other, *version)) << *other << " to " << *version;
      EXPECT_FALSE(isPreferred(*version, *other)) << *version << " to " << *other;
    }
  }
}

TEST(Version, IgnoresBuildMetadata) {
  EXPECT_FALSE(isPreferred("10.0.1+abc", "10.0.1"));
  EXPECT_FALSE(isPreferred("10.0.1", "10.0.1+abc"));
}

}  // namespace
}  // namespace quillon::dotnet
