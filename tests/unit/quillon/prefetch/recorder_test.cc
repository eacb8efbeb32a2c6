// The recorder in a process that has no memory left.
#include "quillon/prefetch/recorder.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <cstddef>

namespace quillon::prefetch {
namespace {

constexpr char kNoFileName[] = ".";  // so that nothing is written in any case

void useUpMemory() {
  rlimit limit{};
  getrlimit(RLIMIT_AS, &limit);
  limit.rlim_cur = 0;
  setrlimit(RLIMIT_AS, &limit);
  for (std::size_t size = std::size_t{1} << 20; size >= sizeof(void*); size /= 2) {
    while (malloc(size) != nullptr) {
    }
  }
}

TEST(RecorderDeathTest, EndsNoProcessThatHasNoMemory) {
  EXPECT_EXIT(
      {
        {
          const Recorder recorder(kNoFileName, "/application.dll");
          useUpMemory();
        }
        _exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace quillon::prefetch
