#include "quillon/host/plugin/captured_output.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "device_names.h"
#include "quillon/base/files.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kMaxWait{3000};
constexpr milliseconds kPollInterval{1};
// For a reader whose state is unknown, as in a zone whose /proc does not show this process.
constexpr milliseconds kUnknownStateDelay{50};
constexpr int kMinDescriptor = 10;

struct Stream {
  int descriptor;
  const char* reader;  // name of the plug-in's thread that reads the pipe
  int pipe = -1;       // duplicate of the descriptor: the application may replace the original
};

std::array<Stream, 2>& streams() {
  static std::array<Stream, 2> all = {
      {{STDOUT_FILENO, device_names::kStdoutReader}, {STDERR_FILENO, device_names::kStderrReader}}};
  return all;
}

bool isPipe(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
}

std::string readProcFile(const fs::path& file) { return readSmallFileAt(AT_FDCWD, file.c_str()); }

// The folder in /proc of the thread with that name; empty if there is none.
fs::path threadOf(const std::string& name) {
  std::error_code gone;
  for (fs::directory_iterator entry("/proc/self/task", gone), end; !gone && entry != end;
       entry.increment(gone)) {
    if (readProcFile(entry->path() / "comm") == name + "\n") {
      return entry->path();
    }
  }
  return {};
}

// The state of a reader thread, from /proc.
enum class Reader { kNone, kUnknown, kBusy, kWaiting };

// The readers wait for input only in poll(2), which restart_syscall(2) continues after the process
// was stopped or frozen. `call` is the content of "syscall" (proc(5)).
Reader stateIn(const std::string& call) {
  const auto is = [&](long number) { return call.rfind(std::to_string(number) + " ", 0) == 0; };
  if (call.empty()) {
    return Reader::kUnknown;
  }
#ifdef SYS_poll
  if (is(SYS_poll)) {
    return Reader::kWaiting;
  }
#endif
  return is(SYS_ppoll) || is(SYS_restart_syscall) ? Reader::kWaiting : Reader::kBusy;
}

Reader readerOf(const Stream& stream) {
  std::error_code ignored;
  if (!fs::exists("/proc/self/task", ignored)) {
    return Reader::kUnknown;
  }
  const fs::path thread = threadOf(stream.reader);
  return thread.empty() ? Reader::kNone : stateIn(readProcFile(thread / "syscall"));
}

bool isEmpty(int pipe) {
  int unread = 0;
  return ioctl(pipe, FIONREAD, &unread) != 0 || unread == 0;
}

// Checks the pipe before the reader: if the reader waits after its pipe was empty, it has logged
// all bytes. Without a reader nothing will be logged.
bool isLogged(const Stream& stream) {
  if (stream.pipe < 0) {
    return true;
  }
  const bool empty = isEmpty(stream.pipe);
  const Reader reader = readerOf(stream);
  return reader == Reader::kNone || (empty && reader != Reader::kBusy);
}

bool isUnknown(const Stream& stream) {
  return stream.pipe >= 0 && readerOf(stream) == Reader::kUnknown;
}

// Flushes the buffer of `file` into its pipe. Does not wait for the stream's lock, which a thread
// of the application may hold for ever, for example during a read from the terminal.
void flush(const Stream& stream, FILE* file) {
  if (stream.pipe < 0 || ftrylockfile(file) != 0) {
    return;
  }
  fflush_unlocked(file);
  funlockfile(file);
}

void drainCapturedOutput() {
  const auto& all = streams();
  flush(all[0], stdout);
  flush(all[1], stderr);
  const auto end = Clock::now() + kMaxWait;
  while (!std::all_of(all.begin(), all.end(), isLogged) && Clock::now() < end) {
    std::this_thread::sleep_for(kPollInterval);
  }
  if (std::any_of(all.begin(), all.end(), isUnknown)) {
    std::this_thread::sleep_for(kUnknownStateDelay);
  }
}

}  // namespace

void drainCapturedOutputAtExit() {
  for (Stream& stream : streams()) {
    if (!isPipe(stream.descriptor)) {
      continue;
    }
    stream.pipe = fcntl(stream.descriptor, F_DUPFD_CLOEXEC, kMinDescriptor);
  }
  std::atexit(drainCapturedOutput);
}

}  // namespace quillon::host
