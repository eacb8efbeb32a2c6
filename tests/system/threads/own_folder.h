// Runs tests in a child process in which some of the machine's folders are private and empty.
//
// The tests cannot enter a device root: that requires a process with one thread, but the thread
// sanitizer adds another.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <vector>

#include "tests/support/skip.h"

namespace quillon::test {

class OwnFolderTest : public ::testing::Test {
 protected:
  // Runs `test` in a child process with empty folders. Its failures count for this test.
  void inOwn(const std::vector<const char*>& folders, const std::function<void()>& test) {
    int status = 0;
    const pid_t child = fork();
    if (child == 0) {
      runIn(folders, test);
    }
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoFolder) {
      QUILLON_SKIP("a mount namespace of one's own takes root");
    }
    EXPECT_EQ(status, 0) << "see the child's output";
  }

 private:
  static constexpr int kNoFolder = 77;

  // Makes the folders private to the calling thread and the threads that it starts.
  static bool take(const std::vector<const char*>& folders) {
    const auto isTaken = [](const char* folder) {
      return mount("tmpfs", folder, "tmpfs", 0, nullptr) == 0;
    };
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           std::all_of(folders.begin(), folders.end(), isTaken);
  }

  [[noreturn]] static void runIn(const std::vector<const char*>& folders,
                                 const std::function<void()>& test) {
    if (!take(folders)) {
      _exit(kNoFolder);
    }
    test();
    // exit instead of _exit, because the thread sanitizer sets the exit status in exit(3).
    exit(HasFailure() ? 1 : 0);
  }
};

}  // namespace quillon::test
