// Launch profiles. Input: the profile.
#include <algorithm>

#include "quillon/prefetch/launch_profile.h"
#include "tests/fuzz/target.h"

namespace {

using namespace quillon::prefetch;

bool isSame(const ProfiledFile& one, const ProfiledFile& other) {
  return one.path == other.path && one.version == other.version && one.ranges == other.ranges;
}

}  // namespace

FUZZ_TARGET(launch_profile) {
  const auto profile = parseProfile(bytes);
  if (!profile) {
    return;
  }
  FUZZ_REQUIRE(profile->files.size() <= kMaxFiles);
  std::uint64_t length = 0;
  for (const ProfiledFile& file : profile->files) {
    FUZZ_REQUIRE(file.path.front() == '/' && file.path.find('\n') == file.path.npos);
    length += lengthOf(file);
    for (const Range& range : file.ranges) {
      FUZZ_REQUIRE(range.offset + range.length >= range.offset);
      FUZZ_REQUIRE(static_cast<std::int64_t>(range.offset + range.length) >= 0);
    }
  }
  FUZZ_REQUIRE(length <= kMaxBytes);
  const auto again = parseProfile(format(*profile));
  FUZZ_REQUIRE(again && std::equal(profile->files.begin(), profile->files.end(),
                                   again->files.begin(), again->files.end(), isSame));
}
