// For a test program that overrides a function of the C library: finds the C library's function.
#pragma once

#include <dlfcn.h>

namespace quillon::test {

// next<decltype(&rename)>("rename")(from, to); see RTLD_NEXT in dlsym(3).
template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace quillon::test
