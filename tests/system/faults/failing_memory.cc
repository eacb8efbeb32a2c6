#include "tests/system/faults/failing_memory.h"

#include <sys/mman.h>

#include <cerrno>

namespace quillon::faults {
namespace {

// Shared with child processes.
std::size_t& made() {
  static auto* const shared = static_cast<std::size_t*>(mmap(
      nullptr, sizeof(std::size_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  return *shared;
}

struct Counter {
  bool isCounting;
  bool isLasting;
  std::size_t number;
};

// Has a trivial constructor, so that malloc can read it at any time.
thread_local constinit Counter counter{};

bool fails() {
  if (!counter.isCounting) {
    return false;
  }
  const std::size_t now = ++made();
  const bool isChosen =
      counter.number != 0 && (counter.isLasting ? now >= counter.number : now == counter.number);
  if (isChosen) {
    errno = ENOMEM;
  }
  return isChosen;
}

}  // namespace

void failAllocation(std::size_t number, Shortage shortage) {
  made() = 0;
  counter = {true, shortage == Shortage::kFromThenOn, number};
}

std::size_t allocationsMade() { return made(); }

}  // namespace quillon::faults

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

void* malloc(std::size_t size) { return quillon::faults::fails() ? nullptr : __libc_malloc(size); }

void* calloc(std::size_t count, std::size_t size) {
  return quillon::faults::fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
  return quillon::faults::fails() ? nullptr : __libc_realloc(memory, size);
}

}  // extern "C"
