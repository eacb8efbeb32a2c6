// Makes one call of a shared library fail: any call of the C library or of the platform. Calls that
// other libraries make are not affected.
//
// For x86-64 only: the library's table of addresses is patched.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "tests/system/faults/watched_threads.h"

namespace quillon::faults {

// How a function reports an error.
struct Failure {
  const char* function;
  long result;
  int error;  // errno
};

// A call of the library: 1 for the first call of the function.
struct FailingCall {
  const Failure* failure = nullptr;
  std::size_t number = 0;
};

// Patches the library, which dlopen(3) has loaded, for all functions of `failures`. Must be called
// before the functions below.
void watchCalls(void* library, const std::vector<Failure>& failures);

// From now on counts the calls of these threads, and makes one of them fail.
void failAt(const FailingCall& call, Threads threads = Threads::kCalling);

// Returns the functions of other libraries that the library calls, except those of the C++ library.
std::set<std::string> functionsCalledBy(void* library);

// The number of calls of a function since failAt(), which a child process may have called.
std::size_t callsOf(const char* function);

}  // namespace quillon::faults
