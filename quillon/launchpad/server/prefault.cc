#include "quillon/launchpad/server/prefault.h"

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

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

// The writable segment of the program or library that holds a place in it, without its beginning,
// which the dynamic linker has made read-only.
struct Data {
  uintptr_t place = 0;
  uintptr_t first = 0;
  uintptr_t end = 0;
};

int findData(dl_phdr_info* object, size_t /*size*/, void* found) {
  Data data = *static_cast<Data*>(found);
  uintptr_t readOnlyEnd = 0;
  for (const ElfW(Phdr)* part = object->dlpi_phdr; part != object->dlpi_phdr + object->dlpi_phnum;
       ++part) {
    const uintptr_t first = object->dlpi_addr + part->p_vaddr;
    const uintptr_t end = first + part->p_memsz;
    if (part->p_type == PT_GNU_RELRO) readOnlyEnd = end;
    const bool isWritable = part->p_type == PT_LOAD && (part->p_flags & PF_W) != 0;
    if (isWritable && data.place >= first && data.place < end) data = {data.place, first, end};
  }
  if (data.end == 0) return 0;
  data.first = std::max(data.first, readOnlyEnd);
  *static_cast<Data*>(found) = data;
  return 1;
}

// Of the program, or of the library that this is a part of.
Data ownData() {
  static char place = 0;
  Data data{addressOf(&place)};
  dl_iterate_phdr(findData, &data);
  return data;
}

}  // namespace

void ownMemory() {
  const uintptr_t heapEnd = addressOf(sbrk(0));
  own(heapEnd - mallinfo2().arena, heapEnd);
  const Data data = ownData();
  own(data.first, data.end);
  const char here = 0;
  own(addressOf(&here) - kStackBelow, addressOf(&here) + kStackAbove);
}

}  // namespace quillon::launchpad
