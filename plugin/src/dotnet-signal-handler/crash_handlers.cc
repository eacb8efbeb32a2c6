#include "plugin/src/dotnet-signal-handler/crash_handlers.h"

#include <unistd.h>

#include "plugin/src/dotnet-signal-handler/signal_handler.h"
#include "plugin/src/dotnet-signal-handler/thread_state.h"
#include "quillon_tv_plugin.h"
#include "util/log/crash_keywords.h"
#include "util/log/deadline.h"
#include "util/log/log.h"
#include "util/log/reader_progress.h"
#include "util/log/stream_capture.h"

struct sigaction sig_abrt_new = {};
struct sigaction sig_abrt_old = {};
struct sigaction sig_segv_new = {};
struct sigaction sig_segv_old = {};
struct sigaction sig_trap_new = {};
struct sigaction sig_trap_old = {};
bool bFirstSigSegv = true;
bool bFirstSigTrap = true;
bool checkOnSigabrt = false;

namespace {

// If this file exists, aborts that would end quietly create a dump, although its name suggests the
// opposite.
constexpr char kDumpMarker[] = "/tmp/dotnet_dont_create_dump";

// Logged for SIGABRT and SIGSEGV.
constexpr char kCrashAtEnd[] = "onSigabrt called while terminate. go to exit";

// A handler waits this long for a standard-error reader that is blocked, for example by a lock that
// the crashed thread holds.
constexpr int kPatience = 100;  // milliseconds

// All waits of a handler together, for a reader that can run but gets no processor because many
// processes are ready to run.
constexpr int kMaxWait = 2000;  // milliseconds

// Returns true if time is all that the reader needs. A reader without a thread id has not begun.
// One that works can sleep for a moment, for example in the log, so look several times.
bool isReaderStarved() {
  constexpr int kLooks = 10;
  constexpr int kPause = 1;  // milliseconds
  for (int look = 0; look < kLooks; ++look) {
    const pid_t reader = stderrProgress.thread();
    if (reader == 0 || isReadyToRun(reader) || waitForStderrReader(kPause)) {
      return true;
    }
  }
  return false;
}

void waitForReader(const Deadline& deadline) {
  while (!waitForStderrReader(kPatience) && deadline.left() > 0 && isReaderStarved()) {
  }
}

// The process ends quietly from here on, so an abort of another thread must not create a dump.
// Other signals keep their handlers, because the runtime needs them, for example for null
// references.
void keepAbortsQuiet() {
  struct sigaction quiet = {};
  quiet.sa_handler = [](int) { _exit(0); };
  sigemptyset(&quiet.sa_mask);
  sigaction(SIGABRT, &quiet, nullptr);
}

// Waits for the reader, because messages that it has not logged when the process ends are lost.
void endQuietly(const char* message, const Deadline& deadline) {
  keepAbortsQuiet();
  sendMessageToDlogError(message);
  waitForReader(deadline);
  _exit(0);
}

// An abort after a managed exception is how the runtime ends the process; it is not a fault that
// needs a dump.
bool dumpIsSuppressed() {
  return managedExceptionOccurred && access(kDumpMarker, F_OK) != 0 && !memoryIssueOccurred;
}

// The crash flags depend on text that may still be in the pipe. Waits for the reader before the
// handler adds messages of its own to the pipe, and only if the flags affect the result.
void waitForFlags(const Deadline& deadline) {
  if (!checkOnTerminate && !checkOnSigabrt) {
    waitForReader(deadline);
  }
}

// Called before the previous action is restored. Otherwise an abort of another thread in between
// would reach the previous action.
const char* reasonToEndQuietly() {
  if (checkOnTerminate) {
    return kCrashAtEnd;
  }
  if (checkOnSigabrt) {
    return "<<< checkOnSigabrt >>>";
  }
  return dumpIsSuppressed() ? "Ignore Coredump was setted. Terminate normally" : nullptr;
}

}  // namespace

void crash_handlers::sigtermHandler(int) { endQuietly("Sigterm Handler", Deadline(kMaxWait)); }

void crash_handlers::onSigabrt(int sig) {
  const Deadline deadline(kMaxWait);
  waitForFlags(deadline);
  sendMessageToDlogError("<<< onSigabrt >>>");
  if (const char* message = reasonToEndQuietly()) {
    endQuietly(message, deadline);
  }
  sigaction(SIGABRT, &sig_abrt_old, nullptr);
  waitForReader(deadline);
  checkOnSigabrt = true;
  sigaction(SIGABRT, &sig_abrt_old, nullptr);
  raise(sig);
}

void crash_handlers::onSigsegv(int sig) {
  if (!bFirstSigSegv) {
    _exit(0);
  }
  bFirstSigSegv = false;
  if (checkOnTerminate) {
    endQuietly(kCrashAtEnd, Deadline(kMaxWait));
  }
  sigaction(SIGSEGV, &sig_segv_old, nullptr);
  raise(sig);
}

void crash_handlers::onSigtrap(int sig) {
  if (!bFirstSigTrap) {
    _exit(0);
  }
  bFirstSigTrap = false;
  sigaction(SIGTRAP, &sig_trap_old, nullptr);
  raise(sig);
}
