// A platform log that formats each record and writes it to a descriptor, like a real sink. For
// benchmarks of the code that calls it.
#pragma once

#include <cstddef>

namespace quillon::bench {

// Sets the descriptor for all further records.
void setSink(int descriptor);

// The number of bytes of captured output that the sink has received.
std::size_t capturedBytes();

}  // namespace quillon::bench
