// The exit of a process whose output is captured. The tests provide the reader threads.
#include "quillon/host/plugin/captured_output.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
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

std::atomic<int> sleeps{0};

#ifdef SYS_poll  // where poll(3) is another system call, the kernel repeats that one

std::string callOf(pid_t thread) {
  std::ifstream stream("/proc/self/task/" + std::to_string(thread) + "/syscall");
  std::string number;
  stream >> number;
  return number;
}

// Polls for input that never comes.
void pollForEver(std::atomic<pid_t>& thread) {
  pthread_setname_np(pthread_self(), "Stdout Thread");
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    _exit(1);
  }
  thread = gettid();
  pollfd input{ends[0], POLLIN, 0};
  poll(&input, 1, -1);
}

// Stops this process and continues it, as job control and a freezer do.
void stopAndContinue() {
  const pid_t stopped = getpid();
  const pid_t helper = fork();
  if (helper == 0) {
    const std::string status = "/proc/" + std::to_string(stopped) + "/stat";
    kill(stopped, SIGSTOP);
    for (std::string text; text.find(") T") == std::string::npos;) {
      std::ifstream stream(status);
      std::getline(stream, text);
    }
    kill(stopped, SIGCONT);
    _exit(0);
  }
  waitpid(helper, nullptr, 0);
}

TEST(CapturedOutput, TheExitDoesNotWaitForAReaderThatPollsSinceTheProcessWasStopped) {
  EXPECT_EQ(printedBy([] {
              static std::atomic<pid_t> reader{0};
              std::atexit([] {  // runs after the handler that waits
                dprintf(STDERR_FILENO, sleeps == 0 ? "did not wait" : "waited");
              });
              drainCapturedOutputAtExit();
              std::thread([] { pollForEver(reader); }).detach();
              const std::string polling = std::to_string(SYS_poll);
              while (reader == 0 || callOf(reader) != polling) {
                std::this_thread::yield();
              }
              stopAndContinue();
              const std::string restarted = std::to_string(SYS_restart_syscall);
              while (callOf(reader) != restarted) {
                std::this_thread::yield();
              }
              sleeps = 0;
            }),
            "did not wait");
}

#endif

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

void countSleep() { ++sleeps; }

}  // namespace quillon::host

// Counts the pauses of a thread that waits.
extern "C" int nanosleep(const timespec* time, timespec* left) {
  quillon::host::countSleep();
  return clock_nanosleep(CLOCK_REALTIME, 0, time, left);
}
