// Tests with large amounts of output through the capture of the built plug-in: all output arrives,
// in order.
//
// QUILLON_TORTURE_MEBIBYTES  amount for each stream in MiB; default 4
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <vector>

#include "platform/dlog.h"
#include "quillon_tv_plugin.h"
#include "tests/support/captured_line.h"
#include "tests/support/figure.h"
#include "tests/system/torture/device_main.h"
#include "tests/system/torture/record_stream.h"

namespace quillon::torture {
namespace {

constexpr std::size_t kMebibyte = 1 << 20;

// The sink of the log of this process.
struct Sink {
  RecordCheck out;
  RecordCheck err;
  std::chrono::microseconds pause{0};  // delay per captured chunk
};

Sink& sink() {
  static auto* instance = new Sink;  // the readers can run longer than main
  return *instance;
}

std::size_t mebibytes() { return test::lengthOf("QUILLON_TORTURE_MEBIBYTES", 4); }

// In seconds.
unsigned maxDuration() { return 280 + static_cast<unsigned>(mebibytes()); }

void startCapture() {
  void* library = dlopen(QUILLON_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  const auto start =
      reinterpret_cast<decltype(&plugin_has_log_control)>(dlsym(library, "plugin_has_log_control"));
  start();
}

// Starts all writers on one descriptor, with `records` records each.
std::vector<std::thread> startWriters(int descriptor, std::size_t records) {
  std::vector<std::thread> writers;
  for (unsigned thread = 0; thread < kWriters; ++thread) {
    writers.emplace_back(writeRecords, descriptor, thread, records);
  }
  return writers;
}

void await(const RecordCheck& check, std::size_t records) {
  while (check.records() < records) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// Checks the error file of this process. Returns a description of the first error.
std::string checkErrorFile(std::size_t records) {
  RecordCheck check(false);
  const std::string prefix = "dotnet_error." + std::to_string(getpid()) + ".";
  for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
    if (!entry.path().filename().string().starts_with(prefix)) {
      continue;
    }
    std::ifstream file(entry.path());
    std::vector<char> block(1 << 20);
    while (file.read(block.data(), static_cast<std::streamsize>(block.size())), file.gcount() > 0) {
      check.take({block.data(), static_cast<std::size_t>(file.gcount())});
    }
    std::filesystem::remove(entry.path());
  }
  if (!check.problem().empty()) {
    return "error file: " + check.problem();
  }
  return check.records() == records ? "" : "error file: " + std::to_string(check.records());
}

// Writes to both streams, at most `records` records per writer. Returns a description of the first
// error.
std::string flood(std::size_t outRecords, std::size_t errRecords) {
  startCapture();
  std::vector<std::thread> writers = startWriters(STDOUT_FILENO, outRecords);
  for (std::thread& writer : startWriters(STDERR_FILENO, errRecords)) {
    writers.push_back(std::move(writer));
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
  await(sink().out, outRecords * kWriters);
  await(sink().err, errRecords * kWriters);
  if (!sink().out.problem().empty()) {
    return "standard output: " + sink().out.problem();
  }
  if (!sink().err.problem().empty()) {
    return "standard error: " + sink().err.problem();
  }
  return errRecords == 0 ? "" : checkErrorFile(errRecords * kWriters);
}

// Rounds up.
std::size_t recordsFor(std::size_t bytes) { return bytes / kLineSize / kWriters + 1; }

// Does the same in a child process.
std::string floodInChild(std::size_t outBytes, std::size_t errBytes) {
  SharedText problem;
  const pid_t child = fork();
  if (child == 0) {
    alarm(maxDuration());
    problem.set(flood(recordsFor(outBytes), recordsFor(errBytes)).c_str());
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) {
    return "signal " + std::to_string(WTERMSIG(status));
  }
  return WEXITSTATUS(status) == 0 ? problem.get().value_or("no result") : "failed";
}

class CaptureFlood : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!whyOutside().empty()) {
      QUILLON_SKIP("no device root: " << whyOutside());
    }
    sink().pause = std::chrono::microseconds(0);
  }
};

TEST_F(CaptureFlood, ArrivesCompletelyAndInOrder) {
  const std::size_t bytes = mebibytes() * kMebibyte;
  const std::string problem = floodInChild(bytes, bytes);
  EXPECT_EQ(problem, "");
  test::printFigure("capture, bytes through each stream at the same time",
                    std::to_string(mebibytes()) + " MiB", "no byte lost, changed or out of order",
                    problem.empty());
}

TEST_F(CaptureFlood, OnStandardErrorWithASlowLogArrivesToo) {
  sink().pause = std::chrono::milliseconds(2);
  EXPECT_EQ(floodInChild(kMebibyte / 10, kMebibyte), "");
}

}  // namespace
}  // namespace quillon::torture

// The log of this program and of the plug-in in it. Replaces the function of the platform library.
extern "C" int __dlog_print(int, int, const char*, const char* format, ...) {
  using quillon::torture::sink;
  va_list arguments;
  va_start(arguments, format);
  if (const auto line = quillon::test::capturedLine(format, arguments)) {
    (line->isError ? sink().err : sink().out).take(line->text);
    std::this_thread::sleep_for(sink().pause);
  }
  va_end(arguments);
  return 0;
}
