// Tests of launches that build, write and read the same cache at the same time.
//
// QUILLON_TORTURE_SECONDS  duration in seconds; default 10
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <vector>

#include "tests/system/torture/cache_calls.h"
#include "tests/system/torture/device_main.h"
#include "tests/system/torture/traced_process.h"

namespace quillon::torture {
namespace {

constexpr int kWriters = 8;
constexpr int kReaders = 4;
constexpr int kDefaultSeconds = 10;

struct Counts {
  std::atomic<long> launches{0};
  std::atomic<long> wrongLists{0};
};

std::chrono::seconds duration() {
  const char* seconds = std::getenv("QUILLON_TORTURE_SECONDS");
  return std::chrono::seconds(seconds == nullptr ? kDefaultSeconds : std::atoi(seconds));
}

class CacheConcurrency : public DeviceTest {
 protected:
  CacheConcurrency() : writers(memory[0].counts()), readers(memory[1].counts()) {}

  // Starts a process that requests the list until the time is over. Calls `before` before each
  // request.
  template <typename Before>
  void start(Counts& counts, const Before& before) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child != 0) {
      children.push_back(child);
      return;
    }
    initializePlugin();
    const auto end = std::chrono::steady_clock::now() + duration();
    while (std::chrono::steady_clock::now() < end) {
      before();
      const char* list = assemblyList();
      ++counts.launches;
      if (list == nullptr || expected != list) {
        ++counts.wrongLists;
      }
    }
    _exit(0);
  }

  void waitForAll() {
    for (const pid_t child : children) {
      int status = 0;
      waitpid(child, &status, 0);
      EXPECT_EQ(status, 0);
    }
  }

  void report() const {
    std::cout << duration().count() << " s: " << writers.launches << " launches of " << kWriters
              << " processes that built and wrote the list, " << readers.launches << " of "
              << kReaders
              << " that asked for it; wrong lists: " << writers.wrongLists + readers.wrongLists
              << std::endl;
  }

 private:
  // Memory that all processes share.
  class SharedCounts {
   public:
    Counts& counts() { return *new (text.bytes()) Counts; }

   private:
    SharedText text;
  };
  SharedCounts memory[2];

 protected:
  Counts& writers;
  Counts& readers;
  std::vector<pid_t> children;
};

TEST_F(CacheConcurrency, NoLaunchEverGetsAWrongList) {
  for (int writer = 0; writer < kWriters; ++writer) {
    // Removes the file, like the constructor of a strategy does with an outdated cache.
    start(writers, [] { unlink(cachePath().c_str()); });
  }
  for (int reader = 0; reader < kReaders; ++reader) {
    start(readers, [] {});
  }
  waitForAll();
  report();
  EXPECT_GT(writers.launches, kWriters);
  EXPECT_GT(readers.launches, kReaders);
  EXPECT_EQ(writers.wrongLists, 0);
  EXPECT_EQ(readers.wrongLists, 0);
  EXPECT_EQ(launch().list, expected);
}

// Writers share a temporary name. If a list were written in two parts and another writer truncated
// the file in between, the file would contain the end before the middle, and both markers around a
// hole.
TEST_F(CacheConcurrency, OneWriteTransfersTheCompleteList) {
  CacheCalls calls;
  std::vector<std::uint64_t> sizes;
  const TraceResult traced = follow(
      [] {
        initializePlugin();
        assemblyList();
      },
      {.atEntry =
           [&](const SystemCall& call) {
             if (call.number == SYS_write && calls.concerns(call)) {
               sizes.push_back(call.arguments[2]);
             }
             return Verdict::run();
           },
       .atExit = [&](const SystemCall& call,
                     std::int64_t result) { calls.returned(call, result); }});
  if (!traced.allowed) {
    QUILLON_SKIP(traced.reason);
  }
  // First the list of shared folders, which is empty here, then the list of assemblies.
  EXPECT_THAT(sizes, testing::ElementsAre(whole("").size(), whole(expected).size()));
}

}  // namespace
}  // namespace quillon::torture
