#include "launcher/launchpad/own_memory.h"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

// The linker's: where data begins (crt1) and ends (end(3)).
extern "C" char __data_start;
extern "C" char _end;

namespace quillon::launchpad {
namespace {

constexpr int kPopulateWrite = 23;            // MADV_POPULATE_WRITE, of newer C libraries
constexpr uintptr_t kStackBelow = 24 * 1024;  // that a launch uses
constexpr uintptr_t kStackAbove = 4 * 1024;
// More of it would not be a launch's: a sanitizer's data, say.
constexpr uintptr_t kMost = 4 * 1024 * 1024;

void own(uintptr_t first, uintptr_t end) {
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  first &= ~(page - 1);
  if (first >= end || end - first > kMost) return;
  madvise(reinterpret_cast<void*>(first), end - first, kPopulateWrite);
}

uintptr_t addressOf(const void* place) { return reinterpret_cast<uintptr_t>(place); }

}  // namespace

void ownMemory() {
  const uintptr_t heapEnd = addressOf(sbrk(0));
  own(heapEnd - mallinfo2().arena, heapEnd);
  own(addressOf(&__data_start), addressOf(&_end));
  const char here = 0;
  own(addressOf(&here) - kStackBelow, addressOf(&here) + kStackAbove);
}

}  // namespace quillon::launchpad
