#include "util/log/stream_capture.h"

#include <unistd.h>

#include <csignal>
#include <new>
#include <string_view>

#include "device_names.h"
#include "util/log/crash_keywords.h"
#include "util/log/error_file.h"
#include "util/log/log.h"
#include "util/log/message_end.h"
#include "util/log/private_descriptor.h"
#include "util/log/read_chunk.h"
#include "util/log/reader_progress.h"

int pStdOut[2] = {-1, -1};
int pStdErr[2] = {-1, -1};
pthread_t loggingThread{};
pthread_t loggingThread2{};
FILE* stderrFP = nullptr;

namespace {

// Resets both numbers before closing. Afterwards the application can reuse the numbers for its own
// files, and a handler must not write to a pipe whose read end is closed, which would raise
// SIGPIPE. Built-in functions, because libc++ 16 has no std::atomic_ref.
void closePipe(int (&ends)[2]) {
  const int writeEnd = __atomic_exchange_n(&ends[1], -1, __ATOMIC_SEQ_CST);
  const int readEnd = __atomic_exchange_n(&ends[0], -1, __ATOMIC_SEQ_CST);
  close(writeEnd);
  close(readEnd);
}

// Programs that the application starts inherit only descriptors 1 and 2 of the pipes.
bool openPipe(int (&ends)[2]) {
  if (pipe(ends) < 0) {
    return false;
  }
  for (int& end : ends) {
    end = makePrivate(end);
  }
  return true;
}

bool nextChunk(Chunk& chunk, int descriptor) {
  Chunk::await(descriptor);
  return chunk.read(descriptor);
}

bool nextErrorChunk(Chunk& chunk, int descriptor) {
  Chunk::await(descriptor);
  stderrProgress.taking();
  return chunk.read(descriptor);
}

// Reads standard output to its end. Needs no memory.
void logOutput() {
  for (Chunk chunk; nextChunk(chunk, pStdOut[0]);) {
    QLOG_DEBUG_OF("stdOutRedirect", "%s", chunk.text());
  }
  closePipe(pStdOut);
}

// If memory runs out, the text is in the log only.
void writeToErrorFile(std::string_view text) try {
  writeStringTofile(text);
} catch (const std::bad_alloc&) {
  QLOG_ERROR_OF("writeStringTofile", "Out of memory");
}

// Reads standard error to its end. Sets the crash flags first, because an abort may follow the text
// immediately.
void logErrors() {
  for (Chunk chunk; nextErrorChunk(chunk, pStdErr[0]);) {
    scanForCrashKeywords(chunk.text());
    writeToErrorFile(chunk.bytes());
    QLOG_ERROR_OF("stdErrRedirect", "%s", chunk.text());
    stderrProgress.done(chunk.taken());
  }
  stderrProgress.ended();
  closeMessageEnd();
  closePipe(pStdErr);
}

}  // namespace

// The body of the thread "Stdout Thread". Like the next one outside the unnamed namespace, because
// its trace span is named "void* stdOutRedirect(void*)". Only the span needs memory.
static void* stdOutRedirect(void*) try {
  QLOG_SCOPE();
  logOutput();
  return nullptr;
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  logOutput();
  return nullptr;
}

// The body of the thread "Stderr Thread".
static void* stdErrRedirect(void*) try {
  stderrProgress.running();
  QLOG_SCOPE();
  logErrors();
  return nullptr;
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  logErrors();
  return nullptr;
}

namespace {

// Blocks SIGTERM in the calling thread, and in the threads that it creates, during the lifetime of
// the object. If a reader thread ran the SIGTERM handler, the handler would wait for its own thread
// and the message would be lost.
class SigtermBlocker {
 public:
  SigtermBlocker() {
    sigset_t termination;
    sigemptyset(&termination);
    sigaddset(&termination, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &termination, &before_);
  }
  ~SigtermBlocker() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SigtermBlocker(const SigtermBlocker&) = delete;
  SigtermBlocker& operator=(const SigtermBlocker&) = delete;

 private:
  sigset_t before_{};
};

bool createReader(pthread_t& thread, void* (*body)(void*)) {
  const SigtermBlocker blocked;
  const bool created = pthread_create(&thread, nullptr, body, nullptr) == 0;
  if (!created) {
    QLOG_ERROR_OF("tvRunLoggingThread", "fail to create pthread");
  }
  return created;
}

// Sets the name of a reader thread and detaches it.
bool releaseReader(pthread_t thread, const char* name) {
  if (pthread_setname_np(thread, name) != 0) {
    QLOG_ERROR_OF("tvRunLoggingThread", "fail to set name of pthread");
  }
  const bool detached = pthread_detach(thread) == 0;
  if (!detached) {
    QLOG_ERROR_OF("tvRunLoggingThread", "fail to detach pthread");
  }
  return detached;
}

bool startStdoutReader() {
  return createReader(loggingThread, stdOutRedirect) &&
         releaseReader(loggingThread, device_names::kStdoutReader);
}

bool startStderrReader() {
  stderrProgress.starting();
  if (!createReader(loggingThread2, stdErrRedirect)) {
    stderrProgress.ended();
    return false;
  }
  return releaseReader(loggingThread2, device_names::kStderrReader);
}

}  // namespace

int tvRunLoggingThread() {
  QLOG_SCOPE();
  QLOG_DEBUG("Run TV Logging Thread");
  if (tvInitializeLogManager() < 0) {
    QLOG_ERROR("Failed to initnialize LogManager");
    return -1;
  }
  return startStdoutReader() && startStderrReader() ? 0 : -1;
}

int tvInitializeLogManager() {
  QLOG_SCOPE();
  QLOG_DEBUG("TV Initialize LogManager");
  if (setvbuf(stdout, nullptr, _IOLBF, 0) != 0) {
    QLOG_ERROR("fail to make stdout line-buffered");
    return -1;
  }
  if (setvbuf(stderr, nullptr, _IONBF, 0) != 0) {
    QLOG_ERROR("make stderr unbuffered");
    return -1;
  }
  if (!openPipe(pStdOut)) {
    QLOG_ERROR("fail to create pipe for stdout logging");
    return -1;
  }
  if (!openPipe(pStdErr)) {
    QLOG_ERROR("fail to create pipe for stderr logging");
    return -1;
  }
  openMessageEnd(pStdErr[1]);
  return tvRedirectFD() >= 0 ? 0 : -1;
}

int tvRedirectFD() {
  QLOG_SCOPE();
  if (pStdOut[1] < 0 || pStdErr[1] < 0) {
    QLOG_ERROR("fail to create pipe for logging");
    return -1;
  }
  if (dup2(pStdOut[1], STDOUT_FILENO) < 0) {
    QLOG_ERROR("fail to duplicate fd to stdout");
    return -1;
  }
  if (dup2(pStdErr[1], STDERR_FILENO) < 0) {
    QLOG_ERROR("fail to duplicate fd to stderr");
    return -1;
  }
  return 0;
}
