#include "tests/system/torture/record_stream.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace quillon::torture {
namespace {

constexpr std::size_t kMaxPerWrite = 20;
constexpr std::size_t kHeaderSize = 12;  // "T:NNNNNNNN: "

static_assert(kMaxPerWrite * kLineSize <= 4096, "a write(2) of up to PIPE_BUF bytes is atomic");

std::string recordOf(unsigned thread, std::size_t number) {
  std::array<char, kHeaderSize + 1> header{};
  std::snprintf(header.data(), header.size(), "%u:%08zx: ", thread % 10, number & 0xffffffff);
  std::string record = header.data();
  for (std::size_t i = kHeaderSize - 1; record.size() < kRecordSize; ++i) {
    record += static_cast<char>('!' + (i * 31 + number * 7 + thread) % 90);
  }
  return record;
}

}  // namespace

void writeRecords(int descriptor, unsigned thread, std::size_t records) {
  for (std::size_t number = 0; number < records;) {
    const std::size_t end = std::min(records, number + 1 + number % kMaxPerWrite);
    std::string text;
    for (; number < end; ++number) {
      text += recordOf(thread, number) + "\n";
    }
    if (write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
      std::abort();  // otherwise the check would wait forever
    }
  }
}

void RecordCheck::take(std::string_view piece) {
  while (!piece.empty()) {
    if (piece.front() == '\n') {
      if (linesWhole_ && !record_.empty()) {
        fail("a newline inside a record: " + record_);
      }
      piece.remove_prefix(1);
      continue;
    }
    const std::size_t size =
        std::min({piece.find('\n'), kRecordSize - record_.size(), piece.size()});
    record_ += piece.substr(0, size);
    piece.remove_prefix(size);
    if (record_.size() == kRecordSize) {
      finishRecord();
    }
  }
}

void RecordCheck::finishRecord() {
  const auto thread = static_cast<unsigned>(record_[0] - '0');
  if (thread >= kWriters) {
    fail("no thread's: " + record_);
  } else if (record_ != recordOf(thread, next_[thread]++)) {
    fail("not number " + std::to_string(next_[thread] - 1) + " of its thread: " + record_);
  }
  record_.clear();
  ++records_;
}

void RecordCheck::fail(const std::string& what) {
  if (problem_.empty()) {
    problem_ = what;
  }
}

}  // namespace quillon::torture
