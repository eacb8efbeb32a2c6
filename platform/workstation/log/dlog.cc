#include "platform/dlog.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>

#include "log/application_output.h"
#include "log/last_error.h"
#include "log/log_sink.h"
#include "log/log_target.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"
#include "workstation/log_config.h"

namespace quillon::workstation {
namespace {

struct Log {
  LogTarget target = LogTarget::kTerminal;
  int level = DLOG_ERROR;
  bool applicationOutput = false;
  std::unique_ptr<LogSink> sink;  // null: records are dropped
};

void warn(const std::string& problem) { writeAll(STDERR_FILENO, "quillon: " + problem + "\n"); }

Log openLog() {
  LogSettings settings =
      parseLogSettings(std::getenv("QUILLON_LOG"), std::getenv("QUILLON_LOG_LEVEL"));
  for (const std::string& problem : settings.problems) {
    warn(problem);
  }
  std::string problem;
  Log log{settings.target, settings.level, settings.applicationOutput,
          openLogSink(settings, problem)};
  if (problem.empty() || settings.target == LogTarget::kTerminal) {
    return log;
  }
  warn(problem);
  settings = parseLogSettings(nullptr, nullptr);
  return Log{settings.target, settings.level, settings.applicationOutput,
             openLogSink(settings, problem)};
}

// Lives until the process ends: threads may log while static objects are destroyed. A replaced log
// is never deleted either, because threads may still use it.
std::atomic<const Log*>& logInUse() {
  static std::atomic<const Log*> log = new Log(openLog());
  return log;
}

const Log& theLog() { return *logInUse().load(std::memory_order_acquire); }

int descriptorOf(const Log& log) { return log.sink == nullptr ? -1 : log.sink->descriptor(); }

// Duplicates `fd` onto the old log's descriptor, so that threads which still use the old log write
// to the new target, and the old target is closed. Returns the descriptor to use.
int replaceDescriptor(const Log& old, Descriptor fd) {
  if (descriptorOf(old) < 0 || dup3(fd.get(), descriptorOf(old), O_CLOEXEC) < 0) {
    return fd.release();
  }
  return descriptorOf(old);
}

// Runs when the library is loaded: it opens files before the process enters a device root, and
// duplicates descriptor 2 before anything replaces it.
[[gnu::constructor]] void openAtLoad() { theLog(); }

int64_t nowUs() {
  using std::chrono::microseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<microseconds>(now).count();
}

[[gnu::format(printf, 1, 0)]] std::optional<std::string> formatted(const char* format,
                                                                   va_list arguments) {
  const int formatErrno = errno;  // for "%m"
  std::array<char, 512> brief;
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(brief.data(), brief.size(), format, arguments);
  std::optional<std::string> text;
  if (length >= 0 && static_cast<size_t>(length) < brief.size()) {
    text.emplace(brief.data(), static_cast<size_t>(length));
  } else if (length >= 0) {
    text.emplace(static_cast<size_t>(length), '\0');
    errno = formatErrno;
    std::vsnprintf(text->data(), text->size() + 1, format, again);
  }
  va_end(again);
  return text;
}

// Whether the sink gets a record. Decided before the record is formatted.
[[gnu::format(printf, 2, 0)]] bool isWritten(int priority, const char* format, va_list arguments) {
  const Log& log = theLog();
  if (log.sink == nullptr) {
    return false;
  }
  return priority >= log.level || (log.applicationOutput && isApplicationOutput(format, arguments));
}

void write(int id, int priority, const char* tag, const std::string& text) {
  const Log& log = theLog();
  if (log.sink == nullptr) {
    return;  // the log was replaced after isWritten()
  }
  log.sink->write({nowUs(), getpid(), gettid(), id, priority, tag == nullptr ? "" : tag, text});
}

}  // namespace

LogConfig currentLog() {
  const Log& log = theLog();
  return {nameOf(log.sink == nullptr ? LogTarget::kNone : log.target), log.level,
          log.applicationOutput, descriptorOf(log)};
}

bool useLog(const LogConfig& config) {
  Descriptor fd(config.descriptor);
  const auto target = targetNamed(config.target);
  if (!target || (needsDescriptor(*target) && !fd)) {
    return false;
  }
  auto next = std::make_unique<Log>();
  next->target = *target;
  next->level = config.level;
  next->applicationOutput = config.applicationOutput;
  if (needsDescriptor(*target)) {
    next->sink = logSinkOn(*target, replaceDescriptor(theLog(), std::move(fd)));
  } else {
    std::string problem;
    LogSettings settings;
    settings.target = *target;
    next->sink = openLogSink(settings, problem);
  }
  logInUse().store(next.release(), std::memory_order_release);
  return true;
}

}  // namespace quillon::workstation

int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) try {
  namespace workstation = quillon::workstation;
  if (fmt == nullptr) {
    return -1;
  }
  va_list arguments;
  va_start(arguments, fmt);
  const bool isWritten = workstation::isWritten(prio, fmt, arguments);
  va_end(arguments);
  if (!isWritten && prio < DLOG_ERROR) {
    return 0;
  }
  const int callersErrno = errno;
  va_start(arguments, fmt);
  const auto text = workstation::formatted(fmt, arguments);
  va_end(arguments);
  if (text && prio >= DLOG_ERROR) {
    workstation::keepError(*text);
  }
  if (text && isWritten) {
    workstation::write(log_id, prio, tag, *text);
  }
  errno = callersErrno;
  return text ? static_cast<int>(text->size()) : -1;
} catch (const std::bad_alloc&) {
  return -1;
}
