// Memory that a process shares with its children.
#pragma once

#include <sys/mman.h>

#include <new>

namespace quillon::test {

// Returns a T of zeros that child processes made later share. It is never freed.
template <typename T>
T& makeSharedMemory() {
  void* const memory =
      mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  return *new (memory) T{};
}

}  // namespace quillon::test
