// What fuzz targets are made of.
//
// A target hands arbitrary bytes to one reader of outside bytes and requires what holds for every
// input, not merely that nothing crashes:
//
//   FUZZ_TARGET(cached_list) {                     // in cached_list_target.cc, named in
//   CMakeLists.txt
//     const MemoryFile file(bytes);
//     FUZZ_REQUIRE(readFileToString(file.path()) == bytes);
//   }
//
// Under the preset `fuzz` each target is a program of its own (scripts/fuzz runs them). Under every
// other preset fuzz-replay-test gives the committed corpus to all of them.
//
// A target runs on the recording platform, which is reset before each input, and keeps nothing from
// one input to the next.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace quillon::fuzz {

// Something that must hold does not. Fails a replay, and is caught by nothing in a fuzzing program.
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

// All targets, made from the list in CMakeLists.txt.
#define DECLARE_FUZZ_TARGET(name) void name##_target(std::string_view bytes);
#include "fuzz_targets.inc"
#undef DECLARE_FUZZ_TARGET

// Takes the bytes apart, so that an input can be written by hand: lines first, then the rest.
class Input {
 public:
  explicit Input(std::string_view bytes) : bytes_(bytes) {}

  // Up to the next line feed, which is dropped; empty at the end.
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
