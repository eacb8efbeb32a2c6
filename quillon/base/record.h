// Texts and numbers, one after the other, in a string of bytes. docs/launchpad.md has the grammar.
//
// A reader takes any bytes whatever: past their end, or where they do not fit, every result is
// empty and ok() is false from there on.
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
  // Makes room for more bytes, which are then written without a copy of what is there.
  RecordWriter& reserve(size_t more);
  // Bytes as they are, which a reader finds with rest().
  RecordWriter& append(std::string_view rest);

  [[nodiscard]] const std::string& bytes() const { return bytes_; }
  // The same, handed over.
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
  std::vector<std::string> texts();

  // All that is left.
  std::string_view rest();

  [[nodiscard]] bool ok() const { return ok_; }
  // Whether all was read and nothing is left.
  [[nodiscard]] bool atEnd() const { return ok_ && rest_.empty(); }

 private:
  std::string_view take(uint64_t length);
  // The number of elements of a list; a count that the bytes cannot hold ends the reading.
  uint64_t count();

  std::string_view rest_;
  bool ok_ = true;
};

}  // namespace quillon
