// Encodes and decodes the fields of a message. Encoder and Decoder take the same list of fields, so
// that a message names every field once and in one order. Decoder accepts only what Encoder can
// have written.
//
//   template <typename Archive, typename AnyRequest>
//   void visit(Archive&& archive, AnyRequest& request) { archive(request.appId, request.raw); }
#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/state/limits.h"

namespace quillon::launchpad {

class Encoder {
 public:
  explicit Encoder(RecordWriter& writer) : writer_(writer) {}

  template <typename... Fields>
  void operator()(const Fields&... fields) {
    (encode(fields), ...);
  }

 private:
  void encode(std::integral auto value) { writer_.number(static_cast<uint64_t>(value)); }
  void encode(const std::string& value) { writer_.text(value); }
  void encode(const std::vector<std::string>& values) { writer_.texts(values); }
  void encode(const std::optional<std::string>& value) {
    writer_.number(value ? 1 : 0);
    if (value) {
      writer_.text(*value);
    }
  }
  void encode(const std::vector<int>& values) {
    writer_.number(values.size());
    for (const int value : values) {
      encode(value);
    }
  }
  void encode(const Limits& limits) {
    writer_.text({reinterpret_cast<const char*>(limits.data()), limits.size() * sizeof(rlimit)});
  }

  RecordWriter& writer_;
};

class Decoder {
 public:
  explicit Decoder(RecordReader& reader) : reader_(reader) {}

  template <typename... Fields>
  void operator()(Fields&... fields) {
    (decode(fields), ...);
  }

 private:
  // Fails if the number does not fit.
  template <std::integral T>
  void decode(T& value) {
    const uint64_t number = reader_.number();
    value = static_cast<T>(number);
    reader_.require(static_cast<uint64_t>(value) == number);
  }
  void decode(std::string& value) { value = reader_.text(); }
  void decode(std::vector<std::string>& values) { values = reader_.texts(); }
  void decode(std::optional<std::string>& value) {
    auto values = reader_.texts();
    reader_.require(values.size() <= 1);
    if (!values.empty()) {
      value = std::move(values.front());
    }
  }
  void decode(std::vector<int>& values) {
    const uint64_t count = reader_.number();
    reader_.require(count <= kMaxDescriptors);
    values.resize(reader_.ok() ? count : 0);
    for (int& value : values) {
      decode(value);
    }
  }
  void decode(Limits& limits) {
    const std::string bytes = reader_.text();
    reader_.require(bytes.size() % sizeof(rlimit) == 0);
    limits.resize(bytes.size() / sizeof(rlimit));
    bytes.copy(reinterpret_cast<char*>(limits.data()), limits.size() * sizeof(rlimit));
  }

  RecordReader& reader_;
};

}  // namespace quillon::launchpad
