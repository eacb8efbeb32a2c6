// Readers of captured streams that get no memory for a trace span or for the error file.
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/unit/util/capture/capture_process.h"
#include "util/log/reader_progress.h"
#include "util/log/stream_capture.h"

namespace {

std::atomic<bool> failsOnce{false};  // the next allocation of every other thread
std::atomic<pid_t> thread{0};        // if not 0, of this one only

bool fails() {
  if (!failsOnce) {
    return false;
  }
  static thread_local bool hasFailed = false;
  const bool concerns = thread == 0 ? gettid() != getpid() : gettid() == thread;
  const bool now = concerns && !hasFailed;
  hasFailed = hasFailed || now;
  return now;
}

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = fails() ? nullptr : std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace quillon::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;

TEST(ReaderWithoutMemory, SaysSoAndReadsOn) {
  const Captured captured = inCaptureProcess([](Notes&) {
    failsOnce = true;
    tvRunLoggingThread();
    put(STDOUT_FILENO, "an output");
    put(STDERR_FILENO, "an error");
  });
  EXPECT_EQ(captured.ending, "");
  for (const char* const reader : {"stdOutRedirect(", "stdErrRedirect("}) {
    EXPECT_THAT(captured.texts, Contains(AllOf(HasSubstr(reader), HasSubstr("Out of memory"))));
  }
  EXPECT_THAT(captured.output(), Contains("an output"));
  EXPECT_THAT(captured.errors(), Contains("an error"));
}

TEST(ErrorFileWithoutMemory, SaysSoAndTheTextIsLogged) {
  constexpr int kAMinute = 60'000;
  const Captured captured = inCaptureProcess([](Notes&) {
    tvRunLoggingThread();
    put(STDERR_FILENO, "before");
    waitForStderrReader(kAMinute);
    thread = stderrProgress.thread();
    failsOnce = true;
    put(STDERR_FILENO, "an error");
  });
  EXPECT_EQ(captured.ending, "");
  EXPECT_THAT(captured.texts,
              Contains(AllOf(HasSubstr("writeStringTofile("), HasSubstr("Out of memory"))));
  EXPECT_THAT(captured.errors(), Contains("an error"));
  EXPECT_EQ(captured.errorText, "before\n");
}

}  // namespace
}  // namespace quillon::test
