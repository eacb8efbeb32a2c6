// Faults that interrupt the assignment of the application id.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <malloc.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <new>

#include "plugin/src/plugin-util/app_identity.h"
#include "plugin/src/plugin-util/launch_boost.h"
#include "quillon_tv_plugin.h"
#include "tests/support/recording_platform.h"
#include "tests/system/crash/scripted_signals.h"
#include "util/log/stream_capture.h"

namespace {

// The memory whose release is interrupted by a fault.
const void* watched = nullptr;

void release(void* memory) {
  if (memory != nullptr && memory == watched) {
    watched = nullptr;
    std::memset(memory, 'X', malloc_usable_size(memory));
    raise(SIGSEGV);
  }
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* const memory = std::malloc(size)) {
    return memory;
  }
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }

namespace quillon::test {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;

class AssignedId : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    KestrelConnectionTryCnt = 0;  // no notice
    ASSERT_EQ(pipe2(pipe_.data(), O_NONBLOCK | O_CLOEXEC), 0);
    pStdErr[1] = pipe_[1];
    ::signal(SIGSEGV, [](int) {});
  }
  void TearDown() override {
    pStdErr[1] = -1;
    close(pipe_[0]);
    close(pipe_[1]);
  }

  std::string report() const {
    std::array<char, 1000> buffer{};
    const ssize_t count = read(pipe_[0], buffer.data(), buffer.size());
    return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }

  std::array<int, 2> pipe_{};
  KeptActions kept_;
};

TEST_F(AssignedId, IsWholeInTheReportOfAFaultMeanwhile) {
  const std::string first(40, 'a');
  const std::string second(60, 'b');
  _SetAppInfo(first, "/usr/bin/env");
  enable_exception_monitor(10, 1);
  watched = g_appID.data();
  _SetAppInfo(second, "/usr/bin/env");
  ASSERT_EQ(watched, nullptr);
  EXPECT_THAT(report(), AnyOf(HasSubstr("[" + first + "] Exception Limit exceed!!!"),
                              HasSubstr("[" + second + "] Exception Limit exceed!!!")));
}

}  // namespace
}  // namespace quillon::test
