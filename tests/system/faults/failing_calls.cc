#include "tests/system/faults/failing_calls.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <set>
#include <span>
#include <stdexcept>

#include "tests/support/shared_memory.h"

namespace quillon::faults {
namespace {

constexpr std::size_t kMaxFunctions = 256;
constexpr std::size_t kStubSize = 16;

std::array<const char*, kMaxFunctions> names;
std::size_t functionCount = 0;
FailingCall chosen;

using Counts = std::array<std::atomic<std::size_t>, kMaxFunctions>;

// Shared with child processes.
Counts& counts() {
  static Counts& shared = test::makeSharedMemory<Counts>();
  return shared;
}

}  // namespace
}  // namespace quillon::faults

extern "C" {
// Used by the stubs below. The original function and the result of the failure.
void* quillonOriginals[quillon::faults::kMaxFunctions];
long quillonFailureResult;
extern char quillonStubs[];

// Whether the call of a function fails.
bool quillonFails(std::size_t index) {
  using namespace quillon::faults;
  if (!isThreadWatched()) {
    return false;
  }
  const std::size_t calls = ++counts()[index];
  const bool fails = chosen.failure != nullptr && calls == chosen.number &&
                     std::strcmp(names[index], chosen.failure->function) == 0;
  if (fails) {
    quillonFailureResult = chosen.failure->result;
    errno = chosen.failure->error;
  }
  return fails;
}
}

// One stub for each function pushes its index. The common part keeps all registers that hold
// arguments, so that it works for functions with any parameters.
asm(R"(
.text
.balign 16
.globl quillonStubs
.hidden quillonStubs
quillonStubs:
.set index, 0
.rept 256
.balign 16
  pushq $index
  jmp 1f
.set index, index + 1
.endr
.balign 16
1:
  push %rax; push %rdi; push %rsi; push %rdx; push %rcx; push %r8; push %r9; push %r10
  mov 64(%rsp), %rdi
  lea -128(%rsp), %rsp
  movups %xmm0, (%rsp);   movups %xmm1, 16(%rsp); movups %xmm2, 32(%rsp); movups %xmm3, 48(%rsp)
  movups %xmm4, 64(%rsp); movups %xmm5, 80(%rsp); movups %xmm6, 96(%rsp); movups %xmm7, 112(%rsp)
  call quillonFails
  movups (%rsp), %xmm0;   movups 16(%rsp), %xmm1; movups 32(%rsp), %xmm2; movups 48(%rsp), %xmm3
  movups 64(%rsp), %xmm4; movups 80(%rsp), %xmm5; movups 96(%rsp), %xmm6; movups 112(%rsp), %xmm7
  lea 128(%rsp), %rsp
  test %al, %al
  jne 2f
  pop %r10; pop %r9; pop %r8; pop %rcx; pop %rdx; pop %rsi; pop %rdi; pop %rax
  pop %r11
  lea quillonOriginals(%rip), %r10
  jmp *(%r10, %r11, 8)
2:
  lea 72(%rsp), %rsp
  mov quillonFailureResult(%rip), %rax
  ret
)");

namespace quillon::faults {
namespace {

// A function of another library, and where its address is.
struct Import {
  const char* name;
  std::uintptr_t offset;
};

// The tables of the library's dynamic section.
struct DynamicTables {
  explicit DynamicTables(const link_map& map) {
    for (const auto* entry = map.l_ld; entry->d_tag != DT_NULL; ++entry) {
      switch (entry->d_tag) {
        case DT_SYMTAB:
          symbols = reinterpret_cast<const ElfW(Sym)*>(entry->d_un.d_ptr);
          break;
        case DT_STRTAB:
          names = reinterpret_cast<const char*>(entry->d_un.d_ptr);
          break;
        case DT_JMPREL:
          calls = reinterpret_cast<const ElfW(Rela)*>(entry->d_un.d_ptr);
          break;
        case DT_PLTRELSZ:
          callCount = entry->d_un.d_val / sizeof(ElfW(Rela));
          break;
        case DT_RELA:
          addresses = reinterpret_cast<const ElfW(Rela)*>(entry->d_un.d_ptr);
          break;
        case DT_RELASZ:
          addressCount = entry->d_un.d_val / sizeof(ElfW(Rela));
          break;
        default:
          break;
      }
    }
  }

