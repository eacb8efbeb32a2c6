// Tests in a child process that has one of the machine's folders for itself, empty.
//
// A whole device root takes a process of one thread, and the thread sanitizer has one of its own.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>

#include "tests/support/skip.h"

namespace quillon::test {

class OwnFolderTest : public ::testing::Test {
 protected:
  // Runs `test` in a child for which `folder` is empty; its failures are this test's.
  void inOwn(const char* folder, const std::function<void()>& test) {
    int status = 0;
    const pid_t child = fork();
    if (child == 0) runIn(folder, test);
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoFolder) {
      QUILLON_SKIP("a mount namespace of one's own takes root");
    }
    EXPECT_EQ(status, 0) << "see the child's output";
  }

 private:
  static constexpr int kNoFolder = 77;

  // The calling thread's, and that of those that it starts; the folder ends with them.
  static bool take(const char* folder) {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", folder, "tmpfs", 0, nullptr) == 0;
  }

  [[noreturn]] static void runIn(const char* folder, const std::function<void()>& test) {
    if (!take(folder)) _exit(kNoFolder);
    test();
    // exit and not _exit: the thread sanitizer tells its findings by the status that exit ends
    // with.
    exit(HasFailure() ? 1 : 0);
  }
};

}  // namespace quillon::test
