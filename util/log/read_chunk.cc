#include "util/log/read_chunk.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

// An interrupted poll(2) has no effect on the pipe, so it is simply repeated.
void Chunk::await(int descriptor) {
  pollfd readable{descriptor, POLLIN, 0};
  while (poll(&readable, 1, -1) < 0 && errno == EINTR) {
  }
}

bool Chunk::read(int descriptor) {
  const ssize_t count = ::read(descriptor, buffer_.data(), kMaxChunk);
  if (count <= 0) {
    return false;
  }
  taken_ = static_cast<std::size_t>(count);
  size_ = buffer_[taken_ - 1] == '\n' ? taken_ - 1 : taken_;
  buffer_[size_] = '\0';
  return true;
}
