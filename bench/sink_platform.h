// A platform log that formats each record and writes it to a descriptor, as a real sink does, for
// benchmarks of what stands in front of it.
#pragma once

#include <cstddef>

namespace quillon::bench {

// Where records go from now on.
void setSink(int descriptor);

// Bytes of captured output that the sink has had so far.
std::size_t capturedBytes();

}  // namespace quillon::bench
