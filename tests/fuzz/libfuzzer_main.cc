// The entry points for libFuzzer. QUILLON_FUZZ_TARGET is the name of the program's target, and
// QUILLON_FUZZ_GRAMMAR is the path of its grammar, if it has one.
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/fuzz/line_mutator.h"
#include "tests/fuzz/target.h"
#include "tests/support/recording_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quillon::test::platform().reset();
  quillon::fuzz::QUILLON_FUZZ_TARGET({reinterpret_cast<const char*>(data), size});
  return 0;
}

#ifdef QUILLON_FUZZ_GRAMMAR
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed);

// Changes lines in one half of the cases and bytes in the other.
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                    unsigned seed) {
  static const std::vector<std::string> grammar = [] {
    std::ifstream file(QUILLON_FUZZ_GRAMMAR);
    return quillon::fuzz::linesOf(std::string(std::istreambuf_iterator<char>(file), {}));
  }();
  if (seed % 2 == 0) {
    return LLVMFuzzerMutate(data, size, maxSize);
  }
  const std::string mutated =
      quillon::fuzz::mutateLines({reinterpret_cast<const char*>(data), size}, grammar, seed);
  return mutated.copy(reinterpret_cast<char*>(data), maxSize);
}
#endif
