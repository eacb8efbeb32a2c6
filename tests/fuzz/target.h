// Declarations for fuzz targets.
//
// A target passes arbitrary bytes to a parser and checks properties that hold for every input, in
// addition to the absence of crashes:
//
//   // in cached_list_target.cc, which CMakeLists.txt lists
//   FUZZ_TARGET(cached_list) {
//     const MemoryFile file(bytes);
//     FUZZ_REQUIRE(readFileToString(file.path()) == bytes);
//   }
//
// With the preset `fuzz`, each target is a program, which scripts/fuzz runs. With all other
// presets, fuzz-replay-test runs all targets with the committed corpus.
//
// A target runs on the recording platform, which is reset before each input. It must not keep state
// from one input to the next.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace quillon::fuzz {

// A violated requirement. Fails the replay test; in a fuzzing program nothing catches it, so the
// program aborts.
class Violation : public std::logic_error {
 public:
  Violation(const char* file, int line, const char* condition)
      : std::logic_error(std::string(file) + ':' + std::to_string(line) +
                         " does not hold: " + condition) {}
};

#define FUZZ_REQUIRE(condition)    \
  static_cast<void>((condition) || \
                    (throw quillon::fuzz::Violation(__FILE__, __LINE__, #condition), false))

#define FUZZ_TARGET(name) void quillon::fuzz::name##_target(std::string_view bytes)

using Target = void (*)(std::string_view bytes);

// All targets, generated from the list in CMakeLists.txt.
#define DECLARE_FUZZ_TARGET(name) void name##_target(std::string_view bytes);
#include "fuzz_targets.inc"
#undef DECLARE_FUZZ_TARGET

// Splits an input into lines and the rest, so that inputs can be written by hand.
class Input {
 public:
  explicit Input(std::string_view bytes) : bytes_(bytes) {}

  // The text up to the next line feed, without it; empty at the end.
  std::string_view line() {
    const std::size_t end = bytes_.find('\n');
    const std::string_view taken = bytes_.substr(0, end);
    bytes_.remove_prefix(end == std::string_view::npos ? bytes_.size() : end + 1);
    return taken;
  }
  [[nodiscard]] std::string_view rest() const { return bytes_; }
  [[nodiscard]] bool atEnd() const { return bytes_.empty(); }

 private:
  std::string_view bytes_;
};

}  // namespace quillon::fuzz
