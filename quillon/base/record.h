// Serializes strings and numbers to a string of bytes. docs/launchpad.md has the grammar.
//
// A reader accepts arbitrary bytes. After the first read past the end, or of an invalid length,
// ok() is false and every result is empty.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillon {

class RecordWriter {
 public:
  RecordWriter& number(uint64_t value);
  RecordWriter& text(std::string_view value);
  RecordWriter& texts(const std::vector<std::string>& values);
  // Reserves space for `more` bytes, so that writing them does not reallocate.
  RecordWriter& reserve(size_t more);
  // Appends raw bytes, which RecordReader::rest() returns.
  RecordWriter& append(std::string_view rest);

  [[nodiscard]] const std::string& bytes() const { return bytes_; }
  // Moves the bytes out.
  std::string take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

class RecordReader {
 public:
  // `bytes` must outlive the reader.
  explicit RecordReader(std::string_view bytes) : rest_(bytes) {}

  uint64_t number();
  std::string text();
  // The same as text(), without a copy. Refers to the reader's bytes.
  std::string_view view();
  std::vector<std::string> texts();

  // Returns all remaining bytes.
  std::string_view rest();

  // Fails the reader unless `isValid`, for a reader of values that finds one invalid.
  void require(bool isValid) { ok_ = ok_ && isValid; }

  [[nodiscard]] bool ok() const { return ok_; }
  // Whether every read succeeded and no bytes remain.
  [[nodiscard]] bool atEnd() const { return ok_ && rest_.empty(); }

 private:
  std::string_view take(uint64_t length);
  // Reads the number of elements of a list. Fails if the remaining bytes cannot hold that many.
  uint64_t count();

  std::string_view rest_;
  bool ok_ = true;
};

}  // namespace quillon
