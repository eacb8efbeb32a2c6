// The signatures of functions in traces, which the compiler makes.
#pragma once

#include <string>

namespace quillon::test {

// Spells a signature as GCC does. Clang puts a space before "*" and "&". A signature of GCC stays
// as it is.
inline std::string asGccSpells(std::string signature) {
  for (std::size_t at = 0; (at = signature.find_first_of("*&", at)) != std::string::npos; ++at) {
    if (at > 0 && signature[at - 1] == ' ') {
      signature.erase(--at, 1);
    }
  }
  return signature;
}

}  // namespace quillon::test
