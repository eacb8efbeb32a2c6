// The TOML parser with the fuzzer's instrumentation, in place of the distribution's library. Like
// there, its assertions are off: some are about the input, which it checks once more afterwards.
#define TOML_ASSERT(expression) static_assert(true)
#define TOML_IMPLEMENTATION
#include <toml++/toml.h>
