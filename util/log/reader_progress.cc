#include "util/log/reader_progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "util/log/deadline.h"
#include "util/log/read_chunk.h"
#include "util/log/stream_capture.h"

constinit ReaderProgress stderrProgress;

void ReaderProgress::starting() { process_ = getpid(); }
void ReaderProgress::running() { thread_ = gettid(); }
void ReaderProgress::taking() { busy_ = true; }

void ReaderProgress::done(std::size_t bytes) {
  done_ += bytes;
  busy_ = false;
}

void ReaderProgress::ended() {
  process_ = 0;
  busy_ = false;
}

bool ReaderProgress::readsBesideCaller() const { return process_ != 0 && thread_ != gettid(); }

bool ReaderProgress::scansBesideCaller() const {
  return process_ == getpid() && thread_ != gettid();
}

namespace {

constexpr long kPauseNanoseconds = 200'000;

// Bytes that stand in the pipe. One system call and nothing else: as good in a handler as anywhere.
std::size_t unreadBytes() {
  int bytes = 0;
  const int readEnd = std::atomic_ref(pStdErr[0]).load();
  return ioctl(readEnd, FIONREAD, &bytes) == 0 ? static_cast<std::size_t>(bytes) : 0;
}

void pauseBriefly() {
  const timespec pause{0, kPauseNanoseconds};
  nanosleep(&pause, nullptr);
}

// Where the reader is when it has dealt with all that was written by now, at the latest: with what
// stands in the pipe and what it may hold in its hand. Later output does not move it.
std::uint64_t latestGoal() {
  const std::size_t unread = unreadBytes();
  return stderrProgress.doneBytes() + unread + kLongestChunk;
}

// The order matters, see ReaderProgress.
bool caughtUp() { return unreadBytes() == 0 && !stderrProgress.busy(); }

}  // namespace

void waitForStderrReader(int milliseconds) {
  const int error = errno;
  const Deadline deadline(milliseconds);
  const std::uint64_t goal = latestGoal();
  while (stderrProgress.scansBesideCaller() && !caughtUp() && stderrProgress.doneBytes() < goal &&
         deadline.left() > 0) {
    pauseBriefly();
  }
  errno = error;
}
