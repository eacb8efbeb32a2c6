// The memory that the C library has given out.
#pragma once

#include <malloc.h>

#include <cstddef>

namespace quillon::test {

// Returns the bytes of malloc(3) that are not freed. Always 0 with a sanitizer, which has its own
// malloc and reports leaks itself.
inline std::size_t memoryInUse() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

}  // namespace quillon::test
