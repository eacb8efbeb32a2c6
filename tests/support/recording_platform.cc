#include "tests/support/recording_platform.h"

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/dlog.h"
#include "platform/launch_marker.h"
#include "platform/trace.h"
#include "tests/support/log_operations.h"
#include "tests/support/platform_recorder.h"
#include "tests/support/signature.h"

namespace quillon::test {
namespace {

// The parts of "<file>: <function>(<line>) > <rest>"; empty for other texts.
struct Line {
  std::string file;
  std::string function;
  int number = 0;
  std::string rest;
};

Line splitLine(const std::string& text) {
  const std::size_t file = text.find(": ");
  const std::size_t prefix = text.find(") > ", file);
  const std::size_t number = text.rfind('(', prefix);
  if (file == std::string::npos || prefix == std::string::npos || number < file) {
    return {};
  }
  return {text.substr(0, file), text.substr(file + 2, number - file - 2),
          std::atoi(text.c_str() + number + 1), text.substr(prefix + 4)};
}

// The colour escape at the start of a text; empty if there is none.
std::string leadingEscape(const std::string& text) {
  const bool escaped = text.starts_with("\x1b[");
  return escaped ? text.substr(0, text.find('m') + 1) : std::string();
}

bool isTraceLine(const LogRecord& record) { return record.file() == "log.h"; }

// Fails the test if a line of the plug-in names a helper function.
void expectOperation(const LogRecord& record) {
  EXPECT_TRUE(mayLog(record.file(), record.function()))
      << "not an operation that people search the log for: " << record.text;
}

[[gnu::format(printf, 1, 0)]] std::string format(const char* text, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  std::string result(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, text, again)), '\0');
  va_end(again);
  std::vsnprintf(result.data(), result.size() + 1, text, arguments);
  return result;
}

}  // namespace

std::string LogRecord::file() const { return splitLine(text).file; }
std::string LogRecord::function() const { return splitLine(text).function; }
int LogRecord::line() const { return splitLine(text).number; }
std::string LogRecord::colour() const { return leadingEscape(splitLine(text).rest); }

std::string LogRecord::message() const {
  constexpr std::string_view end = "\x1b[0m\n";
  std::string result = splitLine(text).rest;
  result.erase(0, leadingEscape(result).size());
  if (result.ends_with(end)) {
    result.resize(result.size() - end.size());
  }
  return result;
}

RecordingPlatform& platform() {
  // Never destroyed: the code under test may log while the process exits.
  static auto* instance = new RecordingPlatform;
  return *instance;
}

void RecordingPlatform::reset() { *this = RecordingPlatform(); }

std::vector<std::string> RecordingPlatform::messages(int priority) const {
  std::vector<std::string> result;
  for (const LogRecord& record : log) {
    if (record.priority == priority && !isTraceLine(record)) {
      result.push_back(record.message());
    }
  }
  return result;
}

std::vector<std::string> RecordingPlatform::lines() const {
  std::vector<std::string> result;
  for (const LogRecord& record : log) {
    if (!isTraceLine(record)) {
      result.push_back(std::to_string(record.priority) + " " + record.message());
    }
  }
  return result;
}

std::vector<std::string> RecordingPlatform::linesOfOperations() const {
  std::vector<std::string> result;
  for (const LogRecord& record : log) {
    if (!isTraceLine(record)) {
      result.push_back(std::to_string(record.priority) + " " + record.function() + ": " +
                       record.message());
    }
  }
  return result;
}

std::mutex& recorderMutex() {
  static auto* mutex = new std::mutex;
  return *mutex;
}

int record(const char* function, std::initializer_list<std::string> arguments) {
  std::string call = std::string(function) + "(";
  const char* separator = "";
  for (const std::string& argument : arguments) {
    call += separator + argument;
    separator = ", ";
  }
  const std::lock_guard lock(recorderMutex());
  platform().calls.push_back(call + ")");
  const auto failure = platform().failures.find(function);
  return failure == platform().failures.end() ? 0 : failure->second;
}

namespace {

void noteMarker(const std::string& text) {
  const std::lock_guard lock(recorderMutex());
  platform().markers.push_back(text);
  platform().events.push_back("marker " + text);
}

// Records a new process name. Returns 0, or the failure that the test has set.
int setName(const char* name) {
  const std::lock_guard lock(recorderMutex());
  platform().events.push_back(std::string("process name ") + name);
  const auto failure = platform().failures.find("PR_SET_NAME");
  return failure == platform().failures.end() ? 0 : failure->second;
}

}  // namespace

}  // namespace quillon::test

using quillon::test::platform;
using quillon::test::recorderMutex;

extern "C" int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  std::string text = quillon::test::format(fmt, arguments);
  va_end(arguments);
  const std::lock_guard lock(recorderMutex());
  if (platform().echo) {
    std::fprintf(stderr, "%d %s %s\n", prio, tag, text.c_str());
  }
  platform().log.push_back({log_id, prio, tag, std::move(text)});
  quillon::test::expectOperation(platform().log.back());
  platform().events.push_back("log " + platform().log.back().message());
  return 0;
}

extern "C" void trace_begin(const char* name) {
  const std::lock_guard lock(recorderMutex());
  platform().trace.push_back("begin " + quillon::test::asGccSpells(name));
  platform().events.push_back(platform().trace.back());
}

extern "C" void trace_end(void) {
  const std::lock_guard lock(recorderMutex());
  platform().trace.emplace_back("end");
  platform().events.emplace_back("end");
}

// Overrides the C library's function: records launch markers and names, and passes all calls to the
// kernel.
extern "C" int prctl(int option, ...) noexcept {
  std::array<unsigned long, 4> arguments;
  va_list list;
  va_start(list, option);
  for (unsigned long& argument : arguments) {
    argument = va_arg(list, unsigned long);
  }
  va_end(list);
  if (option == PR_LAUNCH_MARKER) {
    quillon::test::noteMarker({reinterpret_cast<const char*>(arguments[0]), arguments[1]});
  }
  if (option == PR_SET_NAME) {
    const int failure = quillon::test::setName(reinterpret_cast<const char*>(arguments[0]));
    if (failure != 0) {
      return failure;
    }
  }
  return static_cast<int>(
      syscall(SYS_prctl, option, arguments[0], arguments[1], arguments[2], arguments[3]));
}
