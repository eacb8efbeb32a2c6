// Tests launches in which one system call on the cache files fails, for each call and each error in
// turn.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <iostream>

#include "tests/system/torture/cache_calls.h"
#include "tests/system/torture/device_main.h"
#include "tests/system/torture/traced_process.h"

namespace quillon::torture {
namespace {

using Prepare = std::function<void()>;

class CacheFailure : public DeviceTest, public ::testing::WithParamInterface<int> {
 protected:
  // Performs a launch in which the cache call number `target` fails. Returns the number of cache
  // calls.
  std::size_t launchFailingAt(std::size_t target, int error) {
    CacheCalls calls;
    std::size_t made = 0;
    writes = 0;
    SharedText list;
    trace = follow(
        [&list] {
          waitForDisk(true);
          initializePlugin();
          const char* text = assemblyList();
          list.set(text == nullptr ? "" : text);
        },
        {.atEntry =
             [&](const SystemCall& call) {
               if (!calls.concerns(call)) {
                 return Verdict::run();
               }
               writes += call.number == SYS_write ? 1 : 0;
               return ++made == target ? Verdict::fail(error) : Verdict::run();
             },
         .atExit = [&](const SystemCall& call,
                       std::int64_t result) { calls.returned(call, result); }});
    launched = {list.get(), trace.ending};
    return made;
  }

  void expectRightList() const {
    EXPECT_EQ(launched.ending, "");
    EXPECT_EQ(launched.list, expected);
  }

  // Expects that the cache file is either incomplete or correct, so that later launches cannot use
  // a wrong list.
  void expectNoWrongCache() const {
    const auto cached = readFile(cachePath());
    if (cached && cached->starts_with("[START]") && cached->ends_with("[END]")) {
      EXPECT_EQ(*cached, whole(expected));
    }
  }

  void expectRightNextLaunches() {
    for (int times = 0; times < 2; ++times) {
      launched = launch();
      expectRightList();
    }
    EXPECT_EQ(readFile(cachePath()), whole(expected));
  }

  void failEverywhere(std::size_t atLeast, const Prepare& prepare) {
    std::size_t target = 1;
    for (; !HasFailure(); ++target) {
      SCOPED_TRACE("failing cache call " + std::to_string(target));
      clearCaches();
      prepare();
      const std::size_t made = launchFailingAt(target, GetParam());
      if (!trace.allowed) {
        QUILLON_SKIP(trace.reason);
      }
      expectRightList();
      expectNoWrongCache();
      expectRightNextLaunches();
      if (made < target) {
        break;
      }
    }
    std::cout << "failed each of " << target - 1 << " calls on the cache files" << std::endl;
    EXPECT_GT(target, atLeast);
  }

  TraceResult trace;
  Launched launched;
  std::size_t writes = 0;  // to the cache files, in the last launch
};

// The calls for both lists: access twice, lstat twice, open, fstat, write, fsync, close, rename,
// sync.
TEST_P(CacheFailure, LeavesACorrectListWhileBuildingTheCache) {
  failEverywhere(16, [] {});
  EXPECT_EQ(writes, IsSkipped()
                        ? 0U
                        : 2U);  // one for each list, so that no other writer can come in between
}

TEST_P(CacheFailure, LeavesARightListWhileReadingTheCache) {
  failEverywhere(3, [this] { writeFile(cachePath(), whole(expected)); });
}

TEST_P(CacheFailure, LeavesACorrectListWhileReplacingAnIncompleteCache) {
  failEverywhere(16, [this] { writeFile(cachePath(), "[START]" + expected); });
}

std::string errorName(const ::testing::TestParamInfo<int>& info) {
  return strerrorname_np(info.param);
}

INSTANTIATE_TEST_SUITE_P(Errors, CacheFailure, ::testing::Values(EIO, ENOSPC, EROFS, EMFILE, EINTR),
                         errorName);

// Limits the size of files to `bytes`. One write(2) is then cut short, as on a full disk.
void limitFileSize(std::size_t bytes) {
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{bytes, bytes};
  setrlimit(RLIMIT_FSIZE, &limit);
}

using CacheDisk = DeviceTest;

TEST_F(CacheDisk, HoldingPartOfTheCacheOnlyNeverServesAWrongList) {
  const std::size_t size = whole(expected).size();
  for (const std::size_t room :
       {std::size_t{0}, std::size_t{1}, std::size_t{7}, std::size_t{12}, std::size_t{100},
        std::size_t{4096}, std::size_t{8192}, size / 2, size - 5, size - 1}) {
    SCOPED_TRACE("room for " + std::to_string(room) + " bytes");
    clearCaches();
    for (int times = 0; times < 2; ++times) {
      const Launched launched = launch([room] { limitFileSize(room); });
      EXPECT_EQ(launched.ending, "");
      EXPECT_EQ(launched.list, expected);
    }
    EXPECT_EQ(launch().list, expected);
    EXPECT_EQ(readFile(cachePath()), whole(expected));
  }
}

}  // namespace
}  // namespace quillon::torture
