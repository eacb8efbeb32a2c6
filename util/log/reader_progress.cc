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

bool ReaderProgress::runsConcurrently() const { return process_ != 0 && thread_ != gettid(); }

bool ReaderProgress::runsConcurrentlyInThisProcess() const {
  return process_ == getpid() && thread_ != gettid();
}

namespace {

constexpr long kPauseNanoseconds = 200'000;

// Returns the number of unread bytes in the pipe. Performs a single system call, so it is safe in a
// signal handler.
std::size_t unreadBytes() {
  int bytes = 0;
  const int readEnd = __atomic_load_n(&pStdErr[0], __ATOMIC_SEQ_CST);
  return ioctl(readEnd, FIONREAD, &bytes) == 0 ? static_cast<std::size_t>(bytes) : 0;
}

void pauseBriefly() {
  const timespec pause{0, kPauseNanoseconds};
  nanosleep(&pause, nullptr);
}

// Upper bound of the reader's byte count once it has processed everything written so far: the
// unread bytes and at most one chunk that it is processing. Later output does not change the bound.
std::uint64_t backlogEnd() {
  const std::size_t unread = unreadBytes();
  return stderrProgress.doneBytes() + unread + kMaxChunk;
}

// The order of the two tests matters, see ReaderProgress.
bool caughtUp() { return unreadBytes() == 0 && !stderrProgress.busy(); }

}  // namespace

bool waitForStderrReader(int milliseconds) {
  const int error = errno;
  const Deadline deadline(milliseconds);
  const std::uint64_t goal = backlogEnd();
  const auto isBehind = [goal] {
    return stderrProgress.runsConcurrentlyInThisProcess() && !caughtUp() &&
           stderrProgress.doneBytes() < goal;
  };
  bool behind = isBehind();
  for (; behind && deadline.left() > 0; behind = isBehind()) {
    pauseBriefly();
  }
  errno = error;
  return !behind;
}
