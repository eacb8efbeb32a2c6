#include "trace/trace_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>

#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"
#include "text/json_text.h"
#include "workstation/trace_start.h"

namespace quillon::workstation {
namespace {

constexpr int kFirstTraceDescriptor = 200;

bool isEmpty(int fd) {
  struct stat status {};
  return fstat(fd, &status) == 0 && status.st_size == 0;
}

// The first process writes the opening bracket. Every process that finds the file empty takes the
// lock, so that no event precedes the bracket.
bool writeOpening(int fd) {
  if (!isEmpty(fd)) {
    return true;
  }
  if (!lockFile(fd, std::chrono::seconds(1))) {
    return false;
  }
  const bool written = !isEmpty(fd) || writeAll(fd, "[\n");
  flock(fd, LOCK_UN);
  return written;
}

// Returns an invalid descriptor with errno if the file cannot be written.
Descriptor openTrace(const char* path) {
  const Descriptor low = openForAppending(path);
  // Out of the range that programs use for themselves.
  Descriptor fd(low ? fcntl(low.get(), F_DUPFD_CLOEXEC, kFirstTraceDescriptor) : -1);
  if (fd && writeOpening(fd.get())) {
    return fd;
  }
  return {};
}

Descriptor openNamedTrace() {
  const char* path = std::getenv("QUILLON_TRACE");
  if (path == nullptr || *path == '\0') {
    return {};
  }
  Descriptor file = openTrace(path);
  if (!file) {
    writeAll(STDERR_FILENO, std::string("quillon: QUILLON_TRACE: cannot write the trace file '") +
                                path + "': " + fileErrorText(errno) +
                                "; going on without a trace\n");
  }
  return file;
}

// Lives until the process ends: threads may trace while static objects are destroyed.
Descriptor& traceFile() {
  static Descriptor& file = *new Descriptor(openNamedTrace());
  return file;
}

// Runs when the library is loaded: it opens the file before the process enters a device root.
[[gnu::constructor]] void openAtLoad() { traceFile(); }

// The fields "ph", "pid", "tid" and "ts" of every event.
std::string commonFields(char phase) {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const long long microseconds = now.tv_sec * 1'000'000LL + now.tv_nsec / 1000;
  std::array<char, 128> text{};
  std::snprintf(text.data(), text.size(), R"({"ph":"%c","pid":%d,"tid":%d,"ts":%lld.%03d)", phase,
                getpid(), gettid(), microseconds, static_cast<int>(now.tv_nsec % 1000));
  return text.data();
}

// Writes an event: the common fields, then `fields`, then the name if it has one. Returns false if
// memory runs out: the callers are C functions.
bool append(char phase, std::string_view fields, std::optional<std::string_view> name) try {
  std::string event = commonFields(phase);
  event.append(fields);
  if (name) {
    event.append(",\"name\":").append(jsonQuote(*name));
  }
  return writeAll(traceFile().get(), event.append("},\n"));
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace

Expected<void> startTrace(const std::string& path) {
  Descriptor file = openTrace(path.c_str());
  if (!file) {
    return fail("cannot write the trace file '" + path + "': " + fileErrorText(errno),
                "name a file in a folder that exists and can be written");
  }
  traceFile() = std::move(file);
  return {};
}

bool isTracing() { return static_cast<bool>(traceFile()); }

bool traceBegin(std::string_view name) { return append('B', "", name); }

bool traceEnd() { return append('E', "", std::nullopt); }

bool traceInstant(std::string_view name) { return append('i', R"(,"s":"p","cat":"marker")", name); }

}  // namespace quillon::workstation
