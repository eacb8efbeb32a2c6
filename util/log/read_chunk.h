// One chunk of a captured stream: whatever one read of its pipe returned, without the newline that
// ends it.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

constexpr std::size_t kChunkBuffer = 10000;
constexpr std::size_t kLongestChunk = kChunkBuffer - 1;

class Chunk {
 public:
  // Waits until there is something to read, or no writer any more.
  static void await(int descriptor);

  // Reads. False at the end of the stream and on failure.
  bool read(int descriptor);

  // Ends with NUL. The bytes may hold NULs of their own.
  const char* text() const { return buffer_.data(); }
  std::string_view bytes() const { return {buffer_.data(), size_}; }
  // What was taken out of the pipe, the newline included.
  std::size_t taken() const { return taken_; }

 private:
  std::array<char, kChunkBuffer> buffer_;
  std::size_t size_ = 0;
  std::size_t taken_ = 0;
};
