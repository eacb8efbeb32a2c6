// The signatures of functions in traces, which the compiler makes.
#pragma once

#include <cctype>
#include <string>

namespace quillon::test {

// Spells a signature as GCC does: clang puts the space before "*" and "&", GCC puts it behind them
// if a name follows. A signature of GCC stays as it is.
inline std::string asGccSpells(std::string signature) {
  for (std::size_t at = 0; (at = signature.find_first_of("*&", at)) != std::string::npos; ++at) {
    if (at == 0 || signature[at - 1] != ' ') {
      continue;
    }
    const bool nameFollows = at + 1 < signature.size() && std::isalpha(signature[at + 1]) != 0;
    signature.erase(--at, 1);
    if (nameFollows) {
      signature.insert(at + 1, 1, ' ');
    }
  }
  return signature;
}

}  // namespace quillon::test
