#include "launcher/captured_output.h"

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
#include <optional>
#include <string>
#include <thread>

namespace quillon::launcher {
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

// Whether a thread waits in a system call that waits for input, proc(5).
bool awaitsInput(const fs::path& thread) {
  const std::string number = firstLine(thread / "syscall");
  const auto is = [&](long call) { return number.rfind(std::to_string(call) + " ", 0) == 0; };
#ifdef SYS_poll
  if (is(SYS_poll)) return true;
#endif
  return is(SYS_ppoll) || is(SYS_read);
}

// In this order: a reader that waits after its pipe was empty has logged what was in it.
bool isLogged(const Stream& stream) {
  int unread = 0;
  if (stream.pipe < 0 || ioctl(stream.pipe, FIONREAD, &unread) != 0) return true;
  if (unread > 0) return false;
  const fs::path reader = threadOf(stream.reader);
  return reader.empty() || awaitsInput(reader);
}

bool canBeWatched(const Stream& stream) {
  return stream.pipe < 0 || !firstLine(threadOf(stream.reader) / "syscall").empty();
}

void awaitCapturedOutput() {
  std::fflush(nullptr);
  const auto& all = streams();
  const auto end = Clock::now() + kLongestWait;
  while (!std::all_of(all.begin(), all.end(), isLogged) && Clock::now() < end) {
    std::this_thread::sleep_for(kPause);
  }
  if (!std::all_of(all.begin(), all.end(), canBeWatched)) std::this_thread::sleep_for(kGrace);
}

}  // namespace

void awaitCapturedOutputAtExit() {
  for (Stream& stream : streams()) {
    if (!isPipe(stream.descriptor)) continue;
    stream.pipe = fcntl(stream.descriptor, F_DUPFD_CLOEXEC, kFirstDescriptor);
  }
  std::atexit(awaitCapturedOutput);
}

}  // namespace quillon::launcher
