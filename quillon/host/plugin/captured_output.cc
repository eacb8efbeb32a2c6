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
#include <fstream>
#include <string>
#include <thread>

namespace quillon::host {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kLongestWait{3000};
constexpr milliseconds kPause{1};
// For a reader that cannot be watched, as in a zone without a /proc of this process.
constexpr milliseconds kGrace{50};
constexpr int kFirstDescriptor = 10;

// A captured stream: a duplicate of its pipe, taken before the application can replace the
// descriptor, and the name of the plug-in's thread that reads it.
struct Stream {
  int descriptor;
  const char* reader;
  int pipe = -1;
};

std::array<Stream, 2>& streams() {
  static std::array<Stream, 2> all = {
      {{STDOUT_FILENO, "Stdout Thread"}, {STDERR_FILENO, "Stderr Thread"}}};
  return all;
}

bool isPipe(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
}

std::string firstLine(const fs::path& file) {
  std::ifstream stream(file);
  std::string line;
  std::getline(stream, line);
  return line;
}

// The folder of the thread of that name in /proc; empty where there is none to be seen.
fs::path threadOf(const std::string& name) {
  std::error_code gone;
  for (fs::directory_iterator entry("/proc/self/task", gone), end; !gone && entry != end;
       entry.increment(gone)) {
    if (firstLine(entry->path() / "comm") == name) return entry->path();
  }
  return {};
}

// What /proc tells of a reader.
enum class Reader { kNone, kUnseen, kBusy, kWaiting };

// The readers wait for input in poll(2) alone. `call` is a line of "syscall", proc(5).
Reader stateIn(const std::string& call) {
  const auto is = [&](long number) { return call.rfind(std::to_string(number) + " ", 0) == 0; };
  if (call.empty()) return Reader::kUnseen;
#ifdef SYS_poll
  if (is(SYS_poll)) return Reader::kWaiting;
#endif
  return is(SYS_ppoll) ? Reader::kWaiting : Reader::kBusy;
}

Reader readerOf(const Stream& stream) {
  std::error_code hidden;
  if (!fs::exists("/proc/self/task", hidden)) return Reader::kUnseen;
  const fs::path thread = threadOf(stream.reader);
  return thread.empty() ? Reader::kNone : stateIn(firstLine(thread / "syscall"));
}

bool isEmpty(int pipe) {
  int unread = 0;
  return ioctl(pipe, FIONREAD, &unread) != 0 || unread == 0;
}

// In this order: a reader that waits after its pipe was empty has logged what was in it. Without a
// reader nothing would be.
bool isLogged(const Stream& stream) {
  if (stream.pipe < 0) return true;
  const bool empty = isEmpty(stream.pipe);
  const Reader reader = readerOf(stream);
  return reader == Reader::kNone || (empty && reader != Reader::kBusy);
}

bool isUnseen(const Stream& stream) {
  return stream.pipe >= 0 && readerOf(stream) == Reader::kUnseen;
}

// What `file` holds goes into its pipe. A thread of the application may hold a stream's lock for
// ever, for instance in a read from the terminal, so that nothing here waits for one.
void flush(const Stream& stream, FILE* file) {
  if (stream.pipe < 0 || ftrylockfile(file) != 0) return;
  fflush_unlocked(file);
  funlockfile(file);
}

void awaitCapturedOutput() {
  const auto& all = streams();
  flush(all[0], stdout);
  flush(all[1], stderr);
  const auto end = Clock::now() + kLongestWait;
  while (!std::all_of(all.begin(), all.end(), isLogged) && Clock::now() < end) {
    std::this_thread::sleep_for(kPause);
  }
  if (std::any_of(all.begin(), all.end(), isUnseen)) std::this_thread::sleep_for(kGrace);
}

}  // namespace

void awaitCapturedOutputAtExit() {
  for (Stream& stream : streams()) {
    if (!isPipe(stream.descriptor)) continue;
    stream.pipe = fcntl(stream.descriptor, F_DUPFD_CLOEXEC, kFirstDescriptor);
  }
  std::atexit(awaitCapturedOutput);
}

}  // namespace quillon::host
