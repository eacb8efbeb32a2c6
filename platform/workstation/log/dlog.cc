#include <platform/dlog.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "files/descriptor.h"
#include "log/application_output.h"
#include "log/last_error.h"
#include "log/log_sink.h"

namespace quillon::workstation {
namespace {

struct Log {
  int level = DLOG_ERROR;
  bool applicationOutput = false;
  std::unique_ptr<LogSink> sink;  // null: records are dropped
};

void complain(const std::string& problem) { writeAll(STDERR_FILENO, "quillon: " + problem + "\n"); }

Log openLog() {
  LogSettings settings =
      parseLogSettings(std::getenv("QUILLON_LOG"), std::getenv("QUILLON_LOG_LEVEL"));
  for (const std::string& problem : settings.problems) complain(problem);
  std::string problem;
  Log log{settings.level, settings.applicationOutput, openLogSink(settings, problem)};
  if (problem.empty() || settings.target == LogTarget::kTerminal) return log;
  complain(problem);
  settings = parseLogSettings(nullptr, nullptr);
  return Log{settings.level, settings.applicationOutput, openLogSink(settings, problem)};
}

// Lives until the process ends: threads may log while static objects are destroyed.
const Log& theLog() {
  static const Log& log = *new Log(openLog());
  return log;
}

// At load, so that files are opened before a device root is entered and descriptor 2 is duplicated
// before anything replaces it.
[[gnu::constructor]] void openAtLoad() { theLog(); }

int64_t nowUs() {
  using std::chrono::microseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<microseconds>(now).count();
}

[[gnu::format(printf, 1, 0)]] std::optional<std::string> formatted(const char* format,
                                                                   va_list arguments) {
  const int formatErrno = errno;  // what "%m" means
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

// Whether the sink gets a record; known before the record is formatted.
[[gnu::format(printf, 2, 0)]] bool isWritten(int priority, const char* format, va_list arguments) {
  const Log& log = theLog();
  if (log.sink == nullptr) return false;
  return priority >= log.level || (log.applicationOutput && isApplicationOutput(format, arguments));
}

void write(int id, int priority, const char* tag, const std::string& text) {
  theLog().sink->write(
      {nowUs(), getpid(), gettid(), id, priority, tag == nullptr ? "" : tag, text});
}

}  // namespace
}  // namespace quillon::workstation

int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) {
  namespace workstation = quillon::workstation;
  if (fmt == nullptr) return -1;
  va_list arguments;
  va_start(arguments, fmt);
  const bool isWritten = workstation::isWritten(prio, fmt, arguments);
  va_end(arguments);
  if (!isWritten && prio < DLOG_ERROR) return 0;
  const int callersErrno = errno;
  va_start(arguments, fmt);
  const auto text = workstation::formatted(fmt, arguments);
  va_end(arguments);
  if (text && prio >= DLOG_ERROR) workstation::rememberError(*text);
  if (text && isWritten) workstation::write(log_id, prio, tag, *text);
  errno = callersErrno;
  return text ? static_cast<int>(text->size()) : -1;
}
