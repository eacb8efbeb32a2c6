// What the plug-in's readers make of an application's output. Input: the bytes that one read of the
// pipe returns.
#include <unistd.h>

#include <array>

#include "tests/fuzz/target.h"
#include "util/log/crash_keywords.h"
#include "util/log/read_chunk.h"

namespace {

struct Pipe {
  Pipe() { FUZZ_REQUIRE(pipe(ends.data()) == 0); }
  std::array<int, 2> ends{};
};

bool contains(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }

void requireKeywords(std::string_view text) {
  managedExceptionOccurred = false;
  memoryIssueOccurred = false;
  scanForCrashKeywords(text.data());
  FUZZ_REQUIRE(managedExceptionOccurred ==
               (contains(text, "Velora") || contains(text, "dll") ||
                contains(text, "Process is terminating due to StackOverflowException.")));
  FUZZ_REQUIRE(memoryIssueOccurred == (contains(text, "stack smashing detected") ||
                                       contains(text, "double free or corruption")));
}

}  // namespace

FUZZ_TARGET(captured_output) {
  static const Pipe pipe;
  if (bytes.empty() || bytes.size() > kMaxChunk) {
    return;
  }
  FUZZ_REQUIRE(write(pipe.ends[1], bytes.data(), bytes.size()) ==
               static_cast<ssize_t>(bytes.size()));
  Chunk chunk;
  FUZZ_REQUIRE(chunk.read(pipe.ends[0]));
  FUZZ_REQUIRE(chunk.taken() == bytes.size());
  FUZZ_REQUIRE(chunk.bytes() == bytes.substr(0, bytes.size() - (bytes.ends_with('\n') ? 1 : 0)));
  const std::string_view text = chunk.text();
  FUZZ_REQUIRE(text == chunk.bytes().substr(0, chunk.bytes().find('\0')));
  requireKeywords(text);
}
