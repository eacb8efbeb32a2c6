// Compares captured output with a plain copy, and a log line and a traced scope with a plain call
// of the sink.
//
// The writer and the reader are bound to processors. A copy in large reads is up to three times as
// fast on the writer's processor, one in small reads half as fast again, so the scheduler's choice
// would decide the ratio.
#define QUILLON_UNIT_FILE "capture_bench.cc"
#define QUILLON_UNIT_PATH "bench/capture_bench.cc"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <util/log/error_file.h>
#include <util/log/log.h>
#include <util/log/read_chunk.h>
#include <util/log/stream_capture.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "bench/paired_rounds.h"
#include "bench/sink_platform.h"
#include "tests/support/temporary_directory.h"

namespace {

using quillon::bench::capturedBytes;

constexpr std::size_t kBytes = 8 << 20;  // for each stream and round
constexpr int kCalls = 1000;             // of the log for each round

// Between two checks of the received bytes. Sleeps, so that the readers can use the cores.
constexpr std::chrono::microseconds kPause{50};

constexpr std::size_t kLargeRead = 128 << 10;  // as cat(1) reads

struct Captured {
  int out = -1;
  int err = -1;
};

// The processors that this process may use.
std::vector<int> processors() {
  cpu_set_t set;
  sched_getaffinity(0, sizeof set, &set);
  std::vector<int> all;
  for (int number = 0; number < CPU_SETSIZE; ++number) {
    if (CPU_ISSET(number, &set)) {
      all.push_back(number);
    }
  }
  return all;
}

void bind(pthread_t thread, int processor) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(processor, &set);
  pthread_setaffinity_np(thread, sizeof set, &set);
}

// Starts a capture, then restores the program's own streams for the report.
Captured startCapture() {
  const std::array<int, 2> own = {dup(STDOUT_FILENO), dup(STDERR_FILENO)};
  if (tvRunLoggingThread() < 0) {
    std::abort();
  }
  const Captured captured = {dup(STDOUT_FILENO), dup(STDERR_FILENO)};
  dup2(own[0], STDOUT_FILENO);
  dup2(own[1], STDERR_FILENO);
  return captured;
}

const Captured& captured() {
  static const Captured instance = startCapture();
  return instance;
}

// Writes the bytes of a round in writes of one size.
void writeAll(int descriptor, std::size_t size) {
  const std::string text(size, 'x');
  for (std::size_t done = 0; done < kBytes;) {
    const ssize_t count = write(descriptor, text.data(), std::min(size, kBytes - done));
    if (count < 0) {
      std::abort();
    }
    done += static_cast<std::size_t>(count);
  }
}

void throughCapture(int stream, std::size_t size) {
  const std::size_t end = capturedBytes() + kBytes;
  writeAll(stream, size);
  while (capturedBytes() < end) {
    std::this_thread::sleep_for(kPause);
  }
  if (!errorLogFile.empty()) {
    unlink(errorLogFile.c_str());
  }
}

// A file that is truncated for every round.
class SinkFile {
 public:
  SinkFile() : descriptor_(open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
    quillon::bench::setSink(descriptor_);
  }
  ~SinkFile() { close(descriptor_); }
  SinkFile(const SinkFile&) = delete;
  SinkFile& operator=(const SinkFile&) = delete;
  void empty() const {
    if (ftruncate(descriptor_, 0) != 0) {
      std::abort();
    }
  }
  int descriptor() const { return descriptor_; }
  std::size_t size() const {
    struct stat status {};
    if (fstat(descriptor_, &status) != 0) {
      std::abort();
    }
    return static_cast<std::size_t>(status.st_size);
  }

 private:
  const quillon::test::TemporaryDirectory directory_;
  const std::string path_ = (directory_.path() / "sink").string();
  const int descriptor_;
};

