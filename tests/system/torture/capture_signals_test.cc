// Signals whose handlers write messages into a standard-error pipe that is full: no handler blocks
// for ever, and what is written arrives byte for byte.
//
// QUILLON_TORTURE_SIGNALS  number of signals; default 400
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/dlog.h"
#include "quillon_tv_plugin.h"
#include "tests/support/captured_line.h"
#include "tests/support/figure.h"
#include "tests/support/shared_memory.h"
#include "tests/system/torture/device_main.h"

namespace quillon::torture {
namespace {

using test::lengthOf;
using test::printFigure;

constexpr unsigned kMaxDuration = 280;  // seconds
constexpr char kMessage[] = "onSigsegvForException!!";
constexpr char kFiller = '.';
constexpr std::size_t kFillerSize = 4096;  // an atomic write
constexpr int kThreads = 4;
// The monitor sends no further message below this limit.
constexpr int kNoLimit = 1'000'000'000;

std::size_t signals() { return lengthOf("QUILLON_TORTURE_SIGNALS", 400); }

// What arrived in the log from standard error. Newlines do not count: the reader drops some.
struct Sink {
  std::atomic<std::size_t> filler{0};
  std::atomic<std::size_t> messageBytes{0};
  std::string messages;                // of the reader's thread
  std::function<void()> onFirstChunk;  // runs in the reader's thread
  std::chrono::microseconds pause{0};  // delay per chunk
};

Sink& sink() {
  static auto* instance = new Sink;  // the readers can run longer than main
  return *instance;
}

void take(std::string_view chunk) {
  for (const char byte : chunk) {
    if (byte == kFiller) {
      ++sink().filler;
    } else if (byte != '\n') {
      sink().messages += byte;
      ++sink().messageBytes;
    }
  }
  if (const auto action = std::exchange(sink().onFirstChunk, nullptr)) {
    action();
  }
  std::this_thread::sleep_for(sink().pause);
}

std::atomic<std::size_t> handled{0};

void countSignal(int) { ++handled; }

template <typename Function>
Function* resolve(void* library, const char* name) {
  return reinterpret_cast<Function*>(dlsym(library, name));
}

// Starts capture, and the exception monitor in front of a handler that returns.
void startCapture() {
  void* library = dlopen(QUILLON_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  signal(SIGSEGV, countSignal);
  resolve<decltype(plugin_has_log_control)>(library, "plugin_has_log_control")();
  resolve<decltype(enable_exception_monitor)>(library, "enable_exception_monitor")(kNoLimit,
                                                                                   kNoLimit);
}

bool isFull(int pipe) {
  pollfd room{pipe, POLLOUT, 0};
  return poll(&room, 1, 0) == 0;
}

// Raises each signal when the pipe is full.
void raiseSignals(std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    while (!isFull(STDERR_FILENO)) {
      std::this_thread::yield();
    }
    raise(SIGSEGV);
  }
}

// Fills the pipe without waiting, through a description of its own. Returns the number of bytes.
std::size_t fillPipe() {
  const std::string filler(kFillerSize, kFiller);
  const int pipe = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  std::size_t filled = 0;
  for (std::size_t size = kFillerSize; size > 0; size /= 2) {
    for (ssize_t written = 0; written >= 0; filled += static_cast<std::size_t>(written)) {
      written = write(pipe, filler.data(), size);
      if (written < 0) {
        break;
      }
    }
  }
  close(pipe);
  return filled;
}

void await(const std::atomic<std::size_t>& number, std::size_t goal) {
  while (number < goal) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// Runs `body` in a child process, which returns a description of the first error.
std::string inChild(const std::function<std::string()>& body) {
  auto& text = test::makeSharedMemory<std::array<char, 4096>>();
  const pid_t child = fork();
  if (child == 0) {
    alarm(kMaxDuration);
    body().copy(text.data(), text.size() - 1);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return status == 0 ? text.data() : "wait status " + std::to_string(status);
}

std::string compare(const char* what, std::size_t found, std::size_t expected) {
  return found == expected ? ""
                           : std::string(what) + ": " + std::to_string(found) + " instead of " +
                                 std::to_string(expected) + "\n";
}

std::string repeated(const char* text, std::size_t count) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) {
    all += text;
  }
  return all;
}

// Several threads get signals while several others keep the pipe full.
std::string signalsBesideWriters() {
  startCapture();
  std::atomic<bool> end{false};
  std::atomic<std::size_t> written{0};
  std::vector<std::thread> writers;
  std::vector<std::thread> receivers;
  for (int i = 0; i < kThreads; ++i) {
    writers.emplace_back([&] {
      for (const std::string filler(kFillerSize, kFiller); !end;) {
        written += static_cast<std::size_t>(write(STDERR_FILENO, filler.data(), filler.size()));
      }
    });
    receivers.emplace_back(raiseSignals, signals() / kThreads);
  }
  for (std::thread& receiver : receivers) {
    receiver.join();
  }
  end = true;
  for (std::thread& writer : writers) {
    writer.join();
  }
  const std::size_t sent = signals() / kThreads * kThreads;
  await(sink().filler, written);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the last message may follow
  return compare("signals handled", handled, sent) +
         compare("messages logged", sink().messageBytes / std::strlen(kMessage), sent) +
         (sink().messages == repeated(kMessage, sent) ? "" : "the messages are not whole\n");
}

// The reader itself gets the signals, so nobody empties the pipe.
std::string signalsOnTheReader() {
  std::atomic<std::size_t> filled{0};
  sink().onFirstChunk = [&] {
    const std::size_t bytes = fillPipe();
    raiseSignals(signals());
    filled = bytes;
  };
  startCapture();
  if (write(STDERR_FILENO, "\n", 1) != 1) {
    return "no output";
  }
  await(filled, 1);
  await(sink().filler, filled);
  return compare("signals handled", handled, signals()) +
         compare("bytes of messages", sink().messageBytes, 0);
}

class CaptureSignals : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!whyOutside().empty()) {
      QUILLON_SKIP("no device root: " << whyOutside());
    }
  }
};

TEST_F(CaptureSignals, AtAPipeThatWritersKeepFullAreAllLogged) {
  sink().pause = std::chrono::microseconds(100);
  const std::string problem = inChild(signalsBesideWriters);
  EXPECT_EQ(problem, "");
  printFigure("capture, signals at a pipe that 4 writers keep full",
              std::to_string(signals()) + " signals", "each handled and logged", problem.empty());
}

TEST_F(CaptureSignals, InTheReaderAtAFullPipeDoNotBlockIt) {
  sink().pause = std::chrono::microseconds(0);
  const std::string problem = inChild(signalsOnTheReader);
  EXPECT_EQ(problem, "");
  printFigure("capture, signals in the reader at a full pipe",
              std::to_string(signals()) + " signals", "each handled, no output lost",
              problem.empty());
}

}  // namespace
}  // namespace quillon::torture

// The log of this program and of the plug-in in it. Replaces the function of the platform library.
extern "C" int __dlog_print(int, int, const char*, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const auto line = quillon::test::capturedLine(format, arguments);
  if (line && line->isError) {
    quillon::torture::take(line->text);
  }
  va_end(arguments);
  return 0;
}
