// The reader of cached lists. It accepts a file only if it is complete. Input: the file.
#include "plugin/src/plugin-util/cached_list.h"
#include "tests/fuzz/memory_file.h"
#include "tests/fuzz/target.h"
#include "tests/support/recording_platform.h"
#include "util/zq_utils/cache_file.h"

namespace {

constexpr std::string_view kStart = "[START]";
constexpr std::string_view kEnd = "[END]";

bool isWhole(std::string_view file) {
  return file.size() >= kStart.size() + kEnd.size() && file.substr(0, kStart.size()) == kStart &&
         file.substr(file.size() - kEnd.size()) == kEnd;
}

}  // namespace

FUZZ_TARGET(cached_list) {
  static MemoryFile file("");
  file.replace(bytes);
  const std::string path = file.path();
  const std::string content = readFileToString(path);
  FUZZ_REQUIRE(content == bytes);
  FUZZ_REQUIRE(isCrashed(content) == !isWhole(bytes));

  int rebuilt = 0;
  const std::string list = readCachedListOr({path.c_str(), "torn", "cached"}, [&rebuilt] {
    ++rebuilt;
    return std::string("built again");
  });
  const auto& markers = quillon::test::platform().markers;
  FUZZ_REQUIRE(markers.size() == 1);
  if (isWhole(bytes)) {
    FUZZ_REQUIRE(rebuilt == 0);
    FUZZ_REQUIRE(std::string(kStart).append(list).append(kEnd) == bytes);
    FUZZ_REQUIRE(markers[0] == "cached");
  } else {
    FUZZ_REQUIRE(rebuilt == 1);
    FUZZ_REQUIRE(list == "built again");
    FUZZ_REQUIRE(markers[0] == "torn");
  }
}
