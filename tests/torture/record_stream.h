// A stream of numbered records that several threads write, and the check that none is lost, changed
// or out of its thread's order.
//
// A record is kRecordSize bytes that follow from its thread and number, and a newline. The check
// reads the stream in pieces of any size, with newlines missing where a piece ended in one.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>

namespace quillon::torture {

constexpr std::size_t kRecordSize = 200;
constexpr std::size_t kLineSize = kRecordSize + 1;
constexpr unsigned kWriters = 4;

// Writes `records` records of a thread to a descriptor, one to twenty with each write(2), which is
// whole up to PIPE_BUF bytes.
void writeRecords(int descriptor, unsigned thread, std::size_t records);

class RecordCheck {
 public:
  // linesWhole: whether newlines stand between records only. The error file has one more after each
  // chunk.
  explicit RecordCheck(bool linesWhole = true) : linesWhole_(linesWhole) {}

  void take(std::string_view piece);

  // Whole records so far. Any thread may ask.
  std::size_t records() const { return records_; }
  // What was wrong first; empty while all is well. Ask when nothing is taken any more.
  const std::string& problem() const { return problem_; }

 private:
  void finishRecord();
  void fail(const std::string& what);

  const bool linesWhole_;
  std::string record_;  // as far as it came
  std::array<std::size_t, kWriters> next_{};
  std::atomic<std::size_t> records_{0};
  std::string problem_;
};

}  // namespace quillon::torture
