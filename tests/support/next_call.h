// The C library's own function behind one that a test program defines itself, to stand between the
// code under test and the C library.
#pragma once

#include <dlfcn.h>

namespace quillon::test {

// next<decltype(&rename)>("rename")(from, to); see RTLD_NEXT in dlsym(3).
template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace quillon::test
