// Tests in a child process that has some of the machine's folders for itself, empty.
//
// A whole device root takes a process of one thread, and the thread sanitizer has one of its own.
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
  // Runs `test` in a child for which the folders are empty; its failures are this test's.
  void inOwn(const std::vector<const char*>& folders, const std::function<void()>& test) {
    int status = 0;
    const pid_t child = fork();
    if (child == 0) runIn(folders, test);
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoFolder) {
      QUILLON_SKIP("a mount namespace of one's own takes root");
    }
    EXPECT_EQ(status, 0) << "see the child's output";
  }

 private:
  static constexpr int kNoFolder = 77;

  // The calling thread's, and those of the threads that it starts; the folders end with them.
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
    if (!take(folders)) _exit(kNoFolder);
    test();
    // exit and not _exit: the thread sanitizer tells its findings by the status that exit ends
    // with.
    exit(HasFailure() ? 1 : 0);
  }
};

}  // namespace quillon::test
