// The exit of a process whose output is captured. The tests provide the reader threads.
#include "quillon/host/plugin/captured_output.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

namespace quillon::host {
namespace {

// Runs `body` in a child that then exits, and returns the bytes that it wrote to its standard
// output or error, which are a pipe. SIGALRM ends a child that hangs.
std::string printedBy(const std::function<void()>& body) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    return "no pipe";
  }
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    alarm(30);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
      dup2(ends[1], stream);
    }
    for (const int end : ends) {
      close(end);
    }
    body();
    std::exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  close(ends[1]);
  std::array<char, 100> text{};
  const ssize_t size = read(ends[0], text.data(), text.size());
  close(ends[0]);
  return status == 0 ? std::string(text.data(), static_cast<size_t>(std::max<ssize_t>(size, 0)))
                     : "status " + std::to_string(status);
}

// Holds a stream's lock in another thread for ever, as a read from the terminal does.
void holdLockOf(FILE* file) {
  std::atomic<bool> held{false};
  std::thread([&held, file] {
    flockfile(file);
    held = true;
    for (;;) {
      pause();
    }
  }).detach();
  while (!held) {
    std::this_thread::yield();
  }
}

TEST(CapturedOutput, AThreadThatReadsInputDoesNotDelayTheExit) {
  EXPECT_EQ(printedBy([] {
              drainCapturedOutputAtExit();
              std::fputs("unflushed", stdout);
              holdLockOf(stdin);
            }),
            "unflushed");
}

// A reader in read(2), not in poll(2), may not have logged all of its input.
void readThenPrint(std::atomic<bool>& reads, int input) {
  pthread_setname_np(pthread_self(), "Stdout Thread");
  reads = true;
  char byte = 0;
  if (read(input, &byte, 1) != 1 || write(STDERR_FILENO, "dealt with", 10) < 0) {
    _exit(1);
  }
}

TEST(CapturedOutput, TheExitWaitsForAReaderThatIsNotInPoll) {
  EXPECT_EQ(printedBy([] {
              static std::array<int, 2> ends{};
              static std::atomic<bool> reads{false};
              if (pipe(ends.data()) != 0) {
                _exit(1);
              }
              drainCapturedOutputAtExit();
              std::thread([] { readThenPrint(reads, ends[0]); }).detach();
              while (!reads) {
                std::this_thread::yield();
              }
              std::thread([] {
                usleep(200'000);
                if (write(ends[1], "x", 1) < 0) {
                  _exit(1);
                }
              }).detach();
            }),
            "dealt with");
}

}  // namespace
}  // namespace quillon::host
