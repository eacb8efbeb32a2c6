#include "quillon/base/record.h"

#include <cstring>

namespace quillon {

RecordWriter& RecordWriter::number(uint64_t value) {
  char raw[sizeof value];
  std::memcpy(raw, &value, sizeof value);
  bytes_.append(raw, sizeof raw);
  return *this;
}

RecordWriter& RecordWriter::text(std::string_view value) {
  number(value.size());
  bytes_.append(value);
  return *this;
}

RecordWriter& RecordWriter::reserve(size_t more) {
  bytes_.reserve(bytes_.size() + more);
  return *this;
}

RecordWriter& RecordWriter::append(std::string_view rest) {
  bytes_.append(rest);
  return *this;
}

RecordWriter& RecordWriter::texts(const std::vector<std::string>& values) {
  number(values.size());
  for (const std::string& value : values) {
    text(value);
  }
  return *this;
}

std::string_view RecordReader::take(uint64_t length) {
  if (!ok_ || length > rest_.size()) {
    ok_ = false;
    return {};
  }
  const std::string_view taken = rest_.substr(0, length);
  rest_.remove_prefix(length);
  return taken;
}

uint64_t RecordReader::number() {
  uint64_t value = 0;
  const std::string_view raw = take(sizeof value);
  if (raw.size() == sizeof value) {
    std::memcpy(&value, raw.data(), sizeof value);
  }
  return value;
}

std::string RecordReader::text() { return std::string(view()); }

std::string_view RecordReader::view() { return take(number()); }

std::string_view RecordReader::rest() { return take(rest_.size()); }

uint64_t RecordReader::count() {
  const uint64_t elements = number();
  // Each element takes at least the bytes of its length.
  if (elements > rest_.size() / sizeof(uint64_t)) {
    ok_ = false;
  }
  return ok_ ? elements : 0;
}

std::vector<std::string> RecordReader::texts() {
  std::vector<std::string> values;
  for (uint64_t left = count(); left > 0 && ok_; --left) {
    values.push_back(text());
  }
  return values;
}

}  // namespace quillon
