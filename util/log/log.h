// The plug-in's log: one line format, four levels, function tracing and launch milestones.
//
//   QLOG_SCOPE();                                   // first line of nearly every function
//   QLOG_ERROR("Cannot remove: %s, %s", path, why);
//   TTraceLog("[quillon-tv-plugin] GetTPA Start");
//
// A line is written to the platform log with log id 0 and the tag "QUILLON":
//
//   <file>: <function>(<line>) > <colour><message>\e[0m\n
//
// <file> is the name of the unit, even if the unit consists of several source files. <function> is
// the operation that the line belongs to. A helper function that performs a step of an operation
// logs with a QLOG_..._OF macro and names the operation, because its own name says nothing to those
// who search the log:
//
//   QLOG_ERROR_OF("copyDir", "Unable to create destination directory %s", path);
//
// The macros are expressions, require a string literal as format, and check the arguments against
// it.
//
// Thread safety: everything in this header may be called from any thread without a lock. Only
// sendMessageToDlogError may be called from a signal handler.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/dlog.h"

#define QUILLON_LOG_TAG "QUILLON"
#define QUILLON_LOG_PREFIX "%s: %s(%d) > "

// Writes one line with an explicit origin, for lines whose origin is not the call site.
#define QUILLON_LOG_LINE(priority, colour, file, function, line, format, ...)                  \
  static_cast<void>(__dlog_print(0, priority, QUILLON_LOG_TAG,                                 \
                                 QUILLON_LOG_PREFIX colour format "\x1b[0m\n", file, function, \
                                 line __VA_OPT__(, ) __VA_ARGS__))

#define QUILLON_LOG_OF(operation, priority, colour, format, ...)             \
  QUILLON_LOG_LINE(priority, colour, QUILLON_UNIT_FILE, operation, __LINE__, \
                   format __VA_OPT__(, ) __VA_ARGS__)

#define QUILLON_LOG_HERE(priority, colour, format, ...) \
  QUILLON_LOG_OF(__FUNCTION__, priority, colour, format __VA_OPT__(, ) __VA_ARGS__)

#define QUILLON_COLOUR_DEBUG "\x1b[0m"
#define QUILLON_COLOUR_TRACE "\x1b[90m"
#define QUILLON_COLOUR_INFO "\x1b[36m"
#define QUILLON_COLOUR_ERROR "\x1b[31m"

#define QLOG_DEBUG(format, ...) \
  QUILLON_LOG_HERE(DLOG_DEBUG, QUILLON_COLOUR_DEBUG, format __VA_OPT__(, ) __VA_ARGS__)
#define QLOG_TRACE(format, ...) \
  QUILLON_LOG_HERE(DLOG_DEBUG, QUILLON_COLOUR_TRACE, format __VA_OPT__(, ) __VA_ARGS__)
#define QLOG_INFO(format, ...) \
  QUILLON_LOG_HERE(DLOG_INFO, QUILLON_COLOUR_INFO, format __VA_OPT__(, ) __VA_ARGS__)
#define QLOG_ERROR(format, ...) \
  QUILLON_LOG_HERE(DLOG_ERROR, QUILLON_COLOUR_ERROR, format __VA_OPT__(, ) __VA_ARGS__)

#define QLOG_DEBUG_OF(operation, format, ...) \
  QUILLON_LOG_OF(operation, DLOG_DEBUG, QUILLON_COLOUR_DEBUG, format __VA_OPT__(, ) __VA_ARGS__)
#define QLOG_INFO_OF(operation, format, ...) \
  QUILLON_LOG_OF(operation, DLOG_INFO, QUILLON_COLOUR_INFO, format __VA_OPT__(, ) __VA_ARGS__)
#define QLOG_ERROR_OF(operation, format, ...) \
  QUILLON_LOG_OF(operation, DLOG_ERROR, QUILLON_COLOUR_ERROR, format __VA_OPT__(, ) __VA_ARGS__)

// Logs and traces the entry and the exit of the enclosing function, under its signature. That
// function must not be in an unnamed namespace, which would become a part of the signature.
#define QLOG_SCOPE() \
  const FunctionEntryExitTracker qlog_scope(__PRETTY_FUNCTION__, QUILLON_UNIT_PATH, __LINE__)

// Writes an entry line and opens a trace span. The destructor writes an exit line and closes the
// span.
class FunctionEntryExitTracker {
 public:
  //   function  signature of the traced function; copied
  //   file      source path; the message contains its last component; copied
  //   line      line number in the file
  FunctionEntryExitTracker(const char* function, const char* file, int line);
  ~FunctionEntryExitTracker();

  FunctionEntryExitTracker(const FunctionEntryExitTracker&) = delete;
  FunctionEntryExitTracker& operator=(const FunctionEntryExitTracker&) = delete;

 private:
  std::string function;
  std::string fileName;
  std::string filePath;
  int line;
  std::string message;
};

// Marks a launch milestone in the kernel's launch-marker channel and in the platform log, at info
// priority. `text` is not a format.
void TTraceLog(const char* text);

// Writes `text` to the standard-error capture pipe. Returns the result of write(2), or -1 if there
// is no capture. Async-signal-safe.
ssize_t sendMessageToDlogError(const char* text);

// Returns a copy of `format` with every "{n}" replaced by args[n]; see string_format_test in the
// plug-in's public header. The caller releases the result with delete[].
char* my_strinf_format(const char* format, const char** args, int size);
