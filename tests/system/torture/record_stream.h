// A stream of numbered records from several threads, and a check that no record is lost, changed or
// out of order within its thread.
//
// A record consists of kRecordSize bytes, which depend on its thread and number, and a newline. The
// check reads the stream in pieces of any size. A newline at the end of a piece may be missing.
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

// Writes `records` records of a thread to a descriptor, one to twenty per write(2). A write(2) of
// at most PIPE_BUF bytes is atomic.
void writeRecords(int descriptor, unsigned thread, std::size_t records);

class RecordCheck {
 public:
  // linesWhole: true if newlines occur only between records. The error file has an additional
  // newline after each chunk.
  explicit RecordCheck(bool linesWhole = true) : linesWhole_(linesWhole) {}

  void take(std::string_view piece);

  // Returns the number of complete records so far. May be called by any thread.
  std::size_t records() const { return records_; }
  // Returns a description of the first error, or an empty string. Call it only after the last piece
  // was checked.
  const std::string& problem() const { return problem_; }

 private:
  void finishRecord();
  void fail(const std::string& what);

  const bool linesWhole_;
  std::string record_;  // the incomplete record
  std::array<std::size_t, kWriters> next_{};
  std::atomic<std::size_t> records_{0};
  std::string problem_;
};

}  // namespace quillon::torture
