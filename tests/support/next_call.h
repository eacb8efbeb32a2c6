// For a test program that overrides a function of the C library: finds the C library's function.
#pragma once

#include <dlfcn.h>

#include <array>
#include <string_view>

namespace quillon::test {

// The symbol that a call of a function refers to. The headers of a 32-bit machine give functions
// with file sizes and times another symbol; see _FILE_OFFSET_BITS and _TIME_BITS in
// feature_test_macros(7).
inline const char* symbolOf(const char* function) {
  struct Symbol {
    std::string_view function;
    const char* symbol;
  };
  constexpr std::array kSymbols{Symbol{"fopen", "fopen64"}, Symbol{"fstat", "__fstat64_time64"},
                                Symbol{"lstat", "__lstat64_time64"}, Symbol{"open", "open64"},
                                Symbol{"readdir", "readdir64"}};
  if constexpr (sizeof(void*) == 4) {
    for (const auto& [name, symbol] : kSymbols) {
      if (name == function) {
        return symbol;
      }
    }
  }
  return function;
}

// next<decltype(&rename)>("rename")(from, to); see RTLD_NEXT in dlsym(3).
template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, symbolOf(name)));
}

}  // namespace quillon::test
