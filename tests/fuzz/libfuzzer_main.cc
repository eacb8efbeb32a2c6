// The entry point for libFuzzer. QUILLON_FUZZ_TARGET is the name of the program's target.
#include <cstddef>
#include <cstdint>

#include "tests/fuzz/target.h"
#include "tests/support/recording_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quillon::test::platform().reset();
  quillon::fuzz::QUILLON_FUZZ_TARGET({reinterpret_cast<const char*>(data), size});
  return 0;
}
