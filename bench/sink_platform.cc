#include "bench/sink_platform.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/dlog.h"
#include "platform/trace.h"
#include "tests/support/captured_line.h"

namespace quillon::bench {
namespace {

std::atomic<int> sinkDescriptor{-1};
std::atomic<std::size_t> captured{0};

// The length of the captured output in a record of the plug-in; 0 for other records.
std::size_t capturedIn(const char* format, va_list arguments) {
  const auto line = test::capturedLine(format, arguments);
  return line ? std::strlen(line->text) : 0;
}

}  // namespace

void setSink(int descriptor) { sinkDescriptor = descriptor; }
std::size_t capturedBytes() { return captured; }

}  // namespace quillon::bench

extern "C" {

int __dlog_print(int /*log_id*/, int /*prio*/, const char* /*tag*/, const char* format, ...) {
  std::array<char, 16384> line;
  va_list arguments;
  va_start(arguments, format);
  const int size = std::vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
  const ssize_t written =
      write(quillon::bench::sinkDescriptor, line.data(), static_cast<std::size_t>(size));
  if (written != size) {
    std::abort();
  }
  va_start(arguments, format);
  if (!std::strstr(format, "DotNETLog")) {
    quillon::bench::captured += quillon::bench::capturedIn(format, arguments);
  }
  va_end(arguments);
  return static_cast<int>(written);
}

void trace_begin(const char* /*name*/) {}

void trace_end() {}

}  // extern "C"