// A process that copies to the sink. Like the capture's readers it runs during all rounds, so that
// its start is not measured.
class Copier {
 public:
  Copier(const SinkFile& sink, std::size_t readSize, int processor) : sink_(sink) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      std::abort();
    }
    process_ = fork();
    if (process_ == 0) {
      close(ends[1]);
      bind(pthread_self(), processor);
      copy(ends[0], sink.descriptor(), readSize);
    }
    close(ends[0]);
    input_ = ends[1];
  }
  ~Copier() {
    close(input_);
    int status = 0;
    waitpid(process_, &status, 0);
    if (status != 0) {
      std::abort();
    }
  }
  Copier(const Copier&) = delete;
  Copier& operator=(const Copier&) = delete;

  // Empties the sink, writes a round's bytes, and waits until they have arrived.
  void carry(std::size_t size) const {
    writeAll(input_, size);
    while (sink_.size() < kBytes) {
      std::this_thread::sleep_for(kPause);
    }
  }

 private:
  [[noreturn]] static void copy(int input, int output, std::size_t readSize) {
    std::vector<char> chunk(readSize);
    for (ssize_t count = 0; (count = read(input, chunk.data(), chunk.size())) > 0;) {
      if (write(output, chunk.data(), static_cast<std::size_t>(count)) != count) {
        _exit(1);
      }
    }
    _exit(0);
  }

  const SinkFile& sink_;
  pid_t process_ = -1;
  int input_ = -1;
};

void beside(benchmark::State& state, int Captured::*stream, std::size_t readSize) {
  static const std::vector<int> all = processors();
  const auto size = static_cast<std::size_t>(state.range(0));
  const auto count = static_cast<std::size_t>(state.range(1));
  if (all.size() < count) {
    state.SkipWithError("this process may use one processor only");
    return;
  }
  const int reader = all[count - 1];
  const SinkFile sink;  // first, because the capture logs when it starts
  const int captureStream = captured().*stream;
  bind(pthread_self(), all.front());
  bind(loggingThread, reader);
  bind(loggingThread2, reader);
  const Copier copier(sink, readSize, reader);
  quillon::bench::runPaired(
      state,
      [&] {
        throughCapture(captureStream, size);
        sink.empty();
      },
      [&] {
        copier.carry(size);
        sink.empty();
      });
  state.counters["bytes"] = static_cast<double>(kBytes);
}

void standardOutput(benchmark::State& state) { beside(state, &Captured::out, kMaxChunk); }
void standardError(benchmark::State& state) { beside(state, &Captured::err, kMaxChunk); }
void standardOutputBesideCat(benchmark::State& state) { beside(state, &Captured::out, kLargeRead); }

void bareCalls() {
  for (int i = 0; i < kCalls; ++i) {
    __dlog_print(0, DLOG_DEBUG, QUILLON_LOG_TAG, "call %d\n", i);
  }
}

void besideBareCalls(benchmark::State& state, void (*work)()) {
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  quillon::bench::setSink(nowhere);
  quillon::bench::runPaired(state, work, bareCalls);
  close(nowhere);
}

void logLine(benchmark::State& state) {
  besideBareCalls(state, [] {
    for (int i = 0; i < kCalls; ++i) {
      QLOG_DEBUG("call %d", i);
    }
  });
}

void tracedScope(benchmark::State& state) {
  besideBareCalls(state, [] {
    for (int i = 0; i < kCalls; ++i) {
      QLOG_SCOPE();
    }
  });
}

void addSizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"bytes_a_write", "processors"})
      ->ArgsProduct({{100, 4096, 65536}, {1, 2}})
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
}

BENCHMARK(standardOutput)
    ->Name("captured_output_8MiB/beside_a_copy_in_the_same_chunks")
    ->Apply(addSizes);
BENCHMARK(standardError)
    ->Name("captured_errors_8MiB/beside_a_copy_in_the_same_chunks")
    ->Apply(addSizes);
BENCHMARK(standardOutputBesideCat)
    ->Name("captured_output_8MiB/beside_a_copy_in_reads_of_128KiB")
    ->Apply(addSizes);
BENCHMARK(logLine)
    ->Name("log_line_1000_times/beside_the_sinks_bare_call")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(tracedScope)
    ->Name("traced_scope_1000_times/beside_the_sinks_bare_call")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) { return quillon::bench::runAll(argc, argv); }