  // The relocations that hold the address of a function of another library: of one that is called,
  // or whose address is used.
  std::vector<Import> imports() const {
    std::vector<Import> found;
    for (const auto& table : {std::span(calls, callCount), std::span(addresses, addressCount)}) {
      for (const ElfW(Rela) & relocation : table) {
        const ElfW(Sym)& symbol = symbols[ELF64_R_SYM(relocation.r_info)];
        if (isAddress(relocation) && isFunctionElsewhere(symbol)) {
          found.push_back({names + symbol.st_name, relocation.r_offset});
        }
      }
    }
    return found;
  }

 private:
  static bool isAddress(const ElfW(Rela) & relocation) {
    const auto type = ELF64_R_TYPE(relocation.r_info);
    return type == R_X86_64_JUMP_SLOT || type == R_X86_64_GLOB_DAT || type == R_X86_64_64;
  }

  static bool isFunctionElsewhere(const ElfW(Sym) & symbol) {
    return symbol.st_shndx == SHN_UNDEF && ELF64_ST_TYPE(symbol.st_info) == STT_FUNC &&
           ELF64_ST_BIND(symbol.st_info) != STB_WEAK;
  }

  const ElfW(Sym) * symbols = nullptr;
  const char* names = nullptr;
  const ElfW(Rela) * calls = nullptr;
  const ElfW(Rela) * addresses = nullptr;
  std::size_t callCount = 0;
  std::size_t addressCount = 0;
};

const link_map& mapOf(void* library) {
  const link_map* map = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) {
    throw std::runtime_error(dlerror());
  }
  return *map;
}

void resetCounts() {
  for (auto& count : counts()) {
    count = 0;
  }
}

bool isAmong(const std::vector<Failure>& failures, const char* name) {
  return std::any_of(failures.begin(), failures.end(), [&](const Failure& failure) {
    return std::strcmp(failure.function, name) == 0;
  });
}

// The table is read-only after relocation.
void patch(void** slot, void* value) {
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  auto* const start = reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(slot) & ~(page - 1));
  if (mprotect(start, page, PROT_READ | PROT_WRITE) != 0) {
    throw std::runtime_error("cannot patch the table of addresses");
  }
  *slot = value;
}

// Returns the stub's index for a function, whose address may be in the library twice.
std::size_t indexOf(const char* name, void* original) {
  std::size_t index = 0;
  while (index < functionCount && std::strcmp(name, names[index]) != 0) {
    ++index;
  }
  if (index == functionCount) {
    names.at(functionCount++) = name;
    quillonOriginals[index] = original;
  }
  return index;
}

}  // namespace

void watchCalls(void* library, const std::vector<Failure>& failures) {
  const link_map& map = mapOf(library);
  for (const Import& import : DynamicTables(map).imports()) {
    if (isAmong(failures, import.name)) {
      auto** const slot = reinterpret_cast<void**>(map.l_addr + import.offset);
      patch(slot, quillonStubs + indexOf(import.name, *slot) * kStubSize);
    }
  }
  resetCounts();  // makes the memory before the first child process
}

void failAt(const FailingCall& call, Threads threads) {
  resetCounts();
  chosen = call;
  watchThreads(threads);
}

std::set<std::string> functionsCalledBy(void* library) {
  std::set<std::string> functions;
  for (const Import& import : DynamicTables(mapOf(library)).imports()) {
    const std::string name = import.name;
    if (!name.starts_with("_Z") && !name.starts_with("__cxa_") && !name.starts_with("__gxx_")) {
      functions.insert(name);
    }
  }
  return functions;
}

std::size_t callsOf(const char* name) {
  for (std::size_t index = 0; index < functionCount; ++index) {
    if (std::strcmp(names[index], name) == 0) {
      return counts()[index];
    }
  }
  return 0;
}

}  // namespace quillon::faults
