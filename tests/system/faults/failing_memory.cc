#include "tests/system/faults/failing_memory.h"

#include <atomic>
#include <cerrno>

#include "tests/support/shared_memory.h"

namespace quillon::faults {
namespace {

using Count = std::atomic<std::size_t>;

// Shared with all child processes, so it must exist before the first one.
Count& made = test::makeSharedMemory<Count>();

bool isLasting = false;
std::size_t chosen = 0;

bool fails() {
  if (!isThreadWatched()) {
    return false;
  }
  const std::size_t now = ++made;
  const bool isChosen = chosen != 0 && (isLasting ? now >= chosen : now == chosen);
  if (isChosen) {
    errno = ENOMEM;
  }
  return isChosen;
}

}  // namespace

void failAllocation(std::size_t number, Shortage shortage, Threads threads) {
  made = 0;
  chosen = number;
  isLasting = shortage == Shortage::kFromThenOn;
  watchThreads(threads);
}

std::size_t allocationsMade() { return made; }

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
