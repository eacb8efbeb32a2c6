#include "plugin/src/dotnet-signal-handler/thread_state.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include "tests/support/without_standard_input.h"

namespace {

// Tests from another thread, until the result is `expected`. A wrong result is a hang.
void awaitState(pid_t thread, bool expected) {
  while (isReadyToRun(thread) != expected) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST(ThreadState, AThreadThatComputesIsReady) {
  std::atomic<bool> ended{false};
  std::atomic<pid_t> id{0};
  // The name is part of what the kernel shows, and looks like its end.
  std::thread computing([&] {
    prctl(PR_SET_NAME, "a) S 1 (b");
    id = gettid();
    while (!ended) {
    }
  });
  while (id == 0) {
    std::this_thread::yield();
  }
  for (int looks = 0; looks < 100; ++looks) {
    EXPECT_TRUE(isReadyToRun(id));
  }
  ended = true;
  computing.join();
}

TEST(ThreadState, IsReadWithoutStandardInputToo) {
  const quillon::test::WithoutStandardInput without;
  EXPECT_TRUE(isReadyToRun(gettid()));
  EXPECT_EQ(fcntl(0, F_GETFD), -1);
}

TEST(ThreadState, AThreadThatSleepsIsNot) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::atomic<pid_t> id{0};
  char byte = 0;
  std::thread reading([&] {
    prctl(PR_SET_NAME, "a) R 1 (b");
    id = gettid();
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
  });
  while (id == 0) {
    std::this_thread::yield();
  }
  awaitState(id, false);
  EXPECT_EQ(write(ends[1], "x", 1), 1);
  reading.join();
  for (const int end : ends) {
    close(end);
  }
}

// Returns the state in /proc/self/task/ID/stat of a thread whose name has no parentheses.
char stateOf(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string text;
  std::getline(file, text, ')');
  char state = 0;
  file >> state;
  return state;
}

// A thread in vfork(2), whose child has not ended, waits as for a disk.
TEST(ThreadState, AThreadThatWaitsForADiskIsReady) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::atomic<pid_t> id{0};
  std::thread waiting([&] {
    id = gettid();
    const auto child = static_cast<pid_t>(
        syscall(SYS_clone, CLONE_VFORK | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    if (child == 0) {
      char byte = 0;
      syscall(SYS_exit_group, syscall(SYS_read, ends[0], &byte, 1) == 1 ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  });
  while (id == 0 || stateOf(id) != 'D') {
    std::this_thread::yield();
  }
  EXPECT_TRUE(isReadyToRun(id));
  EXPECT_EQ(write(ends[1], "x", 1), 1);
  waiting.join();
  for (const int end : ends) {
    close(end);
  }
}

TEST(ThreadState, AThreadThatHasEndedIsNot) {
  EXPECT_FALSE(isReadyToRun(0));
  pid_t id = 0;
  std::thread([&] { id = gettid(); }).join();
  awaitState(id, false);
}

}  // namespace
