// One chunk of a captured stream: the bytes that one read of the pipe returned, without a newline
// at the end.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

constexpr std::size_t kChunkBuffer = 10000;
constexpr std::size_t kMaxChunk = kChunkBuffer - 1;

class Chunk {
 public:
  // Waits until the pipe contains data or has no writer any more.
  static void await(int descriptor);

  // Reads a chunk. Returns false at the end of the stream and on failure.
  bool read(int descriptor);

  // text() is NUL-terminated. bytes() can contain NUL bytes.
  const char* text() const { return buffer_.data(); }
  std::string_view bytes() const { return {buffer_.data(), size_}; }
  // Returns the number of bytes read from the pipe, including the newline at the end.
  std::size_t taken() const { return taken_; }

 private:
  std::array<char, kChunkBuffer> buffer_;
  std::size_t size_ = 0;
  std::size_t taken_ = 0;
};
