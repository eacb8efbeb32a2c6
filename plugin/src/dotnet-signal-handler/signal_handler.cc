#include "plugin/src/dotnet-signal-handler/signal_handler.h"

#include <quillon_tv_plugin.h>
#include <unistd.h>

#include "util/log/crash_keywords.h"
#include "util/log/log.h"
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

// Its presence turns dumps on for aborts that would end quietly, whatever its name suggests.
constexpr char kDumpMarker[] = "/tmp/dotnet_dont_create_dump";

// For a crash of either kind.
constexpr char kCrashAtEnd[] = "onSigabrt called while terminate. go to exit";

// How long a handler waits for the standard-error reader, each time.
constexpr int kLongestWait = 100;  // milliseconds

void fill(struct sigaction& action, void (*handler)(int)) {
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;
}

// From here on the end is decided: another thread's abort makes no dump of it. Other faults stay
// with who handles them, as the runtime does those at null references.
void keepAbortsQuiet() {
  struct sigaction quiet = {};
  fill(quiet, [](int) { _exit(0); });
  sigaction(SIGABRT, &quiet, nullptr);
}

// A message that the reader has not logged by the end of the process is lost.
void endQuietly(const char* message) {
  keepAbortsQuiet();
  sendMessageToDlogError(message);
  waitForStderrReader(kLongestWait);
  _exit(0);
}

// An abort after a managed exception is the runtime's way out, not a fault worth a dump.
bool dumpIsSuppressed() {
  return managedExceptionOccurred && access(kDumpMarker, F_OK) != 0 && !memoryIssueOccurred;
}

void sigtermHandler(int) { endQuietly("Sigterm Handler"); }

// The flags tell of text that may still stand in the pipe. Waited for before our own messages join
// it, and only where the flags decide.
void awaitFlags() {
  if (!checkOnTerminate && !checkOnSigabrt) {
    waitForStderrReader(kLongestWait);
  }
}

// Asked before the previous action is put back: in between, another thread's abort would go to
// that.
const char* reasonToEndQuietly() {
  if (checkOnTerminate) {
    return kCrashAtEnd;
  }
  if (checkOnSigabrt) {
    return "<<< checkOnSigabrt >>>";
  }
  return dumpIsSuppressed() ? "Ignore Coredump was setted. Terminate normally" : nullptr;
}

void onSigabrt(int sig) {
  awaitFlags();
  sendMessageToDlogError("<<< onSigabrt >>>");
  if (const char* lastWords = reasonToEndQuietly()) {
    endQuietly(lastWords);
  }
  sigaction(SIGABRT, &sig_abrt_old, nullptr);
  waitForStderrReader(kLongestWait);
  checkOnSigabrt = true;
  sigaction(SIGABRT, &sig_abrt_old, nullptr);
  raise(sig);
}

void onSigsegv(int sig) {
  if (!bFirstSigSegv) {
    _exit(0);
  }
  bFirstSigSegv = false;
  if (checkOnTerminate) {
    endQuietly(kCrashAtEnd);
  }
  sigaction(SIGSEGV, &sig_segv_old, nullptr);
  raise(sig);
}

void onSigtrap(int sig) {
  if (!bFirstSigTrap) {
    _exit(0);
  }
  bFirstSigTrap = false;
  sigaction(SIGTRAP, &sig_trap_old, nullptr);
  raise(sig);
}

}  // namespace

int registerSignalHandler() {
  QLOG_DEBUG("Register signal handler");
  signal(SIGTERM, sigtermHandler);
  fill(sig_abrt_new, onSigabrt);
  fill(sig_segv_new, onSigsegv);
  fill(sig_trap_new, onSigtrap);
  if (sigaction(SIGABRT, &sig_abrt_new, &sig_abrt_old) < 0) {
    QLOG_ERROR("Fail to sigaction(SIGABRT, &sig_abrt_new, &sig_abrt_old)");
  }
  if (sigaction(SIGSEGV, &sig_segv_new, &sig_segv_old) < 0) {
    QLOG_ERROR("Fail to sigaction(SIGSEGV, &sig_segv_new, &sig_segv_old)");
  }
  const int result = sigaction(SIGTRAP, &sig_trap_new, &sig_trap_old);
  if (result < 0) {
    QLOG_ERROR("Fail to sigaction(SIGTRAP, &sig_trap_new, &sig_trap_old)");
  }
  return result;
}
